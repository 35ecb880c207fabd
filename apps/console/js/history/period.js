// The period that is asked about: quick choices in the calendar of the person who looks, bounds in whole seconds.

import { dateText, timeText } from "../time.js";

const SECOND = 1000;
const MINUTE = 60 * SECOND;
const HOUR = 60 * MINUTE;

/** Years that the log can hold. */
const FIRST_YEAR = 2000;
const LAST_YEAR = 2063;

const midnight = (date, days = 0) => new Date(date.getFullYear(), date.getMonth(), date.getDate() + days);
const firstOfMonth = (date, months = 0) => new Date(date.getFullYear(), date.getMonth() + months, 1);
const cutTo = (unit, date) => new Date(Math.floor(date.getTime() / unit) * unit);

/** From `begin` until now, widened to full minutes, which are easier to read. The end of a period is outside it, so it lies behind now. */
function untilNow(begin, now) {
  return [cutTo(MINUTE, begin), new Date(cutTo(MINUTE, now).getTime() + MINUTE)];
}

/** The same time of day some days earlier, also where a clock change lies between. */
function daysBefore(date, days) {
  const back = new Date(date);
  back.setDate(back.getDate() - days);
  return back;
}

/** The choices in the order in which they are offered; `bounds(now)` gives [begin, end]. The last one has bounds of its own. */
export const PERIODS = [
  { key: "hour", label: "Last hour", bounds: (now) => untilNow(new Date(now.getTime() - HOUR), now) },
  { key: "day", label: "24 hours", bounds: (now) => untilNow(new Date(now.getTime() - 24 * HOUR), now) },
  { key: "today", label: "Today", bounds: (now) => [midnight(now), midnight(now, 1)] },
  { key: "yesterday", label: "Yesterday", bounds: (now) => [midnight(now, -1), midnight(now)] },
  { key: "week", label: "7 days", bounds: (now) => untilNow(daysBefore(now, 7), now) },
  { key: "month", label: "This month", bounds: (now) => [firstOfMonth(now), firstOfMonth(now, 1)] },
  { key: "last-month", label: "Last month", bounds: (now) => [firstOfMonth(now, -1), firstOfMonth(now)] },
  { key: "range", label: "From – to", bounds: null },
];

export const DEFAULT_PERIOD = "day";

/** {begin, end} of an address ({period, from, to}) at this moment; both are null where a range isn't complete. */
export function boundsOf({ period, from, to }, now) {
  const choice = PERIODS.find(({ key }) => key === period);
  const [begin, end] = choice?.bounds?.(now) ?? [from, to];
  return { begin: begin && cutTo(SECOND, begin), end: end && cutTo(SECOND, end) };
}

/** Why the log can't be asked about these bounds, in words; null when it can. */
export function boundsProblem({ begin, end }) {
  if (!begin || !end) return "Enter both times, the beginning and the end.";
  if (begin >= end) return "The end has to lie after the beginning.";
  if (begin.getUTCFullYear() < FIRST_YEAR || end.getUTCFullYear() > LAST_YEAR) {
    return `The log holds the years ${FIRST_YEAR} to ${LAST_YEAR}.`;
  }
  return null;
}

/** A date as the services take it: UTC, whole seconds. */
export function serviceDate(date) {
  return `${date.toISOString().slice(0, 19)}Z`;
}

export function loggerPath({ begin, end }) {
  return `/services/events/logger.xml?begin=${serviceDate(begin)}&end=${serviceDate(end)}`;
}

/** The bounds as people read them, with seconds only where they matter. Both carry their date: they are read apart from the clock. */
export function boundsText({ begin, end }) {
  const length = begin.getSeconds() === 0 && end.getSeconds() === 0 ? "hh:mm".length : undefined;
  return [begin, end].map((date) => `${dateText(date)} ${timeText(date).slice(0, length)}`).join(" – ");
}

// --- The two fields for exact times ------------------------------------------

/** The value of a datetime-local field, which knows no zone: local time to the second. */
export function fieldText(date) {
  return date ? `${dateText(date)}T${timeText(date)}` : "";
}

/** The date in such a field; null while it isn't complete. A time that occurs twice is the first of the two. */
export function fieldDate(text) {
  const fields = /^(\d{4})-(\d{2})-(\d{2})T(\d{2}):(\d{2})(?::(\d{2}))?/.exec(text);
  if (!fields) return null;
  const [year, month, day, hour, minute, second = 0] = fields.slice(1).filter((field) => field !== undefined).map(Number);
  return new Date(year, month - 1, day, hour, minute, second);
}
