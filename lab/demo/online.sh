# Online mode: installs apps from nginx on loopback, over TLS, under the CDN's names. Sourced by demo.sh.
# shellcheck shell=bash
# demo.sh sets the variables that aren't set here.
# shellcheck disable=SC2154
part=$demo/online
root=$part/machine
team=QX7M4R2V9D
# shellcheck source=lab/demo/cdn.sh
. "$here/cdn.sh"
trap 'stop_cdn 2>/dev/null || true' EXIT

title "Publishing version 1.0 of every app, and verifying the tree"
"$bin/lab-sign" make-authority "$part/authority" --team "$team"
publish_all 1.0
tell "the tree: $part/tree"

title "Starting nginx on loopback for $names"
start_cdn 0
cat "$part/cdn.json"
make_online_installer 1.0

title "Installing from the CDN"
play "$part/installer" run --action install
expect 0
show_applications "$root"

title "Publishing version 2.0, and checking for updates"
publish_all 2.0
play "$part/installer" check-updates
expect 0

title "Updating"
play "$part/installer" run --action update
expect 0
show_applications "$root"

title "Removing the tree: the installer reports that it is retired"
rm -r "$part/tree/desksuite"
play "$part/installer" run --action update --apps rulo
expect 2
play "$part/installer" check-updates
expect 0

stop_cdn
trap - EXIT
tell "requests served: $part/cdn/access.log"
