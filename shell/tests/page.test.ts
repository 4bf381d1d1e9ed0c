// The page's screens and states, with a fake engine that the test controls.

import assert from 'node:assert/strict';
import { after, afterEach, before, beforeEach, test } from 'node:test';
import type { Browser } from 'puppeteer-core';
import type { CatalogApp } from '../client/src/state.js';
import { launch, Visit } from './browser.js';
import { hello, transcript, type FakeProcess } from './fake-engine.js';
import { openShell, type TestShell } from './test-shell.js';

let browser: Browser;
let shell: TestShell;
let visit: Visit;
before(async () => { browser = await launch(); });
after(() => browser.close());
beforeEach(async () => { shell = await openShell(); });
afterEach(() => visit.end().finally(() => shell.close()));

const rows = hello()[0]!.apps as CatalogApp[];
const done = (action: string) => ({ v: 1, type: 'done', action, exitCode: 0 });
const withRows = (change: (row: CatalogApp) => Partial<CatalogApp>, more = {}) => hello({ apps: rows.map((row) => ({ ...row, ...change(row) })), ...more });
const online = withRows(() => ({ updateAvailable: false, latestVersion: null }), { mode: 'online' });
const checked = (...apps: object[]): Record<string, unknown>[] => [{ v: 1, type: 'update-check-result', apps }, done('check-updates')];
const stage = (app: string, name: string) => ({ v: 1, type: 'stage', app, stage: name });
const progress = (app: string, percent: number, downloadedBytes?: number) => ({
  v: 1, type: 'progress', app, percent, indeterminate: false, detailCode: 'DOWNLOADING',
  ...(downloadedBytes === undefined ? {} : { detailArgs: { downloadedBytes, totalBytes: 30_000_000 } }),
});
const result = (app: string, status: string, errorCode: string | null = null) => ({
  v: 1, type: 'app-result', app, status, errorCode, installedPath: null, installedVersion: null,
});
const ended = (...results: ReturnType<typeof result>[]) => ({
  ...done('install'), exitCode: 1,
  results: results.map(({ v, type, app, status, errorCode }) => ({ v, type, app, status, ...(errorCode ? { errorCode } : {}) })),
});
const card = (app: string) => `.app[data-app=${app}]`;
const retired = { reason: 'source-unavailable', downloadUrl: 'https://www.kelo.example/desk/' };

interface Setup {
  hello?: ReturnType<typeof hello>;
  check?: ReturnType<typeof checked>;
  languages?: string[];
}

// The page with this installer, before the terms.
async function openPage(setup: Setup = {}): Promise<void> {
  shell.engine.answers.hello = setup.hello ?? hello();
  if (setup.check) shell.engine.answers['check-updates'] = setup.check;
  shell.session.refresh();
  visit = await Visit.open(browser, shell.address, setup.languages);
}

// Repeats the queries, as soon as the earlier ones have ended.
async function refresh(): Promise<void> {
  while (!shell.session.refresh()) await new Promise((resolve) => setTimeout(resolve, 10));
}

async function choosing(setup: Setup = {}): Promise<void> {
  await openPage(setup);
  await visit.acceptTerms();
}

async function installing(...apps: string[]): Promise<FakeProcess> {
  for (const app of apps) await visit.press(app, 'checkbox');
  await visit.page.click('.bar .primary');
  const run = await shell.engine.next('run');
  await visit.reads('h2', apps.length > 0 ? 'Installing' : 'Updating');
  return run;
}

test('the installed versions are shown at once, and then the available versions', async () => {
  await openPage({ hello: online });
  await visit.acceptTerms();
  const check = await shell.engine.next('check-updates');
  await visit.reads('.title p', 'Checking for updates');
  await visit.reads(`${card('brenna')} .state`, 'Version 1.0 installed');
  await visit.reads(`${card('tolvi')} .state`, 'Not installed · about 31.5 MB');
  check.end(...checked(
    { id: 'brenna', updateAvailable: true, latestVersion: '2.1', sizeBytes: 40_000_000, requiredBytes: 90_000_000 },
    { id: 'tolvi', updateAvailable: false, latestVersion: '2.1', sizeBytes: 50_000_000, requiredBytes: 110_000_000 },
  ));
  await visit.reads(`${card('brenna')} .state`, 'Update available: 1.0 → 2.1 · 40 MB');
  await visit.reads(`${card('tolvi')} .state`, 'Not installed · Version 2.1 · 50 MB');
  await visit.reads('.bar', '1 app chosen', '40 MB to download', 'needs 90 MB, 20 GB free', 'Save your work first.');
  await visit.press('Kelo Tolvi', 'checkbox');
  await visit.reads('.bar', '2 apps chosen', '90 MB to download', 'needs 200 MB', 'Install and update 2 apps');
  await visit.look('choose');
});

