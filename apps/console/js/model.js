// What the page knows: the last good answers, how the link to the server stands, and what the operator has chosen.
// It holds no element of the page and asks nobody; whoever changes it calls an operation, whoever shows it listens to "change".

/** The type of the devices that stand for events. */
const EVENT_DEVICE = "R$EVE";
/** Milliseconds without any good answer after which what is shown counts as old, even if no request has failed yet. */
const OLD_AFTER = 5000;
/** Milliseconds for which an occurrence is marked as new. */
const NEW_FOR = 15000;
/** Clocks that differ by less than this many milliseconds count as equal. */
const SAME_CLOCK = 2500;

/** An event that becomes active again is news, though its id is the old one. */
const arrivalKey = (item) => `${item.id} ${item.since?.getTime() ?? ""}`;

/** The items by one of their texts, in lists. */
function index(items, keyOf) {
  const found = new Map();
  for (const item of items) {
    const list = found.get(keyOf(item));
    if (list) list.push(item);
    else found.set(keyOf(item), [item]);
  }
  return found;
}

const emptyReply = () => ({ items: null, at: null, error: null });

export class Model extends EventTarget {
  constructor() {
    super();
    this.clockOffset = 0;
    this.page = "events";
    this.query = "";
    this.user = null;
    this.epoch = 0;
    this.watched = true;
    this.filter = "";
    this.order = "newest";
    this.reset();
  }

  /** Forgets everything that came from the server, as at sign-out. */
  reset({ signInNeeded = false } = {}) {
    this.epoch += 1;  // answers to what was asked before are nobody's any more
    this.replies = { active: emptyReply(), occurrences: emptyReply(), catalogue: emptyReply(), devices: emptyReply() };
    this.catalogueById = new Map();
    this.catalogueByName = new Map();
    this.runningByName = new Map();
    this.link = { state: "connecting", message: "", retryAt: null, lostAt: null };
    this.lastGood = null;
    this.askedAt = null;
    this.signInNeeded = signInNeeded;
    this.mayAcknowledge = true;
    this.selected = new Set();
    this.sending = new Map();
    this.open = new Set();
    this.seen = { occurrences: null, active: null };
    this.changed();
  }

  changed() {
    this.dispatchEvent(new Event("change"));
  }

  // --- What arrives ----------------------------------------------------------

  /** A round of questions begins. */
  asked() {
    this.askedAt = Date.now();
  }

  setReply(name, items) {
    this.replies[name] = { items, at: Date.now(), error: null };
    if (name === "active") this.noteArrivals(name, items);
    if (name === "catalogue") this.catalogueArrived(items);
    if (name === "occurrences") this.occurrencesArrived(items);
  }

  catalogueArrived(events) {
    this.catalogueById = index(events, (event) => event.id);
    this.catalogueByName = index(events, (event) => event.name);
  }

  /** Something has turned up that isn't among the configured events: they are asked for anew with the next round. */
  catalogueLacks() {
    this.replies.catalogue = { ...this.replies.catalogue, at: 0 };
  }

  occurrencesArrived(occurrences) {
    this.runningByName = index(occurrences.filter((occurrence) => !occurrence.ended), (occurrence) => occurrence.name);
    this.noteArrivals("occurrences", this.waiting());
    this.forgetSettled(new Set(this.waiting().map((occurrence) => occurrence.id)));
  }

  setFailure(name, error) {
    this.replies[name].error = error;
  }

  /** Dispatches "arrived" with those that weren't there before; what the first answer brings is the background, not news. */
  noteArrivals(name, items) {
    const before = this.seen[name];
    this.seen[name] = new Map(items.map((item) => [arrivalKey(item), before === null ? 0 : before.get(arrivalKey(item)) ?? Date.now()]));
    const fresh = before === null ? [] : items.filter((item) => !before.has(arrivalKey(item)));
    if (fresh.length > 0) this.dispatchEvent(new CustomEvent("arrived", { detail: { name, items: fresh } }));
  }

  /** Drops the marks of occurrences that no longer wait, and of those that still wait although the server has taken their acknowledgement. */
  forgetSettled(waiting) {
    for (const id of this.selected) {
      if (!waiting.has(id)) this.selected.delete(id);
    }
    for (const [id, answeredAt] of this.sending) {
      const heard = answeredAt !== null && this.askedAt >= answeredAt;
      if (heard || !waiting.has(id)) this.sending.delete(id);
    }
  }

  sendingBegins(ids) {
    for (const id of ids) this.sending.set(id, null);
    this.changed();
  }

  /** The server has taken them; the next answer shows what became of them. */
  sendingAnswered(ids) {
    for (const id of ids) {
      if (this.sending.has(id)) this.sending.set(id, Date.now());
      this.selected.delete(id);
    }
    this.changed();
  }

