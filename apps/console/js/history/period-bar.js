// Which period is asked about: the quick choices, and two fields for exact times.

import { part, setAttribute, setText } from "../dom.js";
import { PERIODS, boundsProblem, fieldDate, fieldText } from "./period.js";

export class PeriodBar {
  /** `choose({period, from, to})` is called with what is to be asked; `bounds()` gives what is shown now. */
  constructor(root, { choose, bounds }) {
    this.range = part(root, "range");
    this.from = part(this.range, "from");
    this.to = part(this.range, "to");
    this.problem = part(this.range, "range-problem");
    this.buttons = PERIODS.map(({ key, label }) => {
      const button = document.createElement("button");
      button.type = "button";
      button.textContent = label;
      button.dataset.period = key;
      button.addEventListener("click", () => (key === "range" ? this.begin(bounds()) : choose({ period: key, from: null, to: null })));
      return button;
    });
    part(root, "periods").append(...this.buttons);
    this.range.addEventListener("submit", (event) => {
      event.preventDefault();
      this.submit(choose);
    });
  }

  render({ period, from, to }) {
    setText(this.problem, "");
    this.press(period);
    if (period !== "range") return;
    this.from.value = fieldText(from);
    this.to.value = fieldText(to);
  }

  press(period) {
    for (const button of this.buttons) setAttribute(button, "aria-pressed", String(button.dataset.period === period));
    this.range.hidden = period !== "range";
  }

  /** Opens the fields with what is on the screen; nothing is asked before somebody says so. */
  begin(bounds) {
    this.press("range");
    if (bounds.begin && bounds.end) {
      this.from.value = fieldText(bounds.begin);
      this.to.value = fieldText(bounds.end);
    }
    this.from.focus();
  }

  submit(choose) {
    const [from, to] = [fieldDate(this.from.value), fieldDate(this.to.value)];
    const problem = boundsProblem({ begin: from, end: to });
    setText(this.problem, problem ?? "");
    if (problem === null) choose({ period: "range", from, to });
  }
}
