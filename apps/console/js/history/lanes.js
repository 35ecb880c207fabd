// The occurrences by event, each event a lane, and which of them lies where.

import { ACTIVE, ENDED } from "./rows.js";

const SECOND = 1000;

/** The first place in ascending `rows` whose time is above `time`. */
function upperBound(rows, times, time) {
  let [low, high] = [0, rows.length];
  while (low < high) {
    const middle = (low + high) >> 1;
    if (times[rows[middle]] > time) high = middle;
    else low = middle + 1;
  }
  return low;
}

export class Lanes {
  /** One lane for each of `places` (of events), in that order, with the picked rows of it. `now` is the end of what is still active. */
  constructor(rows, picked, places, now) {
    this.rows = rows;
    this.now = now.getTime();
    const byPlace = new Map(places.map((place) => [place, []]));
    for (const row of picked) {
      if (!Number.isNaN(rows.time[row])) byPlace.get(rows.event[row])?.push(row);
    }
    // The server sends them in order; a reply that doesn't is mended here, since all searching relies on it.
    this.list = places.map((place) => ({ place, rows: byPlace.get(place).sort((a, b) => rows.time[a] - rows.time[b]) }))
      .filter((lane) => lane.rows.length > 0);
  }

  begin(row) {
    return this.rows.time[row];
  }

  /** Where its bar ends; an end that isn't known is its beginning. */
  end(row) {
    if (this.rows.state[row] === ACTIVE) return Math.max(this.now, this.rows.time[row]);
    const length = this.rows.length[row];
    return this.rows.state[row] === ENDED && !Number.isNaN(length) ? this.rows.time[row] + length * SECOND : this.rows.time[row];
  }

  /** How many rows of the lane begin in [from, to]. */
  countBetween(lane, from, to) {
    const { rows } = this.list[lane];
    return upperBound(rows, this.rows.time, to) - upperBound(rows, this.rows.time, from - 1);
  }

  /** The place within the lane of the occurrence at `time`, or of the nearest within `reach` milliseconds; -1 without one. */
  find(lane, time, reach) {
    const { rows } = this.list[lane];
    const after = upperBound(rows, this.rows.time, time);
    let [best, distance] = [-1, reach];
    for (const place of [after - 1, after]) {
      if (place < 0 || place >= rows.length) continue;
      const away = Math.max(this.begin(rows[place]) - time, time - this.end(rows[place]), 0);
      if (away <= distance) [best, distance] = [place, away];
    }
    return best;
  }
}
