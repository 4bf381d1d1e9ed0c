// The package, packed and installed in an empty folder.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import test from 'node:test';
import { folder, packageFolder, player } from './support.mjs';

function succeed(place, ...words) {
  const [program, ...rest] = words;
  const run = spawnSync(program, rest, { cwd: place, encoding: 'utf8', env: { ...process.env, npm_config_cache: join(place, 'cache') } });
  assert.equal(run.status, 0, `${words.join(' ')}\n${run.stdout}${run.stderr}`);
  return run.stdout;
}

/** A folder with only the package, for all tests of this file. */
const place = folder(test);
const [packed] = JSON.parse(succeed(packageFolder, 'npm', 'pack', '--json', '--ignore-scripts', '--pack-destination', place));
writeFileSync(join(place, 'package.json'), '{ "private": true }');
succeed(place, 'npm', 'install', '--offline', '--ignore-scripts', '--no-audit', '--no-fund', join(place, packed.filename));

const tenLines = readFileSync(join(packageFolder, 'README.md'), 'utf8').match(/```js\n(.*?)```/s)[1];

test('the ten lines of the README install an app', (t) => {
  const names = packed.files.map((file) => file.path).filter((path) => !path.startsWith('dist/'));
  assert.deepEqual(names.sort(), ['README.md', 'package.json']);

  assert.ok(tenLines.trimEnd().split('\n').filter(Boolean).length <= 10);
  writeFileSync(join(place, 'install.mjs'), tenLines);
  const output = succeed(place, process.execPath, 'install.mjs', player(t, { run: [{ transcript: 'signature-failed' }] }));
  assert.match(output, /^0 % brenna waiting\n/);
  assert.match(output, /\n100 % brenna failed\n$/);
  assert.match(succeed(place, process.execPath, 'install.mjs', player(t, { run: [{ transcript: 'retry' }] })), /\n100 % brenna succeeded\n$/);

  const both = "const { Engine } = require('kelo-shell-client'); const { next } = require('kelo-shell-client/state'); console.log(typeof Engine, typeof next)";
  assert.equal(succeed(place, process.execPath, '-e', both), 'function function\n');
});

test('the types compile for both kinds of modules', () => {
  const compile = (files, settings) => {
    const compilerOptions = {
      noEmit: true, strict: true, target: 'ES2022', module: 'nodenext', skipLibCheck: true,
      typeRoots: [join(packageFolder, 'node_modules/@types')], ...settings,
    };
    for (const [name, text] of Object.entries(files)) writeFileSync(join(place, name), text);
    writeFileSync(join(place, 'tsconfig.json'), JSON.stringify({ compilerOptions, files: Object.keys(files) }));
    succeed(place, process.execPath, join(packageFolder, 'node_modules/typescript/bin/tsc'), '-p', '.');
  };
  const page = `
    import { initialState, next, roomFor, type ErrorCode, type ShellEvent, type State } from 'kelo-shell-client/state';
    const later: ErrorCode = 'LATER';
    // @ts-expect-error: a code is a string.
    const wrong: ErrorCode = 5;
    export function shown(event: ShellEvent): string | number | null {
      const state: State = next(initialState, event);
      // @ts-expect-error: a state is read-only.
      state.retired = null;
      if (event.type === 'app-result') return event.errorCode ?? later ?? wrong;
      if (event.type === 'shell:ended') return event.status;
      // @ts-expect-error: only a progress event has a percentage.
      return roomFor(state, ['brenna']).requiredBytes + event.percent;
    }`;
  compile({ 'page.mts': page }, { types: [], lib: ['ES2022', 'DOM'] });
  const main = `
    import { Engine, type ShellEvent } from 'kelo-shell-client';
    export async function install(program: string): Promise<ShellEvent[]> {
      const events: ShellEvent[] = [];
      for await (const event of new Engine({ program }).run('install', ['brenna'])) events.push(event);
      return events;
    }
    // @ts-expect-error: not an action of a run.
    new Engine({ program: '' }).run('hello', ['brenna']);`;
  compile({ 'main.mts': main, 'main.cts': main }, { types: ['node'] });
});
