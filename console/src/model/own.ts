// What a device says on its own bus, for a page that was opened from it.
import { isObject, parseObject, type Counts, type Json, type JsonObject } from "./documents";
import { readRecord, spaceWords, type Space } from "./record";
import { kLiveMs } from "./site";
import type { State } from "./state";
import { colorWords, hexWords, positionWords, printable, spaceStateWords } from "../words";

export const kOwnTopics = [
  "BUS_BROADCAST_MESSAGE",
  "BUS_SIMULATOR_TRIGGER",
  "BUS_BROADLISTEN_MESSAGE",
  "BUS_NET_PUSH",
  "HTTP_REQUEST_MESSAGE_ROOT",
];
const kEventsMax = 60;
const kImplausibleMs = 60_000;
const kRelayAddresses = 4; // entries of cm_dev with these addresses are the relay's directions

export interface BusEvent {
  at: number; // milliseconds of listening
  number: number;
  words: string;
}

export class OwnDevice {
  counts: Counts | undefined; // its own spaces
  totals: Counts | undefined; // with all its neighbours
  color: number | undefined;
  status: number | undefined;
  spaces: Space[] | undefined;
  halted = false;
  readonly events: BusEvent[] = [];
  private heardAt: number | undefined;
  private implausibleUntil = -Infinity;
  private last = 0;

  /** Anything that the daemon itself said. */
  heard(now: number): void {
    this.heardAt = now;
  }

  state(now: number): State {
    if (this.heardAt === undefined) return "offline";
    if (now >= this.heardAt + kLiveMs) return "silent";
    return now < this.implausibleUntil ? "implausible" : "ok";
  }

  take(topic: string, bytes: Uint8Array, now: number): void {
    const words = this.understand(topic, bytes, now);
    if (words === undefined) return;
    this.events.unshift({ at: now, number: ++this.last, words });
    this.events.length = Math.min(this.events.length, kEventsMax);
  }

  private understand(topic: string, bytes: Uint8Array, now: number): string | undefined {
    if (topic === "BUS_SIMULATOR_TRIGGER") {
      const spaces = readRecord(bytes);
      if (spaces === undefined) return undefined;
      this.heard(now);
      this.spaces = spaces;
      return "result: " + spaces.map((space, i) => `${i + 1} ${space.valid ? spaceWords(space) : "-"}`).join(" | ");
    }
    const document = parseObject(new TextDecoder().decode(bytes));
    if (document === undefined) return undefined;
    if (topic === "BUS_NET_PUSH") return pushWords(document);
    if (topic === "BUS_BROADLISTEN_MESSAGE") return this.listen(document);
    this.heard(now);
    if (topic === "HTTP_REQUEST_MESSAGE_ROOT" && document.type === "ClearAllDestAddr") {
      this.implausibleUntil = now + kImplausibleMs;
      return "the device found its counts implausible and asked to be forgotten";
    }
    return topic === "BUS_BROADCAST_MESSAGE" ? this.broadcast(document) : undefined;
  }

  private broadcast({ type, body }: JsonObject): string | undefined {
    if (!isObject(body)) return undefined;
    if (type === "ledcolor_changed" && typeof body.led_color === "number") {
      this.color = body.led_color;
      return `LED colour ${colorWords(body.led_color)}`;
    }
    if (type === "framestatus_changed" && typeof body.frame_status === "number") {
      this.status = body.frame_status;
      return `the device shows ${spaceStateWords(body.frame_status)}`;
    }
    if (type === "frame_changed" && typeof body.totle === "number" && typeof body.free === "number") {
      const totals = { spaces: body.totle, free: body.free };
      const same = this.totals?.spaces === totals.spaces && this.totals.free === totals.free;
      this.totals = totals;
      this.counts = ownCounts(totals, body.cm_dev) ?? this.counts;
      return same ? undefined : `${totals.free} free of ${totals.spaces}`;
    }
    if (type === "ttyio_data_bro") return `serial line received ${serialWords(body)}`;
    return undefined;
  }

  private listen({ type, body }: JsonObject): string | undefined {
    if (!isObject(body)) return undefined;
    if (type === "send_ttyio_data") return `to the serial line ${serialWords(body)}`;
    if (type !== "set_ttyio_halt") return undefined;
    this.halted = typeof body.halt === "number" && body.halt !== 0;
    return this.halted ? "halt serial output" : "resume serial output";
  }
}

/** What remains of the sums without what the relay has pushed. */
function ownCounts(totals: Counts, pushed: Json | undefined): Counts | undefined {
  const own = { ...totals };
  for (const entry of Array.isArray(pushed) ? pushed : []) {
    if (!isObject(entry) || typeof entry.ip !== "number" || entry.ip < 1 || entry.ip > kRelayAddresses) continue;
    own.spaces -= typeof entry.tn === "number" ? entry.tn : 0;
    own.free -= typeof entry.fn === "number" ? entry.fn : 0;
  }
  return own.spaces < 0 || own.free < 0 ? undefined : own;
}

function addressWords(address: Json | undefined): string {
  if (typeof address !== "number") return "address ?";
  return [0, 8, 16, 24].map((shift) => (address >>> shift) & 0xff).join(".");
}

function pushWords(push: JsonObject): string {
  const position = typeof push.pos === "number" ? positionWords(push.pos) : "position ?";
  return `neighbour ${addressWords(push.s_addr)} (${position}): ${String(push.free)} free of ${String(push.totle)}`;
}

function serialWords(body: JsonObject): string {
  if (typeof body.data !== "string") return "data that is not base64";
  try {
    const bytes = Uint8Array.from(atob(body.data), (c) => c.charCodeAt(0));
    const text = new TextDecoder().decode(bytes);
    const readable = /^[\x20-\x7e\r\n]*$/.test(text) ? ` "${printable(text)}"` : "";
    return `${bytes.length} bytes: ${hexWords(bytes.subarray(0, 32))}${bytes.length > 32 ? " ..." : ""}${readable}`;
  } catch {
    return "data that is not base64";
  }
}
