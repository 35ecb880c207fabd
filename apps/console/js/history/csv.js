// The rows as a file to take away: RFC 4180, comma, CR LF, UTF-8. It begins with a byte order mark, without which the spreadsheets that most
// people open it with take the text for another encoding; programs that read UTF-8 know the mark.

import { dateText, timeText } from "../time.js";
import { serviceDate } from "./period.js";
import { ACTIVE, ENDED, UNKNOWN } from "./rows.js";
import { NONE } from "./reply.js";

const MARK = "\ufeff";
/** Rows between two pauses, in which the page can answer its user. */
const SLICE = 5000;

/** A spreadsheet takes a text that begins so for a formula and runs it; blanks before it don't help, nor do the wide forms of the signs. */
const FORMULA = /^[\s\u0000-\u001f\u2400-\u2421]*[=+\-@\uff1d\uff0b\uff0d\uff20]|^[\t\r\n]/;
/** What a comma-separated file has to quote, and what spreadsheets of other countries part at or trim. */
const SPECIAL = /[",;\t\r\n]|^\s|\s$/;

/** One cell of text. What could be taken for a formula gets an apostrophe before it, which spreadsheets read as "this is text". */
export function textCell(text) {
  const harmless = FORMULA.test(text) ? `'${text}` : text;
  return SPECIAL.test(harmless) ? `"${harmless.replaceAll("\"", "\"\"")}"` : harmless;
}

const secondsCell = (seconds) => (seconds === NONE || Number.isNaN(seconds) ? "" : String(seconds));

const STATES = { [ENDED]: "ended", [ACTIVE]: "still active", [UNKNOWN]: "end not recorded" };

export function headLine(zone) {
  return ["Event", `Activated (${zone})`, "Activated (UTC)", "Annotation", "State", "Active, s", "Acknowledged after, s", "Groups", "Event id",
    "Occurrence id"].map(textCell).join(",");
}

export function rowLine(rows, described, row) {
  const event = described[rows.event[row]];
  const date = Number.isNaN(rows.time[row]) ? null : new Date(rows.time[row]);
  return [
    textCell(event.name),
    date ? `${dateText(date)} ${timeText(date)}` : "",
    date ? serviceDate(date) : "",
    textCell(rows.annotation[row]),
    STATES[rows.state[row]],
    secondsCell(rows.length[row]),
    secondsCell(rows.acknowledged[row]),
    textCell(event.groups.join("; ")),
    textCell(event.id),
    textCell(rows.ids[row]),
  ].join(",");
}

/** The pieces of the file, in the given order of rows. `pause()` is awaited between them. */
export async function csvPieces(rows, described, order, zone, pause) {
  const pieces = [`${MARK}${headLine(zone)}\r\n`];
  for (let from = 0; from < order.length; from += SLICE) {
    const lines = Array.from(order.subarray(from, from + SLICE), (row) => `${rowLine(rows, described, row)}\r\n`);
    pieces.push(lines.join(""));
    await pause();
  }
  return pieces;
}

/** A name that every file system takes. */
export function fileName({ begin, end }) {
  const plain = (date) => `${dateText(date)}_${timeText(date).replaceAll(":", "-")}`;
  return `history_${plain(begin)}_to_${plain(end)}.csv`;
}
