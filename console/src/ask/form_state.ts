// One command's form: what was read, what is being edited, how far it is.
import { check, type Fault } from "../contract/check";
import type { Command } from "../contract/commands";
import { defaultOf } from "../contract/edit";
import type { Schema } from "../contract/schema";
import type { Json } from "../model/documents";
import type { Answer } from "./requests";

export type Phase = "unread" | "reading" | "ready" | "confirm" | "working" | "keep";

export interface Result {
  state: "working" | "done" | "failed";
  sentence: string;
}

export interface Form {
  command: Command;
  schema: Schema; // of the whole request
  body: Schema;
  standard: Json | undefined; // the body that an untouched device has
  stored: Json | undefined; // the body that was read last
  edited: Json | undefined;
  faults: Fault[];
  phase: Phase;
  result: Result | undefined;
  keep: { id: string; until: number; before: Json | undefined } | undefined;
  unguarded: boolean; // nobody holds the promise to take it back: it may be set without
}

export function newForm(command: Command, schema: Schema): Form {
  const body = schema.properties?.body ?? {};
  const standard = defaultOf(body);
  const own = command.get === undefined;
  return {
    command,
    schema,
    body,
    standard,
    stored: undefined,
    edited: own ? (standard ?? {}) : undefined,
    faults: [],
    phase: own ? "ready" : "unread",
    result: undefined,
    keep: undefined,
    unguarded: false,
  };
}

export function recheck(form: Form): void {
  form.faults = form.edited === undefined ? [] : check(form.schema, { type: form.command.command, body: form.edited });
}

export function fail(form: Form, sentence: string): void {
  form.result = { state: "failed", sentence };
}

/** Whether nobody is there who could take a change back: no answer to a harmless question, or one of a relay or guard of
 *  before changes could be tried. */
export function holdsNoPromise(answer: Answer): boolean {
  if (answer.kind === "nobody" || answer.kind === "late") return true;
  return answer.kind === "answer" && answer.state === 403 && /error type/.test(answer.error);
}
