// The state of one run: what a shell shows for each app and for the whole. Pure functions.
import type { BeganEvent, CancelAskedEvent, EndedEvent, RunAction, ShellEvent } from './events.js';
import type {
  App, AppResultEvent, DoneEvent, ErrorCode, ProgressEvent, Result, Stage, StageEvent, Status,
} from './types.generated.js';

/**
 * - `waiting`: not begun.
 * - `working`: see `stage`.
 * - `cancelling`: the user cancelled its download, and the engine hasn't answered yet.
 * - `cancelled`: nothing was done. `cancelAsked` is true if the user requested it.
 * - `succeeded`, `failed`: see `status` and `errorCode`.
 * - `skipped`: unchanged, because it was current or because it is from the App Store (`SKIPPED`).
 * - `unknown`: the engine ended during its work on this app. `hello` has the installed version.
 * - `untouched`: the engine ended before it began this app, or during the download, which changes no installed copy.
 */
export type RunAppCondition =
  'waiting' | 'working' | 'cancelling' | 'cancelled' | 'succeeded' | 'skipped' | 'failed' | 'unknown' | 'untouched';

export interface RunApp {
  readonly id: App;
  readonly condition: RunAppCondition;
  readonly stage: Stage | null;
  /** 0 to 100; never decreases. 0 during a removal, which has no measurable progress. */
  readonly percent: number;
  /** Show an indeterminate progress bar. */
  readonly indeterminate: boolean;
  /** Null until both numbers are known. */
  readonly bytes: { readonly downloaded: number; readonly total: number } | null;
  /** The download was interrupted, and no byte has arrived since. */
  readonly retrying: boolean;
  readonly cancelAsked: boolean;
  /** A cancel of this app alone would have an effect now. */
  readonly canCancel: boolean;
  /** The engine's status; null before the result. */
  readonly status: Status | null;
  /** The reason of a failure or of `skipped`; null for a cancel. */
  readonly errorCode: ErrorCode | null;
}

/**
 * - `running`: from `shell:began` on.
 * - `done`: the engine's `done` has arrived.
 * - `refused`: the engine couldn't be started, or refused the command line. Nothing was done.
 * - `died`: the engine ended without its `done`.
 */
export type RunPhase = 'running' | 'done' | 'refused' | 'died';

export interface RunState {
  readonly action: RunAction;
  readonly phase: RunPhase;
  readonly apps: readonly RunApp[];
  /** Of the whole run, 0 to 100; never decreases. */
  readonly percent: number;
  readonly cancelAsked: boolean;
  /** A cancel of the whole run would have an effect now. */
  readonly canCancel: boolean;
  /** The engine has written nothing for a while, as during a stalled download. */
  readonly silent: boolean;
  /** The newest message of level `error`, in English. It has the reason if a run couldn't begin. */
  readonly errorMessage: string | null;
  readonly exitCode: number | null;
  /** The number of apps, as the engine counts them. */
  readonly total: number;
}

const waiting: Omit<RunApp, 'id'> = {
  condition: 'waiting', stage: null, percent: 0, indeterminate: false, bytes: null, retrying: false,
  cancelAsked: false, canCancel: false, status: null, errorCode: null,
};

const empty: Omit<RunState, 'action'> = {
  phase: 'running', apps: [], percent: 0, cancelAsked: false, canCancel: false, silent: false,
  errorMessage: null, exitCode: null, total: 0,
};

const successes: readonly Status[] = ['installed', 'updated', 'uninstalled', 'already_absent'];

/** The state at the beginning. `catalog` is for a run without a list of apps. */
export function beginRun(event: BeganEvent, catalog: readonly App[]): RunState {
  const apps = (event.apps ?? catalog).map((id) => ({ ...waiting, id }));
  return derived({ ...empty, action: event.action ?? 'install', apps, total: apps.length });
}

/** The state for a stream whose `shell:began` is missing. */
export function runInProgress(action: RunAction): RunState {
  return { ...empty, action };
}

/** The state after an event of the run. */
export function changeRun(run: RunState, event: ShellEvent): RunState {
  const silent = event.type === 'shell:silent' || (run.silent && event.type === 'shell:cancel-asked');
  return derived(changedBy({ ...run, silent }, event));
}

function changedBy(run: RunState, event: ShellEvent): RunState {
  switch (event.type) {
    case 'stage': return changeApp(counted(run, event), event.app, (app) => enterStage(app, event));
    case 'progress': return advance(run, event);
    case 'app-result': return changeApp(run, event.app, (app) => withResult(app, event));
    case 'log': return event.level === 'error' ? { ...run, errorMessage: event.message } : run;
    case 'done': return finish(run, event);
    case 'shell:cancel-asked': return askToCancel(run, event);
    case 'shell:ended': return end(run, event);
    default: return run;
  }
}

const counted = (run: RunState, { total }: StageEvent) => ({ ...run, total: Math.max(run.total, total ?? 0) });

