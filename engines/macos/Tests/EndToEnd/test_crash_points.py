"""Engines that are killed before and after each of their calls that change the disk, and the next run.

By default, each scenario tries a sample. KELO_ALL=1 tries all. KELO_SEED draws the same sample again; a failure prints
its seed. KELO_FAULT_TABLE=FILE appends the outcomes to FILE.
"""

import collections
import os
import pathlib
import random
import shutil
import subprocess

import pytest
from support import BUILD, NOBODY, RUNNING_AS_ROOT, Run, tree, unprivileged

LIBRARY = BUILD / "engines/macos/Tests/libkill-points.so"
SEED = int(os.environ.get("KELO_SEED", "1"))
SAMPLE = 5
TIME_LIMIT = 240
KILLED = -9

needs_root = pytest.mark.skipif(not RUNNING_AS_ROOT, reason="an administrator prompt can be played by root only")


class Sweep:
    """A run that is repeated from the same state of its machine and killed at a different call each time."""

    def __init__(self, name, command, root, app, **options):
        self.name = name
        self.command = [str(word) for word in command]
        self.root = root
        self.app = root / "Applications" / app
        self.options = {"cwd": "/", "stdin": subprocess.DEVNULL, "capture_output": True, "timeout": TIME_LIMIT, **options}
        self.saved = root.with_name("saved")
        self.points = root.with_name("points")
        subprocess.run(["cp", "-a", str(root), str(self.saved)], check=True)
        self.before = self.content()
        self.outcomes = collections.Counter()
        self.may_leave = ()  # prefixes of names

    def run(self, **environment):
        environment = {**self.options.get("env", os.environ), **environment}
        done = subprocess.run(self.command, **{**self.options, "env": environment}, check=False)
        return Run(done.returncode, done.stdout.decode(), done.stderr.decode())

    def content(self):
        return tree(self.app) if self.app.exists() else None

    def names(self):
        """The names of all files except the platform's registry, which isn't written if the app is already in place."""
        names = (str(path.relative_to(self.root)) for path in self.root.rglob("*"))
        return {name for name in names if not name.startswith("Library/LaunchServices")}

    def start_again(self):
        shutil.rmtree(self.root)
        subprocess.run(["cp", "-a", str(self.saved), str(self.root)], check=True)

    def calls(self):
        """The calls of a run that isn't killed. Its result is the goal of the other runs."""
        self.points.touch()
        self.points.chmod(0o666)
        run = self.run(LD_PRELOAD=str(LIBRARY), KELO_POINTS=str(self.points))
        assert run.status == 0, run.output + run.errors
        self.goal, self.goal_names = self.content(), self.names()
        return self.points.read_text().splitlines()

    def kill(self, when, number, call):
        """Does a run that is killed and a second one that isn't. Returns the problem, or None."""
        self.start_again()
        killed = self.run(LD_PRELOAD=str(LIBRARY), KELO_KILL=f"{when}:{number}")
        left = self.content()
        if killed.status not in (KILLED, 0):  # 0: this run made fewer calls
            return f"ended with {killed.status}: {killed.output}{killed.errors}"
        self.outcomes[call, f"killed {when}", self.state_of(left)] += 1
        if left not in (None, self.before, self.goal):
            return "the app is incomplete"
        after = self.run()
        if after.status != 0:
            return f"the next run ends with {after.status}: {after.output}{after.errors}"
        if self.content() != self.goal:
            return "the next run doesn't reach the goal"
        others = {name for name in self.names() ^ self.goal_names if not name.startswith(self.may_leave)}
        return f"after the next run there are extra or missing files: {others}" if others else None

    def state_of(self, content):
        states = [("goal", self.goal), ("as before", self.before), ("no app", None)]
        return next((name for name, state in states if state == content), "half")

    def run_all(self, whens=("before", "after")):
        calls = self.calls()
        points = [(when, number, call) for number, call in enumerate(calls, 1) for when in whens]
        if "KELO_ALL" not in os.environ:
            points = random.Random(SEED).sample(points, min(SAMPLE, len(points)))
        wrong = [f"{when} call {number}, {call}: {complaint}" for when, number, call in points
                 if (complaint := self.kill(when, number, call))]
        self.report()
        print(f"{self.name}: {len(calls)} calls, {len(points)} kills, seed {SEED}")
        assert not wrong, "\n".join([f"KELO_SEED={SEED}: {self.name}", *wrong])

    def report(self):
        if "KELO_FAULT_TABLE" not in os.environ:
            return
        with pathlib.Path(os.environ["KELO_FAULT_TABLE"]).open("a", encoding="utf-8") as table:
            table.writelines("\t".join([self.name, *row, str(count)]) + "\n" for row, count in sorted(self.outcomes.items()))


