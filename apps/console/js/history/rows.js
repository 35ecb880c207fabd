// The occurrences of one reply, column by column: a hundred thousand of them are a few long arrays instead of a hundred thousand objects.

import { NONE } from "./reply.js";

/** How an occurrence ended. */
export const ENDED = 0;
export const ACTIVE = 1;
export const UNKNOWN = 2;

const SECOND = 1000;
/** Milliseconds by which the date of a record can lie before that of its event, which were taken one after the other and cut to seconds. */
const CUT = SECOND;

/** Different texts up to which they are sorted as people do. */
const MANY_TEXTS = 5000;

const byNumber = (key) => (a, b) => key[a] - key[b];

export class Rows {
  constructor() {
    this.count = 0;
    this.ids = [];
    this.event = [];         // place in `eventIds`
    this.eventIds = [];
    this.time = [];          // milliseconds UTC, NaN when unknown
    this.ended = [];         // seconds after the activation, NONE without
    this.acknowledged = [];  // the same
    this.annotation = [];
    this.state = [];         // ENDED, ACTIVE, UNKNOWN; from `settle`
    this.length = [];        // seconds of activity so far, NaN when unknown; from `settle`
    this.waiting = [];       // true while somebody has to acknowledge it; from `settle`
    this.places = new Map();
  }

  append(records) {
    for (const record of records) {
      this.ids.push(record.id);
      this.event.push(this.placeOf(record.event));
      this.time.push(record.time);
      this.ended.push(record.ended);
      this.acknowledged.push(record.acknowledged);
      this.annotation.push(record.annotation);
    }
    this.count += records.length;
  }

  placeOf(eventId) {
    let place = this.places.get(eventId);
    if (place === undefined) {
      place = this.eventIds.push(eventId) - 1;
      this.places.set(eventId, place);
    }
    return place;
  }

  /**
   * Says of each occurrence how it stands. The log alone can't: without a deactivation an occurrence is either active still, or the end
   * was never recorded, as when the server stopped meanwhile. `running` is what the server said runs, [{active, occurrences}], the latest
   * last; `now` is the moment up to which activity is counted.
   */
  settle(running, now) {
    const occurrences = new Map(running.flatMap((told) => told.occurrences).map((occurrence) => [occurrence.id.toUpperCase(), occurrence]));
    const activeRows = new Set(running.flatMap((told) => this.activeRows(told.active)));
    for (let row = 0; row < this.count; ++row) {
      const occurrence = occurrences.get(this.ids[row]);
      const open = this.ended[row] === NONE && !occurrence?.ended;
      const active = open && (occurrence !== undefined || activeRows.has(row));
      this.state.push(active ? ACTIVE : open ? UNKNOWN : ENDED);
      this.length.push(this.lengthOf(row, occurrence, now));
      this.waiting.push(this.acknowledged[row] === NONE && occurrence !== undefined && !occurrence.acknowledged);
    }
  }

  lengthOf(row, occurrence, now) {
    if (this.ended[row] !== NONE) return this.ended[row];
    const until = this.state[row] === ACTIVE ? now : occurrence?.endedAt;
    return until && this.state[row] !== UNKNOWN ? Math.max(0, Math.floor((until - this.time[row]) / SECOND)) : NaN;
  }

  /** Of each event that is active, the row of this activity: the latest one without end that didn't begin before it. */
  activeRows(active) {
    const since = new Map(active.filter((event) => event.since).map((event) => [this.places.get(event.id.toUpperCase()), event.since.getTime()]));
    const latest = new Map();
    for (let row = 0; row < this.count; ++row) {
      const begin = since.get(this.event[row]);
      if (begin === undefined || this.ended[row] !== NONE || this.time[row] < begin - CUT) continue;
      const best = latest.get(this.event[row]);
      if (best === undefined || this.time[row] > this.time[best]) latest.set(this.event[row], row);
    }
    return [...latest.values()];
  }
}

// --- What the rows' events are called ------------------------------------------

/** The events of these rows as they are configured: [{id, name, description, groups, timeTable, notify, known}], by their places. */
export function describeEvents(rows, catalogue) {
  const configured = new Map((catalogue ?? []).map((event) => [event.id.toUpperCase(), event]));
  return rows.eventIds.map((id) => {
    const event = configured.get(id);
    if (event) return { ...event, id, name: event.name || "(event without a name)", known: true };
    return { id, name: `Unknown event ${id}`, description: "", groups: [], timeTable: null, notify: true, record: true, known: false };
  });
}

// --- Filter and order ------------------------------------------------------------

/** The rows that the filter lets through, in the server's order: `events` and `groups` as Sets, empty for all, `text` as words. */
export function pickRows(rows, described, { events, groups, text }) {
  const words = (text ?? "").toLowerCase().split(/\s+/).filter(Boolean);
  const chosen = described.map((event) => (events.size === 0 || events.has(event.id)) &&
    (groups.size === 0 || event.groups.some((group) => groups.has(group))));
  // Words that the event itself answers needn't be looked for in each of its annotations.
  const open = described.map((event) => {
    const own = [event.name, event.description, ...event.groups].join("\n").toLowerCase();
    return words.filter((word) => !own.includes(word));
  });
  const picked = new Uint32Array(rows.count);
  let count = 0;
  for (let row = 0; row < rows.count; ++row) {
    const event = rows.event[row];
    if (!chosen[event]) continue;
    if (open[event].length > 0) {
      const annotation = rows.annotation[row].toLowerCase();
      if (!open[event].every((word) => annotation.includes(word))) continue;
    }
    picked[count++] = row;
  }
  return picked.slice(0, count);
}

