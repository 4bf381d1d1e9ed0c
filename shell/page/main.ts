// One page: follows the installer's events, has its own state, and shows both.

import { initialState, next, type App, type State } from '../client/src/state.js';
import { announcement } from './announce.js';
import { Connection, type Message } from './connection.js';
import { h, patch, type View } from './dom.js';
import { choiceOf, screenOf, stillChosen, type Acts, type UI } from './ui.js';
import { choose } from './views/choose.js';
import { about, head, notices, starting, terms, title, unusable } from './views/frame.js';
import { updateRemovalDialog } from './views/removal.js';
import { result, running } from './views/run.js';
import { loadWords, preferredLanguage, type Language } from './words.js';

const connection = new Connection();
const shell = document.getElementById('shell')!;
const live = document.getElementById('live')!;
const dialog = document.getElementById('dialog') as HTMLDialogElement;
// The number of attempts to reopen a lost stream before the page reports the loss, and the pause before each.
const attempts = 4;
const pauseMilliseconds = 500;
const linesKept = 8;

// The state that a reload keeps. Each start of the server has another origin, and so another storage.
const kept = sessionStorage;
let runs = 0;
let shown = '';
// Apps whose update has been preselected once. If the user deselects it, it stays deselected.
const proposed = new Set<App>();

const act: Acts = {
  async speak(language) {
    kept.setItem('language', language);
    show({ words: await loadWords(language), refused: null });
  },
  acceptTerms() {
    kept.setItem('terms', 'accepted');
    show({ termsAccepted: true });
  },
  choose(apps, wanted) {
    const others = [...ui.chosen].filter((id) => !apps.includes(id));
    show({ chosen: new Set(wanted ? [...others, ...apps] : others), refused: null });
  },
  start(action, apps) {
    show({ pending: true });
    void ask('api/run', { action, apps });
  },
  askToRemove: (removing) => show({ removing, refused: null }),
  cancel: (app) => ask('api/cancel', app === undefined ? {} : { app }),
  dismiss() {
    kept.setItem('dismissed', String(runs));
    show({ dismissed: true, refused: null });
  },
  refresh: () => ask('api/refresh'),
  exportLogs: () => ask('api/export-logs'),
};

let ui: UI = {
  words: await loadWords((kept.getItem('language') as Language | null) ?? preferredLanguage(navigator.languages)),
  state: initialState, connection: 'none', termsAccepted: kept.getItem('terms') === 'accepted', chosen: new Set(), dismissed: false,
  removing: null, pending: false, refused: null, act,
};

async function ask(path: string, body: object = {}): Promise<void> {
  show({ refused: null });
  const status = await connection.post(path, body);
  if (status === 202) return;
  show({ refused: refusalOf(path, status), ...(path === 'api/run' ? { pending: false } : {}) });
}

// Without an answer, the loss of the stream is shown. A conflict means that the request is already fulfilled, except for a run.
function refusalOf(path: string, status: number): UI['refused'] {
  if (status === 0) return null;
  if (status !== 409) return 'refused';
  return path === 'api/run' && screenOf(ui) !== 'run' ? 'busy' : null;
}

function show(change: Partial<UI>): void {
  const before = ui;
  ui = { ...ui, ...change };
  const focused = document.activeElement;
  document.documentElement.lang = ui.words.language;
  document.title = ui.words.say('title');
  patch(shell, [head(ui), h('div', { key: 'notices' }, ...notices(ui)), ...body(), about(ui)]);
  updateRemovalDialog(dialog, ui);
  announce(before);
  moveFocus(focused);
}

function body(): View[] {
  if (!connection.hasToken) return [h('main', {}, title(ui.words.say('noToken')))];
  const { run } = ui.state;
  switch (screenOf(ui)) {
    case 'starting': return [starting(ui)];
    case 'unusable': return [unusable(ui)];
    case 'terms': return [terms(ui)];
    case 'choose': return choose(ui);
    case 'run': return running(run!, ui);
    case 'result': return result(run!, ui);
  }
}

function announce(before: UI): void {
  if (before.state === ui.state || before.connection !== 'connected') return;
  const text = announcement(before, ui);
  if (!text) return;
  // Each text gets a new element. A text that is replaced at once isn't announced.
  const line = document.createElement('p');
  line.textContent = text;
  live.append(line);
  if (live.children.length > linesKept) live.firstElementChild?.remove();
}

// Focuses the heading of a new screen, except of the first, and if the focused control has disappeared.
function moveFocus(before: Element | null): void {
  const screen = screenOf(ui);
  const first = shown === '' || shown === 'starting';
  const changed = screen !== shown;
  shown = screen;
  if ((changed && !first) || (before && !before.isConnected)) document.getElementById('heading')?.focus();
}

function receive(message: Message): void {
  if ('state' in message) {
    runs = message.runs;
    take(message.state, { connection: 'connected', pending: false, dismissed: kept.getItem('dismissed') === String(runs) });
    return;
  }
  const began = message.event.type === 'shell:began' && message.event.command === 'run';
  if (began) runs += 1;
  take(next(ui.state, message.event), began ? { dismissed: false, pending: false, refused: null } : {});
}

function take(state: State, change: Partial<UI>): void {
  const updates = state.apps.filter((app) => choiceOf(app) === 'update' && !proposed.has(app.id)).map((app) => app.id);
  for (const id of updates) proposed.add(id);
  show({ ...change, state, chosen: stillChosen(new Set([...ui.chosen, ...updates]), ui.state, state) });
}

async function follow(): Promise<void> {
  for (let left = attempts; left > 0; left -= 1) {
    await connection.follow((message) => {
      left = attempts;
      receive(message);
    }).catch(() => undefined);  // The stream was refused or broke off: it is opened again.
    await new Promise((wake) => setTimeout(wake, pauseMilliseconds));
  }
  show({ connection: 'lost' });
}

show({});
if (connection.hasToken) void follow();
