import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { mkdtempSync, readFileSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join, resolve } from "node:path";
import { after, afterEach, before, test } from "node:test";
import type { Page } from "playwright-core";
import { Hub, MadeUpSite, closeBrowser, closePages, openBrowser, openPage, until } from "../rig";

const etc = mkdtempSync(join(tmpdir(), "console-accounts-"));
const passwords = new Map<string, string>();
let hub: Hub;
let site: MadeUpSite;

/** Accounts as they are made on an installed hub. */
function makeAccount(roles: string, name: string): void {
  const script = resolve("../packaging/site/make-site-account");
  const told = execFileSync(script, [roles, name], {
    env: { ...process.env, BUSINESS_SERVER_SITE_ETC: etc },
    encoding: "utf8",
  });
  passwords.set(name, told.trim().split(" ")[1] ?? "");
}

before(async () => {
  await openBrowser();
  makeAccount("device", "cam");
  makeAccount("viewer", "guard");
  makeAccount("planner,viewer,integrator", "boss");
  hub = await Hub.start({
    passwords: readFileSync(join(etc, "passwords"), "utf8"),
    acl: readFileSync(join(etc, "hub.acl"), "utf8"),
  });
  const boss = await hub.connect("boss", passwords.get("boss"));
  boss.publish("park/garage/plan/cam", '{"zone":"L1"}', { retain: true });
  await boss.endAsync();
  site = new MadeUpSite(await hub.connect("cam", passwords.get("cam")));
  site.spaces.set("cam", { zone: "L1", free: 2 });
  site.live(2000);
});

afterEach(closePages);

after(async () => {
  await site.end();
  await hub.stop();
  rmSync(etc, { recursive: true, force: true });
  await closeBrowser();
});

async function login(page: Page, name: string, password = passwords.get(name) ?? ""): Promise<void> {
  await page.waitForSelector('body[data-connection="login"]');
  await page.fill("#user", name);
  await page.fill("#password", password);
  await page.click("#login");
}

async function opened(name: string, hash: string): Promise<Page> {
  const page = await openPage(hub.address + hash, { fails: true });
  await login(page, name);
  await page.waitForSelector('body[data-connection="up"]');
  return page;
}

test("who has no account is asked for one, and a wrong password is told", async () => {
  const page = await openPage(hub.address, { width: 360, height: 740, fails: true });
  await login(page, "guard", "wrong");
  await page.getByText("does not take this name with this password").waitFor();
  await login(page, "guard");
  await page.waitForSelector('[data-device="cam"]');
  const kept = await page.evaluate(() => JSON.stringify([{ ...localStorage }, { ...sessionStorage }, document.cookie]));
  assert.equal(kept, '[{},{},""]', "nothing is kept unless it is asked for");
  await page.getByRole("button", { name: "Log out" }).click();
  await page.waitForSelector('body[data-connection="login"]');
  await page.getByLabel("Remember my name").check();
  await login(page, "guard");
  await page.waitForSelector('[data-device="cam"]');
  await page.reload();
  await page.waitForSelector("#user");
  assert.equal(await page.inputValue("#user"), "guard");
  assert.equal(await page.inputValue("#password"), "");
});

test("an account that may only look is told so before it presses anything", async () => {
  const page = await opened("guard", "#/device/cam");
  await page.getByText("This account may look, not ask").waitFor();
  await page.getByText("This account may look at plans, not write them").waitFor();
  const enabled = page.locator('[data-action="apply"]:enabled');
  await until("no button can be pressed", async () => (await enabled.count()) === 0);
});

test("an answer that comes too late is told, and changes nothing by itself", async () => {
  const answers: (() => void)[] = [];
  site.answer = (_, request) => {
    if (request.type === "get_dev_pos") return { state: 200, error_msg: "All done", body: { pos: 0 } };
    if (request.type !== "set_dev_pos") return { state: 404, error_msg: "set error" };
    return new Promise((done) => answers.push(() => done({ state: 200, error_msg: "All done" })));
  };
  const page = await opened("boss", "#/device/cam");
  const form = page.locator('[data-command="set_dev_pos"]');
  await form.locator('[data-path="body.pos"]').selectOption("2");
  await form.locator('[data-action="apply"]').click();
  await form.locator('[data-action="confirm"]').click();
  await form.getByText("did not answer in time").waitFor({ timeout: 20_000 });
  answers.forEach((answer) => answer());
  await form.getByText("Its answer has come since").waitFor();
  assert.equal(await form.locator('[data-field="result"]').getAttribute("data-state"), "failed");
});

test("plans of several devices are changed together, and as a file", async () => {
  const boss = await hub.connect("boss", passwords.get("boss"));
  for (const name of ["a", "b", "c"]) boss.publish(`park/garage/plan/${name}`, '{"zone":"L2/B"}', { retain: true });
  const page = await opened("boss", "#/plans");
  for (const name of ["a", "b"]) await page.getByLabel(`Choose ${name}`, { exact: true }).check();
  await page.fill("#together-zone", "L2/C");
  await page.click('[data-action="together-zone"]');
  await page.fill("#together-shows", "L7");
  await page.click('[data-action="together-add"]');
  await page.locator('[data-fault="devices.a.shows.left"]').waitFor();
  await page.click('[data-action="apply"]');
  await page.locator('[data-field="result"][data-state="failed"]').waitFor();
  await page.click('[data-action="together-remove"]');
  await page.click('[data-action="apply"]');
  await page.click('[data-action="confirm"]');
  await page.locator('[data-field="result"][data-state="done"]').waitFor();
  await page.click('[data-action="file-show"]');
  const file = JSON.parse(await page.inputValue("#site-file")) as { devices: Record<string, { zone: string }> };
  const zones = ["a", "b", "c"].map((name) => file.devices[name]?.zone);
  assert.deepEqual(zones, ["L2/C", "L2/C", "L2/B"]);
  await page.fill("#site-file", JSON.stringify({ ...file, devices: { ...file.devices, c: { zone: 7 } } }));
  await page.click('[data-action="file-take"]');
  await page.locator('[data-fault="site-file"]').getByText("c zone: 7 is a whole number").waitFor();
});
