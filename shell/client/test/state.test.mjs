// The state after events.
import assert from 'node:assert/strict';
import { readdirSync } from 'node:fs';
import test from 'node:test';
import { apps, client, conditions, events, lines, play, transcripts } from './support.mjs';

const { initialState, next, roomFor } = client;

const began = (action, ...apps) => ({ type: 'shell:began', command: 'run', action, apps });
const asked = (command) => ({ type: 'shell:began', command });
const ended = (command, more) => ({ type: 'shell:ended', command, done: true, status: 0, signal: null, errors: '', ...more });
const died = (command) => ended(command, { done: false, status: null, signal: 'SIGKILL' });
const cancel = (app) => ({ type: 'shell:cancel-asked', ...(app ? { app } : {}) });
const stage = (app, name, more) => ({ v: 1, type: 'stage', app, stage: name, ...more });
const progress = (app, percent, more) => ({ v: 1, type: 'progress', app, percent, indeterminate: false, ...more });
const bytes = (downloadedBytes, totalBytes = 1000) => ({ detailArgs: { downloadedBytes, totalBytes } });
const result = (app, status, errorCode = null) => ({ v: 1, type: 'app-result', app, status, errorCode, installedPath: null, installedVersion: null });
const done = (action, exitCode, ...results) => ({ v: 1, type: 'done', action, exitCode, results });
const last = (list, state) => play(list, state).at(-1);

/** The `hello` of the transcript with other values. */
function hello(changes = {}, rows = {}) {
  const [event] = lines('hello').map((line) => JSON.parse(line));
  return { ...event, ...changes, apps: event.apps.map((row) => ({ ...row, ...rows[row.id] })) };
}

const app = (state, id) => state.apps.find((one) => one.id === id);
const runApp = (state, id) => state.run.apps.find((one) => one.id === id);

/** Each run of the transcripts: its action, the condition and code of each app, the exit status. */
const runs = {
  'cancel-all': ['install', { brenna: 'failed DOWNLOAD_FAILED', tolvi: 'cancelled' }, 2],
  'cancel-one': ['install', { brenna: 'succeeded', tolvi: 'cancelled', rulo: 'succeeded' }, 1],
  'expired': ['install', { brenna: 'failed NOT_COMPATIBLE', tolvi: 'failed NOT_COMPATIBLE' }, 2],
  'failure': ['install', { brenna: 'failed VERIFY_FAILED', rulo: 'failed PACKAGE_NOT_FOUND', tolvi: 'succeeded' }, 1],
  'file-save-failed': ['install', { brenna: 'failed FILE_SAVE_FAILED' }, 4],
  'gatekeeper-failed': ['install', { brenna: 'failed GATEKEEPER_FAILED' }, 2],
  'install': ['install', { brenna: 'succeeded', rulo: 'succeeded' }, 0],
  'install-failed': ['update', { rulo: 'failed INSTALL_FAILED' }, 2],
  'metadata-invalid': ['install', { brenna: 'failed METADATA_INVALID' }, 2],
  'no-network': ['install', { brenna: 'failed NETWORK_UNAVAILABLE', tolvi: 'failed NETWORK_UNAVAILABLE' }, 5],
  'retry': ['install', { brenna: 'succeeded' }, 0],
  'signature-failed': ['install', { brenna: 'failed SIGNATURE_FAILED' }, 2],
  'source-gone': ['install', { brenna: 'failed SOURCE_UNAVAILABLE' }, 2],
  'uninstall': ['uninstall', { brenna: 'succeeded', rulo: 'skipped SKIPPED', tolvi: 'succeeded' }, 0],
  'uninstall-auth-cancelled': ['uninstall', { brenna: 'failed UNINSTALL_AUTH_CANCELLED', rulo: 'failed UNINSTALL_AUTH_CANCELLED' }, 4],
  'uninstall-failed': ['uninstall', { brenna: 'failed UNINSTALL_FAILED' }, 2],
  'uninstall-permission-denied': ['uninstall', { brenna: 'failed UNINSTALL_PERMISSION_DENIED', rulo: 'failed UNINSTALL_PERMISSION_DENIED' }, 4],
  'untrusted-source': ['install', { brenna: 'failed UNTRUSTED_SOURCE' }, 2],
  'update': ['update', { tolvi: 'succeeded', rulo: 'succeeded' }, 0],
};
const queries = ['app-store', 'bad-command-line', 'check-updates', 'disk-free', 'export-logs', 'export-logs-failing', 'hello',
  'skip-terms', 'source-gone-on-check'];

