"""kelo-summary and kelo-sweep, with a fake engine that gives the test's answers and records its command lines."""

import json
import os
import signal
import subprocess

import pytest
from command_surface import HOME
from support import HANG

COMMANDS = HOME / "packaging/command"
ENGINE = """#!/bin/sh
echo "$*" >>"{folder}/started"
case $1 in hello) key=hello ;; check-updates) key=check-updates ;; export-logs) key=export-logs ;; *) key=run ;; esac
[ ! -e "{folder}/$key.sh" ] || . "{folder}/$key.sh"
"""
FULL = ("--- SILENT RUN SUMMARY action=install exit_code=0 ---", '  app="Kelo Brenna" status=installed', "--- END SUMMARY ---")


class Engine:
    """A fake engine: its answer to each command, and its command lines in `started`."""

    def __init__(self, folder):
        self.folder = folder
        self.home = folder / "home"
        (folder / "bin").mkdir()
        self.home.mkdir()
        program = folder / "bin/engine-cli"
        program.write_text(ENGINE.format(folder=folder))
        program.chmod(0o755)
        self.path = f"{COMMANDS}:{folder}/bin:/usr/bin:/bin"

    def says(self, key, text="", status=0, stream=1):
        (self.folder / f"{key}.txt").write_text(text + "\n" if text else "")
        (self.folder / f"{key}.sh").write_text(f'cat "{self.folder}/{key}.txt" >&{stream}\nexit {status}\n')

    def says_event(self, key, **event):
        self.says(key, "Error opening log file: a line that isn't JSON\n" + json.dumps(event))

    def runs(self, *messages, status=0):
        self.says("run", "\n".join(f"[2026-01-02 03:04:05.678] {message}" for message in messages), status, 2)

    def has(self, mode, **apps):
        """app -> (source, installed version, available version or None)."""
        rows = [{"id": app, "source": source, "installedVersion": version, "latestVersion": latest if mode == "offline" else None,
                 "updateAvailable": mode == "offline" and bool(latest and latest > version)}
                for app, (source, version, latest) in apps.items()]
        self.says_event("hello", type="hello", mode=mode, apps=rows)
        offers = [{"id": app, "updateAvailable": latest > version, "latestVersion": latest} if latest else
                  {"id": app, "updateAvailable": False}
                  for app, (source, version, latest) in apps.items() if source == "direct"]
        self.says_event("check-updates", type="update-check-result", apps=offers)

    def call(self, *command, **environment):
        return subprocess.run(command, capture_output=True, text=True, timeout=HANG,
                              env={"PATH": self.path, "HOME": str(self.home), **environment})

    def sweep(self, *words, **environment):
        (self.folder / "started").unlink(missing_ok=True)
        done = self.call("kelo-sweep", *words, **environment)
        return done.returncode, done.stdout + done.stderr

    @property
    def started(self):
        file = self.folder / "started"
        return file.read_text().splitlines() if file.exists() else []

    @property
    def installed(self):
        """The apps of each unattended run."""
        return [line.split()[4] for line in self.started if line.startswith("--silent")]


@pytest.fixture
def engine(tmp_path):
    return Engine(tmp_path)


def summary(engine):
    done = engine.call("kelo-summary", "engine-cli", "--silent")
    return done.returncode, done.stdout.splitlines()


def test_the_summary_is_the_runs_own(engine):
    engine.runs("banner", *FULL, "after")
    assert summary(engine) == (0, list(FULL))
    assert engine.started == ["--silent --verbose"]


def test_a_detail_of_two_lines_is_whole(engine):
    text = ("--- SILENT RUN SUMMARY action=install exit_code=2 ---", '  app="Kelo Brenna" status=failed detail="one', 'two"',
            "--- END SUMMARY ---")
    engine.says("run", "\n".join(line if line == 'two"' else f"[2026-01-02 03:04:05.678] {line}" for line in text), 2, 2)
    assert summary(engine) == (2, list(text))


