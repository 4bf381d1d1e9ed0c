#!/usr/bin/env bash
# shell.sh BUILD_FOLDER FOLDER PAGE_FOLDER [online|offline] [OPTION...]: makes a machine with an older copy of one app and an
# App Store copy of another, and an installer of version 2.0, and runs the reference shell's server with the options until Ctrl-C.
# The installer is slow, so that there is time to press Cancel.
set -euo pipefail

build=$1
part=$2
page=$3
mode=${4:-online}
shift $(($# < 4 ? $# : 4))
here=$(cd "$(dirname "$0")" && pwd)
bin=$build/lab/bin
root=$part/machine
team=QX7M4R2V9D
# shellcheck source=lab/demo/common.sh
. "$here/common.sh"
# shellcheck source=lab/demo/cdn.sh
. "$here/cdn.sh"

case "$mode" in online | offline) ;; *) echo "shell: the mode must be online or offline, not '$mode'" >&2; exit 2 ;; esac

make_installer() {
  "$bin/lab-fixture" offline-installer --engine "$build/engines/macos/engine-cli" --programs "$bin" \
    --authority "$part/authority" --team-id "$team" --machine "$root" --output "$part/$1" "${@:2}" >/dev/null
}

install_older_copies() {
  make_installer older --version 1.0 --apps brenna
  "$(engine_of "$part/older")" --silent --apps brenna </dev/null >/dev/null
  "$bin/lab-fixture" app --app galdivane --version 1.0 --variant app-store --output "$root/Applications" >/dev/null
}

# Each transfer takes about 10 seconds.
make_online() {
  publish_all 2.0 --payload 30000000 >/dev/null
  start_cdn 3000000
  trap 'stop_cdn || true' EXIT
  make_online_installer 2.0
}

# Each image takes 5 seconds to attach, and the package of Rulo is damaged.
make_offline() {
  make_installer installer --version 2.0 --variant rulo=wrong-digest
  local programs=$part/installer/Kelo-Desk-Installer.app/Contents/Resources/programs
  mv "$programs/hdiutil" "$programs/hdiutil-itself"
  cat >"$programs/hdiutil" <<SCRIPT
#!/bin/sh
[ "\$1" = attach ] && sleep 5
exec "$programs/hdiutil-itself" "\$@"
SCRIPT
  chmod +x "$programs/hdiutil"
}

title "Making a machine and an installer ($mode) under $part"
rm -rf "${part:?}"
mkdir -p "$part"
"$bin/lab-sign" make-authority "$part/authority" --team "$team" >/dev/null
install_older_copies
"make_$mode"

title "The shell"
tell "the machine  $root  (Applications, Library)"
tell "the log      $root/Library/Logs/Kelo-Desk-Installer/webinstall.log"
[ "$mode" = offline ] || tell "to cut the network: $cdn stop --folder $part/cdn"
tell "Ctrl-C ends it. An app that is being installed is finished first."
# Ctrl-C in the terminal also signals the server, which ends after its run.
HOME=$root node "$page/server/main.js" --engine "$(engine_of "$part/installer")" "$@" &
server=$!
trap : INT
trap 'kill "$server"' TERM HUP
while kill -0 "$server" 2>/dev/null; do wait "$server" || true; done
