// The occurrences that wait for an acknowledgement, and the buttons that give it.

import { fromTemplate, part, setAttribute, setData, setMoment, setText } from "./dom.js";
import { Pane, configuredPairs, datePair, fillDetail, missingText, setOpen } from "./pane.js";
import { durationText, fullText, momentText } from "./time.js";

/** Milliseconds after the list has moved under the pointer in which a click counts as meant for the row that was there before. */
const SETTLING = 500;

export class WaitingView {
  /** `acknowledging.send(occurrences, confirm)` is called with what was chosen; `notices.show` tells about a click that was refused. */
  constructor(model, acknowledging, notices) {
    this.model = model;
    this.acknowledging = acknowledging;
    this.notices = notices;
    this.root = document.getElementById("waiting");
    this.pane = new Pane(this.root, {
      keyOf: (occurrence) => occurrence.id,
      create: (occurrence) => this.create(occurrence),
      update: (row, occurrence) => this.update(row, occurrence),
      onMore: () => model.changed(),
    });
    this.drawn = [];
    this.movedAt = 0;
    this.pointerInside = false;
    this.listen();
  }

  listen() {
    const rows = this.pane.rows;
    rows.addEventListener("pointermove", () => { this.pointerInside = true; });
    rows.addEventListener("pointerleave", () => { this.pointerInside = false; });
    part(this.root, "all").addEventListener("change", (event) => this.selectAll(event.target.checked));
    part(this.root, "ack-selected").addEventListener("click", () => this.acknowledgeSelected());
    part(this.root, "ack-all").addEventListener("click", () => this.acknowledging.send(this.shown(), true));
  }

  // --- Drawing ---------------------------------------------------------------

  render() {
    const reply = this.model.replies.occurrences;
    const waiting = this.model.waiting() ?? [];
    const arranged = this.model.arranged(waiting);
    const before = this.drawn.map((occurrence) => occurrence.id).join();
    const focused = this.focusedControl();
    const { drawn, gone } = this.pane.draw(arranged);
    if (drawn.map((occurrence) => occurrence.id).join() !== before && this.pointerInside) this.movedAt = Date.now();
    this.drawn = drawn;
    this.arranged = arranged;
    this.keepFocus(focused, gone);
    this.pane.setCount(arranged.length, reply.items === null ? null : waiting.length);
    this.pane.setStale(this.model, reply);
    this.renderEmpty(reply, waiting, arranged);
    this.renderBulk(waiting, arranged);
    this.blinkTogether();
  }

  /** Signs that blink each in its own time are a flicker; together they are one signal. */
  blinkTogether() {
    for (const animation of this.pane.rows.getAnimations({ subtree: true })) {
      if (animation.startTime !== 0) animation.startTime = 0;
    }
  }

  create(occurrence) {
    const row = fromTemplate("row-waiting");
    row.dataset.id = occurrence.id;
    part(row, "pick").addEventListener("change", (event) => this.select(occurrence.id, event.target.checked));
    part(row, "ack").addEventListener("click", (event) => this.acknowledgeOne(occurrence, event));
    part(row, "name").addEventListener("click", () => this.toggle(occurrence.id));
    return row;
  }

  update(row, occurrence) {
    const { model } = this;
    const name = occurrence.name || "(event without a name)";
    setData(row, "state", occurrence.ended ? "ended" : "alarm");
    setAttribute(part(row, "sign"), "href", occurrence.ended ? "#sign-ended" : "#sign-alarm");
    setText(part(row, "state"), occurrence.ended ? "Ended" : "Active");
    setText(part(row, "name"), name);
    setText(part(row, "text"), occurrence.annotation || occurrence.description);
    part(row, "new").hidden = !model.isNew(occurrence);
    this.updateWhen(row, occurrence);
    this.updateControls(row, occurrence, name);
    setOpen(row, model.open.has(occurrence.id));
    if (model.open.has(occurrence.id)) fillDetail(part(row, "detail"), this.details(occurrence));
  }

  updateWhen(row, { since, ended, endedAt }) {
    const now = this.model.now();
    const until = ended ? endedAt : now;
    const length = since && until ? durationText(until - since) : "";
    setText(part(row, "length"), length && (ended ? `lasted ${length}` : `for ${length}`));
    setMoment(part(row, "moment"), since, since ? momentText(since, now) : "", since ? `Active since ${fullText(since)}` : "");
  }

