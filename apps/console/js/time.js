// Dates as the services write them, and the texts that people read.

const SECOND = 1000;
const MINUTE = 60 * SECOND;
const HOUR = 60 * MINUTE;
const DAY = 24 * HOUR;

/** DDMMYYYYhhmmss or an ISO date, both UTC. Null for anything else, also for the 31st of February. */
export function parseDate(text) {
  const compact = /^(\d{2})(\d{2})(\d{4})(\d{2})(\d{2})(\d{2})$/.exec(text ?? "");
  if (compact) {
    const [day, month, year, hour, minute, second] = compact.slice(1).map(Number);
    const date = new Date(Date.UTC(year, month - 1, day, hour, minute, second));
    const same = date.getUTCDate() === day && date.getUTCMonth() === month - 1 && date.getUTCHours() === hour &&
      date.getUTCMinutes() === minute && date.getUTCSeconds() === second;
    return same ? date : null;
  }
  if (!/^\d{4}-\d{2}-\d{2}T/.test(text ?? "")) return null;
  const date = new Date(text);
  return Number.isNaN(date.getTime()) ? null : date;
}

const two = (number) => String(number).padStart(2, "0");

/** hh:mm:ss in the browser's zone. */
export function timeText(date) {
  return `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}`;
}

/** YYYY-MM-DD in the browser's zone: the one order that nobody misreads. */
export function dateText(date) {
  return `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())}`;
}

/** The time alone on the day of `now`, with the date on any other day. */
export function momentText(date, now) {
  return dateText(date) === dateText(now) ? timeText(date) : `${dateText(date)} ${timeText(date)}`;
}

/** Date, time and the zone's offset: for the places that must leave no doubt. */
export function fullText(date) {
  const offset = -date.getTimezoneOffset();
  const sign = offset < 0 ? "-" : "+";
  const size = Math.abs(offset);
  return `${dateText(date)} ${timeText(date)} (UTC${sign}${two(Math.floor(size / 60))}:${two(size % 60)})`;
}

/** A length of time in whole minutes at the finest, for a place that is read from afar. */
export function roughDurationText(milliseconds) {
  if (milliseconds < MINUTE) return "< 1 min";
  if (milliseconds < HOUR) return `${Math.floor(milliseconds / MINUTE)} min`;
  return durationText(milliseconds);
}

/** A length of time with two units at most: "42 s", "3 min 05 s", "2 h 14 min", "3 d 4 h". */
export function durationText(milliseconds) {
  const length = Math.max(0, milliseconds);
  if (length < MINUTE) return `${Math.floor(length / SECOND)} s`;
  if (length < HOUR) return `${Math.floor(length / MINUTE)} min ${two(Math.floor(length % MINUTE / SECOND))} s`;
  if (length < DAY) return `${Math.floor(length / HOUR)} h ${two(Math.floor(length % HOUR / MINUTE))} min`;
  return `${Math.floor(length / DAY)} d ${Math.floor(length % DAY / HOUR)} h`;
}
