// The one installer that all pages look at: its state, its run, and who listens.

import type { Engine, EngineProcess, Run } from '../client/src/engine.js';
import { initialState, next, type App, type RunAction, type ShellEvent, type State } from '../client/src/state.js';
import type { Message } from '../page/connection.js';

type Listener = (message: Message) => void;

export class Session {
  private state: State = initialState;
  private runs = 0;
  private run: Run | undefined;
  // Until the listeners have heard of the run's end.
  private finished = Promise.resolve();
  private looking = false;
  private closing = false;
  private readonly queries = new Set<EngineProcess>();
  private readonly listeners = new Set<Listener>();

  constructor(private readonly engine: Engine) {}

  get apps(): readonly App[] {
    return this.state.apps.map((app) => app.id);
  }

  // The listener gets what is known now, and then each event. Returns what ends that.
  listen(listener: Listener): () => void {
    listener({ state: this.state, runs: this.runs });
    this.listeners.add(listener);
    return () => this.listeners.delete(listener);
  }

  // What is installed at once; what is on offer when the network has answered. False if that is under way already.
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
    if (this.state.underWay.includes('export-logs')) return false;
    void this.follow(this.engine.exportLogs());
    return true;
  }

  // Asks a run to end, once, and waits until it has. What only asks is ended at once.
  async close(): Promise<void> {
    this.closing = true;
    for (const query of this.queries) query.kill();
    this.run?.terminate();
    await this.finished;
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
