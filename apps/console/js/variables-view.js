// The devices and their variables.

import { drawRows, fromTemplate, part, setAttribute, setData, setMoment, setText } from "./dom.js";
import { Pane, missingText } from "./pane.js";
import { fullText, momentText } from "./time.js";

const decimals = new Intl.NumberFormat(undefined, { maximumFractionDigits: 3 });
const large = new Intl.NumberFormat(undefined, { maximumFractionDigits: 1 });

/** A value as people read it; the exact one is the tooltip. */
export function valueText(value) {
  if (value === null) return "no value";
  if (value !== 0 && Math.abs(value) < 0.001) return value.toExponential(2);
  if (Math.abs(value) >= 1e15) return value.toExponential(4);
  return (Math.abs(value) >= 1000 ? large : decimals).format(value);
}

/** The word for a state, when the variable has one for this value. */
export function labelText({ value, labels }) {
  return Number.isInteger(value) ? labels[value] ?? "" : "";
}

export class VariablesView {
  constructor(model) {
    this.model = model;
    this.pane = new Pane(document.getElementById("page-variables"), {
      keyOf: (device) => device.name,
      create: () => fromTemplate("device"),
      update: (section, device) => this.update(section, device),
      onMore: () => model.changed(),
    });
  }

  render() {
    const reply = this.model.replies.devices;
    const shown = this.filtered(reply.items ?? []);
    this.pane.draw(shown);
    this.pane.setStale(this.model, reply);
    const missing = missingText(reply);
    if (missing) this.pane.setEmpty(missing.title, missing.detail, missing.calm);
    else if (reply.items.length === 0) this.pane.setEmpty("No devices are configured", "Devices stand in the server's settings, one [[device]] each.", false);
    else if (shown.length === 0) this.pane.setEmpty("No device and no variable matches the filter", "Esc clears the filter.", false);
    else this.pane.setEmpty(null);
  }

  /** Devices that match as a whole, or with those of their variables that do; devices in error first. */
  filtered(devices) {
    const { model } = this;
    return devices.map((device) => {
      const whole = [device.name, device.type, device.description];
      const variables = device.variables.filter((variable) => model.matches([...whole, variable.name, variable.description]));
      return { ...device, variables, matches: variables.length > 0 || model.matches(whole) };
    }).filter((device) => device.matches).sort((a, b) => b.failed - a.failed);
  }

  update(section, device) {
    setData(section, "failed", device.failed ? "yes" : "no");
    setText(part(section, "name"), device.name);
    setText(part(section, "type"), device.type);
    setText(part(section, "description"), device.description);
    setAttribute(part(section, "sign"), "href", device.failed ? "#sign-lost" : "#sign-good");
    setText(part(section, "state"), device.failed ? "In error: it doesn't answer" : "Answers");
    drawRows(part(section, "rows"), device.variables, (variable) => variable.name, () => fromTemplate("variable"),
      (row, variable) => this.updateVariable(row, variable));
  }

  updateVariable(row, variable) {
    const now = this.model.now();
    setText(part(row, "name"), variable.name);
    setText(part(row, "description"), variable.description);
    setData(row, "known", variable.value === null ? "no" : "yes");
    const label = labelText(variable);
    setText(part(row, "value"), label || valueText(variable.value));
    setAttribute(part(row, "value"), "title", variable.value === null ? null : String(variable.value));
    setText(part(row, "label"), label && valueText(variable.value));
    setMoment(part(row, "time"), variable.time, variable.time ? momentText(variable.time, now) : "", variable.time ? fullText(variable.time) : "");
  }
}
