// One app in a list.

import type { App, AppState } from '../../client/src/state.js';
import { h, type View } from '../dom.js';

export function card(id: App, state: string | false, ...parts: View[]): View {
  return h('li', { key: id, 'data-app': id, class: state ? `app ${state}` : 'app' }, ...parts);
}

// The first letter of the last word of the name, because each name begins with the maker's.
export function icon({ displayName, iconName }: Pick<AppState, 'displayName' | 'iconName'>): View {
  const letter = displayName.split(' ').pop()?.slice(0, 1) ?? '';
  return h('div', { class: `icon ${iconName}`, 'aria-hidden': 'true' }, letter);
}

const shapes = {
  good: 'M4 10.5 8.5 15 16 5.5',
  bad: 'M10 4.5v7M10 15.5v.01',
  stopped: 'M5 10h10',
  waiting: 'M5 10h.01M10 10h.01M15 10h.01',
  download: 'M10 4v9m-4-4 4 4 4-4M5 16.5h10',
  busy: 'M10 3.5a6.5 6.5 0 1 1-6.5 6.5',
};
export type Mark = keyof typeof shapes;

// A shape for the state. The text beside it states the same.
export function mark(kind: Mark): View {
  return h('div', { class: `mark ${kind}`, 'aria-hidden': 'true' }, h('svg', { viewBox: '0 0 20 20' }, h('path', { d: shapes[kind] })));
}