test('before the engine answers, the page shows what it is waiting for', async () => {
  delete shell.engine.answers.hello;
  shell.session.refresh();
  visit = await Visit.open(browser, shell.address);
  await visit.reads('main', 'Looking for installed apps…');
  await visit.look('starting');
});

test('the terms have to be accepted, once per visit', async () => {
  await openPage();
  await visit.reads('h2', 'Before you begin');
  await visit.look('terms');
  await visit.press('Continue');
  await visit.reads('h2', 'Before you begin');
  await visit.acceptTerms();
  await visit.page.reload();
  await visit.reads('h2', 'Choose');
});

test('an installer without terms shows none', async () => {
  await openPage({ hello: hello({ capabilities: [...(hello()[0]!.capabilities as string[]), 'skip-terms'] }) });
  await visit.reads('h2', 'Choose');
});

test('too little disk room gives a warning and does not prevent the run', async () => {
  shell.engine.answers['disk-free']![0]!.freeBytes = 1_000_000;
  await choosing();
  await visit.reads('.bar .short', 'needs about 47.7 MB, but only 1 MB is free');
  await visit.look('room');
  await installing();
});

test('release notes are text', async () => {
  const note = '<img src=x onerror=alert(1)> <b>bold</b>';
  await choosing({
    hello: online,
    check: checked({ id: 'brenna', updateAvailable: true, latestVersion: '2.1', sizeBytes: 1, releaseNotes: { releases: [{ version: '2.1', date: '2026-02-27', notes: [note] }] } }),
  });
  await visit.press('What’s new in Kelo Brenna', 'DisclosureTriangle');
  await visit.reads('.releases', note, 'Version 2.1, February 27, 2026');
  assert.equal(await visit.page.$('.releases :is(img, b)'), null);
  await visit.look('release-notes');
});

test('only https addresses become links', async () => {
  await choosing({ hello: withRows((row) => ({ webUrl: row.id === 'brenna' ? 'javascript:alert(1)' : row.webUrl }), { helpUrl: 'http://kelo.example/' }) });
  assert.deepEqual((await visit.texts('a')).sort(), ['About Kelo Galdivane', 'About Kelo Rulo', 'About Kelo Tolvi', 'Contact us']);
});

test('a copy from the App Store can only be changed by the App Store', async () => {
  await choosing({ hello: withRows(({ id }) => (id === 'brenna' ? { source: 'appstore' } : {})) });
  await visit.reads(`${card('brenna')} .state`, 'From the App Store. Update or remove it there.');
  assert.equal(await visit.page.$(`${card('brenna')} :is(button, input)`), null);
  await visit.look('app-store');
});

test('an install: stages, bytes, overall progress, and result', async () => {
  await choosing();
  const run = await installing('Kelo Rulo');
  assert.deepEqual(run.words, ['run', '--action', 'install', '--apps', 'brenna,rulo']);
  await visit.reads(`${card('rulo')} .state`, 'Waiting');
  run.say(stage('brenna', 'download'), progress('brenna', 40, 15_000_000));
  await visit.reads(`${card('brenna')} .state`, 'Downloading · 15 MB of 30 MB');
  assert.equal(await visit.page.$eval(`${card('brenna')} progress`, (bar) => bar.value), 40);
  assert.equal(await visit.page.$eval('.bar progress', (bar) => bar.value), 20);
  await visit.look('downloading');
  run.say(stage('brenna', 'verify'));
  await visit.reads(`${card('brenna')} .state`, 'Checking');
  assert.equal(await visit.page.$eval(`${card('brenna')} progress`, (bar) => bar.hasAttribute('value')), false);
  assert.equal(await visit.has('Cancel Kelo Brenna'), false);
  run.say(stage('brenna', 'install'));
  await visit.reads(`${card('brenna')} .state`, 'Installing');
  await visit.look('installing');
  run.say(result('brenna', 'installed'), stage('rulo', 'download'));
  await visit.reads('.bar', '1 of 2 done');
  run.end(result('rulo', 'installed'), ended(result('brenna', 'installed'), result('rulo', 'installed')));
  await visit.reads('h2', 'All done.');
  assert.deepEqual(await visit.texts('.app .state'), ['Installed', 'Installed']);
  await visit.look('installed');
  shell.engine.answers.hello = withRows(() => ({ installedVersion: '2.0', updateAvailable: false, source: 'direct' }));
  await visit.press('Done');
  await visit.reads('h2', 'Choose');
});