test('every transcript has expectations', () => {
  assert.deepEqual(readdirSync(transcripts).sort(), [...Object.keys(runs), ...queries].map((name) => `${name}.jsonl`).sort());
});

for (const [name, [action, became, exitCode]] of Object.entries(runs)) {
  const whole = [began(action, ...Object.keys(became)), ...events(name), ended('run', { status: exitCode })];

  test(`${name}: each app ends as it should`, () => {
    const state = last(whole);
    const words = state.run.apps.map((one) => [one.id, [one.condition, one.errorCode].filter(Boolean).join(' ')]);
    assert.deepEqual(Object.fromEntries(words), became);
    assert.deepEqual([state.run.phase, state.run.action, state.run.exitCode, state.run.percent], ['done', action, exitCode, 100]);
    assert.deepEqual([state.underWay, state.helloNeeded, state.problem], [[], true, null]);
    const said = events(name).find((event) => event.level === 'error')?.message ?? null;
    assert.equal(state.run.errorMessage, said);
    assertNothingGoesOn(state);
  });

  test(`${name}: no percentage decreases, and the state is plain data`, () => {
    const states = play(whole);
    assertForward(states);
    for (const state of states) assert.deepEqual(JSON.parse(JSON.stringify(state)), state);
  });

  test(`${name}: without its beginning the result is the same`, () => {
    const { apps, phase } = last(events(name)).run;
    assert.deepEqual(apps.map((one) => [one.id, one.condition]).sort(), Object.entries(conditions(last(whole))).sort());
    assert.equal(phase, 'done');
  });

  test(`${name}: whenever the engine is killed, no app remains in the condition working`, () => {
    for (let count = 1; count < whole.length - 2; ++count) {
      const before = last(whole.slice(0, count));
      const state = next(before, died('run'));
      assert.equal(state.run.phase, 'died');
      assert.ok(state.helloNeeded);
      assertNothingGoesOn(state);
      for (const one of state.run.apps) assert.equal(one.condition, afterDeath(runApp(before, one.id)), `${name}, after ${count}: ${one.id}`);
    }
  });
}

function afterDeath({ condition, stage: name }) {
  const working = name === 'download' ? 'untouched' : 'unknown';
  return { waiting: 'untouched', working, cancelling: 'cancelled' }[condition] ?? condition;
}

function assertNothingGoesOn({ run }) {
  assert.equal(run.canCancel, false);
  for (const one of run.apps) {
    assert.ok(!['waiting', 'working', 'cancelling'].includes(one.condition), one.condition);
    assert.deepEqual([one.indeterminate, one.retrying, one.canCancel], [false, false, false]);
  }
}

function assertForward(states) {
  for (const bar of [(state) => state.run?.percent, ...['brenna', 'tolvi', 'rulo'].map((id) => (state) => state.run && runApp(state, id)?.percent)]) {
    const percents = states.map(bar).filter((percent) => percent !== undefined);
    assert.deepEqual(percents, [...percents].sort((one, other) => one - other));
    assert.ok(percents.every((percent) => percent >= 0 && percent <= 100));
  }
}

// Progress

test('an app has the percentage of the engine, and the run has the average of its apps', () => {
  const states = play([began('install', 'brenna', 'tolvi'), stage('brenna', 'download', { index: 1, total: 2 }), progress('brenna', 40, bytes(400)),
    stage('brenna', 'verify'), progress('brenna', 85, { indeterminate: true }), result('brenna', 'installed'), stage('tolvi', 'download'),
    progress('tolvi', 20, bytes(100, 500))]);
  assert.deepEqual(states.map((state) => state.run.percent), [0, 0, 20, 20, 42.5, 50, 50, 60]);
  assert.deepEqual(states.map((state) => runApp(state, 'brenna').indeterminate), [false, false, false, true, true, false, false, false]);
  assert.deepEqual(runApp(states.at(-1), 'tolvi').bytes, { downloaded: 100, total: 500 });
});

