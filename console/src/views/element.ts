// Elements as values, and the one place that turns them into a page. A view returns what should be there; patch changes
// the document where it differs, so that focus, cursors and scroll stay. Text is only ever text.

export type Handler = (event: Event) => void;
export type Mount = (element: HTMLElement) => (() => void) | void;
export type Attribute = string | number | boolean | undefined | Handler | Mount | Record<string, string>;

export interface Element_ {
  tag: string;
  attributes: Record<string, Attribute>;
  children: Child[];
}
export type Child = Element_ | string;
export type Children = Child | number | false | null | undefined | Children[];

/** attributes: names as in HTML; "on..." a handler, "style" properties, "key" what tells siblings apart, "mount" is
 *  called with the new element and may return what is called when it goes. Those that are undefined or false are left out. */
export function h(tag: string, attributes: Record<string, Attribute> = {}, ...children: Children[]): Element_ {
  return { tag, attributes, children: flat(children) };
}

function flat(children: Children[]): Child[] {
  return children.flatMap((child): Child[] => {
    if (child === null || child === undefined || child === false) return [];
    if (Array.isArray(child)) return flat(child);
    return [typeof child === "number" ? String(child) : child];
  });
}

const kProperties = new Set(["value", "checked", "disabled", "indeterminate", "scrollTop"]);
const kSvg = new Set(["svg", "path", "circle", "rect", "g", "line"]);

const shown = new WeakMap<Node, Element_>();
const unmounts = new WeakMap<Node, () => void>();

function setAttribute(node: Element, name: string, value: Attribute): void {
  if (name === "key" || name === "mount") return;
  if (name.startsWith("on")) {
    (node as unknown as Record<string, unknown>)[name] = value ?? null;
  } else if (name === "style") {
    const style = (node as HTMLElement).style;
    for (const [property, text] of Object.entries((value ?? {}) as Record<string, string>)) {
      if (style.getPropertyValue(property) !== text) style.setProperty(property, text);
    }
  } else if (kProperties.has(name)) {
    const properties = node as unknown as Record<string, unknown>;
    const wanted = value ?? (name === "value" ? "" : false);
    if (properties[name] !== wanted) properties[name] = wanted;
  } else if (value === undefined || value === false) {
    node.removeAttribute(name);
  } else {
    const text = value === true ? "" : String(value);
    if (node.getAttribute(name) !== text) node.setAttribute(name, text);
  }
}

function update(node: Element, next: Element_): void {
  const before = shown.get(node);
  for (const name of Object.keys(before?.attributes ?? {})) {
    if (!(name in next.attributes)) setAttribute(node, name, undefined);
  }
  const { value, ...others } = next.attributes;
  for (const [name, attribute] of Object.entries(others)) setAttribute(node, name, attribute);
  shown.set(node, next);
  if (next.attributes.mount === undefined) patch(node, next.children);
  if ("value" in next.attributes) setAttribute(node, "value", value); // after the options of a select
}

function create(next: Child): Node {
  if (typeof next === "string") return document.createTextNode(next);
  const node = kSvg.has(next.tag)
    ? document.createElementNS("http://www.w3.org/2000/svg", next.tag)
    : document.createElement(next.tag);
  update(node, next);
  const mount = next.attributes.mount as Mount | undefined;
  const unmount = mount?.(node as HTMLElement);
  if (unmount) unmounts.set(node, unmount);
  return node;
}

function dispose(node: Node): void {
  node.childNodes.forEach(dispose);
  unmounts.get(node)?.();
}

const keyOf = (child: Child): unknown => (typeof child === "string" ? undefined : child.attributes.key);

function fits(node: Node | null, next: Child): node is ChildNode {
  if (node === null) return false;
  if (typeof next === "string") return node.nodeType === Node.TEXT_NODE;
  const was = shown.get(node);
  return was !== undefined && was.tag === next.tag && was.attributes.key === next.attributes.key;
}

/** Makes the children of a node those that are wanted. */
export function patch(parent: Node, wanted: Child[]): void {
  const keyed = new Map<unknown, ChildNode>();
  for (const node of parent.childNodes) {
    const key = shown.get(node)?.attributes.key;
    if (key !== undefined) keyed.set(key, node);
  }
  const stay = new Set(wanted.map(keyOf));
  for (const [key, node] of keyed) if (!stay.has(key)) takeOut(node); // first: what is moved loses the focus
  let at: ChildNode | null = parent.firstChild;
  for (const next of wanted) {
    const key = keyOf(next);
    const known = key === undefined ? at : (keyed.get(key) ?? null);
    if (!fits(known, next)) {
      parent.insertBefore(create(next), at);
      continue;
    }
    if (known === at) at = known.nextSibling;
    else parent.insertBefore(known, at);
    if (typeof next === "string") {
      if (known.nodeValue !== next) known.nodeValue = next;
    } else {
      update(known as unknown as Element, next);
    }
  }
  while (at !== null) {
    const gone: ChildNode = at;
    at = gone.nextSibling;
    takeOut(gone);
  }
}

function takeOut(gone: ChildNode): void {
  dispose(gone);
  gone.remove();
}
