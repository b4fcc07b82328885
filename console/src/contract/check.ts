// Whether a document makes sense, and where not, in the words of the command line. It knows the keywords that the
// contract uses, its own ("x-...") included. Written here and not taken from a library of the trade: the words and the
// contract's own rules are most of it, and the page's policy forbids the code that fast validators write.
import { isObject, type Json, type JsonObject } from "../model/documents";
import { printable } from "../words";
import type { Schema } from "./schema";

export interface Fault {
  path: string; // "body.baudrate", "body.pro_cfg[3].header"
  words: string;
}

type Step = string | number;

const member = (path: string, name: string): string => `${path}${path === "" ? "" : "."}${printable(name)}`;
const bytesOf = (text: string): number => new TextEncoder().encode(text).length;
const charactersOf = (text: string): number => [...text].length;
const kShownBytes = 60;

export function pathText(steps: Step[]): string {
  return steps.reduce<string>((path, step) => (typeof step === "number" ? `${path}[${step}]` : member(path, step)), "");
}

export function valueAt(document: Json | undefined, steps: Step[]): Json | undefined {
  return steps.reduce<Json | undefined>((value, step) => {
    if (Array.isArray(value)) return value[Number(step)];
    return isObject(value) ? value[step] : undefined;
  }, document);
}

/** A value as faults repeat it, cut where it is long. */
function shown(value: Json | undefined): string {
  const text = printable(JSON.stringify(value) ?? "nothing");
  if (bytesOf(text) <= kShownBytes) return text;
  let cut = text.slice(0, kShownBytes);
  while (bytesOf(cut) > kShownBytes) cut = cut.slice(0, -1);
  return cut + "...";
}

function isOfType(value: Json, type: string): boolean {
  if (type === "object") return isObject(value);
  if (type === "array") return Array.isArray(value);
  if (type === "null") return value === null;
  if (type === "integer") return typeof value === "number" && Number.isInteger(value);
  return typeof value === type;
}

function kindOf(value: Json): string {
  if (isObject(value)) return "an object";
  if (Array.isArray(value)) return "a list";
  if (typeof value === "string") return "text";
  if (typeof value === "boolean") return "true or false";
  if (value === null) return "null";
  return Number.isInteger(value) ? "a whole number" : "a number";
}

const same = (a: Json, b: Json): boolean => JSON.stringify(a) === JSON.stringify(b);

/** The values of a choice with their meanings: "0 (off), 1 (on)". */
function choices(schema: Schema): string {
  const titles = schema["x-enum-titles"];
  const texts = (schema.enum ?? []).map((choice, i) => {
    const value = shown(choice);
    const title = titles?.[i] ?? value;
    return title.includes(value) ? value : `${value} (${title})`; // "9600 baud" tells no more than 9600
  });
  return texts.join(", ");
}

/** What a schema asks for, as part of a sentence: "a whole number from 0 to 255". */
export function expected(schema: Schema): string {
  if (schema.enum !== undefined) return `one of ${choices(schema)}`;
  if (schema.const !== undefined) return shown(schema.const);
  if (schema["x-form"] !== undefined) return schema["x-form"];
  const type = [schema.type].flat()[0];
  if (type === "object") return "an object";
  if (type === "array") return "a list";
  if (type === "boolean") return "true or false";
  if (type === "string") return "text";
  if (type !== "integer") return "another value";
  const { minimum, maximum } = schema;
  const from = minimum === undefined ? "" : ` from ${minimum}`;
  return `a whole number${from}${maximum !== undefined ? ` to ${maximum}` : minimum !== undefined ? " up" : ""}`;
}

/** Bytes that a base64 text stands for; nothing for what is none. */
function decodedBytes(text: string): number | undefined {
  const padding = /^[A-Za-z0-9+/]*(={0,2})$/.exec(text)?.[1]?.length;
  return padding === undefined || text.length % 4 !== 0 ? undefined : (text.length / 4) * 3 - padding;
}

/** Letters to change, put in or take out to make one word of another. */
function distance(a: string, b: string): number {
  let row = Array.from({ length: b.length + 1 }, (_, i) => i);
  for (let i = 1; i <= a.length; ++i) {
    const next = [i];
    for (let k = 1; k <= b.length; ++k) {
      const change = (row[k - 1] ?? 0) + (a[i - 1] === b[k - 1] ? 0 : 1);
      next.push(Math.min((row[k] ?? 0) + 1, (next[k - 1] ?? 0) + 1, change));
    }
    row = next;
  }
  return row[b.length] ?? 0;
}

function unknownMember(name: string, known: string[]): string {
  const slips = Math.min(3, 1 + Math.floor(name.length / 4));
  const near = known.map((other) => ({ other, far: distance(name, other) })).sort((a, b) => a.far - b.far)[0];
  if (near !== undefined && near.far <= slips) return `no such member, did you mean ${near.other}?`;
  return known.length === 0 ? "no members here" : `no such member, there are ${known.join(", ")}`;
}

class Walk {
  readonly faults: Fault[] = [];

  private say(path: string, words: string): void {
    this.faults.push({ path, words });
  }

  look(schema: Schema, value: Json, path: string): void {
    if (!this.looksLikeIt(schema, value, path)) return;
    if (typeof value === "number") this.number(schema, value, path);
    if (typeof value === "string") this.text(schema, value, path);
    if (Array.isArray(value)) this.list(schema, value, path);
    if (isObject(value)) this.object(schema, value, path);
    this.combinations(schema, value, path);
  }

