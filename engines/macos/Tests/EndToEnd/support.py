"""Fixtures of the end-to-end suite: an installer on disk, its machine, and runs of the real executable.

Everything is in a new folder that an unprivileged user can access. If the suite runs as root, the engine runs as that
user, because no permission is denied to root.
"""

import contextlib
import json
import os
import pathlib
import queue
import re
import select
import shutil
import signal
import subprocess
import threading
import time

import protocol_schema

BUILD = pathlib.Path(os.environ.get("KELO_BUILD", "build/dev")).resolve()
ENGINE = BUILD / "engines/macos/engine-cli"
LAB = BUILD / "lab/bin"
CATALOG = json.loads((protocol_schema.PROTOCOL / "catalog.json").read_text(encoding="utf-8"))["apps"]
APPS = [app["id"] for app in CATALOG]
NAMES = {app["id"]: app["displayName"] for app in CATALOG}
BUNDLES = {app["id"]: app["appBundleName"] for app in CATALOG}
IDENTIFIERS = {app["id"]: app["installerBundleIdentifier"] for app in CATALOG}
IMAGES = {app["id"]: app["tempFileName"] for app in CATALOG}
TEAM = "QX7M4R2V9D"
NOBODY = 65534
RUNNING_AS_ROOT = os.getuid() == 0
VERSION = re.search(r"^project\(\S+ VERSION (\S+)", (pathlib.Path(__file__).resolve().parents[4] / "CMakeLists.txt").read_text(),
                    re.MULTILINE)[1]

# Seconds after which a run counts as hung. Not a measure of speed.
HANG = 240


def unprivileged():
    """Arguments for subprocess that drop root's rights, if it has them."""
    return {"user": NOBODY, "group": NOBODY, "extra_groups": []} if RUNNING_AS_ROOT else {}


def lab(program, *arguments):
    subprocess.run([str(LAB / program), *map(str, arguments)], check=True, capture_output=True)


def give_away(path):
    """Makes the engine's user the owner of a tree."""
    if RUNNING_AS_ROOT:
        subprocess.run(["chown", "-hR", f"{NOBODY}:{NOBODY}", str(path)], check=True)


class Run:
    """The result of a run: exit status, events, other lines."""

    def __init__(self, status, output, errors):
        self.status = status
        self.output = output
        self.errors = errors
        self.events = []
        self.other_lines = []
        for line in output.splitlines():
            try:
                event = json.loads(line)
            except ValueError:
                self.other_lines.append(line)
                continue
            (self.events if isinstance(event, dict) and "type" in event else self.other_lines).append(
                event if isinstance(event, dict) else line
            )
        for event in self.events:
            protocol_schema.check(event)

    def of_type(self, kind):
        return [event for event in self.events if event["type"] == kind]

    @property
    def done(self):
        assert self.events, f"no events; standard error: {self.errors}"
        assert self.events[-1]["type"] == "done", f"the last event is {self.events[-1]}"
        assert len(self.of_type("done")) == 1
        return self.events[-1]

    @property
    def statuses(self):
        """app -> status, from done.results."""
        return {result["app"]: result["status"] for result in self.done["results"]}

    @property
    def codes(self):
        """app -> error code or None, from done.results."""
        return {result["app"]: result.get("errorCode") for result in self.done["results"]}


class Session:
    """A running engine: gives events as they arrive and takes commands."""

    def __init__(self, command, **arguments):
        self.process = subprocess.Popen(
            command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **arguments
        )
        self.lines = []
        self._queue = queue.Queue()
        self._errors = []
        self._error_lines = queue.Queue()
        self._readers = [
            threading.Thread(target=self._read_output, daemon=True),
            threading.Thread(target=self._read_errors, daemon=True),
        ]
        for reader in self._readers:
            reader.start()

    def _read_output(self):
        for line in self.process.stdout:
            self._queue.put(line.decode("utf-8"))
        self._queue.put(None)

    def _read_errors(self):
        for line in self.process.stderr:
            self._errors.append(line.decode("utf-8", "replace"))
            self._error_lines.put(self._errors[-1])
        self._error_lines.put(None)

    def send(self, line):
        self.process.stdin.write(line if isinstance(line, bytes) else (line + "\n").encode())
        self.process.stdin.flush()

    def cancel(self, app=None):
        self.send(json.dumps({"type": "cancel", **({"app": app} if app else {})}))

    def wait_for(self, **wanted):
        """Reads until an event has all these values."""
        deadline = time.monotonic() + HANG
        while True:
            line = self._queue.get(timeout=max(0.1, deadline - time.monotonic()))
            assert line is not None, f"the run ended before {wanted}: {self.lines[-3:]}"
            self.lines.append(line)
            try:
                event = json.loads(line)
            except ValueError:
                continue
            if all(event.get(key) == value for key, value in wanted.items()):
                return event

    def wait_for_error(self, words):
        """Reads until a line of standard error has these words."""
        deadline = time.monotonic() + HANG
        while True:
            line = self._error_lines.get(timeout=max(0.1, deadline - time.monotonic()))
            assert line is not None, f"the run ended before {words!r}: {''.join(self._errors)}"
            if words in line:
                return line

    def kill(self):
        os.kill(self.process.pid, signal.SIGKILL)

    def interrupt(self):
        os.kill(self.process.pid, signal.SIGINT)

    def finish(self):
        """Closes standard input, reads to the end and returns the Run."""
        with contextlib.suppress(BrokenPipeError):
            self.process.stdin.close()
        self.process.wait(timeout=HANG)
        for reader in self._readers:
            reader.join(timeout=HANG)
        while not self._queue.empty():
            line = self._queue.get()
            if line is not None:
                self.lines.append(line)
        return Run(self.process.returncode, "".join(self.lines), "".join(self._errors))


