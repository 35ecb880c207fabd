// The few operations on the page that every view needs. Text always goes in as text; nothing here or elsewhere parses markup.

/** A fresh copy of the single element in the <template> with this id. */
export function fromTemplate(id) {
  return document.getElementById(id).content.firstElementChild.cloneNode(true);
}

/** The element inside `root` that carries data-part="name". */
export function part(root, name) {
  return root.querySelector(`[data-part="${name}"]`);
}

/** Writes only what differs, so that a screen reader isn't told the same again and a selection survives. */
export function setText(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

export function setData(node, name, value) {
  if (node.dataset[name] !== value) node.dataset[name] = value;
}

export function setAttribute(node, name, value) {
  if (value === null) node.removeAttribute(name);
  else if (node.getAttribute(name) !== value) node.setAttribute(name, value);
}

/** A time, in words for people and in the attribute for machines; the full date is the tooltip. */
export function setMoment(node, date, words, title) {
  setText(node, words);
  setAttribute(node, "datetime", date ? date.toISOString() : null);
  setAttribute(node, "title", date ? title : null);
}

/** Says at the heads of columns ([data-sort]) by which of them the rows stand in order; `sort` is {by, down}. */
export function setSort(root, { by, down }) {
  for (const head of root.querySelectorAll("[data-sort]")) {
    setAttribute(head, "aria-sort", head.dataset.sort !== by ? null : down ? "descending" : "ascending");
  }
}

const drawnRows = new WeakMap();

/**
 * Makes the children of `parent` the rows of `items`, in their order. A row lives as long as its key does and is moved only when it has to
 * be, so that focus, selection and a pressed button survive a refresh.
 * `create(item)` makes a row, `update(row, item)` fills it. Gives the rows that went, already out of the page.
 */
export function drawRows(parent, items, keyOf, create, update) {
  const before = drawnRows.get(parent) ?? new Map();
  const after = new Map();
  for (const item of items) {
    let key = keyOf(item);
    while (after.has(key)) key += "'";  // two events with one id are two events, and both are shown
    const row = before.get(key) ?? create(item);
    update(row, item);
    after.set(key, row);
  }
  const gone = [];
  for (const [key, row] of before) {
    if (after.has(key)) continue;
    row.remove();
    gone.push(row);
  }
  let place = parent.firstElementChild;
  for (const row of after.values()) {
    if (row === place) place = place.nextElementSibling;
    else parent.insertBefore(row, place);
  }
  drawnRows.set(parent, after);
  return gone;
}
