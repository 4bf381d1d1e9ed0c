"""Two engines at once on one machine. KELO_RACES sets the number of races of each kind."""

import json
import os
import shutil
import signal
import subprocess

from online_machine import TIME_LIMIT
from support import IMAGES, without_leftovers

RACES = int(os.environ.get("KELO_RACES", "3"))


def race(machines, *words):
    """Starts the same command on all machines at once; returns the runs."""
    sessions = [machine.start(*words) for machine in machines]
    return [session.finish() for session in sessions]


def outcomes(runs, app="rulo"):
    """The sorted statuses of one app, failures with their code."""
    return sorted(f"failed {run.codes[app]}" if run.statuses[app] == "failed" else run.statuses[app] for run in runs)


def bad(rounds, good):
    return [outcome for outcome in rounds if outcome not in good]


def installed_version(machine):
    hello = machine.run("hello").events[0]
    return next(app["installedVersion"] for app in hello["apps"] if app["id"] == "rulo")


def test_two_online_installs_end_as_installed_and_skipped(stage):
    rounds = []
    for _ in range(RACES):
        shutil.rmtree(stage.machine.installed, ignore_errors=True)
        processes = [stage.machine.start("run", "--action", "install", "--apps", "brenna") for _ in range(2)]
        ends = []
        for process in processes:
            output, errors = process.communicate(timeout=240)
            done = json.loads(output.splitlines()[-1])
            assert done["type"] == "done", output + errors
            result = done["results"][0]
            ends.append(result["status"] if result["status"] != "failed" else f"failed {result['errorCode']}")
        rounds.append(sorted(ends))
    assert bad(rounds, [["installed", "skipped"]]) == []
    stage.leaves_nothing_behind()


def test_the_next_run_detaches_the_download_of_a_killed_engine(stage):
    download = stage.machine.root / "tmp" / "brenna_installer.dmg"
    download.parent.mkdir(parents=True)
    download.write_bytes(stage.workshop.image)
    hdiutil = stage.machine.installer / "Contents" / "Resources" / "programs" / "hdiutil"
    subprocess.run([hdiutil, "attach", download, "-nobrowse", "-noverify", "-readonly", "-plist"], check=True, capture_output=True)
    assert list(stage.machine.root.glob("Volumes/[!.]*"))
    process = stage.machine.start("run", "--action", "uninstall", "--apps", "rulo")
    assert '"already_absent"' in process.communicate(timeout=TIME_LIMIT)[0]
    assert not list(stage.machine.root.glob("Volumes/[!.]*"))


def test_the_next_run_detaches_the_package_of_a_killed_engine_and_no_image_of_the_user(installation):
    machine = installation("2.0")
    hidden, opened = (machine.packages / IMAGES[app] for app in ("brenna", "tolvi"))
    assert machine.program("hdiutil", "attach", hidden, "-nobrowse", "-noverify", "-readonly", "-plist").returncode == 0
    assert machine.program("hdiutil", "attach", opened).returncode == 0
    assert len(machine.mounted()) == 2
    assert machine.uninstall("--apps", "rulo").statuses == {"rulo": "already_absent"}
    assert machine.mounted() == ["Kelo Tolvi"]
    assert machine.log.count("left by an interrupted run") == 1


def test_two_installs_over_an_older_copy_leave_the_newer_one(installation):
    old = installation("1.0", "--payload", "8000000")
    engines = [installation(version, "--payload", "8000000", machine=old) for version in ("2.0", "3.0")]
    rounds = []
    for _ in range(RACES):
        old.uninstall("--apps", "rulo")
        old.install("--apps", "rulo")
        runs = race(engines, "run", "--action", "install", "--offline", "--apps", "rulo")
        rounds.append((outcomes(runs), installed_version(old)))
    assert bad(rounds, [(["installed", "installed"], "3.0"), (["installed", "skipped"], "3.0")]) == []
    assert without_leftovers(old)


def test_two_installs_of_one_version_end_as_installed_and_skipped(installation):
    old = installation("1.0", "--payload", "8000000")
    engines = [installation("2.0", "--payload", "8000000", machine=old) for _ in range(2)]
    rounds = []
    for _ in range(RACES):
        old.uninstall("--apps", "rulo")
        old.install("--apps", "rulo")
        rounds.append(outcomes(race(engines, "run", "--action", "install", "--offline", "--apps", "rulo")))
    assert bad(rounds, [["installed", "skipped"]]) == []
    assert without_leftovers(old)


