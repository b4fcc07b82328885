// What plans, counts and healths say, read from bytes of strangers: nothing here throws, and a document of a newer
// version keeps what is understood of it.
import { isZone } from "./names";

export type Json = null | boolean | number | string | Json[] | JsonObject;
export interface JsonObject {
  [name: string]: Json;
}

export const kDirections = ["left", "right", "front", "group"] as const;
export type Direction = (typeof kDirections)[number];
export type Shows = Record<Direction, string[]>;

export interface Plan {
  name: string; // "" where the plan names nobody
  zone: string;
  shows: Shows;
  strange?: string[]; // members of a newer version, which a new plan would lack
}

export interface Counts {
  spaces: number;
  free: number;
}

export interface Shown extends Counts {
  devices: number;
  missing: string[]; // 20 at most
  missingCount: number;
}

export interface Health {
  online: boolean;
  daemon: string; // "ok", "silent", "implausible", or a newer relay's word
  plan: string; // "ok", "none", "unreadable", or a newer relay's word
  version: string;
  since: number | undefined; // Unix time by the device's clock
  counts: Counts | undefined;
  shows: Partial<Record<Direction, Shown>>;
  rejected: number;
  duplicate: boolean;
}

const kCountMax = 1048576;

export function isObject(value: Json | undefined): value is JsonObject {
  return typeof value === "object" && value !== null && !Array.isArray(value);
}

export function parseJson(text: string): Json | undefined {
  try {
    return JSON.parse(text) as Json;
  } catch {
    return undefined;
  }
}

export function parseObject(text: string): JsonObject | undefined {
  const value = parseJson(text);
  return isObject(value) ? value : undefined;
}

export const noShows = (): Shows => ({ left: [], right: [], front: [], group: [] });

const text = (value: Json | undefined): string => (typeof value === "string" ? value : "");
const whole = (value: Json | undefined): number | undefined =>
  typeof value === "number" && Number.isInteger(value) && value >= 0 ? value : undefined;

/** A plan, or the reason why it is none. */
export function readPlan(document: Json | undefined): Plan | string {
  if (!isObject(document)) return "the plan is no JSON object";
  if (typeof document.zone !== "string" || !isZone(document.zone)) return "the plan's zone is not a zone";
  if (document.name !== undefined && typeof document.name !== "string") return "the plan's name is no text";
  const shows = noShows();
  const given = document.shows === undefined ? {} : document.shows;
  if (!isObject(given)) return "what the plan shows is no JSON object";
  for (const direction of kDirections) {
    const zones = given[direction] === undefined ? [] : given[direction];
    if (!Array.isArray(zones) || !zones.every((zone): zone is string => typeof zone === "string" && isZone(zone))) {
      return `what the plan shows ${direction} is no list of zones`;
    }
    shows[direction] = zones;
  }
  const strange = Object.keys(document).filter((member) => !["name", "zone", "shows"].includes(member));
  return { name: text(document.name), zone: document.zone, shows, ...(strange.length > 0 ? { strange } : {}) };
}

/** The document of a plan, without what is empty. */
export function planDocument(plan: Plan): JsonObject {
  const shows: JsonObject = {};
  for (const direction of kDirections) {
    if (plan.shows[direction].length > 0) shows[direction] = plan.shows[direction];
  }
  const document: JsonObject = { zone: plan.zone };
  if (plan.name !== "") document.name = plan.name;
  if (Object.keys(shows).length > 0) document.shows = shows;
  return document;
}

/** Counts that a relay would take, or nothing. */
export function readCounts(document: Json | undefined): Counts | undefined {
  if (!isObject(document)) return undefined;
  const spaces = whole(document.spaces);
  const free = whole(document.free);
  if (spaces === undefined || free === undefined || spaces > kCountMax || free > spaces) return undefined;
  return { spaces, free };
}

function readShown(value: Json | undefined): Shown | undefined {
  if (!isObject(value)) return undefined;
  const counts = readCounts({ spaces: value.spaces ?? 0, free: value.free ?? 0 });
  if (counts === undefined) return undefined;
  const missing = Array.isArray(value.missing) ? value.missing.filter((n): n is string => typeof n === "string") : [];
  return {
    ...counts,
    devices: whole(value.devices) ?? 0,
    missing,
    missingCount: whole(value.missing_count) ?? missing.length,
  };
}

/** A health, or nothing when it does not even say whether its relay is there. */
export function readHealth(document: Json | undefined): Health | undefined {
  if (!isObject(document) || typeof document.online !== "boolean") return undefined;
  const shows: Health["shows"] = {};
  for (const direction of kDirections) {
    const shown = isObject(document.shows) ? readShown(document.shows[direction]) : undefined;
    if (shown !== undefined) shows[direction] = shown;
  }
  return {
    online: document.online,
    daemon: text(document.daemon),
    plan: text(document.plan),
    version: text(document.version),
    since: whole(document.since),
    counts: readCounts(document),
    shows,
    rejected: whole(document.rejected) ?? 0,
    duplicate: document.duplicate === true,
  };
}
