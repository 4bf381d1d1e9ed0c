// The state that one page shows: the installer's, which all pages share, and the page's own.

import { roomFor, type App, type AppState, type Room, type RunAction, type RunApp, type RunState, type State } from '../client/src/state.js';
import type { Language, Words } from './words.js';

export interface UI {
  readonly words: Words;
  readonly state: State;
  readonly connection: 'none' | 'connected' | 'lost';
  readonly termsAccepted: boolean;
  readonly chosen: ReadonlySet<App>;
  // The result of the last run has been closed.
  readonly dismissed: boolean;
  // The app whose removal the user has to confirm.
  readonly removing: App | null;
  // A run was requested and hasn't begun.
  readonly pending: boolean;
  // Why the server refused the last request.
  readonly refused: 'busy' | 'refused' | null;
  readonly act: Acts;
}

export interface Acts {
  speak(language: Language): void;
  acceptTerms(): void;
  choose(apps: readonly App[], wanted: boolean): void;
  start(action: RunAction, apps: readonly App[]): void;
  askToRemove(app: App | null): void;
  cancel(app?: App): void;
  dismiss(): void;
  refresh(): void;
  exportLogs(): void;
}

export type Screen = 'starting' | 'unusable' | 'terms' | 'choose' | 'run' | 'result';

export function screenOf({ state, connection, termsAccepted, dismissed }: UI): Screen {
  if (state.shellOutdated || (connection === 'lost' && !state.installer)) return 'unusable';
  if (state.run?.phase === 'running') return 'run';
  if (state.run && !dismissed) return 'result';
  if (!state.installer) return state.failed.includes('hello') ? 'unusable' : 'starting';
  return termsAccepted || state.installer.capabilities.includes('skip-terms') ? 'choose' : 'terms';
}

export const isIdle = ({ state, connection, pending }: UI) => connection === 'connected' && !pending && !state.underWay.includes('run');
export const nameOf = (state: State, id: App) => state.apps.find((app) => app.id === id)?.displayName ?? id;
export const isOffline = (state: State) => state.installer?.mode === 'offline';

// The action for this app if it is chosen; null if it can't be chosen.
export const choiceOf = (app: AppState) => app.offers.find((offer) => offer !== 'uninstall') ?? null;
export const choosable = (state: State) => state.apps.filter((app) => choiceOf(app) !== null);

// The choice after a change of the state: without the apps that a run has changed or removes.
export function stillChosen(chosen: ReadonlySet<App>, before: State, { run }: State): Set<App> {
  const succeeded = new Set(before.run?.apps.filter((app) => app.condition === 'succeeded').map((app) => app.id));
  const removing = run?.action === 'uninstall' && run.phase === 'running';
  const changed = run?.apps.filter((app) => removing || (app.condition === 'succeeded' && !succeeded.has(app.id))) ?? [];
  return new Set([...chosen].filter((id) => !changed.some((app) => app.id === id)));
}

export interface Choice {
  apps: AppState[];
  // Of one run for all apps. `install` also updates.
  action: RunAction;
  mixed: boolean;
  bytes: number;
  estimated: boolean;
  room: Room;
}

export function choiceIn({ state, chosen }: UI): Choice {
  const apps = choosable(state).filter((app) => chosen.has(app.id));
  const updates = apps.filter((app) => choiceOf(app) === 'update').length;
  return {
    apps,
    action: apps.length > 0 && updates === apps.length ? 'update' : 'install',
    mixed: updates > 0 && updates < apps.length,
    bytes: apps.reduce((sum, app) => sum + (app.sizeBytes ?? 0), 0),
    estimated: apps.some((app) => isEstimated(app, state)),
    room: roomFor(state, apps.map((app) => app.id)),
  };
}

// Online, the size is an estimate of the engine until `check-updates` has it from the network.
export function isEstimated(app: AppState, state: State): boolean {
  return app.sizeBytes === null || (!isOffline(state) && app.check?.sizeBytes === undefined);
}

// `check-updates` has ended without its `done`, or no app has an available version.
export function checkFailed({ installer, underWay, apps, retired, failed }: State): boolean {
  if (installer?.mode !== 'online' || retired || underWay.includes('check-updates')) return false;
  return failed.includes('check-updates') || (apps.some((app) => app.check) && apps.every((app) => app.check?.latestVersion === undefined));
}

// The engine left the app out without a request of the user, as when it ends a run that makes no progress.
export const notStarted = ({ condition, cancelAsked }: RunApp) => condition === 'untouched' || (condition === 'cancelled' && !cancelAsked);

// The failed apps for which the page offers a retry, the apps that weren't started, and those whose result isn't known.
export function retryable(run: RunState, { words, state }: UI): App[] {
  const retries = (app: RunApp) => app.condition === 'unknown' || notStarted(app)
    || (app.condition === 'failed' && words.failure(app.errorCode ?? '', run.action, isOffline(state)).offer.includes('retry'));
  return run.apps.filter(retries).map((app) => app.id);
}

export type Outcome = 'good' | 'nothing' | 'cancelled' | 'leftOut' | 'partly' | 'bad' | 'died';

export function outcomeOf(run: RunState): Outcome {
  if (run.phase === 'died') return 'died';
  if (run.phase === 'refused') return 'bad';
  const has = (condition: RunApp['condition']) => run.apps.some((app) => app.condition === condition);
  const failed = has('failed') || has('unknown') || run.apps.some(notStarted);
  if (failed) return has('succeeded') || has('skipped') ? 'partly' : 'bad';
  if (has('cancelled')) return has('succeeded') && !run.cancelAsked ? 'leftOut' : 'cancelled';
  return has('succeeded') ? 'good' : 'nothing';
}

// The addresses come from the installer's configuration. Only https addresses become links.
export function httpsOnly(address: string | null | undefined): string | undefined {
  return address && URL.canParse(address) && new URL(address).protocol === 'https:' ? address : undefined;
}
