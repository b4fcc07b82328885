// Small pieces that several views show.
import type { App } from "../app";
import type { State } from "../model/state";
import { h, type Children, type Element_ } from "./element";

const kMarks: Record<State, string> = {
  ok: "●",
  "no plan": "◇",
  "plan unreadable": "◆",
  implausible: "▲",
  silent: "◐",
  offline: "✕",
};

/** The state as a word with a mark, so that it can be told without its colour. */
export function stateBadge(state: State): Element_ {
  return h(
    "span",
    { class: "badge", "data-look": state.replace(" ", "-") },
    h("span", { "aria-hidden": "true", class: "mark" }, kMarks[state]),
    h("span", { "data-field": "state" }, state),
  );
}

const number = (value: number | undefined): string => (value === undefined ? "–" : String(value));

/** "3 free of 12" with the numbers where scripts look for them. */
export function freeOf(free: number | undefined, spaces: number | undefined): Element_ {
  return h(
    "span",
    { class: "free-of" },
    h("b", { "data-field": "free" }, number(free)),
    h("span", { class: "quiet" }, " free of "),
    h("span", { "data-field": "spaces" }, number(spaces)),
  );
}

/** How much of a zone is free. */
export function bar(free: number, spaces: number): Element_ {
  const share = spaces === 0 ? 0 : free / spaces;
  const look = spaces === 0 ? "none" : free === 0 ? "full" : share < 0.1 ? "low" : "plenty";
  return h(
    "span",
    { class: "bar", "aria-hidden": "true", "data-look": look },
    h("span", { class: "fill", style: { width: `${Math.round(share * 100)}%` } }),
  );
}

export function card(title: string, attributes: Record<string, string>, ...children: Children[]): Element_ {
  return h("section", { class: "card", ...attributes }, h("h2", {}, title), ...children);
}

export function note(kind: "info" | "warning" | "problem", ...children: Children[]): Element_ {
  return h("p", { class: "note", "data-look": kind }, ...children);
}

interface ButtonLook {
  action?: string;
  main?: boolean;
  disabled?: boolean;
  pressed?: boolean;
  why?: string; // why it cannot be pressed
}

export function button(
  text: string,
  press: () => void,
  { action, main, disabled, pressed, why }: ButtonLook = {},
): Element_ {
  return h(
    "button",
    {
      type: "button",
      class: main === true ? "main" : "",
      "data-action": action,
      disabled: disabled === true,
      "aria-pressed": pressed === undefined ? undefined : String(pressed),
      title: why === "" ? undefined : why,
      onclick: press,
    },
    text,
  );
}

/** The field that narrows the lists of devices: by name, plan or zone. */
export function searchField(app: App): Element_ {
  return h(
    "label",
    { class: "search" },
    h("span", { class: "quiet" }, "Search"),
    h("input", {
      id: "search",
      type: "search",
      value: app.question.search,
      autocomplete: "off",
      spellcheck: "false",
      placeholder: "Device, plan or zone",
      oninput: (event: Event) => app.ask({ search: (event.target as HTMLInputElement).value }),
    }),
  );
}
