// The parts around every screen: head, notices and foot. Also the screens that have only a few sentences.

import { h, type View } from '../dom.js';
import { httpsOnly, screenOf, type UI } from '../ui.js';
import { languages, type Language } from '../words.js';

export function head({ words, act }: UI): View {
  const options = Object.entries(languages).map(([language, name]) =>
    h('option', { key: language, value: language, lang: language, selected: language === words.language }, name));
  return h('header', { class: 'head' },
    h('img', { src: 'page/icon.svg', alt: '' }),
    h('h1', {}, words.say('title')),
    h('label', { for: 'language' }, words.say('languageLabel')),
    h('select', { id: 'language', onchange: (event) => act.speak((event.target as HTMLSelectElement).value as Language) }, ...options));
}

// The heading receives focus when the screen changes.
export function title(heading: string, ...below: View[]): View {
  return h('div', { class: 'title' }, h('h2', { id: 'heading', tabindex: -1 }, heading), ...below);
}

export function notices(ui: UI): View[] {
  const { words, state: { retired }, connection, refused } = ui;
  const lost = connection === 'lost' && screenOf(ui) !== 'unusable';
  const page = httpsOnly(retired?.downloadUrl);
  return [
    lost && notice('lost', words.say('disconnected')),
    retired ? notice('retired', words.retired(retired.reason, retired.expiresOn), page && link(page, words.say('downloadPage'))) : false,
    refused ? notice('refused', words.say(refused)) : false,
  ];
}

function notice(key: string, text: string, offer?: View): View {
  return h('div', { key, class: 'notice', role: 'alert' }, h('p', {}, text), offer);
}

export function link(address: string, text: string, className?: string): View {
  return h('a', { href: address, target: '_blank', rel: 'noopener noreferrer', class: className }, text);
}

// Without `act` it is marked as disabled but keeps the focus, which a really disabled button would lose.
export function button(key: string, text: string, act: (() => void) | false, more: { class?: string; name?: string } = {}): View {
  return h('button', {
    key, type: 'button', class: more.class, 'aria-label': more.name, 'aria-disabled': act ? undefined : 'true', onclick: act ? () => act() : undefined,
  }, text);
}

export function about(ui: UI): View {
  const { words, state: { installer } } = ui;
  if (!installer) return undefined;
  const help = httpsOnly(installer.helpUrl);
  const feedback = httpsOnly(installer.feedbackUrl);
  return h('footer', { class: 'about' },
    help && link(help, words.say('help')),
    feedback && link(feedback, words.say('feedback')),
    exportButton(ui, 'exportLogs'),
    h('p', {}, words.say('version', { version: installer.engineVersion })));
}

// Nothing if the engine can't export logs.
export function exportButton({ words, state, connection, act }: UI, text: 'exportLogs' | 'exportLogsOffer', className?: string): View {
  if (!state.installer?.capabilities.includes('export-logs')) return undefined;
  const ready = connection === 'connected' && !state.underWay.includes('export-logs');
  return button(text, words.say(text), ready && (() => act.exportLogs()), className === undefined ? {} : { class: className });
}

// The bar at the lower edge, which is always visible. It also shows the result of an export.
export function bar(ui: UI, name: 'chosenLabel' | 'progressOfAll' | 'next', ...parts: View[]): View {
  const { words, state: { logs, installer } } = ui;
  const text = exportText(ui);
  const feedback = logs?.path ? httpsOnly(installer?.feedbackUrl) : undefined;
  return h('section', { class: 'bar', key: name, 'aria-label': words.say(name) },
    text !== '' && h('p', { key: 'logs', class: 'logs' }, `${text} `, feedback && link(feedback, words.say('exportSend'))), ...parts);
}

export function exportText({ words, state: { logs, underWay } }: UI): string {
  if (underWay.includes('export-logs')) return words.say('exportingLogs');
  if (!logs) return '';
  return logs.path === null ? words.failure('UNKNOWN', 'export-logs', false).text : words.say('exportedLogs', { path: logs.path });
}

export function starting({ words }: UI): View {
  return h('main', {}, h('div', { class: 'looking' },
    h('progress', { 'aria-label': words.say('looking') }), h('p', { id: 'heading', tabindex: -1 }, words.say('looking'))));
}

export function unusable({ words, state, connection, act }: UI): View {
  if (connection === 'lost') return h('main', {}, title(words.say('disconnected')));
  if (state.shellOutdated) return h('main', {}, title(words.say('engineNewer')));
  return h('main', {}, title(words.say('engineFailed')), button('retry', words.say('retry'), () => act.refresh(), { class: 'primary' }));
}

export function terms({ words, act }: UI): View {
  const accept = (event: Event) => {
    event.preventDefault();
    act.acceptTerms();
  };
  return h('main', {}, title(words.say('termsTitle')),
    h('form', { class: 'terms', onsubmit: accept },
      ...words.terms().map((paragraph, number) => h('p', { key: String(number) }, paragraph)),
      h('label', {}, h('input', { type: 'checkbox', class: 'choice', required: true }), words.say('termsAccept')),
      h('button', { class: 'primary' }, words.say('termsContinue'))));
}
