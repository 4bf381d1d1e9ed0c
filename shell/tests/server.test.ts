// The server: refused requests, and its processes of the engine.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { request, type IncomingHttpHeaders, type IncomingMessage } from 'node:http';
import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { after, before, test } from 'node:test';
import type { ShellEvent } from '../client/src/events.js';
import type { State } from '../client/src/state.js';
import type { Message } from '../page/connection.js';
import { longestBody } from '../server/server.js';
import { FakeEngine, transcript } from './fake-engine.js';
import { built, openShell, type TestShell } from './test-shell.js';

let shell: TestShell;
before(async () => {
  shell = await openShell();
  const page = await listen();
  shell.session.refresh();
  await page.until(ended('disk-free'));
});
after(() => shell.close());

interface Asked {
  path: string;
  method?: string;
  headers?: Record<string, string | undefined>;
  body?: string;
  to?: TestShell;
}

// Sends the path unchanged. Omits headers that are undefined.
async function open({ path, method = 'POST', headers = {}, body = '', to = shell }: Asked): Promise<IncomingMessage> {
  const usual = {
    host: to.address.host, origin: to.address.origin, authorization: `Bearer ${to.token}`,
    ...(method === 'POST' ? { 'content-type': 'application/json' } : {}),
  };
  const all = Object.entries({ ...usual, ...headers }).filter(([, value]) => value !== undefined) as [string, string][];
  const asked = request({ host: '127.0.0.1', port: to.address.port, path, method, headers: Object.fromEntries(all), agent: false });
  asked.on('error', () => undefined);
  asked.end(body);
  const [response] = (await once(asked, 'response')) as [IncomingMessage];
  return response;
}

async function ask(asked: Asked): Promise<{ status: number; headers: IncomingHttpHeaders; text: string }> {
  const response = await open(asked);
  let text = '';
  for await (const piece of response) text += String(piece);
  return { status: response.statusCode ?? 0, headers: response.headers, text };
}

const post = async (path: string, body: unknown, to = shell) => (await ask({ path, body: JSON.stringify(body), to })).status;

interface Listener {
  beginning: State;
  // Reads until an event is `enough`. Returns all events since the first message.
  until(enough: (event: ShellEvent) => boolean): Promise<ShellEvent[]>;
}

// Opens a stream as a page does. Has read the first message when it returns, so it misses no later event.
async function listen(to = shell): Promise<Listener> {
  const response = await open({ path: '/api/events', method: 'GET', to });
  const lines = createInterface(response)[Symbol.asyncIterator]();
  const read = async () => JSON.parse((await lines.next()).value as string) as Message;
  const first = await read();
  assert.ok('state' in first);
  const events: ShellEvent[] = [];
  return {
    beginning: first.state,
    async until(enough) {
      for (let message = await read(); ; message = await read()) {
        assert.ok('event' in message);
        events.push(message.event);
        if (enough(message.event)) break;
      }
      response.destroy();
      return events;
    },
  };
}

const ended = (command: string) => (event: ShellEvent) => event.type === 'shell:ended' && event.command === command;

test('the page and its files are served without a token, with a strict policy', async () => {
  for (const path of ['/', '/page/main.js', '/page/views/run.js', '/page/style.css', '/texts/de.json', '/client/src/state.js']) {
    const { status, headers } = await ask({ path, method: 'GET', headers: { authorization: undefined } });
    assert.equal(status, 200, path);
    assert.match(String(headers['content-security-policy']), /default-src 'none'; script-src 'self'/);
    assert.doesNotMatch(String(headers['content-security-policy']), /unsafe|\*/);
    assert.equal(headers['x-content-type-options'], 'nosniff');
    assert.equal(headers['access-control-allow-origin'], undefined);
  }
});

test('no answer contains the token', async () => {
  for (const path of ['/', '/page/main.js', '/api/nothing']) {
    const { text, headers } = await ask({ path, method: 'GET' });
    assert.ok(!(text + JSON.stringify(headers)).includes(shell.token), path);
  }
});

