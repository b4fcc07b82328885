// A hub with made-up devices, and a browser that looks at it: what the tests of the page stand on.
import assert from "node:assert/strict";
import { spawn, type ChildProcess } from "node:child_process";
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { createServer } from "node:net";
import { tmpdir } from "node:os";
import { dirname, join, resolve } from "node:path";
import type { AxeResults } from "axe-core";
import mqtt, { type MqttClient } from "mqtt";
import { chromium, type Browser, type BrowserContext, type Page } from "playwright-core";

export const kPage = resolve(process.env.CONSOLE_PAGE ?? "build/release/share/console/index.html");

export async function freePort(): Promise<number> {
  const server = createServer();
  await new Promise<void>((done) => server.listen(0, "127.0.0.1", done));
  const address = server.address();
  await new Promise((done) => server.close(done));
  return typeof address === "object" && address !== null ? address.port : 0;
}

/** Waits for a condition with room for slow machines. */
export async function until(
  what: string,
  condition: () => boolean | Promise<boolean>,
  limitMs = 20_000,
): Promise<void> {
  const end = Date.now() + limitMs;
  while (!(await condition())) {
    if (Date.now() > end) throw new Error(`not seen in ${limitMs} ms: ${what}`);
    await new Promise((done) => setTimeout(done, 50));
  }
}

export interface HubAccounts {
  passwords: string; // the broker's files
  acl: string;
}

/** A broker that hands out the page and carries a site. */
export class Hub {
  private broker: ChildProcess | undefined;
  private readonly clients: MqttClient[] = []; // one that a failed test left would keep the run from ending
  private readonly directory = mkdtempSync(join(tmpdir(), "console-hub-"));

  private constructor(
    readonly port: number,
    readonly plain: number,
    accounts?: HubAccounts,
  ) {
    const lines = [
      `listener ${plain} 127.0.0.1`,
      "socket_domain ipv4",
      `listener ${port} 127.0.0.1`,
      "protocol websockets",
      "socket_domain ipv4",
      `http_dir ${dirname(kPage)}`,
      "message_size_limit 65536",
      "persistence false",
      "set_tcp_nodelay true",
      ...(process.getuid?.() === 0 ? ["user root"] : []),
    ];
    if (accounts === undefined) {
      lines.push("allow_anonymous true");
    } else {
      const passwords = join(this.directory, "passwords");
      writeFileSync(passwords, accounts.passwords, { mode: 0o600 });
      writeFileSync(join(this.directory, "acl"), accounts.acl, { mode: 0o600 });
      lines.push("allow_anonymous false", `password_file ${passwords}`, `acl_file ${join(this.directory, "acl")}`);
    }
    writeFileSync(join(this.directory, "mosquitto.conf"), lines.join("\n") + "\n");
  }

  static async start(accounts?: HubAccounts): Promise<Hub> {
    const hub = new Hub(await freePort(), await freePort(), accounts);
    await hub.up();
    return hub;
  }

  get address(): string {
    return `http://127.0.0.1:${this.port}/`;
  }

  async up(): Promise<void> {
    this.broker = spawn("mosquitto", ["-c", join(this.directory, "mosquitto.conf")], { stdio: "ignore" });
    await until("the hub hands out the page", async () => {
      const answer = await fetch(this.address).catch(() => undefined);
      await answer?.arrayBuffer();
      return answer?.ok === true;
    });
  }

  async down(): Promise<void> {
    const broker = this.broker;
    this.broker = undefined;
    if (broker === undefined) return;
    const gone = new Promise((done) => broker.once("exit", done));
    broker.kill("SIGKILL");
    await gone;
  }

  async connect(user?: string, password?: string): Promise<MqttClient> {
    const client = await mqtt.connectAsync(`mqtt://127.0.0.1:${this.plain}`, {
      protocolVersion: 5,
      username: user,
      password,
      reconnectPeriod: 300,
    });
    this.clients.push(client);
    return client;
  }

  async stop(): Promise<void> {
    for (const client of this.clients) client.end(true);
    await this.down();
    rmSync(this.directory, { recursive: true, force: true });
  }
}

type Reply = Record<string, unknown> | Buffer | undefined;
type LaterReply = Reply | Promise<Reply>;

/** Devices that exist only as messages: their plans, healths and counts, and their answers to requests. */
export class MadeUpSite {
  private timer: ReturnType<typeof setInterval> | undefined;
  readonly dead = new Set<string>();
  readonly spaces = new Map<string, { zone: string; free: number }>();
  /** Answers a device's request; nothing: it keeps silent. */
  answer: (device: string, request: Record<string, unknown>) => LaterReply = () => ({
    state: 403,
    error_msg: "remote requests are off",
  });

