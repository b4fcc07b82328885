// Documents that are edited member by member: reading and writing at a place, and what differs between two.
import { isObject, type Json, type JsonObject } from "../model/documents";
import { pathText, valueAt } from "./check";
import type { Schema } from "./schema";

export type Path = (string | number)[];

/** The document with another value at a place; undefined takes the member away. The original stays as it was. */
export function withValue(document: Json | undefined, path: Path, value: Json | undefined): Json {
  const [step, ...rest] = path;
  if (step === undefined) return value ?? null;
  if (typeof step === "number") {
    const list = Array.isArray(document) ? [...document] : [];
    list[step] = withValue(list[step], rest, value);
    return list;
  }
  const object: JsonObject = isObject(document) ? { ...document } : {};
  if (rest.length === 0 && value === undefined) delete object[step];
  else object[step] = withValue(object[step], rest, value);
  return object;
}

export interface Difference {
  path: string;
  title: string;
  before: Json | undefined;
  after: Json | undefined;
}

const same = (a: Json | undefined, b: Json | undefined): boolean => canonical(a) === canonical(b);

function canonical(value: Json | undefined): string {
  return JSON.stringify(value, (_, member: Json) =>
    isObject(member) ? Object.fromEntries(Object.entries(member).sort(([a], [b]) => (a < b ? -1 : 1))) : member,
  );
}

/** Where two documents differ, member by member; a list of another length counts as a whole. */
export function differences(
  schema: Schema | undefined,
  before: Json | undefined,
  after: Json | undefined,
  path: Path = [],
): Difference[] {
  if (same(before, after)) return [];
  if (isObject(before) && isObject(after)) {
    const names = [...new Set([...Object.keys(before), ...Object.keys(after)])];
    return names.flatMap((name) => differences(schema?.properties?.[name], before[name], after[name], [...path, name]));
  }
  if (Array.isArray(before) && Array.isArray(after) && before.length === after.length) {
    const items = schema?.items;
    return before.flatMap((value, i) => differences(items, value, after[i], [...path, i]));
  }
  return [{ path: pathText(path), title: schema?.title ?? pathText(path), before, after }];
}

/** A value as people read it: "19200", or "odd" where the contract has a word for it. */
export function valueWords(schema: Schema | undefined, value: Json | undefined): string {
  if (value === undefined) return "nothing";
  const place = schema?.enum?.findIndex((choice) => same(choice, value)) ?? -1;
  const title = schema?.["x-enum-titles"]?.[place];
  const text = typeof value === "string" ? value : JSON.stringify(value);
  return title ?? (text === "" ? "empty" : text);
}

/** What an untouched device has, as far as the contract tells. */
export function defaultOf(schema: Schema): Json | undefined {
  if (schema.default !== undefined) return schema.default;
  if (schema.const !== undefined) return schema.const;
  const members = Object.entries(schema.properties ?? {}).flatMap(([name, member]) => {
    const value = defaultOf(member);
    return value === undefined ? [] : [[name, value] as const];
  });
  return members.length === 0 ? undefined : Object.fromEntries(members);
}

export { valueAt };
