// main.js --engine FILE [--offline]: serves the page for one installer, prints its address, and ends after a signal.

import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';
import { Engine } from '../client/src/engine.js';
import { readAssets } from './assets.js';
import { ShellServer } from './server.js';
import { Session } from './session.js';

const { values } = parseArgs({ options: { engine: { type: 'string' }, offline: { type: 'boolean', default: false } } });
if (!values.engine) {
  console.error('usage: main.js --engine FILE [--offline]');
  process.exit(2);
}

const session = new Session(new Engine({ program: values.engine, offline: values.offline ?? false }));
const server = new ShellServer(session, readAssets(fileURLToPath(new URL('..', import.meta.url))));
let ending = false;

// A second signal exits at once. The engine still finishes its current app, because it has its own process group.
async function leave(): Promise<void> {
  if (ending) process.exit(1);
  ending = true;
  await server.close();
}

for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP'] as const) process.on(signal, () => void leave());
console.log(`Open this address in a browser: ${await server.listen()}`);
session.refresh();
