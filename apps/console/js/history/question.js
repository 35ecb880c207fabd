// One question to the log with all that belongs to it: what runs at the moment, the reply, and why there is none.

import { fetchActive, fetchOccurrences } from "../api.js";
import { Loader } from "./loader.js";
import { loggerPath } from "./period.js";

/** Title and advice for what can go wrong, by status or by the kind of the ApiError. */
const PROBLEMS = {
  400: ["The server doesn't take this period", "Choose another one."],
  404: ["This server keeps no history", "It doesn't know the service that tells the log."],
  413: ["This period holds more than the server sends at once", "Choose a shorter one."],
  forbidden: ["You may not see the history", ""],
  throttled: ["The server refuses to answer for a while", "Wait a minute, then try again."],
  busy: ["The server can't answer at the moment (503)", "Too much is being asked of it. Try again."],
  unreachable: ["No connection to the server", "Nothing can be asked until it answers again."],
  unreadable: ["The server's answer can't be read", ""],
};

/** What went wrong in words: {title, detail, lost}, `lost` when it was the connection. */
export function problemText(error) {
  const [title, advice] = PROBLEMS[error.status] ?? PROBLEMS[error.kind] ?? ["The server refused", ""];
  return { title, detail: [advice, error.message && `(${error.message})`].filter(Boolean).join(" "), lost: error.kind === "unreachable" };
}

export class Question {
  /**
   * `answered(result)` is called with {rows, bounds, address, since, now, at, after, complete, dropped}: `since` and `now` are
   * the server's time at its begin and end, `at` is this computer's, `after` what ran then or null; `failed({title, detail, lost})` when nothing came of it,
   * `signInNeeded()` when the server wants to know who asks. None of them after `cancel`.
   */
  constructor(model, { answered, failed, signInNeeded }) {
    Object.assign(this, { model, answered, failed, signInNeeded });
    this.asked = null;   // {address, bounds, began, since, before} while it is under way; `since` by the server's clock
    this.loader = new Loader({ done: (rows, reply) => this.done(rows, reply), failed: (error) => this.refused(error) });
  }

  get underWay() {
    return this.asked !== null;
  }

  /** How far it is: {waited, received, total, count}, milliseconds, bytes and occurrences. */
  progress() {
    const { received, total, rows } = this.loader;
    return { waited: Date.now() - this.asked.began, received, total, count: rows.count };
  }

  async ask(address, bounds) {
    this.cancel();
    const asked = { address, bounds, began: Date.now(), since: this.model.now(), before: null };
    this.asked = asked;
    const before = await this.running();
    if (this.asked !== asked) return;
    asked.before = before;
    this.loader.start(loggerPath(bounds));
  }

  cancel() {
    this.loader.cancel();
    this.asked = null;
  }

  /** What runs now, {active, occurrences}, as the server has told a moment ago or tells when asked; null when it doesn't. */
  async running() {
    const { model } = this;
    const { active, occurrences } = model.replies;
    if (model.isLive() && active.items && occurrences.items && !active.error && !occurrences.error) {
      return { active: active.items, occurrences: occurrences.items };
    }
    return this.runningNow();
  }

  async runningNow() {
    try {
      const [active, occurrences] = await Promise.all([fetchActive(), fetchOccurrences()]);
      return { active, occurrences };
    } catch {
      return null;
    }
  }

  /**
   * What has no end in the log was active when the log was read if it was so before, or is so after. Asking on both sides needs no clock that
   * this computer and the server agree on.
   */
  async done(rows, { complete, dropped }) {
    const { asked } = this;
    const after = await this.runningNow();
    if (this.asked !== asked) return;
    const { address, bounds, since, before } = asked;
    const now = this.model.now();
    rows.settle([before, after].filter(Boolean), now);
    this.asked = null;
    this.answered({ rows, bounds, address, since, now, at: Date.now(), after, complete, dropped });
  }

  refused(error) {
    this.asked = null;
    if (error.kind === "signin") this.signInNeeded();
    else this.failed(problemText(error));
  }
}
