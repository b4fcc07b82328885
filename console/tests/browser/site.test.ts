import assert from "node:assert/strict";
import { after, afterEach, before, test } from "node:test";
import type { Page } from "playwright-core";
import { Hub, MadeUpSite, closeBrowser, closePages, openBrowser, openPage, picture, until, violations } from "../rig";

let hub: Hub;
let site: MadeUpSite;

before(async () => {
  await openBrowser();
  hub = await Hub.start();
  site = new MadeUpSite(await hub.connect());
  site.dead.add("L2-C-107").add("L3-A-210");
  begin();
  site.live(5000);
});

/** Three hundred devices, of which one is gone and one has a silent program. */
function begin(): void {
  site.fill(300);
  site.send("health/L2-C-107", { online: false });
  site.send("health/L3-A-210", site.health("L3-A-210", { daemon: "silent" }));
}

afterEach(closePages);

after(async () => {
  await site.end();
  await hub.stop();
  await closeBrowser();
});

/** What a field of a device or zone says: "[data-zone=\"L3\"]", "free". */
const field = (page: Page, of: string, name: string): Promise<string> =>
  page.locator(`${of} [data-field="${name}"]`).innerText();

const shows = (page: Page, device: string, state: string): Promise<void> =>
  until(`${device} is ${state}`, async () => (await field(page, `[data-device="${device}"]`, "state")) === state);

