// A site as people look at it at one moment: rows of devices, rows of zones with their sums, the whole.
import { stateOf, severity, type State } from "./state";
import { within, zonesUpTo } from "./names";
import { kLiveMs, type Device, type Site } from "./site";

export interface DeviceRow {
  device: Device;
  name: string;
  label: string; // the plan's name, or the device's
  zone: string; // "" for a device without one
  state: State;
  spaces: number | undefined; // the last that was heard
  free: number | undefined;
  counting: boolean; // whether they are part of the sums
}

export interface ZoneRow {
  zone: string;
  depth: number; // 0 for a zone at the top
  spaces: number;
  free: number;
  devices: number;
  notOk: number;
}

export interface Overview {
  devices: DeviceRow[]; // by name
  zones: ZoneRow[]; // each below its parent
  spaces: number;
  free: number;
  notOk: number;
}

export function deviceRow(device: Device, now: number): DeviceRow {
  const heard = device.heardAt !== undefined && now < device.heardAt + kLiveMs;
  const counting = device.counts !== undefined && now < device.counts.goodUntil;
  const last = device.counts ?? device.health?.counts;
  return {
    device,
    name: device.name,
    label: device.plan?.name || device.name,
    zone: (counting ? device.counts?.zone : (device.plan?.zone ?? device.counts?.zone)) ?? "",
    state: stateOf(device.health, heard),
    spaces: last?.spaces,
    free: last?.free,
    counting,
  };
}

const byName = new Intl.Collator("en", { numeric: true }).compare;

/** Zones in the order of a tree: parents first, "L2" before "L10". */
function byPath(a: ZoneRow, b: ZoneRow): number {
  const left = a.zone.split("/");
  const right = b.zone.split("/");
  for (let i = 0; i < Math.min(left.length, right.length); ++i) {
    const order = byName(left[i] ?? "", right[i] ?? "");
    if (order !== 0) return order;
  }
  return left.length - right.length;
}

export function overviewOf(site: Site, now: number): Overview {
  const zones = new Map<string, ZoneRow>();
  const devices: DeviceRow[] = [];
  const all: Overview = { devices, zones: [], spaces: 0, free: 0, notOk: 0 };
  for (const device of site.devices.values()) {
    const row = deviceRow(device, now);
    devices.push(row);
    const ok = row.state === "ok";
    if (!ok) ++all.notOk;
    const counts = row.counting ? device.counts : undefined;
    if (counts !== undefined) {
      all.spaces += counts.spaces;
      all.free += counts.free;
    }
    if (row.zone === "") continue;
    zonesUpTo(row.zone).forEach((zone, depth) => {
      let sum = zones.get(zone);
      if (sum === undefined) zones.set(zone, (sum = { zone, depth, spaces: 0, free: 0, devices: 0, notOk: 0 }));
      ++sum.devices;
      if (!ok) ++sum.notOk;
      sum.spaces += counts?.spaces ?? 0;
      sum.free += counts?.free ?? 0;
    });
  }
  devices.sort((a, b) => byName(a.name, b.name));
  all.zones = [...zones.values()].sort(byPath);
  return all;
}

export const kFilters = ["all", "not ok", "free", "full"] as const;
export type Filter = (typeof kFilters)[number];
export const kOrders = ["wrong first", "name", "zone", "free"] as const;
export type Order = (typeof kOrders)[number];

export interface Question {
  search: string;
  zone: string; // "" for the whole site
  filter: Filter;
  order: Order;
}

function passes(row: DeviceRow, filter: Filter): boolean {
  switch (filter) {
    case "all":
      return true;
    case "not ok":
      return row.state !== "ok";
    case "free":
      return row.counting && (row.free ?? 0) > 0;
    case "full":
      return row.counting && row.free === 0;
  }
}

const kOrderings: Record<Order, (a: DeviceRow, b: DeviceRow) => number> = {
  "wrong first": (a, b) => severity(a.state) - severity(b.state),
  name: () => 0,
  zone: (a, b) => byName(a.zone, b.zone),
  free: (a, b) => (b.free ?? -1) - (a.free ?? -1),
};

/** The devices that were asked for. The search looks at names of devices, plans and zones. */
export function pick(devices: DeviceRow[], question: Question): DeviceRow[] {
  const words = question.search
    .toLowerCase()
    .split(/\s+/)
    .filter((word) => word !== "");
  const found = devices.filter((row) => {
    if (question.zone !== "" && !within(row.zone, question.zone)) return false;
    if (!passes(row, question.filter)) return false;
    const names = `${row.name}\n${row.label}\n${row.zone}`.toLowerCase();
    return words.every((word) => names.includes(word));
  });
  return found.sort(kOrderings[question.order]); // stable: equals stay by name
}
