// Everything that goes to the server and comes from it. Replies leave this module as plain objects or as an ApiError.

import { parseDate } from "./time.js";

/** Milliseconds after which a request is given up. A scan may hold a reply for a while, so this is generous. */
const PATIENCE = 10000;
/** Occurrences in one acknowledgement: far below what the server takes in one document. */
const ACK_BATCH = 1000;

/**
 * Why a request brought nothing. `kind` is one of
 *   unreachable  no answer at all            busy        503, the server can't serve now
 *   signin       401                         forbidden   403
 *   throttled    429                         unreadable  an answer that can't be understood
 *   refused      any other status
 */
export class ApiError extends Error {
  constructor(kind, message, status = 0) {
    super(message);
    this.kind = kind;
    this.status = status;
  }
}

const KINDS = { 401: "signin", 403: "forbidden", 429: "throttled", 503: "busy" };

/** How far the server's clock is ahead of this one, in milliseconds; told to whoever listens after each answer. */
let onServerDate = () => {};
export function listenToServerDate(listener) {
  onServerDate = listener;
}

// Tells the server that a page asks, which has a sign-in form of its own and wants no dialog of the browser.
const HEADERS = { "X-Requested-With": "XMLHttpRequest" };
const COMMON = { cache: "no-store", credentials: "same-origin" };

function refusal(status, body) {
  const reason = body.length < 200 ? body.trim() : "";
  return new ApiError(KINDS[status] ?? "refused", reason || `status ${status}`, status);
}

async function ask(path, options = {}) {
  let response;
  let body;
  const began = Date.now();
  try {
    response = await fetch(path, {
      ...COMMON,
      signal: AbortSignal.timeout(PATIENCE),
      ...options,
      headers: { ...HEADERS, ...options.headers },
    });
    body = await response.text();
  } catch (error) {
    const slow = error.name === "TimeoutError";
    throw new ApiError("unreachable", slow ? `no answer within ${PATIENCE / 1000} s` : "no connection");
  }
  noteServerDate(response, began);
  if (!response.ok) throw refusal(response.status, body);
  return body;
}

/** A reply that is too large to wait for: {body, total}, a stream of its bytes and their number, null when the server doesn't say. Whoever
 *  asks has the patience; what `signal` ends is an AbortError. */
export async function openReply(path, signal) {
  let response;
  try {
    response = await fetch(path, { ...COMMON, headers: HEADERS, signal });
  } catch (error) {
    throw error.name === "AbortError" ? error : new ApiError("unreachable", "no connection");
  }
  if (!response.ok) throw refusal(response.status, await response.text());
  return { body: response.body, total: Number(response.headers.get("Content-Length")) || null };
}

function noteServerDate(response, began) {
  const date = Date.parse(response.headers.get("Date") ?? "");
  // The header is cut to whole seconds, so the middle of that second is the best guess.
  if (!Number.isNaN(date)) onServerDate(date + 500 - (began + Date.now()) / 2);
}

// --- Reading ---------------------------------------------------------------

function parseXml(path, body, rootTag) {
  const parsed = new DOMParser().parseFromString(body, "text/xml");
  const broken = parsed.getElementsByTagName("parsererror").length > 0;
  if (broken || parsed.documentElement?.tagName !== rootTag) {
    throw new ApiError("unreadable", `${path} isn't a document that this page understands`);
  }
  return parsed.documentElement;
}

function child(element, tag) {
  return [...element.children].find((candidate) => candidate.tagName === tag);
}

function childText(element, tag) {
  return child(element, tag)?.textContent ?? "";
}

const eventElements = (root) => [...root.children].filter((child) => child.tagName === "event");

/** The active events: [{id, name, description, annotation, since}], `id` the event's, `since` a Date or null. */
export async function fetchActive() {
  const path = "/services/events/actived.xml";
  const root = parseXml(path, await ask(path), "activedEvents");
  return eventElements(root).map((element) => ({
    id: childText(element, "id"),
    name: childText(element, "name"),
    description: childText(element, "description"),
    annotation: childText(element, "annotation"),
    since: parseDate(childText(element, "dateTime")),
  }));
}

/**
 * The occurrences of notifying events: as above with the occurrence's `id`, whether it is `acknowledged` and whether it has `ended`,
 * and the Dates of both, `acknowledgedAt` and `endedAt`, null when unknown. An element counts by being there: a date that can't be read
 * mustn't turn an acknowledged occurrence into a waiting one.
 */
export async function fetchOccurrences() {
  const path = "/services/events/notified.xml";
  const root = parseXml(path, await ask(path), "notifiedEvents");
  return eventElements(root).map((element) => ({
    id: childText(element, "id"),
    name: childText(element, "name"),
    description: childText(element, "description"),
    annotation: childText(element, "annotation"),
    since: parseDate(childText(element, "dateTime")),
    acknowledged: child(element, "ackDateTime") !== undefined,
    acknowledgedAt: parseDate(childText(element, "ackDateTime")),
    ended: child(element, "disableDateTime") !== undefined,
    endedAt: parseDate(childText(element, "disableDateTime")),
  }));
}

async function fetchJson(path, understand) {
  const body = await ask(path);
  try {
    return understand(JSON.parse(body));
  } catch {
    throw new ApiError("unreadable", `${path} isn't a document that this page understands`);
  }
}

const texts = (list) => (Array.isArray(list) ? list.map(String) : []);

/** The configured events: [{id, name, description, groups, notify, record, timeTable}]. */
export function fetchCatalogue() {
  return fetchJson("/services/events/list.json", (list) => list.map((event) => ({
    id: String(event.id),
    name: String(event.name ?? ""),
    description: String(event.description ?? ""),
    groups: texts(event.groups),
    notify: event.notify === true,
    record: event.record === true,
    timeTable: event.timeTable ?? null,
  })));
}

/** The devices: [{name, type, description, failed, variables: [{name, description, value, time, labels, settable}]}]. */
export function fetchDevices() {
  const IN_ERROR = 2;
  const CAN_BE_FORCED = 8;
  return fetchJson("/services/variables.json", (reply) => reply.devices.map((device) => ({
    name: String(device.name),
    type: String(device.type ?? ""),
    description: String(device.description ?? ""),
    failed: (device.state & IN_ERROR) !== 0,
    variables: device.variables.map((variable) => ({
      name: String(variable.name),
      description: String(variable.description ?? ""),
      value: typeof variable.value === "number" ? variable.value : null,
      time: parseDate(variable.time),
      labels: texts(variable.labels),
      settable: (variable.flags & CAN_BE_FORCED) !== 0,
    })),
  })));
}

// --- Acting ----------------------------------------------------------------

function ackDocument(ids) {
  const made = document.implementation.createDocument(null, "eventsAck");
  for (const id of ids) {
    made.documentElement.append(made.createElement("id"));
    made.documentElement.lastChild.textContent = id;
  }
  return new XMLSerializer().serializeToString(made);
}

/** Acknowledges the occurrences with these ids. Those that the server doesn't know any more are passed over by it. */
export async function acknowledge(ids) {
  for (let from = 0; from < ids.length; from += ACK_BATCH) {
    await ask("/services/events/ack.xml", {
      method: "POST",
      headers: { "Content-Type": "text/xml; charset=utf-8" },
      body: ackDocument(ids.slice(from, from + ACK_BATCH)),
    });
  }
}

/** Signs in; the server answers with a cookie that scripts can't read. */
export async function signIn(name, password) {
  await ask("/session", { method: "POST", body: new URLSearchParams({ name, password }) });
}

export async function signOut() {
  await ask("/session", { method: "DELETE" });
}
