# Functions for the parts of the demo. Sourced.
# shellcheck shell=bash
# demo.sh sets the variables that aren't set here.
# shellcheck disable=SC2154

# styled STYLE TEXT: prints a line, in the style if standard output is a terminal.
styled() { if [ -t 1 ]; then printf '\033[%sm%s\033[0m\n' "$1" "$2"; else printf '%s\n' "$2"; fi; }

title() { echo; styled '1;36' "== $*"; }
tell() { styled 2 "$*"; }

# The executable inside an installer's bundle.
engine_of() { printf '%s/Kelo-Desk-Installer.app/Contents/MacOS/engine-cli' "$1"; }

# play INSTALLER ARGUMENT...: runs the engine. Shows the command, the apps, the events if $events is set, and the exit status,
# and stores the status in $played.
play() {
  local engine
  engine=$(engine_of "$1")
  shift
  echo
  styled 1 "$ engine-cli $*"
  set +e
  "$engine" "$@" </dev/null | "$bin/lab-events" ${events:+--events}
  played=${PIPESTATUS[0]}
  set -e
  styled 1 "exit status $played"
}

# expect STATUS: ends the demo unless the last command had this exit status.
expect() {
  [ "$played" = "$1" ] && return
  echo "demo: expected exit status $1, got $played" >&2
  exit 1
}

show_applications() {
  local app
  tell "$1/Applications contains:"
  for app in "$1"/Applications/*.app; do
    [ -e "$app" ] || { tell "  nothing"; return; }
    tell "  $(basename "$app")  $(sed -n '/CFBundleShortVersionString/{n;s/.*<string>\(.*\)<\/string>.*/\1/p}' "$app/Contents/Info.plist")"
  done
}
