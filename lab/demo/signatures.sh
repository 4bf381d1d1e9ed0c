# Shows how the engine refuses forged packages. Sourced by demo.sh.
# shellcheck shell=bash
# demo.sh sets the variables that aren't set here.
# shellcheck disable=SC2154
part=$demo/signatures
root=$part/machine
team=QX7M4R2V9D
sign="$bin/lab-sign sign --authority $part/authority"

# refused_installer NAME BUNDLE_SIGNER CHANGE: makes an installer for Kelo Rulo. Its image contains a bundle that BUNDLE_SIGNER
# signed and CHANGE changed afterwards.
refused_installer() {
  local installer=$part/$1 volume=$part/$1-volume
  cp -a "$part/genuine" "$installer"
  "$bin/lab-fixture" app --app rulo --version 2.0 --output "$volume" >/dev/null
  $2 "$volume/Kelo Rulo.app"
  (cd "$volume/Kelo Rulo.app" && eval "$3")
  local packages=$installer/Kelo-Desk-Installer.app/Contents/Resources/packages
  rm "$packages/rulo_installer.dmg" "$packages/packages.json"
  "$bin/lab-diskimage" --volume-name "Kelo Rulo" "$volume" "$packages/rulo_installer.dmg"
}

# why PATTERN [COUNT]: shows the last lines of the log that match, without time and source location.
why() {
  tell "from the log:"
  grep -E "$1" "$root/Library/Logs/Kelo-Desk-Installer/webinstall.log" | tail -n "${2:-1}" \
    | sed -E 's/^\[[^]]*\] (\[[A-Z]+\] )?\[[^]]*\] /    \1/'
}

title "An installer whose images and bundles a test authority signed for team $team"
"$bin/lab-sign" make-authority "$part/authority" --team "$team"
"$bin/lab-fixture" offline-installer --engine "$build/engines/macos/engine-cli" --programs "$bin" --apps rulo \
  --machine "$root" --version 2.0 --authority "$part/authority" --team-id "$team" --output "$part/genuine"
play "$part/genuine" run --action install --apps rulo
expect 0
tell "its signature:"
"$part/genuine/Kelo-Desk-Installer.app/Contents/Resources/programs/codesign" -d -vv "$root/Applications/Kelo Rulo.app" 2>&1 | sed 's/^/    /'
play "$part/genuine" run --action uninstall --apps rulo
expect 0

title "An image with one changed byte"
cp -a "$part/genuine" "$part/tampered"
image=$part/tampered/Kelo-Desk-Installer.app/Contents/Resources/packages/rulo_installer.dmg
printf 'X' | dd of="$image" bs=1 seek=100000 conv=notrunc status=none
play "$part/tampered" run --action install --apps rulo
expect 2
why 'Checksum verification FAILED'

title "A bundle of another team"
refused_installer another-team "$sign --variant wrong-team" ":"
play "$part/another-team" run --action install --apps rulo
expect 2
why 'Signature requirement output|codesign exit' 2

title "A bundle with an unsealed file"
refused_installer added-file "$sign" "echo surprise >Contents/Resources/surprise.txt"
play "$part/added-file" run --action install --apps rulo
expect 2
why 'Signature requirement output|codesign exit' 2

title "A copy that is altered before the second check"
cp -a "$part/genuine" "$part/altered-copy"
programs=$part/altered-copy/Kelo-Desk-Installer.app/Contents/Resources/programs
mv "$programs/codesign" "$programs/codesign-itself"
cat >"$programs/codesign" <<SCRIPT
#!/bin/sh
for path; do :; done
case "\$path" in "$root/Applications/"*) echo altered >>"\$path/Contents/Resources/payload.bin" ;; esac
exec "$programs/codesign-itself" "\$@"
SCRIPT
chmod +x "$programs/codesign"
play "$part/altered-copy" run --action install --apps rulo
expect 2
why 'the installed copy at'
show_applications "$root"
