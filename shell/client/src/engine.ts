// Starts one process of the engine per command and yields its events. For Node and for Electron's main process.
import { spawn, type ChildProcessWithoutNullStreams } from 'node:child_process';
import { resolve } from 'node:path';
import type { BeganEvent, CommandName, EndedEvent, RunAction, ShellEvent } from './events.js';
import { LineReader, parseLine } from './lines.js';
import type { App, Command } from './types.generated.js';

export interface EngineOptions {
  /** The executable inside the installer's bundle. */
  readonly program: string;
  /** Use only the packages in the installer's bundle. */
  readonly offline?: boolean;
  /** The time without output after which `shell:silent` is yielded; 30 seconds by default. */
  readonly silenceMilliseconds?: number;
}

export class Engine {
  constructor(private readonly options: EngineOptions) {}

  hello(): EngineProcess {
    return this.start('hello', []);
  }

  /** Queries all apps if `apps` is omitted. Can take more than a minute; `kill()` is safe. */
  checkUpdates(apps?: readonly App[]): EngineProcess {
    return this.start('check-updates', apps ? ['--apps', list(apps)] : []);
  }

  /** Ignores repeated apps. Start a run only after the previous one has ended. */
  run(action: RunAction, apps: readonly App[], { strict = false } = {}): Run {
    const chosen = [...new Set(apps)];
    const words = ['run', '--action', action, '--apps', list(chosen), ...(strict ? ['--strict', 'true'] : [])];
    return new Run(this.options, words, { type: 'shell:began', command: 'run', action, apps: chosen });
  }

  /** Measures the volume of `path`, by default of `/Applications`. */
  diskFree(path?: string): EngineProcess {
    return this.start('disk-free', path === undefined ? [] : ['--path', resolve(path)]);
  }

  /** Writes the archive into `folder`, by default onto the Desktop. */
  exportLogs(folder?: string): EngineProcess {
    return this.start('export-logs', folder === undefined ? [] : ['--out', resolve(folder)]);
  }

  private start(command: CommandName, words: readonly string[]): EngineProcess {
    return new EngineProcess(this.options, [command, ...words], { type: 'shell:began', command });
  }
}

const isApp = (app: unknown) => typeof app === 'string' && app.trim() !== '' && !app.includes(',') && !app.startsWith('--');

// Refuses an empty list, which the engine takes for all apps of the catalog, even in a removal.
function list(apps: readonly App[]): string {
  if (apps.length === 0 || !apps.every(isApp)) throw new RangeError(`not a list of apps: ${JSON.stringify(apps)}`);
  return apps.join(',');
}

const endOfErrors = 4096;
/** The time to wait for the end of the output after the process has ended. Another process may have inherited the pipe. */
const inheritedOutput = 1000;

/**
 * A process of the engine and its events, from `shell:began` to `shell:ended`. Iterate it once. The output is always read,
 * even without an iteration. Leaving the loop doesn't end the process.
 */
export class EngineProcess implements AsyncIterable<ShellEvent> {
  /** The event `shell:ended`, after the end of the output and of the process. Never rejects. */
  readonly ended: Promise<EndedEvent>;

  protected process: ChildProcessWithoutNullStreams | undefined;
  private readonly queue: ShellEvent[] = [];
  private readonly reader = new LineReader();
  private readonly silenceMilliseconds: number;
  private readonly command: CommandName;
  private wake: () => void = () => {};
  private timer: NodeJS.Timeout | undefined;
  private done = false;
  private over = false;
  protected terminated = false;
  private errors = '';
  private startFailure = '';

