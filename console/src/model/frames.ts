// What leaves on the serial line with what the device was told and has seen, in the words of the command line. The bus
// does not carry these frames; they follow from the settings, the counts and the last result.
import { isObject, type Json, type JsonObject } from "./documents";
import type { Space } from "./record";
import { printable, spaceStateWords } from "../words";

export interface Frame {
  when: string; // "every 4 s", "with each result"
  words: string;
}

const kDisplays = [
  { side: "front", enabled: "f_ena", address: "f_addr", sums: ["n_frees", "f_frees"] },
  { side: "left", enabled: "l_ena", address: "l_addr", sums: ["l_frees"] },
  { side: "right", enabled: "r_ena", address: "r_addr", sums: ["r_frees"] },
];
const kProtoDisplays = 0;
const kProtoRelays = 1;
const kProtoNothing = 255;

const number = (value: Json | undefined): number => (typeof value === "number" ? value : 0);

function displayFrames(settings: JsonObject, net: JsonObject): Frame[] {
  return kDisplays
    .filter((display) => number(settings[display.enabled]) !== 0)
    .map((display) => {
      const free = display.sums.reduce((sum, name) => sum + number(net[name]), 0);
      const words = `display ${number(settings[display.address])} shows ${free}`;
      return { when: `${display.side} display, every 4 s`, words };
    });
}

function relayFrames(settings: JsonObject, spaces: Space[]): Frame[] {
  return spaces.flatMap((space, i) => {
    if (!space.valid) return [];
    const words = `relay ${number(settings[`frame${i + 1}_addr`])} is told ${space.state === 0 ? "free" : "occupied"}`;
    return [{ when: `space ${i + 1}, with each result`, words }];
  });
}

const kAsciiOnly = /^[\x00-\x7f]*$/;
const quoted = (text: string): string => (text.includes(" ") ? `"${text}"` : text);

// The fields that say something to people. Others are named with their configured value.
const kFields: Record<string, (space: Space, totals: JsonObject) => string> = {
  enable: (space) => (space.plate === "" ? "no-plate" : "plate"),
  license: (space) => (space.plate === "" ? "none" : printable(space.plate)),
  licenseconf: (space) => String(Math.min(space.plateConfidence, 100)),
  licensetype: (space) => String(space.plateType >= 20 ? 0 : space.plateType),
  trigger: (space) => String(space.trigger >= 9 ? 0 : space.trigger),
  carcolor: (space) => String(space.vehicleClass > 4 || space.vehicleColor < 0 ? 1 : space.vehicleColor),
  time: (space) => String(space.time),
  framename: (space) => (kAsciiOnly.test(space.name) ? quoted(printable(space.name)) : '"(left out, not ASCII)"'),
  framestatus: (space) => spaceStateWords(space.state > 3 || space.state < 0 ? 0 : space.state),
  occupyline: (space) => String(space.occupyLine),
  headconf: (space) => String(Math.min(space.headConfidence, 100)),
  freenum: (_, totals) => String(number(totals.free)),
  framenum: (_, totals) => String(number(totals.totle)),
};

function configurableFrames(list: Json | undefined, spaces: Space[], totals: JsonObject): Frame[] {
  const names = (Array.isArray(list) ? list : []).flatMap((entry) => {
    const [name, value] = isObject(entry) ? (Object.entries(entry)[0] ?? []) : [];
    return name !== undefined && number(value) !== 0 && kFields[name] !== undefined ? [name] : [];
  });
  return spaces.flatMap((space, i) => {
    if (!space.valid) return [];
    const fields = names.map((name) => `${name}=${kFields[name]?.(space, totals) ?? ""}`);
    return [{ when: `space ${i + 1}, with a result`, words: ["frame", ...fields].join(" ") }];
  });
}

export interface LineSources {
  settings: JsonObject | undefined; // get_ext_ttyio_cfg
  net: JsonObject | undefined; // get_net_status
  list: JsonObject | undefined; // get_rs485pro_cfg
  spaces: Space[] | undefined; // get_latest_ivsresult
}

/** The frames, or nothing while it is not known which go out. */
export function outgoingFrames({ settings, net, list, spaces }: LineSources): Frame[] | undefined {
  if (settings === undefined) return undefined;
  const proto = number(settings.proto);
  if (proto === kProtoNothing) return [];
  if (proto === kProtoRelays) return relayFrames(settings, spaces ?? []);
  const displays = proto === kProtoDisplays ? displayFrames(settings, net ?? {}) : [];
  return displays.length > 0 ? displays : configurableFrames(list?.pro_cfg, spaces ?? [], net ?? {});
}