function changeApp(run: RunState, id: App, change: (app: RunApp) => RunApp): RunState {
  const known = run.apps.some((app) => app.id === id);
  const apps = known ? run.apps : [...run.apps, { ...waiting, id }];
  return { ...run, apps: apps.map((app) => (app.id === id ? change(app) : app)) };
}

function enterStage(app: RunApp, { stage }: StageEvent): RunApp {
  const downloading = stage === 'download';
  const condition = downloading && app.cancelAsked ? 'cancelling' : 'working';
  return { ...app, stage, condition, indeterminate: !downloading, retrying: false };
}

function advance(run: RunState, event: ProgressEvent): RunState {
  const id = event.app ?? run.apps.find(isAtWork)?.id;
  return id === undefined ? run : changeApp(run, id, (app) => withProgress(app, event));
}

function withProgress(app: RunApp, { percent, indeterminate, detailArgs }: ProgressEvent): RunApp {
  if (app.stage === 'uninstall') return app;
  const bytes = detailArgs && { downloaded: detailArgs.downloadedBytes, total: detailArgs.totalBytes };
  return {
    ...app, indeterminate, percent: Math.max(app.percent, Math.min(percent, 100)),
    bytes: bytes && bytes.downloaded >= (app.bytes?.downloaded ?? 0) ? bytes : app.bytes,
    retrying: app.stage === 'download' && !bytes && percent < app.percent,
  };
}

function withResult(app: RunApp, result: AppResultEvent | Result): RunApp {
  const condition = endedAs(app, result);
  const errorCode = condition === 'cancelled' ? null : result.errorCode ?? null;
  return { ...app, condition, indeterminate: false, retrying: false, status: result.status, errorCode };
}

function endedAs(app: RunApp, { status, errorCode }: AppResultEvent | Result): RunAppCondition {
  if (errorCode === 'DOWNLOAD_FAILED' && app.cancelAsked) return 'cancelled';
  if (status === 'cancelled') return wasLeftAtWork(app) ? 'unknown' : 'cancelled';
  if (status === 'skipped') return 'skipped';
  if (successes.includes(status)) return 'succeeded';
  return status === 'failed' || errorCode ? 'failed' : 'succeeded';
}

// After 600 seconds without progress, the engine reports every app as cancelled, even the one that it is installing.
function wasLeftAtWork(app: RunApp): boolean {
  return app.stage === 'verify' || app.stage === 'install';
}

function finish(run: RunState, event: DoneEvent): RunState {
  const finished = (event.results ?? []).reduce((so, result) => changeApp(so, result.app, (app) => withResult(app, result)), run);
  const action = event.action as RunAction;
  return { ...finished, action, phase: 'done', exitCode: event.exitCode, apps: finished.apps.map(leftAlone), percent: 100 };
}

function askToCancel(run: RunState, { app: name }: CancelAskedEvent): RunState {
  const whole = name === undefined || run.action === 'uninstall';
  const known = whole || run.apps.some((app) => isNamed(app, name));
  if (run.phase !== 'running' || !known) return run;
  const apps = run.apps.map((app) => (whole || isNamed(app, name) ? cancelled(app) : app));
  return { ...run, apps, cancelAsked: run.cancelAsked || whole };
}

const isNamed = (app: RunApp, name: string) => app.id.toLowerCase() === name.toLowerCase();

function cancelled(app: RunApp): RunApp {
  if (app.status !== null) return app;
  if (app.stage === null) return { ...app, cancelAsked: true, condition: 'cancelled' };
  return { ...app, cancelAsked: true, condition: app.stage === 'download' ? 'cancelling' : app.condition };
}

function end(run: RunState, event: EndedEvent): RunState {
  if (run.phase !== 'running') return run;
  const begun = run.apps.some((app) => app.stage !== null || app.status !== null);
  const refused = event.startFailure !== undefined || (event.status === 3 && !begun);
  return { ...run, phase: refused ? 'refused' : 'died', exitCode: event.status, apps: run.apps.map(leftAlone) };
}

/** An app without a result, after the engine has ended. */
function leftAlone(app: RunApp): RunApp {
  if (app.status !== null) return app;
  const condition = { waiting: 'untouched', working: app.stage === 'download' ? 'untouched' : 'unknown', cancelling: 'cancelled' } as const;
  const known = condition[app.condition as keyof typeof condition] ?? app.condition;
  return { ...app, condition: known, indeterminate: false, retrying: false };
}

const isAtWork = (app: RunApp) => app.condition === 'working' || app.condition === 'cancelling';
const isCancellable = (app: RunApp) => app.condition === 'waiting' || (app.condition === 'working' && app.stage === 'download');

/** Computes the values that depend on the apps. */
function derived(run: RunState): RunState {
  const running = run.phase === 'running';
  const alone = running && run.action !== 'uninstall';
  const apps = run.apps.map((app) => ({ ...app, canCancel: alone && isCancellable(app) }));
  const sum = apps.reduce((so, app) => so + (app.status === null ? app.percent : 100), 0);
  const percent = Math.max(run.percent, Math.min(100, sum / Math.max(run.total, apps.length, 1)));
  const canCancel = running && apps.some(isCancellable);
  return { ...run, apps, percent, canCancel };
}