test('without its beginning, a run takes the number of apps from the engine', () => {
  const counted = play([stage('brenna', 'download', { total: 4 }), result('brenna', 'installed'), stage('tolvi', 'download')]);
  assert.deepEqual(counted.map((state) => state.run.percent), [0, 25, 25]);
  const uncounted = play([stage('brenna', 'download'), stage('tolvi', 'download'), result('tolvi', 'installed')]);
  assert.deepEqual(uncounted.map((state) => state.run.percent), [0, 0, 50]);
});

test('a removal has an indeterminate progress bar', () => {
  const states = play([began('uninstall', 'brenna', 'rulo', 'tolvi'), ...events('uninstall').slice(0, 3)]);
  assert.deepEqual(states.map((state) => Math.round(state.run.percent)), [0, 0, 0, 33]);
  assert.deepEqual(states.map((state) => runApp(state, 'brenna').indeterminate), [false, true, true, false]);
});

test('a retry keeps the percentage and is shown until bytes arrive', () => {
  const states = play([began('install', 'brenna'), ...events('retry')]);
  const seen = states.map((state) => (runApp(state, 'brenna').retrying ? 'retrying' : 'not'));
  assert.deepEqual(seen.filter((word, index) => word !== seen[index - 1]), ['not', 'retrying', 'not']);
  const shown = play([began('install', 'brenna'), stage('brenna', 'download'), progress('brenna', 60, bytes(750)), progress('brenna', 0),
    progress('brenna', 30, bytes(375)), progress('brenna', 70, bytes(875))]).map((state) => runApp(state, 'brenna'));
  assert.deepEqual(shown.map((one) => one.percent), [0, 0, 60, 60, 60, 70]);
  assert.deepEqual(shown.map((one) => one.bytes?.downloaded), [undefined, undefined, 750, 750, 750, 875]);
  assert.deepEqual(shown.map((one) => one.retrying), [false, false, false, true, false, false]);
});

test('a silence lasts until the engine writes again', () => {
  const silent = { type: 'shell:silent', command: 'run', milliseconds: 1 };
  const states = play([began('install', 'brenna'), stage('brenna', 'download'), silent, cancel(), { type: 'shell:line', text: 'x' }, progress('brenna', 1)]);
  assert.deepEqual(states.map((state) => state.run.silent), [false, false, true, true, true, false]);
  assert.equal(next(states[1], { ...silent, command: 'check-updates' }).run.silent, false);
});

// Cancelling

test('what can be cancelled now', () => {
  const states = play([began('install', 'brenna', 'tolvi'), stage('brenna', 'download'), stage('brenna', 'verify'), result('brenna', 'installed'),
    stage('tolvi', 'download'), stage('tolvi', 'install'), result('tolvi', 'installed')]);
  const can = states.map((state) => state.run.apps.filter((one) => one.canCancel).map((one) => one.id).join(' '));
  assert.deepEqual(can, ['brenna tolvi', 'brenna tolvi', 'tolvi', 'tolvi', 'tolvi', '', '']);
  assert.deepEqual(states.map((state) => state.run.canCancel), [true, true, true, true, true, false, false]);
});

test('a removal offers to cancel the whole run only', () => {
  const states = play([began('uninstall', 'brenna', 'rulo'), stage('brenna', 'uninstall'), cancel('rulo'), result('brenna', 'uninstalled'),
    result('rulo', 'cancelled')]);
  assert.ok(states.every((state) => state.run.apps.every((one) => !one.canCancel)));
  assert.deepEqual(states.map((state) => state.run.canCancel), [true, true, false, false, false]);
  assert.deepEqual(states.map((state) => Object.values(conditions(state)).join(' ')),
    ['waiting waiting', 'working waiting', 'working cancelled', 'succeeded cancelled', 'succeeded cancelled']);
});

test('a cancel of one app in a removal cancels all apps that have not begun', () => {
  const state = last([began('uninstall', 'brenna', 'rulo', 'tolvi'), stage('brenna', 'uninstall'), cancel('tolvi')]);
  assert.deepEqual(conditions(state), { brenna: 'working', rulo: 'cancelled', tolvi: 'cancelled' });
});