test('stages, results and exports are announced to screen readers, and percentages are not', async () => {
  await choosing();
  await visit.page.evaluate(() => {
    const heard: string[] = [];
    Object.assign(window, { heard });
    const live = document.getElementById('live')!;
    const listen = (changes: MutationRecord[]) => heard.push(...changes.flatMap((change) => [...change.addedNodes].map((node) => node.textContent ?? '')));
    new MutationObserver(listen).observe(live, { childList: true });
  });
  const run = await installing('Kelo Rulo');
  run.say(stage('brenna', 'download'), progress('brenna', 10, 3_000_000), progress('brenna', 20, 6_000_000), progress('brenna', 30, 9_000_000));
  await visit.reads(`${card('brenna')} .state`, '9 MB of 30 MB');
  run.say(stage('brenna', 'verify'), stage('brenna', 'install'), result('brenna', 'installed'), stage('rulo', 'download'));
  run.end(result('rulo', 'failed', 'VERIFY_FAILED'), ended(result('brenna', 'installed'), result('rulo', 'failed', 'VERIFY_FAILED')));
  await visit.reads('h2', 'not everything worked');
  assert.deepEqual(await visit.page.evaluate(() => (window as unknown as { heard: string[] }).heard), [
    'Kelo Brenna: Downloading', 'Kelo Brenna: Checking', 'Kelo Brenna: Installing', 'Kelo Brenna: Installed',
    'Kelo Rulo: Downloading', 'Kelo Rulo: The package is damaged.',
  ]);
  assert.equal(await visit.page.evaluate(() => document.activeElement?.id), 'heading');
  assert.equal(await visit.page.$$eval('[aria-live], [role=status], output', (regions) => regions.length), 1);
});

test('a retry is shown, and no progress bar decreases', async () => {
  await choosing();
  const run = await installing();
  run.say(stage('brenna', 'download'), progress('brenna', 40, 15_000_000));
  await visit.reads(`${card('brenna')} .state`, '15 MB');
  run.say(progress('brenna', 0));
  await visit.reads(`${card('brenna')} .state`, 'The connection was interrupted. Trying again…');
  assert.equal(await visit.page.$eval(`${card('brenna')} progress`, (bar) => bar.value), 40);
  await visit.look('retrying');
});

test('one app is cancelled: requested by name, and not shown as a failure', async () => {
  await choosing();
  const run = await installing('Kelo Tolvi', 'Kelo Rulo');
  run.say(stage('brenna', 'download'), progress('brenna', 10, 3_000_000));
  await visit.press('Cancel Kelo Brenna');
  assert.equal(await run.input(), '{"type":"cancel","app":"brenna"}');
  await visit.reads(`${card('brenna')} .state`, 'Cancelling…');
  await visit.press('Cancel Kelo Rulo');
  await visit.reads(`${card('rulo')} .state`, 'Cancelled');
  await visit.look('cancelling');
  run.say(result('brenna', 'failed', 'DOWNLOAD_FAILED'), result('tolvi', 'installed'));
  run.end(result('rulo', 'cancelled'), ended(result('brenna', 'failed', 'DOWNLOAD_FAILED'), result('tolvi', 'installed'), result('rulo', 'cancelled')));
  await visit.reads('h2', 'Done. The apps you cancelled were left out.');
  assert.deepEqual(await visit.texts('.app .state'), ['Cancelled', 'Installed', 'Cancelled']);
  assert.equal(await visit.has('Try again'), false);
  await visit.look('cancelled');
});

test('a stalled download is shown as stalled', async () => {
  await shell.close();
  shell = await openShell({ silenceMilliseconds: 1 });
  await choosing();
  const run = await installing();
  run.say(stage('brenna', 'download'), progress('brenna', 10, 3_000_000));
  await visit.reads(`${card('brenna')} .state`, 'Nothing has arrived for a while.');
  await visit.look('stalled');
});

test('everything is cancelled', async () => {
  await choosing();
  const run = await installing('Kelo Rulo');
  run.say(stage('brenna', 'download'));
  await visit.press('Cancel all');
  assert.equal(await run.input(), '{"type":"cancel"}');
  await visit.reads('.bar', 'Cancelling…');
  assert.equal(await visit.has('Cancel all'), false);
  run.end(result('brenna', 'failed', 'DOWNLOAD_FAILED'), ended(result('brenna', 'failed', 'DOWNLOAD_FAILED'), result('rulo', 'cancelled')));
  await visit.reads('h2', 'Cancelled.');
});

