// The plans of the whole site: many devices at once, or as a site file.
import type { App } from "../app";
import { kDirections, type Direction } from "../model/documents";
import { pick } from "../model/overview";
import { faultText } from "../model/plan_check";
import { deviceAddress } from "../model/route";
import { many, printable } from "../words";
import { h, type Element_ } from "./element";
import { button, card, note, searchField } from "./parts";
import { confirmation, planResult, plansBlocked, zoneNames } from "./plan_form";

const kFaultsMax = 20;
const kRowsMax = 200; // drawn at once; the search narrows them

export function plansView(app: App): Element_ {
  const blocked = plansBlocked(app);
  const edited = app.plans.edited();
  return h(
    "div",
    { class: "plans", "data-command": "plans" },
    blocked !== "" && note("warning", blocked),
    changesCard(app, edited, blocked),
    devicesCard(app, blocked),
    fileCard(app, blocked),
    zoneNames(app),
  );
}

function changesCard(app: App, edited: string[], blocked: string): Element_ {
  const { plans } = app;
  const locked = blocked !== "" || plans.result?.state === "working";
  return card(
    "Changes",
    {},
    h(
      "p",
      {},
      edited.length === 0
        ? "Nothing is changed yet. Choose devices below, or paste a site file."
        : `${many(edited.length, "plan")} changed and not sent.`,
    ),
    h(
      "ul",
      { class: "plain" },
      plans.faults.slice(0, kFaultsMax).map((fault) =>
        h(
          "li",
          {
            class: "fault",
            "data-look": fault.warning ? "warning" : "problem",
            "data-fault": `devices.${fault.device}.${fault.path}`,
          },
          faultText(fault),
        ),
      ),
    ),
    plans.confirming
      ? confirmation(app, edited)
      : h(
          "p",
          { class: "buttons" },
          button("Apply", () => plans.apply(edited), { action: "apply", main: true, disabled: locked, why: blocked }),
          edited.length > 0 && button("Discard all", () => plans.discard(), { action: "discard", disabled: locked }),
        ),
    planResult(app),
  );
}

function devicesCard(app: App, blocked: string): Element_ {
  const { plans } = app;
  const rows = pick(app.overview.devices, { search: app.question.search, zone: "", filter: "all", order: "name" });
  const shown = rows.slice(0, kRowsMax);
  const all = shown.length > 0 && shown.every((row) => plans.chosen.has(row.name));
  const choose = (names: string[], chosen: boolean): void => {
    for (const name of names) chosen ? plans.chosen.add(name) : plans.chosen.delete(name);
    app.changed();
  };
  return card(
    "Devices",
    {},
    searchField(app),
    together(app, blocked),
    h(
      "div",
      { class: "scroll", tabindex: "0", role: "region", "aria-label": "Plans of the devices" },
      h(
        "table",
        {},
        h(
          "thead",
          {},
          h(
            "tr",
            {},
            h(
              "th",
              { scope: "col" },
              h("input", {
                type: "checkbox",
                "aria-label": "Choose all that are shown",
                checked: all,
                onchange: (e: Event) =>
                  choose(
                    shown.map((row) => row.name),
                    (e.target as HTMLInputElement).checked,
                  ),
              }),
            ),
            ["Device", "Name", "Zone", "Left", "Right", "Front", "Own group"].map((title) =>
              h("th", { scope: "col" }, title),
            ),
          ),
        ),
        h(
          "tbody",
          {},
          shown.map((row) => planRow(app, row.name, choose)),
        ),
      ),
    ),
    rows.length > shown.length && h("p", { class: "quiet" }, `${rows.length - shown.length} more: search for them.`),
  );
}

