// generate-types.mjs SCHEMAS: prints TypeScript types for the protocol's strict schemas.
// Enumerations accept any word: a later engine of the same protocol version may add some.
import { readFileSync, readdirSync } from 'node:fs';
import { join } from 'node:path';

const folder = process.argv[2];
const schemas = new Map(readdirSync(folder).filter((name) => name.endsWith('.json')).sort()
  .map((name) => [name, JSON.parse(readFileSync(join(folder, name), 'utf8'))]));

const primitives = { string: 'string', boolean: 'boolean', integer: 'number', number: 'number', null: 'null' };

function referred(reference) {
  const [file, pointer] = reference.split('#/$defs/');
  return pointer ? schemas.get(file).$defs[pointer] : schemas.get(file);
}

const union = (types) => [...new Set(types)].join(' | ');
const quoted = (value) => (typeof value === 'string' ? `'${value}'` : String(value));

function typeOf(schema) {
  if (schema.$ref) return referred(schema.$ref).title;
  if ('const' in schema) return quoted(schema.const);
  if (schema.oneOf) return union(schema.oneOf.map(typeOf));
  if (schema.enum) return union([...schema.enum.map(quoted), '(string & {})']);
  if (schema.type === 'array') return `readonly ${typeOf(schema.items)}[]`;
  return union([schema.type].flat().map((name) => primitives[name]));
}

const comment = (text, indent = '') => (text ? `${indent}/** ${text} */\n` : '');

function property([name, schema], required) {
  return `${comment(schema.description, '  ')}  readonly ${name}${required.includes(name) ? '' : '?'}: ${typeOf(schema)};\n`;
}

function declaration(schema) {
  if (!schema.properties) return `${comment(schema.description)}export type ${schema.title} = ${typeOf(schema)};\n`;
  const properties = Object.entries(schema.properties).map((entry) => property(entry, schema.required)).join('');
  return `${comment(schema.description)}export interface ${schema.title} {\n${properties}}\n`;
}

// The type as a text for checks at run time: 'string', 'string|null', 'Release[]', 'Release'.
function words(schema) {
  if (schema.$ref) return words(referred(schema.$ref));
  if ('const' in schema) return typeof schema.const;
  if (schema.oneOf) return schema.oneOf.map(words).join('|');
  if (schema.type === 'array') return `${words(schema.items)}[]`;
  if (schema.properties) return schema.title;
  return [schema.type].flat().map((name) => primitives[name]).join('|');
}

function shape(schema) {
  const keys = Object.entries(schema.properties)
    .map(([name, value]) => `    ${name}: '${words(value)}${schema.required.includes(name) ? '' : '|undefined'}',\n`);
  return `  ${schema.title}: {\n${keys.join('')}  },\n`;
}

const events = schemas.get('event.json').oneOf.map((entry) => referred(entry.$ref));
const declarations = [...Object.values(schemas.get('common.json').$defs),
  ...[...schemas].filter(([name]) => name !== 'common.json').map(([, schema]) => schema)];

process.stdout.write(`// Made by generate-types.mjs from protocol/schema. Don't edit.\n
${declarations.map(declaration).join('\n')}
/** The record of each kind of event. */
export const shapeOf: Readonly<Record<string, string>> = {
${events.map((schema) => `  '${schema.properties.type.const}': '${schema.title}',\n`).join('')}};

/** The types of the keys of each record. */
export const shapes: Readonly<Record<string, Readonly<Record<string, string>>>> = {
${declarations.filter((schema) => schema.properties).map(shape).join('')}};
`);
