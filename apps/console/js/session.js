// Who is looking: the sign-in form, signing out, and the name that is remembered for this browser.

import { signIn, signOut } from "./api.js";
import { part, setText } from "./dom.js";

const REMEMBERED = "corvane.user";

// The cookie can't be read by scripts, so the name is kept apart, to show it and to offer signing out after a reload.
// A browser that allows no storage only loses that.
const memory = {
  read() {
    try { return localStorage.getItem(REMEMBERED); } catch { return null; }
  },
  write(name) {
    try {
      if (name === null) localStorage.removeItem(REMEMBERED);
      else localStorage.setItem(REMEMBERED, name);
    } catch { /* see above */ }
  },
};

const REASONS = {
  signin: "Name or password is wrong.",
  throttled: "Too many wrong passwords. Wait a minute, then try again.",
  unreachable: "The server can't be reached. Try again.",
  busy: "The server can't answer at the moment. Try again.",
};

export class Session {
  /** `changed()` is called after signing in or out, when everything has to be asked for again. */
  constructor(model, notices, changed) {
    this.model = model;
    this.notices = notices;
    this.changed = changed;
    this.form = document.getElementById("signin");
    this.who = document.getElementById("who");
    this.model.user = memory.read();
    this.form.addEventListener("submit", (event) => {
      event.preventDefault();
      this.enter();
    });
    part(this.who, "sign-out").addEventListener("click", () => this.leave());
  }

  render() {
    const needed = this.model.signInNeeded;
    this.who.hidden = needed || this.model.user === null;
    setText(part(this.who, "name"), this.model.user ?? "");
    if (this.form.hidden !== needed) return;
    this.form.hidden = !needed;
    if (needed) document.getElementById("signin-name").focus();
  }

  async enter() {
    const name = document.getElementById("signin-name").value.trim();
    const password = document.getElementById("signin-password");
    const button = part(this.form, "submit");
    const problem = part(this.form, "error");
    setText(problem, "");
    button.disabled = true;
    try {
      await signIn(name, password.value);
      memory.write(name);
      this.model.signedIn(name);
      this.changed();
    } catch (error) {
      setText(problem, REASONS[error.kind] ?? `The server refused: ${error.message}`);
      password.focus();
    }
    password.value = "";
    button.disabled = false;
  }

  async leave() {
    try {
      await signOut();
    } catch (error) {
      // Without an answer the session may live on, and saying otherwise would leave the desk open.
      if (error.kind !== "signin") return this.notices.show("Not signed out: the server didn't confirm it. Try again.", "problem");
    }
    this.ended();
  }

  /** The server knows no session any more. */
  ended() {
    memory.write(null);
    this.model.requireSignIn();
    this.changed();
  }
}
