// Requests to devices and what became of them. One place for time-outs, for the eight that may be open at a device, and
// for answers that come too late.
import { parseObject, type Json, type JsonObject } from "../model/documents";

export const kOpenMax = 8; // at one device
const kWaitingMax = 64;

/** Where a device is asked. */
export interface Target {
  topic: string;
  device?: string; // where one device has several topics: what they have in common
  timeoutMs: number;
}

export type Answer =
  | { kind: "answer"; state: number; error: string; body: Json | undefined }
  | { kind: "bytes"; bytes: Uint8Array }
  | { kind: "refused" } // this account may not ask
  | { kind: "nobody" } // nobody listens there
  | { kind: "late" } // no answer in time
  | { kind: "down" }; // no connection

/** What became of a publication that the broker acknowledges. */
export type Delivery = "delivered" | "nobody" | "refused" | "down";

export interface Outside {
  /** Publishes with the page's Response Topic and the number as Correlation Data. */
  publish(topic: string, payload: string, correlation: number): Promise<Delivery>;
  after(ms: number, what: () => void): () => void; // returns what cancels it
}

const deviceOf = ({ topic, device }: Target): string => device ?? topic;

interface Open {
  target: Target;
  answer: (answer: Answer) => void;
  cancel: () => void;
}

interface Waiting {
  target: Target;
  request: JsonObject;
  answer: (answer: Answer) => void;
  late: (() => void) | undefined;
}

export class Requests {
  private readonly open = new Map<number, Open>();
  private waiting: Waiting[] = [];
  private readonly late = new Map<number, () => void>();
  private next = 1;

  constructor(private readonly outside: Outside) {}

  /** late: called when the answer comes after all, too late to be used. */
  ask(target: Target, request: JsonObject, late?: () => void): Promise<Answer> {
    return new Promise((resolve) => {
      if (this.waiting.length >= kWaitingMax) {
        resolve({ kind: "late" });
        return;
      }
      this.waiting.push({ target, request, answer: resolve, late });
      this.start();
    });
  }

  openAt(device: string): number {
    return [...this.open.values()].filter((open) => deviceOf(open.target) === device).length;
  }

  private start(): void {
    const blocked: Waiting[] = [];
    for (const waiting of this.waiting) {
      if (this.openAt(deviceOf(waiting.target)) >= kOpenMax) blocked.push(waiting);
      else void this.send(waiting);
    }
    this.waiting = blocked;
  }

  private async send({ target, request, answer, late }: Waiting): Promise<void> {
    const number = this.next++;
    const cancel = this.outside.after(target.timeoutMs, () => {
      if (late !== undefined) this.late.set(number, late);
      while (this.late.size > kWaitingMax) this.late.delete(this.late.keys().next().value as number);
      this.finish(number, { kind: "late" });
    });
    this.open.set(number, { target, answer, cancel });
    const delivery = await this.outside.publish(target.topic, JSON.stringify(request), number);
    if (delivery !== "delivered") this.finish(number, { kind: delivery });
  }

  private finish(number: number, answer: Answer): void {
    const open = this.open.get(number);
    if (open === undefined) return;
    this.open.delete(number);
    open.cancel();
    open.answer(answer);
    this.start();
  }

  /** An answer has come. Returns who was asked, as long as that is still known. */
  take(correlation: number, bytes: Uint8Array): Target | undefined {
    const target = this.open.get(correlation)?.target;
    if (target === undefined) {
      this.late.get(correlation)?.();
      this.late.delete(correlation);
      return undefined;
    }
    const document = parseObject(new TextDecoder().decode(bytes));
    if (document === undefined || typeof document.state !== "number") {
      this.finish(correlation, { kind: "bytes", bytes });
      return target;
    }
    const error = typeof document.error_msg === "string" ? document.error_msg : "";
    this.finish(correlation, { kind: "answer", state: document.state, error, body: document.body });
    return target;
  }

  /** The connection is gone: nothing that is open will be answered. */
  down(): void {
    const waiting = this.waiting;
    this.waiting = [];
    for (const one of waiting) one.answer({ kind: "down" });
    for (const number of [...this.open.keys()]) this.finish(number, { kind: "down" });
  }
}

/** What an answer means for the person who asked. */
export function answerSentence(answer: Answer): string {
  switch (answer.kind) {
    case "answer":
      return (
        kErrorSentences[answer.error] ??
        kStateSentences[answer.state] ??
        `The device answered ${answer.state}: ${answer.error}.`
      );
    case "bytes":
      return "The device answered with something that is no JSON.";
    case "refused":
      return "This account may not ask this device. Log in with one that may.";
    case "nobody":
      return "Nobody listens for requests there: the device, or its relay, is not connected.";
    case "late":
      return "The device did not answer in time. What was asked may have been done all the same.";
    case "down":
      return "The connection is away. It is tried again by itself; ask once more when it is back.";
  }
}

const kErrorSentences: Record<string, string> = {
  "remote requests are off": "This device lets nobody ask it from the site: remote requests are switched off on it.",
  "not allowed from the site": "This device may be read from the site, not changed.",
  "another change waits": "Another change of this device waits to be kept or taken back.",
  "no such change waits": "No such change waits any more.",
  "error type": "The device does not know this command.",
};

const kStateSentences: Record<number, string> = {
  200: "Done.",
  404: "The device refused it: it does not take the value, or could not store it.",
  405: "The device does not let external control in.",
  503: "The device is busy with other requests. Try again in a moment.",
  504: "The relay is there, but the camera's program does not answer it.",
};
