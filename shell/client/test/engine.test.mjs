// The library with the fake engine.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { closeSync, openSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import test from 'node:test';
import { client, conditions, events, folder, follow, lines, player } from './support.mjs';

const { Engine } = client;
const engine = (t, plan, options) => new Engine({ program: player(t, plan), ...options });
const cancel = (app) => ({ await: { type: 'cancel', ...(app ? { app } : {}) } });

test('each command gives its events between a beginning and an end', async (t) => {
  const plan = {
    'hello': [{ transcript: 'hello' }], 'check-updates': [{ transcript: 'check-updates' }], 'run': [{ transcript: 'install' }],
    'disk-free': [{ transcript: 'disk-free' }], 'export-logs': [{ transcript: 'export-logs-failing' }, { exit: 2 }],
  };
  const playing = engine(t, plan);
  const started = {
    'hello': playing.hello(), 'check-updates': playing.checkUpdates(['brenna', 'tolvi']), 'run': playing.run('install', ['brenna', 'rulo']),
    'disk-free': playing.diskFree(), 'export-logs': playing.exportLogs(),
  };
  for (const [command, steps] of Object.entries(plan)) {
    const { events: taken } = await follow(started[command]);
    const apps = command === 'run' ? { action: 'install', apps: ['brenna', 'rulo'] } : {};
    assert.deepEqual(taken.shift(), { type: 'shell:began', command, ...apps });
    const ended = taken.pop();
    assert.deepEqual(ended, { type: 'shell:ended', command, done: true, status: steps[1]?.exit ?? 0, signal: null, errors: '' });
    assert.deepEqual(taken, events(steps[0].transcript));
    assert.deepEqual(await started[command].ended, ended);
  }
});

test('each request becomes whole arguments of the command line', async (t) => {
  const place = folder(t);
  const program = join(place, 'engine-cli');
  writeFileSync(program, '#!/bin/sh\nprintf \'%s\\n\' "$@"\n', { mode: 0o755 });
  const words = async (command) => (await follow(command)).events.filter((event) => event.type === 'shell:line').map((event) => event.text);
  const plain = new Engine({ program });
  assert.deepEqual(await words(plain.hello()), ['hello']);
  assert.deepEqual(await words(plain.checkUpdates()), ['check-updates']);
  assert.deepEqual(await words(plain.checkUpdates(['rulo', 'tolvi'])), ['check-updates', '--apps', 'rulo,tolvi']);
  assert.deepEqual(await words(plain.run('update', ['rulo', 'tolvi', 'rulo'], { strict: true })),
    ['run', '--action', 'update', '--apps', 'rulo,tolvi', '--strict', 'true']);
  assert.deepEqual(await words(plain.diskFree('/a b; $(c)')), ['disk-free', '--path', '/a b; $(c)']);
  assert.deepEqual(await words(plain.diskFree('--out')), ['disk-free', '--path', join(process.cwd(), '--out')]);
  assert.deepEqual(await words(plain.exportLogs('/x')), ['export-logs', '--out', '/x']);
  const offline = new Engine({ program, offline: true });
  assert.deepEqual(await words(offline.run('uninstall', ['rulo'])), ['run', '--action', 'uninstall', '--apps', 'rulo', '--offline']);
});

test('a list that the engine would take for all apps, or for an option, is refused', () => {
  const none = new Engine({ program: '/nowhere' });
  for (const apps of [[], [''], [' '], ['brenna', ''], [','], ['brenna,tolvi'], ['--offline']]) {
    assert.throws(() => none.run('uninstall', apps), RangeError, JSON.stringify(apps));
    assert.throws(() => none.checkUpdates(apps), RangeError, JSON.stringify(apps));
  }
  const run = none.run('install', ['brenna']);
  for (const app of ['', ' ', null, 5, {}]) assert.throws(() => run.cancel(app), RangeError, JSON.stringify(app));
});

test('other lines among the events change nothing', async (t) => {
  const first = lines('install').slice(0, 3).map((line) => `${line}\n`).join('');
  const rest = lines('install').slice(3).map((line) => `${line}\n`).join('');
  const noise = [{ text: 'Created log directory: /x\n\n[]\n{"type":' }, { text: '\n' }, { hex: 'fffe0a' }, { text: '{"v":1,"type":"weather"}\n' }];
  const playing = engine(t, { run: [...noise, { text: first }, ...noise, { text: rest }] });
  const { events: taken, state } = await follow(playing.run('install', ['brenna', 'rulo']));
  assert.deepEqual(taken.filter((event) => !event.type.startsWith('shell:')), events('install'));
  assert.equal(taken.filter((event) => event.type === 'shell:line').length, 10);
  assert.equal(taken.filter((event) => event.type === 'shell:unknown').length, 2);
  assert.deepEqual(conditions(state), { brenna: 'succeeded', rulo: 'succeeded' });
});

