import assert from "node:assert/strict";
import { test } from "node:test";
import { Requests, type Answer, type Delivery, type Target } from "../../src/ask/requests";
import { Settings } from "../../src/ask/settings";
import type { Form } from "../../src/ask/form_state";
import { kGroups } from "../../src/contract/commands";
import { contract } from "../../src/contract/data";
import type { Json, JsonObject } from "../../src/model/documents";

interface Sent {
  topic: string;
  request: JsonObject;
  correlation: number;
}

/** A broker and a clock that the test turns by hand. */
class Outside {
  readonly sent: Sent[] = [];
  delivery: Delivery = "delivered";
  time = 0;
  private timers: { at: number; what: () => void }[] = [];
  readonly requests = new Requests({
    publish: (topic, payload, correlation) => {
      this.sent.push({ topic, request: JSON.parse(payload) as JsonObject, correlation });
      return Promise.resolve(this.delivery);
    },
    after: (ms, what) => {
      const timer = { at: this.time + ms, what };
      this.timers.push(timer);
      return () => (this.timers = this.timers.filter((one) => one !== timer));
    },
  });

  pass(ms: number): void {
    this.time += ms;
    for (const timer of this.timers.filter((one) => one.at <= this.time)) timer.what();
    this.timers = this.timers.filter((one) => one.at > this.time);
  }

  reply(correlation: number, document: unknown): void {
    this.requests.take(correlation, new TextEncoder().encode(JSON.stringify(document)));
  }
}

const kTarget: Target = { topic: "park/garage/request/cam", timeoutMs: 8000 };
const turn = (): Promise<void> => new Promise((done) => setImmediate(done));

test("eight requests are open at a device, the ninth waits, another device does not", async () => {
  const outside = new Outside();
  const answers: Answer[] = [];
  for (let i = 0; i < 9; ++i)
    void outside.requests.ask(kTarget, { type: `get_${i}` }).then((answer) => answers.push(answer));
  void outside.requests.ask({ ...kTarget, topic: "park/garage/request/other" }, { type: "get_x" });
  await turn();
  assert.deepEqual([outside.sent.length, outside.requests.openAt(kTarget.topic)], [9, 8]);
  outside.reply(outside.sent[3]?.correlation ?? 0, { state: 200, error_msg: "All done", body: { pos: 1 } });
  await turn();
  assert.equal(outside.sent[9]?.request.type, "get_8");
  assert.deepEqual(answers, [{ kind: "answer", state: 200, error: "All done", body: { pos: 1 } }]);
});

test("a request ends once, whatever happens", async () => {
  const cases: [string, (outside: Outside) => void, Answer["kind"]][] = [
    ["answered", (o) => o.reply(o.sent[0]?.correlation ?? 0, { state: 403, error_msg: "no" }), "answer"],
    ["bytes", (o) => o.requests.take(o.sent[0]?.correlation ?? 0, new Uint8Array(968)), "bytes"],
    ["silence", (o) => o.pass(8000), "late"],
    ["connection lost", (o) => o.requests.down(), "down"],
  ];
  for (const [name, happens, kind] of cases) {
    const outside = new Outside();
    const asked = outside.requests.ask(kTarget, { type: "get_dev_pos" });
    await turn();
    happens(outside);
    outside.pass(10_000);
    assert.equal((await asked).kind, kind, name);
    assert.equal(outside.requests.openAt(kTarget.topic), 0, name);
  }
  for (const delivery of ["refused", "nobody", "down"] as const) {
    const outside = new Outside();
    outside.delivery = delivery;
    assert.equal((await outside.requests.ask(kTarget, { type: "x" })).kind, delivery);
  }
});

test("an answer after the time-out is told, once, and not taken for another's", async () => {
  const outside = new Outside();
  let late = 0;
  const first = outside.requests.ask(kTarget, { type: "set_dev_pos" }, () => ++late);
  await turn();
  outside.pass(8000);
  assert.equal((await first).kind, "late");
  const second = outside.requests.ask(kTarget, { type: "get_dev_pos" });
  await turn();
  outside.reply(outside.sent[0]?.correlation ?? 0, { state: 200, error_msg: "" });
  outside.reply(outside.sent[0]?.correlation ?? 0, { state: 200, error_msg: "" });
  assert.equal(late, 1);
  outside.reply(outside.sent[1]?.correlation ?? 0, { state: 404, error_msg: "" });
  assert.equal(((await second) as { state?: number }).state, 404);
});

/** A device that stores what it is told, holds the promise to take changes back, and does so when asked. */
class Device {
  readonly outside = new Outside();
  stored: Record<string, Json> = {
    dev_pos: { pos: 0 },
    ttyio_cfg: { ttyionum: 2, baudrate: 9600, checkbit: 0, databit: 8, stopbit: 1 },
  };
  tried: { id: string; before: Record<string, Json> } | undefined;
  answers = new Map<string, JsonObject>(); // instead of what it would answer
  readonly settings = new Settings(
    {
      requests: this.outside.requests,
      target: kTarget,
      changes: kTarget,
      now: () => this.outside.time,
      changed: () => {},
    },
    kGroups.flatMap((group) => group.commands),
    contract,
  );

  form(command: string): Form {
    const form = this.settings.form(command);
    assert.ok(form, command);
    return form;
  }

