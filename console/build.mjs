// Builds the page into one file, or what looks at it.
//   node build.mjs OUTPUT_FILE [LIST]     the page; LIST: the packages in it, "NAME VERSION LICENCE" a line
//   node build.mjs --tests FOLDER OUTPUT_DIR   FOLDER/*.test.ts, for node --test
//   node build.mjs --script FILE OUTPUT_DIR    another program of this kind
import { createHash } from "node:crypto";
import { mkdirSync, readFileSync, readdirSync, writeFileSync } from "node:fs";
import { dirname, join, resolve } from "node:path";
import { fileURLToPath } from "node:url";
import { gzipSync } from "node:zlib";
import esbuild from "esbuild";
import { readContract } from "./contract.mjs";

const here = dirname(fileURLToPath(import.meta.url));
const kBytesMax = 700_000;
const kZippedMax = 250_000;

const contractPlugin = {
  name: "contract",
  setup(build) {
    build.onResolve({ filter: /^contract:/ }, ({ path }) => ({ path, namespace: "contract" }));
    build.onLoad({ filter: /.*/, namespace: "contract" }, () => ({
      contents: JSON.stringify(readContract(resolve(here, "../contract"))),
      loader: "json",
    }));
  },
};

// The packages that the bundle took files from, and all that these depend on: some come as one file with theirs in it.
function packagesOf(inputs) {
  const { packages } = JSON.parse(readFileSync(join(here, "package-lock.json"), "utf8"));
  const found = new Map();
  const take = (name, from) => {
    const nested = `${from}/node_modules/${name}`;
    const path = from !== "" && nested in packages ? nested : `node_modules/${name}`;
    const { version, license, dependencies } = packages[path];
    if (name.startsWith("@types/") || found.has(path)) return;
    found.set(path, `${name} ${version} ${license}`);
    for (const dependency of Object.keys(dependencies ?? {})) take(dependency, path);
  };
  for (const input of inputs) {
    const name = /(?:^|\/)node_modules\/((?:@[^/]+\/)?[^/]+)/.exec(input)?.[1];
    if (name !== undefined) take(name, "");
  }
  return [...new Set(found.values())].sort();
}

async function buildPage(output, list) {
  const result = await esbuild.build({
    entryPoints: [join(here, "src/main.ts")],
    outdir: "/",
    bundle: true,
    minify: true,
    write: false,
    platform: "browser",
    target: ["chrome100", "firefox100", "safari15"],
    charset: "utf8",
    legalComments: "none",
    metafile: true,
    plugins: [contractPlugin],
  });
  const text = (suffix) => result.outputFiles.find((file) => file.path.endsWith(suffix)).text;
  const script = text(".js")
    .trim()
    .replace(/<\/script/gi, "<\\/script");
  const style = text(".css").trim();
  const hash = (content) => `'sha256-${createHash("sha256").update(content).digest("base64")}'`;
  const policy = [
    "default-src 'none'",
    `script-src ${hash(script)}`,
    `style-src ${hash(style)}`,
    "img-src data:",
    "connect-src 'self'",
    "base-uri 'none'",
    "form-action 'none'",
  ].join("; ");
  const page = readFileSync(join(here, "index.html"), "utf8")
    .replace("{{policy}}", () => policy)
    .replace("{{style}}", () => style)
    .replace("{{script}}", () => script);
  const bytes = Buffer.byteLength(page);
  const zipped = gzipSync(page, { level: 9 }).length;
  if (bytes > kBytesMax || zipped > kZippedMax)
    throw new Error(`the page is too large: ${bytes} bytes, ${zipped} compressed`);
  mkdirSync(dirname(output), { recursive: true });
  writeFileSync(output, page);
  if (list !== undefined) {
    mkdirSync(dirname(list), { recursive: true });
    writeFileSync(list, packagesOf(Object.keys(result.metafile.inputs)).join("\n") + "\n");
  }
  console.log(`console: ${bytes} bytes, ${zipped} compressed`);
}

const testsOf = (folder) =>
  readdirSync(folder)
    .filter((file) => file.endsWith(".test.ts"))
    .map((file) => join(folder, file));

async function buildPrograms(entryPoints, output) {
  await esbuild.build({
    entryPoints,
    outdir: output,
    bundle: true,
    platform: "node",
    format: "esm",
    outExtension: { ".js": ".mjs" },
    external: ["playwright-core", "axe-core", "mqtt"],
    sourcemap: "inline",
    plugins: [contractPlugin],
  });
}

const [first, second, third] = process.argv.slice(2);
if (first === "--tests" && third !== undefined) await buildPrograms(testsOf(resolve(here, second)), resolve(third));
else if (first === "--script" && third !== undefined) await buildPrograms([resolve(here, second)], resolve(third));
else if (first !== undefined && !first.startsWith("--")) await buildPage(resolve(first), second);
else throw new Error("usage: node build.mjs OUTPUT_FILE [LIST] | --tests FOLDER OUTPUT_DIR | --script FILE OUTPUT_DIR");
