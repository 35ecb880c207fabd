// Every configured event, whether anything happens with it or not.

import { drawRows, fromTemplate, part, setAttribute, setData, setText } from "./dom.js";
import { activeState } from "./active-view.js";
import { Pane, missingText } from "./pane.js";

const STATES = {
  alarm: { sign: "#sign-alarm", words: "Active" },
  acknowledged: { sign: "#sign-acknowledged", words: "Active, acknowledged" },
  information: { sign: "#sign-information", words: "Active" },
  idle: { sign: "#sign-good", words: "Not active" },
};

export class ConfiguredView {
  constructor(model) {
    this.model = model;
    this.pane = new Pane(document.getElementById("page-configured"), {
      keyOf: (event) => event.id,
      create: () => fromTemplate("row-configured"),
      update: (row, event) => this.update(row, event),
      onMore: () => model.changed(),
    });
  }

  render() {
    const reply = this.model.replies.catalogue;
    const all = reply.items ?? [];
    const shown = all.filter((event) => this.model.matches([event.name, event.description, ...event.groups]));
    this.activeById = new Map((this.model.active() ?? []).map((event) => [event.id, event]));
    this.pane.draw(shown);
    this.pane.setCount(shown.length, reply.items === null ? null : all.length);
    this.pane.setStale(this.model, reply);
    const missing = missingText(reply);
    if (missing) this.pane.setEmpty(missing.title, missing.detail, missing.calm);
    else if (all.length === 0) this.pane.setEmpty("No events are configured", "The server has loaded no event. Its configuration check says why one was left out.", false);
    else if (shown.length === 0) this.pane.setEmpty("No configured event matches the filter", "Esc clears the filter.", false);
    else this.pane.setEmpty(null);
  }

  update(row, event) {
    const active = this.activeById.get(event.id);
    const state = active ? activeState(this.model, active) : "idle";
    setData(row, "state", state);
    setAttribute(part(row, "sign"), "href", STATES[state].sign);
    setText(part(row, "state"), STATES[state].words);
    setText(part(row, "name"), event.name || "(event without a name)");
    setText(part(row, "text"), event.description);
    const tags = [
      ...event.groups,
      event.timeTable ? `Time table: ${event.timeTable}` : "",
      event.notify ? "Needs acknowledgement" : "",
      event.record ? "Recorded" : "",
    ].filter(Boolean);
    drawRows(part(row, "tags"), tags, (tag) => tag, () => document.createElement("li"), setText);
  }
}
