// check.js SETTINGS FILE...: lints Python files. SETTINGS is ruff.toml as JSON. Prints the findings, and ends with 1 if
// there are any.
const fs = require("fs");
const { Workspace, PositionEncoding } = require("@astral-sh/ruff-wasm-nodejs");

const [settings, ...files] = process.argv.slice(2);
const workspace = new Workspace(JSON.parse(fs.readFileSync(settings, "utf8")), PositionEncoding.Utf16);
const findings = files.flatMap((file) =>
  workspace.check(fs.readFileSync(file, "utf8")).map(({ code, message, start_location: { row, column } }) =>
    `${file}:${row}:${column}: ${code} ${message}`));
if (findings.length > 0) console.log(findings.join("\n"));
process.exitCode = findings.length > 0 ? 1 : 0;