/** What the user cancels, the events up to the cancel, the engine's answer, and the resulting condition of brenna. */
const cancels = [
  ['its download, which fails by that', [stage('brenna', 'download'), cancel('brenna')], result('brenna', 'failed', 'DOWNLOAD_FAILED'), 'cancelled'],
  ['the whole run while it downloads', [stage('brenna', 'download'), cancel()], result('brenna', 'failed', 'DOWNLOAD_FAILED'), 'cancelled'],
  ['it in other letters', [stage('brenna', 'download'), cancel('BRENNA')], result('brenna', 'failed', 'DOWNLOAD_FAILED'), 'cancelled'],
  ['it when the package had just arrived', [stage('brenna', 'download'), cancel('brenna')], result('brenna', 'cancelled'), 'cancelled'],
  ['it before its turn', [cancel('brenna'), stage('brenna', 'download')], result('brenna', 'failed', 'DOWNLOAD_FAILED'), 'cancelled'],
  ['it during the lookup, which failed', [stage('brenna', 'download'), cancel('brenna')], result('brenna', 'failed', 'NETWORK_UNAVAILABLE'), 'failed'],
  ['it while it is verified', [stage('brenna', 'verify'), cancel('brenna')], result('brenna', 'installed'), 'succeeded'],
  ['it, and the verification fails', [stage('brenna', 'verify'), cancel('brenna')], result('brenna', 'failed', 'VERIFY_FAILED'), 'failed'],
  ['another one', [stage('brenna', 'download'), cancel('tolvi')], result('brenna', 'failed', 'DOWNLOAD_FAILED'), 'failed'],
  ['no app of this run', [stage('brenna', 'download'), cancel('norda')], result('brenna', 'failed', 'DOWNLOAD_FAILED'), 'failed'],
  ['nothing', [stage('brenna', 'download')], result('brenna', 'failed', 'DOWNLOAD_FAILED'), 'failed'],
];

for (const [what, before, answer, shown] of cancels) {
  test(`the user cancels ${what}: ${shown}`, () => {
    const final = done('install', 2, { ...answer, installedPath: undefined });
    for (const list of [[answer], [answer, final], [final]]) {
      const { condition, errorCode } = runApp(last([began('install', 'brenna', 'tolvi'), ...before, ...list]), 'brenna');
      assert.deepEqual([condition, errorCode], [shown, shown === 'failed' ? answer.errorCode : null]);
    }
  });
}

test('a cancel after the result changes nothing', () => {
  const before = last([began('install', 'brenna', 'tolvi'), stage('brenna', 'download'), result('brenna', 'failed', 'DOWNLOAD_FAILED')]);
  assert.equal(runApp(next(before, cancel()), 'brenna').condition, 'failed');
  assert.equal(runApp(last([cancel(), done('install', 2, result('brenna', 'failed', 'DOWNLOAD_FAILED'))], before), 'brenna').condition, 'failed');
});

test('an app can begin after its cancel', () => {
  const states = play([began('install', 'brenna', 'tolvi'), cancel('brenna'), stage('brenna', 'download'), cancel(), cancel('brenna')]);
  assert.deepEqual(states.map((state) => Object.values(conditions(state)).join(' ')),
    ['waiting waiting', 'cancelled waiting', 'cancelling waiting', 'cancelling cancelled', 'cancelling cancelled']);
  assert.deepEqual(states.map((state) => state.run.cancelAsked), [false, false, false, true, true]);
  const state = next(states.at(-1), died('run'));
  assert.deepEqual(conditions(state), { brenna: 'cancelled', tolvi: 'cancelled' });
  assert.deepEqual(next(last([died('run')], states[2]), cancel()).run, last([died('run')], states[2]).run);
});

test('a cancel shows at once', () => {
  const states = play([began('install', 'brenna', 'tolvi', 'rulo'), stage('brenna', 'install'), cancel('tolvi'), cancel()]);
  assert.deepEqual(conditions(states[2]), { brenna: 'working', tolvi: 'cancelled', rulo: 'waiting' });
  assert.deepEqual(conditions(states[3]), { brenna: 'working', tolvi: 'cancelled', rulo: 'cancelled' });
  assert.equal(states[3].run.canCancel, false);
});