def test_two_removals_end_as_uninstalled_and_already_absent(installation):
    machine = installation("2.0", "--payload", "8000000")
    rounds = []
    for _ in range(RACES):
        machine.install("--apps", "rulo")
        rounds.append(outcomes(race([machine] * 2, "run", "--action", "uninstall", "--apps", "rulo")))
    assert bad(rounds, [["already_absent", "uninstalled"]]) == []
    assert list(machine.applications.iterdir()) == []


def test_two_runs_at_the_logs_limit_keep_both_summaries(installation):
    machine = installation("2.0")
    machine.run("hello")
    kept = []
    for _ in range(RACES):
        with machine.log_file.open("ab") as log:
            log.truncate(0)
            log.write(b"x" * 511_000 + b"\n")
        sessions = [machine.start("--silent", "--offline", "--mode", "uninstall", "--apps", "rulo") for _ in range(2)]
        for session in sessions:
            session.process.stdin.close()
            session.process.wait(timeout=240)
        log = machine.log
        kept.append((log.count("--- SILENT RUN SUMMARY"), log.count("--- END SUMMARY ---"), log.count("rotated due to")))
    assert bad(kept, [(2, 2, 1)]) == []


def test_an_engine_that_waits_says_so_and_can_be_cancelled(installation):
    machine = installation("2.0")
    first = machine.start("run", "--action", "install", "--offline", "--apps", "rulo")
    first.wait_for(type="stage", stage="verify", app="rulo")
    os.kill(first.process.pid, signal.SIGSTOP)  # it keeps its lock while it is stopped
    try:
        message = f"Waiting for another Kelo Desk Installer, which is at work in {machine.applications}, before Kelo Rulo"
        cancelled = machine.start("run", "--action", "install", "--offline", "--apps", "rulo")
        cancelled.wait_for(type="log", level="info", message=message)
        cancelled.cancel("rulo")
        assert cancelled.finish().statuses == {"rulo": "cancelled"}

        interrupted = machine.start("run", "--action", "uninstall", "--apps", "rulo")
        interrupted.wait_for(type="log", level="info", message=message)
        interrupted.interrupt()
        run = interrupted.finish()
        assert run.statuses == {"rulo": "cancelled"}
        assert [event["message"] for event in run.of_type("log")].count(message) == 1
        assert machine.log.count("AppTurn: " + message) == 2
    finally:
        os.kill(first.process.pid, signal.SIGCONT)
    assert first.finish().statuses == {"rulo": "installed"}


def test_an_engine_that_waits_works_before_the_other_ones_next_app(installation):
    machine = installation("2.0")
    first = machine.start("run", "--action", "install", "--offline", "--apps", "rulo,tolvi")
    first.wait_for(type="stage", stage="verify", app="rulo")
    os.kill(first.process.pid, signal.SIGSTOP)
    second = machine.start("run", "--action", "uninstall", "--apps", "rulo")
    second.wait_for(type="log", level="info")
    os.kill(first.process.pid, signal.SIGCONT)
    assert first.finish().statuses == {"rulo": "installed", "tolvi": "installed"}
    assert second.finish().statuses == {"rulo": "uninstalled"}
    assert machine.log.index("AppUninstaller: Successfully removed Kelo Rulo") < machine.log.index("Processing app 2/2")


def test_a_turn_ends_with_a_killed_engine(installation):
    machine = installation("2.0")
    first = machine.start("run", "--action", "install", "--offline", "--apps", "rulo")
    first.wait_for(type="stage", stage="verify", app="rulo")
    os.kill(first.process.pid, signal.SIGSTOP)
    second = machine.start("run", "--action", "install", "--offline", "--apps", "rulo")
    second.wait_for(type="log", level="info",
                    message=f"Waiting for another Kelo Desk Installer, which is at work in {machine.applications}, before Kelo Rulo")
    first.kill()
    assert second.finish().statuses == {"rulo": "installed"}
    assert without_leftovers(machine)
