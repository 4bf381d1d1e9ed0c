// player.mjs PLAN WORDS...: a fake engine that runs the steps of PLAN for the subcommand:
//   { transcript, lines? }   writes a transcript of protocol/, or its first `lines` lines
//   { text }, { hex }        writes characters or bytes
//   { errors }               writes on standard error
//   { await }                waits until standard input has this command
//   { inherited }            starts a process that inherits the output, until this named pipe is closed
//   { signal }, { exit }     ends with this signal or status
// Ends with status 0 after the last step.
import { spawn } from 'node:child_process';
import { readFileSync, writeSync } from 'node:fs';
import { createInterface } from 'node:readline';
import { isDeepStrictEqual } from 'node:util';

const [plan, subcommand] = process.argv.slice(2);
const commands = createInterface({ input: process.stdin })[Symbol.asyncIterator]();

async function awaitCommand(wanted) {
  for (;;) {
    const { value, done } = await commands.next();
    if (done || isDeepStrictEqual(JSON.parse(value), wanted)) return;
  }
}

function transcript(name, lines) {
  const text = readFileSync(new URL(`../../../protocol/transcripts/${name}.jsonl`, import.meta.url), 'utf8');
  return text.split('\n').slice(0, lines ?? -1).map((line) => `${line}\n`).join('');
}

const steps = {
  transcript: (name, { lines }) => writeSync(1, transcript(name, lines)),
  text: (text) => writeSync(1, text),
  hex: (digits) => writeSync(1, Buffer.from(digits, 'hex')),
  errors: (text) => writeSync(2, text),
  await: awaitCommand,
  inherited: (pipe) => spawn('/bin/sh', ['-c', 'read line <"$0"', pipe], { stdio: ['ignore', 'inherit', 'inherit'], detached: true }).unref(),
  exit: (status) => process.exit(status),
  signal: async (signal) => {
    process.kill(process.pid, signal);
    await new Promise(() => {});
  },
};

for (const step of JSON.parse(readFileSync(plan, 'utf8'))[subcommand] ?? []) {
  const [[kind, value]] = Object.entries(step);
  await steps[kind](value, step);
}
process.exit(0);
