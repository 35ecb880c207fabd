// The page "History": what is asked, what came of it, and how it is shown.

import { part, setAttribute, setText } from "../dom.js";
import { setFilter } from "../keys.js";
import { setEmpty } from "../pane.js";
import { momentText } from "../time.js";
import { formatAddress, parseAddress, samePeriod } from "./address.js";
import { AskingBar } from "./asking-bar.js";
import { csvPieces, fileName } from "./csv.js";
import { Detail } from "./detail.js";
import { FilterBar } from "./filter-bar.js";
import { LogTable } from "./log-table.js";
import { boundsOf, boundsProblem, boundsText } from "./period.js";
import { PeriodBar } from "./period-bar.js";
import { Question } from "./question.js";
import { describeEvents, pickRows, sortRows, sortTotals, totalsOf } from "./rows.js";
import { Timeline } from "./timeline.js";
import { TotalsView } from "./totals-view.js";
import { counted, numberText } from "./words.js";

/** Milliseconds of typing until the filter follows: with many rows it has something to do. */
const TYPING = 150;
/** What was asked longer ago than this many milliseconds is asked anew when somebody comes back to the page. */
const OLD_AFTER = 10000;

const NO_ROWS = new Uint32Array(0);
const pause = () => new Promise((resolve) => setTimeout(resolve, 0));

export class HistoryView {
  /** `signInNeeded()` is called when the server wants to know who is looking. */
  constructor(model, notices, { signInNeeded }) {
    Object.assign(this, { model, notices });
    this.root = document.getElementById("page-history");
    this.address = parseAddress("");
    this.question = new Question(model, { answered: (result) => this.answered(result), failed: (problem) => this.failed(problem), signInNeeded });
    this.asking = new AskingBar(part(this.root, "asking"), this.question, { cancel: () => this.cancel() });
    this.filters = new FilterBar(document.getElementById("history-filters"), {
      choose: (chosen) => this.go(chosen),
      clear: () => this.clearFilters(),
      offered: () => this.offered(),
    });
    this.detail = new Detail({ only: (id) => this.only(id) });
    this.period = new PeriodBar(this.root, { choose: (period) => this.go(period, true), bounds: () => boundsOf(this.address, model.now()) });
    const open = (row) => this.detail.show(this.result.rows, row, this.described[this.result.rows.event[row]]);
    this.table = new LogTable(document.getElementById("history-rows"), { open, sort: (by) => this.go({ sort: this.turned("sort", by) }) });
    this.totals = new TotalsView(document.getElementById("history-totals"), {
      only: (id) => this.only(id),
      sort: (by) => this.go({ totalSort: this.turned("totalSort", by) }),
    });
    this.timeline = new Timeline(document.getElementById("history-timeline"), {
      open,
      asPeriod: (from, to) => this.go({ period: "range", from: new Date(Math.floor(from / 1000) * 1000), to }, true),
    });
    this.forget();
    this.listen();
  }

  listen() {
    const act = (name, action) => part(this.root, name).addEventListener("click", action);
    act("refresh", () => this.load());
    act("again", () => this.load());
    act("csv", () => this.saveCsv());
    for (const button of part(this.root, "views").children) button.addEventListener("click", () => this.go({ view: button.dataset.view }));
    const order = part(this.root, "order");
    order.addEventListener("change", () => this.go({ sort: { by: order.value.replace("-", ""), down: order.value.startsWith("-") } }));
    const measure = part(this.root, "measure");
    measure.addEventListener("change", () => this.go({ measure: measure.value }));
    this.model.addEventListener("change", () => {
      if (this.epoch !== this.model.epoch) this.forget();
      if (this.model.page !== "history") this.away = true;
    });
  }

