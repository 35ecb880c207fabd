// Puts the page together: the rounds of questions, the pages behind the hash, the keys.

import { fetchActive, fetchCatalogue, fetchDevices, fetchOccurrences, listenToServerDate } from "./api.js";
import { Acknowledging } from "./acknowledging.js";
import { ActiveView } from "./active-view.js";
import { ConfiguredView } from "./configured-view.js";
import { HistoryView } from "./history/history-view.js";
import { startKeys } from "./keys.js";
import { LinkView } from "./link-view.js";
import { Model } from "./model.js";
import { Announcer, Notices } from "./notices.js";
import { Poller } from "./poller.js";
import { startRoutes } from "./routes.js";
import { Session } from "./session.js";
import { SummaryView } from "./summary.js";
import { VariablesView } from "./variables-view.js";
import { WaitingView } from "./waiting-view.js";

/** Milliseconds between questions about devices while their page isn't open, and about what is configured. */
const DEVICES_PERIOD = 5000;
const CATALOGUE_PERIOD = 60000;

const model = new Model();
const notices = new Notices();
const poller = new Poller(round, report);
const session = new Session(model, notices, restart);
const acknowledging = new Acknowledging(model, notices, { refresh: () => poller.now(), signInNeeded: () => session.ended() });
const frame = [new SummaryView(model), new LinkView(model, () => poller.now()), session];
const pages = {
  events: [new WaitingView(model, acknowledging, notices), new ActiveView(model)],
  variables: [new VariablesView(model)],
  history: [new HistoryView(model, notices, { signInNeeded: () => session.ended() })],
  configured: [new ConfiguredView(model)],
};

// --- Asking ----------------------------------------------------------------

function isDue(name, period) {
  const { at, error } = model.replies[name];
  return at === null || error !== null || Date.now() - at >= period;
}

/** What this round asks for. The catalogue comes first, because the others are understood with its help. */
function questions() {
  const list = [];
  if (isDue("catalogue", CATALOGUE_PERIOD)) list.push(["catalogue", fetchCatalogue]);
  list.push(["active", fetchActive], ["occurrences", fetchOccurrences]);
  if (model.page === "variables" || isDue("devices", DEVICES_PERIOD)) list.push(["devices", fetchDevices]);
  return list;
}

/** Failures that concern the link itself, whoever meets them; others concern only the pane that wanted the answer. */
const ofTheLink = (name, error) => ["active", "occurrences"].includes(name) || ["unreachable", "busy"].includes(error.kind);

async function round() {
  const { epoch } = model;
  const asked = questions();
  model.asked();
  const answers = await Promise.allSettled(asked.map(([, fetch]) => fetch()));
  if (epoch !== model.epoch) return null;
  let worst = null;
  answers.forEach(({ value, reason }, place) => {
    const [name] = asked[place];
    if (reason === undefined) return model.setReply(name, value);
    model.setFailure(name, reason);
    if (reason.kind === "signin" || (worst === null && ofTheLink(name, reason))) worst = reason;
  });
  return worst;
}

function report(error, retryAt) {
  if (error?.kind === "signin") session.ended();
  else if (error) model.linkDown(error, retryAt);
  else model.linkUp();
}

/** After signing in or out. While nobody is signed in, nothing is asked: the answer is known. */
function restart() {
  if (model.signInNeeded) poller.stop();
  else poller.start();
}

// --- Showing -----------------------------------------------------------------

function render() {
  for (const view of frame) view.render();
  for (const page of document.querySelectorAll(".page")) page.hidden = model.signInNeeded || page.dataset.page !== model.page;
  document.getElementById("tools").hidden = model.signInNeeded;
  document.getElementById("pages").hidden = model.signInNeeded;
  document.getElementById("order-box").hidden = model.page !== "events";
  document.getElementById("history-filters").hidden = model.page !== "history";
  if (!model.signInNeeded) pages[model.page].forEach((view) => view.render());
}

function start() {
  new Announcer(model);
  listenToServerDate((offset) => { model.clockOffset = offset; });
  model.addEventListener("change", render);
  startRoutes(model, Object.keys(pages));
  startKeys(model);
  document.getElementById("zone").textContent = `Times are local: ${Intl.DateTimeFormat().resolvedOptions().timeZone}`;
  // Durations tick by themselves, also while the server is silent and nothing changes.
  setInterval(render, 1000);
  window.addEventListener("online", () => poller.now());
  document.addEventListener("visibilitychange", () => {
    model.watched = !document.hidden;
    if (model.watched) poller.now();
  });
  render();
  poller.start();
}

start();
