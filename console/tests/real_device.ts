// A whole device on a desk, and its relay on a hub: the real programs, on the ports where they look for one another.
import { execFileSync, spawn, spawnSync, type ChildProcess } from "node:child_process";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { dirname, join, resolve } from "node:path";
import { kPage, until } from "./rig";

const kBinaries = resolve(process.env.BINARIES ?? "../build/release/bin");
export const kDevicePage = "http://127.0.0.1:5290/";

export class RealDevice {
  private readonly directory = mkdtempSync(join(tmpdir(), "console-device-"));
  private readonly programs: ChildProcess[] = [];

  private run(program: string, ...options: string[]): void {
    this.programs.push(spawn(join(kBinaries, program), options, { stdio: "ignore", cwd: this.directory }));
  }

  async start(): Promise<void> {
    this.run("simulator", "--directory", join(this.directory, "desk"), "--pages", dirname(kPage));
    await until("the device answers", () => this.parkctl("request", "get_dev_pos").status === 0);
  }

  /** The relay joins a site at a hub of this machine. */
  join(port: number, site: string, device: string, remote: string): void {
    const document = JSON.stringify({ site, device, broker: `mqtt://127.0.0.1:${port}`, remote });
    execFileSync("redis-cli", ["-p", "5299", "hset", "kvdb", "relay_value", document]);
    this.run("park_relay");
  }

  parkctl(...words: string[]): { status: number | null; stdout: string; stderr: string } {
    return spawnSync(join(kBinaries, "parkctl"), words, { encoding: "utf8" });
  }

  /** What the device itself answers to a command that reads. */
  get(command: string): Record<string, unknown> {
    return JSON.parse(this.parkctl("request", command).stdout) as Record<string, unknown>;
  }

  async stop(): Promise<void> {
    for (const program of this.programs.reverse()) {
      const gone = new Promise((done) => program.once("exit", done));
      program.kill("SIGTERM");
      await gone;
    }
    rmSync(this.directory, { recursive: true, force: true });
  }
}
