# Functions for the parts of the demo. Sourced.
# shellcheck shell=bash
# demo.sh sets the variables that aren't set here.
# shellcheck disable=SC2154

title() { printf '\n\033[1;36m== %s\033[0m\n' "$*"; }
tell() { printf '\033[2m%s\033[0m\n' "$*"; }

# The executable inside an installer's bundle.
engine_of() { printf '%s/Kelo-Desk-Installer.app/Contents/MacOS/engine-cli' "$1"; }

# play INSTALLER ARGUMENT...: runs the engine. Shows the command, the apps, the events if $events is set, and the exit status,
# and stores the status in $played.
play() {
  local engine
  engine=$(engine_of "$1")
  shift
  printf '\n\033[1m$ engine-cli %s\033[0m\n' "$*"
  set +e
  "$engine" "$@" </dev/null | "$bin/lab-events" ${events:+--events}
  played=${PIPESTATUS[0]}
  set -e
  printf '\033[1mexit status %s\033[0m\n' "$played"
}

# expect STATUS: ends the demo unless the last command had this exit status.
expect() {
  [ "$played" = "$1" ] && return
  printf '\033[1;31mdemo: expected exit status %s, got %s\033[0m\n' "$1" "$played" >&2
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
