// Whether a hub has said everything that it has kept, after a page subscribed: a sum of half the devices is a wrong sum.

const kQuietMs = 250; // without another kept message
const kToldMs = 40; // the same, once the hub has acknowledged what was sent after the subscriptions
const kLongestMs = 2500;

export class Settling {
  private last: number;
  private quiet = kQuietMs;

  constructor(private readonly since: number) {
    this.last = since;
  }

  kept(now: number): void {
    this.last = now;
  }

  /** A broker acknowledges in order: what it had kept has come before. */
  acknowledged(): void {
    this.quiet = kToldMs;
  }

  isOver(now: number): boolean {
    return now - this.last >= this.quiet || now - this.since >= kLongestMs;
  }
}
