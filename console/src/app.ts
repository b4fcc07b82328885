// The page's switchboard: it knows the model, the connection and what is looked at; views read it and press its buttons.
import { Link, type Message } from "./ask/link";
import { Plans } from "./ask/plans";
import { Requests } from "./ask/requests";
import { noRights, siteRights, type Rights } from "./ask/rights";
import { DevicePage, kOwnRequests } from "./device_page";
import { ListeningClock } from "./model/clock";
import { parseTopic } from "./model/names";
import { kOwnTopics, OwnDevice } from "./model/own";
import { deviceRow, overviewOf, type DeviceRow, type Overview, type Question } from "./model/overview";
import { parseRoute, type Route } from "./model/route";
import { Settling } from "./model/settling";
import { Site } from "./model/site";
import { Hour } from "./hour";
import { Preferences } from "./view_state";

const kLookAroundMs = 600; // until a silent broker is asked whether it is a device's
const kEmpty: Overview = { devices: [], zones: [], spaces: 0, free: 0, notOk: 0 };

export class App {
  connection: "up" | "down" | "login" = "down";
  wasUp = false;
  asOf = "none yet";
  kind: "unknown" | "site" | "device" = "unknown";
  route: Route = { view: "home" };
  readonly sites = new Map<string, Site>();
  site: Site | undefined;
  readonly own = new OwnDevice();
  overview: Overview = kEmpty;
  page: DevicePage | undefined;
  question: Question = { search: "", zone: "", filter: "all", order: "wrong first" };
  rights: Rights = noRights();
  readonly plans: Plans;
  readonly hour = new Hour();
  fileFaults: string[] = [];
  loginRefused = false;

  private readonly clock = new ListeningClock();
  readonly preferences = new Preferences();
  private readonly link: Link;
  private readonly requests: Requests;
  private settling: Settling | undefined;

  /** show: draws the page soon; pressed: at once, somebody waits for it. */
  constructor(
    private readonly show: (pressed: boolean) => void,
    url: string,
  ) {
    this.link = new Link(url, {
      up: () => this.up(),
      down: () => this.down(),
      login: (refused) => this.wantsLogin(refused),
      message: (message) => this.message(message),
    });
    this.requests = new Requests({
      publish: (topic, payload, correlation) =>
        this.link.publish(topic, payload, { reply: this.replyTopic(topic), correlation }),
      after: (ms, what) => {
        const timer = setTimeout(what, ms);
        return () => clearTimeout(timer);
      },
    });
    this.plans = new Plans({
      site: () => this.site,
      publish: (topic, payload) => this.link.publish(topic, payload, { keep: true }),
      changed: () => this.changed(),
    });
    this.preferences.show();
  }

  start(): void {
    this.navigate(location.hash);
    this.link.connect();
    setInterval(() => this.tick(), 1000);
  }

  // ---- time ----

  monotonic(): number {
    return performance.now();
  }

  /** Milliseconds of listening. */
  now(): number {
    return this.clock.now(this.monotonic(), this.connection === "up");
  }

  private tick(): void {
    this.now(); // the clock goes on, messages or not
    if (this.connection === "up" && this.rights.ask !== false) this.page?.tick();
    const known = this.connection === "up" && this.settling === undefined && this.overview.devices.length > 0;
    if (this.kind === "site") this.hour.sample(known ? this.overview.free : null);
    this.show(false);
  }

  // ---- the connection ----

  private replyTopic(topic: string): string {
    const site = /^park\/([^/]+)\//.exec(topic)?.[1];
    return site === undefined ? `reply/${this.link.replyName}` : `park/${site}/reply/${this.link.replyName}`;
  }

  private up(): void {
    this.connection = "up";
    this.wasUp = true;
    this.loginRefused = false;
    if (this.preferences.remember && this.link.user !== "") this.preferences.user = this.link.user;
    this.now();
    for (const site of this.sites.values()) site.connected();
    const settling = new Settling(this.monotonic());
    this.settling = settling;
    this.link.subscribe(["park/+/plan/+", "park/+/health/+", "park/+/counts/#", `park/+/reply/${this.link.replyName}`]);
    void this.link.publish(`park/nobody/reply/${this.link.replyName}`, "").then(() => settling.acknowledged());
    this.settle();
    this.link.subscribe([...kOwnTopics, `reply/${this.link.replyName}`]);
    if (this.site === undefined)
      setTimeout(() => void this.lookAround(), this.route.view === "own" ? 0 : kLookAroundMs);
    if (this.site !== undefined) void this.askRights(this.site.name);
    this.page?.again();
    this.show(true);
  }

  private down(): void {
    this.now(); // the clock takes the time up to here
    this.connection = "down";
    this.settling = undefined;
    this.requests.down();
    this.show(true);
  }

  private wantsLogin(refused: boolean): void {
    this.connection = "login";
    this.loginRefused = refused;
    this.show(true);
  }

