// The events that are active now, acknowledged or not.

import { fromTemplate, part, setAttribute, setData, setMoment, setText } from "./dom.js";
import { Pane, configuredPairs, datePair, fillDetail, missingText, setOpen } from "./pane.js";
import { durationText, fullText, momentText } from "./time.js";

const STATES = {
  alarm: { sign: "#sign-alarm", words: "Waiting" },
  acknowledged: { sign: "#sign-acknowledged", words: "Acknowledged" },
  information: { sign: "#sign-information", words: "Information" },
};

/** How an active event stands: waiting for someone, acknowledged, or one that nobody has to acknowledge. */
export function activeState(model, event) {
  const occurrence = model.occurrenceOf(event);
  if (occurrence) return occurrence.acknowledged ? "acknowledged" : "alarm";
  const configured = model.configured(event.id);
  if (configured) return configured.notify ? "alarm" : "information";
  // Nothing says that somebody needn't look, so somebody has to.
  return model.replies.occurrences.items === null ? "alarm" : "information";
}

export class ActiveView {
  constructor(model) {
    this.model = model;
    this.pane = new Pane(document.getElementById("active"), {
      keyOf: (event) => event.id,
      create: (event) => this.create(event),
      update: (row, event) => this.update(row, event),
      onMore: () => model.changed(),
    });
  }

  render() {
    const reply = this.model.replies.active;
    const active = this.model.active() ?? [];
    const arranged = this.model.arranged(active);
    this.pane.draw(arranged);
    this.pane.setCount(arranged.length, reply.items === null ? null : active.length);
    this.pane.setStale(this.model, reply);
    this.renderEmpty(reply, active, arranged);
  }

  create(event) {
    const row = fromTemplate("row-active");
    row.dataset.id = event.id;
    part(row, "name").addEventListener("click", () => {
      if (!this.model.open.delete(event.id)) this.model.open.add(event.id);
      this.model.changed();
    });
    return row;
  }

  update(row, event) {
    const { model } = this;
    const state = activeState(model, event);
    const now = model.now();
    setData(row, "state", state);
    setAttribute(part(row, "sign"), "href", STATES[state].sign);
    setText(part(row, "state"), STATES[state].words);
    setText(part(row, "name"), event.name || "(event without a name)");
    setText(part(row, "text"), event.annotation || event.description);
    setText(part(row, "length"), event.since ? `active for ${durationText(now - event.since)}` : "");
    setMoment(part(row, "moment"), event.since, event.since ? momentText(event.since, now) : "", event.since ? `Active since ${fullText(event.since)}` : "");
    setOpen(row, model.open.has(event.id));
    if (model.open.has(event.id)) fillDetail(part(row, "detail"), this.details(event));
  }

  details(event) {
    return [
      ["Description", event.description],
      datePair("Active since", event.since),
      datePair("Acknowledged", this.model.occurrenceOf(event)?.acknowledgedAt ?? null),
      ...configuredPairs(this.model.configured(event.id)),
      ["Event", event.id],
    ];
  }

  renderEmpty(reply, active, arranged) {
    const missing = missingText(reply);
    const watched = this.model.replies.catalogue.items?.length;
    if (missing) this.pane.setEmpty(missing.title, missing.detail, missing.calm);
    else if (watched === 0) this.pane.setEmpty("No events are configured", "The server has loaded no event, so nothing is being watched.", false);
    else if (active.length === 0) this.pane.setEmpty("Nothing is active", watched === 1 ? "One event is being watched." : watched ? `${watched} events are being watched.` : "");
    else if (arranged.length === 0) this.pane.setEmpty("None of the active events matches the filter", `${active.length} are hidden. Esc clears the filter.`, false);
    else this.pane.setEmpty(null);
  }
}
