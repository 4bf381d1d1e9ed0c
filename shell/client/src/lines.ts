// Makes events from the bytes of standard output. Imports nothing of Node: a browser can use it.
import type { LineEvent, UnknownEvent } from './events.js';
import { shapeOf, shapes, type EngineEvent } from './types.generated.js';

const knownVersion = 1;

/** A longer line is dropped, so that a stream without line feeds doesn't fill the memory. */
export const longestLine = 16 * 1024 * 1024;

function fitsOne(value: unknown, word: string): boolean {
  if (word.endsWith('[]')) return Array.isArray(value) && value.every((element) => fitsOne(element, word.slice(0, -2)));
  if (word === 'null') return value === null;
  const shape = shapes[word];
  return shape ? isObject(value) && fitsShape(value, shape) : typeof value === word;
}

function fitsShape(value: Readonly<Record<string, unknown>>, shape: Readonly<Record<string, string>>): boolean {
  return Object.entries(shape).every(([key, words]) => words.split('|').some((word) => fitsOne(value[key], word)));
}

function isObject(value: unknown): value is Record<string, unknown> {
  return typeof value === 'object' && value !== null && !Array.isArray(value);
}

function isEngineEvent(value: Record<string, unknown>): boolean {
  if (value.v !== knownVersion || typeof value.type !== 'string' || !Object.hasOwn(shapeOf, value.type)) return false;
  return fitsOne(value, shapeOf[value.type]!);
}

/** Takes a JSON object as an event. Unknown keys and words stay in it. */
export function eventOf(value: Record<string, unknown>): EngineEvent | UnknownEvent {
  return isEngineEvent(value) ? (value as unknown as EngineEvent) : { type: 'shell:unknown', event: value };
}

/** Takes one line, without its line feed, as an event. */
export function parseLine(text: string): EngineEvent | UnknownEvent | LineEvent {
  try {
    const value: unknown = JSON.parse(text);
    if (isObject(value)) return eventOf(value);
  } catch {
    // Not JSON.
  }
  return { type: 'shell:line', text };
}

/** Splits a stream of bytes into lines. A character may be split between two chunks. */
export class LineReader {
  private readonly decoder = new TextDecoder();
  private pending = '';
  private skipping = false;

  /** The lines that this chunk completes. */
  read(chunk: Uint8Array): string[] {
    const parts = this.decoder.decode(chunk, { stream: true }).split('\n');
    parts[0] = this.pending + parts[0];
    this.pending = parts.pop()!;
    const lines = this.skipping ? parts.slice(1) : parts;
    if (parts.length > 0) this.skipping = false;
    if (this.pending.length > longestLine) this.skipping = true;
    if (this.skipping) this.pending = '';
    return lines;
  }

  /** The text after the last line feed, if there is any. */
  end(): string[] {
    const rest = this.pending + this.decoder.decode();
    return this.skipping || rest === '' ? [] : [rest];
  }
}
