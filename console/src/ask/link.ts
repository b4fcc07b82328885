// The connection to the broker that handed out this page: MQTT 5 over its websocket. It comes back by itself.
import mqtt, { type IPublishPacket, type MqttClient } from "mqtt";
import type { Delivery } from "./requests";

export interface Message {
  topic: string;
  bytes: Uint8Array;
  kept: boolean;
  correlation: number | undefined;
}

export interface LinkEvents {
  up(): void;
  down(): void;
  login(refused: boolean): void; // the broker wants an account; refused: it did not take the one given
  message(message: Message): void;
}

export interface Account {
  user: string;
  password: string;
}

const kBadUserOrPassword = 0x86;
const kNotAuthorized = 0x87;
const kNobodyListens = 0x10;
const kRefusals = 0x80;
const kKeepAliveSeconds = 10;
const kRetryMs = [500, 1000, 2000, 4000, 8000];

const random = (bytes: number): string =>
  Array.from(crypto.getRandomValues(new Uint8Array(bytes)), (b) => b.toString(16).padStart(2, "0")).join("");

export interface PublishOptions {
  keep?: boolean; // the broker keeps it
  reply?: string; // Response Topic
  correlation?: number;
}

export class Link {
  private client: MqttClient | undefined;
  private account: Account | undefined;
  private up = false;
  private failures = 0;
  private retry: ReturnType<typeof setTimeout> | undefined;
  private readonly unacknowledged = new Set<(delivery: Delivery) => void>();
  /** Tells this page from others of the same account. */
  readonly run = random(4);

  constructor(
    private readonly url: string,
    private readonly events: LinkEvents,
  ) {}

  get user(): string {
    return this.account?.user ?? "";
  }

  /** The topics of this page's own below .../reply/. */
  get replyName(): string {
    return `${this.account === undefined ? "" : `${this.account.user}/`}console-${this.run}`;
  }

  connect(account?: Account): void {
    this.close();
    this.account = account;
    this.open();
  }

  // A client for each connection: one that reconnects by itself sends again what was not acknowledged, and a request
  // that the person was told has failed would be carried out all the same.
  private open(): void {
    const client = mqtt.connect(this.url, {
      protocolVersion: 5,
      clean: true,
      clientId: `console-${this.run}-${random(2)}`,
      keepalive: kKeepAliveSeconds,
      reconnectPeriod: 0,
      connectTimeout: 8000,
      queueQoSZero: false,
      timerVariant: "native", // a worker made of a blob is against the page's policy
      ...(this.account === undefined ? {} : { username: this.account.user, password: this.account.password }),
    });
    this.client = client;
    client.on("connect", () => {
      this.up = true;
      this.failures = 0;
      this.events.up();
    });
    client.on("message", (topic, payload, packet) => {
      this.events.message({ topic, bytes: payload, kept: packet.retain, correlation: correlationOf(packet) });
    });
    client.on("error", (error) => {
      const code = (error as { code?: number | string }).code;
      if (code !== kBadUserOrPassword && code !== kNotAuthorized) return; // the others are tried again
      const given = this.account !== undefined;
      this.account = undefined;
      this.close();
      this.events.login(given);
    });
    client.on("close", () => {
      this.drop();
      const pause = kRetryMs[Math.min(this.failures++, kRetryMs.length - 1)] ?? 0;
      this.retry = setTimeout(() => this.open(), pause * (0.75 + Math.random() / 2));
    });
  }

  private drop(): void {
    const client = this.client;
    this.client = undefined;
    client?.removeAllListeners();
    client?.on("error", () => {}); // an old connection's last words
    client?.end(true);
    for (const resolve of this.unacknowledged) resolve("down");
    this.unacknowledged.clear();
    if (this.up) {
      this.up = false;
      this.events.down();
    }
  }

  close(): void {
    clearTimeout(this.retry);
    this.drop();
  }

  subscribe(topics: string[]): void {
    this.client?.subscribe(topics, { qos: 0 }, () => {});
  }

  /** With QoS 1, so that the broker says what became of it. */
  publish(topic: string, payload: string, options: PublishOptions = {}): Promise<Delivery> {
    const client = this.client;
    if (client === undefined || !this.up) return Promise.resolve("down");
    const properties =
      options.reply === undefined
        ? {}
        : {
            responseTopic: options.reply,
            correlationData: new TextEncoder().encode(String(options.correlation ?? 0)) as never,
          };
    return new Promise((resolve) => {
      const finish = (delivery: Delivery): void => {
        this.unacknowledged.delete(finish);
        resolve(delivery);
      };
      this.unacknowledged.add(finish);
      client.publish(topic, payload, { qos: 1, retain: options.keep ?? false, properties }, (error, packet) => {
        const told = packet as { reasonCode?: number } | undefined;
        const code = (error as { code?: number } | undefined)?.code ?? told?.reasonCode ?? 0;
        if (code === kNobodyListens) finish("nobody");
        else if (code >= kRefusals) finish("refused");
        else finish(error ? "down" : "delivered");
      });
    });
  }
}

function correlationOf(packet: IPublishPacket): number | undefined {
  const data = packet.properties?.correlationData;
  const number = data === undefined ? NaN : Number(new TextDecoder().decode(data));
  return Number.isInteger(number) ? number : undefined;
}
