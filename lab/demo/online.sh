# Online mode: installs apps from nginx on loopback, over TLS, under the CDN's names. Sourced by demo.sh.
# shellcheck shell=bash
# demo.sh sets the variables that aren't set here.
# shellcheck disable=SC2154
part=$demo/online
root=$part/machine
team=QX7M4R2V9D
cdn=$here/../cdn/lab-cdn
names=cdn.kelo.example,www.kelo.example
trap '"$cdn" stop --folder "$part/cdn" >/dev/null 2>&1 || true' EXIT

# Prints app, architecture and image name of each package on the CDN.
places() {
  python3 -c 'import json, sys
for app in json.load(open(sys.argv[1]))["apps"]:
    for architecture in ("arm64", "x64") if app["cdnArch"] == "perArch" else ("universal",):
        print(app["id"], architecture, app["tempFileName"])' "$here/../../protocol/catalog.json"
}

# publish_all VERSION: publishes signed images of all apps, and verifies the tree.
publish_all() {
  local app place file
  "$bin/lab-fixture" offline-installer --engine "$build/engines/macos/engine-cli" --programs "$bin" \
    --authority "$part/authority" --team-id "$team" --machine "$root" --version "$1" --output "$part/images-$1" >/dev/null
  while read -r app place file; do
    printf '{"product":"%s","releases":[{"version":"%s","notes":["What is new in %s"]}]}' "$app" "$1" "$1" >"$part/notes.json"
    "$bin/lab-publish" publish --tree "$part/tree" --app "$app" --version "$1" --arch "$place" \
      --image "$part/images-$1/Kelo-Desk-Installer.app/Contents/Resources/packages/$file" \
      --notes "$part/notes.json" </dev/null
  done < <(places)
  "$bin/lab-publish" verify --tree "$part/tree"
}

# change_json FILE PYTHON: runs PYTHON on the file's object `o`; `settings` is what lab-cdn printed.
change_json() {
  /usr/bin/python3 -c "import json,sys
o=json.load(open(sys.argv[1])); settings=json.load(open(sys.argv[2]))
$2
json.dump(o,open(sys.argv[1],'w'),indent=2)" "$1" "$part/cdn.json"
}

title "Publishing version 1.0 of every app, and verifying the tree"
"$bin/lab-sign" make-authority "$part/authority" --team "$team"
mkdir -p "$part/tree"
publish_all 1.0
tell "the tree: $part/tree"

title "Starting nginx on loopback for $names"
"$cdn" start --folder "$part/cdn" --tree "$part/tree" --names "$names" >"$part/cdn.json"
cat "$part/cdn.json"

# The online installer is the same bundle without packages, configured for the CDN.
mkdir -p "$part/installer"
cp -a "$part/images-1.0/Kelo-Desk-Installer.app" "$part/installer/"
resources=$part/installer/Kelo-Desk-Installer.app/Contents/Resources
rm -r "$resources/packages"
change_json "$resources/linux_host.json" "o.update(settings)"
change_json "$resources/installer_config.json" "
o['cdn']={'dataCenter':'us','domains':{'us':'https://cdn.kelo.example'},'releaseNotesEnabled':True}
o['trustedDownloadDomains']=['kelo.example']
o['downloadPageUrl']='https://www.kelo.example/download/'"

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

"$cdn" stop --folder "$part/cdn" >/dev/null
trap - EXIT
tell "requests served: $part/cdn/access.log"
