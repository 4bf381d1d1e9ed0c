// Serves the page and its interface, on the loopback address only.

import { randomBytes } from 'node:crypto';
import { once } from 'node:events';
import { createServer, type IncomingMessage, type Server, type ServerResponse } from 'node:http';
import type { AddressInfo } from 'node:net';
import type { Asset } from './assets.js';
import { isInterface, originOf, refusal, type Access } from './guard.js';
import { readRequest, requestPaths, type Request } from './requests.js';
import type { Session } from './session.js';

export const longestBody = 4096;
// The limit of unsent bytes, at which a page that doesn't read is disconnected. A new connection begins with the current state.
const longestBacklog = 4 * 1024 * 1024;
// The time that a page has, when the server ends, to read the rest of its stream.
const restMilliseconds = 2000;

const headers = {
  'Cache-Control': 'no-store',
  'Content-Security-Policy': "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self'; "
    + "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; require-trusted-types-for 'script'",
  'Cross-Origin-Opener-Policy': 'same-origin',
  'Cross-Origin-Resource-Policy': 'same-origin',
  'Referrer-Policy': 'no-referrer',
  'X-Content-Type-Options': 'nosniff',
};

export class ShellServer {
  private readonly server: Server;
  // stream -> the function that removes its listener.
  private readonly streams = new Map<ServerResponse, () => void>();
  private readonly access: Access = { port: 0, token: randomBytes(24).toString('base64url') };

  constructor(
    private readonly session: Session, private readonly assets: ReadonlyMap<string, Asset>, private readonly backlog = longestBacklog,
  ) {
    this.server = createServer((request, response) => void this.answer(request, response));
  }

  // Listens on a port that the system chooses. Returns the address to open.
  async listen(): Promise<string> {
    await new Promise<void>((ready) => this.server.listen(0, '127.0.0.1', ready));
    this.access.port = (this.server.address() as AddressInfo).port;
    return `${originOf(this.access.port)}/#token=${this.access.token}`;
  }

  // Cancels the run and waits for its end. The pages get all its events.
  async close(): Promise<void> {
    await this.session.close();
    await Promise.all([...this.streams].map(([stream, leave]) => {
      leave();
      return endStream(stream);
    }));
    this.server.close();
    this.server.closeAllConnections();
  }

  private async answer(request: IncomingMessage, response: ServerResponse): Promise<void> {
    for (const [name, value] of Object.entries(headers)) response.setHeader(name, value);
    const refused = refusal(request, this.access);
    if (refused !== undefined) return end(response, refused);
    if (!isInterface(request)) return this.sendAsset(request, response);
    if (request.method === 'POST') return end(response, await this.take(request));
    if (request.url !== '/api/events') return end(response, 404);
    this.stream(response);
  }

  private sendAsset(request: IncomingMessage, response: ServerResponse): void {
    const asset = this.assets.get(request.url ?? '');
    if (!asset) return end(response, 404);
    response.writeHead(200, { 'Content-Type': asset.type }).end(asset.bytes);
  }

  private stream(response: ServerResponse): void {
    response.writeHead(200, { 'Content-Type': 'application/x-ndjson' });
    const leave = this.session.listen((message) => {
      if (response.destroyed) return;
      response.write(`${JSON.stringify(message)}\n`);
      if (response.writableLength > this.backlog) response.destroy();
    });
    this.streams.set(response, leave);
    response.on('close', () => {
      leave();
      this.streams.delete(response);
    });
  }

  private async take(request: IncomingMessage): Promise<number> {
    const path = request.url ?? '';
    if (!requestPaths.has(path)) return 404;
    const body = await readBody(request);
    if (body === undefined) return 413;
    const asked = readRequest(path, body, this.session.apps);
    if (!asked) return 400;
    return this.perform(asked) ? 202 : 409;
  }

  private perform(asked: Request): boolean {
    switch (asked.ask) {
      case 'run': return this.session.start(asked.action, asked.apps);
      case 'cancel': return this.session.cancel(asked.app);
      case 'export-logs': return this.session.exportLogs();
      case 'refresh': return this.session.refresh();
    }
  }
}

// Waits until everything is sent, the page has disconnected, or the time is over. After a disconnection, `end` doesn't call its
// callback.
async function endStream(stream: ServerResponse): Promise<void> {
  const limit = setTimeout(() => stream.destroy(), restMilliseconds);
  stream.end();
  await once(stream, 'close');
  clearTimeout(limit);
}

// Closes the connection of a refused request, because its body may not have been read.
function end(response: ServerResponse, status: number): void {
  if (status >= 400) response.setHeader('Connection', 'close');
  response.writeHead(status).end();
}

// The body; undefined if it is too long.
async function readBody(request: IncomingMessage): Promise<string | undefined> {
  const pieces: Buffer[] = [];
  let length = 0;
  try {
    for await (const piece of request.iterator({ destroyOnReturn: false })) {
      pieces.push(piece);
      length += (piece as Buffer).length;
      if (length > longestBody) return undefined;
    }
  } catch {
    return '';
  }
  return Buffer.concat(pieces).toString('utf8');
}
