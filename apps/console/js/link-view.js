// How the link to the server stands: the sign at the top, the banner when it is broken, the clock.

import { part, setAttribute, setData, setText } from "./dom.js";
import { dateText, durationText, timeText } from "./time.js";

const TITLES = {
  unreachable: "No connection to the server",
  busy: "The server can't answer at the moment (503)",
  unreadable: "The server's answer can't be read",
  forbidden: "You may not see the events",
  refused: "The server refuses to answer",
  throttled: "The server refuses to answer for a while",
  silent: "The server doesn't answer",
};

export class LinkView {
  /** `retry()` asks at once. */
  constructor(model, retry) {
    this.model = model;
    this.link = document.getElementById("link");
    this.banner = document.getElementById("banner");
    this.tail = document.getElementById("banner-tail");
    part(this.tail, "now").addEventListener("click", retry);
  }

  render() {
    const { model } = this;
    const state = this.state();
    const broken = state in TITLES;
    document.body.dataset.live = model.isLive() ? "yes" : "no";
    setData(this.link, "state", broken ? "lost" : state);
    setText(part(this.link, "words"), { up: "Live", connecting: "Connecting…", signin: "Signed out" }[state] ?? "No live data");
    setAttribute(this.link.querySelector("use"), "href", broken ? "#sign-lost" : "#sign-good");
    this.banner.hidden = !broken;
    this.tail.hidden = !broken;
    if (broken) this.renderBanner(state);
    this.renderClock();
  }

  /** A request that has been under way for too long is as bad as one that failed. */
  state() {
    const { model } = this;
    if (model.signInNeeded) return "signin";
    if (model.link.state === "up" && !model.isLive()) return "silent";
    return model.link.state;
  }

  /** The alert holds only what doesn't tick: a screen reader would read a countdown aloud each second. */
  renderBanner(state) {
    const { model } = this;
    const seen = model.lastGood !== null;
    setText(part(this.banner, "title"), TITLES[state]);
    setText(part(this.banner, "detail"), seen ? "What you see is old: events may have come and gone since." : "Nothing is known about the plant yet.");
    setText(part(this.tail, "age"), seen ? `Last good answer at ${timeText(new Date(model.lastGood))}, ${durationText(model.age())} ago.` : "");
    setText(part(this.tail, "retry"), this.retryText());
  }

  retryText() {
    const { retryAt } = this.model.link;
    if (retryAt === null) return "Waiting for the answer…";
    const left = Math.ceil((retryAt - Date.now()) / 1000);
    return left > 0 ? `Trying again in ${left} s.` : "Trying again…";
  }

  renderClock() {
    const now = new Date();
    const clock = document.getElementById("clock");
    setText(clock, `${dateText(now)} ${timeText(now)}`);
    const warning = document.getElementById("clock-warning");
    warning.hidden = !this.model.clocksDiffer();
    if (warning.hidden) return;
    const ahead = this.model.clockOffset > 0;
    setText(warning, `This computer's clock is ${durationText(Math.abs(this.model.clockOffset))} ${ahead ? "behind" : "ahead of"} the server's; durations follow the server.`);
  }
}