  sendingFailed(ids) {
    for (const id of ids) this.sending.delete(id);
    this.changed();
  }

  linkUp() {
    this.askedAt = null;
    this.link = { state: "up", message: "", retryAt: null, lostAt: null };
    this.lastGood = Date.now();
    this.changed();
  }

  /** `error` is an ApiError, `retryAt` the moment of the next attempt in this computer's time. */
  linkDown(error, retryAt) {
    this.askedAt = null;
    this.link = { state: error.kind, message: error.message, retryAt, lostAt: this.link.lostAt ?? Date.now() };
    this.changed();
  }

  requireSignIn() {
    this.user = null;
    this.reset({ signInNeeded: true });
  }

  signedIn(name) {
    this.user = name;
    this.reset();
  }

  // --- What follows from it ----------------------------------------------------

  /** How long ago the last good answer came, in milliseconds; null before the first. */
  age() {
    return this.lastGood === null ? null : Date.now() - this.lastGood;
  }

  /**
   * What is shown is what the server says now. A question that stays without answer for too long is as bad as a failed one. The age counts
   * only while someone looks: in a background window the browser slows the clock that asks.
   */
  isLive() {
    const answering = this.askedAt === null || Date.now() - this.askedAt < OLD_AFTER;
    return this.link.state === "up" && answering && (!this.watched || this.age() < OLD_AFTER);
  }

  /** Now by the server's clock. It stands still while what is shown is old: a duration that goes on ticking would be a guess. */
  now() {
    const here = this.isLive() || this.lastGood === null ? Date.now() : this.lastGood;
    return new Date(here + (this.clocksDiffer() ? this.clockOffset : 0));
  }

  clocksDiffer() {
    return Math.abs(this.clockOffset) > SAME_CLOCK;
  }

  /** Occurrences that nobody has acknowledged yet; null while unknown. */
  waiting() {
    return this.replies.occurrences.items?.filter((occurrence) => !occurrence.acknowledged) ?? null;
  }

  active() {
    return this.replies.active.items;
  }

  configured(id) {
    return this.catalogueById.get(id)?.[0] ?? null;
  }

  /** The configured event behind an occurrence, which carries its name alone. */
  configuredByName(name) {
    return this.catalogueByName.get(name)?.[0] ?? null;
  }

  notifies(event) {
    return this.configured(event.id)?.notify ?? true;
  }

  /** The running occurrence of an active event: of several by that name, the one that began closest to it. */
  occurrenceOf(event) {
    const distance = (occurrence) => Math.abs((occurrence.since ?? 0) - (event.since ?? 0));
    return (this.runningByName.get(event.name) ?? [])
      .reduce((best, next) => (best === null || distance(next) < distance(best) ? next : best), null);
  }

  /** When this page first met it, 0 for what was there at the start. */
  firstSeen(item) {
    const key = arrivalKey(item);
    return this.seen.occurrences?.get(key) ?? this.seen.active?.get(key) ?? 0;
  }

  isNew(occurrence) {
    return Date.now() - this.firstSeen(occurrence) < NEW_FOR;
  }

  /** The devices of the plant: the server also offers each event as a device, and those always answer. */
  plantDevices() {
    return this.replies.devices.items?.filter((device) => device.type !== EVENT_DEVICE) ?? null;
  }

  failedDevices() {
    return this.plantDevices()?.filter((device) => device.failed) ?? null;
  }

  /** Why nothing can be acknowledged at the moment, in words for the operator; null when it can. */
  ackRefusal() {
    if (!this.mayAcknowledge) return "You may not acknowledge. Your account may only look; sign in as an operator to acknowledge.";
    if (!this.isLive()) return "Nothing can be acknowledged until the server answers again.";
    return null;
  }

  // --- Filter and order --------------------------------------------------------

  /** Every word of the filter stands somewhere in one of the texts. */
  matches(texts) {
    if (this.filter === "") return true;
    const haystack = texts.join("\n").toLowerCase();
    return this.filter.toLowerCase().split(/\s+/).every((word) => haystack.includes(word));
  }

  /** Filtered and in the order that the operator chose; equal ones keep the server's order. */
  arranged(items) {
    const groups = (item) => (this.configured(item.id) ?? this.configuredByName(item.name))?.groups ?? [];
    const begin = (item) => item.since?.getTime() ?? 0;
    // Dates have whole seconds: of two within one second, that which this page saw later is the newer one.
    const later = (a, b) => begin(a) - begin(b) || this.firstSeen(a) - this.firstSeen(b);
    const orders = {
      newest: (a, b) => later(b, a),
      oldest: later,
      name: (a, b) => a.name.localeCompare(b.name) || later(b, a),
    };
    return items
      .filter((item) => this.matches([item.name, item.description, item.annotation, ...groups(item)]))
      .sort(orders[this.order]);
  }
}
