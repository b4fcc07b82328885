// What numbers are called for people. The words are the contract's.
import { contract } from "./contract/data";

const { spaceStates: kSpaceStates, colors: kColors, positions: kPositions } = contract.words;

/** The parts of the lamp that are on for each colour number. */
export const kLampLines: readonly (readonly number[])[] = [[1], [2], [3], [1, 2, 3], [], [1, 2], [1, 3], [2, 3]];

export function spaceStateWords(state: number): string {
  return kSpaceStates[state] ?? `unknown state ${state}`;
}

export function colorWords(color: number): string {
  const words = kColors[color];
  return words === undefined ? `${color} (no such colour, the lamp stays as it is)` : `${color} (${words})`;
}

export function positionWords(position: number): string {
  return kPositions[position] ?? `position ${position}`;
}

/** "1 device", "3 devices". */
export function many(count: number, one: string, more = one + "s"): string {
  return `${count} ${count === 1 ? one : more}`;
}

/** "12 s", "3 min", "2 h 5 min". */
export function spanWords(ms: number): string {
  const seconds = Math.max(0, Math.round(ms / 1000));
  if (seconds < 90) return `${seconds} s`;
  const minutes = Math.round(seconds / 60);
  return minutes < 90 ? `${minutes} min` : `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
}

/** Text of a stranger as one line, as the command line prints it: control characters and marks that turn the direction of
 *  writing become \xNN. */
export function printable(text: string): string {
  return text.replace(/[\u0000-\u001f\u007f-\u009f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069]/g, (c) => {
    return hexWords(new TextEncoder().encode(c)).replace(/(^| )/g, "\\x");
  });
}

/** "AA 01 17". */
export function hexWords(bytes: Uint8Array): string {
  return Array.from(bytes, (b) => b.toString(16).toUpperCase().padStart(2, "0")).join(" ");
}