test('a cancel reaches the engine, and its result is shown as cancelled', async (t) => {
  const [head, tail] = [8, lines('cancel-all').length].map((count, index, all) => lines('cancel-all').slice(all[index - 1] ?? 0, count));
  const text = (list) => ({ text: list.map((line) => `${line}\n`).join('') });
  const playing = engine(t, { run: [text(head), cancel('brenna'), cancel(), text(tail), { exit: 2 }] });
  const run = playing.run('install', ['brenna', 'tolvi']);
  const seen = [];
  const { state } = await follow(run, client.initialState, (event, { run: now }) => {
    seen.push(Object.values(conditions({ run: now })).join(' '));
    if (event.detailArgs) run.cancel('brenna');
    if (event.type === 'shell:cancel-asked' && event.app) run.cancel();
  });
  assert.deepEqual([...new Set(seen)], [
    'waiting waiting', 'working waiting', 'cancelling waiting', 'cancelling cancelled', 'cancelled cancelled',
  ]);
  assert.deepEqual(state.run.apps.map((app) => [app.status, app.errorCode]), [['failed', null], ['cancelled', null]]);
  assert.equal(state.run.exitCode, 2);
});

test('a cancel after the engine has ended does nothing', async (t) => {
  const run = engine(t, { run: [{ transcript: 'install' }] }).run('install', ['brenna', 'rulo']);
  await run.ended;
  run.cancel();
  run.terminate();
  const { events: taken } = await follow(run);
  assert.equal(taken.at(-1).type, 'shell:ended');
  assert.ok(!taken.some((event) => event.type === 'shell:cancel-asked'));
});

test('a cancel with a closed standard input does nothing', async (t) => {
  const program = join(folder(t), 'engine-cli');
  writeFileSync(program, '#!/bin/sh\nexec <&-\necho ready\n', { mode: 0o755 });
  const run = new Engine({ program }).run('install', ['brenna']);
  const { state } = await follow(run, client.initialState, (event) => event.text === 'ready' && run.cancel());
  assert.equal(state.problem.status, 0);
});

test('silence is reported once and ends with the next line', async (t) => {
  const playing = engine(t, { run: [{ transcript: 'install', lines: 4 }, cancel('x'), { transcript: 'install' }] }, { silenceMilliseconds: 50 });
  const run = playing.run('install', ['brenna', 'rulo']);
  const silences = [];
  const { state } = await follow(run, client.initialState, (event, { run: now }) => {
    silences.push(now.silent);
    if (event.type !== 'shell:silent') return;
    assert.deepEqual(event, { type: 'shell:silent', command: 'run', milliseconds: 50 });
    run.cancel('x');
  });
  assert.ok(silences.includes(true));
  assert.equal(state.run.silent, false);
  assert.deepEqual(conditions(state), { brenna: 'succeeded', rulo: 'succeeded' });
});

test('a killed engine leaves the earlier events and a cut line', async (t) => {
  const steps = [{ transcript: 'install', lines: 20 }, { text: '{"v":1,"type":"stage","app":"ru' }, { signal: 'SIGKILL' }];
  const { events: taken, state } = await follow(engine(t, { run: steps }).run('install', ['brenna', 'rulo', 'tolvi']));
  assert.deepEqual(taken.at(-2), { type: 'shell:line', text: '{"v":1,"type":"stage","app":"ru' });
  assert.deepEqual(taken.at(-1), { type: 'shell:ended', command: 'run', done: false, status: null, signal: 'SIGKILL', errors: '' });
  assert.equal(state.run.phase, 'died');
  assert.deepEqual(conditions(state), { brenna: 'succeeded', rulo: 'untouched', tolvi: 'untouched' });
  assert.ok(state.helloNeeded);
});