test('a failure has its text and its actions, and all failures have one retry', async () => {
  await choosing();
  const run = await installing('Choose all');
  const results = [
    result('brenna', 'installed'), result('tolvi', 'failed', 'SIGNATURE_FAILED'), result('rulo', 'failed', 'PACKAGE_NOT_FOUND'),
    result('galdivane', 'failed', 'A_LATER_CODE'),
  ];
  run.end(...results, ended(...results));
  await visit.reads('h2', 'Done, but not everything worked.');
  assert.deepEqual(await visit.texts('.app .state'), [
    'Installed', 'This package isn’t genuine, and was not installed.', 'This installer doesn’t contain this app.', 'The app couldn’t be installed.',
  ]);
  assert.deepEqual(await visit.page.$eval(`${card('rulo')} a`, (link) => [link.href, link.textContent]), ['https://kelo.example/rulo', 'About Kelo Rulo']);
  await visit.look('failed');
  await visit.press('Save logs for support');
  const exported = await shell.engine.next('export-logs');
  await visit.reads('.bar .logs', 'Collecting the logs…');
  const [event, end] = transcript('export-logs');
  exported.end(event!, end!);
  await visit.reads('.bar .logs', `The logs were saved: ${String(event!.path)}`, 'Send this file to us');
  await visit.reads('#live', 'The logs were saved');
  await visit.look('logs');
  await visit.press('Try 2 apps again');
  assert.deepEqual((await shell.engine.next('run')).words, ['run', '--action', 'install', '--apps', 'tolvi,galdivane']);
});

test('a failed export is shown', async () => {
  await choosing();
  await visit.press('Save logs…');
  (await shell.engine.next('export-logs')).end(...transcript('export-logs-failing'));
  await visit.reads('.bar .logs', 'The logs couldn’t be collected.');
  await visit.look('logs-failed');
});

test('a removal is confirmed, and then done', async () => {
  await choosing();
  await visit.press('Remove Kelo Brenna…');
  await visit.reads('dialog[open] h2', 'Remove Kelo Brenna?');
  assert.equal(await visit.page.evaluate(() => document.activeElement?.textContent), 'Keep it');
  assert.match((await visit.page.accessibility.snapshot())!.children!.find((node) => node.role === 'dialog')!.description!, /will be removed/);
  await visit.look('remove');
  await visit.page.keyboard.press('Escape');
  await visit.page.waitForSelector('dialog:not([open])');
  assert.equal(await visit.page.evaluate(() => document.activeElement?.getAttribute('aria-label')), 'Remove Kelo Brenna…');
  await visit.press('Remove Kelo Brenna…');
  await visit.press('Remove');
  const run = await shell.engine.next('run');
  assert.deepEqual(run.words, ['run', '--action', 'uninstall', '--apps', 'brenna']);
  run.say(stage('brenna', 'uninstall'), { ...progress('brenna', 100), indeterminate: true, detailCode: 'UNINSTALLING' });
  await visit.reads(`${card('brenna')} .state`, 'Removing');
  assert.equal(await visit.page.$('progress[value]'), null);
  assert.equal(await visit.has('Cancel'), false);
  await visit.look('removing');
  run.end(result('brenna', 'uninstalled'), { ...ended(result('brenna', 'uninstalled')), action: 'uninstall' });
  await visit.reads(`${card('brenna')} .state`, 'Removed');
});

test('a removed app is not chosen for an install', async () => {
  await choosing();
  await visit.reads('.bar', '1 app chosen');
  await visit.press('Remove Kelo Brenna…');
  await visit.press('Remove');
  const run = await shell.engine.next('run');
  shell.engine.answers.hello = withRows(({ id }) => (id === 'brenna' ? { installedVersion: null, updateAvailable: false, source: null } : {}));
  run.end(stage('brenna', 'uninstall'), result('brenna', 'uninstalled'), { ...ended(result('brenna', 'uninstalled')), action: 'uninstall' });
  await visit.press('Done');
  await visit.reads(`${card('brenna')} .state`, 'Not installed');
  await visit.reads('.bar', 'Choose an app');
  assert.deepEqual(await visit.page.$$eval('.app .choice', (boxes) => boxes.filter((box) => (box as HTMLInputElement).checked).length), 0);
});

