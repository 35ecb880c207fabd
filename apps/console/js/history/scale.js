// The time axis: which part of the period is in sight, and where its marks stand.

import { dateText, timeText } from "../time.js";

const SECOND = 1000;
const MINUTE = 60 * SECOND;
const HOUR = 60 * MINUTE;
const DAY = 24 * HOUR;

/** The closest look, milliseconds from edge to edge: records have whole seconds. */
const CLOSEST = 10 * SECOND;

/** A part of a period on a line from 0 to 1. Dates are milliseconds. */
export class Scale {
  constructor(begin, end) {
    this.begin = begin;
    this.end = end;
    this.from = begin;
    this.to = end;
  }

  get span() {
    return this.to - this.from;
  }

  get whole() {
    return this.from === this.begin && this.to === this.end;
  }

  place(time) {
    return (time - this.from) / this.span;
  }

  time(place) {
    return this.from + place * this.span;
  }

  /** Shows as much of the period as `span` says, with `from` at the left as far as the period allows. */
  show(from, span) {
    const width = Math.min(Math.max(span, Math.min(CLOSEST, this.end - this.begin)), this.end - this.begin);
    this.from = Math.min(Math.max(from, this.begin), this.end - width);
    this.to = this.from + width;
  }

  showAll() {
    this.show(this.begin, this.end - this.begin);
  }

  /** Makes what is in sight `factor` times as long; the time at `place` stays where it is. False when nothing changes. */
  zoom(place, factor) {
    const { from, to } = this;
    const fixed = this.time(place);
    const span = Math.min(Math.max(this.span * factor, CLOSEST), this.end - this.begin);
    this.show(fixed - place * span, span);
    return this.from !== from || this.to !== to;
  }

  /** Moves by that part of what is in sight. False at the end of the period. */
  pan(part) {
    const { from } = this;
    this.show(this.from + part * this.span, this.span);
    return this.from !== from;
  }

  /** Brings a time into sight with the least movement. */
  reveal(time) {
    const margin = this.span * 0.05;
    if (time < this.from) this.show(time - margin, this.span);
    else if (time > this.to) this.show(time + margin - this.span, this.span);
  }
}

// --- Marks -------------------------------------------------------------------

/** Steps between marks: a unit of the calendar and how many of it. Longer ones are years. */
const STEPS = [
  [SECOND, "second", [1, 2, 5, 10, 15, 30]],
  [MINUTE, "minute", [1, 2, 5, 10, 15, 30]],
  [HOUR, "hour", [1, 2, 3, 6, 12]],
  [DAY, "day", [1, 2, 7, 14]],
  [30 * DAY, "month", [1, 3, 6]],
  [365 * DAY, "year", [1, 2, 5, 10, 20]],
];

function stepFor(span, marks) {
  for (const [size, unit, amounts] of STEPS) {
    const amount = amounts.find((candidate) => span / (candidate * size) <= marks);
    if (amount) return { unit, amount };
  }
  return { unit: "year", amount: 50 };
}

/** The last moment at or before `date` where a step begins, by the local calendar: marks stand at full hours and at midnight, whatever the
 *  zone and its clock changes are. */
function beginOfStep(date, { unit, amount }) {
  const fields = [date.getFullYear(), date.getMonth(), date.getDate(), date.getHours(), date.getMinutes(), date.getSeconds()];
  const place = ["year", "month", "day", "hour", "minute", "second"].indexOf(unit);
  const firstOf = (at) => (at === 2 ? 1 : 0);  // days count from 1
  return new Date(...fields.map((field, at) => {
    if (at < place) return field;
    return at > place ? firstOf(at) : field - (field - firstOf(at)) % amount;
  }));
}

function nextStep(date, { unit, amount }) {
  const [year, month, day] = [date.getFullYear(), date.getMonth(), date.getDate()];
  switch (unit) {
    case "year": return new Date(year + amount, 0, 1);
    case "month": return new Date(year, month + amount, 1);
    case "day": {
      const next = new Date(year, month, day + amount);
      // Weeks begin anew with each month, so that a mark always stands at its first day.
      return next.getMonth() === month ? next : new Date(year, month + 1, 1);
    }
    case "hour": return nextHour(date, amount);
    default: return new Date(date.getTime() + amount * (unit === "minute" ? MINUTE : SECOND));
  }
}

/** The next hour that the step divides. Hours pass one by one, for at a clock change one is missing or comes twice. */
function nextHour(date, amount) {
  const next = new Date(date.getTime() + HOUR);
  while (next.getHours() % amount !== 0) next.setTime(next.getTime() + HOUR);
  return next;
}

function markText(date, { unit }) {
  if (unit === "year" || (unit === "month" && date.getMonth() === 0)) return String(date.getFullYear());
  if (unit === "month") return dateText(date).slice(0, 7);
  if (unit === "day" || (date.getHours() === 0 && date.getMinutes() === 0 && date.getSeconds() === 0)) return dateText(date).slice(5);
  return unit === "second" ? timeText(date) : timeText(date).slice(0, 5);
}

/** The marks in sight, at most about `marks` of them: [{time, text, major}], a major one begins a day (or what is longer). */
export function marksOf(scale, marks) {
  const step = stepFor(scale.span, Math.max(1, marks));
  const found = [];
  for (let date = beginOfStep(new Date(scale.from), step); date.getTime() <= scale.to; date = nextStep(date, step)) {
    if (date.getTime() < scale.from) continue;
    const major = date.getHours() === 0 && date.getMinutes() === 0 && date.getSeconds() === 0;
    found.push({ time: date.getTime(), text: markText(date, step), major });
  }
  return found;
}

// --- Dense places ----------------------------------------------------------------

/**
 * How much of each column of a picture `width` columns wide is covered by intervals, given one after the other to `add`. What is as wide as a
 * column or wider covers whole ones, so that its edges are sharp; what is narrower covers a part of one, and never goes unseen.
 */
export class Coverage {
  constructor(width) {
    this.width = width;
    this.part = new Float32Array(width);
    this.touched = new Uint8Array(width);
    this.edges = new Int32Array(width + 1);  // whole columns: +1 where they begin, -1 behind them
  }

  /** An interval in places from 0 to 1; what lies outside isn't seen. */
  add(begin, end) {
    if (end < 0 || begin > 1) return;
    const left = Math.max(0, begin) * this.width;
    const right = Math.min(1, end) * this.width;
    if (right - left < 1) {
      const column = Math.min(Math.floor((left + right) / 2), this.width - 1);
      this.part[column] += right - left;
      this.touched[column] = 1;
      return;
    }
    this.edges[Math.round(left)] += 1;
    this.edges[Math.round(right)] -= 1;
  }

  /** Runs of neighbouring columns that are covered alike: [{from, to, part}], `part` in quarters from 0 (only touched) to 1. */
  runs() {
    const found = [];
    let depth = 0;
    for (let column = 0; column < this.width; ++column) {
      depth += this.edges[column];
      if (depth === 0 && !this.touched[column]) continue;
      const part = depth > 0 ? 1 : Math.ceil(Math.min(1, this.part[column]) * 4) / 4;
      const before = found.at(-1);
      if (before && before.to === column && before.part === part) before.to = column + 1;
      else found.push({ from: column, to: column + 1, part });
    }
    return found;
  }
}
