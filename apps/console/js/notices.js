// Short words to the operator: what was done, what couldn't be done, what is new.

/** Milliseconds that a notice stays; problems stay longer, since they have to be read. */
const STAY = { done: 5000, problem: 12000 };
/** Names read aloud of several new occurrences at once; the rest is a number. */
const NAMED = 3;
/** Lines that the log of announcements keeps. */
const KEPT = 20;

export class Notices {
  constructor() {
    this.box = document.getElementById("notice");
    this.timer = 0;
    this.box.addEventListener("click", () => this.clear());
  }

  show(text, tone = "done") {
    clearTimeout(this.timer);
    const line = document.createElement("p");
    line.textContent = text;
    line.dataset.tone = tone;
    this.box.replaceChildren(line);
    this.timer = setTimeout(() => this.clear(), STAY[tone]);
  }

  clear() {
    this.box.replaceChildren();
  }
}

/** Reads new events aloud through a live region that nobody sees. */
export class Announcer {
  constructor(model) {
    this.region = document.getElementById("announcer");
    model.addEventListener("arrived", ({ detail: { name, items } }) => {
      // An event that notifies is announced by its occurrence.
      if (name === "occurrences") this.say("To acknowledge", items);
      else this.say("Active", items.filter((event) => !model.notifies(event)));
    });
  }

  say(what, items) {
    if (items.length === 0) return;
    const names = items.slice(0, NAMED).map((item) => (item.annotation ? `${item.name}, ${item.annotation}` : item.name));
    const rest = items.length > NAMED ? `, and ${items.length - NAMED} more` : "";
    const line = document.createElement("p");
    line.textContent = `${what}: ${names.join("; ")}${rest}`;
    this.region.append(line);
    while (this.region.children.length > KEPT) this.region.firstElementChild.remove();
  }
}
