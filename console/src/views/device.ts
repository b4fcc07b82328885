// One device: how it is, what it sees, what its displays show, what leaves on its line, and its settings.
import type { App } from "../app";
import type { DevicePage } from "../device_page";
import { kDirections, type Direction, type Health } from "../model/documents";
import { outgoingFrames } from "../model/frames";
import { zoneAddress } from "../model/route";
import { spaceWords } from "../model/record";
import { stateSentence } from "../model/state";
import { colorWords, kLampLines, many, printable, spaceStateWords, spanWords } from "../words";
import { h, type Children, type Element_ } from "./element";
import { settingsView } from "./settings";
import { card, freeOf, note, stateBadge } from "./parts";
import { planForm } from "./plan_form";

export function deviceView(app: App): Element_ {
  const page = app.page;
  if (page === undefined)
    return note(
      "info",
      app.connection === "up" ? "No device of this name is known here." : "Waiting for the connection ...",
    );
  return h(
    "div",
    { class: "device", key: page.name },
    head(app, page),
    h(
      "div",
      { class: "cards" },
      lamp(page),
      directions(app, page),
      frames(page, app.kind === "device" && app.own.halted),
      log(app, page),
    ),
    app.kind === "site" && planForm(app, page.name),
    settingsView(app, page),
  );
}

function head(app: App, page: DevicePage): Element_ {
  const own = page.name === "device" && app.kind === "device";
  const row = app.rowOf(page.name);
  const health = row?.device.health;
  const state = own ? app.own.state(app.now()) : (row?.state ?? "offline");
  const counts = own ? app.own.counts : row;
  return h(
    "section",
    { class: "card head", "data-device": page.name, "data-ok": String(state === "ok") },
    h("h1", {}, own ? "This camera" : (row?.label ?? page.name)),
    h(
      "p",
      { class: "quiet" },
      !own && page.name !== row?.label && `${page.name} · `,
      row !== undefined && row.zone !== "" && ["zone ", h("a", { href: zoneAddress(row.zone) }, row.zone)],
    ),
    h("p", { class: "big" }, stateBadge(state), freeOf(counts?.free, counts?.spaces)),
    h(
      "p",
      {},
      own
        ? ownSentence(state, app)
        : row === undefined
          ? "No device of this name is known here."
          : stateSentence(state, health),
    ),
    row?.device.planFault !== undefined &&
      note("problem", `The plan that the hub has for it: ${row.device.planFault}.`),
    row?.device.healthFault !== undefined && note("warning", row.device.healthFault),
    health !== undefined && healthLine(app, page, health),
  );
}

function ownSentence(state: string, app: App): string {
  if (state === "ok") return app.own.halted ? "It works. Its serial output is halted." : "It works.";
  if (state === "implausible") return "Its counts were implausible and are being put together anew.";
  return state === "silent"
    ? "Nothing has come from its program for 70 s."
    : "Nothing has been heard of its program yet.";
}

function healthLine(app: App, page: DevicePage, health: Health): Element_ {
  const heard = app.rowOf(page.name)?.device.heardAt;
  const parts = [
    heard !== undefined && `heard ${spanWords(app.now() - heard)} ago`,
    health.version !== "" && `relay ${printable(health.version)}`,
    health.since !== undefined &&
      `up since ${new Date(health.since * 1000).toISOString().slice(0, 16).replace("T", " ")} UTC by its own clock`,
    health.rejected > 0 && `${many(health.rejected, "message")} of the hub dropped as malformed`,
    health.duplicate && "another device uses its name",
  ];
  return h("p", { class: "quiet" }, parts.filter((part) => part !== false).join(" · "));
}

function lamp(page: DevicePage): Element_ {
  const { color, status, spaces } = page.status;
  const lit = color === undefined ? [] : (kLampLines[color] ?? []);
  return card(
    "Lamp and spaces",
    {},
    h(
      "p",
      { class: "lamp" },
      [1, 2, 3].map((line) =>
        h("span", { class: "lens", "data-lit": String(lit.includes(line)), "aria-hidden": "true" }, line),
      ),
      h("span", { "data-field": "lamp" }, color === undefined ? "lamp unknown" : `colour ${colorWords(color)}`),
    ),
    h(
      "p",
      {},
      "The device shows ",
      h("b", { "data-field": "shown" }, status === undefined ? "–" : spaceStateWords(status)),
      ".",
    ),
    spaces !== undefined &&
      h(
        "ol",
        { class: "spaces" },
        spaces.map((space, i) =>
          h(
            "li",
            { "data-space": String(i + 1), "data-look": !space.valid ? "none" : space.state === 0 ? "free" : "taken" },
            h("b", {}, printable(space.name) || `Space ${i + 1}`),
            " ",
            spaceWords(space),
          ),
        ),
      ),
    spaces === undefined &&
      page.status.problem === "" &&
      page.status.asked &&
      h("p", { class: "quiet" }, "No result has been seen yet."),
    page.status.problem !== "" && note("warning", page.status.problem),
  );
}

