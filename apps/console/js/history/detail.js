// Everything about one occurrence, in a dialog.

import { part, setText } from "../dom.js";
import { fillDetail } from "../pane.js";
import { detailPairs } from "./words.js";

export class Detail {
  /** `only(eventId)` narrows down to the event of the occurrence. */
  constructor({ only }) {
    this.dialog = document.getElementById("occurrence");
    this.list = part(this.dialog, "detail");
    part(this.dialog, "only").addEventListener("click", () => {
      this.dialog.close();
      only(this.event.id);
    });
  }

  show(rows, row, event) {
    this.event = event;
    setText(document.getElementById("occurrence-title"), event.name);
    setText(part(this.dialog, "text"), rows.annotation[row]);
    fillDetail(this.list, detailPairs(rows, row, event));
    this.dialog.showModal();
  }

  close() {
    this.dialog.close();
    this.list.replaceChildren();
  }
}
