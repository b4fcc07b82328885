import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { after, afterEach, before, test } from "node:test";
import type { Locator, Page } from "playwright-core";
import { RealDevice, kDevicePage } from "../real_device";
import { Hub, closeBrowser, closePages, openBrowser, openPage, picture, until, violations } from "../rig";

const device = new RealDevice();
let hub: Hub;

before(async () => {
  await openBrowser();
  hub = await Hub.start();
  await device.start();
  device.join(hub.plain, "garage", "L1-A-001", "configure");
});

afterEach(closePages);

after(async () => {
  await device.stop();
  await hub.stop();
  await closeBrowser();
});

const form = (page: Page, command: string): Locator => page.locator(`[data-command="${command}"]`);

/** Chooses, applies and confirms; what the page then says. */
async function choose(page: Page, command: string, path: string, value: string): Promise<void> {
  const here = form(page, command);
  await here.locator(`[data-path="${path}"]`).selectOption(value);
  await here.locator('[data-action="apply"]').click();
  await here.locator('[data-action="confirm"]').click();
}

const result = (page: Page, command: string, state: string): Promise<void> =>
  form(page, command).locator(`[data-field="result"][data-state="${state}"]`).waitFor();

const baud = (): unknown => device.get("get_ttyio_cfg").baudrate;

test("a device's own page shows it, and a new position takes effect", async () => {
  const page = await openPage(kDevicePage);
  const field = (name: string): Promise<string> =>
    page.locator(`[data-device="device"] [data-field="${name}"]`).innerText();
  await page.waitForSelector('[data-device="device"]');
  await until("its spaces", async () => (await field("spaces")) === "3" && (await field("free")) === "3");
  assert.equal(await field("state"), "ok");
  await choose(page, "set_dev_pos", "body.pos", "1");
  await result(page, "set_dev_pos", "done");
  assert.equal(device.get("get_net_status").l_totles, 3);
  await page.locator('[data-direction="left"]').getByText("3 of 3").waitFor();
  device.parkctl("result", "--space", "1", "--occupied", "--plate", "京A12345", "--name", "A-101");
  await page.locator('[data-space="1"]').getByText("occupied, 京A12345").waitFor();
  await until("one space is taken", async () => (await field("free")) === "0");
  await page.locator('[data-field="frames"]').getByText("license=京A12345 framestatus=occupied").waitFor();
  await page.locator('[data-field="events"]').getByText("the device shows occupied").waitFor();
  assert.deepEqual(await violations(page), []);
  await page.evaluate(() => scrollTo(0, 0));
  await picture(page, "console-own-1440");
});

test("a stored value that makes no sense is shown as it is, with its fault", async () => {
  const stored = '{"ttyionum":2,"baudrate":12345,"checkbit":0,"databit":8,"stopbit":1}';
  device.parkctl("request", "--force", "set_ttyio_cfg", stored);
  const page = await openPage(`${kDevicePage}#/device`);
  const line = form(page, "set_ttyio_cfg");
  await line.locator('[data-fault="body.baudrate"]').getByText("12345 is none of 300, 1200").waitFor();
  assert.equal(await line.locator('[data-path="body.baudrate"]').inputValue(), "12345");
  await line.locator('[data-action="apply"]').click();
  await line.locator('[data-field="result"][data-state="failed"]').getByText("Not sent").waitFor();
  assert.equal(baud(), 12345);
  const name = form(page, "set_ibc_name").locator('[data-path="body.name"]');
  await name.fill("Einfahrt öööö");
  await form(page, "set_ibc_name").locator('[data-fault="body.name"]').getByText("17 bytes, at most 15 fit").waitFor();
  assert.equal(await name.inputValue(), "Einfahrt öööö", "what is typed stays while it is told");
  await line.locator('[data-action="default"]').click();
  await until("the fault is gone", async () => (await line.locator("[data-fault]").count()) === 0);
});

test("where nobody takes a change back, the page says so before it sets the line", async () => {
  spawnSync("pkill", ["-9", "-f", "parkctl config guard"]);
  const page = await openPage(kDevicePage);
  const line = form(page, "set_ttyio_cfg");
  await choose(page, "set_ttyio_cfg", "body.baudrate", "9600");
  await line.getByText("nobody on this device can take the change back").waitFor({ timeout: 20_000 });
  assert.equal(baud(), 12345);
  await line.locator('[data-action="apply"]').click();
  await line.getByText("It will stay as it is set").waitFor();
  await line.locator('[data-action="confirm"]').click();
  await result(page, "set_ttyio_cfg", "done");
  assert.equal(baud(), 9600);
});

test("from the site: a change that is not kept goes back, also when the page is closed", async () => {
  const address = `${hub.address}#/device/L1-A-001`;
  const page = await openPage(address, { width: 360, height: 740 });
  await choose(page, "set_ttyio_cfg", "body.baudrate", "300");
  const keep = form(page, "set_ttyio_cfg").locator('[data-action="keep"]');
  await keep.waitFor();
  assert.match(await keep.innerText(), /\d+ s/);
  assert.equal(baud(), 300);
  await form(page, "set_ttyio_cfg").scrollIntoViewIfNeeded();
  await picture(page, "console-keep-360");
  await page.context().close();

  const later = await openPage(address);
  await later.getByText("A change of this device was tried").waitFor();
  await until("it goes back by itself", () => baud() === 9600, 90_000);
  await until("the page says so no more", async () => (await later.locator('[data-action="keep"]').count()) === 0);

  await later.reload();
  await choose(later, "set_ttyio_cfg", "body.baudrate", "19200");
  await form(later, "set_ttyio_cfg").locator('[data-action="undo"]').click();
  await form(later, "set_ttyio_cfg").getByText("The device has what it had before").waitFor();
  assert.equal(baud(), 9600);
  await choose(later, "set_ttyio_cfg", "body.baudrate", "19200");
  await form(later, "set_ttyio_cfg").locator('[data-action="keep"]').click();
  await later.getByText("Kept: the change stays").waitFor();
  assert.equal(baud(), 19200);
});

test("a plan is given on the device's page, and its display's direction changes", async () => {
  const client = await hub.connect();
  client.publish("park/garage/plan/other", '{"zone":"L2/B"}', { retain: true });
  client.publish("park/garage/counts/other/L2/B", '{"spaces":5,"free":4}', { retain: true });
  const page = await openPage(`${hub.address}#/device/L1-A-001`);
  const plan = form(page, "plan");
  await page.locator('[data-device="L1-A-001"]').getByText("no plan", { exact: true }).waitFor();
  await plan.locator('[data-path="zone"]').fill("L1 A");
  await plan.locator('[data-fault="zone"]').waitFor();
  await plan.locator('[data-path="zone"]').fill("L1/A");
  await plan.locator('[data-path="shows.left"]').selectOption("L2/B");
  await plan.locator('[data-action="apply"]').click();
  await plan.locator('[data-field="difference"]').getByText("left: nothing → L2/B").waitFor();
  await plan.locator('[data-action="confirm"]').click();
  await plan.locator('[data-field="result"][data-state="done"]').waitFor();
  await page.locator('[data-device="L1-A-001"] [data-field="state"]').getByText("ok", { exact: true }).waitFor();
  await until("the device counts what its plan says", () => device.get("get_net_status").l_frees === 4);
  await page.locator('[data-direction="left"]').getByText("4 of 5").waitFor({ timeout: 20_000 });
});
