// Which events and groups are shown, besides the words in the filter field.

import { part, setText } from "../dom.js";
import { Picker } from "./picker.js";
import { numberText } from "./words.js";

const byLabel = (a, b) => a.label.localeCompare(b.label);
const labelOf = (chosen, all, one, many) => (chosen.length === 0 ? all : chosen.length === 1 ? one(chosen[0]) : `${chosen.length} ${many}`);

export class FilterBar {
  /**
   * `choose({events, groups})` is called with what has changed, `clear()` to show everything. `offered()` gives what there is to choose from:
   * {catalogue, described, totals}, configured events, the events of the rows, and the totals of all rows.
   */
  constructor(root, { choose, clear, offered }) {
    Object.assign(this, { root, choose, offered });
    this.picker = new Picker();
    part(root, "events").addEventListener("click", () => this.pickEvents());
    part(root, "groups").addEventListener("click", () => this.pickGroups());
    part(root, "clear").addEventListener("click", clear);
  }

  render(address, catalogue) {
    this.address = address;
    const name = (id) => (catalogue ?? []).find((event) => event.id.toUpperCase() === id)?.name ?? "1 event";
    setText(part(this.root, "events"), labelOf(address.events, "All events", name, "events"));
    setText(part(this.root, "groups"), labelOf(address.groups, "All groups", (group) => group, "groups"));
    for (const kind of ["events", "groups"]) part(this.root, kind).toggleAttribute("data-narrows", address[kind].length > 0);
    part(this.root, "clear").hidden = address.events.length === 0 && address.groups.length === 0 && !address.text;
  }

  async pickEvents() {
    const { catalogue, described, totals } = this.offered();
    const counts = new Map(totals.map((total) => [total.event.id, total.count]));
    const events = new Map(this.address.events.map((id) => [id, { name: `Unknown event ${id}`, record: true }]));
    for (const event of [...described, ...catalogue]) events.set(event.id.toUpperCase(), event);
    const note = (id, event) => (counts.has(id) ? numberText(counts.get(id)) : event.record ? "" : "not recorded");
    const items = [...events].map(([id, event]) => ({ key: id, label: event.name || "(event without a name)", note: note(id, event) }));
    const chosen = await this.picker.ask("Which events?", items.sort(byLabel), this.address.events);
    if (chosen) this.choose({ events: chosen });
  }

  async pickGroups() {
    const { catalogue, totals } = this.offered();
    const counts = new Map([...this.address.groups, ...catalogue.flatMap((event) => event.groups)].map((group) => [group, 0]));
    for (const { event, count } of totals) {
      for (const group of new Set(event.groups)) counts.set(group, (counts.get(group) ?? 0) + count);
    }
    const items = [...counts].map(([group, count]) => ({ key: group, label: group, note: count > 0 ? numberText(count) : "" }));
    const chosen = await this.picker.ask("Which groups?", items.sort(byLabel), this.address.groups);
    if (chosen) this.choose({ groups: chosen });
  }
}