/** Places of the texts in their order, the same for equal ones. */
function ranks(texts) {
  const order = new Intl.Collator(undefined, { numeric: true });
  const different = [...new Set(texts)];
  // Comparing as people do is slow, and nobody finds anything by letters among so many different texts.
  if (different.length > MANY_TEXTS) different.sort();
  else different.sort(order.compare);
  const rank = new Map(different.map((text, place) => [text, place]));
  return texts.map((text) => rank.get(text));
}

const unlessNone = (seconds) => (seconds === NONE ? NaN : seconds);

/** What a row is sorted by in each column; NaN for what isn't known. */
const KEYS = {
  time: (rows) => rows.time,
  event: (rows, described) => {
    const rank = ranks(described.map((event) => event.name));
    return rows.event.map((event) => rank[event]);
  },
  annotation: (rows) => ranks(rows.annotation).map((rank, row) => (rows.annotation[row] === "" ? NaN : rank)),
  length: (rows) => rows.length,
  acknowledged: (rows) => rows.acknowledged.map(unlessNone),
};

/** The picked rows in the order of `sort` ({by, down}): what isn't known comes last either way, equal ones newest first. */
export function sortRows(picked, rows, described, { by, down }) {
  const key = KEYS[by](rows, described);
  const direction = down ? -1 : 1;
  const known = picked.filter((row) => !Number.isNaN(key[row]));
  const unknown = picked.filter((row) => Number.isNaN(key[row]));
  // The server's order is ascending, so a higher row is a newer one.
  const newer = by === "time" ? direction : -1;
  known.sort((a, b) => direction * (key[a] - key[b]) || newer * (a - b));
  unknown.sort((a, b) => b - a);
  const sorted = new Uint32Array(picked.length);
  sorted.set(known);
  sorted.set(unknown, known.length);
  return sorted;
}

// --- Totals ------------------------------------------------------------------------

const emptyTotal = (event, place) => ({
  event, place, count: 0, ended: 0, seconds: 0, longest: NaN, active: 0, soFar: 0, unknown: 0, acknowledged: 0, acknowledgedIn: 0, waiting: 0,
});

/**
 * One total for each event with a picked row: how often, how long in all (`seconds` and `longest` of the ended occurrences alone, as the
 * log counts; `soFar` of the active ones), how many have no known end, how many were acknowledged and after how many seconds in all.
 */
export function totalsOf(picked, rows, described) {
  const totals = new Map();
  for (const row of picked) {
    const place = rows.event[row];
    let total = totals.get(place);
    if (!total) totals.set(place, total = emptyTotal(described[place], place));
    addRow(total, rows, row);
  }
  return [...totals.values()];
}

function addRow(total, rows, row) {
  total.count += 1;
  if (rows.state[row] === ACTIVE) {
    total.active += 1;
    total.soFar += rows.length[row] || 0;
  } else if (rows.state[row] === UNKNOWN || Number.isNaN(rows.length[row])) {
    total.unknown += 1;
  } else {
    total.ended += 1;
    total.seconds += rows.length[row];
    if (!(total.longest >= rows.length[row])) total.longest = rows.length[row];
  }
  // Of an event that nobody has to acknowledge, an acknowledgement counts nothing.
  if (total.event.notify && rows.acknowledged[row] !== NONE) {
    total.acknowledged += 1;
    total.acknowledgedIn += rows.acknowledged[row];
  }
  if (rows.waiting[row]) total.waiting += 1;
}

/** What the share is counted in: activations, or seconds of activity, those of the active occurrences included. */
export const measured = (total, measure) => (measure === "time" ? total.seconds + total.soFar : total.count);

export const meanAcknowledging = (total) => (total.acknowledged > 0 ? total.acknowledgedIn / total.acknowledged : NaN);

const TOTAL_KEYS = {
  count: (total) => total.count,
  time: (total) => total.seconds,
  longest: (total) => total.longest,
  acknowledging: meanAcknowledging,
  share: measured,
};

/** The totals in the order of `sort`; what isn't known comes last either way, equal ones by name. */
export function sortTotals(totals, { by, down }, measure) {
  const rank = ranks(totals.map((total) => total.event.name));
  const key = by === "event" ? rank : totals.map((total) => TOTAL_KEYS[by](total, measure));
  const direction = down ? -1 : 1;
  const places = totals.map((_, place) => place);
  const known = places.filter((place) => !Number.isNaN(key[place])).sort((a, b) => direction * (key[a] - key[b]) || rank[a] - rank[b]);
  const unknown = places.filter((place) => Number.isNaN(key[place])).sort(byNumber(rank));
  return [...known, ...unknown].map((place) => totals[place]);
}