@pytest.mark.parametrize("messages, status, ends, complaint", [
    ([], 0, 70, "this run wrote no summary; its status is 0"),
    (["work"], 139, 139, "this run wrote no summary; its status is 139"),
    (FULL[:2], 137, 137, "this run wrote no summary; its status is 137"),
    (FULL, 137, 137, "the summary has exit_code 0, but the status is 137"),
    (["--- SILENT RUN SUMMARY action=install exit_code=2 ---", FULL[1], FULL[2]], 0, 70,
     "the summary has exit_code 2, but the status is 0"),
    ([FULL[0], FULL[2]], 0, 70, "the run ended without a result for any app"),
])
def test_a_run_without_a_summary_that_agrees_is_no_success(engine, messages, status, ends, complaint):
    engine.runs(*messages, status=status)
    status, lines = summary(engine)
    assert (status, lines[-1]) == (ends, f"kelo-summary: {complaint}")


def test_what_the_engine_complains_of_is_shown(engine):
    engine.says("run", "Kelo Desk Apps Installer — verbose mode\n[2026-01-02 03:04:05.678] launching\nError: bad words\n\nUsage", 3, 2)
    assert summary(engine) == (3, ["Error: bad words", "kelo-summary: this run wrote no summary; its status is 3"])
    engine.says("run", "engine-cli: linux_host.json: bad", 78, 2)
    assert summary(engine)[1][0] == "engine-cli: linux_host.json: bad"
    assert engine.call("kelo-summary", "nowhere/engine-cli").returncode == 127


def test_an_interrupted_run_still_gets_its_summary(engine):
    for name in ("ready", "hold"):
        os.mkfifo(engine.folder / name)
    held = os.open(engine.folder / "hold", os.O_RDWR)  # keeps opening it from blocking
    (engine.folder / "run.sh").write_text(
        f"""trap 'printf "[1] %s\\n" "--- SILENT RUN SUMMARY action=install exit_code=1 ---" "--- END SUMMARY ---" >&2; exit 1' INT
echo >"{engine.folder}/ready"; read _ <"{engine.folder}/hold"\n""")
    run = subprocess.Popen(["kelo-summary", "engine-cli", "--silent"], stdout=subprocess.PIPE, text=True, start_new_session=True,
                           env={"PATH": engine.path})
    (engine.folder / "ready").read_text()
    os.killpg(run.pid, signal.SIGINT)
    said, _ = run.communicate(timeout=HANG)
    os.close(held)
    assert (run.returncode, said.splitlines()[0]) == (1, "--- SILENT RUN SUMMARY action=install exit_code=1 ---")


@pytest.mark.parametrize("mode", ["online", "offline"])
def test_only_what_is_older_is_installed(engine, mode):
    engine.has(mode, brenna=("direct", "1.0", "2.0"), tolvi=("direct", "2.0", "2.0"), rulo=("appstore", "1.0", "2.0"),
               galdivane=(None, None, None))
    engine.runs(*FULL)
    assert engine.sweep() == (0, "")
    assert engine.installed == ["brenna"]
    assert ("check-updates --apps brenna,tolvi" in engine.started) == (mode == "online")


@pytest.mark.parametrize("mode", ["online", "offline"])
def test_a_current_machine_starts_no_run(engine, mode):
    engine.has(mode, brenna=("direct", "2.0", "2.0"), tolvi=("direct", "3.0", "2.0"))
    assert engine.sweep() == (0, "") and engine.installed == []


def test_nothing_installed_is_nothing_to_do(engine):
    engine.has("online", brenna=(None, None, None), rulo=("appstore", "1.0", "2.0"))
    assert engine.sweep() == (0, "") and engine.started == ["hello"]


@pytest.mark.parametrize("command", ["hello", "check-updates"])
@pytest.mark.parametrize("status, ends, complaint", [(78, 78, "ended with status 78"), (139, 139, "ended with status 139"),
                                                     (0, 70, "gave no answer")])
