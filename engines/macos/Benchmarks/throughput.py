#!/usr/bin/python3
"""Compares the host's URL session with `curl -o`, downloading the same file over TLS on loopback.

  throughput.py BUILD_FOLDER [--sizes MB,MB] [--rounds N]

The two take turns. Prints the medians over the rounds: throughput and its ratio, processor time and its ratio (which
depends little on other load), and the session's peak memory. Needs nginx, curl and a build of the target url-session-fetch.
"""

import argparse
import json
import os
import resource
import statistics
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


class Run:
    """The resources that one child process used."""

    def __init__(self, *words):
        before, start = resource.getrusage(resource.RUSAGE_CHILDREN), time.monotonic()
        self.output = subprocess.run(words, check=True, capture_output=True, text=True).stdout
        self.seconds = time.monotonic() - start
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        self.processor = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def curl(setting, url, target):
    return Run("curl", "--silent", "--fail", "--cacert", setting["extraCertificateAuthority"], "--connect-to",
               f"{HOST}::{setting['hostAddresses'][HOST]}", "--output", target, url)


def session(program, setting, url, root):
    return Run(program, root, setting["extraCertificateAuthority"], f"{HOST}={setting['hostAddresses'][HOST]}", url)


def compare(program, setting, folder, megabytes, rounds):
    make_file(folder / "tree" / "image.dmg", megabytes)
    url = f"https://{HOST}/image.dmg"
    runs = {"curl": [], "session": []}
    for _ in range(rounds):
        runs["curl"].append(curl(setting, url, folder / "curl.dmg"))
        runs["session"].append(session(program, setting, url, folder / "root"))
    seconds = {name: statistics.median(run.seconds for run in some) for name, some in runs.items()}
    processor = {name: statistics.median(run.processor for run in some) for name, some in runs.items()}
    peak = max(int(run.output.split()[2]) for run in runs["session"])
    print(f"{megabytes} MB: curl {megabytes / seconds['curl']:.0f} MB/s, session {megabytes / seconds['session']:.0f} MB/s, "
          f"ratio {seconds['curl'] / seconds['session']:.2f}; processor {processor['curl']:.2f} s and "
          f"{processor['session']:.2f} s, ratio {processor['curl'] / processor['session']:.2f}; "
          f"peak memory {peak / 1024:.1f} MB", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=Path)
    parser.add_argument("--sizes", default="20,200,2048")
    parser.add_argument("--rounds", type=int, default=9)
    arguments = parser.parse_args()
    program = arguments.build / "engines" / "macos" / "Benchmarks" / "url-session-fetch"
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        (folder / "tree").mkdir()
        started = subprocess.run([CDN, "start", "--folder", folder / "cdn", "--tree", folder / "tree", "--names", HOST],
                                 check=True, capture_output=True, text=True)
        setting = json.loads(started.stdout)
        try:
            for megabytes in arguments.sizes.split(","):
                compare(program, setting, folder, int(megabytes), arguments.rounds)
        finally:
            subprocess.run([CDN, "stop", "--folder", folder / "cdn"], check=True)


if __name__ == "__main__":
    main()
