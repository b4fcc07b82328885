// Every setting of a device as a form, in groups, with an index.
import type { App } from "../app";
import type { DevicePage } from "../device_page";
import { kGroups } from "../contract/commands";
import { h, type Element_ } from "./element";
import { formView } from "./form";
import { button, note } from "./parts";

export function settingsView(app: App, page: DevicePage): Element_ {
  const { settings } = page;
  const blocked =
    app.connection !== "up"
      ? "There is no connection."
      : app.rights.ask === false
        ? "This account may look, not ask: settings cannot be read or changed."
        : "";
  const groups = kGroups.flatMap((group) => {
    const forms = group.commands.flatMap((command) => settings.form(command.command) ?? []);
    return forms.length === 0 ? [] : [{ title: group.title, forms }];
  });
  return h(
    "section",
    { class: "settings", "aria-label": "Settings" },
    h("h2", {}, "Settings"),
    blocked !== "" && note("warning", blocked),
    waiting(app, page),
    groups.map((group) =>
      h(
        "section",
        { class: "group", key: group.title, "aria-label": group.title },
        h("h2", {}, group.title),
        h(
          "div",
          { class: "forms" },
          group.forms.map((form) => formView(app, settings, form, blocked)),
        ),
      ),
    ),
  );
}

/** A change that was tried before this page was opened. */
function waiting(app: App, { settings }: DevicePage): Element_ | false {
  const { decision } = settings;
  const told =
    decision !== undefined &&
    h(
      "p",
      { class: "result", role: "status", "data-field": "result", "data-state": decision.state },
      decision.sentence,
    );
  if (settings.waiting === undefined) return told;
  const left = Math.max(0, Math.ceil((settings.waiting.until - app.monotonic()) / 1000));
  return h(
    "div",
    { class: "confirm", role: "group", "aria-label": "A change waits" },
    note("warning", `A change of this device was tried and goes back by itself in ${left} s.`),
    h(
      "p",
      { class: "buttons" },
      button(`Keep it (${left} s)`, () => void settings.decide("keep_change"), { action: "keep", main: true }),
      button("Take it back now", () => void settings.decide("undo_change"), { action: "undo" }),
    ),
    told,
  );
}
