// The page with three thousand devices: how soon something useful is seen, how long frames take at fifty messages a second,
// and what an hour of messages leaves in memory. Prints a table.
//   node page.mjs [--quick]     quick: a tenth of the messages
import { statSync, readFileSync } from "node:fs";
import { gzipSync } from "node:zlib";
import { Hub, MadeUpSite, closeBrowser, kPage, openBrowser, openPage, until } from "../../console/tests/rig";

const kDevices = 3000;
const kRate = 50; // messages a second
const kHour = 3600 * kRate;
const kHurry = 20; // times faster than the hour really goes
const quick = process.argv.includes("--quick");

const rows: [string, string, string][] = [];
const row = (what: string, measured: string, bound: string): void => void rows.push([what, measured, bound]);
const pause = (ms: number): Promise<void> => new Promise((done) => setTimeout(done, ms));
const share = (sorted: number[], part: number): number => sorted[Math.floor((sorted.length - 1) * part)] ?? 0;

/** Counts and healths of one device after another, as relays say them. */
class Chatter {
  said = 0;
  private readonly names: string[];

  constructor(private readonly site: MadeUpSite) {
    this.names = [...site.spaces.keys()];
  }

  /** So many messages a second, until it has said so many. */
  async talk(rate: number, messages: number): Promise<void> {
    const begun = Date.now();
    const end = this.said + messages;
    const first = this.said;
    while (this.said < end) {
      const due = Math.min(messages, Math.floor(((Date.now() - begun) * rate) / 1000));
      for (; this.said - first < due; ++this.said) this.say();
      await pause(20);
    }
  }

  private say(): void {
    const name = this.names[(this.said * 7) % this.names.length] ?? "";
    const known = this.site.spaces.get(name);
    if (known === undefined) return;
    known.free = (known.free + 1) % 4;
    if (this.said % 2 === 0) this.site.send(`counts/${name}/${known.zone}`, { spaces: 3, free: known.free });
    else this.site.send(`health/${name}`, this.site.health(name));
  }
}

async function main(): Promise<void> {
  const page = readFileSync(kPage);
  row("the file", `${Math.round(statSync(kPage).size / 1000)} kB`, "700 kB");
  row("the file, compressed", `${Math.round(gzipSync(page, { level: 9 }).length / 1000)} kB`, "250 kB");

  await openBrowser();
  const hub = await Hub.start();
  const site = new MadeUpSite(await hub.connect());
  for (const count of [300, kDevices]) {
    site.fill(count);
    await pause(2000);
    const times: number[] = [];
    for (let i = 0; i < 5; ++i) {
      const tab = await openPage(hub.address, { width: 1440, height: 900 });
      await tab.waitForSelector("[data-zone]");
      times.push(await tab.evaluate(() => performance.now()));
      await tab.context().close();
    }
    const seen = share(
      times.sort((a, b) => a - b),
      0.5,
    );
    row(`first useful sight, ${count} devices`, `${Math.round(seen)} ms`, count === 300 ? "1,000 ms" : "");
  }

  const tab = await openPage(hub.address, { width: 1440, height: 900 });
  await tab.waitForSelector("[data-zone]");
  const devtools = await tab.context().newCDPSession(tab);
  await devtools.send("Performance.enable");
  const metric = async (name: string): Promise<number> => {
    const { metrics } = await devtools.send("Performance.getMetrics");
    return metrics.find((one) => one.name === name)?.value ?? 0;
  };
  const heap = async (): Promise<number> => {
    await devtools.send("HeapProfiler.collectGarbage");
    return (await metric("JSHeapUsedSize")) / 1e6;
  };

  const chatter = new Chatter(site);
  await tab.evaluate(() => {
    const frames: number[] = [];
    (globalThis as unknown as { frames: number[] }).frames = frames;
    let last = performance.now();
    const frame = (now: number): void => {
      frames.push(now - last);
      last = now;
      requestAnimationFrame(frame);
    };
    requestAnimationFrame(frame);
  });
  const seconds = quick ? 5 : 30;
  const busy = await metric("TaskDuration");
  await chatter.talk(kRate, kRate * seconds);
  const frames = await tab.evaluate(() => (globalThis as unknown as { frames: number[] }).frames.splice(0));
  const worked = (await metric("TaskDuration")) - busy;
  frames.sort((a, b) => a - b);
  row(`frames at ${kRate} messages a second, median`, `${share(frames, 0.5).toFixed(1)} ms`, "");
  row("the same, 95th percentile", `${share(frames, 0.95).toFixed(1)} ms`, "50 ms");
  row("the page's thread is busy", `${Math.round((100 * worked) / seconds)} %`, "");

  const messages = quick ? kHour / 10 : kHour;
  await chatter.talk(kRate * kHurry, messages / 10); // what is kept once is there after this
  const before = await heap();
  await chatter.talk(kRate * kHurry, messages);
  const growth = (await heap()) - before;
  row(
    `memory after the messages of ${quick ? "six minutes" : "an hour"}`,
    `${growth >= 0 ? "+" : ""}${growth.toFixed(1)} MB of ${before.toFixed(1)}`,
    "20 MB",
  );
  await until("the page follows", async () => (await tab.locator('body[data-connection="up"]').count()) === 1);

  console.log("| | measured | bound |\n|---|---|---|");
  for (const cells of rows) console.log(`| ${cells.join(" | ")} |`);
  await closeBrowser();
  await site.end();
  await hub.stop();
}

await main();
