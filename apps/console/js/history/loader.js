// One question to the log at a time, in a worker: begun, told about, finished or given up.

import { ApiError } from "../api.js";
import { Rows } from "./rows.js";

const WORKER = new URL("./worker.js", import.meta.url);

/** A worker whose file doesn't come has no message to tell. */
function workerError(message) {
  return message ? new ApiError("unreadable", message) : new ApiError("unreachable", "no connection");
}

export class Loader {
  /** `done(rows, {complete, dropped})` or `failed(error)` is called at the end, none of them after `cancel`. */
  constructor({ done, failed }) {
    this.tell = { done, failed };
    this.worker = null;
    this.forget();
  }

  forget() {
    this.rows = new Rows();
    this.received = 0;   // bytes
    this.total = null;   // bytes, null when the server doesn't say
  }

  start(path) {
    this.cancel();
    const worker = new Worker(WORKER, { type: "module" });
    this.worker = worker;
    worker.onmessage = ({ data }) => this.hear(data);
    worker.onerror = ({ message }) => this.finish(() => this.tell.failed(workerError(message)));
    worker.postMessage({ path });
  }

  hear(message) {
    if (message.kind === "rows") {
      this.rows.append(message.records);
      this.received = message.received;
      this.total = message.total;
    } else if (message.kind === "done") {
      const { rows } = this;
      this.finish(() => this.tell.done(rows, message));
    } else {
      const { kind, message: words, status } = message.error;
      this.finish(() => this.tell.failed(new ApiError(kind, words, status)));
    }
  }

  finish(report) {
    this.stop();
    report();
  }

  /** Ends the question, also on the server's side of the connection. */
  stop() {
    this.worker?.terminate();
    this.worker = null;
  }

  /** The same, and forgets what has come of it. */
  cancel() {
    this.stop();
    this.forget();
  }
}
