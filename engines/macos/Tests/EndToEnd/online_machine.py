"""An online installer for this machine, with signed images and a CDN that misbehaves on request."""

import hashlib
import json
import os
import shutil
import subprocess
from pathlib import Path

BUILD = Path(os.environ.get("KELO_BUILD", Path(__file__).resolve().parents[4] / "build" / "dev"))
PROGRAMS = BUILD / "lab" / "bin"
ENGINE = BUILD / "engines" / "macos" / "engine-cli"
TEAM = "QX7M4R2V9D"
NAMES = ["cdn.kelo.example", "www.kelo.example", "mirror.kelo.example", "localhost"]
ARCH = "x64"
FOLDER = f"/desksuite/apps/default/brenna/mac/{ARCH}/dmg/latest"
META = f"{FOLDER}/meta.json"
PACKAGE = f"{FOLDER}/brenna.dmg"
MIRROR = "/mirror/brenna.dmg"
TIME_LIMIT = 240


def run(*words):
    return subprocess.run([str(word) for word in words], check=True, capture_output=True, text=True).stdout


class Workshop:
    """What the tests of a file share: an authority, a signed image, and an installer to copy."""

    def __init__(self, folder):
        self.folder = folder
        self.signers = folder / "signers"
        run(PROGRAMS / "lab-sign", "make-authority", self.signers, "--team", TEAM)
        sign = f"{PROGRAMS / 'lab-sign'} sign --authority {self.signers}"
        run(PROGRAMS / "lab-fixture", "offline-installer", "--engine", ENGINE, "--programs", PROGRAMS,
            "--machine", folder / "unused", "--output", folder / "installer", "--version", "2.1", "--apps", "brenna",
            "--team-id", TEAM, "--sign-bundle", sign, "--sign-image", sign)
        self.installer = folder / "installer" / "Kelo-Desk-Installer.app"
        packages = self.installer / "Contents" / "Resources" / "packages"
        self.image = (packages / "brenna_installer.dmg").read_bytes()
        (folder / "image").write_bytes(self.image)
        self.digest = hashlib.sha256(self.image).hexdigest()
        shutil.rmtree(packages)

    def meta(self, **changes):
        keys = {"version": "2.1", "destination": "brenna.dmg", "size": len(self.image), "checksum": self.digest}
        keys.update(changes)
        return {"text": json.dumps({key: value for key, value in keys.items() if value is not None})}


class OnlineMachine:
    """A machine's root and its installer."""

    def __init__(self, workshop, folder, cdn):
        self.root = folder / "machine"
        self.environment = {}
        self.installer = folder / "Kelo-Desk-Installer.app"
        shutil.copytree(workshop.installer, self.installer, copy_function=os.link, symlinks=True)
        self.change_resource("linux_host.json", root=str(self.root),
                             testAuthority=str(workshop.signers / "root.pem"), **cdn.host_settings)

    def change_resource(self, name, **changes):
        """Changes keys of a JSON file in the resources; None removes a key."""
        file = self.installer / "Contents" / "Resources" / name
        values = {**json.loads(file.read_text()), **changes}
        file.unlink()  # it is a link to the workshop's file
        file.write_text(json.dumps({key: value for key, value in values.items() if value is not None}))

    def start(self, *words, **options):
        return subprocess.Popen([self.installer / "Contents" / "MacOS" / "engine-cli", *words], text=True,
                                stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                env={"HOME": str(self.root), "PATH": "/usr/bin:/bin", **self.environment}, **options)

    def install(self):
        """Runs the engine to its end and checks the invariants of every run."""
        process = self.start("run", "--action", "install", "--apps", "brenna")
        output, errors = process.communicate(timeout=TIME_LIMIT)
        return Outcome(self, process.returncode, output, errors)

    def check_updates(self, *apps):
        """The events of check-updates, which has to succeed."""
        process = self.start("check-updates", *(["--apps", ",".join(apps)] if apps else []))
        output, errors = process.communicate(timeout=TIME_LIMIT)
        assert process.returncode == 0, output + errors
        return [json.loads(line) for line in output.splitlines() if line.startswith("{")]

    @property
    def installed(self):
        return self.root / "Applications" / "Brenna.app"

    @property
    def temporary_files(self):
        """The result of a run."""
        return sorted(path.name for path in (self.root / "tmp").iterdir())

    @property
    def log(self):
        log = self.root / "Library" / "Logs" / "Kelo-Desk-Installer" / "webinstall.log"
        return log.read_text() if log.exists() else ""


class Outcome:
    def __init__(self, machine, status, output, errors):
        self.machine = machine
        self.status = status
        self.events = [json.loads(line) for line in output.splitlines() if line.startswith("{")]
        results = [event for event in self.events if event["type"] == "app-result"]
        done = [event for event in self.events if event["type"] == "done"]
        assert len(results) == 1, f"{len(results)} results\n{output}\n{errors}\n{machine.log}"
        assert len(done) == 1 and self.events[-1] == done[0]
        self.result = results[0]["status"]
        self.code = results[0].get("errorCode")
        for event in self.events:
            if event["type"] == "progress":
                assert 0 <= event["percent"] <= 100, event

    def __str__(self):
        return f"{self.result} {self.code}\n{self.machine.log}"


class Stage:
    """A CDN with the image, and a machine for installing it."""

    def __init__(self, workshop, folder, cdn):
        self.workshop = workshop
        self.cdn = cdn
        self.folder = folder
        cdn.on("/", {"text": "hello"})
        cdn.on("/download/", {"text": "hello"})
        cdn.on("/desk/", {"text": "hello"})
        cdn.on(META, workshop.meta())
        cdn.on(PACKAGE, self.image())
        self.machine = OnlineMachine(workshop, folder, cdn)

    def image(self, **changes):
        return {"file": str(self.workshop.folder / "image"), **changes}

    def meta(self, **changes):
        self.cdn.on(META, self.workshop.meta(**changes))

    def package(self, *answers):
        self.cdn.on(PACKAGE, *answers)

    @property
    def transfers(self):
        return self.cdn.requests_for(PACKAGE)

    @property
    def bytes_fetched(self):
        return sum(record["sent"] for record in self.transfers)

    def installs(self):
        outcome = self.machine.install()
        assert (outcome.result, outcome.status) == ("installed", 0), str(outcome)
        executable = next((self.machine.installed / "Contents" / "MacOS").iterdir())
        assert executable.stat().st_size > 0
        self.leaves_nothing_behind()
        return outcome

    def fails_with(self, code):
        outcome = self.machine.install()
        assert (outcome.result, outcome.code) == ("failed", code), str(outcome)
        assert outcome.status != 0
        assert not self.machine.installed.exists()
        self.leaves_nothing_behind()
        return outcome

    def leaves_nothing_behind(self):
        assert self.machine.temporary_files == []
