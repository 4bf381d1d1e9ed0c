#!/bin/sh
# build.sh [tests]: compiles the page and its server, and with `tests` also their tests, into build/shell/out, and copies the
# page's other files there.
set -eu
cd "$(dirname "$0")"
built=../build/shell
compiler=$built/client/node_modules/typescript/bin/tsc
[ -f $compiler ] || {
  echo "the TypeScript compiler isn't under build/shell/client: ./dev test and ./dev shell install it from npm" >&2
  exit 1
}
if [ "${1:-}" = tests ] && [ ! -d $built/node_modules ]; then
  echo "the browser driver isn't under build/shell: ./dev test installs it from npm" >&2
  exit 1
fi
rm -rf $built/out
node $compiler --project "./${1:-}"
mkdir -p $built/out/texts
cp page/index.html page/style.css page/icon.svg $built/out/page/
cp texts/*.json $built/out/texts/
echo '{"type": "module"}' >$built/out/package.json
