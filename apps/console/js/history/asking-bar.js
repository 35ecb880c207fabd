// That a question takes its time, how far it is, and a way out.

import { part, setAttribute, setText } from "../dom.js";
import { counted } from "./words.js";

/** Milliseconds until it shows, and between two looks at how far it is. */
const AFTER = 1000;
const EVERY = 250;

const megabytes = (bytes) => `${(bytes / 1e6).toFixed(1)} MB`;

function progressWords({ received, total, count }) {
  if (received === 0) return "The server is reading its log…";
  return `${counted(count, "occurrence")} so far, ${megabytes(received)}${total ? ` of ${megabytes(total)}` : ""}`;
}

export class AskingBar {
  constructor(root, question, { cancel }) {
    Object.assign(this, { root, question });
    this.timer = 0;
    part(root, "cancel").addEventListener("click", cancel);
  }

  render() {
    const { root, question } = this;
    clearTimeout(this.timer);
    const progress = question.underWay ? question.progress() : null;
    root.hidden = progress === null || progress.waited < AFTER;
    if (progress === null) return;
    this.timer = setTimeout(() => this.render(), progress.waited < AFTER ? AFTER - progress.waited : EVERY);
    setAttribute(part(root, "asking-part"), "value", progress.total ? String(progress.received / progress.total) : null);
    setText(part(root, "asking-words"), progressWords(progress));
  }
}
