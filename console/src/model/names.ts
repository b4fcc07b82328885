// Names and topics of a site, as the hub carries them.

const kName = /^[A-Za-z0-9_-]{1,32}$/;
const kZonePartsMax = 8;

export function isName(text: string): boolean {
  return kName.test(text);
}

/** A zone is 1 to 8 names joined by "/". */
export function isZone(text: string): boolean {
  const parts = text.split("/");
  return parts.length <= kZonePartsMax && parts.every(isName);
}

/** "L2/B/C" -> ["L2", "L2/B", "L2/B/C"]: every zone that the given one counts in. */
export function zonesUpTo(zone: string): string[] {
  const parts = zone.split("/");
  return parts.map((_, i) => parts.slice(0, i + 1).join("/"));
}

/** Whether a zone is another one or lies below it. */
export function within(zone: string, outer: string): boolean {
  return zone === outer || zone.startsWith(outer + "/");
}

export interface SiteTopic {
  site: string;
  kind: "plan" | "health" | "counts";
  device: string;
  zone: string; // "" but for counts
}

/** What a topic of the hub is about, or nothing when it is none that this page reads. */
export function parseTopic(topic: string): SiteTopic | undefined {
  const [root, site, kind, device, ...rest] = topic.split("/");
  if (root !== "park" || site === undefined || device === undefined || !isName(site) || !isName(device))
    return undefined;
  if ((kind === "plan" || kind === "health") && rest.length === 0) return { site, kind, device, zone: "" };
  const zone = rest.join("/");
  if (kind === "counts" && isZone(zone)) return { site, kind, device, zone };
  return undefined;
}