test("somebody finds the dead camera among three hundred, and follows it", async () => {
  const page = await openPage(hub.address, { width: 1440 });
  await page.waitForSelector('body[data-connection="up"]');
  await until("all zones", async () => (await page.locator("[data-zone]").count()) === 18);
  await page.getByText("2 of 300 devices are not ok").waitFor();
  const first = page.locator("[data-device]").first();
  assert.equal(await first.getAttribute("data-device"), "L2-C-107", "what is wrong stands first");
  assert.equal(await first.locator('[data-field="state"]').innerText(), "offline");
  await page.fill("#search", "l3/e 2");
  await page.fill("#search", "L2-C-107");
  await until("one device is left", async () => (await page.locator("[data-device]").count()) === 1);
  await page.locator("[data-device] a").click();
  await page.waitForURL(/#\/device\/L2-C-107$/);
  await page.getByText("Its connection to the hub ended").waitFor();
  assert.equal(await field(page, '[data-device="L2-C-107"]', "state"), "offline");
});

test("zones show the sums, and follow what devices say", async () => {
  const page = await openPage(`${hub.address}#/site/zone/L1/A`);
  const free = (): Promise<string> => field(page, '[data-zone="L1/A"]', "free");
  const sum = (): number =>
    [...site.spaces.values()].reduce((all, one) => all + (one.zone === "L1/A" ? one.free : 0), 0);
  await page.waitForSelector('[data-zone="L1/A"]');
  assert.deepEqual([await free(), await field(page, '[data-zone="L1/A"]', "spaces")], [String(sum()), "60"]);
  await until("only the zone's devices", async () => (await page.locator('[data-device^="L2"]').count()) === 0);
  const { free: once } = site.spaces.get("L1-A-000") ?? { free: 0 };
  site.spaces.set("L1-A-000", { zone: "L1/A", free: 3 - once });
  site.say("L1-A-000");
  await until("the sum follows", async () => (await free()) === String(sum()));
});

test("names of strangers stay text, nonsense breaks nothing", async () => {
  site.add("evil", "L1/A", 1, '<script>document.title="taken"</script><img src=x onerror=alert(1)>');
  site.send("health/half", '{"online": tr');
  site.send("counts/half/L1/A", "\u0000\u0001");
  site.send("plan/half", "[1,2");
  const newer = { online: true, daemon: "dreaming", plan: "signed", since: "yesterday", shows: [1], spaces: {} };
  site.send("health/newer", newer);
  const page = await openPage(hub.address);
  await page.waitForSelector('body[data-connection="up"]');
  await page.fill("#search", "evil");
  await page.getByText('<script>document.title="taken"</script>').waitFor();
  assert.notEqual(await page.title(), "taken");
  await page.fill("#search", "half");
  await shows(page, "half", "offline");
  await page.goto(`${hub.address}#/device/half`);
  await page.getByText("Its health cannot be read").waitFor();
  await page.goto(`${hub.address}#/device/newer`);
  await shows(page, "newer", "ok");
  for (const name of ["evil", "half", "newer"]) for (const kind of ["plan", "health"]) site.send(`${kind}/${name}`, "");
  site.spaces.delete("evil");
});

test("the hub dies and comes back while the page is open", async () => {
  const page = await openPage(hub.address, { fails: true });
  await page.waitForSelector('[data-zone="L3"]');
  const free = (): Promise<string> => field(page, '[data-zone="L3"]', "free");
  const before = await free();
  await hub.down();
  await page.waitForSelector('body[data-connection="down"]');
  assert.match(await field(page, "body", "as-of"), /\d\d:\d\d:\d\d/);
  assert.equal(await free(), before, "the last values stay");
  await hub.up();
  await page.waitForSelector('body[data-connection="up"]', { timeout: 20_000 });
  assert.equal(await page.locator('[data-field="as-of"]').count(), 0);
  await until("the site is whole again", async () => (await free()) === before);
  begin(); // the hub kept nothing
});

test("a connection that ends every second leaves the page whole", async () => {
  const page = await openPage(hub.address, { fails: true });
  await page.waitForSelector('[data-zone="L3"]');
  await page.evaluate(() => {
    const Real = WebSocket;
    globalThis.WebSocket = class extends Real {
      constructor(url: string | URL, protocols?: string | string[]) {
        super(url, protocols);
        setTimeout(() => this.close(), 1000);
      }
    } as typeof WebSocket;
  });
  await hub.down();
  await hub.up();
  begin();
  for (let i = 0; i < 3; ++i) {
    await page.waitForSelector('body[data-connection="up"]', { timeout: 20_000 });
    assert.equal(await page.locator("[data-zone]").count(), 18);
    await page.waitForSelector('body[data-connection="down"]', { timeout: 20_000 });
    assert.equal(await page.locator("[data-zone]").count(), 18);
  }
});

test("a phone whose clock is wrong by a year shows the same", async () => {
  const page = await openPage("about:blank", { width: 360, height: 740, fails: true });
  await page.addInitScript(() => {
    const now = Date.now.bind(Date);
    Date.now = () => now() + 365 * 24 * 3600 * 1000;
  });
  await page.goto(hub.address);
  await page.waitForSelector('[data-zone="L1"]');
  await page.fill("#search", "L1-A-005");
  await shows(page, "L1-A-005", "ok");
});

test("nothing that axe calls serious, in the light and the dark, on a phone and on a desk", async () => {
  for (const dark of [false, true]) {
    for (const width of [360, 1440]) {
      const page = await openPage(hub.address, { width, height: 800, dark });
      for (const [name, hash] of [
        ["site", "#/site"],
        ["device", "#/device/L1-B-001"],
        ["plans", "#/plans"],
      ] as const) {
        await page.goto(hub.address + hash);
        await page.waitForSelector(name === "site" ? "[data-zone]" : ".card");
        await page.waitForTimeout(400);
        const found = await violations(page);
        const words = found.map((one) => `${one.id}: ${one.nodes.map((node) => node.html).join(" ")}`);
        assert.deepEqual(words, [], `${name} ${width} ${dark ? "dark" : "light"}`);
        const wide = await page.evaluate(() => document.documentElement.scrollWidth - innerWidth);
        assert.ok(wide <= 0, `${name} at ${width} is ${wide} pixels too wide`);
        if (name === "site") await picture(page, `console-site-${width}${dark ? "-dark" : ""}`);
      }
    }
  }
});

test("everything can be reached with the keyboard alone", async () => {
  const page = await openPage(hub.address);
  await page.waitForSelector("[data-device]");
  const focused = (): Promise<string> =>
    page.evaluate(() => {
      const at = document.activeElement;
      return at?.closest("[data-device]")?.getAttribute("data-device") ?? at?.id ?? "";
    });
  let steps = 0;
  while ((await focused()) !== "search" && ++steps < 80) await page.keyboard.press("Tab");
  await page.keyboard.type("L2-C-107");
  await until("one device is left", async () => (await page.locator("[data-device]").count()) === 1);
  while ((await focused()) !== "L2-C-107" && ++steps < 100) await page.keyboard.press("Tab");
  await page.keyboard.press("Enter");
  await page.waitForURL(/#\/device\/L2-C-107$/);
  assert.ok(steps < 100, "the device was reached");
});