const refusals: [string, number, Asked][] = [
  ['no token', 401, { path: '/api/run', headers: { authorization: undefined } }],
  ['an empty token', 401, { path: '/api/run', headers: { authorization: 'Bearer ' } }],
  ['a wrong token', 401, { path: '/api/run', headers: { authorization: `Bearer ${'A'.repeat(32)}` } }],
  ['a wrong token for the stream', 401, { path: '/api/events', method: 'GET', headers: { authorization: 'Bearer x' } }],
  ['a token in the address', 401, { path: '/api/events?token=x', method: 'GET', headers: { authorization: undefined } }],
  ['a foreign origin', 403, { path: '/api/run', headers: { origin: 'https://kelo.example' } }],
  ['the null origin', 403, { path: '/api/run', headers: { origin: 'null' } }],
  ['the same host at another port', 403, { path: '/api/run', headers: { origin: 'http://127.0.0.1:1' } }],
  ['no origin', 403, { path: '/api/run', headers: { origin: undefined } }],
  ['a foreign host', 403, { path: '/', method: 'GET', headers: { host: 'kelo.example' } }],
  ['another name of this host', 403, { path: '/', method: 'GET', headers: { host: 'localhost' } }],
  ['a request from a page of another site', 403, { path: '/', method: 'GET', headers: { 'sec-fetch-site': 'cross-site' } }],
  ['another method', 405, { path: '/api/run', method: 'PUT' }],
  ['another method for the page', 405, { path: '/', method: 'DELETE' }],
  ['a form', 415, { path: '/api/run', headers: { 'content-type': 'application/x-www-form-urlencoded' }, body: 'action=install' }],
  ['plain text', 415, { path: '/api/run', headers: { 'content-type': 'text/plain' }, body: '{}' }],
  ['an unknown request', 404, { path: '/api/shutdown', body: '{}' }],
  ['a large body', 413, { path: '/api/run', body: JSON.stringify({ action: 'install', apps: ['x'.repeat(longestBody)] }) }],
  ['a large body of unknown length', 413, { path: '/api/run', headers: { 'transfer-encoding': 'chunked' }, body: ' '.repeat(longestBody + 1) }],
];
for (const [what, status, asked] of refusals) {
  test(`refused: ${what}`, async () => assert.equal((await ask(asked)).status, status));
}

const tricks = [
  '/../server/main.js', '/server/main.js', '/page/../server/main.js', '/page/..%2fserver%2fmain.js', '/%2e%2e/%2e%2e/etc/passwd', '//etc/passwd',
  '/page//main.js', '/page/main.js?x', '/page/main.js%00.css', '/page\\main.js', '/page/', '/package.json', '/tests/server.test.js', 'http://kelo.example/',
  '/__proto__', '/constructor',
];
for (const path of tricks) {
  test(`no file: ${path}`, async () => assert.equal((await ask({ path, method: 'GET' })).status, 404));
}

const malformed: unknown[] = [
  null, 7, 'install', [], {}, { action: 'install' }, { action: 'install', apps: [] }, { action: 'install', apps: 'brenna' },
  { action: 'erase', apps: ['brenna'] }, { action: '--offline', apps: ['brenna'] }, { action: ['install'], apps: ['brenna'] },
  { action: 'install', apps: ['Brenna'] }, { action: 'install', apps: ['brenna,tolvi'] }, { action: 'install', apps: ['brenna', 'brenna'] },
  { action: 'install', apps: ['brenna', '--strict'] }, { action: 'install', apps: [['brenna']] }, { action: 'install', apps: ['__proto__'] },
  { action: 'install', apps: ['brenna'], strict: true },
];
for (const body of malformed) {
  test(`no run: ${JSON.stringify(body)}`, async () => assert.equal(await post('/api/run', body), 400));
}

test('no run: a body that is not JSON', async () => assert.equal((await ask({ path: '/api/run', body: '{"action":' })).status, 400));

test('no cancel: an app that the installer lacks, an unknown key', async () => {
  for (const body of [{ app: 'x' }, { app: null }, { app: ['brenna'] }, { everything: true }]) assert.equal(await post('/api/cancel', body), 400);
});

test('the refused requests started no process of the engine', () => {
  assert.deepEqual(shell.engine.commandLines, [['hello'], ['disk-free']]);
});

test('a run has the apps in the order of the catalog, and only one is under way', async () => {
  assert.equal(await post('/api/run', { action: 'install', apps: ['rulo', 'brenna'] }), 202);
  const run = await shell.engine.next('run');
  assert.deepEqual(run.words, ['run', '--action', 'install', '--apps', 'brenna,rulo']);
  assert.equal(await post('/api/run', { action: 'uninstall', apps: ['tolvi'] }), 409);
  assert.equal(await post('/api/cancel', { app: 'rulo' }), 202);
  assert.equal(await run.input(), '{"type":"cancel","app":"rulo"}');
  const page = await listen();
  run.end(...transcript('install'));
  await page.until(ended('disk-free'));
});

test('nothing to cancel: no run', async () => assert.equal(await post('/api/cancel', {}), 409));

test('a page that connects during a run gets the current state, and two pages get the same events', async () => {
  assert.equal(await post('/api/run', { action: 'install', apps: ['brenna', 'rulo'] }), 202);
  const run = await shell.engine.next('run');
  const first = await listen();
  const events = transcript('install');
  run.say(...events.slice(0, -1));
  await first.until((event) => event.type === 'app-result' && event.app === 'rulo');
  const [second, third] = [await listen(), await listen()];
  assert.deepEqual(second.beginning.run?.apps.map((app) => app.status), ['installed', 'installed']);
  assert.equal(second.beginning.run?.phase, 'running');
  run.end(events.at(-1)!);
  const seen = await second.until(ended('disk-free'));
  assert.deepEqual(seen, await third.until(ended('disk-free')));
  assert.deepEqual(seen.slice(0, 2).map((event) => event.type), ['done', 'shell:ended']);
});

