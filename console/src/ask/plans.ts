// Plans that are being edited: what differs from the hub's, what is wrong with it, and sending them.
import { kDirections, noShows, planDocument, type Direction, type JsonObject, type Plan } from "../model/documents";
import { checkForm, checkSense, faultText, readSiteFile, type PlanFault } from "../model/plan_check";
import type { Device, Site } from "../model/site";
import type { Delivery } from "./requests";
import type { Result } from "./form_state";

export interface PlanChange {
  device: string;
  lines: string[]; // "zone: L1 → L2"
}

export interface PlanWay {
  site(): Site | undefined;
  publish(topic: string, payload: string): Promise<Delivery>; // kept by the broker
  changed(): void;
}

export const emptyPlan = (): Plan => ({ name: "", zone: "", shows: noShows() });

const listText = (zones: string[]): string => (zones.length === 0 ? "nothing" : zones.join(", "));
const canonical = (plan: Plan | undefined): string => (plan === undefined ? "" : JSON.stringify(planDocument(plan)));

export class Plans {
  private readonly drafts = new Map<string, Plan>();
  readonly chosen = new Set<string>(); // devices that are edited together
  confirming = false;
  result: Result | undefined;
  faults: PlanFault[] = [];

  constructor(private readonly way: PlanWay) {}

  private devices(): ReadonlyMap<string, Device> {
    return this.way.site()?.devices ?? new Map<string, Device>();
  }

  /** The plan as it is being edited, or as the hub has it. */
  plan(device: string): Plan {
    return this.drafts.get(device) ?? this.devices().get(device)?.plan ?? emptyPlan();
  }

  isEdited(device: string): boolean {
    const draft = this.drafts.get(device);
    const kept = this.devices().get(device);
    return draft !== undefined && (kept?.planFault !== undefined || canonical(draft) !== canonical(kept?.plan));
  }

  edit(device: string, change: Partial<Plan>): void {
    this.drafts.set(device, { ...this.plan(device), ...change });
    this.touched();
  }

  editShows(device: string, direction: Direction, zones: string[]): void {
    const plan = this.plan(device);
    this.edit(device, { shows: { ...plan.shows, [direction]: zones } });
  }

  discard(device?: string): void {
    if (device === undefined) this.drafts.clear();
    else this.drafts.delete(device);
    this.touched();
  }

  private touched(): void {
    this.confirming = false;
    this.result = undefined;
    this.recheck();
    this.way.changed();
  }

  /** What is wrong with what is edited, and what of the others becomes wrong by it. */
  private recheck(): void {
    const edited = this.edited();
    this.faults = [];
    if (edited.length === 0) return;
    const all = new Map<string, Plan>();
    for (const [name, device] of this.devices()) if (device.plan !== undefined) all.set(name, device.plan);
    const before = new Set(checkSense(all).map(faultText));
    const drafts = new Map(edited.map((name) => [name, this.plan(name)]));
    for (const [name, plan] of drafts) all.set(name, plan);
    const concerned = (fault: PlanFault): boolean => drafts.has(fault.device) || !before.has(faultText(fault));
    this.faults = [...checkForm(drafts), ...checkSense(all).filter(concerned)];
  }

  edited(): string[] {
    return [...this.drafts.keys()].filter((device) => this.isEdited(device)).sort();
  }

  changes(devices: string[]): PlanChange[] {
    return devices.map((device) => {
      const before = this.devices().get(device)?.plan ?? emptyPlan();
      const after = this.plan(device);
      const lines: string[] = [];
      const line = (what: string, from: string, to: string): void => {
        if (from !== to) lines.push(`${what}: ${from} → ${to}`);
      };
      const { planFault } = this.devices().get(device) ?? {};
      if (planFault !== undefined) lines.push(`the plan that the hub has is replaced: ${planFault}`);
      for (const member of before.strange ?? []) lines.push(`${member}: is taken out`);
      line("name", before.name || device, after.name || device);
      line("zone", before.zone || "none", after.zone);
      for (const direction of kDirections)
        line(
          direction === "group" ? "own group" : direction,
          listText(before.shows[direction]),
          listText(after.shows[direction]),
        );
      return { device, lines };
    });
  }

  /** Takes a site file as drafts. Returns what is wrong with how it is written; then nothing was taken. */
  takeFile(text: string): string[] {
    const { plans, faults } = readSiteFile(text, this.way.site()?.name ?? "");
    if (faults.length > 0) return faults.map(faultText);
    for (const [device, plan] of plans) this.drafts.set(device, plan);
    this.touched();
    return [];
  }

  /** The site file of what the hub has, with what is being edited. */
  file(): string {
    const devices: JsonObject = {};
    const names = new Set([...this.devices().keys(), ...this.drafts.keys()]);
    for (const name of [...names].sort()) {
      const plan = this.plan(name);
      if (plan.zone !== "") devices[name] = planDocument(plan);
    }
    return JSON.stringify({ site: this.way.site()?.name ?? "", devices }, null, 2);
  }

  apply(devices: string[]): void {
    this.recheck();
    const wrong = this.faults.filter(
      (fault) => !fault.warning && (devices.includes(fault.device) || !this.drafts.has(fault.device)),
    );
    if (devices.length === 0) this.result = { state: "done", sentence: "Nothing to change: the hub has these plans." };
    else if (wrong.length > 0)
      this.result = {
        state: "failed",
        sentence: `Not sent: ${wrong.map(faultText).slice(0, 5).join("; ")}.`,
      };
    else {
      this.confirming = true;
      this.result = undefined;
    }
    this.way.changed();
  }

  cancel(): void {
    this.confirming = false;
    this.way.changed();
  }

  async confirm(devices: string[]): Promise<void> {
    const site = this.way.site();
    if (!this.confirming || site === undefined) return;
    this.confirming = false;
    let sent = 0;
    for (const device of devices) {
      this.result = { state: "working", sentence: `Sending plan ${sent + 1} of ${devices.length} ...` };
      this.way.changed();
      const delivery = await this.way.publish(
        `park/${site.name}/plan/${device}`,
        JSON.stringify(planDocument(this.plan(device))),
      );
      if (delivery === "refused" || delivery === "down") {
        const why = delivery === "refused" ? "this account may not write plans" : "the connection is away";
        this.result = { state: "failed", sentence: `${sent} of ${devices.length} sent, then no more: ${why}.` };
        this.way.changed();
        return;
      }
      ++sent;
    }
    const kept = await this.echoed(devices);
    if (kept) {
      for (const device of devices) this.drafts.delete(device);
      this.result = {
        state: "done",
        sentence: `Done. The hub keeps ${devices.length === 1 ? "the plan" : `${devices.length} plans`}; each device takes its own when it hears it.`,
      };
    } else {
      this.result = { state: "failed", sentence: "Sent, but the hub did not say it back: look whether it keeps them." };
    }
    this.way.changed();
  }

  /** Whether the hub says back what was sent, within three seconds. */
  private async echoed(devices: string[]): Promise<boolean> {
    for (let tries = 0; tries < 30; ++tries) {
      if (devices.every((device) => !this.isEdited(device))) return true;
      await new Promise((resolve) => setTimeout(resolve, 100));
    }
    return false;
  }
}
