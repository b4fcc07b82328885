// The site: how many spaces are free where, and which cameras are not ok.
import type { App } from "../app";
import {
  kFilters,
  kOrders,
  pick,
  type DeviceRow,
  type Filter,
  type Order,
  type Overview,
  type ZoneRow,
} from "../model/overview";
import { deviceAddress, zoneAddress } from "../model/route";
import { many } from "../words";
import { h, type Element_ } from "./element";
import { bar, card, freeOf, note, searchField, stateBadge } from "./parts";
import { plot } from "./plot";

const kOverscan = 12; // rows drawn above and below what can be seen

export function siteView(app: App, zone: string): Element_ {
  const all = app.overview;
  return h(
    "div",
    { class: "site" },
    summary(app, all, zone),
    zoneTree(app, all.zones, zone),
    deviceList(app, all, zone),
  );
}

function summary(app: App, all: Overview, zone: string): Element_ {
  const sum = zone === "" ? all : (all.zones.find((row) => row.zone === zone) ?? { spaces: 0, free: 0 });
  const wrong = all.notOk;
  return card(
    zone === "" ? "Free spaces" : `Free spaces in ${zone}`,
    { class: "card summary" },
    h(
      "p",
      { class: "big" },
      h("b", { "data-field": "sum-free" }, sum.free),
      h("span", { class: "quiet" }, ` free of ${sum.spaces}`),
    ),
    bar(sum.free, sum.spaces),
    all.devices.length === 0
      ? note("info", app.listening ? "Listening to what the hub has to say ..." : "No device has been heard of yet.")
      : h(
          "p",
          { class: "health", "data-look": wrong === 0 ? "good" : "bad" },
          wrong === 0
            ? `All ${many(all.devices.length, "device")} are ok.`
            : `${wrong} of ${many(all.devices.length, "device")} ${wrong === 1 ? "is" : "are"} not ok.`,
          wrong > 0 &&
            app.question.filter !== "not ok" && [
              " ",
              h("button", { type: "button", class: "link", onclick: () => showWrong(app) }, "Show only these"),
            ],
        ),
    h(
      "div",
      { class: "hour" },
      h("p", { class: "quiet caption" }, "Free spaces in the last hour, since this page was opened"),
      plot(app.hour),
    ),
  );
}

function showWrong(app: App): void {
  app.ask({ filter: "not ok" });
  document.getElementById("devices")?.closest("section")?.scrollIntoView();
}

function zoneTree(app: App, zones: ZoneRow[], here: string): Element_ {
  const rows = zones.map((row) =>
    h(
      "li",
      { key: row.zone, "data-zone": row.zone, style: { "--depth": String(row.depth) } },
      h(
        "a",
        { href: zoneAddress(row.zone), "aria-current": row.zone === here ? "true" : undefined },
        h("span", { class: "name" }, row.zone.slice(row.zone.lastIndexOf("/") + 1)),
        row.notOk > 0 &&
          h("span", { class: "wrong", title: `${many(row.notOk, "device")} not ok` }, `${row.notOk} not ok`),
        freeOf(row.free, row.spaces),
        bar(row.free, row.spaces),
      ),
    ),
  );
  return card(
    "Zones",
    { class: "card zones", "aria-label": "Zones" },
    h("p", {}, h("a", { href: zoneAddress(""), "aria-current": here === "" ? "true" : undefined }, "The whole site")),
    rows.length === 0
      ? note("info", app.overview.devices.length === 0 ? "No zones yet." : "No device has a plan with a zone.")
      : h("ul", { class: "tree" }, rows),
  );
}

function toolbar(app: App, found: number): Element_ {
  const { filter, order } = app.question;
  return h(
    "div",
    { class: "toolbar" },
    searchField(app),
    h(
      "div",
      { class: "choices", role: "group", "aria-label": "Which devices" },
      kFilters.map((name: Filter) =>
        h(
          "button",
          {
            type: "button",
            "data-filter": name,
            "aria-pressed": String(name === filter),
            onclick: () => app.ask({ filter: name }),
          },
          name,
        ),
      ),
    ),
    h(
      "label",
      {},
      h("span", { class: "quiet" }, "Order "),
      h(
        "select",
        {
          value: order,
          "data-order": "",
          onchange: (event: Event) => app.ask({ order: (event.target as HTMLSelectElement).value as Order }),
        },
        kOrders.map((name) => h("option", { value: name }, name)),
      ),
    ),
    h("p", { class: "quiet found", role: "status" }, many(found, "device")),
  );
}

function deviceList(app: App, all: Overview, zone: string): Element_ {
  const rows = pick(all.devices, { ...app.question, zone });
  const { first, last } = visibleRows(rows.length, kOverscan);
  return card(
    "Devices",
    { class: "card devices", "aria-label": "Devices" },
    toolbar(app, rows.length),
    rows.length === 0 && all.devices.length > 0 && note("info", "No device is like that."),
    h(
      "ul",
      { class: "list", id: "devices", style: { height: `calc(var(--row) * ${rows.length})` } },
      rows.slice(first, last).map((row, i) => deviceLine(row, first + i, rows.length)),
    ),
  );
}

function deviceLine(row: DeviceRow, place: number, count: number): Element_ {
  return h(
    "li",
    {
      key: row.name,
      "data-device": row.name,
      "data-ok": String(row.state === "ok"),
      "aria-posinset": String(place + 1),
      "aria-setsize": String(count),
      style: { top: `calc(var(--row) * ${place})` },
    },
    h(
      "a",
      { href: deviceAddress(row.name) },
      stateBadge(row.state),
      h(
        "span",
        { class: "who" },
        h("span", { class: "name" }, row.label),
        row.label !== row.name && h("span", { class: "quiet" }, row.name),
      ),
      h("span", { class: "quiet zone" }, row.zone === "" ? "no zone" : row.zone),
      freeOf(row.free, row.spaces),
    ),
  );
}

/** The rows that can be seen, and some around them. */
function visibleRows(count: number, overscan: number): { first: number; last: number } {
  const list = document.getElementById("devices");
  const row = list === null ? 0 : parseFloat(getComputedStyle(list).getPropertyValue("--row-px"));
  if (list === null || !(row > 0)) return { first: 0, last: Math.min(count, 60) };
  const top = -list.getBoundingClientRect().top;
  const first = Math.max(0, Math.floor(top / row) - overscan);
  return { first, last: Math.min(count, Math.ceil((top + innerHeight) / row) + overscan) };
}