  constructor(
    private readonly client: MqttClient,
    readonly site = "garage",
  ) {
    client.on("message", (topic, payload, packet) => {
      const device = topic.split("/")[3] ?? "";
      const to = packet.properties?.responseTopic;
      if (payload.length === 0 || to === undefined) return;
      const request = JSON.parse(payload.toString()) as Record<string, unknown>;
      void Promise.resolve(this.answer(device, request)).then((reply) => {
        if (reply === undefined) return;
        const bytes = Buffer.isBuffer(reply) ? reply : JSON.stringify({ type: request.type, ...reply });
        client.publish(to, bytes, { properties: { correlationData: packet.properties?.correlationData } });
      });
    });
    const listen = (): unknown => client.subscribe([`park/${site}/request/+`, `park/${site}/request/cam`]);
    listen();
    client.on("connect", listen);
  }

  send(topic: string, payload: object | string, kept = true): void {
    this.client.publish(`park/${this.site}/${topic}`, typeof payload === "string" ? payload : JSON.stringify(payload), {
      retain: kept,
    });
  }

  add(name: string, zone: string, free: number, label?: string): void {
    this.spaces.set(name, { zone, free });
    this.send(`plan/${name}`, { ...(label === undefined ? {} : { name: label }), zone, shows: { left: [zone] } });
    this.say(name);
  }

  health(name: string, change: object = {}): object {
    const { zone, free } = this.spaces.get(name) ?? { zone: "L1", free: 0 };
    return {
      online: true,
      run: "5e0c11a7",
      daemon: "ok",
      version: "1.1.0",
      since: 1763900000,
      plan: "ok",
      spaces: 3,
      free,
      shows: { left: { devices: 1, spaces: 3, free, missing: [], missing_count: 0 } },
      rejected: 0,
      zone,
      ...change,
    };
  }

  say(name: string): void {
    const { zone, free } = this.spaces.get(name) ?? { zone: "L1", free: 0 };
    this.send(`health/${name}`, this.health(name));
    this.send(`counts/${name}/${zone}`, { spaces: 3, free });
  }

  /** Three hundred devices on three levels with five zones each. */
  fill(count = 300): void {
    for (let i = 0; i < count; ++i) {
      const level = Math.floor((i * 3) / count) + 1;
      const zone = `L${level}/${"ABCDE"[i % 5]}`;
      const name = `L${level}-${"ABCDE"[i % 5]}-${String(i).padStart(3, "0")}`;
      this.add(
        name,
        zone,
        ((i * 2654435761) >>> 9) % (zone === "L2/C" ? 1 : 4),
        `Level ${level} ${["North", "East", "South", "West", "Ramp"][i % 5]} ${i}`,
      );
    }
  }

  /** Everything once more, as relays do; every period ms. */
  live(period: number): void {
    this.timer = setInterval(() => {
      for (const name of this.spaces.keys()) if (!this.dead.has(name)) this.say(name);
    }, period);
  }

  async end(): Promise<void> {
    clearInterval(this.timer);
    await this.client.endAsync(true);
  }
}

let browser: Browser | undefined;
/** Of the pages that are open. */
const open: { context: BrowserContext; unwanted: string[] }[] = [];

export async function openBrowser(): Promise<void> {
  browser = await chromium.launch({
    executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
    args: ["--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"],
  });
}

export async function closeBrowser(): Promise<void> {
  await browser?.close();
}

export interface Look {
  width?: number;
  height?: number;
  dark?: boolean;
  fails?: boolean; // the page may say so: what it asks is refused, or its hub is away
}

export async function openPage(
  address: string,
  { width = 1440, height = 900, dark = false, fails = false }: Look = {},
): Promise<Page> {
  if (browser === undefined) throw new Error("no browser");
  const context = await browser.newContext({ viewport: { width, height }, colorScheme: dark ? "dark" : "light" });
  const page = await context.newPage();
  const unwanted: string[] = [];
  open.push({ context, unwanted });
  page.on("pageerror", (error) => unwanted.push(String(error)));
  page.on("console", (message) => {
    if (message.type() === "error" && !fails) unwanted.push(message.text());
  });
  page.on("request", (request) => {
    const url = new URL(request.url());
    if (url.protocol !== "data:" && url.hostname !== "127.0.0.1") unwanted.push(request.url());
  });
  if (address.startsWith("http")) await page.goto(address);
  return page;
}

/** After each test: no page has said an error or asked another host; they are closed. */
export async function closePages(): Promise<void> {
  for (const { context, unwanted } of open.splice(0)) {
    await context.close();
    assert.deepEqual(unwanted, []);
  }
}

/** What axe finds serious or worse. */
export async function violations(page: Page): Promise<AxeResults["violations"]> {
  const axe = createRequire(import.meta.url).resolve("axe-core");
  const source = readFileSync(axe, "utf8");
  await page.evaluate(source);
  const found = await page.evaluate(() => (window as unknown as { axe: { run(): Promise<AxeResults> } }).axe.run());
  return found.violations.filter((one) => one.impact === "serious" || one.impact === "critical");
}

/** Leaves a picture for docs/ where one is asked for. */
export async function picture(page: Page, name: string): Promise<void> {
  const directory = process.env.SCREENSHOTS;
  if (directory === undefined) return;
  if (name.startsWith("console-site")) await page.waitForTimeout(32_000); // until the plot has a line
  await page.screenshot({ path: join(directory, `${name}.png`) });
}
