// Draws the lanes and the axis. Each state has a form of its own, so that colour is never the only difference.

import { marksOf, Coverage } from "./scale.js";
import { ACTIVE, ENDED } from "./rows.js";

/** Narrower than this, names stand above their lanes instead of beside them. */
const NARROW = 620;
/** Pixels between the texts of two marks. */
const MARK_ROOM = 84;
const BAR = 12;
const TRIANGLE = 4;

/** Makes a canvas `width` by `height` and as fine as the screen; gives its cleared context. */
function prepare(canvas, width, height) {
  const fine = window.devicePixelRatio || 1;
  const [across, down] = [Math.round(width * fine), Math.round(height * fine)];
  if (canvas.width !== across || canvas.height !== down) {
    [canvas.width, canvas.height] = [across, down];
    [canvas.style.width, canvas.style.height] = [`${width}px`, `${height}px`];
  }
  const context = canvas.getContext("2d");
  context.setTransform(fine, 0, 0, fine, 0, 0);
  context.clearRect(0, 0, width, height);
  return context;
}

/** Sizes that depend on the width: `left` and `width` of the plot, height of a lane, where in it text and bar stand. */
export function layout(width) {
  if (width < NARROW) return { left: 8, width: Math.max(1, width - 16), lane: 42, textAt: 11, barAt: 22, textWidth: width - 16 };
  const names = Math.round(Math.min(260, width * 0.22));
  return { left: names, width: Math.max(1, width - names - 16), lane: 26, textAt: 13, barAt: 8, textWidth: names - 22 };
}

function colours(root) {
  const style = getComputedStyle(root);
  const read = (name) => style.getPropertyValue(`--${name}`).trim();
  const text = (size, weight = 400) => `${weight} ${size}px ${style.fontFamily}`;
  return { ink: read("ink"), muted: read("muted"), line: read("line"), soft: read("line-soft"), bar: read("bar-ink"), alarm: read("alarm"),
    ended: read("ended"), panel: read("panel"), ground: read("ground"), focus: read("focus"), text };
}

export class TimelinePicture {
  constructor(root, canvas, axis) {
    Object.assign(this, { root, canvas, axis });
    this.cut = new Map();
  }

  /** Draws it all: `lanes`, `scale`, what is scrolled to, the names of the lanes, the marked occurrence and the part being chosen. */
  draw({ lanes, scale, width, height, scrolled, names, cursor, chosen }) {
    this.colour = colours(this.root);
    this.layout = layout(width);
    Object.assign(this, { lanes, scale, names });
    this.drawAxis(width);
    const context = prepare(this.canvas, width, height);
    this.context = context;
    this.drawGround(height);
    const { lane: size } = this.layout;
    const first = Math.floor(scrolled / size);
    const last = Math.min(lanes.list.length - 1, Math.floor((scrolled + height) / size));
    for (let lane = first; lane <= last; ++lane) this.drawLane(lane, lane * size - scrolled, cursor, width);
    if (chosen) this.drawChosen(chosen, height);
  }

  clear() {
    for (const canvas of [this.canvas, this.axis]) prepare(canvas, 1, 1);
    this.cut.clear();
  }

  x(time) {
    return this.layout.left + this.scale.place(time) * this.layout.width;
  }

  marks() {
    return marksOf(this.scale, this.layout.width / MARK_ROOM);
  }

  drawAxis(width) {
    const { colour } = this;
    const context = prepare(this.axis, width, 22);
    context.textBaseline = "middle";
    let free = -Infinity;
    for (const { time, text, major } of this.marks()) {
      const x = this.x(time);
      context.fillStyle = major ? colour.ink : colour.muted;
      context.fillRect(Math.round(x), major ? 12 : 17, 1, 10);
      context.font = colour.text(12, major ? 600 : 400);
      const size = context.measureText(text).width;
      const left = Math.min(Math.max(x - size / 2, 2), width - size - 2);
      if (left < free) continue;
      context.fillText(text, left, 7);
      free = left + size + 8;
    }
  }

  /** Vertical lines at the marks, and what hasn't happened yet in another ground. */
  drawGround(height) {
    const { context, colour, layout: { left, width } } = this;
    for (const { time, major } of this.marks()) {
      context.fillStyle = major ? colour.line : colour.soft;
      context.fillRect(Math.round(this.x(time)), 0, 1, height);
    }
    const now = this.x(this.lanes.now);
    if (now >= left + width) return;
    const begin = Math.max(now, left);
    context.fillStyle = colour.ground;
    context.fillRect(begin, 0, left + width - begin, height);
    if (now < left) return;
    context.fillStyle = colour.muted;
    context.fillRect(Math.round(now), 0, 1, height);
  }

  drawLane(lane, top, cursor, width) {
    const { context, colour } = this;
    context.fillStyle = colour.soft;
    context.fillRect(0, top + this.layout.lane - 1, width, 1);
    this.drawName(lane, top);
    context.save();
    context.beginPath();
    context.rect(this.layout.left - 2, top, this.layout.width + 4, this.layout.lane);
    context.clip();
    this.drawBars(lane, top + this.layout.barAt);
    if (cursor?.lane === lane) this.drawCursor(this.lanes.list[lane].rows[cursor.place], top + this.layout.barAt);
    context.restore();
  }

