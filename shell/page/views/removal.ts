// The question before an app is removed, in the browser's modal dialog.

import { h, patch } from '../dom.js';
import { nameOf, type UI } from '../ui.js';
import { button } from './frame.js';

export function updateRemovalDialog(dialog: HTMLDialogElement, ui: UI): void {
  if (ui.removing === null) {
    if (dialog.open) dialog.close();
    return;
  }
  patch(dialog, question(ui.removing, ui));
  dialog.onclose = () => ui.act.askToRemove(null);
  if (!dialog.open) dialog.showModal();
}

function question(id: string, { words, state, act }: UI) {
  const app = nameOf(state, id);
  const remove = () => {
    act.askToRemove(null);
    act.start('uninstall', [id]);
  };
  return [
    h('h2', { id: 'dialog-title' }, words.say('removeTitle', { app })),
    h('p', { id: 'dialog-text' }, words.say('removeText', { app })),
    h('div', { class: 'actions' },
      button('keep', words.say('keep'), () => act.askToRemove(null)),
      button('remove', words.say('removeConfirm'), remove, { class: 'danger' })),
  ];
}
