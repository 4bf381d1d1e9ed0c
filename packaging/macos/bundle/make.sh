#!/usr/bin/env bash
# make.sh LAB ARM64 X86_64 OUTPUT: joins two slices of the engine, and makes an online installer of this deployment in OUTPUT
# with lab-publish from the folder LAB, signed ad hoc. The same slices give the same bytes.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
lab=$1 arm64=$2 x86_64=$3 output=$4

joined=$(mktemp)
trap 'rm -f "$joined"' EXIT
llvm-lipo-19 -create "$arm64" "$x86_64" -output "$joined"
"$lab/lab-publish" installer --engine "$joined" --configuration "$here/installer_config.json" --output "$output" >/dev/null
