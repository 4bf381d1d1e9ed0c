// Starts the engine, one process per command, and gives its events. For Node and for Electron's main process.
import { spawn, type ChildProcessWithoutNullStreams } from 'node:child_process';
import { resolve } from 'node:path';
import type { CommandName, EndedEvent, RunAction, ShellEvent } from './events.js';
import { LineReader, parseLine } from './lines.js';
import type { App, Command } from './types.generated.js';

export interface EngineOptions {
  /** The executable inside the installer's bundle. */
  readonly program: string;
  /** Take packages from the installer's own folder only. */
  readonly offline?: boolean;
  /** After how much silence `shell:silent` comes; 30 seconds if left out. */
  readonly silenceMilliseconds?: number;
}

export class Engine {
  constructor(private readonly options: EngineOptions) {}

  hello(): EngineProcess {
    return this.start('hello', []);
  }

  /** All apps if `apps` is left out. May take more than a minute; `kill()` it when it takes too long. */
  checkUpdates(apps?: readonly App[]): EngineProcess {
    return this.start('check-updates', apps ? ['--apps', list(apps)] : []);
  }

  /** Names no app twice. Run one at a time. */
  run(action: RunAction, apps: readonly App[], { strict = false } = {}): Run {
    const chosen = [...new Set(apps)];
    const words = ['run', '--action', action, '--apps', list(chosen), ...(strict ? ['--strict', 'true'] : [])];
    return new Run(this.options, words, { type: 'shell:began', command: 'run', action, apps: chosen });
  }

  /** Free bytes on the volume of `path`, or of `/Applications`. */
  diskFree(path?: string): EngineProcess {
    return this.start('disk-free', path === undefined ? [] : ['--path', resolve(path)]);
  }

  /** Into `folder`, or onto the Desktop. */
  exportLogs(folder?: string): EngineProcess {
    return this.start('export-logs', folder === undefined ? [] : ['--out', resolve(folder)]);
  }

  private start(command: CommandName, words: readonly string[]): EngineProcess {
    return new EngineProcess(this.options, [command, ...words], { type: 'shell:began', command });
  }
}

// Without a name the engine would take all apps of the catalog, also for a removal.
function list(apps: readonly App[]): string {
  const usable = (app: App) => app.trim() !== '' && !app.includes(',') && !app.startsWith('--');
  if (apps.length === 0 || !apps.every(usable)) throw new RangeError(`not a list of apps: ${JSON.stringify(apps)}`);
  return apps.join(',');
}

const endOfErrors = 4096;

/**
 * A process of the engine and its events, from `shell:began` to `shell:ended`, for one `for await`. It reads the
 * engine's output all the time, whether or not anyone takes the events. The process goes on if the loop is left.
 */
export class EngineProcess implements AsyncIterable<ShellEvent> {
  /** What `shell:ended` says, once the output and the process have ended. Never rejects. */
  readonly ended: Promise<EndedEvent>;

  protected readonly process: ChildProcessWithoutNullStreams;
  private readonly queue: ShellEvent[] = [];
  private readonly reader = new LineReader();
  private wake: () => void = () => {};
  private silence: NodeJS.Timeout | undefined;
  private done = false;
  private over = false;
  private errors = '';
  private startFailure: string | undefined;

  constructor(private readonly options: EngineOptions, words: readonly string[], private readonly began: ShellEvent & { type: 'shell:began' }) {
    // A process group of its own: Ctrl-C in the shell's terminal doesn't reach it.
    this.process = spawn(options.program, [...words, ...(options.offline ? ['--offline'] : [])], { detached: true });
    this.process.stdout.on('data', (chunk: Buffer) => this.take(this.reader.read(chunk)));
    this.process.stderr.on('data', (chunk: Buffer) => { this.errors = (this.errors + chunk.toString()).slice(-endOfErrors); });
    // A cancel that meets an engine that has just ended.
    this.process.stdin.on('error', () => {});
    this.process.on('error', (error) => { this.startFailure ??= error.message; });
    this.ended = new Promise((settle) => this.process.on('close', (status, signal) => settle(this.end(status, signal))));
    this.add(began);
  }

  async *[Symbol.asyncIterator](): AsyncGenerator<ShellEvent> {
    for (;;) {
      while (this.queue.length > 0) yield this.queue.shift()!;
      if (this.over) return;
      await new Promise<void>((wake) => { this.wake = wake; });
    }
  }

  /** Ends the process at once. For queries: they change nothing. */
  kill(): void {
    this.process.kill('SIGKILL');
  }

  protected add(event: ShellEvent): void {
    this.queue.push(event);
    this.wake();
    clearTimeout(this.silence);
    const milliseconds = this.options.silenceMilliseconds ?? 30_000;
    if (event.type === 'shell:silent' || event.type === 'shell:ended') return;
    this.silence = setTimeout(() => this.add({ type: 'shell:silent', command: this.began.command, milliseconds }), milliseconds);
  }

  private take(lines: readonly string[]): void {
    for (const event of lines.map(parseLine)) {
      this.done ||= event.type === 'done';
      this.add(event);
    }
  }

  private end(status: number | null, signal: string | null): EndedEvent {
    this.take(this.reader.end());
    const { done, errors, startFailure } = this;
    const started = startFailure === undefined;
    const event: EndedEvent = {
      type: 'shell:ended', command: this.began.command, done, status: started ? status : null, signal, errors,
      ...(started ? {} : { startFailure }),
    };
    this.over = true;
    this.add(event);
    return event;
  }
}

/** A run can be cancelled. */
export class Run extends EngineProcess {
  private terminated = false;

  /** Cancels one app, or the whole run. The events tell what became of it; see `RunApp.condition`. */
  cancel(app?: App): void {
    const command: Command = { type: 'cancel', ...(app === undefined ? {} : { app }) };
    this.process.stdin.write(`${JSON.stringify(command)}\n`);
    this.addCancel(app);
  }

  /** Asks the engine to end whole, once: a second request would end it at once. For a shell that is about to end. */
  terminate(): void {
    if (this.terminated) return;
    this.terminated = true;
    this.process.kill('SIGTERM');
    this.addCancel(undefined);
  }

  private addCancel(app: App | undefined): void {
    this.add({ type: 'shell:cancel-asked', ...(app === undefined ? {} : { app }) });
  }
}
