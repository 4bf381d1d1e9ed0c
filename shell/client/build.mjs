// build.mjs FOLDER: makes the package in FOLDER, where its npm packages are: both kinds of modules, their types, the README.
import { spawnSync } from 'node:child_process';
import { copyFileSync, existsSync, mkdirSync, rmSync, writeFileSync } from 'node:fs';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

const sources = dirname(fileURLToPath(import.meta.url));
const folder = resolve(process.argv[2]);
const compiler = join(folder, 'node_modules/typescript/bin/tsc');
if (!existsSync(compiler)) {
  console.error(`${compiler} is missing: ./dev test installs it from npm`);
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
for (const name of ['package.json', 'package-lock.json', 'README.md']) copyFileSync(join(sources, name), join(folder, name));
