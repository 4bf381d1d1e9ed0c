// build.mjs [FOLDER]: makes the package in FOLDER, which has the installed npm packages: CommonJS and ES modules, their types
// and the README. FOLDER defaults to the folder of this script, for `npm pack`.
import { spawnSync } from 'node:child_process';
import { copyFileSync, existsSync, mkdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

const sources = dirname(fileURLToPath(import.meta.url));
const folder = resolve(process.argv[2] ?? sources);
const compiler = join(folder, 'node_modules/typescript/bin/tsc');
if (!existsSync(compiler)) {
  console.error(`${compiler} is missing: ./dev test installs it under build/shell/client, and npm ci --ignore-scripts in ${sources}`);
  process.exit(1);
}

rmSync(join(folder, 'dist'), { recursive: true, force: true });
for (const [kind, module, type] of [['esm', 'ES2022', 'module'], ['cjs', 'CommonJS', 'commonjs']]) {
  const made = join(folder, 'dist', kind);
  mkdirSync(made, { recursive: true });
  const { status } = spawnSync(process.execPath, [compiler, '-p', sources, '--outDir', made, '--module', module,
    '--typeRoots', join(folder, 'node_modules/@types')], { stdio: 'inherit' });
  if (status !== 0) process.exit(1);
  writeFileSync(join(made, 'package.json'), `${JSON.stringify({ type })}\n`);
}
if (folder !== sources) {
  const { scripts, ...description } = JSON.parse(readFileSync(join(sources, 'package.json'), 'utf8'));
  writeFileSync(join(folder, 'package.json'), `${JSON.stringify(description, null, 2)}\n`);
  copyFileSync(join(sources, 'README.md'), join(folder, 'README.md'));
}
