import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { join } from "node:path";
import { test } from "node:test";
import { Plans } from "../../src/ask/plans";
import { check } from "../../src/contract/check";
import { kGroups } from "../../src/contract/commands";
import { contract } from "../../src/contract/data";
import { defaultOf, differences, withValue } from "../../src/contract/edit";
import { readPlan, type Json, type JsonObject } from "../../src/model/documents";
import { outgoingFrames } from "../../src/model/frames";
import { OwnDevice } from "../../src/model/own";
import { checkSense, faultText, readSiteFile } from "../../src/model/plan_check";
import { readRecord, spaceWords } from "../../src/model/record";
import { parseRoute } from "../../src/model/route";
import { Site } from "../../src/model/site";
import { printable } from "../../src/words";

test("faults are said in the words of the command line, at the same places", () => {
  const line = { ttyionum: 2, baudrate: 9600, checkbit: 0, databit: 8, stopbit: 1 };
  const frame = (...fields: JsonObject[]): Json => ({ pro_cfg: fields });
  const cases: [string, Json][] = [
    ["set_ttyio_cfg", { ...line, baudrate: 12345, stopbit: true }],
    ["set_ttyio_cfg", { baudrate: "fast\u202e" }],
    ["set_ttyio_cfg", { ...line, baudrat: 1, x: 2 }],
    ["set_ttyio_cfg", { ...line, ttyionum: -1, databit: 7.5 }],
    ["set_ext_ttyio_cfg", []],
    ["set_dev_pos", null],
    ["set_ibc_txp", { power: -91 }],
    ["set_ibc_name", { name: "Einfahrt öööö" }],
    ["set_ibc_name", { name: "" }],
    ["set_ibc_name", { name: "a\nb" }],
    ["set_bt", {}],
    ["set_bt", { uuid: "x".repeat(90), major: 65536 }],
    ["set_rs485pro_cfg", frame({ header: "BB88" }, { licence: 1 }, { header: "B" }, { end: "33", license: 1 })],
    ["set_rs485pro_cfg", frame(...Array.from({ length: 21 }, () => ({ license: 1 })))],
    ["set_enc_cfg", { level: 1, data: "MTIzNDU2Nzg=", data_len: 7 }],
    ["set_enc_cfg", { level: 1, data: "no base64!", data_len: 7 }],
    ["set_parking_reserve_cfg", { reservecfg: { reservenum: 2, reserve: [{ plate: "p", startmon: 13 }] } }],
  ];
  const parkctl = join(process.env.BINARIES ?? "../build/release/bin", "parkctl");
  for (const [command, body] of cases) {
    const schema = contract.requests[command];
    assert.ok(schema);
    const ours = check(schema, { type: command, body }).map(({ path, words }) => `${path}: ${words}`);
    const told = spawnSync(parkctl, ["request", command, "-"], { input: JSON.stringify(body), encoding: "utf8" });
    assert.equal(told.status, 3, `${command} ${told.stderr}`);
    assert.deepEqual(ours.sort(), told.stderr.trimEnd().split("\n").sort(), `${command} ${JSON.stringify(body)}`);
  }
});

test("every default is valid", () => {
  for (const { command, get } of kGroups.flatMap((group) => group.commands)) {
    const schema = contract.requests[command];
    assert.ok(schema, command);
    // The identity and the site are each device's own.
    if (get === undefined || get === "get_bt" || get === "get_relay_cfg") continue;
    const standard = defaultOf(schema.properties?.body ?? {}) ?? null;
    assert.deepEqual(check(schema, { type: command, body: standard }), [], command);
  }
});

test("edits touch only their place", () => {
  const before: Json = { list: [{ a: 1 }, { b: 2 }], other: { c: 3 } };
  const after = withValue(before, ["list", 1, "b"], 5);
  assert.deepEqual(after, { list: [{ a: 1 }, { b: 5 }], other: { c: 3 } });
  assert.deepEqual(before, { list: [{ a: 1 }, { b: 2 }], other: { c: 3 } });
  const paths = differences(undefined, before, after).map((one) => one.path);
  assert.deepEqual(paths, ["list[1].b"]);
  assert.deepEqual(differences(undefined, { a: 1, b: 2 }, { b: 2, a: 1 }), [], "the order of members is no difference");
  assert.deepEqual(withValue({ a: 1 }, ["a"], undefined), {});
});

/** A record with one space that has a result. */
function record(space: { plate?: number[]; state?: number; name?: string }): Uint8Array {
  const bytes = new Uint8Array(968);
  const view = new DataView(bytes.buffer);
  bytes.set(space.plate ?? [0x5f, 0xce, 0xde, 0x5f], 0);
  view.setInt32(100, 1, true);
  view.setInt32(112, space.state ?? 0, true);
  bytes.set(new TextEncoder().encode(space.name ?? ""), 120);
  return bytes;
}

