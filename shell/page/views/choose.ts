// The screen for choosing apps.

import type { AppState, ReleaseNotes } from '../../client/src/state.js';
import { h, type View } from '../dom.js';
import { checkFailed, choiceIn, choiceOf, choosable, httpsOnly, isEstimated, isIdle, type Choice, type UI } from '../ui.js';
import type { Words } from '../words.js';
import { card, icon } from './card.js';
import { bar, button, link, title } from './frame.js';

export function choose(ui: UI): View[] {
  return [
    h('main', {}, title(ui.words.say('lead'), below(ui)), chooseAll(ui),
      h('ul', { class: 'cards', 'aria-label': ui.words.say('apps') }, ...ui.state.apps.map((app) => row(app, ui)))),
    choiceBar(ui),
  ];
}

function below({ words, state, act }: UI): View {
  if (state.underWay.includes('check-updates')) return h('p', {}, words.say('checking'));
  if (!checkFailed(state)) return undefined;
  return h('p', {}, `${words.say('checkFailed')} `, button('again', words.say('retry'), () => act.refresh(), { class: 'small' }));
}

function chooseAll({ words, state, chosen, act }: UI): View {
  const apps = choosable(state).map((app) => app.id);
  if (apps.length < 2) return undefined;
  const all = apps.every((id) => chosen.has(id));
  return h('label', { class: 'choose-all' },
    h('input', { type: 'checkbox', class: 'choice', checked: all, onchange: () => act.choose(apps, !all) }), words.say('chooseAll'));
}

function row(app: AppState, ui: UI): View {
  const { words, chosen, act } = ui;
  const name = `choose-${app.id}`;
  const canChoose = choiceOf(app) !== null;
  const isChosen = canChoose && chosen.has(app.id);
  return card(app.id, isChosen && 'chosen',
    canChoose && h('input', {
      id: name, type: 'checkbox', class: 'choice', checked: isChosen, 'aria-describedby': `state-${app.id}`,
      onchange: () => act.choose([app.id], !isChosen),
    }),
    icon(app),
    h('div', { class: 'words' },
      h('h3', {}, canChoose ? h('label', { for: name }, app.displayName) : app.displayName),
      h('p', { key: 'description', class: 'description' }, words.description(app.descriptionCode)),
      h('p', { key: 'state', id: `state-${app.id}`, class: choiceOf(app) === 'update' ? 'state news' : 'state' }, stateOf(app, ui))),
    h('div', { class: 'actions' }, removal(app, ui)),
    more(app, words));
}

function stateOf(app: AppState, { words, state }: UI): string {
  const facts = [situation(app, words)];
  if (choiceOf(app) !== null && app.sizeBytes !== null) {
    const size = words.bytes(app.sizeBytes);
    facts.push(isEstimated(app, state) ? words.say('sizeAbout', { size }) : size);
  }
  return facts.join(' · ');
}

function situation(app: AppState, words: Words): string {
  const { installedVersion: installed, latestVersion: latest } = app;
  if (app.source === null) return latest ? `${words.say('notInstalled')} · ${words.say('latest', { version: latest })}` : words.say('notInstalled');
  if (app.fromAppStore) return words.say('fromAppStore');
  if (choiceOf(app) === 'update') return installed && latest ? words.say('updateTo', { installed, latest }) : words.say('updateAvailable');
  if (!installed) return words.say('installedUnknown');
  const current = latest !== null && !(app.check?.updateAvailable ?? app.hello.updateAvailable);
  return words.say(current ? 'upToDate' : 'installedVersion', { version: installed });
}

function removal(app: AppState, ui: UI): View {
  if (!app.offers.includes('uninstall')) return undefined;
  return button('remove', ui.words.say('remove'), isIdle(ui) && (() => ui.act.askToRemove(app.id)),
    { class: 'small', name: ui.words.say('removeApp', { app: app.displayName }) });
}

function more(app: AppState, words: Words): View {
  const page = httpsOnly(app.webUrl);
  if (!app.releaseNotes?.releases.length && !page) return undefined;
  return h('div', { class: 'more' },
    releaseNotes(app.releaseNotes, app.displayName, words),
    page && link(page, words.say('website', { app: app.displayName }), 'website'));
}

function releaseNotes(notes: ReleaseNotes | null, app: string, words: Words): View {
  if (!notes?.releases.length) return undefined;
  const releases = notes.releases.flatMap(({ version, date, notes: sentences }, number) => [
    h('p', { key: `version-${number}` }, [words.say('latest', { version }), date && words.date(date)].filter(Boolean).join(', ')),
    h('ul', { key: `notes-${number}` }, ...sentences.map((sentence, place) => h('li', { key: String(place) }, sentence))),
  ]);
  return h('details', {},
    h('summary', { 'aria-label': words.say('releaseNotesOf', { app }) }, words.say('releaseNotes')),
    h('div', { class: 'releases' }, ...releases));
}

function choiceBar(ui: UI): View {
  const choice = choiceIn(ui);
  const ids = choice.apps.map((app) => app.id);
  const ready = ids.length > 0 && isIdle(ui);
  return bar(ui, 'chosenLabel',
    h('div', { class: 'sums' }, ...sums(choice, ui)),
    choosable(ui.state).length > 0
      && button('start', startText(choice, ui.words), ready && (() => ui.act.start(choice.action, ids)), { class: 'primary' }));
}

function startText({ apps, action, mixed }: Choice, words: Words): string {
  if (apps.length === 0) return words.say('installNone');
  return words.say(mixed ? 'installAndUpdate' : action === 'update' ? 'update' : 'install', { count: apps.length });
}

function sums(choice: Choice, { words, state }: UI): View[] {
  const line = (key: string, text: string, className?: string) => h('p', { key, class: className }, text);
  if (choosable(state).length === 0) return [line('lead', words.say(state.retired?.reason === 'expired' ? 'nothingOffered' : 'nothingToDo'), 'lead')];
  if (choice.apps.length === 0) return [line('lead', words.say('chosenNone'), 'lead')];
  const updates = choice.apps.some((app) => choiceOf(app) === 'update');
  return [
    line('lead', words.say('chosen', { count: choice.apps.length }), 'lead'),
    line('room', [downloadText(choice, words, state.installer?.mode === 'online'), roomText(choice, words)].filter(Boolean).join(' · ')),
    choice.room.enough === false && line('short', words.say('roomShort', roomArguments(choice, words)), 'short'),
    updates && line('quit', words.say('quitWarning')),
  ];
}

function downloadText({ bytes, estimated }: Choice, words: Words, online: boolean): string {
  if (!online || bytes === 0) return '';
  return words.say(estimated ? 'downloadAbout' : 'download', { size: words.bytes(bytes) });
}

function roomText(choice: Choice, words: Words): string {
  const { requiredBytes, freeBytes, complete } = choice.room;
  if (requiredBytes === 0 || freeBytes === null) return '';
  const given = roomArguments(choice, words);
  return words.say('room', complete ? given : { ...given, needed: words.say('atLeast', { size: given.needed }) });
}

function roomArguments({ room }: Choice, words: Words): { needed: string; free: string } {
  return { needed: words.bytes(room.requiredBytes), free: words.bytes(room.freeBytes ?? 0) };
}
