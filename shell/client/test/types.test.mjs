// The generated types, and the imports of the modules.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import test from 'node:test';
import { packageFolder, project } from './support.mjs';

const sources = join(project, 'shell/client');

test('types.generated.ts is current', () => {
  const made = execFileSync(process.execPath, [join(sources, 'generate-types.mjs'), join(project, 'protocol/schema')], { encoding: 'utf8' });
  assert.equal(readFileSync(join(sources, 'src/types.generated.ts'), 'utf8'), made, 'run ./dev generate');
});

test('the modules of the state import nothing of Node', () => {
  const seen = new Set();
  const visit = (name) => {
    if (seen.has(name)) return;
    seen.add(name);
    const text = readFileSync(join(packageFolder, 'dist/esm', name), 'utf8');
    assert.doesNotMatch(text, /\b(process|Buffer|require|global)\b/, name);
    for (const [, imported] of text.matchAll(/^(?:import|export)\b[^;]*?from '([^']+)'/gm)) {
      assert.match(imported, /^\.\/[\w.]+\.js$/, name);
      visit(imported.slice(2));
    }
  };
  visit('state.js');
  assert.deepEqual([...seen].sort(), ['events.js', 'lines.js', 'run.js', 'state.js', 'types.generated.js']);
});
