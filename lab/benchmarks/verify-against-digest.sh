#!/bin/sh
# verify-against-digest.sh BIN [BYTES] [ROUNDS]: compares the verification of a large signed Mach-O file with a digest of it, and
# prints the ratio of the best times.
#   BIN    the folder with lab-sign and codesign
#   BYTES  size of the code, default 180 MB
# The file is signed ad hoc, which needs no authority. A signer adds three milliseconds for any size.
set -eu
bin=$1
size=${2:-180000000}
rounds=${3:-9}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

"$bin/lab-sign" make-macho "$folder/one" --size "$size"
cp "$folder/one" "$folder/two"
"$bin/lab-sign" sign --variant ad-hoc "$folder/one"
"$bin/lab-sign" sign --variant ad-hoc --digests sha1,sha256 "$folder/two"

# Takes the fastest of several runs of each command. The runs alternate, so that other load affects all commands.
python3 - "$bin/codesign" "$folder" "$rounds" <<'PYTHON'
import subprocess, sys, time

codesign, folder, rounds = sys.argv[1], sys.argv[2], int(sys.argv[3])
contenders = {
    "codesign --verify, SHA-256": [codesign, "--verify", "--strict", folder + "/one"],
    "openssl dgst -sha256": ["openssl", "dgst", "-sha256", folder + "/one"],
    "codesign --verify, SHA-1 and SHA-256": [codesign, "--verify", "--strict", folder + "/two"],
}
best = {}
for _ in range(rounds):
    for name, command in contenders.items():
        begin = time.perf_counter()
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
        elapsed = (time.perf_counter() - begin) * 1000
        best[name] = min(best.get(name, elapsed), elapsed)
digest = best["openssl dgst -sha256"]
for name, elapsed in best.items():
    print(f"{name:40} {elapsed:8.1f} ms   {elapsed / digest:5.2f} of openssl")
PYTHON
