// The server with a fake engine, for the tests of the server and of the page.

import { fileURLToPath } from 'node:url';
import { Engine, type EngineOptions } from '../client/src/engine.js';
import { readAssets } from '../server/assets.js';
import { ShellServer } from '../server/server.js';
import { Session } from '../server/session.js';
import { FakeEngine } from './fake-engine.js';

export const built = fileURLToPath(new URL('..', import.meta.url));

export interface TestShell {
  engine: FakeEngine;
  session: Session;
  address: URL;
  token: string;
  // Breaks the pages' streams.
  cut(): void;
  close(): Promise<void>;
}

// Uses the fake engine unless `options` has another one. `backlog`: the unsent bytes at which a page is disconnected.
export async function openShell({ backlog, ...options }: Partial<EngineOptions> & { backlog?: number } = {}): Promise<TestShell> {
  const engine = new FakeEngine();
  const session = new Session(new Engine({ program: engine.program, ...options }));
  const server = new ShellServer(session, readAssets(built), backlog);
  const address = new URL(await server.listen());
  return {
    engine, session, address, token: address.hash.replace('#token=', ''),
    cut() {
      for (const stream of server['streams'].keys()) stream.destroy();
    },
    async close() {
      engine.close();
      await server.close();
    },
  };
}
