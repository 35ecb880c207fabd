// The list of occurrences. However long it is, only the rows in sight and a few around them are in the page.

import { drawRows, fromTemplate, part, setAttribute, setData, setMoment, setSort, setText } from "../dom.js";
import { fullText, dateText, timeText } from "../time.js";
import { ackWords, dateOf, lengthWords, stateName } from "./words.js";

/** Rows kept above and below what is in sight, so that a quick scroll meets text. */
const MARGIN = 12;
/** Pixels that browsers can scroll for certain. A longer list is scrolled in proportion. */
const TALLEST = 8000000;

const MOVES = { ArrowDown: () => 1, ArrowUp: () => -1, PageDown: (page) => page, PageUp: (page) => -page };

export class LogTable {
  /** `open(row)` shows the details of a row, `sort(by)` is called with a column's name. */
  constructor(root, { open, sort }) {
    this.root = root;
    this.list = part(root, "rows");
    this.scroller = part(root, "scroll");
    this.order = new Uint32Array(0);
    this.current = 0;       // place of the row that the keyboard is at
    this.open = open;
    this.pending = 0;
    this.measure();
    this.listen(sort);
  }

  listen(sort) {
    for (const head of this.root.querySelectorAll("[data-sort]")) {
      head.firstElementChild.addEventListener("click", () => sort(head.dataset.sort));
    }
    this.list.addEventListener("keydown", (event) => this.key(event));
    // Whatever scrolls, the pane or the page: what is in sight changes. The event doesn't bubble, so it is caught on its way down.
    document.addEventListener("scroll", () => this.later(), { capture: true, passive: true });
    new ResizeObserver(() => {
      this.measure();
      this.later();
    }).observe(this.root);
  }

  /** The height of a row is a matter of the style sheet, which knows screen and font. */
  measure() {
    const probe = fromTemplate("row-history");
    probe.classList.add("probe");
    this.list.append(probe);
    this.height = probe.offsetHeight || 40;
    probe.remove();
  }

  later() {
    if (this.pending) return;
    this.pending = requestAnimationFrame(() => {
      this.pending = 0;
      this.draw();
    });
  }

  /** Shows the rows of `order`, places in `rows`, from the first one on. */
  show(order, rows, described, sort) {
    Object.assign(this, { order, rows, described });
    setAttribute(part(this.root, "table"), "aria-rowcount", String(order.length + 1));
    setSort(this.root, sort);
    this.current = 0;
    this.scroller.scrollTop = 0;
    this.draw();
  }

  clear() {
    this.order = new Uint32Array(0);
    this.rows = null;
    drawRows(this.list, [], String, null, null);
  }

  fullHeight() {
    return Math.min(this.order.length * this.height, TALLEST);
  }

  /** The part of the list that is in sight, in its own pixels: {top, size}. */
  view() {
    const list = this.list.getBoundingClientRect();
    const frame = this.scroller.getBoundingClientRect();
    const top = Math.max(frame.top, 0);
    const bottom = Math.min(frame.bottom, window.innerHeight);
    return { top: top - list.top, size: Math.max(0, bottom - top) };
  }

  /** The row at the upper edge of what is in sight, with its fraction. */
  firstRow({ top, size }) {
    const full = this.order.length * this.height;
    if (full <= TALLEST) return top / this.height;
    return Math.max(0, top) / (TALLEST - size) * (this.order.length - size / this.height);
  }

