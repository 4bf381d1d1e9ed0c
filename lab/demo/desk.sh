#!/usr/bin/env bash
# desk.sh BUILD_FOLDER DESK_FOLDER [COMMAND...]: a fresh machine to try the administrators' recipes on, and a shell (or
# one command) of its user anna. Her home is the machine's root; the engine, kelo and DESK_FOLDER/bin are in her PATH.
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
# What the makers do between two sweeps: newer packages take the place of the older ones.
packages='$desk'/Kelo-Desk-Installer.app/Contents/Resources/packages
rm -r "\$packages" && cp -R '$desk'/2.0/Kelo-Desk-Installer.app/Contents/Resources/packages "\$packages"
TEXT
chmod +x "$desk/bin/publish-2.0"

export HOME=$home
export PATH=$desk/bin:$project/packaging/command:$desk/Kelo-Desk-Installer.app/Contents/MacOS:$PATH
cd "$HOME"
[ $# = 0 ] || exec "$@"

cat >"$desk/bashrc" <<TEXT
. '$project/packaging/completion/engine-cli.bash'
PS1='anna\\$ '
TEXT
cat <<TEXT
You are anna, at a machine of her own: $home
The installer is version 1.0, with the package of Rulo damaged. publish-2.0 puts the newer packages beside it.
Your own scripts go to $desk/bin, which is in the PATH, as are kelo, kelo-summary, kelo-sweep and engine-cli.
The manual page: man $project/engines/macos/Sources/engine-cli/engine-cli.1
Recipes: protocol/administrators.md. Leave with exit; the next desk is a new one.
TEXT
exec bash --rcfile "$desk/bashrc"
