#!/usr/bin/env bash
# tidy.sh BUILD_FOLDER JOBS: runs clang-tidy on the sources that changed since TIDY_BASE. By default, that is since the
# branch left origin/main, or on main itself since the last commits. TIDY_BASE=all takes every source.
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

# The changed sources, and the sources named as a changed header.
sources() {
  changed | sed 's/^\(.*\)\.h$/\1.cpp\n\1.mm/' | sort -u | while read -r source; do
    [ -f "$source" ] && grep -q "\"file\": \"$PWD/$source\"" "$build/compile_commands.json" && echo "$source"
  done || true
}

mapfile -t list < <(sources)
echo "${#list[@]} sources"
[ ${#list[@]} = 0 ] || printf '%s\n' "${list[@]}" | xargs -P "$jobs" -n 2 clang-tidy-19 --quiet -p "$build"
