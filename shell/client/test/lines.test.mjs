// Splitting bytes into lines, and parsing lines as events.
import assert from 'node:assert/strict';
import { readdirSync } from 'node:fs';
import test from 'node:test';
import { client, events, lines, transcripts } from './support.mjs';

const { LineReader, parseLine } = client;

function read(chunks) {
  const reader = new LineReader();
  return [...chunks.flatMap((chunk) => reader.read(chunk)), ...reader.end()];
}

test('a stream that is split anywhere, even inside a character, gives the same lines', () => {
  const text = lines('retry').slice(6, 9);
  assert.ok(text.join('').includes('—'), 'the text has a character of more than one byte');
  const bytes = Buffer.from(`${text.join('\n')}\n`);
  for (let cut = 0; cut <= bytes.length; ++cut) assert.deepEqual(read([bytes.subarray(0, cut), bytes.subarray(cut)]), text);
  assert.deepEqual(read([...bytes].map((byte) => Uint8Array.of(byte))), text);
});

test('a last line without a line feed is a line', () => {
  assert.deepEqual(read([Buffer.from('one\ntw'), Buffer.from('o')]), ['one', 'two']);
  assert.deepEqual(read([Buffer.from('one\n')]), ['one']);
  assert.deepEqual(read([Buffer.from('cut inside —').subarray(0, -1)]), ['cut inside \ufffd']);
});

test('a line without an end is dropped, and the next one is read', () => {
  const chunk = Buffer.alloc(1024 * 1024, 'x');
  assert.deepEqual(read([...Array(40).fill(chunk), Buffer.from('x\nnext\n')]), ['next']);
  assert.deepEqual(read(Array(40).fill(chunk)), []);
});

test('every event of every transcript is known', () => {
  for (const file of readdirSync(transcripts)) {
    for (const event of events(file.replace('.jsonl', ''))) assert.doesNotMatch(event.type, /^shell:/, file);
  }
});

test('a line that is not a JSON object is text', () => {
  const texts = ['', 'Created log directory: /x', '{"v":1,"type":"sta', '[]', '5', 'null', '"text"'];
  for (const text of texts) assert.deepEqual(parseLine(text), { type: 'shell:line', text });
});

test('unknown keys and words stay in the event', () => {
  const stage = { v: 1, type: 'stage', app: 'norda', stage: 'polish', index: 1, total: 1, colour: { deep: [1] } };
  assert.deepEqual(parseLine(JSON.stringify(stage)), stage);
  const hello = JSON.parse(lines('hello')[0]);
  hello.apps[0].later = true;
  hello.capabilities.push('repair');
  assert.deepEqual(parseLine(JSON.stringify(hello)), hello);
});

test('an object that is not an event of this version is kept unchanged', () => {
  const stage = { v: 1, type: 'stage', app: 'brenna', stage: 'verify' };
  const [hello] = lines('hello').map((line) => JSON.parse(line));
  const others = [
    {}, { v: 1 }, { v: 1, type: 'weather', degrees: 3 }, { v: 1, type: 'toString' }, { v: 1, type: 'shell:ended' },
    { ...stage, v: 2 }, { ...stage, v: '1' }, { ...stage, app: 5 }, { ...stage, app: undefined }, { ...stage, total: '3' },
    { ...hello, apps: {} }, { ...hello, apps: [null] }, { ...hello, apps: [{ id: 'brenna' }] },
    { ...hello, installerRetired: 'yes' }, { v: 1, type: 'progress', percent: 5, indeterminate: true, detailArgs: { totalBytes: 1 } },
  ];
  for (const other of others) {
    const carried = JSON.parse(JSON.stringify(other));
    assert.deepEqual(parseLine(JSON.stringify(other)), { type: 'shell:unknown', event: carried });
  }
});
