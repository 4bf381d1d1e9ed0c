// player.js SOCKET WORD...: a process of the fake engine. Sends its command line, its standard input and its signals to the
// stage, and writes the output that the stage sends. See stage.ts.

import { connect } from 'node:net';
import { createInterface } from 'node:readline';

const [, , path, ...words] = process.argv;
const stage = connect(path!);
const tell = (what: object) => stage.write(`${JSON.stringify(what)}\n`);

tell({ words, pid: process.pid });
process.on('SIGTERM', () => tell({ signal: 'SIGTERM' }));
createInterface(process.stdin).on('line', (line) => tell({ input: line }));
createInterface(stage).on('line', (line) => {
  const { write, exit } = JSON.parse(line) as { write?: string; exit?: number };
  if (write !== undefined) process.stdout.write(write);
  if (exit !== undefined) process.exit(exit);
});
