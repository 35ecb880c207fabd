// Acknowledging: asks back where that is due, sends, and tells what came of it.

import { acknowledge } from "./api.js";
import { part, setText } from "./dom.js";

/** Names of events listed when asking back. */
const LISTED = 6;

export class Acknowledging {
  /** `refresh()` fetches the state after an answer; `signInNeeded()` is called when the session has ended. */
  constructor(model, notices, { refresh, signInNeeded }) {
    this.model = model;
    this.notices = notices;
    this.refresh = refresh;
    this.signInNeeded = signInNeeded;
    this.dialog = document.getElementById("confirm");
  }

  /** Exactly these occurrences, as the operator saw them: one that arrives meanwhile is never acknowledged along with them. */
  async send(occurrences, confirm) {
    const refusal = this.model.ackRefusal();
    if (refusal !== null) return this.notices.show(refusal, "problem");
    const fresh = occurrences.filter((occurrence) => !this.model.sending.has(occurrence.id));
    if (fresh.length === 0) return;
    if (confirm && fresh.length > 1 && !(await this.askBack(fresh))) return;
    await this.deliver(fresh);
  }

  async deliver(occurrences) {
    const ids = occurrences.map((occurrence) => occurrence.id);
    this.model.sendingBegins(ids);
    try {
      await acknowledge(ids);
      this.model.sendingAnswered(ids);
      this.notices.show(ids.length === 1 ? `Acknowledged: ${occurrences[0].name}` : `${ids.length} occurrences acknowledged`);
    } catch (error) {
      this.model.sendingFailed(ids);
      this.explain(error);
    }
    this.refresh();
  }

  explain(error) {
    if (error.kind === "signin") return this.signInNeeded();
    if (error.kind === "forbidden") {
      this.model.mayAcknowledge = false;
      this.model.changed();
      return this.notices.show(`${this.model.ackRefusal()} (The server says: ${error.message})`, "problem");
    }
    const reasons = { unreachable: "the server can't be reached", busy: "the server is too busy (503)" };
    this.notices.show(`Not acknowledged: ${reasons[error.kind] ?? error.message}. Try again.`, "problem");
  }

  askBack(occurrences) {
    const counts = new Map();
    for (const { name } of occurrences) counts.set(name, (counts.get(name) ?? 0) + 1);
    const lines = [...counts].slice(0, LISTED).map(([name, count]) => (count > 1 ? `${name} (${count})` : name));
    if (counts.size > LISTED) lines.push(`and ${counts.size - LISTED} other events`);
    setText(document.getElementById("confirm-title"), `Acknowledge ${occurrences.length} occurrences?`);
    part(this.dialog, "list").replaceChildren(...lines.map((text) => {
      const line = document.createElement("li");
      line.textContent = text;
      return line;
    }));
    return new Promise((resolve) => {
      this.dialog.returnValue = "no";
      this.dialog.addEventListener("close", () => resolve(this.dialog.returnValue === "yes"), { once: true });
      this.dialog.showModal();
      part(this.dialog, "yes").focus();
    });
  }
}
