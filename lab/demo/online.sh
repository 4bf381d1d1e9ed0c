# The online road: signed images from a CDN on this machine, over TLS under its real names. Sourced by demo.sh.
part=$demo/online
root=$part/machine
tree=$part/tree
lab=$(cd "$here/.." && pwd)
installer=$part/installer/Kelo-Desk-Installer.app
resources=$installer/Contents/Resources
team=QX7M4R2V9D
sign="$bin/lab-sign sign --authority $part/signers"

publish() {
  "$bin/lab-fixture" image --app brenna --version "$1" --sign-bundle "$sign" --sign-image "$sign" \
    --output "$part/brenna-$1.dmg"
  "$bin/lab-publish" publish --tree "$tree" --app brenna --version "$1" --arch x64 --image "$part/brenna-$1.dmg"
}

title "Signing version 1.0 with a test authority, and publishing it"
"$bin/lab-sign" make-authority "$part/signers" --team "$team"
publish 1.0
printf '<html>Kelo Desk</html>\n' >"$tree/index.html"
"$bin/lab-publish" verify --tree "$tree"

title "Serving it as cdn.kelo.example, over TLS, with a certificate authority of its own"
trap '"$lab/cdn/lab-cdn" stop --folder "$part/cdn"' EXIT
"$lab/cdn/lab-cdn" start --folder "$part/cdn" --tree "$tree" --names cdn.kelo.example,www.kelo.example \
  | tee "$part/cdn.json"

title "An installer without packages, set up for this machine"
"$bin/lab-fixture" offline-installer --engine "$build/engines/macos/engine-cli" --programs "$bin" --machine "$root" \
  --output "$part/installer" --apps brenna --team-id "$team"
rm -rf "$resources/packages"
/usr/bin/python3 - "$resources/linux_host.json" "$part/cdn.json" "$part/signers/root.pem" <<'PYTHON'
import json, sys
settings, cdn, authority = sys.argv[1:]
values = {**json.load(open(settings)), **json.load(open(cdn)), "testAuthority": authority}
json.dump(values, open(settings, "w"), indent=2)
PYTHON

title "Installing from the CDN"
play "$part/installer" run --action install --apps brenna
expect 0
show_applications "$root"

title "Version 2.0 is published; what does the engine find?"
publish 2.0
play "$part/installer" check-updates
expect 0

title "Updating"
play "$part/installer" run --action update --apps brenna
expect 0
show_applications "$root"

title "Other bytes under the same name: refused, and the installed copy stays"
folder=$tree/desksuite/apps/default/brenna/mac/x64/dmg/latest
sed -i 's/"checksum": "[0-9a-f]*"/"checksum": "'"$(printf '0%.0s' $(seq 64))"'"/; s/2\.0"/3.0"/' "$folder/meta.json"
play "$part/installer" run --action update --apps brenna

show_applications "$root"

title "Where everything lies"
tell "the tree     $tree"
tell "the machine  $root"
tell "the CDN log  $part/cdn/access.log"
tell "the log      $root/Library/Logs/Kelo-Desk-Installer/webinstall.log"
