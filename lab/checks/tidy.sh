#!/usr/bin/env bash
# tidy.sh BUILD_FOLDER JOBS: clang-tidy over the sources that changed, with the headers that they include.
# What counts as a change: everything since TIDY_BASE; by default since the branch left origin/main, and on
# main itself the last commits. TIDY_BASE=all takes every source.
set -euo pipefail

build=$1
jobs=$2
recent=12

base() {
  local fork
  [ -n "${TIDY_BASE:-}" ] && { echo "$TIDY_BASE"; return; }
  fork=$(git merge-base HEAD origin/main 2>/dev/null || true)
  if [ -n "$fork" ] && [ "$fork" != "$(git rev-parse HEAD)" ]; then echo "$fork"; return; fi
  git rev-list -n "$recent" HEAD | tail -n 1
}

changed() {
  if [ "${TIDY_BASE:-}" = all ]; then git ls-files '*.cpp' '*.mm' '*.h'; return; fi
  git diff --name-only --diff-filter=d "$(base)" -- '*.cpp' '*.mm' '*.h'
}

# The changed sources; for a changed header the source of its name.
sources() {
  changed | sed 's/^\(.*\)\.h$/\1.cpp\n\1.mm/' | sort -u | while read -r source; do
    [ -f "$source" ] && grep -q "\"file\": \"$PWD/$source\"" "$build/compile_commands.json" && echo "$source"
  done || true
}

mapfile -t list < <(sources)
echo "${#list[@]} sources"
[ ${#list[@]} = 0 ] || printf '%s\n' "${list[@]}" | xargs -P "$jobs" -n 2 clang-tidy-19 --quiet -p "$build"