test('only one export of logs runs at a time', async () => {
  assert.equal(await post('/api/export-logs', {}), 202);
  const exported = await shell.engine.next('export-logs');
  assert.equal(await post('/api/export-logs', {}), 409);
  const page = await listen();
  exported.end(...transcript('export-logs'));
  await page.until(ended('export-logs'));
  assert.deepEqual(exported.words, ['export-logs']);
});

test('a missing engine becomes a state and doesn\'t end the server', async () => {
  const other = await openShell({ program: '/nonexistent/engine-cli' });
  const page = await listen(other);
  other.session.refresh();
  await page.until(ended('disk-free'));
  const { beginning } = await listen(other);
  assert.equal(beginning.installer, null);
  assert.match(beginning.problem?.startFailure ?? '', /ENOENT/);
  assert.equal(await post('/api/run', { action: 'install', apps: ['brenna'] }, other), 400);
  await other.close();
});

test('a page that disconnects during the shutdown does not delay it', async () => {
  const other = await openShell();
  const streams = await Promise.all(Array.from({ length: 20 }, () => open({ path: '/api/events', method: 'GET', to: other })));
  for (const stream of streams) stream.destroy();
  await other.close();
});

const chatter = { v: 1, type: 'log', level: 'info', message: 'x'.repeat(1024 * 1024) };
const beyondSocketBuffers = 80;

test('a page that does not read does not delay the shutdown', { timeout: 60_000 }, async () => {
  const other = await openShell({ backlog: Infinity });
  const deaf = await open({ path: '/api/events', method: 'GET', to: other });
  other.session.start('install', ['brenna']);
  const run = await other.engine.next('run');
  const page = await listen(other);
  run.end(...Array.from({ length: beyondSocketBuffers }, () => chatter), ...transcript('cancel-all'));
  await page.until(ended('disk-free'));
  await other.close();
  deaf.destroy();
});

test('a page that does not read is disconnected, and the others are not', { timeout: 60_000 }, async () => {
  const other = await openShell();
  const deaf = await open({ path: '/api/events', method: 'GET', to: other });
  other.session.start('install', ['brenna']);
  const run = await other.engine.next('run');
  const page = await listen(other);
  for (let count = 0; count < beyondSocketBuffers; count += 1) run.say(chatter);
  run.end(...transcript('cancel-all'));
  await page.until(ended('disk-free'));
  await assert.rejects(async () => { for await (const piece of deaf) void piece; }, /aborted/);
  await other.close();
});

// The server as a separate process, as from the command line.
async function startServer(engine: FakeEngine) {
  const server = spawn(process.execPath, [join(built, 'server/main.js'), '--engine', engine.program], { stdio: ['ignore', 'pipe', 'inherit'] });
  const [line] = (await once(createInterface(server.stdout), 'line')) as [string];
  const address = new URL(/http:\S+/.exec(line)![0]);
  const to = { address, token: address.hash.replace('#token=', '') } as TestShell;
  const page = await listen(to);
  if (page.beginning.freeBytes === null) await page.until(ended('disk-free'));
  return { server, to };
}

test('a signal terminates the run once, and the server waits for its end', async () => {
  const engine = new FakeEngine();
  const { server, to } = await startServer(engine);
  assert.equal(await post('/api/run', { action: 'install', apps: ['brenna'] }, to), 202);
  const run = await engine.next('run');
  const page = await listen(to);
  const gone = once(server, 'exit');
  server.kill('SIGINT');
  assert.equal(await run.signal(), 'SIGTERM');
  assert.equal(server.exitCode, null);
  assert.equal(await post('/api/export-logs', {}, to), 409);
  run.end(...transcript('cancel-all'));
  assert.ok((await page.until(ended('run'))).some((event) => event.type === 'shell:cancel-asked'));
  assert.deepEqual(await gone, [0, null]);
  assert.deepEqual(run.signals, ['SIGTERM']);
  engine.close();
});

test('an export of logs is ended by one signal, and the server waits for its end', async () => {
  const engine = new FakeEngine();
  const { server, to } = await startServer(engine);
  assert.equal(await post('/api/export-logs', {}, to), 202);
  const exported = await engine.next('export-logs');
  const gone = once(server, 'exit');
  server.kill('SIGTERM');
  assert.equal(await exported.signal(), 'SIGTERM');
  assert.equal(server.exitCode, null);
  exported.die();
  assert.deepEqual(await gone, [0, null]);
  engine.close();
});

test('after a second signal the server exits at once and the engine continues', async () => {
  const engine = new FakeEngine();
  const { server, to } = await startServer(engine);
  assert.equal(await post('/api/run', { action: 'install', apps: ['brenna'] }, to), 202);
  const run = await engine.next('run');
  const gone = once(server, 'exit');
  server.kill('SIGINT');
  await run.signal();
  server.kill('SIGINT');
  assert.deepEqual(await gone, [1, null]);
  assert.equal(process.kill(run.pid, 0), true);
  assert.deepEqual(run.signals, ['SIGTERM']);
  run.die();
  engine.close();
});
