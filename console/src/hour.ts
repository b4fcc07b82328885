// The last hour of free spaces, for the plot.
import { History } from "./model/history";
import type { PlotSource } from "./views/plot";

export class Hour implements PlotSource {
  private readonly history = new History();
  private readonly listeners = new Set<() => void>();

  /** null: nothing is known at the moment. */
  sample(free: number | null): void {
    if (this.history.sample(free, performance.now())) this.redraw();
  }

  /** Another site's line begins. */
  clear(): void {
    this.history.clear();
    this.redraw();
  }

  redraw(): void {
    for (const listener of this.listeners) listener();
  }

  series(): [number[], (number | null)[]] {
    return this.history.series(performance.now());
  }

  colors(): { line: string; grid: string; text: string } {
    const style = getComputedStyle(document.documentElement);
    const color = (name: string): string => style.getPropertyValue(name).trim();
    return { line: color("--accent"), grid: color("--line"), text: color("--quiet") };
  }

  onChange(listener: () => void): () => void {
    this.listeners.add(listener);
    return () => this.listeners.delete(listener);
  }
}
