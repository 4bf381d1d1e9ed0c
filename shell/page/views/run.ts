// A run and its result.

import type { RunApp, RunAppCondition, RunState } from '../../client/src/state.js';
import { h, type View } from '../dom.js';
import { httpsOnly, isIdle, isOffline, nameOf, notStarted, outcomeOf, retryable, type UI } from '../ui.js';
import type { Offer, Words } from '../words.js';
import { card, icon, mark, type Mark } from './card.js';
import { bar, button, exportButton, link, title } from './frame.js';

const headings = { install: 'runningInstall', update: 'runningUpdate', uninstall: 'runningUninstall' } as const;
const outcomes = {
  good: 'resultGood', nothing: 'resultNothing', cancelled: 'resultCancelled', leftOut: 'resultLeftOut', partly: 'resultPartly',
  bad: 'resultBad', died: 'resultDied',
} as const;

export function running(run: RunState, ui: UI): View[] {
  return [
    h('main', {}, title(ui.words.say(headings[run.action], { count: run.apps.length }), h('p', {}, ui.words.say('leadRunning'))), list(run, ui)),
    bar(ui, 'progressOfAll', overall(run, ui), cancelAll(run, ui)),
  ];
}

export function result(run: RunState, ui: UI): View[] {
  const again = retryable(run, ui);
  const ready = isIdle(ui);
  return [
    h('main', {}, title(ui.words.say(outcomes[outcomeOf(run)])), list(run, ui)),
    bar(ui, 'next',
      h('div', { class: 'sums' }),
      again.length > 0 && button('retry', ui.words.say('retryApps', { count: again.length }), ready && (() => ui.act.start(run.action, again))),
      button('close', ui.words.say('close'), () => ui.act.dismiss(), { class: 'primary' })),
  ];
}

function list(run: RunState, ui: UI): View {
  return h('ul', { class: 'cards', 'aria-label': ui.words.say('apps') }, ...run.apps.map((app) => row(app, run, ui)));
}

function row(app: RunApp, run: RunState, ui: UI): View {
  const { words, state } = ui;
  const name = nameOf(state, app.id);
  const iconName = state.apps.find(({ id }) => id === app.id)?.iconName ?? '';
  return card(app.id, false,
    mark(app.stage === 'download' && app.condition === 'working' ? 'download' : marks[app.condition]),
    icon({ displayName: name, iconName }),
    h('div', { class: 'words' },
      h('h3', {}, name),
      h('p', { key: 'state', class: `state ${tones[app.condition] ?? ''}` }, conditionText(app, run, ui)),
      isAtWork(app) && progress(app.indeterminate ? undefined : app.percent, words.say('progressOf', { app: name }))),
    h('div', { class: 'actions' }, ...actions(app, run, ui)));
}

const isAtWork = ({ condition }: RunApp) => condition === 'working' || condition === 'cancelling';

const marks: Record<RunAppCondition, Mark> = {
  waiting: 'waiting', working: 'busy', cancelling: 'busy', cancelled: 'stopped', succeeded: 'good', skipped: 'stopped',
  failed: 'bad', unknown: 'bad', untouched: 'stopped',
};
const tones: Partial<Record<RunAppCondition, string>> = { succeeded: 'good', failed: 'bad', unknown: 'bad' };

// Without a value, the bar is indeterminate.
function progress(percent: number | undefined, name: string): View {
  const value = percent === undefined ? undefined : Math.round(percent * 10) / 10;
  return h('progress', { key: value === undefined ? 'open' : 'measured', max: 100, value, 'aria-label': name });
}

export function conditionText(app: RunApp, run: RunState, ui: UI): string {
  const { words, state } = ui;
  switch (app.condition) {
    case 'waiting': return words.say('waiting');
    case 'cancelling': return words.say('cancelling');
    case 'working': return workText(app, run, words);
    case 'cancelled': return notStarted(app) ? words.say('diedUntouched') : words.status('cancelled');
    case 'untouched': return words.say('diedUntouched');
    case 'unknown': return `${words.say('diedUnknown')} ${whatIsThere(app, ui)}`.trim();
    case 'failed': return words.failure(app.errorCode ?? '', run.action, isOffline(state)).text;
    case 'skipped': return app.errorCode ? words.failure(app.errorCode, run.action, isOffline(state)).text : words.say('alreadyCurrent');
    case 'succeeded': return words.status(app.status ?? '');
  }
}

// The installed version. Empty until `hello` has ended after the run.
function whatIsThere({ id }: RunApp, { words, state }: UI): string {
  const app = state.apps.find((known) => known.id === id);
  if (!app || state.helloNeeded || state.underWay.includes('hello') || state.failed.includes('hello')) return '';
  return app.installedVersion ? `${words.say('installedVersion', { version: app.installedVersion })}.` : `${words.say('notInstalled')}.`;
}

function workText({ stage, retrying, bytes }: RunApp, { silent }: RunState, words: Words): string {
  if (retrying) return words.say('retrying');
  if (silent && stage === 'download') return words.say('stalled');
  const what = words.stage(stage ?? '');
  if (stage !== 'download' || !bytes) return what;
  return `${what} · ${words.say('bytes', { done: words.bytes(bytes.downloaded), total: words.bytes(bytes.total) })}`;
}

function actions(app: RunApp, run: RunState, ui: UI): View[] {
  const { words, state, act } = ui;
  if (app.canCancel) {
    const name = words.say('cancelApp', { app: nameOf(state, app.id) });
    return [button('cancel', words.say('cancel'), ui.connection === 'connected' && (() => act.cancel(app.id)), { class: 'small', name })];
  }
  if (app.condition !== 'failed') return [];
  return words.failure(app.errorCode ?? '', run.action, isOffline(state)).offer.map((offer) => offered(offer, app, ui));
}

// The bar has one retry button for all apps, so a row has none.
function offered(offer: Offer, { id }: RunApp, ui: UI): View {
  const { words, state } = ui;
  if (offer === 'retry') return undefined;
  if (offer === 'logs') return exportButton(ui, 'exportLogsOffer', 'small');
  const installers = httpsOnly(state.retired?.downloadUrl);
  if (installers) return link(installers, words.say('downloadPage'), 'button');
  const page = httpsOnly(state.apps.find((known) => known.id === id)?.webUrl);
  return page && link(page, words.say('website', { app: nameOf(state, id) }), 'button');
}

function overall(run: RunState, { words }: UI): View {
  const finished = run.apps.filter((app) => app.status !== null).length;
  const measured = run.action === 'uninstall' && run.apps.length === 1 ? undefined : run.percent;
  return h('div', { class: 'sums' },
    h('p', { key: 'lead', class: 'lead' }, run.cancelAsked ? words.say('cancelling') : words.say('overall', { finished, total: run.apps.length })),
    progress(measured, words.say('progressOfAll')));
}

function cancelAll(run: RunState, ui: UI): View {
  if (!run.canCancel) return undefined;
  return button('cancel-all', ui.words.say(run.apps.length > 1 ? 'cancelAll' : 'cancel'), ui.connection === 'connected' && (() => ui.act.cancel()));
}