  drawName(lane, top) {
    const { context, colour, layout: { textWidth, textAt } } = this;
    context.font = colour.text(13, 500);
    context.fillStyle = colour.ink;
    context.textBaseline = "middle";
    context.fillText(this.shortened(this.names[lane], textWidth), 10, top + textAt);
  }

  /** As much of a name as has room. Measuring is slow, so what was found is kept. */
  shortened(name, width) {
    const key = `${Math.round(width)} ${name}`;
    if (!this.cut.has(key)) {
      let [low, high] = [0, name.length];
      const fits = (text) => this.context.measureText(text).width <= width;
      while (low < high) {
        const middle = (low + high + 1) >> 1;
        if (fits(`${name.slice(0, middle)}…`)) low = middle;
        else high = middle - 1;
      }
      if (this.cut.size > 2000) this.cut.clear();
      this.cut.set(key, fits(name) ? name : `${name.slice(0, low)}…`);
    }
    return this.cut.get(key);
  }

  // --- Bars ------------------------------------------------------------------

  /** Ended occurrences by how much of each column they cover; the few others one by one, on top. */
  drawBars(lane, top) {
    const { lanes, scale, layout: { width } } = this;
    const { rows } = lanes.list[lane];
    const coverage = new Coverage(Math.max(1, Math.floor(width)));
    const others = [];
    for (const row of rows) {
      const begin = lanes.begin(row);
      if (begin > scale.to) break;
      const end = lanes.end(row);
      if (end < scale.from) continue;
      if (lanes.rows.state[row] === ENDED) coverage.add(scale.place(begin), scale.place(end));
      if (lanes.rows.state[row] !== ENDED || lanes.rows.waiting[row]) others.push(row);
    }
    this.drawCoverage(coverage, top);
    let lastWaiting = -Infinity;
    for (const row of others) {
      const x = this.x(lanes.begin(row));
      if (lanes.rows.state[row] === ACTIVE) this.drawActive(x, this.x(lanes.end(row)), top);
      else if (lanes.rows.state[row] !== ENDED) this.drawUnknown(x, top);
      if (!lanes.rows.waiting[row] || x - lastWaiting < TRIANGLE * 2) continue;
      this.drawWaiting(x, top);
      lastWaiting = x;
    }
  }

  drawCoverage(coverage, top) {
    const { context, colour, layout: { left } } = this;
    context.fillStyle = colour.bar;
    for (const { from, to, part } of coverage.runs()) {
      const height = Math.round(BAR * (0.4 + 0.6 * part));
      context.fillRect(left + from, top + BAR - height, Math.max(to - from, 2), height);
    }
  }

  /** An arrow to the right: it goes on. */
  drawActive(from, to, top) {
    const { context, colour, layout: { left, width } } = this;
    const end = Math.min(to, left + width + 2);
    const begin = Math.min(Math.max(from, left - 2), end - 7);
    context.fillStyle = colour.alarm;
    context.beginPath();
    context.moveTo(begin, top);
    context.lineTo(Math.max(begin, end - 6), top);
    context.lineTo(end, top + BAR / 2);
    context.lineTo(Math.max(begin, end - 6), top + BAR);
    context.lineTo(begin, top + BAR);
    context.fill();
  }

  /** A stroke where it began and dots into the unknown. */
  drawUnknown(x, top) {
    const { context, colour } = this;
    context.fillStyle = colour.ink;
    context.fillRect(x, top, 2, BAR);
    for (const dot of [4, 9, 14]) context.fillRect(x + dot, top + BAR / 2 - 1, 3, 2);
  }

  /** A triangle above its beginning, outlined as everywhere for what ended and waits. */
  drawWaiting(x, top) {
    const { context, colour } = this;
    context.beginPath();
    context.moveTo(x - TRIANGLE, top - 1);
    context.lineTo(x + TRIANGLE, top - 1);
    context.lineTo(x, top - 1 - TRIANGLE * 1.6);
    context.closePath();
    context.fillStyle = colour.panel;
    context.fill();
    context.strokeStyle = colour.ended;
    context.lineWidth = 1.5;
    context.stroke();
  }

  drawCursor(row, top) {
    const { context, colour } = this;
    const from = this.x(this.lanes.begin(row)) - 3;
    const to = Math.max(this.x(this.lanes.end(row)), from + 5) + 3;
    context.strokeStyle = colour.focus;
    context.lineWidth = 2;
    context.strokeRect(from, top - 3, to - from, BAR + 6);
  }

  drawChosen({ from, to }, height) {
    const { context, colour } = this;
    context.globalAlpha = 0.22;
    context.fillStyle = colour.focus;
    context.fillRect(Math.min(from, to), 0, Math.abs(to - from), height);
    context.globalAlpha = 1;
    context.fillRect(Math.round(from), 0, 1, height);
    context.fillRect(Math.round(to), 0, 1, height);
  }
}
