# Offline mode: installs apps from disk images beside the installer. Sourced by demo.sh.
# shellcheck shell=bash
# demo.sh sets the variables that aren't set here.
# shellcheck disable=SC2154
part=$demo/offline
root=$part/machine

title "Making offline installers 1.0 and 2.0 with signed disk images of all apps"
"$bin/lab-sign" make-authority "$part/authority" --team QX7M4R2V9D
for version in 1.0 2.0; do
  "$bin/lab-fixture" offline-installer --engine "$build/engines/macos/engine-cli" --programs "$bin" \
    --authority "$part/authority" --team-id QX7M4R2V9D \
    --machine "$root" --version "$version" --output "$part/installer-$version"
done
tell "the images: $part/installer-1.0/Kelo-Desk-Installer.app/Contents/Resources/packages"
(cd "$part/installer-1.0/Kelo-Desk-Installer.app/Contents/Resources/packages" && ls -lh -- *)

title "Installing version 1.0"
play "$part/installer-1.0" run --action install --offline
expect 0
show_applications "$root"

title "What the installer of version 2.0 finds"
play "$part/installer-2.0" hello
expect 0

title "Updating to version 2.0"
play "$part/installer-2.0" run --action update --offline
expect 0
show_applications "$root"

title "Installing again: every app is current, and nothing is copied"
play "$part/installer-2.0" run --action install --offline
expect 0

title "Free space on the disk"
play "$part/installer-2.0" disk-free
expect 0

title "Removing all apps"
play "$part/installer-2.0" run --action uninstall
expect 0
show_applications "$root"

title "Where to look"
tell "installers   $part/installer-1.0, $part/installer-2.0"
tell "the machine  $root  (Applications, Volumes, Library, tmp)"
tell "the log      $root/Library/Logs/Kelo-Desk-Installer/webinstall.log"
tell "try it:      $(engine_of "$part/installer-2.0") run --action install --apps brenna --offline"
