// The library with the real engine, each test on its own machine.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { createInterface } from 'node:readline';
import test from 'node:test';
import { fileURLToPath } from 'node:url';
import { apps, client, conditions, follow } from './support.mjs';

const { Engine, initialState } = client;

/** An engine on a machine that is removed after the test. */
async function machine(t, kind) {
  const script = fileURLToPath(new URL('machine.py', import.meta.url));
  const process = spawn('/usr/bin/python3', [script, kind], { stdio: ['pipe', 'pipe', 'inherit'] });
  const gone = once(process, 'close');
  t.after(() => {
    process.stdin.end();
    return gone;
  });
  for await (const line of createInterface({ input: process.stdout })) return new Engine(JSON.parse(line));
  throw new Error(`no ${kind} machine`);
}

const hello = async (engine, state) => (await follow(engine.hello(), state)).state;
const installed = (state) => Object.fromEntries(state.apps.map((app) => [app.id, app.installedVersion]));
const became = (state) => state.run.apps.map((app) => [app.id, app.condition, app.errorCode].filter(Boolean).join(' '));

function assertForward(percents) {
  assert.deepEqual(percents, [...percents].sort((one, other) => one - other));
}

test('offline: first screen, an install with a failure, a removal', async (t) => {
  const engine = await machine(t, 'offline');
  let state = await hello(engine, initialState);
  assert.deepEqual([state.installer.mode, state.checkNeeded], ['offline', false]);
  assert.deepEqual(state.apps.map((app) => app.offers.join()), apps.map(() => 'install'));
  ({ state } = await follow(engine.diskFree(), state));
  const { complete, enough } = client.roomFor(state, ['brenna', 'rulo', 'tolvi']);
  assert.deepEqual([complete, enough], [true, true]);

  const percents = [];
  const { events, state: after } = await follow(engine.run('install', ['brenna', 'rulo', 'tolvi']), state, (_, { run }) => percents.push(run.percent));
  assertForward(percents);
  assert.ok(events.every((event) => event.type !== 'shell:unknown'));
  assert.deepEqual(became(after), ['brenna succeeded', 'rulo failed VERIFY_FAILED', 'tolvi succeeded']);
  assert.deepEqual([after.run.phase, after.run.exitCode, after.helloNeeded], ['done', 1, true]);

  state = await hello(engine, after);
  const present = ['brenna', 'tolvi'];
  assert.deepEqual(installed(state), Object.fromEntries(apps.map((app) => [app, present.includes(app) ? '2.0' : null])));
  assert.deepEqual(state.apps.map((app) => app.offers.join()), apps.map((app) => present.includes(app) ? 'uninstall' : 'install'));

  ({ state } = await follow(engine.run('uninstall', ['tolvi', 'galdivane']), state));
  assert.deepEqual(became(state), ['tolvi succeeded', 'galdivane succeeded']);
  assert.deepEqual(state.run.apps.map((app) => app.status), ['uninstalled', 'already_absent']);
  assert.deepEqual(installed(await hello(engine, state)), Object.fromEntries(apps.map((app) => [app, app === 'brenna' ? '2.0' : null])));
});

test('offline: an app that is not known is refused, and nothing happens', async (t) => {
  const engine = await machine(t, 'offline');
  const { state } = await follow(engine.run('install', ['norda']));
  assert.deepEqual([state.run.phase, state.problem.status, conditions(state)], ['refused', 3, { norda: 'untouched' }]);
  assert.match(state.run.errorMessage, /Unknown app identifier/);
});

test('online: cancelled, killed, installed', async (t) => {
  const engine = await machine(t, 'online');
  let state = await hello(engine, initialState);
  assert.deepEqual([state.installer.mode, state.checkNeeded], ['online', true]);
  ({ state } = await follow(engine.checkUpdates(), state));
  assert.equal(state.apps.find((app) => app.id === 'brenna').latestVersion, '2.1');
  const start = () => engine.run('install', ['brenna', 'tolvi']);
  const downloading = (event) => event.type === 'progress' && event.detailArgs?.downloadedBytes > 0;

  // The CDN stalls in the middle of the package.
  const cancelled = start();
  ({ state } = await follow(cancelled, state, (event, { run }) => {
    if (!downloading(event) || run.apps[0].cancelAsked) return;
    assert.ok(run.apps[0].canCancel);
    cancelled.cancel('brenna');
  }));
  assert.deepEqual(became(state), ['brenna cancelled', 'tolvi failed SOURCE_UNAVAILABLE']);
  assert.equal(state.run.phase, 'done');

  const killed = start();
  ({ state } = await follow(killed, state, (event) => downloading(event) && killed.kill()));
  assert.deepEqual([state.run.phase, state.problem.signal], ['died', 'SIGKILL']);
  assert.deepEqual(conditions(state), { brenna: 'untouched', tolvi: 'untouched' });
  state = await hello(engine, state);
  assert.equal(installed(state).brenna, null);

  ({ state } = await follow(start(), state));
  assert.deepEqual(became(state), ['brenna succeeded', 'tolvi failed SOURCE_UNAVAILABLE']);
  assert.equal(installed(await hello(engine, state)).brenna, '2.1');
});
