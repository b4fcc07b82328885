// The addresses of the page's views.
import { isName, isZone } from "./names";

export type Route =
  | { view: "home" } // whichever this broker has
  | { view: "site"; zone: string } // zone "" for all of it
  | { view: "plans" }
  | { view: "device"; device: string } // of the site
  | { view: "own" }; // the device whose broker this is

function decoded(text: string): string {
  try {
    return decodeURIComponent(text);
  } catch {
    return text;
  }
}

/** hash: as location.hash gives it. */
export function parseRoute(hash: string): Route {
  const [view, ...rest] = hash.replace(/^#\/?/, "").split("/").map(decoded);
  if (view === "device") {
    const device = rest[0] ?? "";
    return isName(device) ? { view: "device", device } : { view: "own" };
  }
  if (view === "plans") return { view: "plans" };
  if (view !== "site") return { view: "home" };
  const zone = rest.slice(1).join("/");
  return { view: "site", zone: rest[0] === "zone" && isZone(zone) ? zone : "" };
}

export const deviceAddress = (device: string): string => `#/device/${encodeURIComponent(device)}`;
export const zoneAddress = (zone: string): string =>
  zone === "" ? "#/site" : `#/site/zone/${zone.split("/").map(encodeURIComponent).join("/")}`;
