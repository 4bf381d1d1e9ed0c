// The state that a shell shows, as plain data, and its change by each event. Pure functions that import nothing of Node:
// a browser can use them.
import type { BeganEvent, CommandName, EndedEvent, RunAction, ShellEvent } from './events.js';
import { beginRun, changeRun, runInProgress, type RunState } from './run.js';
import type {
  App, AppResultEvent, Capability, CatalogApp, DoneEvent, HelloEvent, InstallerRetired, Mode, ReleaseNotes, Result, Source,
  UpdateCheckEntry, UpdateCheckResultEvent,
} from './types.generated.js';

export * from './events.js';
export * from './run.js';
export { eventOf, parseLine } from './lines.js';
export type * from './types.generated.js';

/** One app of the catalog: its row in `hello`, with the values of its row in `check-updates`. */
export interface AppState {
  readonly id: App;
  readonly displayName: string;
  readonly descriptionCode: string;
  readonly iconName: string;
  readonly webUrl: string | null;
  readonly installedVersion: string | null;
  readonly installedPath: string | null;
  readonly source: Source | null;
  readonly latestVersion: string | null;
  readonly sizeBytes: number | null;
  readonly requiredBytes: number | null;
  readonly releaseNotes: ReleaseNotes | null;
  /** What the shell may offer. Nothing for a copy from the App Store. */
  readonly offers: readonly RunAction[];
  /** The installed copy is from the App Store. Only the App Store updates or removes it. */
  readonly fromAppStore: boolean;
  /** The two rows, unchanged, with unknown keys. */
  readonly hello: CatalogApp;
  readonly check: UpdateCheckEntry | null;
}

export interface InstallerState {
  readonly engineVersion: string;
  readonly mode: Mode;
  readonly capabilities: readonly Capability[];
  readonly helpUrl: string;
  readonly feedbackUrl: string;
}

export interface State {
  /** Null before the first `hello`. */
  readonly installer: InstallerState | null;
  /** In the order of the catalog. */
  readonly apps: readonly AppState[];
  /** The banner; null if there is none to show. */
  readonly retired: InstallerRetired | null;
  readonly freeBytes: number | null;
  /** The newest export of logs. The path is null if it failed. */
  readonly logs: { readonly path: string | null; readonly errorCode: string | null } | null;
  /** The newest run, under way or ended. */
  readonly run: RunState | null;
  /** The commands whose processes haven't ended. */
  readonly underWay: readonly CommandName[];
  /** `hello` should be started: for the first time, or after a run. */
  readonly helloNeeded: boolean;
  /** `check-updates` should be started: packages come from the network, and it hasn't been started yet. */
  readonly checkNeeded: boolean;
  /** The engine uses a newer version of the protocol. The shell must be updated. */
  readonly shellOutdated: boolean;
  /** The newest command that ended without its `done`, until the same command begins again. */
  readonly problem: EndedEvent | null;
  /** The commands that ended without their `done` and haven't begun again. */
  readonly failed: readonly CommandName[];
}

export const initialState: State = {
  installer: null, apps: [], retired: null, freeBytes: null, logs: null, run: null, underWay: [],
  helloNeeded: true, checkNeeded: false, shellOutdated: false, problem: null, failed: [],
};

/** The state after an event. Unknown events change nothing. */
export function next(state: State, event: ShellEvent): State {
  const retired = 'installerRetired' in event ? event.installerRetired : undefined;
  const changed = retire(changedBy(state, event), retired);
  return changed === state ? state : { ...changed, apps: changed.apps.map((app) => merged(app.hello, app.check, changed)) };
}

function changedBy(state: State, event: ShellEvent): State {
  switch (event.type) {
    case 'shell:began': return begin(state, event);
    case 'shell:ended': return end(state, event);
    case 'shell:unknown': return Number(event.event.v) > 1 ? { ...state, shellOutdated: true } : state;
    case 'hello': return greet(state, event);
    case 'update-check-result': return check(state, event);
    case 'disk-free-result': return { ...state, freeBytes: event.freeBytes };
    case 'export-logs-result': return { ...state, logs: { path: event.path, errorCode: event.errorCode } };
    case 'app-result': return take(ofRun(state, event), event);
    case 'done': return finish(state, event);
    case 'shell:silent': return event.command === 'run' ? ofRun(state, event) : state;
    case 'log': return state.underWay.includes('run') ? ofRun(state, event) : state;
    case 'stage':
    case 'progress':
    case 'shell:cancel-asked': return ofRun(state, event);
    default: return state;
  }
}

function ofRun(state: State, event: ShellEvent): State {
  const removal = event.type === 'stage' && event.stage === 'uninstall';
  const run = state.run ?? runInProgress(removal ? 'uninstall' : 'install');
  return { ...state, run: changeRun(run, event) };
}