// The end

test('the results in done replace earlier ones', () => {
  const all = ['brenna', 'tolvi', 'rulo'];
  // The engine's report after ten minutes without progress.
  const state = last([began('install', ...all), stage('brenna', 'install'), result('brenna', 'installed'), stage('tolvi', 'verify'),
    ...all.map((id) => result(id, 'cancelled')), done('install', 1, ...all.map((id) => ({ v: 1, type: 'app-result', app: id, status: 'cancelled' })))]);
  assert.deepEqual(conditions(state), { brenna: 'unknown', tolvi: 'unknown', rulo: 'cancelled' });
  assert.ok(state.run.apps.every((one) => !one.cancelAsked));
});

test('a status that is not known is a failure if it has a code', () => {
  const state = last([began('install', 'brenna', 'tolvi'), result('brenna', 'polished'), result('tolvi', 'polished', 'SCRATCHED')]);
  assert.deepEqual(conditions(state), { brenna: 'succeeded', tolvi: 'failed' });
});

test('a command line that is refused leaves everything untouched', () => {
  const state = last([began('install', 'norda'), ...events('bad-command-line'), ended('run', { done: false, status: 3 })]);
  assert.deepEqual([state.run.phase, conditions(state)], ['refused', { norda: 'untouched' }]);
  assert.match(state.run.errorMessage, /^Unknown app identifier/);
  assert.equal(state.problem.status, 3);
});

test('status 3 after a stage is not a refusal', () => {
  assert.deepEqual(conditions(last([began('install', 'brenna'), done('install', 3)])), { brenna: 'untouched' });
  const state = last([began('install', 'brenna'), stage('brenna', 'install'), ended('run', { done: false, status: 3 })]);
  assert.deepEqual([state.run.phase, conditions(state)], ['died', { brenna: 'unknown' }]);
});

test('a killed query keeps the state, and is a problem until it is started again', () => {
  const before = last([asked('hello'), ...events('hello'), ended('hello')]);
  const after = last([asked('hello'), died('hello')], before);
  assert.deepEqual(after.apps, before.apps);
  assert.deepEqual([after.problem.command, after.failed, after.underWay], ['hello', ['hello'], []]);
  assert.equal(last([asked('disk-free'), ended('disk-free')], after).problem.command, 'hello');
  const both = last([asked('disk-free'), died('disk-free')], after);
  assert.deepEqual([both.problem.command, both.failed], ['disk-free', ['hello', 'disk-free']]);
  assert.deepEqual([next(after, asked('hello')).problem, next(both, asked('hello')).failed], [null, ['disk-free']]);
  assert.deepEqual(last([asked('export-logs'), died('export-logs')]).logs, { path: null, errorCode: null });
});

test('queries run beside a run', () => {
  const before = last([asked('check-updates'), began('install', 'brenna'), stage('brenna', 'download')]);
  assert.deepEqual(before.underWay, ['check-updates', 'run']);
  const state = last([{ v: 1, type: 'done', action: 'check-updates', exitCode: 0 }, ended('check-updates')], before);
  assert.deepEqual([state.run, state.underWay], [before.run, ['run']]);
  assert.deepEqual(last([asked('hello'), asked('hello'), ended('hello')]).underWay, ['hello']);
  assert.equal(last([asked('check-updates'), ...events('bad-command-line'), ended('check-updates', { done: false, status: 3 })]).run, null);
});

// The apps

test('hello fills the first screen', () => {
  const state = last([asked('hello'), ...events('hello'), ended('hello')]);
  assert.deepEqual(state.apps.map((one) => [one.id, one.installedVersion, one.latestVersion, one.offers.join(' ')]), [
    ['brenna', '1.0', '2.0', 'update uninstall'], ...apps.slice(1).map((one) => [one, null, '2.0', 'install']),
  ]);
  assert.deepEqual([state.installer.mode, state.helloNeeded, state.checkNeeded], ['offline', false, false]);
  assert.ok(!state.installer.capabilities.includes('skip-terms'));
  assert.ok(last(events('skip-terms')).installer.capabilities.includes('skip-terms'));
});

