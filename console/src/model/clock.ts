// A clock that goes only while the page listens: not while the connection is away, not while the phone slept. It is fed
// with the browser's monotonic clock, so a phone whose date is wrong by a year changes nothing.

const kSleptMs = 90_000; // browsers turn a hidden page's timers once a minute; a longer pause is sleep

export class ListeningClock {
  private time = 0;
  private last: number | undefined;

  /** monotonic: milliseconds, as performance.now() gives them. Returns milliseconds of listening. */
  now(monotonic: number, listening: boolean): number {
    const passed = this.last === undefined ? 0 : monotonic - this.last;
    this.last = monotonic;
    if (listening && passed > 0 && passed < kSleptMs) this.time += passed;
    return this.time;
  }
}