  updateControls(row, occurrence, name) {
    const sending = this.model.sending.has(occurrence.id);
    const pick = part(row, "pick");
    pick.checked = this.model.selected.has(occurrence.id);
    setAttribute(pick, "aria-label", `Select ${name}`);
    setData(row, "picked", pick.checked ? "yes" : "no");
    const ack = part(row, "ack");
    setText(ack, sending ? "Sending…" : "Acknowledge");
    setAttribute(ack, "aria-label", sending ? null : `Acknowledge ${name}`);
    this.setUsable(ack, !sending);
  }

  details(occurrence) {
    return [
      ["Description", occurrence.description],
      datePair("Active since", occurrence.since),
      datePair("Ended", occurrence.endedAt),
      ...configuredPairs(this.model.configuredByName(occurrence.name)),
      ["Occurrence", occurrence.id],
    ];
  }

  renderEmpty(reply, waiting, arranged) {
    const missing = missingText(reply);
    if (missing) this.pane.setEmpty(missing.title, missing.detail, missing.calm);
    else if (waiting.length === 0) this.pane.setEmpty("Nothing to acknowledge", "New occurrences appear here by themselves.");
    else if (arranged.length === 0) this.pane.setEmpty("None of the waiting occurrences matches the filter", `${waiting.length} are hidden. Esc clears the filter.`, false);
    else this.pane.setEmpty(null);
  }

  renderBulk(waiting, arranged) {
    const chosen = this.chosen().length;
    part(this.root, "bulk").hidden = waiting.length === 0;
    const all = part(this.root, "all");
    all.checked = chosen > 0 && chosen === arranged.length;
    all.indeterminate = chosen > 0 && chosen < arranged.length;
    const selected = part(this.root, "ack-selected");
    setText(selected, chosen > 0 ? `Acknowledge selected (${chosen})` : "Acknowledge selected");
    this.setUsable(selected, chosen > 0);
    const every = part(this.root, "ack-all");
    setText(every, arranged.length < waiting.length ? `Acknowledge all shown (${arranged.length})` : `Acknowledge all (${waiting.length})`);
    this.setUsable(every, arranged.length > 0);
    const reason = part(this.root, "reason");
    const refusal = waiting.length > 0 ? this.model.ackRefusal() : null;
    reason.hidden = refusal === null;
    setText(reason, refusal ?? "");
  }

  /** A button that can't be used now stays where it is, takes the focus and says why: one that vanishes leaves people wondering. */
  setUsable(button, usable) {
    const refused = this.model.ackRefusal() !== null;
    setAttribute(button, "aria-disabled", usable && !refused ? null : "true");
    setAttribute(button, "aria-describedby", refused ? "ack-reason" : null);
  }

  // --- Choosing ----------------------------------------------------------------

  /** What the filter lets through, whether drawn or behind "Show all". */
  shown() {
    return this.arranged ?? [];
  }

  /** Selected and shown: what the filter hides is never acknowledged unseen. */
  chosen() {
    return this.shown().filter((occurrence) => this.model.selected.has(occurrence.id));
  }

  select(id, selected) {
    if (selected) this.model.selected.add(id);
    else this.model.selected.delete(id);
    this.model.changed();
  }

  selectAll(selected) {
    this.model.selected = new Set(selected ? this.shown().map((occurrence) => occurrence.id) : []);
    this.model.changed();
  }

  toggle(id) {
    if (!this.model.open.delete(id)) this.model.open.add(id);
    this.model.changed();
  }

  acknowledgeSelected() {
    if (this.chosen().length > 0) this.acknowledging.send(this.chosen(), false);
    else if (this.model.ackRefusal() === null) this.notices.show("Select one or more occurrences first.");
    else this.notices.show(this.model.ackRefusal(), "problem");
  }

  acknowledgeOne(occurrence, event) {
    const byPointer = event.detail > 0;
    if (byPointer && Date.now() - this.movedAt < SETTLING) {
      this.notices.show("The list has just moved, so nothing was acknowledged. Look and click again.", "problem");
      return;
    }
    this.acknowledging.send([occurrence], false);
  }

  // --- Focus -------------------------------------------------------------------

  focusedControl() {
    const row = document.activeElement?.closest?.(".row");
    if (!row || !this.pane.rows.contains(row)) return null;
    const place = [...this.pane.rows.children].indexOf(row);
    return { row, place, control: document.activeElement.dataset.part };
  }

  /** When the row with the focus goes, the next one takes it over, so that a series of acknowledgements needs no mouse. */
  keepFocus(focused, gone) {
    if (!focused || !gone.includes(focused.row)) return;
    const rows = this.pane.rows.children;
    const next = rows[Math.min(focused.place, rows.length - 1)];
    if (next) part(next, focused.control).focus();
    else document.getElementById("waiting-title").focus();
  }
}