class PowerLoss(Sweep):
    """The same on a separate disk. The next run finds only what was on that disk at the time of the kill.

    A flush by another process writes the file system's journal, and so the names of new files, but not their bytes.
    """

    def __init__(self, *arguments, **options):
        super().__init__(*arguments, **options)
        self.disk = self.root.with_name("disk.img")
        self.found = self.root.with_name("found")
        self.make_disk()
        if self.on_disk(self.disk, "true").status != 0:
            pytest.skip("this machine doesn't let the suite mount a small volume")

    def make_disk(self):
        """Makes a file system with the content of the root."""
        subprocess.run(["mkfs.ext4", "-q", "-F", "-d", str(self.root), str(self.disk), "64M"], check=True,
                       capture_output=True)

    def on_disk(self, disk, script):
        """Runs the script with that disk mounted at the root. $0 is the engine, and $@ are its arguments."""
        mount = f"mount -o loop {disk} {self.root} && {script}"
        done = subprocess.run(["unshare", "--mount", "sh", "-c", mount, *self.command], check=False, capture_output=True,
                              text=True, timeout=TIME_LIMIT)
        return Run(done.returncode, done.stdout, done.stderr)

    def kill(self, when, number, call):
        self.start_again()
        crashed = self.disk.with_name("crashed.img")
        self.make_disk()
        engine = f'setpriv --reuid={NOBODY} --regid={NOBODY} --clear-groups "$0" "$@"'
        self.on_disk(self.disk, f"LD_PRELOAD={LIBRARY} KELO_KILL={when}:{number} {engine}; "
                     f"dd if=/dev/zero of={self.root}/others bs=1 count=1 conv=fsync && cp {self.disk} {crashed}")
        # Nothing is mounted after a loss of power.
        keep = f"rm -rf {self.found} && cp -a {self.root}/Applications {self.found}"
        after = self.on_disk(crashed, f"rm -rf {self.root}/Volumes/*; {keep}; {engine}; status=$?; "
                             f"cp -a {self.root}/Applications {self.found}/after; exit $status")
        left = self.content_of(self.found)
        self.outcomes[call, "power lost after", self.state_of(left)] += 1
        if left not in (None, self.before, self.goal):
            return "the app is incomplete"
        if after.status != 0 or self.content_of(self.found / "after") != self.goal:
            return f"the next run doesn't reach the goal: {after.output}{after.errors}"
        hidden = [path.name for path in (self.found / "after").iterdir() if path.name.startswith(".")]
        return f"the next run leaves {hidden}" if hidden else None

    def content_of(self, applications):
        app = applications / self.app.name
        return tree(app) if app.exists() else None


def sweep(name, machine, action, kind=Sweep):
    command = [machine.engine, "run", "--action", action, "--apps", "rulo", *(["--offline"] if action == "install" else [])]
    return kind(name, command, machine.root, "Kelo Rulo.app", **unprivileged())


def test_of_an_install_over_nothing(installation):
    sweep("install", installation("2.0"), "install").run_all()


def test_of_an_upgrade(installation):
    old = installation("1.0")
    old.install("--apps", "rulo")
    sweep("upgrade", installation("2.0", machine=old), "install").run_all()


def test_of_an_install_beside_an_app_store_variant(installation):
    machine = installation("2.0")
    receipt = machine.app("rulo") / "Contents/_MASReceipt/receipt"
    receipt.parent.mkdir(parents=True)
    receipt.touch()
    run = sweep("install beside an App Store variant", machine, "install")
    run.app = machine.applications / "Kelo Rulo 2.app"
    run.before = None
    # The next run doesn't find a copy that isn't registered, and installs another one with the next number.
    run.may_leave = "Applications/Kelo Rulo 3.app"
    run.run_all()


def test_of_a_removal(installation):
    machine = installation("2.0")
    machine.install("--apps", "rulo")
    sweep("removal", machine, "uninstall").run_all()


@needs_root
@pytest.mark.parametrize("action", ["install", "uninstall"])
def test_of_an_escalated_run(installation, prompt, action):
    old = installation("1.0")
    old.install("--apps", "rulo")
    new = installation("2.0", machine=old)
    os.chown(old.applications, 0, 0)
    prompt(new, "accept")
    sweep(f"escalated {action}", new, action).run_all()


def test_of_an_online_install(stage):
    machine = stage.machine
    command = [machine.installer / "Contents/MacOS/engine-cli", "run", "--action", "install", "--apps", "brenna"]
    machine.root.mkdir(exist_ok=True)
    environment = {"HOME": str(machine.root), "PATH": "/usr/bin:/bin", **machine.environment}
    Sweep("online install", command, machine.root, "Brenna.app", env=environment).run_all()


@needs_root
@pytest.mark.parametrize("action", ["install", "uninstall"])
def test_of_a_loss_of_power(installation, action):
    old = installation("1.0")
    old.install("--apps", "rulo")
    new = installation("2.0", machine=old)
    run = sweep(f"{action} without power", new, action, PowerLoss)
    run.run_all(whens=["after"])
