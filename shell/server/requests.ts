// The requests of a page. No text of a request is passed on: it only selects words from lists.

import type { App, RunAction } from '../client/src/state.js';

export type Request =
  | { ask: 'run'; action: RunAction; apps: App[] }
  | { ask: 'cancel'; app?: App }
  | { ask: 'refresh' }
  | { ask: 'export-logs' };

const actions: readonly RunAction[] = ['install', 'update', 'uninstall'];

// The request of a path and its body; undefined if the body is invalid. `known`: the installer's apps, in their order.
export function readRequest(path: string, body: string, known: readonly App[]): Request | undefined {
  const given = readObject(body);
  if (!given) return undefined;
  switch (path) {
    case '/api/run': return readRun(given, known);
    case '/api/cancel': return readCancel(given, known);
    case '/api/refresh': return hasOnly(given, []) ? { ask: 'refresh' } : undefined;
    case '/api/export-logs': return hasOnly(given, []) ? { ask: 'export-logs' } : undefined;
    default: return undefined;
  }
}

export const requestPaths = new Set(['/api/run', '/api/cancel', '/api/refresh', '/api/export-logs']);

function readObject(body: string): Record<string, unknown> | undefined {
  try {
    const value: unknown = JSON.parse(body);
    return typeof value === 'object' && value !== null && !Array.isArray(value) ? { ...value } : undefined;
  } catch {
    return undefined;
  }
}

function hasOnly(given: Record<string, unknown>, keys: readonly string[]): boolean {
  return Object.keys(given).every((key) => keys.includes(key));
}

function readRun(given: Record<string, unknown>, known: readonly App[]): Request | undefined {
  const action = actions.find((word) => word === given.action);
  if (!action || !Array.isArray(given.apps) || !hasOnly(given, ['action', 'apps'])) return undefined;
  const asked: unknown[] = given.apps;
  const apps = known.filter((id) => asked.includes(id));
  return apps.length > 0 && apps.length === asked.length ? { ask: 'run', action, apps } : undefined;
}

function readCancel(given: Record<string, unknown>, known: readonly App[]): Request | undefined {
  if (!hasOnly(given, ['app'])) return undefined;
  if (given.app === undefined) return { ask: 'cancel' };
  const app = known.find((id) => id === given.app);
  return app === undefined ? undefined : { ask: 'cancel', app };
}
