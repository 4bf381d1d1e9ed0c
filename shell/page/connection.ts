// What the page and its server say to each other. The token stands in the address's fragment, which browsers keep to
// themselves; an EventSource can't send it in a header, so the stream is read by fetch.

import type { ShellEvent, State } from '../client/src/state.js';

// The first message of a stream is the state of then, with the number of runs since the server began.
export type Message = { state: State; runs: number } | { event: ShellEvent };

export class Connection {
  private readonly token = new URLSearchParams(location.hash.slice(1)).get('token') ?? '';

  get hasToken(): boolean {
    return this.token !== '';
  }

  // Posts one request. The status of the answer; 0 if there is none.
  async post(path: string, body: object = {}): Promise<number> {
    const headers = { ...this.headers(), 'Content-Type': 'application/json' };
    const answer = await fetch(path, { method: 'POST', headers, body: JSON.stringify(body) }).catch(() => undefined);
    return answer?.status ?? 0;
  }

  // Hands over each message of the stream; returns when the stream has ended, for whatever reason.
  async follow(receive: (message: Message) => void): Promise<void> {
    const answer = await fetch('api/events', { headers: this.headers() });
    if (!answer.ok || !answer.body) throw new Error(`the server answers ${answer.status}`);
    const reader = answer.body.pipeThrough(new TextDecoderStream()).getReader();
    let rest = '';
    for (let piece = await reader.read(); !piece.done; piece = await reader.read()) {
      const lines = (rest + piece.value).split('\n');
      rest = lines.pop() ?? '';
      for (const line of lines) receive(JSON.parse(line) as Message);
    }
  }

  private headers(): Record<string, string> {
    return { Authorization: `Bearer ${this.token}` };
  }
}
