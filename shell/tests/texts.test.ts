// Each language has a text for every word of the protocol, and the page uses every text.

import assert from 'node:assert/strict';
import { readdirSync, readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { join } from 'node:path';
import { test } from 'node:test';
import type TypeScript from 'typescript';
import { languages, Words, type Language, type Texts } from '../page/words.js';
import { project } from './fake-engine.js';

const readText = (path: string) => readFileSync(join(project, path), 'utf8');
const read = <T>(path: string) => JSON.parse(readText(path)) as T;
const texts = Object.fromEntries(Object.keys(languages).map((language) => [language, read<Texts>(`shell/texts/${language}.json`)])) as Record<Language, Texts>;
const { $defs } = read<{ $defs: Record<string, { enum: string[] }> }>('protocol/schema/common.json');
const words = (kind: string) => $defs[kind]!.enum;
const sorted = (keys: Iterable<string>) => [...keys].sort();
type Rows = Record<string, { text: string; offer: string[]; offerOffline?: string[] }>;

for (const [language, text] of Object.entries(texts)) {
  test(`${language}: a text for every status, code, stage and description`, () => {
    const catalog = read<{ apps: { descriptionCode: string }[] }>('protocol/catalog.json');
    assert.deepEqual(sorted(Object.keys(text.statuses)), sorted(words('status')));
    assert.deepEqual(sorted(Object.keys(text.codes)), sorted([...words('errorCode'), 'UNKNOWN']));
    assert.deepEqual(sorted(Object.keys(text.stages)), sorted(words('stage')));
    assert.deepEqual(sorted(Object.keys(text.descriptions)), sorted(catalog.apps.map((app) => app.descriptionCode)));
    for (const reason of words('retirementReason')) assert.ok(reason in text.retired, reason);
  });

  test(`${language}: no text is empty or has a straight quote`, () => {
    for (const [path, leaf] of leaves(text)) assert.match(leaf, /^[^'"]+$/, path);
  });

  test(`${language}: the actions for a code agree with the protocol's page`, () => {
    for (const [code, { offer, offerOffline }] of Object.entries(text.codes as Rows)) {
      const advice = adviceOf(code);
      const offered = new Set([...offer, ...(offerOffline ?? [])]);
      assert.equal(offered.has('retry'), /try again/.test(advice), code);
      assert.equal(offered.has('logs'), /the logs/.test(advice), code);
      assert.equal(offered.has('download'), /download page|downloadUrl/.test(advice), code);
      assert.equal(offerOffline !== undefined, /offline/.test(advice), code);
    }
  });
}

// The fourth column of the table of codes.
function adviceOf(code: string): string {
  const row = readText('protocol/README.md').split('\n').find((line) => line.startsWith(`| \`${code}\` |`));
  assert.ok(row, code);
  return row.split('|')[4]!;
}

function leaves(value: unknown, path = ''): [string, string][] {
  if (typeof value === 'string') return [[path, value]];
  return Object.entries(value as object).flatMap(([key, part]) => leaves(part, `${path}/${key}`));
}

test('the page offers each language that has a file', () => {
  assert.deepEqual(sorted(Object.keys(languages)), sorted(readdirSync(join(project, 'shell/texts')).map((name) => name.replace('.json', ''))));
  for (const [language, name] of Object.entries(languages)) assert.equal(texts[language as Language].language, name);
});

for (const [language, text] of Object.entries(texts)) {
  test(`${language}: the same keys as in English, with the same arguments`, () => {
    const shape = (one: Texts) => leaves(one).map(([path, leaf]) => `${path} ${sorted(leaf.match(/\{\w+\}/g) ?? []).join()}`);
    assert.deepEqual(sorted(shape(text)), sorted(shape(texts.en)));
  });
}

test('the page uses every text', () => {
  const used = keysOfSay();
  assert.deepEqual(Object.keys(texts.en.page).filter((key) => key !== 'termsText' && !used.has(key)), []);
});

// The keys that the page's calls of `say` can have, by the types of their arguments.
function keysOfSay(): Set<string> {
  const ts = createRequire(join(project, 'build/shell/client/package.json'))('typescript') as typeof TypeScript;
  const { config } = ts.readConfigFile(join(project, 'shell/tsconfig.json'), ts.sys.readFile);
  const { fileNames, options } = ts.parseJsonConfigFileContent(config, ts.sys, join(project, 'shell'));
  const program = ts.createProgram(fileNames, options);
  const checker = program.getTypeChecker();
  const used = new Set<string>();
  const visit = (node: TypeScript.Node): void => {
    if (ts.isCallExpression(node) && ts.isPropertyAccessExpression(node.expression) && node.expression.name.text === 'say') {
      const type = checker.getTypeAtLocation(node.arguments[0]!);
      for (const one of type.isUnion() ? type.types : [type]) if (one.isStringLiteral()) used.add(one.value);
    }
    ts.forEachChild(node, visit);
  };
  for (const source of program.getSourceFiles()) if (source.fileName.includes('/shell/page/')) visit(source);
  return used;
}

test('the pages that show pictures name existing ones, which the tests of the page make', () => {
  const readme = readText('shell/README.md');
  const pictures = readdirSync(join(project, 'shell/pictures'));
  const made = readText('shell/tests/page.test.ts');
  for (const page of ['README.md', 'protocol/README.md', 'shell/README.md']) {
    for (const [, name] of readText(page).matchAll(/pictures\/(\w+\.png)\)/g)) assert.ok(pictures.includes(name!), `${page}: ${name}`);
  }
  for (const picture of pictures.map((name) => name.replace('.png', ''))) {
    assert.ok(made.includes(`visit.look('${picture}')`), picture);
    assert.ok(readme.includes(`\`${picture}-light.png\``), picture);
  }
});

const bytes: [number, string, string][] = [
  [0, '0 bytes', '0 Byte'], [1, '1 byte', '1 Byte'], [999, '999 bytes', '999 Byte'], [1000, '1 kB', '1 kB'], [31_457_280, '31.5 MB', '31,5 MB'],
  [279_172_874, '279 MB', '279 MB'], [20_000_000_000, '20 GB', '20 GB'], [5_000_000_000_000, '5,000 GB', '5.000 GB'],
];
for (const [count, english, german] of bytes) {
  test(`${count} bytes`, () => {
    assert.equal(new Words('en', texts.en).bytes(count), english);
    assert.equal(new Words('de', texts.de).bytes(count).replace(/\s/g, ' '), german);
  });
}

test('the words of a later engine have a text', () => {
  const english = new Words('en', texts.en);
  assert.equal(english.failure('LATER', 'install', false).text, texts.en.codes.INSTALL_FAILED.text);
  assert.equal(english.failure('LATER', 'uninstall', false).text, texts.en.codes.UNINSTALL_FAILED.text);
  assert.equal(english.failure('constructor', 'install', false).text, texts.en.codes.INSTALL_FAILED.text);
  assert.equal(english.status('later'), 'later');
  assert.equal(english.description('constructor'), '');
  assert.equal(english.retired('later'), texts.en.retired['source-unavailable']);
  assert.equal(english.retired('expired', 'soon'), texts.en.retired.expiredOn.replace('{date}', 'soon'));
});
