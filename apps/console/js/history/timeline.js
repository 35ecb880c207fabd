// The picture of the occurrences over time: looked at with a mouse, a finger, or the keyboard.

import { part, setAttribute, setText } from "../dom.js";
import { dateText, fullText, timeText } from "../time.js";
import { Lanes } from "./lanes.js";
import { boundsText } from "./period.js";
import { Scale } from "./scale.js";
import { TimelinePicture, layout } from "./timeline-picture.js";
import { ackWords, counted, dateOf, lengthWords, numberText } from "./words.js";

/** Pixels: how near a pointer has to come, and how far it has to move until it draws instead of pointing. */
const REACH = 5;
const DRAG = 5;
const ZOOM_STEP = 1.6;
/** The factor of one pixel of the wheel, and the pixels of a line where it counts in lines. */
const WHEEL_STEP = 1.0015;
const LINE = 30;
/** The part of what is in sight by which a page of keys moves. */
const PAGE = 0.75;
/** Names in the summary that is read aloud. */
const NAMED = 3;

export class Timeline {
  /** `open(row)` shows the details of an occurrence, `asPeriod(begin, end)` asks the server for what is in sight. */
  constructor(root, { open, asPeriod }) {
    this.root = root;
    this.box = part(root, "lanes");
    this.bubble = part(root, "bubble");
    this.picture = new TimelinePicture(root, part(root, "picture"), part(root, "axis"));
    this.open = open;
    this.lanes = null;
    this.cursor = null;          // {lane, place} of the occurrence that the keyboard is at
    this.pointers = new Map();   // pointers that are down, by id: {x, y} within the box
    this.gesture = null;
    this.pending = 0;
    part(root, "in").addEventListener("click", () => this.zoom(0.5, 1 / ZOOM_STEP));
    part(root, "out").addEventListener("click", () => this.zoom(0.5, ZOOM_STEP));
    part(root, "all").addEventListener("click", () => this.showAll());
    part(root, "as-period").addEventListener("click", () => asPeriod(new Date(this.scale.from), new Date(Math.ceil(this.scale.to / 1000) * 1000)));
    this.listen();
  }

