// Made by generate-types.mjs from protocol/schema. Don't edit.

/** An app's identifier. */
export type App = 'brenna' | 'tolvi' | 'rulo' | 'galdivane' | (string & {});

/** How one app of a run ended. */
export type Status = 'installed' | 'updated' | 'skipped' | 'failed' | 'cancelled' | 'uninstalled' | 'already_absent' | (string & {});

/** Why an app of a run failed or was skipped. */
export type ErrorCode = 'NETWORK_UNAVAILABLE' | 'DOWNLOAD_FAILED' | 'FILE_SAVE_FAILED' | 'PACKAGE_NOT_FOUND' | 'UNTRUSTED_SOURCE' | 'VERIFY_FAILED' | 'SOURCE_UNAVAILABLE' | 'METADATA_INVALID' | 'GATEKEEPER_FAILED' | 'SIGNATURE_FAILED' | 'INSTALL_FAILED' | 'NOT_COMPATIBLE' | 'UNINSTALL_FAILED' | 'UNINSTALL_PERMISSION_DENIED' | 'UNINSTALL_AUTH_CANCELLED' | 'SKIPPED' | (string & {});

/** What is being done to an app. */
export type Stage = 'download' | 'verify' | 'install' | 'uninstall' | (string & {});

/** What a progress bar is about. */
export type DetailCode = 'DOWNLOADING' | 'VERIFYING' | 'INSTALLING' | 'UNINSTALLING' | (string & {});

/** Which command has ended: the action of a run, or the subcommand. */
export type Action = 'install' | 'update' | 'uninstall' | 'hello' | 'check-updates' | 'disk-free' | 'export-logs' | (string & {});

/** What this engine can do, and whether the shell leaves out its terms step. */
export type Capability = 'install' | 'update' | 'uninstall' | 'check-updates' | 'offline' | 'export-logs' | 'skip-terms' | (string & {});

/** Where packages come from. */
export type Mode = 'online' | 'offline' | (string & {});

/** Where an installed copy came from. */
export type Source = 'direct' | 'appstore' | (string & {});

/** How serious a message is. */
export type LogLevel = 'info' | 'warn' | 'error' | (string & {});

/** Why an installer should be replaced. */
export type RetirementReason = 'expired' | 'source-unavailable' | (string & {});

/** Arguments of the detail code. */
export interface DetailArgs {
  readonly downloadedBytes: number;
  readonly totalBytes: number;
}

/** This installer should be replaced. */
export interface InstallerRetired {
  readonly reason: RetirementReason;
  readonly downloadUrl: string;
  /** The last good day, as the build's configuration writes it. */
  readonly expiresOn?: string;
}

/** One release. */
export interface Release {
  readonly version: string;
  readonly notes: readonly string[];
  readonly date?: string;
}

/** What changed, newest release first. */
export interface ReleaseNotes {
  readonly releases: readonly Release[];
  readonly product?: string;
  readonly version?: string;
}

/** A row of the catalog. */
export interface CatalogApp {
  readonly id: App;
  readonly displayName: string;
  readonly descriptionCode: string;
  readonly iconName: string;
  readonly updateAvailable: boolean;
  readonly installedVersion: string | null;
  readonly latestVersion: string | null;
  readonly sizeBytes: number | null;
  readonly source: Source | null;
  readonly webUrl: string | null;
  readonly requiredBytes?: number;
  readonly installedPath?: string;
}

/** A row of the update report. */
export interface UpdateCheckEntry {
  readonly id: App;
  readonly updateAvailable: boolean;
  readonly latestVersion?: string;
  readonly sizeBytes?: number;
  readonly requiredBytes?: number;
  readonly releaseNotes?: ReleaseNotes;
}

/** An element of the results of a run. What an event of the same type writes as null is left out here. */
export interface Result {
  readonly v: 1;
  readonly type: 'app-result';
  readonly app: App;
  readonly status: Status;
  readonly errorCode?: ErrorCode;
  readonly installedPath?: string;
  readonly installedVersion?: string;
}

/** One app is finished. */
export interface AppResultEvent {
  readonly v: 1;
  readonly type: 'app-result';
  readonly app: App;
  readonly status: Status;
  readonly errorCode: ErrorCode | null;
  readonly installedPath: string | null;
  readonly installedVersion: string | null;
}

/** One line of standard input during a run. Lines of any other form are ignored. */
export interface Command {
  readonly type: 'cancel';
  /** The app to cancel, in any case. Leave it out to cancel the whole run. */
  readonly app?: string;
}

/** The free space of a volume. */
export interface DiskFreeResultEvent {
  readonly v: 1;
  readonly type: 'disk-free-result';
  readonly path: string;
  readonly freeBytes: number | null;
}

/** The command has ended. The last event of every command that began. */
export interface DoneEvent {
  readonly v: 1;
  readonly type: 'done';
  readonly action: Action;
  readonly exitCode: number;
  /** After a run, and only then; empty if nothing ran. */
  readonly results?: readonly Result[];
  readonly installerRetired?: InstallerRetired;
}

/** One line of standard output that is a JSON object. */
export type EngineEvent = HelloEvent | UpdateCheckResultEvent | StageEvent | ProgressEvent | AppResultEvent | DiskFreeResultEvent | ExportLogsResultEvent | DoneEvent | LogEvent;

/** Where the archive of the logs is. */
export interface ExportLogsResultEvent {
  readonly v: 1;
  readonly type: 'export-logs-result';
  readonly path: string | null;
  readonly errorCode: 'UNKNOWN' | null | (string & {});
}

