// What a command yields: the engine's events, and events of this library about the process and the stream.
// The library's own types begin with "shell:", so that they never meet a type of the protocol.
import type { App, EngineEvent } from './types.generated.js';

export type CommandName = 'hello' | 'check-updates' | 'run' | 'disk-free' | 'export-logs';
export type RunAction = 'install' | 'update' | 'uninstall';

/** The first event of every command. */
export interface BeganEvent {
  readonly type: 'shell:began';
  readonly command: CommandName;
  /** Of a run. */
  readonly action?: RunAction;
  /** The apps asked for; left out for all apps of the catalog. */
  readonly apps?: readonly App[];
}

/** The person asked to cancel one app, or the whole run if `app` is left out. */
export interface CancelAskedEvent {
  readonly type: 'shell:cancel-asked';
  readonly app?: App;
}

/** The engine wrote nothing for this long. Comes once per silence; the next event ends the silence. */
export interface SilentEvent {
  readonly type: 'shell:silent';
  readonly command: CommandName;
  readonly milliseconds: number;
}

/** A line of standard output that isn't a JSON object: a remark of the logger, or a last line that was cut. */
export interface LineEvent {
  readonly type: 'shell:line';
  readonly text: string;
}

/** A JSON object that isn't an event of this protocol version, as it came. */
export interface UnknownEvent {
  readonly type: 'shell:unknown';
  readonly event: Readonly<Record<string, unknown>>;
}

/** The last event of every command: the output and the process have ended. */
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
