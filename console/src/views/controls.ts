// The controls for a value, made from its schema. What was read is shown as it is, valid or not; each fault stands at
// its field.
import type { Form } from "../ask/form_state";
import { pathText, valueAt } from "../contract/check";
import { valueWords, type Path } from "../contract/edit";
import type { Schema } from "../contract/schema";
import { isObject, type Json } from "../model/documents";
import { h, type Element_ } from "./element";
import { button } from "./parts";
import { listControl } from "./form_list";

/** What the controls of one form share. */
export interface Editor {
  form: Form;
  locked: boolean;
  told: Set<string>; // paths whose faults have found their place
  edit(path: Path, value: Json | undefined): void; // path within the body
}

export const fullPath = (path: Path): string => pathText(["body", ...path]);
const idOf = (editor: Editor, path: Path): string => `${editor.form.command.command}-${fullPath(path)}`;

export function faultAt(editor: Editor, path: Path): Element_ | false {
  const place = fullPath(path);
  const faults = editor.form.faults.filter((one) => one.path === place).map((one) => one.words);
  editor.told.add(place);
  return (
    faults.length > 0 &&
    h("span", { class: "fault", "data-fault": place, id: `${idOf(editor, path)}-fault` }, faults.join("; "))
  );
}

/** The control for a value, with its title, its fault, and what is stored and standard beside it. */
export function control(editor: Editor, schema: Schema, path: Path, value: Json | undefined): Element_ {
  if (schema.properties !== undefined && (value === undefined || isObject(value)))
    return group(editor, schema, path, value);
  if (schema.type === "array" && (value === undefined || Array.isArray(value)))
    return listControl(editor, schema, path, value ?? []);
  const id = idOf(editor, path);
  const fault = faultAt(editor, path);
  return h(
    "div",
    { class: "field", key: fullPath(path), "data-bad": String(fault !== false) },
    h("label", { for: id }, schema.title ?? String(path[path.length - 1] ?? "")),
    input(editor, schema, path, value, id, fault !== false),
    fault,
    beside(editor, schema, path),
    schema.description !== undefined && h("span", { class: "quiet help" }, schema.description),
  );
}

const kShortWords = 28;

/** The words for a value, or the value itself where they are a sentence. */
function shortWords(schema: Schema, value: Json | undefined): string {
  const words = valueWords(schema, value);
  return words.length <= kShortWords ? words : valueWords(undefined, value);
}

function beside(editor: Editor, schema: Schema, path: Path): Element_ {
  const { form } = editor;
  const stored = valueAt(form.stored, path);
  const standard = valueAt(form.standard, path);
  return h(
    "span",
    { class: "beside quiet" },
    form.stored !== undefined && h("span", { "data-stored": "" }, `stored ${shortWords(schema, stored)}`),
    standard !== undefined && h("span", { "data-default": "" }, `default ${shortWords(schema, standard)}`),
  );
}

function input(
  editor: Editor,
  schema: Schema,
  path: Path,
  value: Json | undefined,
  id: string,
  bad: boolean,
): Element_ {
  const attributes = {
    id,
    "data-path": fullPath(path),
    disabled: editor.locked,
    "aria-invalid": bad ? "true" : undefined,
    "aria-describedby": bad ? `${id}-fault` : undefined,
  };
  if (schema.enum !== undefined) return choice(editor, schema, schema.enum, path, value, attributes);
  const numeric = schema.type === "integer" || schema.type === "number";
  const text = value === undefined ? "" : typeof value === "string" ? value : JSON.stringify(value);
  return h("input", {
    ...attributes,
    type: "text",
    inputmode: numeric && (schema.minimum ?? -1) >= 0 ? "numeric" : "text",
    spellcheck: "false",
    autocomplete: "off",
    value: text,
    oninput: (event: Event) => editor.edit(path, typed(schema, (event.target as HTMLInputElement).value)),
  });
}

/** What somebody typed as a value: a number where one is wanted and typed, nothing for an empty field that may lack. */
function typed(schema: Schema, text: string): Json | undefined {
  const numeric = schema.type === "integer" || schema.type === "number";
  if (text === "" && (numeric || (schema.minLength ?? 0) > 0)) return undefined;
  return numeric && /^-?\d{1,15}(\.\d{1,9})?$/.test(text) ? Number(text) : text;
}

function choice(
  editor: Editor,
  schema: Schema,
  choices: Json[],
  path: Path,
  value: Json | undefined,
  attributes: Record<string, string | boolean | undefined>,
): Element_ {
  const now = value === undefined ? "" : JSON.stringify(value);
  const known = choices.some((one) => JSON.stringify(one) === now);
  return h(
    "select",
    {
      ...attributes,
      value: now,
      onchange: (event: Event) => {
        const text = (event.target as HTMLSelectElement).value;
        editor.edit(path, text === "" ? undefined : (JSON.parse(text) as Json));
      },
    },
    // What is stored and is none of the choices stays visible, and chosen, until somebody chooses.
    !known &&
      h(
        "option",
        { key: now, value: now },
        value === undefined ? "not set" : `${valueWords(undefined, value)} (not valid)`,
      ),
    choices.map((one, i) =>
      h(
        "option",
        { key: JSON.stringify(one), value: JSON.stringify(one) },
        schema["x-enum-titles"]?.[i] ?? valueWords(undefined, one),
      ),
    ),
  );
}

function group(editor: Editor, schema: Schema, path: Path, value: Json | undefined): Element_ {
  const members = schema.properties ?? {};
  const given = isObject(value) ? value : {};
  const strange = Object.keys(given).filter((name) => !(name in members));
  const fields = [
    ...Object.entries(members).map(([name, member]) => control(editor, member, [...path, name], given[name])),
    ...strange.map((name) => strangeMember(editor, [...path, name], given[name])),
  ];
  const fault = faultAt(editor, path);
  if (path.length === 0) return h("div", { class: "fields" }, fields, fault);
  return h("fieldset", { class: "fields", key: fullPath(path) }, h("legend", {}, schema.title ?? ""), fields, fault);
}

function strangeMember(editor: Editor, path: Path, value: Json | undefined): Element_ {
  return h(
    "div",
    { class: "field", key: fullPath(path), "data-bad": "true" },
    h("span", {}, String(path[path.length - 1])),
    h("code", {}, JSON.stringify(value)),
    faultAt(editor, path),
    button("Take it out", () => editor.edit(path, undefined), { disabled: editor.locked }),
  );
}