  /** Whoever was looking may not be the one who looks now. */
  forget() {
    this.question.cancel();
    this.epoch = this.model.epoch;
    this.lost = false;        // the server has gone, and with it the answer
    this.away = false;        // somebody looks at another page
    this.query = null;        // the query text that `address` was read from or written to
    this.result = null;       // what the last question brought, as the Question tells it
    this.news = false;        // something has happened since
    this.told = null;         // the digest of what ran right after the log was read; what differs from it is news
    this.problem = null;      // why the last question brought nothing: {title, detail}
    this.catalogue = null;
    this.derived = {};
    if (this.detail.dialog.open) this.detail.close();
    this.draw();
  }

  // --- What somebody wants to see ------------------------------------------------

  /** Called each second and whenever something has changed; does something only where it concerns this page. */
  render() {
    if (this.query !== this.model.query) this.follow();
    else if (this.isDue()) this.load();
    this.away = false;
    this.lost = this.problem?.lost === true && !this.model.isLive();
    this.followFilter();
    if (this.catalogue !== this.model.replies.catalogue.items) this.followCatalogue();
    this.hearNews();
    this.asking.render();
  }

  /** Somebody comes back to what has grown old, or the server does to whom asked in vain. */
  isDue() {
    if (this.question.underWay) return false;
    if (this.lost && this.model.isLive()) return true;
    return this.away && this.result !== null && this.isRunning() && Date.now() - this.result.at > OLD_AFTER;
  }

  /** Somebody came by a link, or went back. */
  follow() {
    const before = this.address;
    this.query = this.model.query;
    this.address = parseAddress(this.query);
    if (this.address.text !== null && this.address.text !== this.model.filter) setFilter(this.model, this.address.text);
    this.address.text = this.model.filter;
    this.period.render(this.address);
    this.write(false);
    if (this.result === null || !samePeriod(before, this.address)) this.load();
    else this.draw();
  }

  /** Changes the address; `remember` makes a step that the browser's back button takes back. */
  go(changes, remember = false) {
    const before = this.address;
    this.address = { ...this.address, ...changes };
    this.write(remember);
    if ("period" in changes) this.period.render(this.address);
    if (remember || !samePeriod(before, this.address)) this.load();
    else this.draw();
  }

  write(remember) {
    const query = formatAddress(this.address);
    const hash = `#/history${query && `?${query}`}`;
    if (location.hash !== hash) history[remember ? "pushState" : "replaceState"](null, "", hash);
    this.query = this.model.query = query;
    document.querySelector('#pages a[data-page="history"]').setAttribute("href", hash);
  }

  /** The same column again turns the order; a new one begins where it is most useful. */
  turned(name, by) {
    const sort = this.address[name];
    if (sort.by === by) return { by, down: !sort.down };
    return { by, down: !["event", "annotation"].includes(by) };
  }

  followFilter() {
    if (this.model.filter === this.address.text) return;
    this.address = { ...this.address, text: this.model.filter };
    clearTimeout(this.typing);
    this.typing = setTimeout(() => {
      if (this.model.page === "history") this.write(false);
      this.draw();
    }, TYPING);
  }

  only(id) {
    this.go({ events: [id] });
  }

  clearFilters() {
    setFilter(this.model, "");
    this.go({ events: [], groups: [], text: "" });
  }

  offered() {
    const { rows } = this.result ?? {};
    return {
      catalogue: this.catalogue ?? [],
      described: rows ? this.described : [],
      totals: rows ? totalsOf(rows.event.keys(), rows, this.described) : [],
    };
  }

  // --- Asking --------------------------------------------------------------------

  load() {
    const bounds = boundsOf(this.address, this.model.now());
    const reason = boundsProblem(bounds);
    const keeps = this.result && reason === null && samePeriod(this.result.address, this.address);
    if (!keeps) this.result = null;
    this.problem = reason && { title: "This period can't be asked for", detail: reason, again: false };
    if (reason === null) this.question.ask(this.address, bounds);
    else this.question.cancel();
    this.draw();
  }

