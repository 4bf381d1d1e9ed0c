// fake-process.js SOCKET WORD...: a process of the fake engine. Sends its command line, its standard input and its signals to
// the test, and writes the output that the test sends. See fake-engine.ts.

import { connect } from 'node:net';
import { createInterface } from 'node:readline';

const [, , path, ...words] = process.argv;
const test = connect(path!);
const send = (what: object) => test.write(`${JSON.stringify(what)}\n`);

send({ words, pid: process.pid });
process.on('SIGTERM', () => send({ signal: 'SIGTERM' }));
createInterface(process.stdin).on('line', (line) => send({ input: line }));
createInterface(test).on('line', (line) => {
  const { write, exit } = JSON.parse(line) as { write?: string; exit?: number };
  if (write !== undefined) process.stdout.write(write);
  if (exit !== undefined) process.exit(exit);
});
