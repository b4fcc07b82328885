// What the browser remembers, and the little that is asked of it: the choice of light or dark, the user's name when the
// user wants it. Never a password.

const kTheme = "console-theme";
const kUser = "console-user";

function read(key: string): string | null {
  try {
    return localStorage.getItem(key);
  } catch {
    return null; // a browser that keeps nothing
  }
}

function write(key: string, value: string | null): void {
  try {
    if (value === null) localStorage.removeItem(key);
    else localStorage.setItem(key, value);
  } catch {
    // a browser that keeps nothing
  }
}

export class Preferences {
  private theme = read(kTheme); // in a browser that keeps nothing, too

  get dark(): boolean {
    const chosen = this.theme;
    return chosen === null ? matchMedia("(prefers-color-scheme: dark)").matches : chosen === "dark";
  }

  set dark(dark: boolean) {
    this.theme = dark ? "dark" : "light";
    write(kTheme, this.theme);
    this.show();
  }

  /** Without a choice the page goes with the browser. */
  show(): void {
    const chosen = this.theme;
    if (chosen !== null) document.documentElement.dataset.theme = chosen;
  }

  private wanted = this.user !== "";

  /** Whether the user's name is to be kept. */
  get remember(): boolean {
    return this.wanted;
  }

  set remember(remember: boolean) {
    this.wanted = remember;
    if (!remember) this.user = "";
  }

  get user(): string {
    return read(kUser) ?? "";
  }

  set user(user: string) {
    write(kUser, user === "" ? null : user);
  }
}
