#!/usr/bin/python3
"""Makes a machine and an installer for it, and removes them when standard input closes.

  machine.py offline    has version 2.0 of all apps beside the installer; the package of rulo is damaged
  machine.py online     has a CDN with brenna only, which stalls in the middle of the first two downloads

prints {"program": PATH}.
"""

import json
import pathlib
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "engines" / "macos" / "Tests" / "EndToEnd"))
import hostile_cdn
import online_machine


def serve(installer):
    print(json.dumps({"program": str(installer / "Contents" / "MacOS" / "engine-cli")}), flush=True)
    sys.stdin.read()


def offline(folder):
    subprocess.run([online_machine.PROGRAMS / "lab-fixture", "offline-installer", "--engine", online_machine.ENGINE,
                    "--programs", online_machine.PROGRAMS, "--machine", folder / "machine", "--version", "2.0",
                    "--variant", "rulo=wrong-digest", "--output", folder / "installer"], check=True, stdout=sys.stderr)
    serve(folder / "installer" / "Kelo-Desk-Installer.app")


def online(folder):
    workshop = online_machine.Workshop(folder)
    (folder / "image").write_bytes(workshop.image)
    with hostile_cdn.HostileCDN(folder / "cdn", online_machine.NAMES) as cdn:
        stage = online_machine.Stage(workshop, folder, cdn)
        half = len(workshop.image) // 2
        stalled = stage.image(stallAt=half)
        stage.package(stalled, stalled, stage.image())
        serve(stage.machine.installer)


if __name__ == "__main__":
    with tempfile.TemporaryDirectory(prefix="kelo-machine-") as place:
        {"offline": offline, "online": online}[sys.argv[1]](pathlib.Path(place))