/** What this engine is, what it can do, and what is installed. */
export interface HelloEvent {
  readonly v: 1;
  readonly type: 'hello';
  readonly engineVersion: string;
  readonly protocolVersion: 1;
  readonly platform: 'macos';
  readonly mode: Mode;
  readonly capabilities: readonly Capability[];
  readonly helpUrl: string;
  readonly feedbackUrl: string;
  readonly apps: readonly CatalogApp[];
  readonly installerRetired?: InstallerRetired;
}

/** A message for a person. */
export interface LogEvent {
  readonly v: 1;
  readonly type: 'log';
  readonly level: LogLevel;
  readonly message: string;
}

/** How far an app has come. */
export interface ProgressEvent {
  readonly v: 1;
  readonly type: 'progress';
  readonly percent: number;
  readonly indeterminate: boolean;
  readonly app?: App;
  readonly detailCode?: DetailCode;
  readonly detailArgs?: DetailArgs;
}

/** An app has entered a stage of its run. */
export interface StageEvent {
  readonly v: 1;
  readonly type: 'stage';
  readonly app: App;
  readonly stage: Stage;
  readonly index?: number;
  readonly total?: number;
}

/** What the CDN offers. */
export interface UpdateCheckResultEvent {
  readonly v: 1;
  readonly type: 'update-check-result';
  readonly apps: readonly UpdateCheckEntry[];
  readonly installerRetired?: InstallerRetired;
}

/** The record of each kind of event. */
export const shapeOf: Readonly<Record<string, string>> = {
  'hello': 'HelloEvent',
  'update-check-result': 'UpdateCheckResultEvent',
  'stage': 'StageEvent',
  'progress': 'ProgressEvent',
  'app-result': 'AppResultEvent',
  'disk-free-result': 'DiskFreeResultEvent',
  'export-logs-result': 'ExportLogsResultEvent',
  'done': 'DoneEvent',
  'log': 'LogEvent',
};

/** The types of the keys of each record. */
export const shapes: Readonly<Record<string, Readonly<Record<string, string>>>> = {
  DetailArgs: {
    downloadedBytes: 'number',
    totalBytes: 'number',
  },
  InstallerRetired: {
    reason: 'string',
    downloadUrl: 'string',
    expiresOn: 'string|undefined',
  },
  Release: {
    version: 'string',
    notes: 'string[]',
    date: 'string|undefined',
  },
  ReleaseNotes: {
    releases: 'Release[]',
    product: 'string|undefined',
    version: 'string|undefined',
  },
  CatalogApp: {
    id: 'string',
    displayName: 'string',
    descriptionCode: 'string',
    iconName: 'string',
    updateAvailable: 'boolean',
    installedVersion: 'string|null',
    latestVersion: 'string|null',
    sizeBytes: 'number|null',
    source: 'string|null',
    webUrl: 'string|null',
    requiredBytes: 'number|undefined',
    installedPath: 'string|undefined',
  },
  UpdateCheckEntry: {
    id: 'string',
    updateAvailable: 'boolean',
    latestVersion: 'string|undefined',
    sizeBytes: 'number|undefined',
    requiredBytes: 'number|undefined',
    releaseNotes: 'ReleaseNotes|undefined',
  },
  Result: {
    v: 'number',
    type: 'string',
    app: 'string',
    status: 'string',
    errorCode: 'string|undefined',
    installedPath: 'string|undefined',
    installedVersion: 'string|undefined',
  },
  AppResultEvent: {
    v: 'number',
    type: 'string',
    app: 'string',
    status: 'string',
    errorCode: 'string|null',
    installedPath: 'string|null',
    installedVersion: 'string|null',
  },
  Command: {
    type: 'string',
    app: 'string|undefined',
  },
  DiskFreeResultEvent: {
    v: 'number',
    type: 'string',
    path: 'string',
    freeBytes: 'number|null',
  },
  DoneEvent: {
    v: 'number',
    type: 'string',
    action: 'string',
    exitCode: 'number',
    results: 'Result[]|undefined',
    installerRetired: 'InstallerRetired|undefined',
  },
  ExportLogsResultEvent: {
    v: 'number',
    type: 'string',
    path: 'string|null',
    errorCode: 'string|null',
  },
  HelloEvent: {
    v: 'number',
    type: 'string',
    engineVersion: 'string',
    protocolVersion: 'number',
    platform: 'string',
    mode: 'string',
    capabilities: 'string[]',
    helpUrl: 'string',
    feedbackUrl: 'string',
    apps: 'CatalogApp[]',
    installerRetired: 'InstallerRetired|undefined',
  },
  LogEvent: {
    v: 'number',
    type: 'string',
    level: 'string',
    message: 'string',
  },
  ProgressEvent: {
    v: 'number',
    type: 'string',
    percent: 'number',
    indeterminate: 'boolean',
    app: 'string|undefined',
    detailCode: 'string|undefined',
    detailArgs: 'DetailArgs|undefined',
  },
  StageEvent: {
    v: 'number',
    type: 'string',
    app: 'string',
    stage: 'string',
    index: 'number|undefined',
    total: 'number|undefined',
  },
  UpdateCheckResultEvent: {
    v: 'number',
    type: 'string',
    apps: 'UpdateCheckEntry[]',
    installerRetired: 'InstallerRetired|undefined',
  },
};
