// check.js FOLDER...: compiles every schema of the folders, all in one instance of ajv in its strict mode. Then it
// reads [{"schema": ID, "value": ...}] from standard input and prints, as JSON, whether each value is valid.
const fs = require("fs");
const path = require("path");
const Ajv2020 = require("ajv/dist/2020").default;

const ajv = new Ajv2020({ strict: true, discriminator: true });
const schemas = process.argv.slice(2).flatMap((folder) =>
  fs.readdirSync(folder).filter((name) => name.endsWith(".json"))
    .map((name) => JSON.parse(fs.readFileSync(path.join(folder, name), "utf8"))));
for (const schema of schemas) ajv.addSchema(schema);
for (const schema of schemas) ajv.getSchema(schema.$id);

const cases = JSON.parse(fs.readFileSync(0, "utf8"));
console.log(JSON.stringify(cases.map(({ schema, value }) => ajv.getSchema(schema)(value))));
