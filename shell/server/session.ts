// The installer that all pages share: its state, its run, and its listeners.

import type { Engine, EngineProcess, Run } from '../client/src/engine.js';
import { initialState, next, type App, type RunAction, type ShellEvent, type State } from '../client/src/state.js';
import type { Message } from '../page/connection.js';

type Listener = (message: Message) => void;

export class Session {
  private state: State = initialState;
  private runs = 0;
  private run: Run | undefined;
  // Settles when the listeners have the run's last event and the queries after it have ended.
  private finished = Promise.resolve();
  private looking = false;
  private closing = false;
  private readonly queries = new Set<EngineProcess>();
  private readonly listeners = new Set<Listener>();

  constructor(private readonly engine: Engine) {}

  get apps(): readonly App[] {
    return this.state.apps.map((app) => app.id);
  }

  // Calls the listener with the current state, and then with each event. Returns a function that removes it.
  listen(listener: Listener): () => void {
    listener({ state: this.state, runs: this.runs });
    this.listeners.add(listener);
    return () => this.listeners.delete(listener);
  }

  // Starts queries of the installed apps, and then of the available versions. False if they are already under way.
  refresh(): boolean {
    if (this.looking) return false;
    this.looking = true;
    void this.look().finally(() => { this.looking = false; });
    return true;
  }

  // False if a run is under way.
  start(action: RunAction, apps: readonly App[]): boolean {
    if (this.run || this.closing) return false;
    this.runs += 1;
    this.run = this.engine.run(action, apps);
    this.finished = this.finish(this.run);
    return true;
  }

  // False if there is no run to cancel.
  cancel(app?: App): boolean {
    this.run?.cancel(app);
    return this.run !== undefined;
  }

  // False if the logs are being exported already.
  exportLogs(): boolean {
    if (this.closing || this.state.underWay.includes('export-logs')) return false;
    void this.query(() => this.engine.exportLogs());
    return true;
  }

  // Ends the queries, cancels the run, and waits for their ends.
  async close(): Promise<void> {
    this.closing = true;
    for (const query of this.queries) query.terminate();
    this.run?.terminate();
    await Promise.all([this.finished, ...[...this.queries].map((query) => query.ended)]);
  }

  private async finish(run: Run): Promise<void> {
    await this.follow(run);
    this.run = undefined;
    await this.greet();
  }

  private async look(): Promise<void> {
    await this.greet();
    const { installer } = this.state;
    if (installer?.mode === 'online' && installer.capabilities.includes('check-updates')) await this.query(() => this.engine.checkUpdates());
  }

  private async greet(): Promise<void> {
    await this.query(() => this.engine.hello());
    await this.query(() => this.engine.diskFree());
  }

  private async query(begin: () => EngineProcess): Promise<void> {
    if (this.closing) return;
    const command = begin();
    this.queries.add(command);
    await this.follow(command);
    this.queries.delete(command);
  }

  private async follow(command: EngineProcess): Promise<void> {
    for await (const event of command) this.publish(event);
  }

  private publish(event: ShellEvent): void {
    this.state = next(this.state, event);
    for (const listener of this.listeners) listener({ event });
  }
}