def test_an_engine_that_does_not_answer_is_no_success(engine, command, status, ends, complaint):
    engine.has("online", brenna=("direct", "1.0", "2.0"))
    engine.says(command, "no event", status)
    ended, said = engine.sweep()
    assert (ended, engine.installed) == (ends, []) and f"engine-cli {command} {complaint}" in said


def test_a_missing_tool_is_no_success(engine):
    engine.path = f"{COMMANDS}:/usr/bin:/bin"
    assert engine.sweep() == (127, "kelo-sweep: there is no engine-cli\n")


@pytest.mark.parametrize("apps", [{"brenna": ("direct", "1.0", None)},
                                  {"brenna": ("direct", "1.0", "2.0"), "tolvi": ("direct", "1.0", None)}])
def test_an_unanswered_question_is_told_when_it_lasts(engine, apps):
    engine.has("online", **apps)
    engine.runs(*FULL)
    unknown = next(app for app in apps if apps[app][2] is None)
    assert engine.sweep() == (0, "") and engine.sweep() == (0, "")
    for count in (3, 4):
        assert engine.sweep() == (5, f"kelo-sweep: no network, or no answer about {unknown}, in {count} sweeps in a row\n")
    engine.has("online", **dict.fromkeys(apps, ("direct", "2.0", "2.0")))
    assert engine.sweep() == (0, "")
    engine.has("online", **apps)
    assert engine.sweep() == (0, "")


def test_a_blocked_probe_is_told_when_it_lasts(engine):
    engine.has("online", brenna=("direct", "1.0", "2.0"))
    engine.runs("--- SILENT RUN SUMMARY action=install exit_code=5 ---", '  note="No internet connection"', FULL[2], status=5)
    assert [engine.sweep()[0] for _ in range(3)] == [0, 0, 5]


def test_a_retired_installer_is_told_at_once(engine):
    retired = {"reason": "expired", "downloadUrl": "https://www.kelo.example/desk/", "expiresOn": "2026-01-31"}
    engine.says_event("hello", type="hello", mode="offline", installerRetired=retired,
                      apps=[{"id": "brenna", "source": "direct", "updateAvailable": True, "latestVersion": "2.0"}])
    assert engine.sweep() == (2, "kelo-sweep: this installer is retired: expired, get a current one from https://www.kelo.example/desk/\n")
    assert engine.installed == []


def test_a_failure_is_told_and_the_last_five_bundles_are_kept(engine):
    engine.has("offline", brenna=("direct", "1.0", "2.0"))
    told = ("--- SILENT RUN SUMMARY action=install exit_code=2 ---", '  app="Kelo Brenna" status=failed detail="x"', FULL[2])
    engine.runs(*told, status=2)
    kept = engine.home / "kelo-sweep"
    kept.mkdir()
    names = [f"KeloDeskInstaller-logs-2026010{day}-120000.zip" for day in range(1, 9)]
    for name in [*names, "mine.zip"]:
        (kept / name).touch()
    assert engine.sweep() == (2, "\n".join(told) + "\n")
    assert engine.started[-1] == f"export-logs --out {kept}"
    assert sorted(path.name for path in kept.iterdir()) == [*names[3:], "mine.zip"]


def test_the_waiting_time_is_a_part_of_the_one_given(engine):
    engine.has("offline", brenna=("direct", "2.0", "2.0"))
    sleep = engine.folder / "bin/sleep"
    sleep.write_text(f'#!/bin/sh\necho "$1" >>"{engine.folder}/slept"\n')
    sleep.chmod(0o755)
    for _ in range(20):
        assert engine.sweep("1800") == (0, "")
    slept = [int(line) for line in (engine.folder / "slept").read_text().split()]
    assert len(slept) == 20 and len(set(slept)) > 1 and all(0 <= seconds < 1800 for seconds in slept)
