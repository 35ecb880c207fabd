// What a view of the history is made of, as it stands behind "#/history?": a link shows the same to whoever opens it.

import { parseDate } from "../time.js";
import { DEFAULT_PERIOD, PERIODS, serviceDate } from "./period.js";

export const SORTS = ["time", "event", "annotation", "length", "acknowledged"];
export const TOTAL_SORTS = ["event", "count", "time", "longest", "acknowledging", "share"];
export const MEASURES = ["count", "time"];
export const VIEWS = ["rows", "totals", "timeline"];

const known = (text, choices) => (choices.includes(text) ? text : choices[0]);

/** "time" and "-time": by that column, the second one downwards. */
function parseSort(text, choices, usual) {
  const by = (text ?? "").replace(/^-/, "");
  return choices.includes(by) ? { by, down: text.startsWith("-") } : { ...usual };
}

const sortText = ({ by, down }) => (down ? `-${by}` : by);

const USUAL_SORT = { by: "time", down: true };
const USUAL_TOTAL_SORT = { by: "count", down: true };

const withBraces = (id) => `{${id.replace(/[{}]/g, "").toUpperCase()}}`;
const withoutBraces = (id) => id.replace(/[{}]/g, "");

/**
 * The address in a query text: {period, from, to, events, groups, text, sort, totalSort, measure, view}. `from` and `to` are Dates or null,
 * `events` ids, `groups` names, both empty for all; `text` is null where the query says nothing about it. What can't be understood is as
 * if it weren't there.
 */
export function parseAddress(query) {
  const given = new URLSearchParams(query);
  const period = PERIODS.some(({ key }) => key === given.get("period")) ? given.get("period") : DEFAULT_PERIOD;
  const range = period === "range";
  return {
    period,
    from: range ? parseDate(given.get("from")) : null,
    to: range ? parseDate(given.get("to")) : null,
    events: [...new Set(given.getAll("event").map(withBraces))],
    groups: [...new Set(given.getAll("group"))],
    text: given.get("text"),
    sort: parseSort(given.get("sort"), SORTS, USUAL_SORT),
    totalSort: parseSort(given.get("totals"), TOTAL_SORTS, USUAL_TOTAL_SORT),
    measure: known(given.get("share"), MEASURES),
    view: known(given.get("view"), VIEWS),
  };
}

/** The query text of an address; what is usual is left out. Exact times go as UTC, so that a link means the same everywhere. */
export function formatAddress(address) {
  const usual = parseAddress("");
  const query = new URLSearchParams();
  const put = (key, value, unless) => { if (value !== unless && value) query.append(key, value); };
  put("period", address.period, usual.period);
  if (address.period === "range") {
    put("from", address.from && serviceDate(address.from));
    put("to", address.to && serviceDate(address.to));
  }
  for (const id of address.events) put("event", withoutBraces(id));
  for (const group of address.groups) query.append("group", group);
  put("text", address.text);
  put("sort", sortText(address.sort), sortText(usual.sort));
  put("totals", sortText(address.totalSort), sortText(usual.totalSort));
  put("share", address.measure, usual.measure);
  put("view", address.view, usual.view);
  return query.toString();
}

/** The same question to the server, whatever is filtered and sorted here. */
export function samePeriod(a, b) {
  return a.period === b.period && Number(a.from) === Number(b.from) && Number(a.to) === Number(b.to);
}
