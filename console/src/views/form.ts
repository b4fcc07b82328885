// A command's form: its controls, what would change, the way back, and what became of it.
import type { App } from "../app";
import type { Form } from "../ask/form_state";
import type { Settings } from "../ask/settings";
import { valueWords } from "../contract/edit";
import type { Schema } from "../contract/schema";
import type { Json } from "../model/documents";
import { control, type Editor } from "./controls";
import { h, type Children, type Element_ } from "./element";
import { button, note } from "./parts";

export function formView(app: App, settings: Settings, form: Form, blocked: string): Element_ {
  const command = form.command.command;
  const unread = form.edited === undefined;
  const locked =
    unread || blocked !== "" || form.phase === "working" || form.phase === "keep" || form.phase === "reading";
  const editor: Editor = { form, locked, told: new Set(), edit: (path, value) => settings.edit(form, path, value) };
  const fields = control(editor, form.body, [], form.edited);
  const elsewhere = form.faults.filter((fault) => !editor.told.has(fault.path));
  return h(
    "form",
    {
      class: "card command",
      key: command,
      id: `form-${command}`,
      "data-command": command,
      "data-phase": form.phase,
      "aria-label": titleOf(form),
      onsubmit: (event: Event) => {
        event.preventDefault();
        if (!locked) settings.apply(form);
      },
    },
    h("h3", {}, titleOf(form)),
    h("p", { class: "quiet" }, (form.command.get === undefined ? form.schema : form.body).description ?? ""),
    fields,
    elsewhere.map((fault) => h("p", { class: "fault", "data-fault": fault.path }, `${fault.path}: ${fault.words}`)),
    form.phase === "confirm"
      ? confirmation(settings, form)
      : form.keep !== undefined
        ? keeping(app, settings, form)
        : buttons(settings, form, locked, blocked),
    result(form),
  );
}

const titleOf = (form: Form): string => {
  const title = form.schema.title ?? form.command.command;
  const text = title.replace(/^\w+: /, "");
  return text.charAt(0).toUpperCase() + text.slice(1);
};

function buttons(settings: Settings, form: Form, locked: boolean, blocked: string): Element_ {
  const changed = form.stored !== undefined && settings.changes(form).length > 0;
  return h(
    "p",
    { class: "buttons" },
    button("Apply", () => settings.apply(form), { action: "apply", main: true, disabled: locked, why: blocked }),
    changed && button("Discard", () => settings.reset(form, form.stored), { action: "discard", disabled: locked }),
    form.standard !== undefined &&
      button("Default values", () => settings.reset(form, form.standard), { action: "default", disabled: locked }),
    form.command.get !== undefined &&
      button("Read again", () => void settings.read(form), {
        action: "read",
        disabled: blocked !== "" || form.phase === "reading",
      }),
  );
}

function confirmation(settings: Settings, form: Form): Element_ {
  const changes = settings.changes(form);
  const lines: Children = changes.map((change) =>
    h(
      "li",
      {},
      h("b", {}, change.title),
      ": ",
      form.stored !== undefined && [valueText(form, change.path, change.before), " → "],
      h("b", {}, valueText(form, change.path, change.after)),
    ),
  );
  const guarded = form.command.guarded === true && !form.unguarded;
  return h(
    "div",
    { class: "confirm", role: "group", "aria-label": "Confirm" },
    h("p", {}, changes.length === 0 ? "Do it?" : "This will change:"),
    changes.length > 0 && h("ul", { "data-field": "difference" }, lines),
    guarded &&
      note("info", "It goes back by itself after a minute unless you then press Keep, also when this page is closed."),
    form.unguarded && note("warning", "It will stay as it is set, even when it cuts the device off."),
    h(
      "p",
      { class: "buttons" },
      button(guarded ? "Try it" : "Set it", () => void settings.confirm(form), { action: "confirm", main: true }),
      button("Cancel", () => settings.cancel(form), { action: "cancel" }),
    ),
  );
}

function valueText(form: Form, path: string, value: Json | undefined): string {
  const schema = path
    .replace(/\[\d+\]/g, ".[]")
    .split(".")
    .slice(1)
    .reduce<Schema | undefined>((at, step) => (step === "[]" ? at?.items : at?.properties?.[step]), form.body);
  return valueWords(schema, value);
}

function keeping(app: App, settings: Settings, form: Form): Element_ {
  const left = Math.max(0, Math.ceil(((form.keep?.until ?? 0) - app.monotonic()) / 1000));
  const busy = form.result?.state === "working";
  return h(
    "div",
    { class: "confirm", role: "group", "aria-label": "Keep the change" },
    note("warning", `Is everything still working? The change goes back by itself in ${left} s.`),
    h(
      "p",
      { class: "buttons" },
      button(`Keep it (${left} s)`, () => void settings.keep(form), {
        action: "keep",
        main: true,
        disabled: busy || left === 0,
      }),
      button("Take it back now", () => void settings.undo(form), { action: "undo", disabled: busy }),
    ),
  );
}

function result(form: Form): Element_ | false {
  if (form.phase === "reading")
    return h(
      "p",
      { class: "result", role: "status", "data-field": "result", "data-state": "working" },
      "Reading what is stored ...",
    );
  const told = form.result;
  return (
    told !== undefined &&
    h("p", { class: "result", role: "status", "data-field": "result", "data-state": told.state }, told.sentence)
  );
}
