// The events of a command: the engine's, and those of this library about the process and the stream.
// The library's own types begin with "shell:", which no type of the protocol does.
import type { App, EngineEvent } from './types.generated.js';

export type CommandName = 'hello' | 'check-updates' | 'run' | 'disk-free' | 'export-logs';
export type RunAction = 'install' | 'update' | 'uninstall';

/** The first event of every command. */
export interface BeganEvent {
  readonly type: 'shell:began';
  readonly command: CommandName;
  /** Only of a run. */
  readonly action?: RunAction;
  /** Only of a run: its apps. */
  readonly apps?: readonly App[];
}

/** The user requested to cancel one app, or the whole run if `app` is omitted. */
export interface CancelAskedEvent {
  readonly type: 'shell:cancel-asked';
  readonly app?: App;
}

/** The engine has written nothing for this duration. Yielded once until it writes again. */
export interface SilentEvent {
  readonly type: 'shell:silent';
  readonly command: CommandName;
  readonly milliseconds: number;
}

/** A line of standard output that isn't a JSON object: a message of the logger, or an incomplete last line. */
export interface LineEvent {
  readonly type: 'shell:line';
  readonly text: string;
}

/** A JSON object that isn't an event of this protocol version, unchanged. */
export interface UnknownEvent {
  readonly type: 'shell:unknown';
  readonly event: Readonly<Record<string, unknown>>;
}

/** The last event of every command, after the end of the output and of the process. */
export interface EndedEvent {
  readonly type: 'shell:ended';
  readonly command: CommandName;
  /** False if the engine ended without its `done`, or couldn't be started. */
  readonly done: boolean;
  /** The exit status; null after a signal and when the engine couldn't be started. */
  readonly status: number | null;
  readonly signal: string | null;
  /** The end of standard error. */
  readonly errors: string;
  /** Why the engine couldn't be started. */
  readonly startFailure?: string;
}

export type ShellEvent = EngineEvent | BeganEvent | CancelAskedEvent | SilentEvent | LineEvent | UnknownEvent | EndedEvent;
