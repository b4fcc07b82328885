// What is wrong with the plans of a site, before anything is sent: faults forbid sending, warnings only say what looks odd.
import { kDirections, type Plan } from "./documents";
import { isName, isZone, within } from "./names";

export interface PlanFault {
  device: string;
  path: string; // "zone", "shows.left", ...
  words: string;
  warning: boolean;
}

const kNameControls = /[\u0000-\u001f\u007f-\u009f]/;
const kPlanBytesMax = 4096;

/** plans: every plan of the site as it would be, by device. */
export function checkPlans(plans: ReadonlyMap<string, Plan>): PlanFault[] {
  const zones = new Set([...plans.values()].map((plan) => plan.zone));
  const inhabited = (zone: string): boolean => [...zones].some((one) => within(one, zone));
  const known = new Map<string, boolean>();
  const empty = (zone: string): boolean => {
    const before = known.get(zone);
    if (before !== undefined) return before;
    const now = !inhabited(zone);
    known.set(zone, now);
    return now;
  };
  return [...plans].flatMap(([device, plan]) => checkPlan(device, plan, empty));
}

function checkPlan(device: string, plan: Plan, empty: (zone: string) => boolean): PlanFault[] {
  const faults: PlanFault[] = [];
  const say = (path: string, words: string, warning = false): void => {
    faults.push({ device, path, words, warning });
  };
  if (!isName(device)) say("device", "a device's name is 1 to 32 of A-Z a-z 0-9 _ -");
  if (kNameControls.test(plan.name)) say("name", "a name holds no control characters");
  if (!isZone(plan.zone)) {
    say(
      "zone",
      plan.zone === "" ? "it has no zone" : `"${plan.zone}" is not a zone: 1 to 8 names of A-Z a-z 0-9 _ - joined by /`,
    );
  }
  const seen = new Map<string, string>();
  for (const direction of kDirections) {
    const path = `shows.${direction}`;
    for (const zone of plan.shows[direction]) {
      if (!isZone(zone)) say(path, `"${zone}" is not a zone: 1 to 8 names of A-Z a-z 0-9 _ - joined by /`);
      else if (empty(zone)) say(path, `no device is in the zone ${zone}`);
      for (const [other, where] of seen) {
        if (where === direction && other === zone) say(path, `the zone ${zone} stands there twice`);
        else if (where !== direction && (within(zone, other) || within(other, zone))) {
          say(path, `${zone} is also counted ${where === "group" ? "in its own group" : where} (${other})`, true);
        }
      }
      seen.set(zone, direction);
    }
  }
  if (new TextEncoder().encode(JSON.stringify(plan)).length > kPlanBytesMax)
    say("shows", `the plan is longer than ${kPlanBytesMax} bytes`);
  return faults;
}
