// How an occurrence and its numbers are put into words, the same in the list, the picture and the details.

import { durationText, fullText } from "../time.js";
import { NONE } from "./reply.js";
import { ACTIVE, ENDED } from "./rows.js";

const numbers = new Intl.NumberFormat(undefined);
const percents = new Intl.NumberFormat(undefined, { style: "percent", maximumFractionDigits: 1 });

export const numberText = (number) => numbers.format(number);
export const percentText = (part) => percents.format(part);
export const secondsText = (seconds) => (Number.isNaN(seconds) ? "–" : durationText(seconds * 1000));

/** "1 occurrence", "1,234 occurrences". */
export const counted = (count, one, many = `${one}s`) => `${numberText(count)} ${count === 1 ? one : many}`;

/** How long it was active: {text, sign}. */
export function lengthWords(rows, row) {
  const length = rows.length[row];
  if (rows.state[row] === ACTIVE) return { text: Number.isNaN(length) ? "still active" : `active for ${secondsText(length)}`, sign: "#sign-alarm" };
  if (rows.state[row] === ENDED) return { text: Number.isNaN(length) ? "ended" : secondsText(length), sign: null };
  return { text: "end not recorded", sign: "#sign-unknown" };
}

/** Whether and how soon it was acknowledged: {text, sign}. */
export function ackWords(rows, row, event) {
  const after = rows.acknowledged[row];
  if (after !== NONE) return { text: `after ${secondsText(after)}`, sign: "#sign-acknowledged" };
  if (rows.waiting[row]) return { text: "waiting", sign: "#sign-ended" };
  if (event.known && !event.notify) return { text: "not needed", sign: null };
  return { text: "not recorded", sign: null };
}

export const stateName = (rows, row) => ["ended", "active", "unknown"][rows.state[row]];

export const dateOf = (rows, row) => (Number.isNaN(rows.time[row]) ? null : new Date(rows.time[row]));

const later = (date, seconds) => (date && seconds !== NONE && !Number.isNaN(seconds) ? fullText(new Date(date.getTime() + seconds * 1000)) : "");

/** Everything about one occurrence, as pairs of term and text. */
export function detailPairs(rows, row, event) {
  const date = dateOf(rows, row);
  return [
    ["Description", event.description],
    ["Activated", date ? fullText(date) : "unknown"],
    ["Ended", rows.state[row] === ENDED ? later(date, rows.length[row]) : ""],
    ["Duration", lengthWords(rows, row).text],
    ["Acknowledged", later(date, rows.acknowledged[row])],
    ["Acknowledgement", ackWords(rows, row, event).text],
    ["Groups", event.groups.join(", ")],
    ["Time table", event.timeTable ?? ""],
    ["Occurrence", rows.ids[row]],
    ["Event", event.id],
  ];
}