const kPrefixes: Record<Direction, string> = { left: "l", right: "r", front: "f", group: "n" };

function directions(app: App, page: DevicePage): Element_ {
  const { net } = page.status;
  const health = app.rowOf(page.name)?.device.health;
  const number = (name: string): string => (typeof net?.[name] === "number" ? String(net[name]) : "–");
  const rows = kDirections.map((direction) => {
    const prefix = kPrefixes[direction];
    const shown = health?.shows[direction];
    const missing = shown?.missing.map(printable).join(", ") ?? "";
    const more = (shown?.missingCount ?? 0) - (shown?.missing.length ?? 0);
    return h(
      "tr",
      { "data-direction": direction },
      h("th", { scope: "row" }, direction === "group" ? "own group" : direction),
      h(
        "td",
        {},
        h("b", {}, net === undefined && shown !== undefined ? shown.free : number(`${prefix}_frees`)),
        ` of ${net === undefined && shown !== undefined ? shown.spaces : number(`${prefix}_totles`)}`,
      ),
      h(
        "td",
        { class: "quiet" },
        shown === undefined ? "" : many(shown.devices, "camera"),
        missing !== "" && h("span", { class: "fault" }, ` silent: ${missing}${more > 0 ? ` and ${more} more` : ""}`),
      ),
    );
  });
  return card(
    "What its displays count",
    {},
    h(
      "table",
      {},
      h(
        "thead",
        {},
        h(
          "tr",
          {},
          h("th", { scope: "col" }, "Side"),
          h("th", { scope: "col" }, "Free"),
          h("th", { scope: "col" }, "From"),
        ),
      ),
      h("tbody", {}, rows),
    ),
    h(
      "p",
      { class: "quiet" },
      `The front display shows own group and front together. All: ${number("free")} of ${number("totle")}.`,
    ),
  );
}

function frames(page: DevicePage, halted: boolean): Element_ {
  const stored = (command: string): Record<string, never> | undefined =>
    page.settings.form(command)?.stored as Record<string, never> | undefined;
  const list = outgoingFrames({
    settings: stored("set_ext_ttyio_cfg"),
    net: page.status.net,
    list: stored("set_rs485pro_cfg"),
    spaces: page.status.spaces,
  });
  const lines: Children = list?.map((frame) =>
    h("li", {}, h("code", {}, frame.words), h("span", { class: "quiet" }, ` ${frame.when}`)),
  );
  return card(
    "On the serial line",
    { "data-field": "frames" },
    halted
      ? h("p", {}, "Nothing goes out: its output is halted.")
      : list === undefined
        ? h("p", { class: "quiet" }, "Not known: its settings were not read.")
        : list.length === 0
          ? h("p", {}, "Nothing goes out.")
          : h("ul", { class: "plain" }, lines),
  );
}

function log(app: App, page: DevicePage): Element_ {
  const entries = page.status.log ?? [];
  const own = app.kind === "device" ? app.own.events : [];
  const now = app.now();
  return card(
    "Events",
    { "data-field": "events" },
    own.length > 0 &&
      h(
        "ul",
        { class: "plain events" },
        own.map((event) =>
          h(
            "li",
            { key: event.number },
            h("span", { class: "quiet" }, `${spanWords(now - event.at)} ago `),
            event.words,
          ),
        ),
      ),
    h("h3", {}, "External control"),
    entries.length === 0
      ? h(
          "p",
          { class: "quiet" },
          page.status.log === undefined ? "Not known." : "Nobody has controlled it from outside.",
        )
      : h(
          "table",
          {},
          h(
            "thead",
            {},
            h(
              "tr",
              {},
              ["When", "Who", "State"].map((title) => h("th", { scope: "col" }, title)),
            ),
          ),
          h(
            "tbody",
            {},
            entries.map((entry) =>
              h(
                "tr",
                {},
                h("td", {}, printable(entry.time)),
                h("td", {}, printable(entry.ip)),
                h("td", {}, spaceStateWords(entry.status)),
              ),
            ),
          ),
        ),
  );
}
