#!/usr/bin/env bash
# demo.sh BUILD_FOLDER DEMO_FOLDER [PART|--events]...: runs the engine on real disk images and shows what it does. PART is
# offline, signatures or online; without one, all of them. --events shows each event, too.
set -euo pipefail

build=$1
demo=$2
shift 2
events=
parts=()
for word in "$@"; do
  if [ "$word" = --events ]; then events=yes; else parts+=("$word"); fi
done
[ ${#parts[@]} -gt 0 ] || parts=(offline signatures online)
here=$(cd "$(dirname "$0")" && pwd)
bin=$build/lab/bin
export build demo here bin events
# shellcheck source=lab/demo/common.sh
. "$here/common.sh"

for part in "${parts[@]}"; do
  [[ " offline signatures online " = *" $part "* ]] || { echo "demo: unknown part '$part'" >&2; exit 1; }
done
for part in "${parts[@]}"; do
  rm -rf "${demo:?}/$part"
  mkdir -p "$demo/$part"
  # shellcheck source=/dev/null
  . "$here/$part.sh"
done
tell "The same in a window: ./dev shell, or ./dev shell offline"