  private handle({ type, body }: JsonObject): JsonObject {
    const name = String(type);
    const own = this.answers.get(name);
    if (own !== undefined) return own;
    const document = name.slice(4);
    if (name.startsWith("get_") && document in this.stored)
      return { state: 200, error_msg: "", body: this.stored[document] ?? null };
    if (name.startsWith("set_") && document in this.stored) this.stored[document] = body ?? null;
    else if (name === "try_change") {
      const { id, changes } = body as { id: string; changes: JsonObject[] };
      this.tried = { id, before: { ...this.stored } };
      for (const change of changes) this.handle(change);
    } else if (name === "keep_change") this.tried = undefined;
    else if (name === "undo_change") this.takeBack();
    else if (name === "get_change") return { state: 200, error_msg: "All done", body: {} };
    else return { state: 404, error_msg: "set error" };
    return { state: 200, error_msg: "All done" };
  }

  takeBack(): void {
    this.stored = { ...this.tried?.before };
    this.tried = undefined;
  }

  /** Lets the device answer until nothing is asked any more. */
  async run(what?: Promise<void>): Promise<void> {
    for (let quiet = 0; quiet < 3; ) {
      await turn();
      const sent = this.outside.sent.splice(0);
      quiet = sent.length === 0 ? quiet + 1 : 0;
      for (const { request, correlation } of sent) this.outside.reply(correlation, this.handle(request));
    }
    await what;
  }
}

test("apply checks, asks, sets, reads back and tells what is stored", async () => {
  const device = new Device();
  const form = device.form("set_dev_pos");
  await device.run(device.settings.read(form));
  assert.deepEqual([form.phase, form.stored], ["ready", { pos: 0 }]);
  device.settings.apply(form);
  assert.match(form.result?.sentence ?? "", /Nothing to change/);
  device.settings.edit(form, ["pos"], 7);
  device.settings.apply(form);
  assert.deepEqual([form.phase, form.result?.state], ["ready", "failed"]);
  assert.match(form.result?.sentence ?? "", /body\.pos: 7 is none of 0 \(own group\), 1/);
  device.settings.edit(form, ["pos"], 1);
  device.settings.apply(form);
  const changes = device.settings.changes(form).map(({ path, before, after }) => [path, before, after]);
  assert.deepEqual(changes, [["body.pos", 0, 1]]);
  assert.deepEqual(device.stored.dev_pos, { pos: 0 }, "nothing is sent before it is confirmed");
  await device.run(device.settings.confirm(form));
  assert.deepEqual([device.stored.dev_pos, form.result?.state], [{ pos: 1 }, "done"]);
});

test("a device that says yes and stores something else is found out", async () => {
  const device = new Device();
  const form = device.form("set_dev_pos");
  await device.run(device.settings.read(form));
  device.answers.set("set_dev_pos", { state: 200, error_msg: "All done" });
  device.settings.edit(form, ["pos"], 2);
  device.settings.apply(form);
  await device.run(device.settings.confirm(form));
  assert.deepEqual([form.result?.state, form.stored, form.edited], ["failed", { pos: 0 }, { pos: 2 }]);
});

async function tried(device: Device): Promise<Form> {
  const form = device.form("set_ttyio_cfg");
  await device.run(device.settings.read(form));
  device.settings.edit(form, ["baudrate"], 300);
  device.settings.apply(form);
  await device.run(device.settings.confirm(form));
  return form;
}

const baud = (device: Device): Json | undefined => (device.stored.ttyio_cfg as JsonObject).baudrate;

test("a change of the line stays only when it is kept", async () => {
  const kept = new Device();
  const form = await tried(kept);
  assert.deepEqual([form.phase, baud(kept)], ["keep", 300]);
  await kept.run(kept.settings.keep(form));
  assert.deepEqual([form.phase, form.result?.state, baud(kept)], ["ready", "done", 300]);

  const undone = new Device();
  const second = await tried(undone);
  await undone.run(undone.settings.undo(second));
  assert.equal(baud(undone), 9600);
  assert.match(second.result?.sentence ?? "", /what it had before/);

  const forgotten = new Device();
  const third = await tried(forgotten);
  forgotten.outside.pass(59_000);
  forgotten.settings.tick();
  assert.equal(third.phase, "keep");
  forgotten.outside.pass(3000);
  forgotten.takeBack();
  forgotten.settings.tick();
  await forgotten.run();
  assert.deepEqual([third.phase, third.edited], ["ready", forgotten.stored.ttyio_cfg]);
  assert.match(third.result?.sentence ?? "", /Not kept in time.*what it had before/);
});

test("where nobody can take a change back it is not set, and may be set without", async () => {
  const device = new Device();
  device.answers.set("get_change", { state: 403, error_msg: "error type" });
  const form = await tried(device);
  assert.deepEqual([form.phase, form.unguarded, baud(device)], ["ready", true, 9600]);
  device.settings.apply(form);
  await device.run(device.settings.confirm(form));
  assert.equal(baud(device), 300);
  const waits = new Device();
  waits.answers.set("try_change", { state: 409, error_msg: "another change waits" });
  waits.answers.set("get_change", { state: 200, error_msg: "", body: { id: "theirs", seconds_left: 20 } });
  assert.match((await tried(waits)).result?.sentence ?? "", /Another change/);
  assert.equal(waits.settings.waiting?.id, "theirs");
  waits.answers.set("keep_change", { state: 504, error_msg: "the device does not answer" });
  await waits.run(waits.settings.decide("keep_change"));
  assert.deepEqual([waits.settings.decision?.state, waits.settings.waiting?.id], ["failed", "theirs"]);
  waits.answers.delete("keep_change");
  await waits.run(waits.settings.decide("keep_change"));
  assert.deepEqual([waits.settings.decision?.state, waits.settings.waiting], ["done", undefined]);
});