  listen() {
    const { box } = this;
    box.addEventListener("pointerdown", (event) => this.down(event));
    box.addEventListener("pointermove", (event) => this.move(event));
    box.addEventListener("pointerup", (event) => this.up(event));
    box.addEventListener("pointercancel", (event) => this.forget(event));
    box.addEventListener("pointerleave", () => { if (this.pointers.size === 0) this.hideBubble(); });
    box.addEventListener("dblclick", (event) => { if (!this.hit(this.at(event))) this.showAll(); });
    box.addEventListener("wheel", (event) => this.wheel(event), { passive: false });
    box.addEventListener("keydown", (event) => this.key(event));
    box.addEventListener("blur", () => this.leave());
    box.addEventListener("scroll", () => {
      if (!this.cursor) this.hideBubble();
      this.later();
    });
    new ResizeObserver(() => this.later()).observe(box);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.later());
  }

  /** Shows the picked rows; `places` are those of the events in the order of their lanes. A `fresh` period is seen whole. */
  show({ rows, picked, places, described, bounds, now, fresh }) {
    this.described = described;
    this.lanes = new Lanes(rows, picked, places, now);
    const before = this.scale;
    this.scale = new Scale(bounds.begin.getTime(), bounds.end.getTime());
    if (!fresh && before && !before.whole) this.scale.show(before.from, before.span);
    this.cursor = null;
    this.hideBubble();
    setAttribute(this.box, "aria-label", this.summary(rows, picked, bounds));
    this.draw();
  }

  clear() {
    this.lanes = null;
    this.cursor = null;
    this.hideBubble();
    this.bubble.replaceChildren();
    this.box.removeAttribute("aria-label");
    setText(part(this.root, "voice"), "");
    this.picture.clear();
  }

  summary(rows, picked, bounds) {
    const most = [...this.lanes.list].sort((a, b) => b.rows.length - a.rows.length).slice(0, NAMED)
      .map((lane) => `${this.described[lane.place].name}, ${numberText(lane.rows.length)}`);
    return `Timeline of ${counted(picked.length, "occurrence")} of ${counted(this.lanes.list.length, "event")}, ${boundsText(bounds)}. ` +
      `Most often: ${most.join("; ")}.`;
  }

  // --- Drawing ---------------------------------------------------------------

  later() {
    this.pending ||= requestAnimationFrame(() => {
      this.pending = 0;
      this.draw();
    });
  }

  draw() {
    if (!this.lanes || !this.root.checkVisibility()) return;
    const { box, scale, lanes } = this;
    this.layout = layout(box.clientWidth);
    part(this.root, "height").style.height = `${lanes.list.length * this.layout.lane}px`;
    const chosen = this.gesture?.kind === "choose" ? { from: this.gesture.from, to: this.gesture.to } : null;
    this.picture.draw({ lanes, scale, width: box.clientWidth, height: box.clientHeight, scrolled: box.scrollTop,
      names: lanes.list.map((lane) => this.described[lane.place].name), cursor: this.cursor, chosen });
    for (const name of ["all", "as-period"]) part(this.root, name).hidden = scale.whole;
    part(this.root, "out").disabled = scale.whole;
    setText(part(this.root, "count"), scale.whole ? counted(lanes.list.length, "event") : this.sightText());
  }

  sightText() {
    const [from, to] = [new Date(this.scale.from), new Date(this.scale.to)];
    const until = dateText(from) === dateText(to) ? timeText(to) : `${dateText(to)} ${timeText(to)}`;
    return `${dateText(from)} ${timeText(from)} – ${until}`;
  }

  // --- Zooming -----------------------------------------------------------------

  zoom(place, factor) {
    const changed = this.scale?.zoom(place, factor) ?? false;
    if (changed) this.moved();
    return changed;
  }

  pan(amount) {
    const changed = this.scale?.pan(amount) ?? false;
    if (changed) this.moved();
    return changed;
  }

  showAll() {
    this.scale?.showAll();
    this.moved();
  }

  moved() {
    this.hideBubble();
    this.later();
  }

  /** At the end of what it can do, the wheel belongs to the page again. Beside the plot it scrolls the lanes. */
  wheel(event) {
    const { x } = this.at(event);
    if (!this.lanes || x < this.layout.left) return;
    const pixels = event.deltaMode === WheelEvent.DOM_DELTA_LINE ? LINE : 1;
    const sideways = event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY);
    const changed = sideways ? this.pan((event.deltaX || event.deltaY) * pixels / this.layout.width)
      : this.zoom(this.placeAt(x), WHEEL_STEP ** (event.deltaY * pixels));
    if (changed) event.preventDefault();
  }

  // --- Pointers ------------------------------------------------------------------

  at(event) {
    const box = this.box.getBoundingClientRect();
    return { x: event.clientX - box.left, y: event.clientY - box.top };
  }

  placeAt(x) {
    return Math.min(1, Math.max(0, (x - this.layout.left) / this.layout.width));
  }

  down(event) {
    if (!this.lanes || event.button !== 0 || event.offsetX > this.box.clientWidth) return;
    const at = this.at(event);
    this.pointers.set(event.pointerId, at);
    this.hideBubble();
    if (this.pointers.size === 2) {
      const [a, b] = [...this.pointers.values()];
      this.gesture = { kind: "pinch", times: [a, b].map(({ x }) => this.scale.time(this.placeAt(x))) };
    } else if (this.pointers.size === 1) {
      this.gesture = { kind: "point", start: at, moves: event.pointerType === "mouse" && !event.shiftKey ? "choose" : "pan" };
      if (event.pointerType === "mouse") this.box.setPointerCapture(event.pointerId);
    }
  }

  move(event) {
    if (!this.lanes) return;
    const at = this.at(event);
    const before = this.pointers.get(event.pointerId);
    if (!before) return this.hover(at, event.pointerType);
    this.pointers.set(event.pointerId, at);
    const { gesture } = this;
    if (gesture?.kind === "point" && Math.abs(at.x - gesture.start.x) > DRAG) {
      this.gesture = { kind: gesture.moves, from: Math.max(gesture.start.x, this.layout.left), to: at.x };
    }
    if (this.gesture?.kind === "choose") {
      this.gesture.to = Math.min(Math.max(at.x, this.layout.left), this.layout.left + this.layout.width);
      this.later();
    } else if (this.gesture?.kind === "pan") {
      this.pan((before.x - at.x) / this.layout.width);
    } else if (this.gesture?.kind === "pinch") this.pinch();
  }

  /** The two times stay under the two fingers. */
  pinch() {
    const [a, b] = [...this.pointers.values()].map(({ x }) => (x - this.layout.left) / this.layout.width);
    const [first, second] = this.gesture.times;
    if (Math.abs(b - a) < 0.02 || (second - first) * (b - a) <= 0) return;
    const span = (second - first) / (b - a);
    this.scale.show(first - a * span, span);
    this.moved();
  }

  up(event) {
    const { gesture } = this;
    this.forget(event);
    if (gesture?.kind === "choose") {
      const [from, to] = [gesture.from, gesture.to].map((x) => this.scale.time(this.placeAt(x))).sort((a, b) => a - b);
      if (to > from) this.scale.show(from, to - from);
      this.moved();
    } else if (gesture?.kind === "point") {
      const hit = this.hit(this.at(event));
      if (hit) this.open(this.lanes.list[hit.lane].rows[hit.place]);
    }
  }

  forget(event) {
    this.pointers.delete(event.pointerId);
    if (this.gesture?.kind === "choose") this.later();
    this.gesture = null;
  }

  /** The occurrence at a place of the box: {lane, place, others} with the number of others too near to be told apart; null without one. */
  hit({ x, y }) {
    const lane = Math.floor((y + this.box.scrollTop) / this.layout.lane);
    if (lane < 0 || lane >= this.lanes.list.length || x < this.layout.left - REACH) return null;
    const perPixel = this.scale.span / this.layout.width;
    const time = this.scale.time((x - this.layout.left) / this.layout.width);
    const place = this.lanes.find(lane, time, REACH * perPixel);
    if (place < 0) return null;
    const begin = this.lanes.begin(this.lanes.list[lane].rows[place]);
    return { lane, place, others: this.lanes.countBetween(lane, begin - perPixel, begin + perPixel) - 1 };
  }

  hover(at, pointerType) {
    if (pointerType === "touch") return;
    const hit = this.hit(at);
    this.box.style.cursor = hit ? "pointer" : "crosshair";
    if (hit) this.showBubble(hit, at);
    else this.hideBubble();
  }

  // --- What is told about one occurrence ---------------------------------------------

  words({ lane, place, others = 0 }) {
    const { rows } = this.lanes;
    const { place: eventPlace, rows: list } = this.lanes.list[lane];
    const event = this.described[eventPlace];
    const row = list[place];
    return [event.name, `Activated ${fullText(dateOf(rows, row))}`, `Duration: ${lengthWords(rows, row).text}`,
      `Acknowledged: ${ackWords(rows, row, event).text}`, rows.annotation[row], others > 0 ? `and ${counted(others, "other")} here: zoom in` : ""].filter(Boolean);
  }

  showBubble(hit, { x, y }) {
    const { bubble } = this;
    bubble.replaceChildren(...this.words(hit).map((text) => {
      const line = document.createElement("p");
      line.textContent = text;
      return line;
    }));
    bubble.hidden = false;
    const left = Math.min(Math.max(4, x + 14), this.root.clientWidth - bubble.offsetWidth - 4);
    bubble.style.left = `${Math.max(4, left)}px`;
    // Below the pointer, or above it where the window ends.
    const below = this.box.offsetTop + y + 18;
    const room = window.innerHeight - this.root.getBoundingClientRect().top;
    bubble.style.top = `${below + bubble.offsetHeight < room ? below : Math.max(0, below - bubble.offsetHeight - 32)}px`;
  }

  hideBubble() {
    this.bubble.hidden = true;
  }

  // --- Keyboard ------------------------------------------------------------------------

  leave() {
    this.cursor = null;
    this.moved();
  }

  key(event) {
    if (!this.lanes || event.ctrlKey || event.altKey || event.metaKey) return;
    const acts = {
      ArrowRight: () => this.step(1), ArrowLeft: () => this.step(-1), ArrowDown: () => this.change(1), ArrowUp: () => this.change(-1),
      Home: () => this.step(-Infinity), End: () => this.step(Infinity), PageDown: () => this.pan(PAGE), PageUp: () => this.pan(-PAGE),
      "+": () => this.zoom(this.focusPlace(), 1 / ZOOM_STEP), "=": () => this.zoom(this.focusPlace(), 1 / ZOOM_STEP),
      "-": () => this.zoom(this.focusPlace(), ZOOM_STEP), 0: () => this.showAll(),
      Enter: () => { if (this.cursor) this.open(this.lanes.list[this.cursor.lane].rows[this.cursor.place]); },
    };
    if (!(event.key in acts)) return;
    event.preventDefault();
    event.stopPropagation();
    acts[event.key]();
  }

  focusPlace() {
    if (!this.cursor) return 0.5;
    const place = this.scale.place(this.lanes.begin(this.lanes.list[this.cursor.lane].rows[this.cursor.place]));
    return place >= 0 && place <= 1 ? place : 0.5;
  }

  step(by) {
    if (!this.cursor) return this.enter();
    const { lane, place } = this.cursor;
    this.goTo(lane, Math.min(Math.max(place + by, 0), this.lanes.list[lane].rows.length - 1));
  }

  /** Begins with the first event that has an occurrence in sight, and with the first of those. */
  enter() {
    const { list } = this.lanes;
    const inSight = (row) => this.lanes.begin(row) <= this.scale.to && this.lanes.end(row) >= this.scale.from;
    for (let lane = 0; lane < list.length; ++lane) {
      const place = list[lane].rows.findIndex(inSight);
      if (place >= 0) return this.goTo(lane, place);
    }
    this.goTo(0, 0);
  }

  /** The nearest occurrence in time of the next event. */
  change(by) {
    if (!this.cursor) return this.enter();
    const lane = Math.min(Math.max(this.cursor.lane + by, 0), this.lanes.list.length - 1);
    const time = this.lanes.begin(this.lanes.list[this.cursor.lane].rows[this.cursor.place]);
    this.goTo(lane, Math.max(0, this.lanes.find(lane, time, Infinity)));
  }

  goTo(lane, place) {
    this.cursor = { lane, place };
    const time = this.lanes.begin(this.lanes.list[lane].rows[place]);
    if (this.lanes.end(this.lanes.list[lane].rows[place]) < this.scale.from || time > this.scale.to) this.scale.reveal(time);
    const top = lane * this.layout.lane;
    if (top < this.box.scrollTop) this.box.scrollTop = top;
    else if (top + this.layout.lane > this.box.scrollTop + this.box.clientHeight) this.box.scrollTop = top + this.layout.lane - this.box.clientHeight;
    this.draw();
    const x = this.layout.left + Math.min(1, Math.max(0, this.scale.place(time))) * this.layout.width;
    this.showBubble(this.cursor, { x, y: top - this.box.scrollTop + this.layout.lane / 2 });
    setText(part(this.root, "voice"), `${this.words(this.cursor).join(". ")}. ${numberText(place + 1)} of ${numberText(this.lanes.list[lane].rows.length)}.`);
  }
}
