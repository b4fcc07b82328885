// Reads contract/ for the page: every $ref replaced by what it names, what only other programs need left out.
import { readFileSync, readdirSync } from "node:fs";
import { basename, dirname, join, resolve } from "node:path";

const kSitePieces = ["set_relay_cfg", "plan", "site_file"];
const kWords = { spaceStates: "space_state", colors: "color", positions: "position" };

/** root: the folder contract/. Returns what src/contract/schema.ts calls Contract. */
export function readContract(root) {
  const files = new Map();
  const load = (file) => {
    if (!files.has(file)) files.set(file, JSON.parse(readFileSync(file, "utf8")));
    return files.get(file);
  };
  const at = (document, pointer) =>
    pointer
      .split("/")
      .filter((part) => part !== "")
      .reduce((value, part) => value[part.replace(/~1/g, "/").replace(/~0/g, "~")], document);
  const whole = (value, file) => {
    if (Array.isArray(value)) return value.map((item) => whole(item, file));
    if (typeof value !== "object" || value === null) return value;
    const { $ref, $schema, ...others } = value;
    const own = Object.fromEntries(Object.entries(others).map(([name, member]) => [name, whole(member, file)]));
    if (typeof $ref !== "string") return own;
    const [path, pointer = ""] = $ref.split("#");
    const target = path === "" ? file : resolve(dirname(file), path);
    return { ...whole(at(load(target), pointer), target), ...own };
  };
  const schema = (folder, name) => {
    const file = resolve(root, folder, `${name}.json`);
    return whole(load(file), file);
  };
  const names = (folder) =>
    readdirSync(join(root, folder))
      .filter((file) => file.endsWith(".json"))
      .map((file) => basename(file, ".json"));
  const asked = names("requests").filter((name) => /^(set_|check_dev$)/.test(name));
  const site = Object.fromEntries(kSitePieces.map((name) => [name, schema("site", name)]));
  return {
    requests: {
      ...Object.fromEntries(asked.map((name) => [name, schema("requests", name)])),
      set_relay_cfg: site.set_relay_cfg,
    },
    site: { plan: site.plan, site_file: site.site_file },
    words: Object.fromEntries(
      Object.entries(kWords).map(([name, part]) => [name, schema("parts", part)["x-enum-titles"]]),
    ),
  };
}