  constructor({ program, offline, silenceMilliseconds }: EngineOptions, words: readonly string[], began: BeganEvent) {
    this.command = began.command;
    this.silenceMilliseconds = silenceMilliseconds ?? 30_000;
    this.add(began);
    this.ended = new Promise((settle) => {
      try {
        // In a separate process group, it gets no signal from Ctrl-C in the shell's terminal.
        this.process = spawn(program, [...words, ...(offline ? ['--offline'] : [])], { detached: true });
        this.listen(this.process, settle);
      } catch (error) {
        // Node throws some errors of the start and emits others.
        this.startFailure = String(error);
        queueMicrotask(() => settle(this.end(null, null)));
      }
    });
  }

  async *[Symbol.asyncIterator](): AsyncGenerator<ShellEvent> {
    for (;;) {
      while (this.queue.length > 0) yield this.queue.shift()!;
      if (this.over) return;
      await new Promise<void>((wake) => { this.wake = wake; });
    }
  }

  /** Ends the process at once. Only for queries, which change nothing. */
  kill(): void {
    this.process?.kill('SIGKILL');
  }

  /** Sends SIGTERM, which cancels a whole run and ends a query. Only the first call does: a second signal would end a run at once. */
  terminate(): void {
    if (this.terminated) return;
    this.terminated = true;
    this.process?.kill('SIGTERM');
  }

  protected add(event: ShellEvent): void {
    if (this.over) return;
    this.queue.push(event);
    this.wake();
  }

  private listen(process: ChildProcessWithoutNullStreams, settle: (event: EndedEvent) => void): void {
    process.on('error', (error) => { this.startFailure = error.message; });
    // A cancel can be written to an engine that has just ended.
    process.stdin.on('error', () => {});
    process.stderr.on('data', (chunk: Buffer) => { this.errors = (this.errors + chunk.toString()).slice(-endOfErrors); });
    process.stdout.on('data', (chunk: Buffer) => {
      this.take(this.reader.read(chunk));
      this.waitForMore(process);
    });
    process.on('exit', () => this.waitForMore(process));
    process.on('close', (status, signal) => settle(this.end(status, signal)));
    this.waitForMore(process);
  }

  private waitForMore({ exitCode, signalCode, stdout, stderr }: ChildProcessWithoutNullStreams): void {
    clearTimeout(this.timer);
    const gone = exitCode !== null || signalCode !== null;
    const close = () => [stdout, stderr].forEach((stream) => stream.destroy());
    const milliseconds = this.silenceMilliseconds;
    const report = () => this.add({ type: 'shell:silent', command: this.command, milliseconds });
    this.timer = gone ? setTimeout(close, inheritedOutput) : setTimeout(report, milliseconds);
  }

  private take(lines: readonly string[]): void {
    for (const event of lines.map(parseLine)) {
      this.done ||= event.type === 'done';
      this.add(event);
    }
  }

  private end(status: number | null, signal: string | null): EndedEvent {
    clearTimeout(this.timer);
    this.take(this.reader.end());
    const { command, done, errors, startFailure } = this;
    const started = this.process?.pid !== undefined;
    const result = started ? { status } : { status: null, startFailure };
    const event: EndedEvent = { type: 'shell:ended', command, done, signal, errors, ...result };
    this.add(event);
    this.over = true;
    return event;
  }
}

/** A process that can be cancelled. */
export class Run extends EngineProcess {
  /** Cancels one app, or the whole run if `app` is omitted. The events have the result; see `RunApp.condition`. */
  cancel(app?: App): void {
    // The engine takes anything except a non-empty text for a cancel of the whole run.
    if (app !== undefined && !isApp(app)) throw new RangeError(`not an app: ${JSON.stringify(app)}`);
    const command: Command = { type: 'cancel', ...(app === undefined ? {} : { app }) };
    this.process?.stdin.write(`${JSON.stringify(command)}\n`);
    this.addCancel(app);
  }

  override terminate(): void {
    if (!this.terminated) this.addCancel(undefined);
    super.terminate();
  }

  private addCancel(app: App | undefined): void {
    this.add({ type: 'shell:cancel-asked', ...(app === undefined ? {} : { app }) });
  }
}