test('an installer without the export of logs offers none', async () => {
  await choosing({ hello: hello({ capabilities: (hello()[0]!.capabilities as string[]).filter((name) => name !== 'export-logs') }) });
  const run = await installing();
  run.end(ended(result('brenna', 'failed', 'INSTALL_FAILED')));
  await visit.reads('h2', 'That didn’t work.');
  assert.deepEqual((await visit.texts('button')).filter((text) => text.includes('logs')), []);
});

test('if everything is current, nothing can be started', async () => {
  await choosing({ hello: withRows(() => ({ installedVersion: '2.0', updateAvailable: false, source: 'direct' })) });
  await visit.reads('.bar', 'Everything is up to date.');
  assert.equal(await visit.page.$('.bar button'), null);
  await visit.look('nothing-to-do');
});

test('with an app of unknown demand, the room is a lower bound', async () => {
  await choosing({ hello: withRows(({ id }) => (id === 'tolvi' ? { requiredBytes: undefined as never } : {})) });
  await visit.reads('.bar', 'needs 47.7 MB, 20 GB free');
  await visit.press('Kelo Tolvi', 'checkbox');
  await visit.reads('.bar', 'needs at least 47.7 MB, 20 GB free');
});

test('two clicks start one run', async () => {
  await choosing();
  const runs = visit.counted('/api/run');
  await visit.page.evaluate(() => {
    const button = document.querySelector<HTMLElement>('.bar .primary')!;
    button.click();
    button.click();
  });
  await shell.engine.next('run');
  await visit.reads('h2', 'Updating 1 app');
  assert.deepEqual([runs(), await visit.page.$('.notice')], [1, null]);
});

test('a run beside another one is refused, until the next action', async () => {
  await choosing();
  await visit.answer('/api/run', 409);
  await visit.page.click('.bar .primary');
  await visit.reads('.notice[role=alert]', 'Something is under way already.');
  await visit.look('busy');
  await visit.press('Kelo Rulo', 'checkbox');
  assert.equal(await visit.page.$('.notice'), null);
  assert.equal(await visit.page.$eval('.bar .primary', (button) => button.hasAttribute('aria-disabled')), false);
  visit.errors.length = 0;
});

test('a request that the server does not accept is shown', async () => {
  await choosing();
  await visit.answer('/api/export-logs', 400);
  await visit.press('Save logs…');
  await visit.reads('.notice[role=alert]', 'The installer didn’t accept this.');
  await visit.look('refused');
  visit.errors.length = 0;
});

test('a cancel after the end of the run is no error', async () => {
  await choosing();
  const run = await installing();
  run.say(stage('brenna', 'download'));
  await visit.answer('/api/cancel', 409);
  const answered = visit.page.waitForResponse((response) => response.url().endsWith('/api/cancel'));
  await visit.press('Cancel Kelo Brenna');
  await answered;
  run.end(result('brenna', 'installed'), ended(result('brenna', 'installed')));
  await visit.reads('h2', 'All done.');
  assert.equal(await visit.page.$('.notice'), null);
  visit.errors.length = 0;
});

test('apps that the engine left out by itself can be tried again', async () => {
  await choosing();
  const run = await installing('Kelo Tolvi', 'Kelo Rulo');
  // The engine's report after ten minutes without progress.
  const cancelled = ['brenna', 'tolvi', 'rulo'].map((app) => result(app, 'cancelled'));
  run.say(stage('brenna', 'install'), result('brenna', 'installed'), stage('tolvi', 'download'), stage('tolvi', 'verify'));
  run.end(...cancelled, ended(...cancelled));
  await visit.reads('h2', 'That didn’t work.');
  await visit.reads(`${card('rulo')} .state`, 'Not started');
  await visit.look('not-begun');
  await visit.press('Try 3 apps again');
  const again = await shell.engine.next('run');
  again.end(result('brenna', 'installed'), ended(result('brenna', 'installed'), result('tolvi', 'cancelled'), result('rulo', 'cancelled')));
  await visit.reads('h2', 'Done, but not everything worked.');
  assert.deepEqual(await visit.texts('.app .state'), ['Installed', 'Not started', 'Not started']);
});

test('a broken stream is opened again', async () => {
  await choosing();
  const streams = visit.counted('/api/events');
  shell.cut();
  shell.engine.answers.hello = withRows(() => ({ installedVersion: '1.5' }));
  await refresh();
  await visit.reads(`${card('brenna')} .state`, '1.5 → 2.0');
  assert.deepEqual([streams(), await visit.page.$('.notice')], [1, null]);
  visit.errors.length = 0;
});

