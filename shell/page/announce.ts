// The text that a screen reader announces: an app's new stage or its result, and the result of an export. Never a growing number.

import type { RunApp, State } from '../client/src/state.js';
import { nameOf, type UI } from './ui.js';
import { exportText } from './views/frame.js';
import { conditionText } from './views/run.js';

// Empty if there is nothing new.
export function announcement(before: UI, ui: UI): string {
  return [runNews(before.state, ui), exportNews(before, ui)].filter(Boolean).join(' ');
}

function exportNews(before: UI, ui: UI): string {
  return exportText(before) === exportText(ui) ? '' : exportText(ui);
}

function runNews(before: State, ui: UI): string {
  const { state: { run } } = ui;
  if (!run) return '';
  const old = new Map(before.run?.apps.map((app) => [app.id, app]));
  const changed = run.apps.filter((app) => app.condition !== 'waiting' && isNews(old.get(app.id), app));
  return changed.map((app) => `${nameOf(ui.state, app.id)}: ${conditionText({ ...app, bytes: null }, run, ui)}`).join(' ');
}

function isNews(before: RunApp | undefined, after: RunApp): boolean {
  return before?.condition !== after.condition || before.stage !== after.stage || (after.retrying && !before.retrying);
}