function planRow(app: App, name: string, choose: (names: string[], chosen: boolean) => void): Element_ {
  const plan = app.plans.plan(name);
  const fault = app.site?.devices.get(name)?.planFault;
  const zones = (direction: Direction): Element_ => h("td", {}, printable(plan.shows[direction].join(", ")));
  return h(
    "tr",
    { key: name, "data-plan": name, "data-edited": String(app.plans.isEdited(name)) },
    h(
      "td",
      {},
      h("input", {
        type: "checkbox",
        "aria-label": `Choose ${name}`,
        checked: app.plans.chosen.has(name),
        onchange: (e: Event) => choose([name], (e.target as HTMLInputElement).checked),
      }),
    ),
    h("td", {}, h("a", { href: deviceAddress(name) }, name)),
    h("td", {}, printable(plan.name)),
    h(
      "td",
      {},
      plan.zone || h("span", { class: "quiet" }, "none"),
      fault !== undefined && h("span", { class: "fault" }, ` unreadable: ${fault}`),
    ),
    kDirections.map(zones),
  );
}

/** What is done to all chosen devices. */
function together(app: App, blocked: string): Element_ {
  const { plans } = app;
  const chosen = [...plans.chosen];
  const disabled = blocked !== "" || chosen.length === 0;
  const field = (id: string): string => (document.getElementById(id) as HTMLInputElement).value.trim();
  const setZone = (): void => chosen.forEach((name) => plans.edit(name, { zone: field("together-zone") }));
  const show = (add: boolean): void => {
    const direction = field("together-direction") as Direction;
    const zone = field("together-shows");
    for (const name of chosen) {
      const others = plans.plan(name).shows[direction].filter((one) => one !== zone);
      plans.editShows(name, direction, add ? [...others, zone] : others);
    }
  };
  return h(
    "fieldset",
    { class: "together" },
    h(
      "legend",
      {},
      chosen.length === 0 ? "Choose devices to change them together" : `${many(chosen.length, "device")} together`,
    ),
    h(
      "span",
      { class: "line" },
      h("label", { for: "together-zone" }, "Zone "),
      h("input", { id: "together-zone", type: "text", list: "zones", disabled, autocomplete: "off" }),
      button("Set zone", setZone, { action: "together-zone", disabled }),
    ),
    h(
      "span",
      { class: "line" },
      h("label", { for: "together-direction" }, "Shows "),
      h(
        "select",
        { id: "together-direction", disabled },
        kDirections.map((direction) =>
          h("option", { key: direction, value: direction }, direction === "group" ? "own group" : direction),
        ),
      ),
      h("label", { for: "together-shows", class: "hidden" }, "Zone to show"),
      h("input", { id: "together-shows", type: "text", list: "zones", disabled, autocomplete: "off" }),
      button("Add", () => show(true), { action: "together-add", disabled }),
      button("Take out", () => show(false), { action: "together-remove", disabled }),
    ),
  );
}

function fileCard(app: App, blocked: string): Element_ {
  const area = (): HTMLTextAreaElement => document.getElementById("site-file") as HTMLTextAreaElement;
  const show = (): void => {
    area().value = app.plans.file();
  };
  const take = (): void => app.setFileFaults(app.plans.takeFile(area().value));
  return card(
    "Site file",
    {},
    h(
      "p",
      { class: "quiet" },
      "All plans in one file, as it lives in the integrator's version control. Paste one to see what it would change.",
    ),
    h("label", { for: "site-file", class: "hidden" }, "Site file"),
    h("textarea", { id: "site-file", rows: 10, spellcheck: "false", mount: () => {} }),
    app.fileFaults.length > 0 &&
      h(
        "ul",
        { class: "plain", "data-fault": "site-file", role: "alert" },
        app.fileFaults.slice(0, kFaultsMax).map((fault) => h("li", { class: "fault" }, fault)),
        app.fileFaults.length > kFaultsMax && h("li", {}, `and ${app.fileFaults.length - kFaultsMax} more.`),
      ),
    h(
      "p",
      { class: "buttons" },
      button("Show what the hub has", show, { action: "file-show" }),
      button("Take it over", take, { action: "file-take", disabled: blocked !== "" }),
    ),
  );
}
