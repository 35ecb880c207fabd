// Choosing several of many: a list of boxes with a search, in a dialog that fits a phone.

import { drawRows, fromTemplate, part, setText } from "../dom.js";
import { counted } from "./words.js";

/** Boxes drawn at once; the search finds the others. */
const DRAWN = 300;

export class Picker {
  constructor() {
    this.dialog = document.getElementById("picker");
    this.list = part(this.dialog, "list");
    this.search = part(this.dialog, "search");
    this.search.addEventListener("input", () => this.draw());
    // Enter in the search is no decision yet.
    this.search.addEventListener("keydown", (event) => { if (event.key === "Enter") event.preventDefault(); });
    part(this.dialog, "none").addEventListener("click", () => {
      this.chosen.clear();
      this.draw();
    });
  }

  /** Asks which of `items` ([{key, label, note}]) are wanted, `chosen` keys at the beginning. Gives the keys, or null when nothing changes. */
  ask(title, items, chosen) {
    this.items = items;
    this.chosen = new Set(chosen);
    this.search.value = "";
    setText(document.getElementById("picker-title"), title);
    this.draw();
    return new Promise((resolve) => {
      this.dialog.returnValue = "no";
      this.dialog.addEventListener("close", () => resolve(this.dialog.returnValue === "yes" ? [...this.chosen] : null), { once: true });
      this.dialog.showModal();
    });
  }

  draw() {
    const words = this.search.value.toLowerCase().split(/\s+/).filter(Boolean);
    const found = this.items.filter(({ label }) => words.every((word) => label.toLowerCase().includes(word)));
    drawRows(this.list, found.slice(0, DRAWN), ({ key }) => key, (item) => this.create(item), (line, item) => {
      part(line, "box").checked = this.chosen.has(item.key);
      setText(part(line, "label"), item.label);
      setText(part(line, "note"), item.note);
    });
    const rest = part(this.dialog, "rest");
    rest.hidden = found.length > 0 && found.length <= DRAWN;
    setText(rest, found.length === 0 ? "Nothing matches the search." : `${counted(found.length - DRAWN, "more", "more")}: search for a part of the name.`);
    part(this.dialog, "none").disabled = this.chosen.size === 0;
  }

  create({ key }) {
    const line = fromTemplate("choice");
    part(line, "box").addEventListener("change", ({ target }) => {
      if (target.checked) this.chosen.add(key);
      else this.chosen.delete(key);
      part(this.dialog, "none").disabled = this.chosen.size === 0;
    });
    return line;
  }
}
