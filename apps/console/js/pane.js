// What the panes have in common: their count, the note about old data, the empty text, the limit on drawn rows, details of a row.

import { drawRows, part, setAttribute, setText } from "./dom.js";
import { durationText, fullText, momentText } from "./time.js";

/** Rows drawn at first: enough for any calm day, few enough for a phone during a bad one. */
const FIRST_ROWS = 300;
/** Each request for more shows so many times as many. */
const GROWTH = 4;

export class Pane {
  /** `keyOf`, `create` and `update` as for drawRows; `onMore` is called when the limit has been raised. */
  constructor(root, { keyOf, create, update, onMore }) {
    this.root = root;
    this.rows = part(root, "rows");
    this.keyOf = keyOf;
    this.create = create;
    this.update = update;
    this.limit = FIRST_ROWS;
    this.more = part(root, "more");
    this.more.addEventListener("click", () => {
      this.limit *= GROWTH;
      onMore();
    });
  }

  /** Draws as many of the items as the limit allows. Gives the drawn items and the rows that went. */
  draw(items) {
    const drawn = items.slice(0, this.limit);
    const gone = drawRows(this.rows, drawn, this.keyOf, this.create, this.update);
    this.more.hidden = drawn.length === items.length;
    setText(this.more, items.length <= this.limit * GROWTH ? `Show all ${items.length}` : `Show ${this.limit * GROWTH} of ${items.length}`);
    return { drawn, gone };
  }

  setCount(shown, all) {
    setCount(this.root, shown, all);
  }

  /** `title` null hides the text. */
  setEmpty(title, detail = "", calm = true) {
    setEmpty(this.root, title, detail, calm);
  }

  /** Says how old the reply is when it isn't what the server says now, and marks the pane so. */
  setStale(model, reply) {
    const stale = reply.error !== null || !model.isLive();
    this.root.dataset.stale = stale && reply.at !== null ? "yes" : "no";
    const note = part(this.root, "stale");
    note.hidden = !stale || reply.at === null;
    if (note.hidden) return;
    const reason = reply.error?.kind === "unreadable" ? "The last answer couldn't be read. " : "";
    setText(note, `${reason}As of ${momentText(new Date(reply.at), new Date())}, ${durationText(Date.now() - reply.at)} ago`);
  }
}

/** How many rows are shown, of how many; nothing where `all` is null. */
export function setCount(root, shown, all) {
  const count = part(root, "count");
  if (all === null) setText(count, "");
  else setText(count, shown === all ? String(all) : `${shown} of ${all}`);
}

/** What stands in place of rows; `title` null hides it. */
export function setEmpty(root, title, detail = "", calm = true) {
  const empty = part(root, "empty");
  empty.hidden = title === null;
  if (title === null) return;
  empty.dataset.calm = calm ? "yes" : "no";
  empty.querySelector("use").setAttribute("href", calm ? "#sign-good" : "#sign-lost");
  setText(part(empty, "empty-title"), title);
  setText(part(empty, "empty-detail"), detail);
}

/** What an empty pane says before the first answer and when the answer can't be read; null when the pane may speak for itself. */
export function missingText(reply) {
  if (reply.items !== null) return null;
  if (reply.error === null) return { title: "Waiting for the server…", detail: "", calm: true };
  const titles = {
    unreadable: "The server's answer can't be shown",
    forbidden: "You may not see this",
    refused: "The server refused",
  };
  return { title: titles[reply.error.kind] ?? "Nothing known yet", detail: reply.error.message, calm: false };
}

/** Fills a <dl> with pairs of term and text; pairs without text are left out. */
export function fillDetail(list, pairs) {
  const shown = pairs.filter(([, text]) => text);
  drawRows(list, shown, ([term]) => term, () => {
    const row = document.createElement("div");
    row.append(document.createElement("dt"), document.createElement("dd"));
    return row;
  }, (row, [term, text]) => {
    setText(row.firstElementChild, term);
    setText(row.lastElementChild, text);
  });
}

/** Details about an event that every row can show, from what is configured. */
export function configuredPairs(event) {
  if (!event) return [];
  return [
    ["Groups", event.groups.join(", ")],
    ["Time table", event.timeTable ?? "none: always checked"],
    ["Log", event.record ? "changes are recorded" : "not recorded"],
  ];
}

export const datePair = (term, date) => [term, date ? fullText(date) : ""];

/** Shows or hides the details of a row, and says so to assistive technology. */
export function setOpen(row, open) {
  part(row, "detail").hidden = !open;
  setAttribute(part(row, "name"), "aria-expanded", String(open));
}