test('an error in the page is reported and keeps the stream', async () => {
  await choosing();
  const streams = visit.counted('/api/events');
  await visit.page.evaluate(() => { document.getElementById('live')!.append = () => { throw new Error('no announcement'); }; });
  const run = await installing();
  run.say(stage('brenna', 'download'), stage('brenna', 'verify'));
  await visit.reads(`${card('brenna')} .state`, 'Checking');
  run.end(result('brenna', 'installed'), ended(result('brenna', 'installed')));
  await visit.reads('h2', 'All done.');
  assert.equal(streams(), 0);
  assert.match(visit.errors.join(), /no announcement/);
  visit.errors.length = 0;
});

test('an expired installer shows that, installs nothing, and still removes', async () => {
  await choosing({ hello: hello({ installerRetired: { ...retired, reason: 'expired', expiresOn: '2026-01-31' } }) });
  await visit.reads('.notice[role=alert]', 'This installer expired on January 31, 2026.', 'Get a current installer');
  assert.equal(await visit.page.$eval('.notice a', (link) => link.href), retired.downloadUrl);
  assert.equal(await visit.page.$('input[type=checkbox]'), null);
  assert.equal(await visit.has('Remove Kelo Brenna…'), true);
  await visit.look('expired');
});

test('a missing source is shown until a version is found', async () => {
  await choosing({ hello: online, check: [{ v: 1, type: 'update-check-result', apps: [{ id: 'brenna', updateAvailable: false }], installerRetired: retired }, done('check-updates')] });
  await visit.reads('.notice', 'its downloads are no longer there');
  await visit.look('source-gone');
  shell.engine.answers['check-updates'] = checked({ id: 'brenna', updateAvailable: true, latestVersion: '2.1' });
  await refresh();
  await visit.page.waitForFunction(() => document.querySelector('.notice') === null);
});

test('an update check without an answer is shown and can be repeated', async () => {
  await choosing({ hello: online, check: checked({ id: 'brenna', updateAvailable: false }, { id: 'tolvi', updateAvailable: false }) });
  await visit.reads('.title', 'Couldn’t check for updates.');
  await visit.look('check-failed');
  shell.engine.answers['check-updates'] = checked({ id: 'brenna', updateAvailable: true, latestVersion: '2.1' });
  await visit.press('Try again');
  await visit.reads(`${card('brenna')} .state`, '1.0 → 2.1');
  shell.engine.answers['check-updates'] = [];
  await refresh();
  await visit.reads('.title', 'Couldn’t check for updates.');
});

test('an update check that dies is shown and can be repeated', async () => {
  await choosing({ hello: online, check: [] });
  await visit.reads('.title', 'Couldn’t check for updates.');
  shell.engine.answers['check-updates'] = checked({ id: 'brenna', updateAvailable: true, latestVersion: '2.1' });
  await visit.press('Try again');
  await visit.reads(`${card('brenna')} .state`, '1.0 → 2.1');
});

test('the engine is killed: the page shows the known and the unknown results', async () => {
  await choosing();
  const run = await installing('Kelo Tolvi', 'Kelo Rulo');
  run.say(result('brenna', 'installed'), stage('tolvi', 'download'), stage('tolvi', 'verify'), stage('tolvi', 'install'));
  await visit.reads(`${card('tolvi')} .state`, 'Installing');
  run.die();
  await visit.reads('h2', 'The installer stopped unexpectedly.');
  await visit.reads(`${card('tolvi')} .state`, 'It isn’t known whether this was finished. Not installed.');
  assert.deepEqual((await visit.texts('.app .state')).filter((_, place) => place !== 1), ['Installed', 'Not started']);
  await visit.look('died');
  await visit.press('Try 2 apps again');
  assert.deepEqual((await shell.engine.next('run')).words, ['run', '--action', 'install', '--apps', 'tolvi,rulo']);
});

test('if the installed versions are not known after the engine is killed, the page states none', async () => {
  await choosing();
  const run = await installing('Kelo Tolvi');
  run.say(stage('brenna', 'download'), stage('brenna', 'verify'), stage('brenna', 'install'));
  await visit.reads(`${card('brenna')} .state`, 'Installing');
  shell.engine.answers.hello = [];
  delete shell.engine.answers['disk-free'];
  run.die();
  await visit.reads('h2', 'The installer stopped unexpectedly.');
  // The query after `hello`. The events of the export follow those of `hello`.
  await shell.engine.next('disk-free');
  await visit.press('Save logs…');
  await visit.reads('.bar', 'Collecting the logs…');
  assert.equal(await visit.text(`${card('brenna')} .state`), 'It isn’t known whether this was finished.');
});

