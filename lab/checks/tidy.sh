#!/usr/bin/env bash
# tidy.sh BUILD_FOLDER JOBS: clang-tidy over every source of the compilation database.
# A source that was clean is skipped as long as it, every header of ours and the rules stay the same, so that
# only what a change can have touched is linted again.
set -euo pipefail

build=$1
jobs=$2
cache=${XDG_CACHE_HOME:-$HOME/.cache}/kelo-desk-installer/tidy
mkdir -p "$cache"

common=$( (cat .clang-tidy; clang-tidy-19 --version; git ls-files '*.h' | LC_ALL=C sort | xargs sha256sum) | sha256sum)
export common cache build

lint() {
  local source=$1 key
  key=$( (echo "$common"; echo "$source"; cat "$source") | sha256sum | cut -d' ' -f1)
  [ -e "$cache/$key" ] && return 0
  echo "  $source"
  clang-tidy-19 --quiet -p "$build" "$source" 2>"$build/tidy.$$.err" || { cat "$build/tidy.$$.err" >&2; return 1; }
  touch "$cache/$key"
}
export -f lint

git ls-files '*.cpp' | grep -v /Darwin/ | while read -r source; do
  grep -q "\"file\": \"$PWD/$source\"" "$build/compile_commands.json" && echo "$source"
done | xargs -P "$jobs" -I{} bash -c 'lint "$1"' _ {}
