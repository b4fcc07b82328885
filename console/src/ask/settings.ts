// The settings of one device: read, edited, checked, set, read back; and changes that go back unless they are kept.
import type { Command } from "../contract/commands";
import { differences, withValue, type Difference, type Path } from "../contract/edit";
import type { Contract } from "../contract/schema";
import { isObject, type Json, type JsonObject } from "../model/documents";
import { fail, holdsNoPromise, newForm, recheck, type Form, type Phase, type Result } from "./form_state";
import { answerSentence, type Answer, type Requests, type Target } from "./requests";

const kDone = 200;
const kNoSuchChange = 404;
export const kTrySeconds = 60;
const kLookAgainMs = 5000;
const kReadersMax = 4; // leaves half of what may be open at a device to others

/** How a device is asked, and how it is asked to take changes back. */
export interface Way {
  requests: Requests;
  target: Target;
  changes: Target;
  now(): number; // milliseconds of a clock that goes forward
  changed(): void; // something is to be shown anew
}

export class Settings {
  readonly forms: Form[];
  waiting: { id: string; until: number } | undefined; // a change that somebody else, or this page before, has tried
  decision: Result | undefined; // what became of keeping it or taking it back
  private lookAgain: { at: number; until: number } | undefined; // a try whose answer did not come

  constructor(
    private readonly way: Way,
    commands: Command[],
    contract: Contract,
  ) {
    this.forms = commands.flatMap((command) => {
      const schema = contract.requests[command.command];
      return schema === undefined ? [] : [newForm(command, schema)];
    });
  }

  form(command: string): Form | undefined {
    return this.forms.find((form) => form.command.command === command);
  }

  async readAll(): Promise<void> {
    const unread = this.forms.filter((form) => form.phase === "unread" && form.command.get !== undefined);
    const reader = async (): Promise<void> => {
      for (let form = unread.shift(); form !== undefined; form = unread.shift()) await this.read(form);
    };
    await Promise.all(Array.from({ length: kReadersMax }, reader));
    await this.lookForChange();
  }

  /** Reads what is stored; what was being edited gives way. */
  async read(form: Form): Promise<void> {
    form.phase = "reading";
    this.way.changed();
    const answer = await this.get(form);
    if (answer.kind === "answer" && answer.state === kDone) {
      form.stored = answer.body;
      form.edited = answer.body;
      form.phase = "ready";
      form.result = undefined;
      recheck(form);
    } else {
      form.phase = "unread";
      form.result = { state: "failed", sentence: `Not read. ${answerSentence(answer)}` };
    }
    this.way.changed();
  }

  edit(form: Form, path: Path, value: Json | undefined): void {
    form.edited = withValue(form.edited, path, value);
    if (form.phase === "confirm") form.phase = "ready";
    form.result = undefined;
    form.unguarded = false;
    recheck(form);
    this.way.changed();
  }

  /** What would change. A command without a reader always does something. */
  changes(form: Form): Difference[] {
    return differences(form.body, form.stored, form.edited, ["body"]);
  }

  apply(form: Form): void {
    recheck(form);
    if (form.faults.length > 0) {
      fail(form, "Not sent: " + form.faults.map((fault) => `${fault.path}: ${fault.words}`).join("; ") + ".");
    } else if (form.command.get !== undefined && this.changes(form).length === 0) {
      form.result = { state: "done", sentence: "Nothing to change: the device has these values." };
    } else {
      form.phase = "confirm";
      form.result = undefined;
    }
    this.way.changed();
  }

  cancel(form: Form): void {
    if (form.phase === "confirm") form.phase = "ready";
    this.way.changed();
  }

  reset(form: Form, to: Json | undefined): void {
    this.edit(form, [], to);
  }

  async confirm(form: Form): Promise<void> {
    if (form.phase !== "confirm") return;
    this.work(form, "Setting it ...");
    if (form.command.guarded === true && !form.unguarded) await this.tryChange(form);
    else await this.set(form);
    this.way.changed();
  }

  private async set(form: Form): Promise<void> {
    const answer = await this.ask({ type: form.command.command, body: form.edited ?? {} }, form);
    form.phase = "ready";
    form.unguarded = false;
    if (answer.kind !== "answer" || answer.state !== kDone) fail(form, answerSentence(answer));
    else await this.readBack(form);
  }

  /** Says what the device has stored now. What was being edited stays when it is not that. */
  private async readBack(form: Form): Promise<void> {
    if (form.command.get === undefined) {
      form.result = { state: "done", sentence: "The device did it." };
      return;
    }
    const answer = await this.get(form);
    if (answer.kind !== "answer" || answer.state !== kDone) {
      fail(form, `It was set, but could not be read back. ${answerSentence(answer)}`);
      return;
    }
    form.stored = answer.body;
    const strays = this.changes(form).length;
    if (strays > 0) fail(form, "The device said yes, and holds something else: see what is stored beside the fields.");
    else form.result = { state: "done", sentence: "Done. The device stored it, and it was read back." };
    recheck(form);
  }

  // ---- changes that go back by themselves ----

