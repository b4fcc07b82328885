// Lists in forms: entries that can be moved, taken out and added. An entry with one member of its own name (a field of the
// frame) is one line.
import { defaultOf, type Path } from "../contract/edit";
import type { Schema } from "../contract/schema";
import { isObject, type Json } from "../model/documents";
import { h, type Element_ } from "./element";
import { control, faultAt, fullPath, type Editor } from "./controls";
import { button } from "./parts";

const oneMember = (schema: Schema): boolean => schema.maxProperties === 1;

export function listControl(editor: Editor, schema: Schema, path: Path, list: Json[]): Element_ {
  const items = schema.items ?? {};
  const put = (changed: Json[]): void => editor.edit(path, changed);
  const rows = list.map((entry, i) => row(editor, items, [...path, i], entry, list, i, put));
  return h(
    "fieldset",
    { class: "list-field", key: fullPath(path) },
    h("legend", {}, `${schema.title ?? ""} (${list.length})`),
    faultAt(editor, path),
    h("ol", {}, rows),
    oneMember(items)
      ? adder(editor, items, list, put)
      : button("Add one", () => put([...list, sample(schema, items)]), { disabled: editor.locked, action: "add" }),
  );
}

/** What a new entry begins with: like the last of the default list. */
function sample(schema: Schema, items: Schema): Json {
  const standard = Array.isArray(schema.default) ? schema.default[schema.default.length - 1] : undefined;
  return standard ?? defaultOf(items) ?? {};
}

function row(
  editor: Editor,
  items: Schema,
  path: Path,
  entry: Json,
  list: Json[],
  i: number,
  put: (list: Json[]) => void,
): Element_ {
  const without = (): Json[] => list.filter((_, k) => k !== i);
  const moved = (by: number): Json[] => {
    const rest = without();
    rest.splice(i + by, 0, entry);
    return rest;
  };
  const what = `entry ${i + 1}`;
  return h(
    "li",
    { key: `${i}`, class: oneMember(items) ? "one" : "" },
    oneMember(items) && isObject(entry)
      ? members(editor, items, path, entry)
      : control(editor, { ...items, title: `${items.title ?? "Entry"} ${i + 1}` }, path, entry),
    h(
      "span",
      { class: "moves" },
      mover("↑", `Move ${what} up`, () => put(moved(-1)), editor.locked || i === 0),
      mover("↓", `Move ${what} down`, () => put(moved(1)), editor.locked || i === list.length - 1),
      mover("✕", `Take ${what} out`, () => put(without()), editor.locked),
    ),
  );
}

function mover(mark: string, label: string, press: () => void, disabled: boolean): Element_ {
  return h(
    "button",
    { type: "button", class: "small", "aria-label": label, title: label, disabled, onclick: press },
    mark,
  );
}

function members(editor: Editor, items: Schema, path: Path, entry: Record<string, Json>): Element_ {
  return h(
    "div",
    { class: "members" },
    Object.entries(entry).map(([name, value]) => {
      const { description, ...member } = items.properties?.[name] ?? { title: name };
      void description; // nineteen of them under one another hide the list
      return control(editor, member, [...path, name], value);
    }),
    faultAt(editor, path),
  );
}

function adder(editor: Editor, items: Schema, list: Json[], put: (list: Json[]) => void): Element_ {
  const add = (event: Event): void => {
    const select = event.target as HTMLSelectElement;
    const name = select.value;
    const member = items.properties?.[name];
    if (member === undefined) return;
    put([...list, { [name]: member.default ?? (member.type === "string" ? "" : 1) }]);
    select.value = "";
  };
  const options = Object.entries(items.properties ?? {}).map(([name, member]) =>
    h("option", { key: name, value: name }, member.title ?? name),
  );
  return h(
    "label",
    { class: "adder" },
    "Add ",
    h(
      "select",
      { disabled: editor.locked, value: "", onchange: add },
      h("option", { value: "", key: "" }, "a field ..."),
      options,
    ),
  );
}