test('online, check-updates completes hello', () => {
  const online = hello({ mode: 'online' }, { brenna: { updateAvailable: false, latestVersion: null, requiredBytes: 1, sizeBytes: 1 } });
  const [check] = events('check-updates');
  const states = play([asked('hello'), online, asked('check-updates'), check, online]);
  assert.deepEqual(states.map((state) => state.checkNeeded), [false, true, false, false, false]);
  assert.deepEqual(states.map((state) => state.helloNeeded), [false, false, false, false, false]);
  assert.deepEqual(app(states[1], 'brenna').offers, ['uninstall']);
  for (const state of states.slice(3)) {
    const { offers, latestVersion, sizeBytes, requiredBytes, releaseNotes } = app(state, 'brenna');
    assert.deepEqual([offers, latestVersion, sizeBytes, requiredBytes], [['update', 'uninstall'], '2.1', 31457280, 47710208]);
    assert.deepEqual(releaseNotes.releases[0].notes, ['Opens large projects in half the time.']);
  }
  const other = { ...check, apps: check.apps.filter((row) => row.id === 'tolvi') };
  assert.equal(app(next(states.at(-1), other), 'brenna').latestVersion, '2.1');
});

test('an updated app is not offered again, with or without its result', () => {
  const online = (version) => hello({ mode: 'online' }, { brenna: { updateAvailable: false, installedVersion: version } });
  const [check] = events('check-updates');
  const before = last([online('1.0'), check, began('update', 'brenna'), stage('brenna', 'install')]);
  assert.deepEqual(app(last([result('brenna', 'updated'), online('2.1.0')], before), 'brenna').offers, ['uninstall']);
  assert.deepEqual(app(last([died('run'), online('2.1')], before), 'brenna').offers, ['uninstall']);
  assert.deepEqual(app(last([died('run'), online('1.0')], before), 'brenna').offers, ['update', 'uninstall']);
});

test('a copy from the App Store has no offers', () => {
  const [event] = events('app-store');
  assert.ok(event.apps.find((row) => row.id === 'rulo').updateAvailable, 'the engine sees an update for it');
  const state = next(initialState, event);
  assert.deepEqual([app(state, 'rulo').fromAppStore, app(state, 'rulo').offers], [true, []]);
  assert.deepEqual(state.apps.filter((one) => one.fromAppStore).map((one) => one.id), ['rulo']);
});

test('only capabilities are offered', () => {
  const state = next(initialState, hello({ capabilities: ['install', 'check-updates'] }));
  assert.deepEqual(state.apps.map((one) => one.offers), [[], ['install'], ['install'], ['install']]);
});

test('the required room is the sum over the chosen apps', () => {
  const state = last([hello({}, { rulo: { requiredBytes: undefined } }), ...events('disk-free')]);
  const [brenna, tolvi] = ['brenna', 'tolvi'].map((id) => app(state, id).requiredBytes);
  const freeBytes = 214748364800;
  assert.deepEqual(roomFor(state, ['brenna', 'tolvi']), { requiredBytes: brenna + tolvi, complete: true, freeBytes, enough: true });
  assert.deepEqual(roomFor(state, ['brenna', 'rulo']), { requiredBytes: brenna, complete: false, freeBytes, enough: null });
  assert.deepEqual(roomFor(state, []), { requiredBytes: 0, complete: true, freeBytes, enough: true });
  const full = { ...state, freeBytes: brenna + tolvi - 1 };
  assert.deepEqual(['brenna', 'tolvi'].map((id) => roomFor(full, [id]).enough), [true, true]);
  assert.equal(roomFor(full, ['brenna', 'tolvi']).enough, false);
  assert.equal(roomFor({ ...full, freeBytes: null }, ['brenna']).enough, null);
});

test('the path of exported logs', () => {
  assert.match(last(events('export-logs')).logs.path, /\.zip$/);
  assert.deepEqual(last(events('export-logs-failing')).logs, { path: null, errorCode: 'UNKNOWN' });
});

// The banner

