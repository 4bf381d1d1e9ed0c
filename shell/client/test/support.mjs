// Shared by the tests of the client, which use the built package.
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath, pathToFileURL } from 'node:url';

export const project = fileURLToPath(new URL('../../..', import.meta.url));
export const packageFolder = process.env.KELO_SHELL_CLIENT ?? join(project, 'build/shell/client');
export const client = await import(pathToFileURL(join(packageFolder, 'dist/esm/index.js')));
export const transcripts = join(project, 'protocol/transcripts');
/** The identifiers of the catalog. */
export const apps = JSON.parse(readFileSync(join(project, 'protocol/catalog.json'), 'utf8')).apps.map((app) => app.id);

/** The lines of a transcript. */
export function lines(name) {
  return readFileSync(join(transcripts, `${name}.jsonl`), 'utf8').trimEnd().split('\n');
}

/** The events of a transcript. */
export function events(name) {
  return lines(name).map(client.parseLine);
}

/** The states after each of these events. */
export function play(list, state = client.initialState) {
  return list.map((event) => (state = client.next(state, event)));
}

/** app -> condition. */
export function conditions(state) {
  return Object.fromEntries(state.run.apps.map((app) => [app.id, app.condition]));
}

/** A folder that is removed after the test. */
export function folder(t) {
  const made = mkdtempSync(join(tmpdir(), 'kelo-client-'));
  t.after(() => rmSync(made, { recursive: true, force: true }));
  return made;
}

/** The executable of a fake engine with this plan: subcommand -> steps, see player.mjs. */
export function player(t, plan) {
  const place = folder(t);
  const program = join(place, 'engine-cli');
  writeFileSync(join(place, 'plan.json'), JSON.stringify(plan));
  const script = fileURLToPath(new URL('player.mjs', import.meta.url));
  writeFileSync(program, `#!/bin/sh\nexec '${process.execPath}' '${script}' '${place}/plan.json' "$@"\n`, { mode: 0o755 });
  return program;
}

/** Reads all events of a command. `react` gets each one and the state after it. */
export async function follow(command, state = client.initialState, react = () => {}) {
  const taken = [];
  for await (const event of command) {
    state = client.next(state, event);
    taken.push(event);
    react(event, state);
  }
  return { events: taken, state };
}
