// The filter, the order, and the keys that spare the mouse.

const MOVES = { ArrowDown: 1, ArrowUp: -1 };

/** The same control in the next or previous row of the list. */
function moveFocus(from, step) {
  const row = from.closest(".row");
  const target = step > 0 ? row.nextElementSibling : row.previousElementSibling;
  target?.querySelector(`[data-part="${from.dataset.part}"]`)?.focus();
}

const typing = (element) => element.matches("input:not([type=checkbox]), select, textarea");

/** The words that narrow down what is shown, in the field and in the model. */
export function setFilter(model, text) {
  const filter = document.getElementById("filter");
  if (filter.value !== text) filter.value = text;
  model.filter = text.trim();
  model.changed();
}

export function startKeys(model) {
  const filter = document.getElementById("filter");
  filter.addEventListener("input", () => setFilter(model, filter.value));
  document.getElementById("order").addEventListener("change", (event) => {
    model.order = event.target.value;
    model.changed();
  });
  document.addEventListener("keydown", (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey || document.querySelector("dialog[open]")) return;
    if (event.key === "Escape" && filter.value !== "") return setFilter(model, "");
    if (typing(event.target)) return;
    if (event.key === "/") {
      event.preventDefault();
      filter.focus();
    } else if (event.key in MOVES && event.target.closest(".row")) {
      event.preventDefault();
      moveFocus(event.target, MOVES[event.key]);
    }
  });
}