  answered(result) {
    this.fresh = this.result === null;
    this.result = result;
    this.news = false;
    this.told = result.after && this.digest(result.after);
    this.problem = null;
    this.derived = {};
    this.draw();
    if (this.described.some((event) => !event.known)) this.model.catalogueLacks();
  }

  failed(problem) {
    this.problem = { ...problem, again: true };
    this.draw();
  }

  cancel() {
    this.question.cancel();
    if (!this.result) this.problem = { title: "Cancelled", detail: "Nothing was read.", again: true };
    this.draw();
  }

  /** The period reaches into the present: when it was asked for, its end was still to come. */
  isRunning() {
    return this.result.bounds.end > this.result.since;
  }

  /** Something has begun, ended or been acknowledged since; events that leave no record don't count. */
  hearNews() {
    const { result, model } = this;
    const { active, occurrences } = model.replies;
    if (!result || this.news || !this.isRunning() || Math.min(active.at, occurrences.at) <= result.at) return;
    const now = this.digest({ active: active.items, occurrences: occurrences.items });
    this.told ??= now;
    this.news = this.told !== now;
    if (this.news) this.drawTold();
  }

  /** What runs, as a text that changes when something happens that the log records. */
  digest({ active, occurrences }) {
    const { model } = this;
    const recorded = (event) => event?.record ?? true;
    return JSON.stringify([
      active.filter((event) => recorded(model.configured(event.id))).map(({ id, since }) => [id, since]),
      occurrences.filter((event) => recorded(model.configuredByName(event.name))).map(({ id, acknowledged, ended }) => [id, acknowledged, ended]),
    ]);
  }

  // --- Showing -------------------------------------------------------------------

  /** Names and groups may have changed; they are asked for again and again, and mostly haven't. */
  followCatalogue() {
    this.catalogue = this.model.replies.catalogue.items;
    const key = JSON.stringify(this.catalogue);
    if (key === this.catalogueKey) return;
    this.catalogueKey = key;
    this.told = null;
    this.derived = {};
    this.draw();
  }

  /** Works out `value()` again only when one of the things that it is made of is another. */
  derive(name, from, value) {
    const before = this.derived[name];
    if (!before || before.from.some((source, place) => source !== from[place])) this.derived[name] = { from, value: value() };
    return this.derived[name].value;
  }

  draw() {
    this.drawAddress();
    this.drawTold();
    this.asking.render();
    const picked = this.pick();
    this.root.toggleAttribute("data-nothing", picked.length === 0);
    if (picked.length > 0) this.drawPicked(picked);
    else this.drawNothing();
  }

  /** The rows of the result that the filter lets through. */
  pick() {
    if (!this.result) return NO_ROWS;
    const { result: { rows }, address } = this;
    this.described = this.derive("described", [rows], () => describeEvents(rows, this.catalogue));
    return this.derive("picked", [rows, this.described, address.events, address.groups, address.text], () => pickRows(rows, this.described,
      { events: new Set(address.events), groups: new Set(address.groups), text: address.text }));
  }

  sorted(picked) {
    const { result: { rows }, described, address: { sort } } = this;
    return this.derive("order", [picked, sort.by, sort.down], () => sortRows(picked, rows, described, sort));
  }

  drawPicked(picked) {
    const { result: { rows, bounds, now }, described, address, fresh } = this;
    const { totalSort, measure, sort } = address;
    const order = this.sorted(picked);
    const totals = this.derive("totals", [picked], () => totalsOf(picked, rows, described));
    const lines = this.derive("lines", [totals, totalSort.by, totalSort.down, measure], () => sortTotals(totals, totalSort, measure));
    this.derive("table", [order], () => this.table.show(order, rows, described, sort));
    this.derive("totals-view", [lines], () => this.totals.show(lines, address));
    this.derive("timeline", [lines, bounds], () => this.timeline.show({ rows, picked, places: lines.map((total) => total.place), described,
      bounds, now, fresh }));
    this.fresh = false;
    this.table.draw();
    this.timeline.draw();
    const of = picked.length === rows.count ? "" : ` of ${numberText(rows.count)}`;
    setText(part(this.root, "rows-count"), `${numberText(picked.length)}${of}`);
    setText(part(this.root, "totals-count"), counted(totals.length, "event"));
  }