const expired = { reason: 'expired', downloadUrl: 'https://www.kelo.example/desk/', expiresOn: '2026-01-31' };
const gone = { reason: 'source-unavailable', downloadUrl: 'https://www.kelo.example/desk/' };
const check = (latestVersion, installerRetired) => ({
  v: 1, type: 'update-check-result', apps: [{ id: 'brenna', updateAvailable: false, ...(latestVersion ? { latestVersion } : {}) }],
  ...(installerRetired ? { installerRetired } : {}),
});

test('the banner comes from any event', () => {
  assert.deepEqual(last(events('source-gone')).retired, gone);
  assert.deepEqual(last(events('source-gone-on-check')).retired, gone);
  assert.deepEqual(last(events('expired')).retired, expired);
  assert.deepEqual(next(initialState, hello({ installerRetired: expired })).retired, expired);
});

test('an expired installer stays so, and only removes apps', () => {
  const list = [hello({ installerRetired: expired }), hello(), check('2.1'), check(undefined, gone), began('install', 'brenna'), result('brenna', 'installed')];
  for (const state of play(list)) assert.deepEqual(state.retired, expired);
  assert.deepEqual(last(list).apps.map((one) => one.offers), [['uninstall'], [], [], []]);
});

test('a missing source can be found again', () => {
  const before = last([hello(), check(undefined, gone)]);
  const run = (...list) => last([began('install', 'brenna'), ...list], before).retired;
  for (const state of play([hello(), check(), began('uninstall', 'brenna', 'rulo'), result('brenna', 'uninstalled'),
    result('rulo', 'skipped', 'SKIPPED')], before)) assert.deepEqual(state.retired, gone);
  assert.equal(next(before, check('2.1')).retired, null);
  assert.deepEqual(next(before, check('2.1', gone)).retired, gone);
  assert.equal(run(result('brenna', 'installed')), null);
  assert.deepEqual(run(result('brenna', 'failed', 'SOURCE_UNAVAILABLE')), gone);
  assert.deepEqual(run(result('brenna', 'installed'), { ...done('install', 1), installerRetired: gone }), gone);
});

// Later engines, broken engines

test('a newer protocol makes the shell outdated', () => {
  const event = (v) => client.parseLine(JSON.stringify({ ...hello(), v }));
  assert.equal(next(initialState, event(1)).shellOutdated, false);
  const state = next(initialState, event(2));
  assert.deepEqual([state.shellOutdated, state.installer], [true, null]);
});

test('events that are not known change nothing', () => {
  const state = last(events('hello'));
  for (const line of ['{"v":1,"type":"weather"}', '{}', 'text']) assert.equal(next(state, client.parseLine(line)), state);
});

test('mutated events leave a valid state', () => {
  const random = sequence(1);
  const pick = (list) => list[random(list.length)];
  const pool = readdirSync(transcripts).flatMap((file) => lines(file.replace('.jsonl', ''))).map((line) => JSON.parse(line));
  const values = [null, -1, 1e300, '', 'brenna', 'uninstall', 'cancelled', [], {}, true, [null], 101];
  const own = [began('install', 'brenna', 'rulo'), began('uninstall', 'tolvi'), cancel(), cancel('rulo'), died('run'), ended('run'), asked('hello'), died('hello')];
  for (let round = 0; round < 300; ++round) {
    let state = initialState;
    for (let step = 0; step < 60; ++step) {
      const event = random(6) ? client.parseLine(JSON.stringify(mutated(pick(pool), random, pick, values))) : pick(own);
      const after = next(state, event);
      if (event.type !== 'shell:began' && after.run && state.run) assertForward([state, after]);
      assert.deepEqual(JSON.parse(JSON.stringify(after)), after, JSON.stringify(event));
      state = after;
    }
  }
});

function mutated(event, random, pick, values) {
  if (random(2)) return event;
  const key = pick(Object.keys(event));
  if (random(3) === 0) return Object.fromEntries(Object.entries(event).filter(([name]) => name !== key));
  return { ...event, [key]: pick(values) };
}

/** Returns a generator of reproducible numbers. Each call takes an upper bound. */
function sequence(seed) {
  let last32 = seed;
  return (bound) => {
    last32 = (Math.imul(last32, 1664525) + 1013904223) >>> 0;
    return Math.floor((last32 / 2 ** 32) * bound);
  };
}