test("records and frames are said in the words of the command line", () => {
  assert.equal(readRecord(new Uint8Array(967)), undefined);
  const plate = [0xbe, 0xa9, ...new TextEncoder().encode("A12345")];
  const spaces = readRecord(record({ plate, state: 1, name: "A 1" })) ?? [];
  assert.deepEqual(spaces.map(spaceWords), ["occupied, 京A12345", "no result", "no result"]);
  assert.equal(spaceWords(readRecord(record({}))?.[0] ?? spaces[0]!), "free");
  const net = { totle: 5, free: 2, n_frees: 1, f_frees: 2, l_frees: 4, r_frees: 0 };
  const settings = { proto: 0, f_ena: 1, f_addr: 1, l_ena: 1, l_addr: 2, r_ena: 0, frame1_addr: 5 };
  const list: JsonObject = {
    pro_cfg: [{ header: "BB88" }, { license: 1 }, { framestatus: 1 }, { trigger: 0 }, { freenum: 1 }, { framename: 1 }],
  };
  const words = (change: object): string[] | undefined =>
    outgoingFrames({ settings: { ...settings, ...change }, net, list, spaces })?.map((frame) => frame.words);
  assert.deepEqual(words({}), ["display 1 shows 3", "display 2 shows 4"]);
  assert.deepEqual(words({ proto: 1 }), ["relay 5 is told occupied"]);
  assert.deepEqual(words({ proto: 255 }), []);
  assert.deepEqual(words({ proto: 7 }), ['frame license=京A12345 framestatus=occupied freenum=2 framename="A 1"']);
  assert.equal(outgoingFrames({ settings: undefined, net, list, spaces }), undefined);
});

test("a device's own bus is understood, and strangers' messages on it break nothing", () => {
  const own = new OwnDevice();
  const say = (topic: string, document: unknown): void => {
    own.take(topic, new TextEncoder().encode(typeof document === "string" ? document : JSON.stringify(document)), 1000);
  };
  assert.equal(own.state(0), "offline");
  const cm_dev = [
    [2, 6, 1],
    [335653056, 9, 9],
  ].map(([ip, tn, fn]) => ({ ip, tn, fn }));
  say("BUS_BROADCAST_MESSAGE", { type: "frame_changed", body: { totle: 9, free: 3, cm_dev } });
  assert.deepEqual(own.counts, { spaces: 3, free: 2 });
  assert.deepEqual(own.totals, { spaces: 9, free: 3 });
  say("BUS_BROADCAST_MESSAGE", { type: "ledcolor_changed", body: { led_color: 6 } });
  say("BUS_BROADLISTEN_MESSAGE", { type: "send_ttyio_data", body: { data: "qgEXATCO", data_len: 6 } });
  const frames = ['{"type":"frame_changed"}', '{"type":"ttyio_data_bro","body":{"data":7}}'];
  for (const bad of ["", "null", "[1]", "\u0007", ...frames]) {
    for (const topic of ["BUS_BROADCAST_MESSAGE", "BUS_NET_PUSH", "BUS_BROADLISTEN_MESSAGE", "BUS_SIMULATOR_TRIGGER"])
      say(topic, bad);
  }
  const words = own.events.map((event) => event.words);
  assert.ok(words.includes("LED colour 6 (lines 1 and 3)"), words.join("\n"));
  assert.ok(words.includes("to the serial line 6 bytes: AA 01 17 01 30 8E"), words.join("\n"));
  assert.equal(own.state(70_999), "ok");
  assert.equal(own.state(71_000), "silent");
  say("HTTP_REQUEST_MESSAGE_ROOT", { type: "ClearAllDestAddr" });
  assert.equal(own.state(2000), "implausible");
});

