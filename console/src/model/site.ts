// What is known of a site, fed with the hub's messages and the time. No socket, no clock, no element. Times are
// milliseconds of listening (clock.ts): nobody falls silent because nobody listened.
import { parseObject, readCounts, readHealth, readPlan, type Counts, type Health, type Plan } from "./documents";
import type { SiteTopic } from "./names";

export const kLiveMs = 70_000; // as long as a live message is believed
export const kKeptMs = 30_000; // a kept count, until a live one comes

export interface KnownCounts extends Counts {
  zone: string;
  goodUntil: number;
  seenIn: number;
}

export interface Device {
  name: string;
  plan?: Plan;
  planFault?: string;
  health?: Health;
  healthText?: string;
  healthFault?: string;
  counts?: KnownCounts; // the latest, good or not
  heardAt?: number; // when its relay last said something, as far as is known
  seenIn: number; // the connection in which something about it last came
}

export interface Arrival {
  topic: SiteTopic;
  payload: string; // "": cleared
  kept: boolean; // the broker had kept it; nobody said it just now
}

export class Site {
  readonly devices = new Map<string, Device>();
  rejected = 0; // counts that no relay would take either
  private connection = 0;
  private planCame = false;

  constructor(readonly name: string) {}

  /** A connection begins: the hub says once more what it has kept. */
  connected(): void {
    ++this.connection;
    this.planCame = false;
  }

  /** What the hub has kept has come. What came no more was taken back meanwhile; but a hub that kept no plan at all has
   *  lost its memory, and takes nothing back. */
  settled(now: number): void {
    if (!this.planCame) return;
    for (const device of this.devices.values()) {
      if (device.seenIn !== this.connection) {
        this.devices.delete(device.name);
      } else if (device.counts !== undefined && device.counts.seenIn !== this.connection) {
        device.counts.goodUntil = Math.min(device.counts.goodUntil, now);
      }
    }
  }

  take(arrival: Arrival, now: number): void {
    const { topic, payload } = arrival;
    const known = this.devices.get(topic.device);
    if (payload === "" && known === undefined) return;
    const device = known ?? { name: topic.device, seenIn: 0 };
    device.seenIn = this.connection;
    if (topic.kind === "plan") this.takePlan(device, payload);
    if (topic.kind === "health") takeHealth(device, arrival, now);
    if (topic.kind === "counts") this.takeCounts(device, arrival, now);
    const nothing =
      (device.plan ?? device.planFault ?? device.health ?? device.healthFault ?? device.counts) === undefined;
    if (nothing) this.devices.delete(device.name);
    else this.devices.set(device.name, device);
  }

  private takePlan(device: Device, payload: string): void {
    delete device.planFault;
    if (payload === "") {
      delete device.plan;
      return;
    }
    this.planCame = true;
    const plan = readPlan(parseObject(payload));
    if (typeof plan === "string")
      device.planFault = plan; // the last good one stays in force
    else device.plan = plan;
  }

  private takeCounts(device: Device, { topic, payload, kept }: Arrival, now: number): void {
    if (payload === "") {
      if (device.counts?.zone === topic.zone) device.counts.goodUntil = now; // cleared: counts nowhere from now on
      return;
    }
    const counts = readCounts(parseObject(payload));
    if (counts === undefined) {
      ++this.rejected;
      return;
    }
    const before = device.counts?.goodUntil ?? now;
    const goodUntil = kept ? Math.max(before, now + kKeptMs) : now + kLiveMs;
    device.counts = { ...counts, zone: topic.zone, goodUntil, seenIn: this.connection };
    if (!kept) device.heardAt = now;
  }
}

function takeHealth(device: Device, { payload, kept }: Arrival, now: number): void {
  delete device.healthFault;
  if (payload === "") {
    delete device.health;
    delete device.healthText;
    return;
  }
  // A kept health that was known already says nothing new; another one was said while nobody listened.
  if (!kept || device.healthText !== payload) device.heardAt = now;
  device.healthText = payload;
  const health = readHealth(parseObject(payload));
  if (health === undefined) device.healthFault = "Its health cannot be read.";
  else device.health = health;
}
