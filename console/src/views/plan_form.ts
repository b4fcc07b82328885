// The plan of one device: what it is called, where it stands, what its displays count.
import type { App } from "../app";
import { kDirections, type Direction } from "../model/documents";
import type { PlanFault } from "../model/plan_check";
import { printable } from "../words";
import { h, type Element_ } from "./element";
import { button, note } from "./parts";

const directionWords = (direction: Direction): string => (direction === "group" ? "own group" : direction);

export function plansBlocked(app: App): string {
  if (app.connection !== "up") return "There is no connection.";
  return app.rights.plan === false ? "This account may look at plans, not write them." : "";
}

export function planForm(app: App, device: string): Element_ {
  const { plans } = app;
  const blocked = plansBlocked(app);
  const locked = blocked !== "" || plans.result?.state === "working";
  const plan = plans.plan(device);
  const edited = plans.isEdited(device);
  const faults = plans.faults.filter((fault) => fault.device === device);
  return h(
    "form",
    {
      class: "card command",
      "data-command": "plan",
      "aria-label": "Plan",
      onsubmit: (event: Event) => {
        event.preventDefault();
        plans.apply(edited ? [device] : []);
      },
    },
    h("h2", {}, "Plan"),
    h(
      "p",
      { class: "quiet" },
      "What this device is called, the zone it stands in, and the zones that its displays count. It takes effect at once.",
    ),
    blocked !== "" && note("warning", blocked),
    h(
      "div",
      { class: "fields" },
      textField("Name", "name", plan.name, device, locked, faults, (name) => plans.edit(device, { name })),
      textField(
        "Zone",
        "zone",
        plan.zone,
        "such as L2/B",
        locked,
        faults,
        (zone) => plans.edit(device, { zone }),
        "zones",
      ),
      kDirections.map((direction) => directionField(app, device, direction, locked, faults)),
    ),
    zoneNames(app),
    plans.confirming && edited ? confirmation(app, [device]) : buttons(app, device, edited, locked, blocked),
    planResult(app),
  );
}

export const zoneNames = (app: App): Element_ =>
  h(
    "datalist",
    { id: "zones" },
    app.overview.zones.map((row) => h("option", { key: row.zone, value: row.zone })),
  );

function faultAt(faults: PlanFault[], path: string): Element_[] {
  return faults
    .filter((fault) => fault.path === path || fault.path.startsWith(`${path}[`))
    .map((fault) =>
      h(
        "span",
        { class: "fault", "data-look": fault.warning ? "warning" : "problem", "data-fault": path },
        fault.words,
      ),
    );
}

function textField(
  title: string,
  path: string,
  value: string,
  hint: string,
  locked: boolean,
  faults: PlanFault[],
  edit: (text: string) => void,
  list?: string,
): Element_ {
  const id = `plan-${path}`;
  return h(
    "div",
    { class: "field", key: path },
    h("label", { for: id }, title),
    h("input", {
      id,
      "data-path": path,
      type: "text",
      value,
      placeholder: hint,
      list,
      disabled: locked,
      autocomplete: "off",
      spellcheck: "false",
      oninput: (event: Event) => edit((event.target as HTMLInputElement).value),
    }),
    faultAt(faults, path),
  );
}

function directionField(
  app: App,
  device: string,
  direction: Direction,
  locked: boolean,
  faults: PlanFault[],
): Element_ {
  const { plans } = app;
  const zones = plans.plan(device).shows[direction];
  const path = `shows.${direction}`;
  const id = `plan-${path}`;
  const add = (event: Event): void => {
    const select = event.target as HTMLSelectElement;
    if (select.value !== "") plans.editShows(device, direction, [...zones, select.value]);
    select.value = "";
  };
  const others = app.overview.zones.filter((row) => !zones.includes(row.zone));
  return h(
    "div",
    { class: "field", key: path },
    h("label", { for: id }, `Shows ${directionWords(direction)}`),
    h(
      "ul",
      { class: "chips" },
      zones.map((zone) =>
        h(
          "li",
          { key: zone },
          printable(zone),
          h(
            "button",
            {
              type: "button",
              class: "small",
              disabled: locked,
              "aria-label": `Take ${zone} out of ${directionWords(direction)}`,
              onclick: () =>
                plans.editShows(
                  device,
                  direction,
                  zones.filter((one) => one !== zone),
                ),
            },
            "✕",
          ),
        ),
      ),
      zones.length === 0 && h("li", { class: "quiet", key: "" }, "nothing"),
    ),
    h(
      "select",
      { id, "data-path": path, disabled: locked, value: "", onchange: add },
      h("option", { value: "", key: "" }, "add a zone ..."),
      others.map((row) => h("option", { key: row.zone, value: row.zone }, row.zone)),
    ),
    faultAt(faults, path),
  );
}

function buttons(app: App, device: string, edited: boolean, locked: boolean, blocked: string): Element_ {
  return h(
    "p",
    { class: "buttons" },
    button("Apply", () => app.plans.apply(edited ? [device] : []), {
      action: "apply",
      main: true,
      disabled: locked,
      why: blocked,
    }),
    edited && button("Discard", () => app.plans.discard(device), { action: "discard", disabled: locked }),
  );
}

export function confirmation(app: App, devices: string[]): Element_ {
  const changes = app.plans.changes(devices);
  const shown = changes.slice(0, 50);
  return h(
    "div",
    { class: "confirm", role: "group", "aria-label": "Confirm" },
    h("p", {}, `This will change ${devices.length === 1 ? "one plan" : `${devices.length} plans`}:`),
    h(
      "ul",
      { "data-field": "difference" },
      shown.map((change) =>
        h("li", { key: change.device }, h("b", {}, change.device), " ", printable(change.lines.join("; "))),
      ),
    ),
    changes.length > shown.length && h("p", { class: "quiet" }, `and ${changes.length - shown.length} more.`),
    h(
      "p",
      { class: "buttons" },
      button("Send", () => void app.plans.confirm(devices), { action: "confirm", main: true }),
      button("Cancel", () => app.plans.cancel(), { action: "cancel" }),
    ),
  );
}

export function planResult(app: App): Element_ | false {
  const { result } = app.plans;
  return (
    result !== undefined &&
    h(
      "p",
      { class: "result", role: "status", "data-field": "result", "data-state": result.state },
      printable(result.sentence),
    )
  );
}