  drawAddress() {
    const { address } = this;
    this.root.dataset.view = address.view;
    for (const button of part(this.root, "views").children) setAttribute(button, "aria-pressed", String(button.dataset.view === address.view));
    part(this.root, "order").value = `${address.sort.down ? "-" : ""}${address.sort.by}`;
    part(this.root, "measure").value = address.measure;
    this.filters.render(address, this.catalogue);
  }

  drawTold() {
    const { result } = this;
    const bounds = result?.bounds ?? boundsOf(this.address, this.model.now());
    setText(part(this.root, "bounds"), bounds.begin && bounds.end ? boundsText(bounds) : "");
    const asOf = result ? `as of ${momentText(result.now, this.model.now())}${this.news ? "; there is news since" : ""}` : "";
    setText(part(this.root, "as-of"), asOf);
    part(this.root, "as-of").toggleAttribute("data-news", this.news);
    part(this.root, "refresh").disabled = this.question.underWay;
    this.root.toggleAttribute("data-busy", this.question.underWay);
    part(this.root, "csv").disabled = !result || this.saving === true;
    this.drawCaution();
  }

  drawCaution() {
    const { result } = this;
    const notes = [];
    if (result && !result.complete) notes.push("The answer broke off: what came later in the period is missing. Refresh to ask again.");
    if (result?.dropped > 0) {
      notes.push(`${counted(result.dropped, "record")} couldn't be understood and ${result.dropped === 1 ? "is" : "are"} missing here.`);
    }
    if (result && this.problem) notes.push(`Not refreshed: ${this.problem.title}. ${this.problem.detail}`);
    const caution = part(this.root, "caution");
    caution.hidden = notes.length === 0;
    setText(caution, notes.join(" "));
  }

  /** Says why there is nothing to see, and leaves nothing of what was there before. */
  drawNothing() {
    for (const view of [this.table, this.totals, this.timeline]) view.clear();
    for (const name of ["table", "totals-view", "timeline"]) delete this.derived[name];
    const { problem, result } = this;
    const nothing = part(this.root, "nothing");
    part(this.root, "again").hidden = !problem?.again;
    if (problem && !result) setEmpty(nothing, problem.title, problem.detail, false);
    else if (!result) setEmpty(nothing, "Asking the server…");
    else if (result.rows.count > 0) setEmpty(nothing, "No occurrence matches the filter", `${numberText(result.rows.count)} of this period are hidden.`, false);
    else setEmpty(nothing, "Nothing happened in this period", this.recordedText());
  }

  /** What an empty log may mean. */
  recordedText() {
    if (!this.catalogue) return "";
    const { events } = this.address;
    const chosen = this.catalogue.filter((event) => events.length === 0 || events.includes(event.id.toUpperCase()));
    const silent = chosen.filter((event) => !event.record).length;
    const counting = "Listed is what became active within it.";
    return silent === 0 ? counting : `${counting} ${counted(silent, "event")} of ${numberText(chosen.length)} ${silent === 1 ? "isn't" : "aren't"} recorded.`;
  }

  // --- Taking away -----------------------------------------------------------------

  async saveCsv() {
    const { result } = this;
    this.saving = true;
    this.drawTold();
    const zone = Intl.DateTimeFormat().resolvedOptions().timeZone;
    const order = this.sorted(this.pick());
    const pieces = await csvPieces(result.rows, this.described, order, zone, pause);
    this.saving = false;
    this.drawTold();
    const link = document.createElement("a");
    link.href = URL.createObjectURL(new Blob(pieces, { type: "text/csv;charset=utf-8" }));
    link.download = fileName(result.bounds);
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 60000);
    this.notices.show(`${counted(order.length, "occurrence")} saved as ${link.download}`);
  }
}
