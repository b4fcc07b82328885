import assert from "node:assert/strict";
import { test } from "node:test";
import { ListeningClock } from "../../src/model/clock";
import { History } from "../../src/model/history";
import { parseTopic } from "../../src/model/names";
import { overviewOf, pick, type DeviceRow } from "../../src/model/overview";
import { Site } from "../../src/model/site";

const kHealth = { online: true, run: "5e0c11a7", daemon: "ok", version: "1.1.0", since: 1, plan: "ok", rejected: 0 };

/** A site that is told what the hub carries, second by second. */
class Played {
  readonly site = new Site("garage");
  second = 0;

  constructor() {
    this.site.connected();
  }

  say(topic: string, payload: unknown, kept = false): this {
    const about = parseTopic(`park/garage/${topic}`);
    assert.ok(about, topic);
    const text = typeof payload === "string" ? payload : JSON.stringify(payload);
    this.site.take({ topic: about, payload: text, kept }, this.second * 1000);
    return this;
  }

  at(second: number): this {
    this.second = second;
    return this;
  }

  settled(): this {
    this.site.settled(this.second * 1000);
    return this;
  }

  row(name: string): DeviceRow | undefined {
    return overviewOf(this.site, this.second * 1000).devices.find((row) => row.name === name);
  }

  /** "L1 2/6, L1/A 2/6" */
  zones(): string {
    return overviewOf(this.site, this.second * 1000)
      .zones.map((zone) => `${zone.zone} ${zone.free}/${zone.spaces}`)
      .join(", ");
  }
}

const ok = (name = "cam", zone = "L1/A"): Played =>
  new Played()
    .say(`plan/${name}`, { zone })
    .say(`health/${name}`, kHealth)
    .say(`counts/${name}/${zone}`, { spaces: 3, free: 2 });

test("a device's state is the first that applies", () => {
  const cases: [string, object | string | undefined, number, string][] = [
    ["all is well", kHealth, 0, "ok"],
    ["no health", undefined, 0, "offline"],
    ["last will before everything", { online: false, daemon: "silent" }, 0, "offline"],
    ["a last will stays one", { online: false }, 100, "offline"],
    ["daemon silent before plan", { ...kHealth, daemon: "silent", plan: "none" }, 0, "silent"],
    ["relay unheard", { ...kHealth, daemon: "implausible" }, 70, "silent"],
    ["relay heard just now", { ...kHealth }, 69.9, "ok"],
    ["implausible before plan", { ...kHealth, daemon: "implausible", plan: "unreadable" }, 0, "implausible"],
    ["plan unreadable", { ...kHealth, plan: "unreadable" }, 0, "plan unreadable"],
    ["no plan", { ...kHealth, plan: "none" }, 0, "no plan"],
    ["a newer relay's words", { ...kHealth, daemon: "dreaming", plan: "signed", shows: { up: 4 } }, 0, "ok"],
    ["no JSON keeps the last good one", "{nonsense", 0, "offline"],
  ];
  for (const [name, health, second, state] of cases) {
    const site = new Played().say("plan/cam", { zone: "L1" });
    if (health !== undefined) site.say("health/cam", health);
    assert.equal(site.at(second).row("cam")?.state, state, name);
  }
  assert.equal(ok().say("health/cam", "{nonsense").row("cam")?.state, "ok", "an unreadable health after a good one");
});

test("zones sum the devices that count, as long as they do", () => {
  const site = ok().say("counts/two/L1/B", { spaces: 3, free: 1 }).say("counts/ten/L10", { spaces: 1, free: 1 });
  assert.equal(site.zones(), "L1 3/6, L1/A 2/3, L1/B 1/3, L10 1/1");
  assert.equal(site.at(69.9).zones(), "L1 3/6, L1/A 2/3, L1/B 1/3, L10 1/1");
  site.say("counts/two/L1/B", { spaces: 3, free: 0 });
  assert.equal(site.at(70).zones(), "L1 0/3, L1/A 0/0, L1/B 0/3, L10 0/0", "what was silent for 70 s counts no more");
  const gone = site.row("cam");
  assert.deepEqual([gone?.free, gone?.spaces, gone?.counting], [2, 3, false], "its last numbers stay");
});

test("a kept count is good for 30 s and shortens nothing that was heard live", () => {
  const kept = new Played().say("counts/cam/L1", { spaces: 3, free: 2 }, true);
  assert.equal(kept.at(29.9).zones(), "L1 2/3");
  assert.equal(kept.at(30).zones(), "L1 0/0");
  const live = new Played()
    .say("counts/cam/L1", { spaces: 3, free: 2 })
    .say("counts/cam/L1", { spaces: 3, free: 2 }, true);
  assert.equal(live.at(69).zones(), "L1 2/3");
});