  /** Nothing of a site was heard: is this a device's own broker? */
  private async lookAround(): Promise<void> {
    if (this.site !== undefined || this.connection !== "up") return;
    const answer = await this.requests.ask(kOwnRequests, { type: "get_frame_status" });
    if (this.site !== undefined || answer.kind === "down") return; // a site was heard meanwhile
    if (answer.kind === "answer") {
      this.isDevice();
      this.own.heard(this.now());
      void this.link.publish("HTTP_BROADCAST_MESSAGE_ROOT", '{"type":"console_opened"}'); // has the counts said at once
    } else if (this.route.view === "own") {
      this.isDevice();
      if (answer.kind === "refused") this.rights.ask = false;
    } else if (this.kind === "unknown") {
      this.kind = "site";
    }
    this.show(true);
  }

  private isDevice(): void {
    this.kind = "device";
    this.openPage();
  }

  private async askRights(site: string): Promise<void> {
    this.rights = await siteRights(site, `nobody-${this.link.run}`, (topic, payload) =>
      this.link.publish(topic, payload),
    );
    this.show(true);
  }

  /** The hub has said what it has kept: what it said no more is gone. */
  private settle(): void {
    if (this.settling === undefined) return;
    if (!this.settling.isOver(this.monotonic())) {
      setTimeout(() => this.settle(), 20);
      return;
    }
    this.settling = undefined;
    for (const site of this.sites.values()) site.settled(this.now());
    this.show(true);
  }

  private message({ topic, bytes, kept, correlation }: Message): void {
    this.asOf = new Date().toLocaleString("en-GB");
    if (correlation !== undefined && /(^|\/)reply\//.test(topic)) {
      const asked = this.requests.take(correlation, bytes);
      if (asked === kOwnRequests) this.own.heard(this.now()); // its daemon, and nobody else, answers these
      return;
    }
    if (kept) this.settling?.kept(this.monotonic());
    const about = parseTopic(topic);
    if (about !== undefined) {
      this.siteOf(about.site).take({ topic: about, payload: new TextDecoder().decode(bytes), kept }, this.now());
    } else if (kOwnTopics.includes(topic)) {
      if (this.site === undefined && this.kind !== "device") this.isDevice();
      this.own.take(topic, bytes, this.now());
      if (this.kind === "device") this.page?.status.heard(this.own);
    }
    this.show(false);
  }

  private siteOf(name: string): Site {
    const known = this.sites.get(name);
    if (known !== undefined) return known;
    const site = new Site(name);
    site.connected();
    this.sites.set(name, site);
    if (this.site === undefined) {
      this.kind = "site";
      this.chooseSite(name);
    }
    return site;
  }

  // ---- what people press ----

  chooseSite(name: string): void {
    this.site = this.sites.get(name);
    this.hour.clear();
    this.rights = noRights();
    this.page = undefined;
    this.openPage();
    if (this.connection === "up") void this.askRights(name);
    this.show(true);
  }

  navigate(hash: string): void {
    this.route = parseRoute(hash);
    this.openPage();
    this.show(true);
  }

  private openPage(): void {
    const { route } = this;
    const own = route.view === "own" || (route.view === "home" && this.kind === "device");
    const name = own ? "device" : route.view === "device" ? route.device : undefined;
    const site = own ? undefined : this.site?.name;
    if (name === undefined || (!own && site === undefined)) {
      this.page = undefined;
    } else if (this.page?.name !== name) {
      this.page = new DevicePage(name, site, {
        requests: this.requests,
        monotonic: () => this.monotonic(),
        changed: () => this.changed(),
      });
      if (this.connection === "up" && this.rights.ask !== false && (!own || this.kind === "device")) this.page.tick();
    }
  }

  ask(part: Partial<Question>): void {
    this.question = { ...this.question, ...part };
    this.changed();
  }

  changed(): void {
    this.show(true);
  }

  setFileFaults(faults: string[]): void {
    this.fileFaults = faults;
    this.changed();
  }

  get user(): string {
    return this.link.user;
  }

  login(user: string, password: string): void {
    this.connection = "down";
    this.link.connect({ user, password });
    this.changed();
  }

  logout(): void {
    location.reload(); // nothing of what the account could see stays
  }

  toggleDark(): void {
    this.preferences.dark = !this.preferences.dark;
    this.hour.redraw();
    this.changed();
  }

  // ---- what views read ----

  /** Whether the hub has not said everything yet that it has kept. */
  get listening(): boolean {
    return this.connection !== "up" || this.settling !== undefined;
  }

  /** Puts the moment's overview together. While the hub tells what it has kept, the last one stays. */
  look(): void {
    if (this.site === undefined || this.settling !== undefined) return;
    this.overview = overviewOf(this.site, this.now());
  }

  rowOf(device: string): DeviceRow | undefined {
    const known = this.site?.devices.get(device);
    return known === undefined ? undefined : deviceRow(known, this.now());
  }
}
