// The files of the page, read once. A request's path is looked up in this map and never used as a path of a file.

import { readdirSync, readFileSync } from 'node:fs';
import { extname, join } from 'node:path';

export interface Asset {
  type: string;
  bytes: Buffer;
}

const types: Record<string, string> = {
  '.css': 'text/css; charset=utf-8',
  '.html': 'text/html; charset=utf-8',
  '.js': 'text/javascript; charset=utf-8',
  '.json': 'application/json',
  '.svg': 'image/svg+xml',
};

const folders = ['client/src', 'page', 'page/views', 'texts'];

// path -> file. `root` is the output folder of the build.
export function readAssets(root: string): Map<string, Asset> {
  const assets = new Map(folders.flatMap((folder) => assetsIn(root, folder)));
  assets.set('/', assets.get('/page/index.html')!);
  return assets;
}

function assetsIn(root: string, folder: string): [string, Asset][] {
  const names = readdirSync(join(root, folder)).filter((name) => extname(name) in types);
  return names.map((name) => [
    `/${folder}/${name}`, { type: types[extname(name)]!, bytes: readFileSync(join(root, folder, name)) },
  ]);
}