test('an engine that does not start is shown, and can be started again', async () => {
  Object.assign(shell.engine.answers, { hello: [], 'disk-free': [] });
  shell.session.refresh();
  visit = await Visit.open(browser, shell.address);
  await visit.reads('h2', 'The installer couldn’t start on this Mac.');
  await visit.look('not-started');
  shell.engine.answers.hello = hello();
  await visit.press('Try again');
  await visit.reads('h2', 'Before you begin');
});

test('with an engine of a later protocol, the page requires a newer shell', async () => {
  await openPage({ hello: [{ ...hello()[0], v: 2 }, { ...done('hello'), v: 2 }] });
  await visit.reads('h2', 'This page is too old for the installer.');
  await visit.look('newer-engine');
});

test('after a reload the page shows the current run, and two pages show the same', async () => {
  await choosing();
  const run = await installing('Kelo Rulo');
  run.say(stage('brenna', 'download'), progress('brenna', 40, 15_000_000));
  await visit.reads(`${card('brenna')} .state`, '15 MB of 30 MB');
  await visit.page.reload();
  await visit.reads('h2', 'Installing 2 apps');
  await visit.reads(`${card('brenna')} .state`, '15 MB of 30 MB');
  const other = await Visit.open(browser, shell.address);
  await other.reads(`${card('brenna')} .state`, '15 MB of 30 MB');
  await other.press('Cancel Kelo Rulo');
  await visit.reads(`${card('rulo')} .state`, 'Cancelled');
  run.end(result('brenna', 'installed'), ended(result('brenna', 'installed'), result('rulo', 'cancelled')));
  await visit.press('Done');
  await visit.reads('h2', 'Choose');
  await other.reads('h2', 'Done. The apps you cancelled were left out.');
  await visit.page.reload();
  await visit.reads('h2', 'Choose');
  await other.end();
});

test('a page shows a run that another page started', async () => {
  await choosing();
  shell.session.start('update', ['brenna']);
  await visit.reads('h2', 'Updating 1 app');
});

test('a lost server is shown, and the last state remains', async () => {
  await choosing();
  await shell.close();
  await visit.reads('.notice[role=alert]', 'The connection to the installer was lost.');
  assert.equal(await visit.page.$eval('.bar .primary', (button) => button.getAttribute('aria-disabled')), 'true');
  await visit.look('disconnected');
  visit.errors.length = 0;
  shell = await openShell();
});

test('for an address without a token, the page shows what is missing', async () => {
  visit = await Visit.open(browser, new URL('/', shell.address));
  await visit.reads('h2', 'This address isn’t complete.');
  await visit.look('no-token');
});

test('the page is in German if the browser prefers it, and offers it otherwise', async () => {
  await openPage({ languages: ['de-AT', 'en'] });
  await visit.reads('h2', 'Bevor es losgeht');
  assert.equal(await visit.page.evaluate(() => document.documentElement.lang), 'de');
  await visit.page.select('#language', 'en');
  await visit.reads('h2', 'Before you begin');
  await visit.acceptTerms();
  await visit.page.select('#language', 'de');
  await visit.reads('.bar .primary', '1 App aktualisieren');
  await visit.look('german');
  await visit.page.reload();
  await visit.reads('.bar .primary', '1 App aktualisieren');
});

