// The one word that tells how a device is, and the sentence behind it.
import type { Health } from "./documents";

export const kStates = ["offline", "silent", "implausible", "plan unreadable", "no plan", "ok"] as const;
export type State = (typeof kStates)[number];

/** Place in the order of what people look at first: 0 is the worst. */
export function severity(state: State): number {
  return kStates.indexOf(state);
}

/** The first that applies. heard: whether the relay said anything in the last 70 s. */
export function stateOf(health: Health | undefined, heard: boolean): State {
  if (health === undefined || !health.online) return "offline";
  if (health.daemon === "silent" || !heard) return "silent";
  if (health.daemon === "implausible") return "implausible";
  if (health.plan === "unreadable") return "plan unreadable";
  if (health.plan === "none") return "no plan";
  return "ok";
}

/** What is the matter, and what to do about it. */
export function stateSentence(state: State, health: Health | undefined): string {
  switch (state) {
    case "offline":
      return health === undefined
        ? "Nothing is known of its relay: was it ever connected under this name?"
        : "Its connection to the hub ended. Check its power and its network.";
    case "silent":
      return health?.daemon === "silent"
        ? "The relay is there, but the camera's program has said nothing for 70 s."
        : "Nothing has come from it for 70 s, though its connection was not seen to end.";
    case "implausible":
      return "The camera's program found its counts implausible and asked to be forgotten. It is pausing.";
    case "plan unreadable":
      return "Its newest plan cannot be read. The last good one stays in force until a new one is sent.";
    case "no plan":
      return "It has no plan, so it belongs to no zone and counts nowhere.";
    case "ok":
      return health?.duplicate === true
        ? "It works, but another device uses the same name: one of the two has to be renamed."
        : "It works.";
  }
}
