// The page with the real engine, on machines of the lab.

import assert from 'node:assert/strict';
import { spawn, type ChildProcess } from 'node:child_process';
import { once } from 'node:events';
import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { after, before, test } from 'node:test';
import type { Browser } from 'puppeteer-core';
import { launch, Visit } from './browser.js';
import { mkdtempSync, readdirSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { project } from './fake-engine.js';
import { built, openShell } from './test-shell.js';

let browser: Browser;
before(async () => { browser = await launch(); });
after(() => browser.close());

// Makes a machine of the lab, which exists until the process `machine` ends, and returns the engine of its installer.
async function makeMachine(mode: 'offline' | 'online'): Promise<{ machine: ChildProcess; program: string }> {
  const machine = spawn('/usr/bin/python3', [join(project, 'shell/client/test/machine.py'), mode], { stdio: ['pipe', 'pipe', 'inherit'] });
  const [line] = (await once(createInterface(machine.stdout), 'line')) as [string];
  return { machine, program: (JSON.parse(line) as { program: string }).program };
}

async function onMachine(mode: 'offline' | 'online', act: (visit: Visit) => Promise<void>): Promise<void> {
  const { machine, program } = await makeMachine(mode);
  const shell = await openShell({ program });
  shell.session.refresh();
  const visit = await Visit.open(browser, shell.address);
  visit.page.setDefaultTimeout(180_000);
  try {
    await visit.acceptTerms();
    await act(visit);
    await visit.end();
  } finally {
    await shell.close();
    machine.stdin!.end();
    await once(machine, 'close');
  }
}

const state = (app: string) => `.app[data-app=${app}] .state`;

test('offline: install, a damaged package, removal, logs', () => onMachine('offline', async (visit) => {
  await visit.reads(state('brenna'), 'Not installed · Version 2.0');
  await visit.press('Kelo Brenna', 'checkbox');
  await visit.press('Kelo Rulo', 'checkbox');
  await visit.press('Install 2 apps');
  await visit.reads('h2', 'Done, but not everything worked.');
  await visit.reads(state('brenna'), 'Installed');
  await visit.reads(state('rulo'), 'The package is damaged.');
  await visit.look('real-offline');
  await visit.press('Done');
  await visit.reads(state('brenna'), 'Version 2.0, up to date');
  await visit.press('Remove Kelo Brenna…');
  await visit.press('Remove');
  await visit.reads(state('brenna'), 'Removed');
  await visit.press('Done');
  await visit.reads(state('brenna'), 'Not installed');
  await visit.press('Save logs…');
  await visit.reads('.bar .logs', 'The logs were saved: ', '.zip');
}));

test('online: an update check, a download that breaks off, and its cancel', () => onMachine('online', async (visit) => {
  await visit.reads(state('brenna'), 'Version 2.');
  await visit.press('Kelo Brenna', 'checkbox');
  await visit.press('Install 1 app');
  await visit.reads(state('brenna'), 'Downloading');
  await visit.look('real-online');
  await visit.press('Cancel Kelo Brenna');
  await visit.reads('h2', 'Cancelled.');
  assert.deepEqual(await visit.texts('.app .state'), ['Cancelled']);
}));

// The processes whose command line has this text.
function processesWith(text: string): string[] {
  return readdirSync('/proc').filter((name) => /^\d+$/.test(name)).flatMap((pid) => {
    try {
      return [readFileSync(`/proc/${pid}/cmdline`, 'utf8').replaceAll('\0', ' ')];
    } catch {
      return [];  // It has ended.
    }
  }).filter((line) => line.includes(text));
}

for (const mode of ['offline', 'online']) {
  test(`the script of ./dev shell, ${mode}: serves the page, and Ctrl-C ends everything`, async () => {
    const folder = mkdtempSync(join(tmpdir(), 'kelo-shell-'));
    const words = [process.env.KELO_BUILD!, join(folder, 'machine'), built, mode];
    // In its own process group, to which a terminal's Ctrl-C goes.
    const script = spawn(join(project, 'lab/demo/shell.sh'), words, { detached: true, stdio: ['ignore', 'pipe', 'inherit'] });
    const gone = once(script, 'close');
    let address: string | undefined;
    try {
      for await (const line of createInterface(script.stdout)) {
        assert.doesNotMatch(line, /\x1b/);
        address = /Open this address in a browser: (\S+)/.exec(line)?.[1];
        if (address) break;
      }
      assert.ok(address, 'the script printed no address');
      assert.equal((await fetch(new URL('/', address))).status, 200);
      assert.equal(processesWith(folder).some((line) => line.includes('nginx')), mode === 'online');
    } finally {
      process.kill(-script.pid!, 'SIGINT');
    }
    assert.deepEqual(await gone, [0, null]);
    assert.deepEqual(processesWith(folder), []);
    rmSync(folder, { recursive: true });
  });
}