test('with the keyboard alone: terms, choice, notes, removal, install, cancel, done', async () => {
  const releaseNotes = { releases: [{ version: '2.1', notes: ['Faster'] }] };
  await openPage({ hello: online, check: checked({ id: 'brenna', updateAvailable: true, latestVersion: '2.1', releaseNotes }) });
  await visit.reads('h2', 'Before you begin');
  const press = (key: 'Tab' | 'Space' | 'Enter') => visit.page.keyboard.press(key);
  const tabTo = (name: string) => visit.tabTo(name);
  await tabTo('I have read this and agree');
  await press('Space');
  await tabTo('Continue');
  await press('Enter');
  await visit.reads('h2', 'Choose');
  await visit.reads(`${card('brenna')} .state`, '1.0 → 2.1');
  await tabTo('What’s new in Kelo Brenna');
  await press('Enter');
  await visit.page.waitForSelector('details[open] .releases');
  await tabTo('Kelo Rulo');
  await press('Space');
  await visit.reads('.bar', '2 apps chosen');
  await tabTo('Install and update 2 apps');
  await press('Enter');
  const run = await shell.engine.next('run');
  run.say(stage('brenna', 'download'));
  await visit.reads(`${card('brenna')} .state`, 'Downloading');
  await tabTo('Cancel Kelo Brenna');
  await press('Enter');
  assert.equal(await run.input(), '{"type":"cancel","app":"brenna"}');
  await visit.reads(`${card('brenna')} .state`, 'Cancelling…');
  assert.equal(await visit.focused(), 'Installing 2 apps');
  await tabTo('Cancel all');
  await press('Space');
  assert.equal(await run.input(), '{"type":"cancel"}');
  run.end(ended(result('brenna', 'failed', 'DOWNLOAD_FAILED'), result('rulo', 'cancelled')));
  await visit.reads('h2', 'Cancelled.');
  await tabTo('Done');
  await press('Enter');
  await visit.reads('h2', 'Choose');
  await tabTo('Remove Kelo Brenna…');
  await press('Enter');
  await visit.page.waitForSelector('dialog[open]');
  await tabTo('Remove');
  await press('Enter');
  assert.deepEqual((await shell.engine.next('run')).words, ['run', '--action', 'uninstall', '--apps', 'brenna']);
});

test('at 200 % in a small window nothing is cut off, and the bar leaves room for the list', async () => {
  await choosing();
  await visit.page.setViewport({ width: 640, height: 400, deviceScaleFactor: 2 });
  assert.equal(await visit.page.evaluate(() => document.scrollingElement!.scrollWidth), 640);
  const share = await visit.page.$eval('.bar', (bar) => (getComputedStyle(bar).position === 'sticky' ? bar.getBoundingClientRect().height / window.innerHeight : 0));
  assert.ok(share < 0.4, String(share));
});

test('in a narrow window the bar covers no focused control', async () => {
  shell.engine.answers['disk-free']![0]!.freeBytes = 1_000_000;
  await choosing();
  await visit.page.setViewport({ width: 320, height: 640 });
  await visit.tabTo('Contact us');
});

test('an element that remains keeps the focus when one before it disappears', async () => {
  await openPage();
  const focused = await visit.page.evaluate(async (module) => {
    const { h, patch } = (await import(module)) as typeof import('../page/dom.js');
    const parent = document.body.appendChild(document.createElement('div'));
    const views = (...keys: string[]) => keys.map((key) => h('button', { key }, key));
    patch(parent, views('first', 'second', 'third'));
    (parent.children[1] as HTMLElement).focus();
    patch(parent, views('second', 'third'));
    return [document.activeElement?.textContent, parent.textContent];
  }, '/page/dom.js');
  assert.deepEqual(focused, ['second', 'secondthird']);
});

test('with forced colors, the progress differs from its track', async () => {
  await choosing();
  const run = await installing('Kelo Rulo');
  run.say(stage('brenna', 'download'), progress('brenna', 40, 15_000_000));
  await visit.reads(`${card('brenna')} .state`, '15 MB');
  const client = await visit.page.createCDPSession();
  await client.send('Emulation.setEmulatedMedia', { features: [{ name: 'forced-colors', value: 'active' }] });
  const picture = await (await visit.page.$('.app progress'))!.screenshot({ encoding: 'base64' });
  const colors = await visit.page.evaluate(async (png) => {
    const bitmap = await createImageBitmap(new Blob([Uint8Array.from(atob(png), (byte) => byte.charCodeAt(0))]));
    const canvas = new OffscreenCanvas(bitmap.width, bitmap.height).getContext('2d')!;
    canvas.drawImage(bitmap, 0, 0);
    return [0.2, 0.8].map((share) => canvas.getImageData(bitmap.width * share, bitmap.height / 2, 1, 1).data.join());
  }, picture);
  assert.notEqual(colors[0], colors[1]);
});

test('there is no animation if the user prefers reduced motion', async () => {
  await choosing();
  const run = await installing();
  run.say(stage('brenna', 'download'), stage('brenna', 'verify'));
  await visit.page.waitForSelector('progress:not([value])');
  const animations = () => visit.page.evaluate(() => document.getAnimations().length);
  await visit.page.emulateMediaFeatures([{ name: 'prefers-reduced-motion', value: 'no-preference' }]);
  assert.notEqual(await animations(), 0);
  await visit.page.emulateMediaFeatures([{ name: 'prefers-reduced-motion', value: 'reduce' }]);
  assert.equal(await animations(), 0);
});
