// What the page holds about the one device that somebody looks at.
import { Settings } from "./ask/settings";
import { Status } from "./ask/status";
import type { Requests, Target } from "./ask/requests";
import { kGroups } from "./contract/commands";
import { contract } from "./contract/data";

const kRemoteTimeoutMs = 8000; // the relay itself waits 5 s
const kOwnTimeoutMs = 5000;
export const kOwnRequests: Target = { topic: "BUS_REQUEST_MESSAGE", device: "own", timeoutMs: kOwnTimeoutMs };
const kOwnChanges: Target = { topic: "CHANGE_REQUEST_MESSAGE", device: "own", timeoutMs: kOwnTimeoutMs };

export interface PageNeeds {
  requests: Requests;
  monotonic(): number;
  changed(): void;
}

export class DevicePage {
  readonly settings: Settings;
  readonly status: Status;
  private begun = false;

  /** site: undefined for the device whose broker this is, which is called "device". */
  constructor(
    readonly name: string,
    site: string | undefined,
    private readonly needs: PageNeeds,
  ) {
    const remote = { topic: `park/${String(site)}/request/${name}`, timeoutMs: kRemoteTimeoutMs };
    const target = site === undefined ? kOwnRequests : remote;
    const changes = site === undefined ? kOwnChanges : remote;
    const { requests } = needs;
    const changed = (): void => needs.changed();
    this.status = new Status(target, requests, changed);
    this.settings = new Settings(
      { requests, target, changes, now: () => needs.monotonic(), changed },
      kGroups.flatMap((group) => group.commands).filter((command) => site !== undefined || command.relay !== true),
      contract,
    );
  }

  /** Once a second while the device is looked at and may be asked. */
  tick(): void {
    this.status.tick(this.needs.monotonic());
    this.settings.tick();
    if (this.begun) return;
    this.begun = true;
    void this.settings.readAll();
  }

  /** The connection is back: what could not be read is read. */
  again(): void {
    this.begun = false;
    this.status.soon();
  }
}
