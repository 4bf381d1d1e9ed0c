#!/usr/bin/env bash
# make.sh LAB ARM64 X86_64 OUTPUT: makes Kelo-Desk-Installer.app in OUTPUT from two slices of the engine. Info.plist and the
# administrators' scripts, pages and completions come from the build of LAB, whose programs sign the bundle ad hoc and
# verify it. Also packs the bundle and writes the digests of every file.
#
# The same slices give the same bytes. An ad-hoc signature has no signer; the publisher signs a release.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
lab=$1 arm64=$2 x86_64=$3 output=$4
app=$output/Kelo-Desk-Installer.app

umask 022
mkdir -p "$output"
rm -rf "$app" "$output/Kelo-Desk-Installer.zip" "$output/manifest.sha256"
mkdir -p "$app/Contents/MacOS" "$app/Contents/Resources"
llvm-lipo-19 -create "$arm64" "$x86_64" -output "$app/Contents/MacOS/engine-cli"
chmod 755 "$app/Contents/MacOS/engine-cli"
cp "$lab/../../packaging/Info.plist" "$app/Contents/Info.plist"
cp "$here/installer_config.json" "$app/Contents/Resources/"
cmake --install "$lab/../.." --component administration --prefix "$app/Contents/Resources" >/dev/null

"$lab/lab-sign" sign --variant ad-hoc "$app"
"$lab/codesign" --verify --strict --verbose=2 "$app"

python3 "$here/archive.py" "$app" "$output/Kelo-Desk-Installer.zip"
cd "$output"
find Kelo-Desk-Installer.app Kelo-Desk-Installer.zip -type f -print0 | LC_ALL=C sort -z | xargs -0 sha256sum >manifest.sha256