test("a device counts once, where it counted last", () => {
  const moved = ok().say("counts/cam/L2", { spaces: 3, free: 1 }).say("counts/cam/L1/A", "");
  assert.equal(moved.zones(), "L2 1/3", "clearing the old zone takes nothing away");
  assert.equal(moved.say("counts/cam/L2", "").zones(), "L1 0/0, L1/A 0/0");
});

test("malformed counts and plans lose nothing", () => {
  const counts = [[3], [3, 4], [3.5, 1], [-1, -1], [1048577, 0]].map(([spaces, free]) =>
    JSON.stringify({ spaces, free }),
  );
  const bad = ["[]", "{}", "\u0000", ...counts];
  const site = ok();
  for (const payload of bad) assert.equal(site.say("counts/cam/L1/A", payload).zones(), "L1 2/3, L1/A 2/3", payload);
  assert.equal(site.site.rejected, bad.length);
  site.say("plan/cam", { zone: "L1//A" });
  assert.equal(site.row("cam")?.device.plan?.zone, "L1/A", "the last good plan stays");
  assert.match(site.row("cam")?.device.planFault ?? "", /zone/);
});

test("topics of other forms are nobody's", () => {
  const park = ["plan/<script>", "counts/cam", "counts/cam/", "plan/a/b", "counts/cam/a/b/c/d/e/f/g/h/i", "health"];
  for (const topic of ["other/g/plan/a", ...park.map((rest) => `park/garage/${rest}`)])
    assert.equal(parseTopic(topic), undefined, topic);
});

test("what the hub took back while nobody listened is gone, and a hub without its memory takes nothing", () => {
  const site = ok("stays")
    .say("plan/left", { zone: "L2" })
    .say("health/left", kHealth)
    .say("counts/left/L2", { spaces: 3, free: 3 });
  site.site.connected();
  site.say("plan/stays", { zone: "L1/A" }, true).say("health/stays", kHealth, true).settled();
  assert.equal(site.row("left"), undefined);
  assert.equal(site.zones(), "L1 0/0, L1/A 0/0", "a count that the hub no longer keeps has expired");
  site.site.connected();
  site.say("health/stays", kHealth).settled();
  assert.equal(site.row("stays")?.device.plan?.zone, "L1/A", "no plan at all: the hub has forgotten, not the planner");
});

test("a kept health that was known already does not bring a dead relay back", () => {
  const site = ok().at(60);
  site.site.connected();
  site.say("health/cam", kHealth, true);
  assert.equal(site.at(71).row("cam")?.state, "silent");
  site.say("health/cam", { ...kHealth, spaces: 3, free: 1 }, true);
  assert.equal(site.row("cam")?.state, "ok", "another one was said meanwhile");
});

test("search, filters and order find what people look for", () => {
  const site = ok("cam-2", "L2/B").say("plan/cam-10", { zone: "L1", name: "Ramp <b>" }).say("health/cam-10", kHealth);
  site.say("counts/cam-10/L1", { spaces: 3, free: 0 }).say("health/cam-1", { online: false });
  const { devices } = overviewOf(site.site, 0);
  const cases: [object, string][] = [
    [{}, "cam-1 cam-2 cam-10"],
    [{ order: "name", filter: "not ok" }, "cam-1"],
    [{ filter: "free" }, "cam-2"],
    [{ filter: "full" }, "cam-10"],
    [{ search: "l2/b" }, "cam-2"],
    [{ search: "RAMP <b>" }, "cam-10"],
    [{ search: "cam ramp" }, "cam-10"],
    [{ zone: "L2" }, "cam-2"],
    [{ order: "free" }, "cam-2 cam-10 cam-1"],
  ];
  for (const [question, names] of cases) {
    const found = pick(devices, { search: "", zone: "", filter: "all", order: "wrong first", ...question });
    assert.equal(found.map((row) => row.name).join(" "), names, JSON.stringify(question));
  }
});

test("the clock goes only while the page listens", () => {
  const clock = new ListeningClock();
  const steps: [number, boolean, number][] = [
    [1000, false, 0],
    [3000, true, 2000],
    [63_000, true, 62_000],
    [90_000, false, 62_000], // away
    [91_000, true, 63_000],
    [3_600_000, true, 63_000], // slept
    [3_601_000, true, 64_000],
  ];
  for (const [monotonic, listening, time] of steps)
    assert.equal(clock.now(monotonic, listening), time, String(monotonic));
});

test("the plot's hour is an hour, however seldom it was sampled", () => {
  const history = new History();
  for (let minute = 0; minute <= 200; ++minute) history.sample(minute, minute * 60_000);
  assert.deepEqual([history.series(200 * 60_000)[0][0], history.series(200 * 60_000)[0].length], [-60, 61]);
});
