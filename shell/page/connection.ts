// The connection from the page to its server. The token is in the address's fragment, which browsers don't send. The stream
// is read with fetch, because an EventSource can't send the token in a header.

import type { ShellEvent, State } from '../client/src/state.js';

// The first message of a stream has the current state and the number of runs since the start of the server.
export type Message = { state: State; runs: number } | { event: ShellEvent };

export class Connection {
  private readonly token = new URLSearchParams(location.hash.slice(1)).get('token') ?? '';

  get hasToken(): boolean {
    return this.token !== '';
  }

  // Posts one request. Returns the status of the answer; 0 if there is none.
  async post(path: string, body: object = {}): Promise<number> {
    const headers = { ...this.headers(), 'Content-Type': 'application/json' };
    const answer = await fetch(path, { method: 'POST', headers, body: JSON.stringify(body) }).catch(() => undefined);
    return answer?.status ?? 0;
  }

  // Passes each message of the stream to `receive`, and returns at its end. Throws if the stream is refused or breaks off.
  // An exception of `receive` is reported and doesn't end the stream.
  async follow(receive: (message: Message) => void): Promise<void> {
    const answer = await fetch('api/events', { headers: this.headers() });
    if (!answer.ok || !answer.body) throw new Error(`the server refused the stream: status ${answer.status}`);
    const reader = answer.body.pipeThrough(new TextDecoderStream()).getReader();
    let rest = '';
    for (let piece = await reader.read(); !piece.done; piece = await reader.read()) {
      const lines = (rest + piece.value).split('\n');
      rest = lines.pop() ?? '';
      for (const line of lines) {
        try {
          receive(JSON.parse(line) as Message);
        } catch (error) {
          reportError(error);
        }
      }
    }
  }

  private headers(): Record<string, string> {
    return { Authorization: `Bearer ${this.token}` };
  }
}
