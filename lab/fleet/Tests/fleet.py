"""Hosts for the tests of the role: each is a local connection with its own installer and machine, or a fake engine."""

import json
import os
import shutil
import subprocess
from pathlib import Path

FLEET = Path(__file__).resolve().parents[1]
BUILD = Path(os.environ.get("KELO_BUILD", "build/dev")).resolve()
PROGRAMS = BUILD / "lab/bin"
ENGINE = BUILD / "engines/macos/engine-cli"
BUNDLE = "Kelo-Desk-Installer.app"


class Fleet:
    """Hosts by name, the last report, and runs of the playbook."""

    def __init__(self, folder):
        self.folder = folder
        shutil.copytree(FLEET, folder / "fleet", ignore=shutil.ignore_patterns("Tests"))
        (folder / "home").mkdir()
        self.hosts = {}
        self.bundles = folder / "bundles"
        self.report_file = folder / "report.json"

    def installer(self, host, *options, place=None, version="2.0"):
        place = self.folder / (place or host)
        subprocess.run([PROGRAMS / "lab-fixture", "offline-installer", "--engine", ENGINE, "--programs", PROGRAMS,
                        "--machine", place / "machine", "--version", version, "--apps", "brenna,tolvi",
                        "--output", place, *options], check=True, capture_output=True)
        self.hosts[host] = {"kelo_desk_engine": str(place / BUNDLE / "Contents/MacOS/engine-cli")}
        return place / BUNDLE / "Contents/Resources"

    def fake(self, host, silent, brenna=None, offers=None, source="direct", retired=False):
        """Adds a host with a fake engine, which records its command lines. `silent` has the log lines of an unattended run,
        `brenna` and `source` are the version and the source of its only app, `offers` maps apps to versions on the CDN."""
        place = self.folder / host
        place.mkdir()
        rows = [{"id": "brenna", "displayName": "Kelo Brenna", "installedVersion": brenna, "source": brenna and source,
                 "installedPath": brenna and "/Applications/Brenna.app", "updateAvailable": False},
                {"id": "tolvi", "displayName": "Kelo Tolvi", "installedVersion": None, "updateAvailable": False}]
        offers = {"brenna": "2.0", "tolvi": "2.0"} if offers is None else offers
        news = [{"id": app, "latestVersion": offers.get(app),
                 "updateAvailable": app == "brenna" and bool(brenna) and offers.get(app, brenna) > brenna} for app in ("brenna", "tolvi")]
        verdict = {"installerRetired": {"reason": "expired"}} if retired else {}
        said = {"hello": "a line that isn't JSON\n" + json.dumps({"type": "hello", "engineVersion": "7.8", "mode": "online",
                                                                    "apps": rows, **verdict}),
                "check-updates": json.dumps({"type": "update-check-result", "apps": news}),
                "--silent": "".join(f"[2026-01-02 03:04:05.678] {line}\n" for line in silent)}
        for command, text in said.items():
            (place / command).write_text(text + "\n")
        engine = place / "engine-cli"
        engine.write_text(f'#!/bin/sh\necho "$*" >>"{place}/started"\n[ "$1" = --silent ] && exec >&2\n'
                          f'[ -e "{place}/$1" ] && cat -- "{place}/$1"\n')
        engine.chmod(0o755)
        self.hosts[host] = {"kelo_desk_engine": str(engine)}

    def runs(self, host):
        """The --apps of each unattended run of a fake engine."""
        lines = (self.folder / host / "started").read_text().splitlines()
        return [line.split()[5] for line in lines if line.startswith("--silent")]

    def behind(self, host, *command):
        """Starts the host's engine through this command."""
        engine = Path(self.hosts[host]["kelo_desk_engine"])
        wrapper = self.folder / f"{host}-engine"
        wrapper.write_text(f'#!/bin/sh\nexec {" ".join(command)} {engine} "$@"\n')
        wrapper.chmod(0o755)
        self.hosts[host] = {"kelo_desk_engine": str(wrapper)}

    def install(self, host):
        subprocess.run([self.hosts[host]["kelo_desk_engine"], "--silent", "--apps", "brenna,tolvi"], check=True,
                       capture_output=True)

    def log(self, host):
        log = Path(self.hosts[host]["kelo_desk_engine"]).parents[3] / "machine/Library/Logs/Kelo-Desk-Installer/webinstall.log"
        return log.read_text() if log.exists() else ""

    def applications(self, host):
        place = Path(self.hosts[host]["kelo_desk_engine"]).parents[3] / "machine/Applications"
        return sorted(entry.name for entry in place.iterdir())

    def play(self, *arguments, hosts=None, batches=None, **variables):
        """Runs the playbook. Returns its exit status, and the result of each task on each host."""
        if batches:
            arguments = (*arguments, "-e", json.dumps({"kelo_desk_batches": batches}))
        inventory = self.folder / "inventory.json"
        inventory.write_text(json.dumps({"kelo_desks": {
            "vars": {"ansible_connection": "local", "ansible_python_interpreter": "/usr/bin/python3",
                     "kelo_desk_apps": ["brenna", "tolvi"], "kelo_desk_report": str(self.report_file),
                     "kelo_desk_bundles": str(self.bundles), **variables},
            "hosts": {host: self.hosts[host] for host in hosts or self.hosts}}}))
        environment = {"HOME": str(self.folder / "home"), "PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8",
                       "ANSIBLE_CALLBACK_PLUGINS": str(FLEET / "Tests/callback_plugins"),
                       "ANSIBLE_CALLBACKS_ENABLED": "record", "RECORD": str(self.folder / "record.json"),
                       "ANSIBLE_RETRY_FILES_ENABLED": "false",
                       "ANSIBLE_LOCAL_TEMP": str(self.folder / "home/local"),
                       "ANSIBLE_REMOTE_TEMP": str(self.folder / "home/remote"), "PYTHONDONTWRITEBYTECODE": "1"}
        done = subprocess.run(["ansible-playbook", "-i", inventory, "kelo-desk.yml", *arguments],
                              cwd=self.folder / "fleet", env=environment, capture_output=True, text=True, timeout=240)
        print(done.stdout, done.stderr)
        told = json.loads((self.folder / "record.json").read_text())
        told["status"] = done.returncode
        return told

    @property
    def report(self):
        return json.loads(self.report_file.read_text())

    def statuses(self, host):
        return {app: result["status"] for app, result in self.report[host]["apps"].items()}


def counts(told, host):
    stats = told["counts"][host]
    return {key: stats[key] for key in ("changed", "failures", "unreachable") if stats[key]}


def result_of(told, task, host=None):
    (found,) = [entry["result"] for entry in told["results"]
                if entry["task"].endswith(task) and host in (None, entry["host"])]
    return found