  /** Type, choice and constant: where one of them is wrong, the rest says nothing new. */
  private looksLikeIt(schema: Schema, value: Json, path: string): boolean {
    if (schema.enum !== undefined && !schema.enum.some((choice) => same(choice, value))) {
      this.say(path, `${shown(value)} is none of ${choices(schema)}`);
      return false;
    }
    if (schema.const !== undefined && !same(schema.const, value)) {
      this.say(path, `${shown(value)} is not ${shown(schema.const)}`);
      return false;
    }
    if (schema.type === undefined || [schema.type].flat().some((type) => isOfType(value, type))) return true;
    this.say(path, `${shown(value)} is ${kindOf(value)}, ${expected(schema)} is needed`);
    return false;
  }

  private number(schema: Schema, value: number, path: string): void {
    const outside = value < (schema.minimum ?? -Infinity) || value > (schema.maximum ?? Infinity);
    if (outside) this.say(path, `${shown(value)} is not ${expected(schema)}`);
  }

  private text(schema: Schema, text: string, path: string): void {
    const mostBytes = schema["x-max-bytes"] ?? Infinity;
    const characters = charactersOf(text);
    if (bytesOf(text) > mostBytes) {
      this.say(path, `${bytesOf(text)} bytes, at most ${mostBytes} fit`);
    } else if (characters > (schema.maxLength ?? Infinity)) {
      this.say(path, `${characters} characters, at most ${String(schema.maxLength)} fit`);
    }
    if (characters < (schema.minLength ?? 0)) {
      this.say(path, `${text === "" ? "is empty, " : `${shown(text)} is too short, `}${expected(schema)} is needed`);
    } else if (schema.pattern !== undefined && !new RegExp(schema.pattern, "u").test(text)) {
      this.say(path, `${shown(text)} is not ${expected(schema)}`);
    }
  }

  private list(schema: Schema, list: Json[], path: string): void {
    const { minItems = 0, maxItems = Infinity, items } = schema;
    if (list.length < minItems) this.say(path, `has ${list.length} entries, at least ${minItems} needed`);
    if (list.length > maxItems) this.say(path, `has ${list.length} entries, at most ${maxItems} allowed`);
    if (items !== undefined) list.forEach((item, i) => this.look(items, item, `${path}[${i}]`));
  }

  private object(schema: Schema, object: JsonObject, path: string): void {
    const most = schema["x-max-bytes"] ?? Infinity;
    const bytes = bytesOf(JSON.stringify(object));
    if (bytes > most) this.say(path, `${bytes} bytes in all, at most ${most} fit`);
    const members = schema.properties ?? {};
    const names = Object.keys(members);
    const given = Object.keys(object);
    if (given.length < (schema.minProperties ?? 0)) {
      this.say(path, `names nothing, one of ${names.join(", ")} is needed`);
    }
    if (given.length > (schema.maxProperties ?? Infinity)) {
      this.say(path, `has the members ${printable(given.join(", "))}, at most ${String(schema.maxProperties)} allowed`);
    }
    for (const name of schema.required ?? []) {
      if (name in object) continue;
      const missing = members[name];
      this.say(member(path, name), `missing${missing === undefined ? "" : `, ${expected(missing)} is needed`}`);
    }
    for (const [name, one] of Object.entries(members)) {
      const value = object[name];
      if (value === undefined) continue;
      this.look(one, value, member(path, name));
      this.neighbours(one, object, name, path);
    }
    for (const name of given.filter((one) => !(one in members)))
      this.stranger(schema, object, name, member(path, name));
  }

  private stranger(schema: Schema, object: JsonObject, name: string, path: string): void {
    if (schema.propertyNames !== undefined) this.look(schema.propertyNames, name, path);
    const rule = schema.additionalProperties;
    if (rule === false) this.say(path, unknownMember(name, Object.keys(schema.properties ?? {})));
    else if (typeof rule === "object") this.look(rule, object[name] ?? null, path);
  }

  /** Rules about two members of one object. */
  private neighbours(schema: Schema, object: JsonObject, name: string, path: string): void {
    const number = object[name];
    if (typeof number !== "number") return;
    const other = schema["x-bytes-of"];
    const text = other === undefined ? undefined : object[other];
    if (other !== undefined && typeof text === "string") {
      const bytes = decodedBytes(text);
      if (bytes === undefined) this.say(member(path, other), `${shown(text)} is not base64`);
      else if (bytes !== number) this.say(member(path, name), `${number}, but ${other} stands for ${bytes} bytes`);
    }
    const bound = schema["x-at-most"];
    const most = bound === undefined ? undefined : object[bound];
    if (typeof most === "number" && number > most) {
      this.say(member(path, name), `${number} is above ${String(bound)}, ${most}`);
    }
  }

  private combinations(schema: Schema, value: Json, path: string): void {
    for (const part of schema.allOf ?? []) this.look(part, value, path);
    const { anyOf, oneOf } = schema;
    const fitting = (anyOf ?? oneOf)?.filter((one) => check(one, value).length === 0).length;
    if (fitting === 0 || (oneOf !== undefined && fitting !== 1)) {
      this.say(path, `${shown(value)} fits no form that it can have`);
    }
    if (schema.if === undefined) return;
    const branch = check(schema.if, value).length === 0 ? schema.then : schema.else;
    if (branch !== undefined) this.look(branch, value, path);
  }
}

/** Every fault of a document, in the order of the schema. */
export function check(schema: Schema, document: Json): Fault[] {
  const walk = new Walk();
  walk.look(schema, document, "");
  return walk.faults;
}
