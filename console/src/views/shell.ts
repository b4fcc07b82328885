// What stands around every view: where one is, whether the connection is up, who is logged in.
import type { App } from "../app";
import { h, type Child, type Element_ } from "./element";
import { button, note } from "./parts";
import { deviceView } from "./device";
import { plansView } from "./plans";
import { siteView } from "./site";

export function pageView(app: App): Child[] {
  return [
    h("a", { class: "skip", href: "#main", onclick: (event: Event) => skip(event) }, "To the content"),
    header(app),
    h("main", { id: "main", tabindex: "-1", "data-stale": String(app.connection !== "up") }, banner(app), content(app)),
  ];
}

function skip(event: Event): void {
  event.preventDefault(); // the address is the view's
  document.getElementById("main")?.focus();
}

function header(app: App): Element_ {
  const site = app.kind === "site";
  const view = app.route.view;
  return h(
    "header",
    {},
    h(
      "a",
      { class: "brand", href: site ? "#/site" : "#/device" },
      h("span", { "aria-hidden": "true", class: "logo" }, "P"),
      title(app),
    ),
    site &&
      h(
        "nav",
        { "aria-label": "Views" },
        h("a", { href: "#/site", "aria-current": view === "site" || view === "home" ? "page" : undefined }, "Site"),
        h("a", { href: "#/plans", "aria-current": view === "plans" ? "page" : undefined }, "Plans"),
      ),
    siteChoice(app),
    h("span", { class: "grow" }),
    connection(app),
    app.user !== "" &&
      h(
        "span",
        { class: "quiet user" },
        app.user,
        " ",
        button("Log out", () => app.logout(), {}),
      ),
    button(app.preferences.dark ? "Light" : "Dark", () => app.toggleDark(), { action: "theme" }),
  );
}

function title(app: App): string {
  if (app.kind === "site" && app.site !== undefined) return `Car park ${app.site.name}`;
  return app.kind === "device" ? "Camera" : "Car park";
}

function siteChoice(app: App): Element_ | false {
  if (app.sites.size < 2) return false;
  const options = [...app.sites.keys()].map((name) => h("option", { value: name }, name));
  const choose = (event: Event): void => app.chooseSite((event.target as HTMLSelectElement).value);
  return h(
    "label",
    {},
    h("span", { class: "quiet" }, "Site "),
    h("select", { value: app.site?.name ?? "", onchange: choose }, options),
  );
}

const kConnection = { up: "Connected", down: "No connection", login: "Not logged in" };

function connection(app: App): Element_ {
  const text = app.connection === "down" && !app.wasUp ? "Connecting ..." : kConnection[app.connection];
  return h("span", { class: "connection", "data-look": app.connection, role: "status" }, text);
}

function banner(app: App): Element_ | false {
  if (app.connection === "up") return false;
  const asOf = h("time", { "data-field": "as-of" }, app.asOf);
  if (app.connection === "login") return note(app.wasUp ? "warning" : "info", "Values: ", asOf, ".");
  return app.wasUp
    ? note("warning", "The connection is away and is tried again by itself. These are the values of ", asOf, ".")
    : note("info", "Connecting to the broker. Values: ", asOf, ".");
}

function content(app: App): Child[] {
  const parts: Child[] = app.connection === "login" ? [loginView(app)] : [];
  if (app.connection === "login" && !app.wasUp) return parts;
  const { route } = app;
  if (route.view === "own" || (route.view === "home" && app.kind === "device")) return [...parts, deviceView(app)];
  if (route.view === "device") return [...parts, deviceView(app)];
  if (app.kind === "unknown" && route.view === "home") {
    return app.connection === "up" ? [...parts, note("info", "Looking for what this broker carries ...")] : parts;
  }
  if (route.view === "plans") return [...parts, plansView(app)];
  return [...parts, siteView(app, route.view === "site" ? route.zone : "")];
}

function loginView(app: App): Element_ {
  const send = (event: Event): void => {
    event.preventDefault();
    const field = (id: string): string => (document.getElementById(id) as HTMLInputElement).value;
    app.login(field("user"), field("password"));
  };
  return h(
    "form",
    { class: "card login", onsubmit: send },
    h("h1", {}, "Log in"),
    app.loginRefused &&
      h(
        "p",
        { class: "note", "data-look": "problem", role: "alert" },
        "The broker does not take this name with this password.",
      ),
    h(
      "label",
      {},
      "Name",
      h("input", {
        id: "user",
        name: "user",
        autocomplete: "username",
        autocapitalize: "none",
        spellcheck: "false",
        required: true,
        mount: (e: HTMLElement) => {
          (e as HTMLInputElement).value = app.preferences.user;
        },
      }),
    ),
    h(
      "label",
      {},
      "Password",
      h("input", { id: "password", name: "password", type: "password", autocomplete: "current-password" }),
    ),
    h(
      "label",
      { class: "line" },
      h("input", {
        type: "checkbox",
        checked: app.preferences.remember,
        onchange: (event: Event) => (app.preferences.remember = (event.target as HTMLInputElement).checked),
      }),
      " Remember my name in this browser",
    ),
    h("button", { id: "login", type: "submit", class: "main" }, "Log in"),
    h("p", { class: "quiet" }, "The password is kept only while this page is open."),
  );
}
