// Decides which requests are accepted. Requests from other origins, with a wrong token or with another host name, as after DNS
// rebinding, are refused before their body is read.

import { timingSafeEqual } from 'node:crypto';
import type { IncomingMessage } from 'node:http';

export interface Access {
  port: number;
  token: string;
}

export function originOf(port: number): string {
  return `http://127.0.0.1:${port}`;
}

// The status with which this request is refused; undefined if it is accepted.
export function refusal(request: IncomingMessage, { port, token }: Access): number | undefined {
  if (!fromOurPage(request, port)) return 403;
  if (!isInterface(request)) return request.method === 'GET' ? undefined : 405;
  if (!holdsToken(request, token)) return 401;
  if (request.method === 'GET') return undefined;
  if (request.method !== 'POST') return 405;
  if (request.headers.origin === undefined) return 403;
  return request.headers['content-type'] === 'application/json' ? undefined : 415;
}

export function isInterface(request: IncomingMessage): boolean {
  return request.url?.startsWith('/api/') ?? false;
}

function fromOurPage(request: IncomingMessage, port: number): boolean {
  const { host, origin } = request.headers;
  const site = request.headers['sec-fetch-site'];
  if (`http://${host}` !== originOf(port)) return false;
  if (origin !== undefined && origin !== originOf(port)) return false;
  return site === undefined || site === 'same-origin' || site === 'none';
}

function holdsToken(request: IncomingMessage, token: string): boolean {
  const given = Buffer.from(request.headers.authorization ?? '');
  const wanted = Buffer.from(`Bearer ${token}`);
  return given.length === wanted.length && timingSafeEqual(given, wanted);
}