test("site files are refused in the words of the command line", () => {
  const parkctl = join(process.env.BINARIES ?? "../build/release/bin", "parkctl");
  const plan = (zone: string, shows: object = {}): object => ({ zone, shows });
  const many = Array.from({ length: 5000 }, (_, i) => `Zone-of-a-long-name-${i}`);
  const named = (names: string[], planOf: (name: string, i: number) => object): object =>
    Object.fromEntries(names.map((name, i) => [name, planOf(name, i)]));
  const devices: object[] = [
    { a: { zone: "L 1", name: "a\u0007", x: 1, shows: { up: [], left: "L1" } } },
    { "b!": plan("L1"), c: { name: "" }, d: 7, e: plan("1/2/3/4/5/6/7/8/9") },
    {},
    {
      a: plan("L1/A", { left: ["L1", "L1"], right: ["L1/A"], front: ["l1-b", "B", "L7"] }),
      b: plan("L1/B", { group: ["L1/A", "L1", "L1/B"], left: ["L1/A"] }),
    },
    { ...named(many, (zone) => plan(zone)), e: plan("E", { left: many, right: ["E"] }) },
    named(many.slice(0, 3), () => plan("L1", { left: ["L1"] })),
  ];
  const texts = [
    '{"site":"garage","devices":{"a":{"zone":"L1"},"a":{"zone":\n"L1","zone":"L\\u0031"}}}',
    '{"site":"my garage","devices":[],"more":1}',
    "[]",
    ...devices.map((all) => JSON.stringify({ site: "garage", devices: all })),
  ];
  for (const text of texts) {
    const { plans, faults } = readSiteFile(text, "garage");
    const sense = checkSense(plans).filter((fault) => !fault.warning);
    const told = spawnSync(parkctl, ["site", "check", "-"], { input: text, encoding: "utf8" });
    const lines = told.stderr.split("\n").filter((line) => line !== "" && !/^(parkctl: )?\d+ mistakes?$/.test(line));
    assert.deepEqual([...faults, ...sense].map(faultText).sort(), lines.sort(), text.slice(0, 300));
  }
  const other = readSiteFile('{"site":"garage","devices":{"a":{"zone":"L1"}}}', "house");
  assert.deepEqual(other.faults.map(faultText), ['site: the file is for "garage", this is "house"']);
});

test("plans are checked before they are sent", () => {
  const site = new Site("garage");
  const add = (name: string, plan: Json): void =>
    void site.devices.set(name, { name, seenIn: 0, plan: readPlan(plan) as never });
  add("a", { zone: "L1/A", shows: { left: ["L1"] } });
  add("c", { zone: "L1/C" });
  add("z", { zone: "L9", shows: { left: ["L8"] } });
  const plans = new Plans({ site: () => site, publish: () => Promise.resolve("delivered"), changed: () => {} });
  const cases: [() => void, string[]][] = [
    [() => plans.edit("a", { zone: "L 1" }), ["a zone"]],
    [() => plans.editShows("a", "right", ["L7"]), ["a shows.right"]],
    [() => plans.editShows("a", "left", ["L1", "L1"]), ["a shows.left"]],
    [() => plans.editShows("a", "front", ["L1/A"]), ["a shows.front", "a shows.front"]], // nobody else, and counted twice
    [() => plans.edit("a", { name: "x" }), []],
    [() => plans.edit("b!", { zone: "L1" }), ["b! "]],
    [() => plans.edit("c", { zone: "L2" }), ["a shows.left"]], // what was right is wrong by it
  ];
  for (const [edit, places] of cases) {
    plans.discard();
    edit();
    const faults = plans.faults.map((fault) => `${fault.device} ${fault.path}`);
    assert.deepEqual(faults, places);
  }
  plans.apply(["c"]);
  assert.equal(plans.result?.state, "failed");
  plans.discard();
  Object.assign(site.devices.get("c") ?? {}, { planFault: "the plan is no JSON object" });
  plans.edit("c", { zone: "L1/C" });
  assert.deepEqual(plans.edited(), ["c"], "the last good plan is sent in place of one that cannot be read");
  assert.match(plans.changes(["c"])[0]?.lines[0] ?? "", /replaced: the plan is no JSON object/);
  plans.discard();
  assert.deepEqual(plans.takeFile('{"site":"garage","devices":{"a":{"zone":7}}}').length, 1);
  assert.deepEqual(plans.edited(), []);
  assert.deepEqual(plans.takeFile('{"site":"garage","devices":{"a":{"zone":"L2"}}}'), []);
  assert.deepEqual(plans.changes(plans.edited()), [{ device: "a", lines: ["zone: L1/A → L2", "left: L1 → nothing"] }]);
});

test("addresses", () => {
  const cases: [string, object][] = [
    ["", { view: "home" }],
    ["#/site", { view: "site", zone: "" }],
    ["#/site/zone/L2/B", { view: "site", zone: "L2/B" }],
    ["#/site/zone/L2%2FB", { view: "site", zone: "L2/B" }],
    ["#/device/cam-1", { view: "device", device: "cam-1" }],
    ["#/device", { view: "own" }],
    ["#/device/%3Cscript%3E", { view: "own" }],
    ["#/site/zone/%E0%A4%A", { view: "site", zone: "" }],
  ];
  for (const [hash, route] of cases) assert.deepEqual(parseRoute(hash), route, hash);
  assert.equal(printable("a\u202eb\nc<script>"), "a\\xE2\\x80\\xAEb\\x0Ac<script>");
});
