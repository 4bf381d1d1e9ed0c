#!/usr/bin/python3
"""Downloads over TLS on loopback: the host's URL session against `curl -o`, on the same file in the same run.

  throughput.py BUILD_FOLDER [--small MB] [--large MB] [--rounds N]

Prints the best time of each over the rounds, which alternate, and the session's peak memory for a small and a
large file. Needs nginx and curl.
"""

import argparse
import json
import os
import subprocess
import tempfile
import time
from pathlib import Path

CDN = Path(__file__).resolve().parents[3] / "lab" / "cdn" / "lab-cdn"
HOST = "cdn.kelo.example"


def make_file(path, megabytes):
    block = os.urandom(1 << 20)
    with path.open("wb") as file:
        for _ in range(megabytes):
            file.write(block)


def curl(setting, url, target):
    start = time.monotonic()
    subprocess.run(["curl", "--silent", "--fail", "--cacert", setting["extraCertificateAuthority"], "--connect-to",
                    f"{HOST}::{setting['hostAddresses'][HOST]}", "--output", target, url], check=True)
    return time.monotonic() - start


def session(program, setting, url, root):
    start = time.monotonic()
    done = subprocess.run([program, root, setting["extraCertificateAuthority"],
                           f"{HOST}={setting['hostAddresses'][HOST]}", url],
                          check=True, capture_output=True, text=True)
    return time.monotonic() - start, int(done.stdout.split()[2])


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=Path)
    parser.add_argument("--small", type=int, default=20)
    parser.add_argument("--large", type=int, default=2048)
    parser.add_argument("--rounds", type=int, default=5)
    arguments = parser.parse_args()
    program = arguments.build / "engines" / "macos" / "Benchmarks" / "url-session-fetch"
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        (folder / "tree").mkdir()
        started = subprocess.run([CDN, "start", "--folder", folder / "cdn", "--tree", folder / "tree", "--names", HOST],
                                 check=True, capture_output=True, text=True)
        setting = json.loads(started.stdout)
        try:
            for megabytes in (arguments.small, arguments.large):
                make_file(folder / "tree" / "image.dmg", megabytes)
                url = f"https://{HOST}/image.dmg"
                times, peaks = {"curl": [], "session": []}, []
                for _ in range(arguments.rounds):
                    times["curl"].append(curl(setting, url, folder / "curl.dmg"))
                    taken, peak = session(program, setting, url, folder / "root")
                    times["session"].append(taken)
                    peaks.append(peak)
                best = {name: min(values) for name, values in times.items()}
                print(f"{megabytes} MB: curl {megabytes / best['curl']:.0f} MB/s, session "
                      f"{megabytes / best['session']:.0f} MB/s, ratio {best['curl'] / best['session']:.2f}, "
                      f"peak memory {max(peaks) / 1024:.1f} MB")
        finally:
            subprocess.run([CDN, "stop", "--folder", folder / "cdn"], check=True)


if __name__ == "__main__":
    main()
