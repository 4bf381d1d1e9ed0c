#!/usr/bin/env bash
# smoke.sh APP [EXECUTABLE]: tests the signed installer bundle APP on this machine, unattended and without a network. Makes an
# application with EXECUTABLE (APP's by default), an image of it, and a copy of APP with that image, all signed ad hoc. Then
# queries, installs, exports the logs and removes. Prints a line per check. Exits with 1 at the first failure, or before the
# install if Brenna is installed, because the install would replace it.
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
app=$work/Kelo-Desk-Installer.app
contents=$app/Contents
engine=$contents/MacOS/engine-cli
brenna=$work/volume/Brenna.app

pass() { echo "ok: $1"; }
fail() {
  echo "failed: $1" >&2
  if [ -e "$work/events" ]; then cat "$work/events" >&2; fi
  exit 1
}

# check WHAT STATUS PATTERN ARGUMENT...: runs the engine, which has to exit with STATUS and print a line that matches PATTERN.
check() {
  local what=$1 expected=$2 pattern=$3 status=0
  shift 3
  "$engine" "$@" >"$work/events" </dev/null || status=$?
  [ "$status" = "$expected" ] || fail "$what: status $status instead of $expected"
  grep -q -- "$pattern" "$work/events" || fail "$what: no line with $pattern"
  pass "$what"
}

sign() { codesign --force --sign - "$1"; }

is_signed() {
  codesign --verify --strict "$1" || fail "the signature of $2"
  pass "the signature of $2"
}

make_image() {
  mkdir -p "$brenna/Contents/MacOS" "$contents/Resources/packages"
  cp "$1" "$brenna/Contents/MacOS/Brenna"
  chmod 755 "$brenna/Contents/MacOS/Brenna"
  cat >"$brenna/Contents/Info.plist" <<'PLIST'
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>CFBundleExecutable</key>
	<string>Brenna</string>
	<key>CFBundleIdentifier</key>
	<string>com.kelo.brenna.mac</string>
	<key>CFBundleName</key>
	<string>Brenna</string>
	<key>CFBundlePackageType</key>
	<string>APPL</string>
	<key>CFBundleShortVersionString</key>
	<string>1.0</string>
	<key>CFBundleVersion</key>
	<string>1.0</string>
</dict>
</plist>
PLIST
  sign "$brenna"
  hdiutil create -quiet -volname "Kelo Brenna" -srcfolder "$work/volume" -format UDZO "$contents/Resources/packages/brenna_installer.dmg"
}

# Adds the image and its entry to a copy of the installer, and removes the required team, because the image is signed ad hoc.
make_installer() {
  cp -R "$1" "$app"
  make_image "${2:-$engine}"
  local image=$contents/Resources/packages/brenna_installer.dmg configuration=$contents/Resources/installer_config.json digest
  digest=$(shasum -a 256 "$image" | cut -d ' ' -f 1)
  printf '{"brenna": {"version": "1.0", "destination": "brenna_installer.dmg", "size": %d, "checksum": "%s"}}\n' \
    "$(wc -c <"$image")" "$digest" >"$contents/Resources/packages/packages.json"
  sed 's/\("expectedSigningTeamId": *\)"[^"]*"/\1""/' "$configuration" >"$work/configuration"
  cp "$work/configuration" "$configuration"
  sign "$app"
}

is_signed "$1" "the bundle as it was built"
make_installer "$@"
is_signed "$app" "the bundle with an image"

check "hello" 0 '"mode":"offline"' hello
! grep -q '"id":"brenna"[^}]*"installedPath"' "$work/events" || fail "Brenna is already installed"
check "disk-free" 0 '"freeBytes":[1-9]' disk-free
check "an install" 0 '"status":"installed"' run --action install --apps brenna
installed=$(sed -n 's/.*"installedPath":"\([^"]*\)".*/\1/p' "$work/events" | head -n 1 | sed 's|\\/|/|g')
is_signed "$installed" "the installed application"
# Not through a pipe to grep -q, which ends at its first match: with pipefail, the other program's failed write would hide it.
attributes=$(xattr -r "$installed") || fail "xattr"
case $attributes in *com.apple.quarantine*) fail "the installed application is in quarantine" ;; esac
pass "no quarantine on the installed application"
images=$(hdiutil info) || fail "hdiutil info"
case $images in *"$work"*) fail "the image is still attached" ;; esac
pass "the image is detached"
check "a second install" 0 '"status":"skipped"' run --action install --apps brenna
check "an archive of the logs" 0 '"path":"' export-logs --out "$work"
check "a removal" 0 '"status":"uninstalled"' run --action uninstall --apps brenna
[ ! -e "$installed" ] || fail "the application still exists"
check "a wrong command line" 3 'Unknown subcommand' frobnicate
pass "all"
