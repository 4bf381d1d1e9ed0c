// What the tests of the client share. The package is tested as it was built.
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { fileURLToPath, pathToFileURL } from 'node:url';

export const project = fileURLToPath(new URL('../../..', import.meta.url));
export const packageFolder = process.env.KELO_SHELL_CLIENT ?? join(project, 'build/shell/client');
export const client = await import(pathToFileURL(join(packageFolder, 'dist/esm/index.js')));
export const transcripts = join(project, 'protocol/transcripts');

/** The events of a transcript. */
export function after(name) {
  return readFileSync(join(transcripts, `${name}.jsonl`), 'utf8').trimEnd().split('\n').map(client.parseLine);
}

/** The states after each of these events. */
export function play(events, state = client.initialState) {
  return events.map((event) => (state = client.next(state, event)));
}
