# A CDN on loopback and an installer that uses it, under $part, for the machine $root and the team $team. Sourced.
# shellcheck shell=bash
# The script that sources it sets the variables that aren't set here.
# shellcheck disable=SC2154
cdn=$here/../cdn/lab-cdn
names=cdn.kelo.example,www.kelo.example

stop_cdn() { "$cdn" stop --folder "$part/cdn" >/dev/null; }

# Prints app, architecture and image name of each package on the CDN.
places() {
  python3 -c 'import json, sys
for app in json.load(open(sys.argv[1]))["apps"]:
    for architecture in ("arm64", "x64") if app["cdnArch"] == "perArch" else ("universal",):
        print(app["id"], architecture, app["tempFileName"])' "$here/../../protocol/catalog.json"
}

# publish_all VERSION [OPTION...]: publishes signed images of all apps, and verifies the tree. Passes the options to lab-fixture.
publish_all() {
  local version=$1 app place file
  shift
  "$bin/lab-fixture" offline-installer --engine "$build/engines/macos/engine-cli" --programs "$bin" \
    --authority "$part/authority" --team-id "$team" --machine "$root" --version "$version" --output "$part/images-$version" "$@" >/dev/null
  mkdir -p "$part/tree"
  while read -r app place file; do
    printf '{"product":"%s","releases":[{"version":"%s","notes":["What is new in %s"]}]}' "$app" "$version" "$version" >"$part/notes.json"
    "$bin/lab-publish" publish --tree "$part/tree" --app "$app" --version "$version" --arch "$place" \
      --image "$part/images-$version/Kelo-Desk-Installer.app/Contents/Resources/packages/$file" \
      --notes "$part/notes.json" </dev/null
  done < <(places)
  "$bin/lab-publish" verify --tree "$part/tree"
}

# start_cdn RATE: starts the CDN with RATE bytes per second for each transfer (0: no limit). Its settings are in $part/cdn.json.
start_cdn() {
  "$cdn" start --folder "$part/cdn" --tree "$part/tree" --names "$names" --rate "$1" >"$part/cdn.json"
}

# change_json FILE PYTHON: runs PYTHON on the file's object `o`; `settings` is the object that lab-cdn printed.
change_json() {
  /usr/bin/python3 -c "import json,sys
o=json.load(open(sys.argv[1])); settings=json.load(open(sys.argv[2]))
$2
json.dump(o,open(sys.argv[1],'w'),indent=2)" "$1" "$part/cdn.json"
}

# make_online_installer VERSION: makes an online installer from publish_all's bundle: removes its packages, and configures the CDN.
make_online_installer() {
  local resources=$part/installer/Kelo-Desk-Installer.app/Contents/Resources
  mkdir -p "$part/installer"
  cp -a "$part/images-$1/Kelo-Desk-Installer.app" "$part/installer/"
  rm -r "$resources/packages"
  change_json "$resources/linux_host.json" "o.update(settings)"
  change_json "$resources/installer_config.json" "
o['cdn']={'dataCenter':'us','domains':{'us':'https://cdn.kelo.example'},'releaseNotesEnabled':True}
o['trustedDownloadDomains']=['kelo.example']
o['downloadPageUrl']='https://www.kelo.example/download/'"
}
