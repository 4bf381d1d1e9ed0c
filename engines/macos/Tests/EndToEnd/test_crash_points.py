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
KILLED = (-9, 128 + 9)  # for the parent, and as the shell's exit status

SUCCESSES = {"installed", "skipped", "uninstalled", "already_absent"}

# Calls that each run of this action makes.
STEPS = {"install": {"start hdiutil", "start xattr", "renameat2"}, "uninstall": {"start lsregister", "renameat2"}}

needs_root = pytest.mark.skipif(not RUNNING_AS_ROOT, reason="only root can simulate an administrator prompt")


def attached_in(root):
    """The mount points of the attached images."""
    return [path.name for path in (root / "Volumes").iterdir() if not path.name.startswith(".")]


class Sweep:
    """A run that is repeated from the same state of its machine and killed at a different call each time."""

    def __init__(self, name, command, root, app, **options):
        self.name = name
        self.command = [str(word) for word in command]
        self.steps = STEPS[self.command[self.command.index("--action") + 1]]
        self.root = root
        self.app = root / "Applications" / app
        self.options = {"cwd": "/", "stdin": subprocess.DEVNULL, "capture_output": True, "timeout": TIME_LIMIT, **options}
        self.saved = root.with_name("saved")
        self.points = root.with_name("points")
        subprocess.run(["cp", "-a", str(root), str(self.saved)], check=True)
        self.before = self.content()
        self.outcomes = collections.Counter()
        self.missed = 0  # kills at calls that the run didn't reach
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
        self.goal, self.goal_names = self.content(), self.names()
        self.check_end(run, self.goal, attached_in(self.root))
        calls = self.points.read_text().splitlines()
        assert self.steps <= set(calls), f"{LIBRARY} isn't loaded, or the run has other calls: {calls}"
        return calls

    def kill(self, when, number, call):
        """Does a run that is killed and a second one that isn't."""
        self.start_again()
        killed = self.run(LD_PRELOAD=str(LIBRARY), KELO_KILL=f"{when}:{number}")
        self.note(call, f"killed {when}", killed, self.content())
        self.check_end(self.run(), self.content(), attached_in(self.root))
        others = {name for name in self.names() ^ self.goal_names if not name.startswith(self.may_leave)}
        assert not others, "after the next run there are extra or missing files"

    def note(self, call, fault, killed, left):
        """Counts the outcome of a killed run and checks it."""
        assert killed.status in (*KILLED, 0), killed.output + killed.errors
        is_missed = killed.status == 0  # this run made fewer calls
        self.missed += is_missed
        self.outcomes[call, "ended before it" if is_missed else fault, self.state_of(left)] += 1
        assert left in (None, self.before, self.goal), "the app is incomplete"
        self.check_results(killed, left)

    def check_results(self, run, content):
        """Every reported result is that of a success, and the disk agrees with it."""
        results = run.of_type("app-result")
        assert not results or content == self.goal, "a result is untrue"
        assert {result["status"] for result in results} <= SUCCESSES
        return results

    def check_end(self, run, content, attached):
        """Checks a run that wasn't killed."""
        assert run.status == 0 == run.done["exitCode"], run.output + run.errors
        assert content == self.goal, "the next run doesn't reach the goal"
        assert {result["app"]: result["status"] for result in self.check_results(run, content)} == run.statuses
        assert len(run.statuses) == 1
        assert attached == [], "the next run leaves an image attached"

    def state_of(self, content):
        states = [("goal", self.goal), ("as before", self.before), ("no app", None)]
        return next((name for name, state in states if state == content), "half")

    def run_all(self, whens=("before", "after")):
        calls = self.calls()
        points = [(when, number, call) for number, call in enumerate(calls, 1) for when in whens]
        if "KELO_ALL" not in os.environ:
            points = self.sample(points)
        wrong = [f"{when} call {number}, {call}: {problem}" for when, number, call in points
                 if (problem := self.problem(when, number, call))]
        self.report()
        print(f"{self.name}: {len(calls)} calls, {len(points)} kills, {self.missed} of them missed, seed {SEED}")
        assert self.missed * 2 < len(points), f"{self.name}: {self.missed} of {len(points)} kills missed"
        assert not wrong, "\n".join([f"KELO_SEED={SEED}: {self.name}", *wrong])

    def sample(self, points):
        """Points of different calls, others in each scenario, because most points are of the same few calls."""
        draw = random.Random(f"{SEED} {self.name}")
        by_call = {point[2]: point for point in draw.sample(points, len(points))}
        return draw.sample(list(by_call.values()), min(SAMPLE, len(by_call)))

    def problem(self, *point):
        try:
            self.kill(*point)
        except AssertionError as problem:
            return problem
        return None

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
            pytest.skip("the suite can't mount a small volume on this machine")

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
        killed = self.on_disk(
            self.disk, f"LD_PRELOAD={LIBRARY} KELO_KILL={when}:{number} {engine}; status=$?; "
            f"dd if=/dev/zero of={self.root}/others bs=1 count=1 conv=fsync && cp {self.disk} {crashed} && exit $status")
        # Nothing is mounted after a loss of power.
        keep = f"rm -rf {self.found} && mkdir -p {self.found}/after && cp -a {self.root}/Applications {self.found}/left"
        after = self.on_disk(crashed, f"rm -rf {self.root}/Volumes/*; {keep}; {engine}; status=$?; "
                             f"cp -a {self.root}/Applications {self.root}/Volumes {self.found}/after; exit $status")
        self.note(call, "power lost after", killed, self.content_of(self.found / "left"))
        applications = self.found / "after/Applications"
        self.check_end(after, self.content_of(applications), attached_in(self.found / "after"))
        assert not [path.name for path in applications.iterdir() if path.name.startswith(".")], "the next run leaves files"

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
    run = sweep(f"escalated {action}", new, action)
    run.steps = run.steps - {"renameat2"} | {"start pkexec"}
    run.run_all()


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
