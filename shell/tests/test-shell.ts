// The server with a fake engine, for the tests of the server and of the page.

import { fileURLToPath } from 'node:url';
import { Engine, type EngineOptions } from '../client/src/engine.js';
import { readAssets } from '../server/assets.js';
import { ShellServer } from '../server/server.js';
import { Session } from '../server/session.js';
import { Stage } from './stage.js';

export const built = fileURLToPath(new URL('..', import.meta.url));

export interface Theatre {
  stage: Stage;
  session: Session;
  address: URL;
  token: string;
  close(): Promise<void>;
}

// Uses the stage's engine unless `options` has another one.
export async function openTheatre(options: Partial<EngineOptions> = {}): Promise<Theatre> {
  const stage = new Stage();
  const session = new Session(new Engine({ program: stage.program, ...options }));
  const server = new ShellServer(session, readAssets(built));
  const address = new URL(await server.listen());
  return {
    stage, session, address, token: address.hash.replace('#token=', ''),
    async close() {
      stage.close();
      await server.close();
    },
  };
}
