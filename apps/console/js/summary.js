// What can be read from across the room, the window's title and its icon.

import { part, setData, setText } from "./dom.js";
import { roughDurationText } from "./time.js";

export class SummaryView {
  constructor(model) {
    this.model = model;
    this.root = document.getElementById("summary");
    this.icon = document.getElementById("icon");
  }

  render() {
    const waiting = this.model.waiting();
    this.root.hidden = this.model.signInNeeded;
    setData(this.root, "stale", this.model.isLive() ? "no" : "yes");
    this.renderWaiting(waiting);
    this.renderActive();
    this.renderDevices();
    this.renderWindow(waiting);
  }

  renderWaiting(waiting) {
    const count = waiting?.length ?? 0;
    const running = waiting?.some((occurrence) => !occurrence.ended) ?? false;
    const tone = count === 0 ? "calm" : running ? "alarm" : "ended";
    this.tile("waiting", tone, { calm: "#sign-good", alarm: "#sign-alarm", ended: "#sign-ended" }[tone]);
    this.number("waiting-count", waiting && count);
    setText(part(this.root, "waiting-words"), tone === "ended" ? "to acknowledge, all ended" : "to acknowledge");
    const begins = (waiting ?? []).filter((occurrence) => occurrence.since).map((occurrence) => occurrence.since.getTime());
    setText(part(this.root, "oldest-length"), begins.length > 0 ? roughDurationText(this.model.now() - Math.min(...begins)) : "–");
  }

  renderActive() {
    this.number("active-count", this.model.active()?.length ?? null);
  }

  renderDevices() {
    const devices = this.model.plantDevices();
    const failed = this.model.failedDevices()?.length ?? 0;
    this.tile("devices", failed > 0 ? "ended" : "calm", failed > 0 ? "#sign-lost" : "#sign-good");
    this.number("devices-count", failed > 0 ? failed : devices?.length ?? null);
    setText(part(this.root, "devices-words"), failed > 0 ? `of ${devices.length} devices in error` : devices?.length === 1 ? "device answers" : "devices answer");
  }

  tile(name, tone, sign) {
    const tile = part(this.root, name);
    setData(tile, "tone", tone);
    const use = tile.querySelector("use");
    if (use.getAttribute("href") !== sign) use.setAttribute("href", sign);
  }

  number(name, value) {
    setText(part(this.root, name), value === null ? "–" : String(value));
  }

  /** The title begins with what matters, since a tab shows its beginning only. */
  renderWindow(waiting) {
    const { model } = this;
    const lost = !model.isLive() && model.link.state !== "connecting" && !model.signInNeeded;
    const count = waiting?.length ?? 0;
    const number = count > 0 ? `(${count}) ` : "";
    const words = model.signInNeeded ? "Sign in" : lost ? "No connection" : count > 0 ? "To acknowledge" : "Events";
    const title = `${lost ? "⚠ " : ""}${number}${words} – Corvane`;
    if (document.title !== title) document.title = title;
    const icon = `/console/${lost ? "icon-lost" : count > 0 ? "icon-waiting" : "icon"}.svg`;
    if (this.icon.getAttribute("href") !== icon) this.icon.setAttribute("href", icon);
  }
}