class Installation:
    """An installer's bundle and its machine."""

    def __init__(self, folder, installer):
        self.folder = pathlib.Path(folder)
        self.bundle = self.folder / "Kelo-Desk-Installer.app"
        self.root = self.folder / "machine"
        self.applications = self.root / "Applications"
        self.volumes = self.root / "Volumes"
        self.temporary = self.root / "tmp"
        subprocess.run(["cp", "-a", "--reflink=auto", str(installer / "Kelo-Desk-Installer.app"), str(self.bundle)], check=True)
        for place in (self.applications, self.volumes, self.temporary):
            place.mkdir(parents=True, exist_ok=True)
        self.settings(root=str(self.root))
        give_away(self.folder)

    @property
    def resources(self):
        return self.bundle / "Contents/Resources"

    @property
    def engine(self):
        return self.bundle / "Contents/MacOS/engine-cli"

    @property
    def packages(self):
        return self.resources / "packages"

    @property
    def log_file(self):
        return self.root / "Library/Logs/Kelo-Desk-Installer/webinstall.log"

    @property
    def log(self):
        return self.log_file.read_text("utf-8") if self.log_file.exists() else ""

    def wait_for_log(self, words):
        """Waits until the log file has these words."""
        deadline = time.monotonic() + HANG
        while words not in self.log:
            assert time.monotonic() < deadline, f"the log lacks {words!r}:\n{self.log}"
            time.sleep(0.02)

    def app(self, name):
        return self.applications / BUNDLES[name]

    def settings(self, **changes):
        """Changes keys of the host's settings; None removes a key."""
        self._change_json(self.resources / "linux_host.json", changes)

    def configuration(self, **changes):
        """Changes keys of installer_config.json; None removes a key."""
        self._change_json(self.resources / "installer_config.json", changes)

    def manifest(self, change):
        """Rewrites packages.json after `change` has modified the parsed object."""
        path = self.packages / "packages.json"
        index = json.loads(path.read_text())
        change(index)
        path.write_text(json.dumps(index))

    @staticmethod
    def _change_json(path, changes):
        values = json.loads(path.read_text()) if path.exists() else {}
        for key, value in changes.items():
            if value is None:
                values.pop(key, None)
            else:
                values[key] = value
        path.write_text(json.dumps(values, indent=2))

    def start(self, *arguments, **options):
        return Session([str(self.engine), *arguments], **{**unprivileged(), "cwd": "/", **options})

    def run(self, *arguments, stdin=b"", **options):
        """Runs the engine to its end, with `stdin` as its closed input."""
        done = subprocess.run(
            [str(self.engine), *arguments],
            input=stdin,
            capture_output=True,
            timeout=HANG,
            **{**unprivileged(), "cwd": "/", **options},
        )
        return Run(done.returncode, done.stdout.decode("utf-8"), done.stderr.decode("utf-8", "replace"))

    def install(self, *arguments, **options):
        return self.run("run", "--action", "install", "--offline", *arguments, **options)

    def uninstall(self, *arguments, **options):
        return self.run("run", "--action", "uninstall", *arguments, **options)

    def program(self, name, *arguments):
        """Runs a program of the lab as the engine's user."""
        return subprocess.run(
            [str(self.resources / "programs" / name), *map(str, arguments)],
            capture_output=True, timeout=HANG, cwd="/", **unprivileged(),
        )

    def mounted(self):
        return sorted(entry.name for entry in self.volumes.iterdir() if not entry.name.startswith("."))

    def remove(self):
        subprocess.run(["chmod", "-R", "u+rwX", str(self.folder)], check=False)
        shutil.rmtree(self.folder, ignore_errors=True)


class Gate:
    """Blocks the first start of a program of the lab, and so the engine at a known step."""

    def __init__(self, installation, name):
        self._program = installation.resources / "programs" / name
        self._itself = self._program.with_name(name + "-itself")
        self._pipes = []
        paths = [installation.folder / f"{name}-{end}" for end in ("reached", "open")]
        for path in paths:
            os.mkfifo(path)
            path.chmod(0o666)
            # Opened for reading and writing, so that neither side blocks on opening.
            self._pipes.append(os.open(path, os.O_RDWR | os.O_NONBLOCK))
        self._program.rename(self._itself)
        self._program.write_text(
            f'#!/bin/sh\necho $$ >"{paths[0]}"\nread _ <"{paths[1]}"\nexec "{self._itself}" "$@"\n')
        self._program.chmod(0o755)

    def wait(self):
        """Waits until the engine has started the program; returns its process identifier."""
        ready, _, _ = select.select([self._pipes[0]], [], [], HANG)
        assert ready, f"{self._program.name} was never started"
        return int(os.read(self._pipes[0], 100))

    def open(self):
        """Releases this start and removes the gate."""
        self._itself.rename(self._program)
        self._itself.symlink_to(self._program.name)
        os.write(self._pipes[1], b"\n")

    def close(self):
        for pipe in self._pipes:
            os.close(pipe)


def tree(folder):
    """path -> ('dir'), ('link', target) or ('file', executable, bytes). Ignores other modes."""
    folder = pathlib.Path(folder)
    found = {}
    for path in sorted(folder.rglob("*")):
        name = str(path.relative_to(folder))
        if path.is_symlink():
            found[name] = ("link", os.readlink(path))
        elif path.is_dir():
            found[name] = ("dir",)
        else:
            found[name] = ("file", bool(path.stat().st_mode & 0o100), path.read_bytes())
    return found


def without_leftovers(installation):
    """Whether Applications has only visible bundles and nothing is mounted."""
    hidden = [entry.name for entry in installation.applications.iterdir() if entry.name.startswith(".")]
    return hidden == [] and installation.mounted() == []