  private async tryChange(form: Form): Promise<void> {
    // Asked first, because a try that nobody answers might have been made all the same.
    const guard = await this.askChange("get_change", undefined);
    form.phase = "ready";
    if (holdsNoPromise(guard)) {
      form.unguarded = true;
      fail(form, "Not set: nobody on this device can take the change back by itself (its guard does not answer).");
      return;
    }
    form.phase = "working";
    const id = `console-${Math.floor(Math.random() * 0xffffffff).toString(16)}`;
    const change = { type: form.command.command, body: form.edited ?? {} };
    const asked = this.way.now();
    const answer = await this.askChange("try_change", { id, seconds: kTrySeconds, changes: [change] }, form);
    form.phase = "ready";
    if (answer.kind === "answer" && answer.state === kDone) {
      const before = form.stored;
      await this.readBack(form);
      form.keep = { id, until: asked + kTrySeconds * 1000, before };
      form.phase = "keep";
      if (form.result?.state === "done")
        form.result.sentence = "The device stored it. Keep it, or it goes back by itself.";
      else if (form.result !== undefined) form.result.sentence += " Unless it is kept, it goes back by itself.";
    } else {
      const unsure = answer.kind === "late" || answer.kind === "down";
      if (unsure) this.lookAgain = { at: this.way.now() + kLookAgainMs, until: asked + kTrySeconds * 1000 };
      fail(form, `${unsure ? "It is not known whether it was set." : "Not set."} ${answerSentence(answer)}`);
      await this.lookForChange();
    }
  }

  async keep(form: Form): Promise<void> {
    if (form.keep === undefined) return;
    const { id } = form.keep;
    this.work(form, "Keeping it ...", "keep");
    const answer = await this.askChange("keep_change", { id }, form);
    if (answer.kind === "answer" && answer.state === kDone) {
      form.keep = undefined;
      form.phase = "ready";
      form.result = { state: "done", sentence: "Kept: the change stays." };
    } else if (answer.kind === "answer" && answer.state === kNoSuchChange) {
      await this.wentBack(form, "Not kept: the change waits no more.");
    } else {
      fail(form, `Not kept yet. ${answerSentence(answer)}`);
    }
    this.way.changed();
  }

  async undo(form: Form): Promise<void> {
    if (form.keep === undefined) return;
    this.work(form, "Taking it back ...", "keep");
    const answer = await this.askChange("undo_change", { id: form.keep.id }, form);
    if (answer.kind === "answer" && answer.state === kDone) await this.wentBack(form, "Taken back.");
    else fail(form, `Not taken back yet. ${answerSentence(answer)} It goes back by itself when its time is over.`);
    this.way.changed();
  }

  private async wentBack(form: Form, how: string): Promise<void> {
    const { before } = form.keep ?? {};
    form.keep = undefined;
    await this.read(form);
    if (form.phase !== "ready") return;
    const back = differences(form.body, before, form.stored).length === 0;
    fail(
      form,
      `${how} ${back ? "The device has what it had before." : "The device holds something else than before."}`,
    );
  }

  /** Looks whether the time of a tried change is over. */
  tick(): void {
    const now = this.way.now();
    if (this.waiting !== undefined && now > this.waiting.until) this.waiting = undefined;
    if (this.lookAgain !== undefined && now > this.lookAgain.until) this.lookAgain = undefined;
    if (this.lookAgain !== undefined && this.waiting === undefined && now > this.lookAgain.at) {
      this.lookAgain.at = now + kLookAgainMs;
      void this.lookForChange();
    }
    for (const form of this.forms) {
      if (form.keep === undefined || form.phase !== "keep" || now < form.keep.until + 1000) continue;
      this.work(form, "Its time is over; reading what the device has now ...");
      void this.wentBack(form, "Not kept in time: the change went back by itself.").then(() => this.way.changed());
    }
  }

  /** A change that waits from before this page was opened. */
  private async lookForChange(): Promise<void> {
    if (!this.forms.some((form) => form.command.guarded === true)) return;
    const asked = this.way.now();
    const answer = await this.askChange("get_change", undefined);
    const body = answer.kind === "answer" && answer.state === kDone && isObject(answer.body) ? answer.body : {};
    if (typeof body.id !== "string" || body.id === "" || this.forms.some((form) => form.keep?.id === body.id)) return;
    const seconds = typeof body.seconds_left === "number" ? body.seconds_left : kTrySeconds;
    this.waiting = { id: body.id, until: asked + seconds * 1000 };
    this.way.changed();
  }

  async decide(type: "keep_change" | "undo_change"): Promise<void> {
    if (this.waiting === undefined) return;
    this.decision = { state: "working", sentence: type === "keep_change" ? "Keeping it ..." : "Taking it back ..." };
    this.way.changed();
    const answer = await this.askChange(type, { id: this.waiting.id });
    const done = answer.kind === "answer" && answer.state === kDone;
    const gone = answer.kind === "answer" && answer.state === kNoSuchChange;
    this.decision = done
      ? { state: "done", sentence: type === "keep_change" ? "Kept: the change stays." : "Taken back." }
      : { state: "failed", sentence: answerSentence(answer) };
    if (done || gone) {
      this.waiting = undefined;
      this.lookAgain = undefined;
      for (const form of this.forms) if (form.command.guarded === true) await this.read(form);
    }
    this.way.changed();
  }

  // ---- asking ----

  private get(form: Form): Promise<Answer> {
    return this.ask({ type: form.command.get ?? "" });
  }

  private ask(request: JsonObject, form?: Form): Promise<Answer> {
    return this.way.requests.ask(this.way.target, request, form && (() => this.cameLate(form)));
  }

  private askChange(type: string, body: JsonObject | undefined, form?: Form): Promise<Answer> {
    const request: JsonObject = body === undefined ? { type } : { type, body };
    return this.way.requests.ask(this.way.changes, request, form && (() => this.cameLate(form)));
  }

  private cameLate(form: Form): void {
    if (form.result?.state === "failed") form.result.sentence += " Its answer has come since: read it again to see.";
    this.way.changed();
  }

  private work(form: Form, sentence: string, phase: Phase = "working"): void {
    form.phase = phase;
    form.result = { state: "working", sentence };
    this.way.changed();
  }
}
