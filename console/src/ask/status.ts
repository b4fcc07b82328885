// What a device is asked again and again while somebody looks at it: lamp, sums by direction, last result, log.
import { isObject, type Json, type JsonObject } from "../model/documents";
import { readRecord, type Space } from "../model/record";
import { answerSentence, type Answer, type Requests, type Target } from "./requests";

const kQuestions = [
  "get_device_frame_status",
  "get_net_status",
  "get_latest_ivsresult",
  "quary_controled_log",
] as const;
const kPeriodMs = 10_000;
const kRefusedPeriodMs = 60_000;

export interface LogEntry {
  ip: string;
  status: number;
  message: string;
  time: string;
}

export class Status {
  color: number | undefined;
  status: number | undefined;
  net: JsonObject | undefined;
  spaces: Space[] | undefined;
  log: LogEntry[] | undefined; // the newest first
  problem = ""; // why nothing is known, as a sentence
  asked = false; // whether every question was answered or failed once
  private nextAt = -Infinity;
  private asking = false;

  constructor(
    private readonly target: Target,
    private readonly requests: Requests,
    private readonly changed: () => void,
  ) {}

  /** now: milliseconds of any clock that goes forward. */
  tick(now: number): void {
    if (now < this.nextAt || this.asking) return;
    void this.ask().then(() => {
      this.nextAt = now + (this.problem === "" ? kPeriodMs : kRefusedPeriodMs);
    });
  }

  /** What the device has just said on its own bus. */
  heard(own: { color: number | undefined; status: number | undefined; spaces: Space[] | undefined }): void {
    this.color = own.color ?? this.color;
    this.status = own.status ?? this.status;
    this.spaces = own.spaces ?? this.spaces;
    this.soon();
  }

  soon(): void {
    this.nextAt = -Infinity;
  }

  private async ask(): Promise<void> {
    this.asking = true;
    for (const question of kQuestions) {
      const answer = await this.requests.ask(this.target, { type: question });
      const good = answer.kind === "bytes" || (answer.kind === "answer" && answer.state === 200);
      this.problem = good ? "" : answerSentence(answer);
      if (!good) break; // the others would fail alike
      this.take(question, answer);
      this.changed();
    }
    this.asking = false;
    this.asked = true;
    this.changed();
  }

  private take(question: (typeof kQuestions)[number], answer: Answer): void {
    if (answer.kind === "bytes") {
      if (question === "get_latest_ivsresult") this.spaces = readRecord(answer.bytes);
      return;
    }
    if (answer.kind !== "answer" || !isObject(answer.body)) return;
    const body = answer.body;
    if (question === "get_net_status") this.net = body;
    if (question === "quary_controled_log") this.log = readLog(body);
    if (question === "get_device_frame_status") {
      if (typeof body.led_color === "number") this.color = body.led_color;
      if (typeof body.frame_status === "number") this.status = body.frame_status;
    }
  }
}

/** The log is a ring of eight; log_index is the place of its next event. */
function readLog(body: JsonObject): LogEntry[] {
  const logs = Array.isArray(body.logs) ? body.logs : [];
  const next = typeof body.log_index === "number" ? body.log_index : logs.length;
  const inOrder = logs.length < 8 ? logs : [...logs.slice(next), ...logs.slice(0, next)];
  return inOrder.filter(isObject).map(readEntry).reverse();
}

function readEntry(entry: JsonObject): LogEntry {
  const text = (value: Json | undefined): string => (typeof value === "string" ? value : "");
  return {
    ip: text(entry.log_ip),
    status: typeof entry.frame_status === "number" ? entry.frame_status : -1,
    message: text(entry.log_msg),
    time: text(entry.log_time),
  };
}
