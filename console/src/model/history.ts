// The last hour of free spaces, one sample every ten seconds, by the clock that only goes forward.

const kStepMs = 10_000;
const kHourMs = 3_600_000;

export class History {
  private at: number[] = [];
  private free: (number | null)[] = [];

  /** Takes a sample when one is due. null: nothing is known, the line has a gap. */
  sample(free: number | null, now: number): boolean {
    const last = this.at[this.at.length - 1];
    if (last !== undefined && now - last < kStepMs) return false;
    this.at.push(now);
    this.free.push(free);
    const old = this.at.findIndex((at) => now - at <= kHourMs); // a hidden page takes fewer samples
    this.at = this.at.slice(old);
    this.free = this.free.slice(old);
    return true;
  }

  clear(): void {
    this.at = [];
    this.free = [];
  }

  /** Minutes before now (negative) and the free spaces then. */
  series(now: number): [number[], (number | null)[]] {
    return [this.at.map((at) => (at - now) / 60_000), [...this.free]];
  }
}