  draw() {
    if (!this.root.checkVisibility() || !this.rows) return;
    this.list.style.height = `${this.fullHeight()}px`;
    const view = this.view();
    const first = this.firstRow(view);
    const from = Math.max(0, Math.floor(first) - MARGIN);
    const to = Math.min(this.order.length, Math.ceil(first + view.size / this.height) + MARGIN);
    const places = [];
    for (let place = from; place < to; ++place) places.push(place);
    // The row with the focus stays in the page: without it the keyboard would be nowhere.
    const focused = this.focusedPlace();
    if (focused !== null && focused < from) places.unshift(focused);
    if (focused !== null && focused >= to && focused < this.order.length) places.push(focused);
    const gone = drawRows(this.list, places, (place) => String(this.order[place]), () => this.create(), (row, place) => {
      row.style.top = `${Math.round(view.top + (place - first) * this.height)}px`;
      this.update(row, place);
    });
    if (focused !== null && gone.some((row) => row.dataset.place === String(focused))) this.focus(this.current);
  }

  create() {
    const line = fromTemplate("row-history");
    part(line, "name").addEventListener("click", () => {
      this.current = Number(line.dataset.place);
      this.open(this.order[this.current]);
      this.draw();
    });
    return line;
  }

  update(line, place) {
    const { rows } = this;
    const row = this.order[place];
    const event = this.described[rows.event[row]];
    const date = dateOf(rows, row);
    const [length, ack] = [lengthWords(rows, row), ackWords(rows, row, event)];
    setData(line, "place", String(place));
    setData(line, "state", stateName(rows, row));
    setAttribute(line, "aria-rowindex", String(place + 2));
    setText(part(line, "name"), event.name);
    setAttribute(part(line, "name"), "tabindex", place === this.current ? "0" : "-1");
    setMoment(part(line, "time"), date, date ? `${dateText(date)} ${timeText(date)}` : "unknown", date ? fullText(date) : "");
    setText(part(line, "text"), rows.annotation[row]);
    setAttribute(part(line, "text"), "title", rows.annotation[row] || null);
    this.updateSigned(line, "length", length);
    this.updateSigned(line, "ack", ack);
  }

  updateSigned(line, name, { text, sign }) {
    setText(part(line, name), text);
    const use = part(line, `${name}-sign`);
    use.parentElement.toggleAttribute("hidden", sign === null);
    if (sign !== null) setAttribute(use, "href", sign);
  }

  // --- Keyboard ------------------------------------------------------------------

  focusedPlace() {
    const line = document.activeElement?.closest?.(".log-row");
    return line && this.list.contains(line) ? Number(line.dataset.place) : null;
  }

  key(event) {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    const page = Math.max(1, Math.floor(this.view().size / this.height) - 2);
    const last = this.order.length - 1;
    let place = null;
    if (event.key in MOVES) place = this.current + MOVES[event.key](page);
    else if (event.key === "Home") place = 0;
    else if (event.key === "End") place = last;
    if (place === null) return;
    event.preventDefault();
    event.stopPropagation();
    this.focus(Math.min(Math.max(place, 0), last));
  }

  focus(place) {
    this.current = place;
    this.reveal(place);
    this.draw();
    const line = [...this.list.children].find((candidate) => candidate.dataset.place === String(place));
    line?.querySelector(".name").focus({ preventScroll: true });
  }

  /** Scrolls whatever holds the list, so that the row is in sight below the heads of the columns. */
  reveal(place) {
    const head = this.root.querySelector(".log-head").offsetHeight;
    const full = this.order.length * this.height;
    // In a list that is scrolled in proportion a step lands only near the place, and a second one on it.
    for (let step = 0; step < 3; ++step) {
      const view = this.view();
      const at = (place - this.firstRow(view)) * this.height;
      const room = view.size - this.height;
      const away = at < head ? at - head : Math.max(0, at - room);
      if (Math.abs(away) < 1) return;
      this.holder().scrollTop += away * (full <= TALLEST ? 1 : (TALLEST - view.size) / (full - view.size));
    }
  }

  /** What scrolls the list: its pane, the page "History" or the whole document, by the size of the screen. */
  holder() {
    const scrolls = (element) => element.scrollHeight > element.clientHeight + 1 && getComputedStyle(element).overflowY !== "visible";
    return [this.scroller, this.root.closest(".page")].find(scrolls) ?? document.scrollingElement;
  }
}
