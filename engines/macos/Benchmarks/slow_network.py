#!/usr/bin/python3
"""Measures check-updates on a slow network, with all apps and with one.

  sweep_latency.py BUILD_FOLDER [--latency SECONDS] [--rounds N]

A relay delays every byte by half of the latency in each direction. Prints the medians and their ratio: about 1 if the
requests are parallel, the number of apps if they are sequential. Needs a build of the target engine-cli.
"""

import argparse
import asyncio
import json
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "Tests" / "EndToEnd"))
import hostile_cdn

HOST = "cdn.kelo.example"
CATALOG = json.loads((Path(__file__).resolve().parents[3] / "protocol/catalog.json").read_text(encoding="utf-8"))["apps"]
APPS = {app["id"]: "x64" if app["cdnArch"] == "perArch" else app["cdnArch"] for app in CATALOG}


class Relay:
    """A port that forwards to another one with a delay."""

    def __init__(self, target, latency):
        self._target = target
        self._one_way = latency / 2
        self._loop = asyncio.new_event_loop()
        self._server = self._loop.run_until_complete(asyncio.start_server(self._serve, "127.0.0.1", 0))
        self.port = self._server.sockets[0].getsockname()[1]
        threading.Thread(target=self._loop.run_forever, daemon=True).start()

    async def _serve(self, reader, writer):
        onward_reader, onward_writer = await asyncio.open_connection("127.0.0.1", self._target)
        await asyncio.gather(self._carry(reader, onward_writer), self._carry(onward_reader, writer))

    async def _carry(self, reader, writer):
        while True:
            try:
                piece = await reader.read(1 << 16)
            except ConnectionError:
                piece = b""
            if not piece:
                self._loop.call_later(self._one_way, writer.close)
                return
            self._loop.call_later(self._one_way, writer.write, piece)


def make_installer(folder, build, settings):
    shutil.copy(build / "engines" / "macos" / "engine-cli", folder / "engine-cli")
    (folder / "linux_host.json").write_text(json.dumps({"root": str(folder / "machine"), **settings}))
    (folder / "installer_config.json").write_text(json.dumps(
        {"apps": {}, "trustedDownloadDomains": ["kelo.example"], "cdn": {"domains": {"us": f"https://{HOST}"}}}))
    return folder / "engine-cli"


def check(engine, apps):
    start = time.monotonic()
    done = subprocess.run([engine, "check-updates", "--apps", ",".join(apps)], check=True, capture_output=True, text=True)
    taken = time.monotonic() - start
    events = [json.loads(line) for line in done.stdout.splitlines() if line.startswith("{")]
    versions = [entry["latestVersion"] for entry in events[0]["apps"]]
    assert versions == ["2.1"] * len(apps), done.stdout
    return taken


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=Path)
    parser.add_argument("--latency", type=float, default=0.3)
    parser.add_argument("--rounds", type=int, default=9)
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory() as name, hostile_cdn.HostileCDN(Path(name) / "cdn", [HOST]) as cdn:
        for app, arch in APPS.items():
            cdn.on(f"/desksuite/apps/default/{app}/mac/{arch}/dmg/latest/meta.json", {"text": '{"version": "2.1"}'})
        relay = Relay(cdn.port, arguments.latency)
        settings = {**cdn.host_settings, "hostAddresses": {HOST: f"127.0.0.1:{relay.port}"}}
        engine = make_installer(Path(name), arguments.build, settings)
        one, four = [], []
        for _ in range(arguments.rounds):
            one.append(check(engine, list(APPS)[:1]))
            four.append(check(engine, list(APPS)))
        print(f"latency {arguments.latency:.1f} s: one app {statistics.median(one):.2f} s, all apps "
              f"{statistics.median(four):.2f} s, ratio {statistics.median(four) / statistics.median(one):.2f}")


if __name__ == "__main__":
    main()