test('the reason for a bad command line is kept', async (t) => {
  const reason = 'Error: unknown app\n';
  const steps = [{ transcript: 'bad-command-line' }, { errors: 'x'.repeat(10_000) }, { errors: reason }, { exit: 3 }];
  const { events: taken, state } = await follow(engine(t, { run: steps }).run('install', ['norda']));
  const { errors, ...ended } = taken.at(-1);
  assert.deepEqual(ended, { type: 'shell:ended', command: 'run', done: false, status: 3, signal: null });
  assert.deepEqual([errors.length, errors.endsWith(`x${reason}`)], [4096, true]);
  assert.equal(state.run.phase, 'refused');
  assert.match(state.run.errorMessage, /Unknown app identifier/);
});

test('a program that cannot be started gives shell:ended with a reason', async (t) => {
  const place = folder(t);
  writeFileSync(join(place, 'text'), 'no program', { mode: 0o644 });
  for (const program of [join(place, 'missing'), place, join(place, 'text'), join(place, 'text/engine-cli'), `/${'x'.repeat(5000)}`, '']) {
    const { events: taken, state } = await follow(new Engine({ program }).run('install', ['brenna']));
    assert.deepEqual(taken.map((event) => event.type), ['shell:began', 'shell:ended'], program);
    const { startFailure, ...ended } = taken[1];
    assert.notEqual(startFailure, '');
    assert.deepEqual(ended, { type: 'shell:ended', command: 'run', done: false, status: null, signal: null, errors: '' });
    assert.equal(state.run.phase, 'refused');
    assert.deepEqual(conditions(state), { brenna: 'untouched' });
  }
});

test('a command runs in a separate process group and leaves no timer', async (t) => {
  const program = join(folder(t), 'engine-cli');
  writeFileSync(program, '#!/bin/sh\ncut -d " " -f 1,5 /proc/$$/stat\nread line\necho one\nread line\necho two\n', { mode: 0o755 });
  const run = new Engine({ program }).run('install', ['brenna']);
  const { events: taken } = await follow(run, client.initialState, (event) => event.type === 'shell:line' && run.cancel());
  const [leader, group] = taken.find((event) => event.type === 'shell:line').text.split(' ');
  assert.equal(leader, group);
  assert.ok(!process.getActiveResourcesInfo().includes('Timeout'), String(process.getActiveResourcesInfo()));
});

test('output is read without an iteration', async (t) => {
  const many = Array(2000).fill({ transcript: 'install', lines: 12 });
  const run = engine(t, { run: [...many, { transcript: 'install' }] }).run('install', ['brenna', 'rulo']);
  assert.equal((await run.ended).status, 0);
  const { events: taken } = await follow(run);
  assert.equal(taken.length, 2 + 2000 * 12 + lines('install').length);
});

test('leaving the loop does not end the run', async (t) => {
  const run = engine(t, { run: [{ transcript: 'install', lines: 1 }, cancel(), { transcript: 'install' }] }).run('install', ['brenna']);
  for await (const event of run) if (event.type === 'stage') break;
  run.cancel();
  assert.deepEqual(await run.ended, { type: 'shell:ended', command: 'run', done: true, status: 0, signal: null, errors: '' });
});

test('a query that takes too long can be ended', async (t) => {
  const command = engine(t, { 'check-updates': [cancel()] }).checkUpdates();
  const { state } = await follow(command, client.initialState, (event) => event.type === 'shell:began' && command.kill());
  assert.equal(state.problem.signal, 'SIGKILL');
  assert.deepEqual(state.underWay, []);
});

test('terminate sends one signal', async (t) => {
  const program = join(folder(t), 'engine-cli');
  writeFileSync(program, `#!${process.execPath}
    let signals = 0;
    process.on('SIGTERM', () => { signals += 1; console.log('asked'); });
    process.stdin.once('data', () => setImmediate(() => process.exit(signals))).once('end', () => process.exit(99));
    console.log('ready');`, { mode: 0o755 });
  const run = new Engine({ program }).run('install', ['brenna']);
  const { state } = await follow(run, client.initialState, (event) => {
    if (event.text === 'ready' || event.text === 'asked') run.terminate();
    if (event.text === 'asked') run.cancel();
  });
  assert.equal(state.problem.status, 1);
  assert.ok(state.run.cancelAsked);
});

test('a command ends although another process has inherited its output', async (t) => {
  const pipe = join(folder(t), 'pipe');
  execFileSync('mkfifo', [pipe]);
  const held = openSync(pipe, 'r+');
  t.after(() => closeSync(held));
  const { events: taken } = await follow(engine(t, { hello: [{ inherited: pipe }, { transcript: 'hello' }] }).hello());
  assert.deepEqual(taken.slice(1, -1), events('hello'));
  assert.equal(taken.at(-1).status, 0);
});
