// What this account may do, asked for before anybody presses a button: a message about a device that does not exist
// does nothing, and a broker that refuses it says so.
import type { Delivery } from "./requests";

export interface Rights {
  ask: boolean | undefined; // requests to devices; undefined: not known yet
  plan: boolean | undefined; // plans
}

export type Publish = (topic: string, payload: string) => Promise<Delivery>;

export const noRights = (): Rights => ({ ask: undefined, plan: undefined });

const judge = (delivery: Delivery): boolean | undefined => (delivery === "down" ? undefined : delivery !== "refused");

/** nobody: a device's name that nobody has. */
export async function siteRights(site: string, nobody: string, publish: Publish): Promise<Rights> {
  const [ask, plan] = await Promise.all([
    publish(`park/${site}/request/${nobody}`, ""),
    publish(`park/${site}/plan/${nobody}`, ""),
  ]);
  return { ask: judge(ask), plan: judge(plan) };
}
