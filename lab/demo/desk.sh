#!/usr/bin/env bash
# desk.sh BUILD_FOLDER DESK_FOLDER [COMMAND...]: makes a machine for trying the administrators' recipes, and runs a shell or
# COMMAND on it. HOME is the machine's root. The engine, kelo and DESK_FOLDER/bin are in the PATH.
set -euo pipefail

build=$1
desk=$2
shift 2
project=$(cd "$(dirname "$0")/../.." && pwd)
programs=$build/lab/bin
home=$desk/anna

rm -rf "${desk:?}"
mkdir -p "$desk/bin"
"$programs/lab-sign" make-authority "$desk/authority" --team QX7M4R2V9D >/dev/null
for version in 1.0 2.0; do
  "$programs/lab-fixture" offline-installer --engine "$build/engines/macos/engine-cli" --programs "$programs" \
    --authority "$desk/authority" --team-id QX7M4R2V9D --variant rulo=wrong-digest \
    --machine "$home" --version "$version" --output "$desk/$version" >/dev/null
done
mv "$desk/1.0/Kelo-Desk-Installer.app" "$desk/"

cat >"$desk/bin/publish-2.0" <<TEXT
#!/bin/sh
# Replaces the packages by newer ones, as the publisher does between two sweeps.
packages='$desk'/Kelo-Desk-Installer.app/Contents/Resources/packages
rm -r "\$packages" && cp -R '$desk'/2.0/Kelo-Desk-Installer.app/Contents/Resources/packages "\$packages"
TEXT
chmod +x "$desk/bin/publish-2.0"
ln -s "$(realpath "$programs/lab-events")" "$desk/bin/lab-events"

export HOME=$home
export PATH=$desk/bin:$project/packaging/command:$desk/Kelo-Desk-Installer.app/Contents/MacOS:$PATH
cd "$HOME"
[ $# = 0 ] || exec "$@"

cat >"$desk/bashrc" <<TEXT
. '$project/packaging/completion/engine-cli.bash'
PS1='anna\\$ '
TEXT
cat <<TEXT
You are anna. Your machine is $home
The packages are version 1.0; the one of Rulo is damaged. publish-2.0 replaces them by version 2.0.
$desk/bin is in the PATH and free for your own scripts. So are kelo, kelo-summary, kelo-sweep, engine-cli
and lab-events, which shows the events of engine-cli on a terminal.
The manual page: man $project/engines/macos/Sources/engine-cli/engine-cli.1
Recipes: protocol/administrators.md. Leave with exit; the next ./dev desk makes a new machine.
TEXT
exec bash --rcfile "$desk/bashrc"
