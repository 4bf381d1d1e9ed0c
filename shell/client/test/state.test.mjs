import assert from 'node:assert/strict';
import { readdirSync } from 'node:fs';
import test from 'node:test';
import { after, play, transcripts } from './support.mjs';

const conditions = (state) => Object.fromEntries(state.run.apps.map((app) => [app.id, app.condition]));

/** transcript -> the action, the phase and each app's condition. */
const runs = {
  'cancel-one': ['install', { brenna: 'succeeded', tolvi: 'cancelled', rulo: 'succeeded' }],
  'expired': ['install', { brenna: 'failed', tolvi: 'failed' }],
  'failure': ['install', { brenna: 'failed', rulo: 'failed', tolvi: 'succeeded' }],
  'uninstall': ['uninstall', { brenna: 'succeeded', rulo: 'skipped', tolvi: 'succeeded' }],
};

for (const [name, [action, wanted]] of Object.entries(runs)) {
  test(`${name}: each app ends as it should, and no bar goes back`, () => {
    const apps = Object.keys(wanted);
    const states = play([{ type: 'shell:began', command: 'run', action, apps }, ...after(name)]);
    assert.deepEqual(conditions(states.at(-1)), wanted);
    const percents = states.map((state) => state.run.percent);
    assert.deepEqual(percents, [...percents].sort((a, b) => a - b));
    assert.equal(percents.at(-1), 100);
  });
}

test('every transcript is read without an unknown event', () => {
  for (const name of readdirSync(transcripts)) {
    for (const event of after(name.replace('.jsonl', ''))) assert.ok(!event.type.startsWith('shell:'), `${name}: ${event.type}`);
  }
});
