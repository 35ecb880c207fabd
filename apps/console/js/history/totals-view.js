// One line an event: how often, how long, how soon somebody acknowledged, and its share as a bar.

import { fromTemplate, part, setAttribute, setSort, setText } from "../dom.js";
import { Pane } from "../pane.js";
import { meanAcknowledging, measured } from "./rows.js";
import { numberText, percentText, secondsText } from "./words.js";

export class TotalsView {
  /** `only(eventId)` narrows down to one event, `sort(by)` is called with a column's name. */
  constructor(root, { only, sort }) {
    this.root = root;
    this.pane = new Pane(root, {
      keyOf: (total) => total.event.id,
      create: (total) => this.create(total, only),
      update: (line, total) => this.update(line, total),
      onMore: () => this.draw(),
    });
    for (const head of root.querySelectorAll("[data-sort]")) head.firstElementChild.addEventListener("click", () => sort(head.dataset.sort));
    this.totals = [];
  }

  /** `totals` in the order in which they are shown. */
  show(totals, { totalSort, measure }) {
    this.totals = totals;
    this.by = measure;
    this.sum = totals.reduce((sum, total) => sum + measured(total, measure), 0);
    this.largest = totals.reduce((largest, total) => Math.max(largest, measured(total, measure)), 0);
    setSort(this.root, totalSort);
    this.draw();
  }

  clear() {
    this.totals = [];
    this.draw();
  }

  draw() {
    this.pane.draw(this.totals);
  }

  create(total, only) {
    const line = fromTemplate("row-total");
    part(line, "name").addEventListener("click", () => only(total.event.id));
    return line;
  }

  update(line, total) {
    setText(part(line, "name"), total.event.name);
    setAttribute(part(line, "name"), "title", `Show only ${total.event.name}`);
    setText(part(line, "count"), numberText(total.count));
    setText(part(line, "time"), total.ended > 0 ? secondsText(total.seconds) : "–");
    setText(part(line, "time-note"), this.timeNote(total));
    setText(part(line, "longest"), secondsText(total.longest));
    setText(part(line, "acknowledging"), total.event.notify ? secondsText(meanAcknowledging(total)) : "not needed");
    setText(part(line, "acknowledged"), this.acknowledgedNote(total));
    const value = measured(total, this.by);
    part(line, "bar").style.width = `${this.largest > 0 ? value / this.largest * 100 : 0}%`;
    setText(part(line, "share"), this.sum > 0 ? percentText(value / this.sum) : "–");
  }

  timeNote({ active, soFar, unknown }) {
    const notes = [];
    if (active > 0) notes.push(`${active === 1 ? "" : `${numberText(active)} `}still active, ${secondsText(soFar)} so far`);
    if (unknown > 0) notes.push(`${numberText(unknown)} without recorded end`);
    return notes.join("; ");
  }

  acknowledgedNote({ event, acknowledged, count, waiting }) {
    if (!event.notify) return "";
    return `${numberText(acknowledged)} of ${numberText(count)}${waiting > 0 ? `, ${numberText(waiting)} waiting` : ""}`;
  }
}
