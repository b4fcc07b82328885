// What is wrong with the plans of a site before anything is sent, as `parkctl site check` says it: faults forbid
// sending. Warnings say what only looks odd.
import { check, expected, type Fault } from "../contract/check";
import { contract } from "../contract/data";
import type { Schema } from "../contract/schema";
import { printable } from "../words";
import { isObject, kDirections, planDocument, readPlan, type Direction, type Json, type Plan } from "./documents";
import { isName, isZone, within, zonesUpTo } from "./names";
import { repeatedMembers } from "./repeated_members";

export interface PlanFault {
  device: string; // "": the file itself
  path: string; // "zone", "shows.left[1]", ...
  words: string;
  warning: boolean;
}

const kPlanBytesMax = 65536; // what a hub takes in one message
const kDirectionDevicesMax = 16384; // that a relay counts
const kSpacesMax = 1048576; // that a device believes
const kSpacesOfDevice = 3;

/** "L2-B-014 shows.left: L7 holds no device". */
export function faultText({ device, path, words }: PlanFault): string {
  const place = [device, path].filter((part) => part !== "").map(printable);
  return place.length === 0 ? words : `${place.join(" ")}: ${words}`;
}

const planSchema = (): Schema => {
  const devices = contract.site.site_file?.properties?.devices ?? {};
  return typeof devices.additionalProperties === "object" ? devices.additionalProperties : {};
};
const namesSchema = (): Schema => contract.site.site_file?.properties?.devices?.propertyNames ?? {};

function asFault(device: string, { path, words }: Fault): PlanFault {
  return { device, path, words, warning: false };
}

function nameFaults(device: string): PlanFault[] {
  if (isName(device)) return [];
  return [asFault(device, { path: "", words: `is no name of a device: ${expected(namesSchema())}` })];
}

/** How the plans of the given devices are written: what of them no relay or tool would take. */
export function checkForm(plans: ReadonlyMap<string, Plan>): PlanFault[] {
  return [...plans].flatMap(([device, plan]) => [
    ...nameFaults(device),
    ...check(planSchema(), planDocument(plan)).map((fault) => asFault(device, fault)),
  ]);
}

/** What is well written and makes no sense. plans: every plan of the site as it would be, by device. */
export function checkSense(plans: ReadonlyMap<string, Plan>): PlanFault[] {
  const devices = new Map<string, number>(); // in a zone and below it
  for (const { zone } of plans.values())
    if (isZone(zone)) for (const outer of zonesUpTo(zone)) devices.set(outer, (devices.get(outer) ?? 0) + 1);
  return [...plans].flatMap(([device, plan]) => checkPlan(device, plan, devices));
}

function checkPlan(device: string, plan: Plan, devices: ReadonlyMap<string, number>): PlanFault[] {
  const faults: PlanFault[] = [];
  const say = (path: string, words: string, warning = false): void => {
    faults.push({ device, path, words, warning });
  };
  let all = 1;
  for (const direction of kDirections) {
    const zones = plan.shows[direction].filter(isZone).sort();
    const path = `shows.${direction}`;
    let counted = 0;
    let sound = true;
    zones.forEach((zone, i) => {
      const wrong = wrongZone(zone, i, zones, devices);
      if (wrong !== "") say(path, wrong);
      sound &&= wrong === "";
      if (wrong === "") counted += devices.get(zone) ?? 0;
    });
    if (zones.some((zone) => within(plan.zone, zone)) && counted > 0) --counted; // never itself
    if (sound && zones.length > 0 && counted === 0)
      say(path, "shows nothing: its zones hold no other device than this one");
    if (counted > kDirectionDevicesMax) say(path, `counts ${counted} devices, a relay takes ${kDirectionDevicesMax}`);
    all += counted;
    for (const [zone, other, where] of countedTwice(plan, direction))
      say(path, `${zone} is also counted ${where === "group" ? "in its own group" : where} (${other})`, true);
  }
  if (all * kSpacesOfDevice > kSpacesMax)
    say("shows", `counts ${all * kSpacesOfDevice} spaces in all, a device believes ${kSpacesMax}`);
  const bytes = new TextEncoder().encode(JSON.stringify(planDocument(plan))).length;
  if (bytes > kPlanBytesMax) say("", `the plan has ${bytes} bytes, a hub takes ${kPlanBytesMax}: name outer zones`);
  return faults;
}

function wrongZone(zone: string, i: number, sorted: string[], devices: ReadonlyMap<string, number>): string {
  if (i > 0 && zone === sorted[i - 1]) return `${zone} stands there twice`;
  if (!devices.has(zone)) return `${zone} holds no device${meant(zone, devices)}`;
  const outer = zonesUpTo(zone).find((one) => one !== zone && sorted.includes(one));
  return outer === undefined ? "" : `${zone} is within ${outer}, which stands there too`;
}

/** What a zone's name sounds like: letters and digits, whatever stands between them. */
const sound = (zone: string): string => zone.replace(/[/_-]/g, "").toLowerCase();

/** A zone that there is and that was perhaps meant: written a little otherwise, or without what stands before it. */
function meant(zone: string, devices: ReadonlyMap<string, number>): string {
  const near = [...devices.keys()].sort().find((one) => one.endsWith(`/${zone}`) || sound(one) === sound(zone));
  return near === undefined ? "" : `; did you mean ${near}?`;
}

/** Zones of a direction that an earlier one counts too: [zone, the other one, where]. */
function countedTwice(plan: Plan, direction: Direction): [string, string, Direction][] {
  const earlier = kDirections.slice(0, kDirections.indexOf(direction));
  return plan.shows[direction].flatMap((zone) =>
    earlier.flatMap((where) =>
      plan.shows[where]
        .filter((other) => within(zone, other) || within(other, zone))
        .map((other): [string, string, Direction] => [zone, other, where]),
    ),
  );
}

/** A site file: the plans that could be read, and what is wrong with how it is written. */
export function readSiteFile(text: string, site: string): { plans: Map<string, Plan>; faults: PlanFault[] } {
  const plans = new Map<string, Plan>();
  let file: Json;
  try {
    file = JSON.parse(text) as Json;
  } catch (error) {
    return { plans, faults: [asFault("", { path: "", words: `the file is no JSON: ${String(error)}` })] };
  }
  const faults = repeatedMembers(text).map(({ path, line }) => {
    const device = path[0] === "devices" && path.length >= 2 ? (path[1] ?? "") : "";
    const rest = device === "" ? path : path.slice(2);
    return asFault(device, { path: rest.join("."), words: `stands there twice, again on line ${line}` });
  });
  const devices = isObject(file) && isObject(file.devices) ? file.devices : undefined;
  const frame = isObject(file) && devices !== undefined ? { ...file, devices: {} } : file;
  faults.push(...check(contract.site.site_file ?? {}, frame).map((fault) => asFault("", fault)));
  if (isObject(file) && typeof file.site === "string" && isName(file.site) && file.site !== site)
    faults.push(asFault("", { path: "site", words: `the file is for "${file.site}", this is "${site}"` }));
  if (devices !== undefined && Object.keys(devices).length === 0)
    faults.push(asFault("", { path: "devices", words: "there are none" }));
  for (const [device, document] of Object.entries(devices ?? {})) {
    faults.push(...nameFaults(device), ...check(planSchema(), document).map((fault) => asFault(device, fault)));
    const plan = readPlan(document);
    if (typeof plan !== "string") plans.set(device, plan);
  }
  return { plans, faults };
}
