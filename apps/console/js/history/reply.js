// Reads the log's reply piece by piece as it arrives. Annotations stand in it as they lie in the log's files, and files can be damaged or
// written by others: a stray "&", a broken tag or a control character in one of them must not cost a reader the other records. So the
// reader goes by what the server itself writes around each record and takes whatever stands between as text.

import { parseDate } from "../time.js";

const OPEN = "<record>";
const CLOSE = "</record>";
const ROOT = "<loggerEvents>";
const END = "</loggerEvents>";
const EMPTY_ROOT = "<loggerEvents/>";
/** Characters within which the root has to begin. */
const PROLOGUE = 1024;
/** Seconds in a row that stand for "none". */
export const NONE = -1;

/** What a record ends with, and what follows it. */
const FIELD_CLOSED = /<\/(?:dateTime|ackDelay|disabledDelay)>\s*$/;
const NEXT = /^\s*(?:<record>\s*<id>|<\/loggerEvents>)/;
/** What may follow where a reply breaks off. */
const BEGINNINGS = [`${OPEN}<id>`, END];
/** Characters before and behind a closing tag that decide whether it is the record's: the longest of both, and blanks. */
const AROUND = 48;

const HEAD = /^\s*<id>([^<]*)<\/id>\s*<eventId>([^<]*)<\/eventId>\s*/;
const DATE = /<dateTime>\s*([^<]*?)\s*<\/dateTime>/;
const ENDED = /<disabledDelay>\s*(\d+)\s*<\/disabledDelay>/;
const ACKNOWLEDGED = /<ackDelay>\s*(\d+)\s*<\/ackDelay>/;
const NAMED = { amp: "&", lt: "<", gt: ">", quot: "\"", apos: "'" };

function character(code) {
  return code <= 0x10ffff && !(code >= 0xd800 && code <= 0xdfff) ? String.fromCodePoint(code) : "\ufffd";
}

/** Control characters become visible signs: hidden ones make a text look like another. */
function showControls(text) {
  return text.replace(/[\u0000-\u0008\u000b\u000c\u000e-\u001f]/g, (sign) => String.fromCharCode(0x2400 + sign.charCodeAt(0)))
    .replace(/\u007f/g, "\u2421");
}

/** The text behind escaped text. An "&" that begins no entity stands for itself. */
export function unescapeText(text) {
  const plain = !text.includes("&") ? text : text.replace(/&(?:(amp|lt|gt|quot|apos)|#(\d{1,7})|#[xX]([0-9a-fA-F]{1,6}));/g,
    (_, name, decimal, hexadecimal) => NAMED[name] ?? character(decimal ? Number(decimal) : parseInt(hexadecimal, 16)));
  return showControls(plain);
}

/** A negative number says that the clock was set back meanwhile; how long it took is then as unknown as without any. */
function seconds(found) {
  return found ? Number(found[1]) : NONE;
}

/** The record between its tags: {id, event, time, ended, acknowledged, annotation}; null when it can't be understood. */
export function readRecord(text) {
  const head = HEAD.exec(text);
  if (!head) return null;
  const rest = text.slice(head[0].length);
  const tag = "<annotation>";
  // The last closing tag is the server's; an earlier one belongs to the text.
  const close = rest.startsWith(tag) ? rest.lastIndexOf("</annotation>") : NONE;
  const fields = close < 0 ? rest : rest.slice(close);
  const date = parseDate(DATE.exec(fields)?.[1]);
  return {
    id: head[1].trim().toUpperCase(),
    event: head[2].trim().toUpperCase(),
    time: date ? date.getTime() : NaN,
    ended: seconds(ENDED.exec(fields)),
    acknowledged: seconds(ACKNOWLEDGED.exec(fields)),
    annotation: close < 0 ? "" : unescapeText(rest.slice(tag.length, close)),
  };
}

/** Reads one reply. `take` what arrives, in order, then `end`. */
export class ReplyReader {
  constructor() {
    this.rest = "";
    this.searched = 0;       // where in `rest` the end of its first record may still begin
    this.begun = false;
    this.complete = false;   // the reply's own end was seen
    this.dropped = 0;        // records that couldn't be understood
  }

  /** The records that this piece completes. Throws an Error for a reply that isn't the log's. */
  take(piece) {
    this.rest += piece;
    if (!this.begun && !this.begin(false)) return [];
    return this.records(false);
  }

  /** The records that only the end completes. */
  end() {
    if (!this.begun && !this.begin(true)) return [];
    const records = this.records(true);
    if (!this.complete && this.rest.trim() !== "") this.dropped += 1;
    return records;
  }

  begin(last) {
    const start = this.rest.slice(0, PROLOGUE);
    if (start.includes(EMPTY_ROOT)) {
      this.begun = this.complete = true;
      return true;
    }
    const root = start.indexOf(ROOT);
    if (root < 0) {
      if (last || this.rest.length >= PROLOGUE) throw new Error("the reply isn't a log");
      return false;
    }
    this.rest = this.rest.slice(root + ROOT.length);
    this.begun = true;
    return true;
  }

  records(last) {
    const found = [];
    let at = 0;
    while (!this.complete) {
      const start = this.startFrom(at);
      if (start < 0) break;
      at = start;
      if (this.rest.startsWith(END, at)) {
        this.complete = true;
        break;
      }
      const close = this.closeOf(at, last);
      if (close < 0) break;
      const record = readRecord(this.rest.slice(at + OPEN.length, close));
      if (record) found.push(record);
      else this.dropped += 1;
      at = close + CLOSE.length;
    }
    this.rest = this.rest.slice(at);
    this.searched = Math.max(0, this.searched - at);
    return found;
  }

  /** Where the next record or the end begins, -1 when that hasn't arrived. */
  startFrom(at) {
    const record = this.rest.indexOf(OPEN, at);
    if (record === at) return at;
    const end = this.rest.indexOf(END, at);
    if (record < 0 || end < 0) return Math.max(record, end);
    return Math.min(record, end);
  }

  /** Where the record that begins at `at` closes: only there a field ends before and the next record or the end follows. -1 when that
   *  hasn't arrived. */
  closeOf(at, last) {
    let close = this.rest.indexOf(CLOSE, Math.max(at, this.searched));
    for (; close >= 0; close = this.rest.indexOf(CLOSE, close + 1)) {
      const follows = this.rest.slice(close + CLOSE.length, close + CLOSE.length + AROUND);
      if (follows.length < AROUND && !follows.includes(END) && !last) break;
      const followed = NEXT.test(follows) || (last && BEGINNINGS.some((text) => text.startsWith(follows.trim())));
      if (followed && FIELD_CLOSED.test(this.rest.slice(Math.max(at, close - AROUND), close))) return close;
    }
    this.searched = close >= 0 ? close : Math.max(at, this.rest.length - CLOSE.length);
    return NONE;
  }
}
