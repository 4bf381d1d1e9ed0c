// A fake engine: each process that the shell starts connects to the test, reports its inputs, and writes the test's output.

import { once, EventEmitter } from 'node:events';
import { chmodSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { createServer, type Server, type Socket } from 'node:net';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';
import type { HelloEvent } from '../client/src/state.js';

export const project = fileURLToPath(new URL('../../../..', import.meta.url));

type Event = Record<string, unknown>;
type Report = { input?: string; signal?: string };

export function transcript(name: string): Event[] {
  const text = readFileSync(join(project, 'protocol/transcripts', `${name}.jsonl`), 'utf8');
  return text.trimEnd().split('\n').map((line) => JSON.parse(line) as Event);
}

// The `hello` of the transcript, with the values in `change` replaced.
export function hello(change: Partial<HelloEvent> = {}): Event[] {
  const [event, done] = transcript('hello');
  return [{ ...event, ...change }, done!];
}

// The limit makes a missing event fail the test instead of blocking it. It doesn't measure speed.
const soon = (emitter: EventEmitter, name: string) => once(emitter, name, { signal: AbortSignal.timeout(30_000) });

// One process of the fake engine.
export class FakeProcess {
  private readonly reports = new EventEmitter();
  readonly inputs: string[] = [];
  readonly signals: string[] = [];

  constructor(private readonly socket: Socket, readonly words: string[], readonly pid: number) {}

  take({ input, signal }: Report): void {
    if (input !== undefined) this.inputs.push(input);
    if (signal !== undefined) this.signals.push(signal);
    this.reports.emit('report');
  }

  async input(): Promise<string> {
    while (this.inputs.length === 0) await soon(this.reports, 'report');
    return this.inputs.shift()!;
  }

  async signal(): Promise<string> {
    while (this.signals.length === 0) await soon(this.reports, 'report');
    return this.signals[0]!;
  }

  say(...events: Event[]): void {
    this.send({ write: events.map((event) => `${JSON.stringify(event)}\n`).join('') });
  }

  // Ends without further output, like a crash.
  die(): void {
    process.kill(this.pid, 'SIGKILL');
  }

  // Writes the last events and ends with the exit code of `done`.
  end(...events: Event[]): void {
    this.say(...events);
    this.send({ exit: Number(events.at(-1)?.exitCode ?? 0) });
  }

  private send(what: object): void {
    this.socket.write(`${JSON.stringify(what)}\n`);
  }
}

export class FakeEngine {
  // command -> events that answer it at once. Other commands wait until the test takes them with `next`.
  readonly answers: Record<string, Event[]> = {
    hello: hello(),
    'disk-free': [
      { v: 1, type: 'disk-free-result', path: '/Applications', freeBytes: 20_000_000_000 },
      { v: 1, type: 'done', action: 'disk-free', exitCode: 0 },
    ],
  };
  readonly commandLines: string[][] = [];
  readonly program: string;

  private readonly folder = mkdtempSync(join(tmpdir(), 'kelo-fake-engine-'));
  private readonly server: Server;
  private readonly connected = new EventEmitter();
  private readonly waiting: FakeProcess[] = [];
  private readonly running = new Set<FakeProcess>();

  constructor() {
    const path = join(this.folder, 'socket');
    this.program = join(this.folder, 'engine-cli');
    const script = fileURLToPath(new URL('fake-process.js', import.meta.url));
    writeFileSync(this.program, `#!/bin/sh\nexec '${process.execPath}' '${script}' '${path}' "$@"\n`);
    chmodSync(this.program, 0o755);
    this.server = createServer((socket) => this.connect(socket)).listen(path);
  }

  // The next process with this command that `answers` doesn't answer.
  async next(command: string): Promise<FakeProcess> {
    for (;;) {
      const found = this.waiting.findIndex((child) => child.words[0] === command);
      if (found >= 0) return this.waiting.splice(found, 1)[0]!;
      await soon(this.connected, 'connected');
    }
  }

  // Ends the remaining processes.
  close(): void {
    for (const child of this.running) child.die();
    this.server.close();
    rmSync(this.folder, { recursive: true });
  }

  private connect(socket: Socket): void {
    let child: FakeProcess | undefined;
    // A process can end before it has read its output from the socket. The line reader emits the socket's errors too.
    socket.on('error', () => undefined);
    createInterface(socket).on('error', () => undefined).on('line', (line) => {
      const report = JSON.parse(line) as Report & { words: string[]; pid: number };
      if (child) child.take(report);
      else child = this.add(new FakeProcess(socket, report.words, report.pid));
    });
    socket.on('close', () => child && this.running.delete(child));
  }

  private add(child: FakeProcess): FakeProcess {
    this.running.add(child);
    this.commandLines.push(child.words);
    const answer = this.answers[child.words[0]!];
    if (answer) child.end(...answer);
    else this.waiting.push(child);
    this.connected.emit('connected');
    return child;
  }
}