function begin(state: State, event: BeganEvent): State {
  const problem = state.problem?.command === event.command ? null : state.problem;
  const failed = state.failed.filter((command) => command !== event.command);
  const begun = { ...state, problem, failed, underWay: [...state.underWay, event.command] };
  switch (event.command) {
    case 'hello': return { ...begun, helloNeeded: false };
    case 'check-updates': return { ...begun, checkNeeded: false };
    case 'export-logs': return { ...begun, logs: null };
    case 'run': return { ...begun, run: beginRun(event, state.apps.map((app) => app.id)) };
    default: return begun;
  }
}

function end(state: State, event: EndedEvent): State {
  const { command, done } = event;
  const first = state.underWay.indexOf(command);
  const underWay = state.underWay.filter((_, index) => index !== first);
  const failure = done ? {} : { problem: event, failed: [...new Set([...state.failed, command])] };
  const ended = { ...state, underWay, ...failure };
  if (command === 'export-logs' && !done) return { ...ended, logs: { path: null, errorCode: null } };
  return command === 'run' ? { ...ofRun(ended, event), helloNeeded: true } : ended;
}

function greet(state: State, event: HelloEvent): State {
  const { engineVersion, mode, capabilities, helpUrl, feedbackUrl } = event;
  const checks = new Map(state.apps.map((app) => [app.id, app.check]));
  const checkable = mode === 'online' && capabilities.includes('check-updates');
  return {
    ...state, installer: { engineVersion, mode, capabilities, helpUrl, feedbackUrl },
    checkNeeded: state.installer ? state.checkNeeded : checkable,
    apps: event.apps.map((row) => merged(row, checks.get(row.id) ?? null, state)),
  };
}

function check(state: State, event: UpdateCheckResultEvent): State {
  const rows = new Map(event.apps.map((row) => [row.id, row]));
  const checked = { ...state, apps: state.apps.map((app) => ({ ...app, check: rows.get(app.id) ?? app.check })) };
  return event.apps.some((row) => row.latestVersion !== undefined) ? sourceFound(checked) : checked;
}

function finish(state: State, event: DoneEvent): State {
  return event.results ? event.results.reduce(take, ofRun(state, event)) : state;
}

/** A success shows that the source of the packages exists, and ends the offer of an update. */
function take(state: State, { status, app: id }: AppResultEvent | Result): State {
  if (!['installed', 'updated', 'skipped'].includes(status) || state.run?.action === 'uninstall') return state;
  const apps = state.apps.map((app) => (app.id === id && app.check
    ? { ...app, check: { ...app.check, updateAvailable: false } } : app));
  return sourceFound({ ...state, apps });
}

/** An expired installer stays expired. A missing source can return. */
function retire(state: State, retired: InstallerRetired | undefined): State {
  if (!retired || (state.retired?.reason === 'expired' && retired.reason !== 'expired')) return state;
  return { ...state, retired };
}

function sourceFound(state: State): State {
  return state.retired?.reason === 'source-unavailable' ? { ...state, retired: null } : state;
}

function merged(hello: CatalogApp, check: UpdateCheckEntry | null, state: State): AppState {
  const { id, displayName, descriptionCode, iconName, webUrl, installedVersion, source } = hello;
  const latestVersion = check?.latestVersion ?? hello.latestVersion;
  return {
    id, displayName, descriptionCode, iconName, webUrl, installedVersion, source, latestVersion,
    installedPath: hello.installedPath ?? null,
    sizeBytes: check?.sizeBytes ?? hello.sizeBytes,
    requiredBytes: check?.requiredBytes ?? hello.requiredBytes ?? null,
    releaseNotes: check?.releaseNotes ?? null,
    offers: offersFor(hello, check, state),
    fromAppStore: source === 'appstore',
    hello, check,
  };
}

function offersFor(hello: CatalogApp, check: UpdateCheckEntry | null, state: State): RunAction[] {
  const can = (action: RunAction) => state.installer?.capabilities.includes(action) === true
    && (action === 'uninstall' || state.retired?.reason !== 'expired');
  if (hello.source === null) return (['install'] as const).filter(can);
  if (hello.source !== 'direct') return [];
  const known = check?.latestVersion !== undefined && check.latestVersion === hello.installedVersion;
  const update = !known && (check?.updateAvailable ?? hello.updateAvailable);
  return (update ? ['update', 'uninstall'] as const : ['uninstall'] as const).filter(can);
}

export interface Room {
  /** The sum of the chosen apps; without the unknown values if `complete` is false. */
  readonly requiredBytes: number;
  readonly complete: boolean;
  readonly freeBytes: number | null;
  /** Null if the known values don't decide it. The values are estimates: warn, but don't forbid. */
  readonly enough: boolean | null;
}

/** The disk room that these apps need in total. */
export function roomFor(state: State, ids: readonly App[]): Room {
  const needs = ids.map((id) => state.apps.find((app) => app.id === id)?.requiredBytes ?? null);
  const requiredBytes = needs.reduce<number>((sum, bytes) => sum + (bytes ?? 0), 0);
  const complete = !needs.includes(null);
  const { freeBytes } = state;
  if (freeBytes === null) return { requiredBytes, complete, freeBytes, enough: null };
  const fits = requiredBytes <= freeBytes;
  return { requiredBytes, complete, freeBytes, enough: fits && !complete ? null : fits };
}
