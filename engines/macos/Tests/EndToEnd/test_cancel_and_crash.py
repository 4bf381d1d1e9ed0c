"""Cancels on standard input, shells that end, and engines that are killed."""

import json
import os
import random
import subprocess
import time

import pytest
from support import APPS, BUNDLES, tree, unprivileged, without_leftovers


def test_a_whole_run_cancel_lets_the_current_app_end_and_stops(installation):
    machine = installation("2.0", "--payload", "40000000")
    session = machine.start("run", "--action", "install", "--offline")
    session.wait_for(type="stage", stage="verify", app="brenna")
    session.cancel()
    run = session.finish()
    assert run.statuses["brenna"] == "installed"
    assert [run.statuses[app] for app in APPS[1:]] == ["cancelled"] * (len(APPS) - 1)
    assert run.status == 1
    assert machine.app("brenna").is_dir() and without_leftovers(machine)
    assert "engine-cli: stdin cancel (whole run)" in machine.log


def test_a_per_app_cancel_skips_that_app(installation):
    machine = installation("2.0", "--payload", "40000000")
    session = machine.start("run", "--action", "install", "--offline")
    session.wait_for(type="stage", stage="download", app="brenna")
    session.cancel("galdivane")
    run = session.finish()
    assert run.statuses == {**dict.fromkeys(APPS, "installed"), "galdivane": "cancelled"}
    assert not machine.app("galdivane").exists()
    assert not [event for event in run.of_type("stage") if event["app"] == "galdivane"]


def test_noise_on_standard_input_is_ignored(installation):
    machine = installation("2.0")
    noise = b'\n[]\n{"type":5}\n{"type":"dance"}\n\xff\xfe\n' + b"[" * 100_000 + b"\n" \
        + b'{"type":"cancel","app":"nobody"}\n'
    run = machine.run("run", "--action", "install", "--offline", "--apps", "brenna", stdin=noise)
    assert run.statuses == {"brenna": "installed"}
    assert machine.log.count("engine-cli: ignoring malformed stdin line") >= 4
    assert "engine-cli: ignoring unknown stdin command 'dance'" in machine.log


def test_a_cancel_with_a_number_as_app_cancels_the_whole_run(installation):
    machine = installation("2.0")
    session = machine.start("run", "--action", "uninstall")
    session.send('{"type":"cancel","app":5}')
    run = session.finish()
    assert "engine-cli: stdin cancel (whole run)" in machine.log
    assert run.done["action"] == "uninstall"


def test_the_end_of_standard_input_cancels_nothing(installation):
    assert installation("2.0").install("--apps", "brenna,rulo").status == 0


def test_a_shell_that_stops_reading_neither_kills_nor_stalls_a_run(installation):
    machine = installation("2.0")
    process = subprocess.Popen(
        [str(machine.engine), "run", "--action", "install", "--offline"],
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, cwd="/", **unprivileged())
    process.stdout.close()
    process.stderr.close()
    assert process.wait(timeout=240) == 0
    assert sorted(os.listdir(machine.applications)) == sorted(BUNDLES.values())


def test_ctrl_c_ends_the_run_cleanly(installation):
    machine = installation("2.0", "--payload", "40000000")
    session = machine.start("run", "--action", "install", "--offline")
    session.wait_for(type="stage", stage="install", app="brenna")
    session.interrupt()
    run = session.finish()
    assert run.statuses["brenna"] == "installed"
    assert run.statuses["galdivane"] == "cancelled"
    assert without_leftovers(machine)


@pytest.mark.parametrize("seed", range(6))
def test_pulling_the_plug_leaves_the_old_app_the_new_app_or_none(installation, seed):
    old = installation("1.0", "--payload", "40000000")
    old.install("--apps", "rulo")
    before = tree(old.app("rulo"))
    new = installation("2.0", "--payload", "40000000", machine=old)
    session = new.start("run", "--action", "update", "--offline", "--apps", "rulo")
    session.wait_for(type="stage", stage="install", app="rulo")
    # Not a wait: distributes the kills over the duration of an install.
    time.sleep(random.Random(seed).uniform(0.0, 1.2))
    session.kill()
    session.finish()

    left = tree(new.app("rulo")) if new.app("rulo").exists() else None
    after = new.install("--apps", "rulo")
    assert after.statuses["rulo"] in ("installed", "skipped")
    complete = tree(new.app("rulo"))
    assert left in (None, before, complete)
    assert without_leftovers(new)


@pytest.mark.parametrize("seed", range(4))
def test_a_removal_finds_what_an_install_left_whose_plug_was_pulled(installation, seed):
    machine = installation("2.0", "--payload", "40000000")
    session = machine.start("run", "--action", "install", "--offline", "--apps", "rulo")
    session.wait_for(type="stage", stage="install", app="rulo")
    # Not a wait: distributes the kills over the duration of a copy.
    time.sleep(random.Random(seed).uniform(0.0, 0.8))
    session.kill()
    session.finish()

    assert machine.uninstall("--apps", "rulo").statuses["rulo"] in ("uninstalled", "already_absent")
    assert list(machine.applications.iterdir()) == []


@pytest.mark.parametrize("seed", range(3))
def test_pulling_the_plug_on_a_removal_leaves_the_app_or_none(installation, seed):
    machine = installation("2.0", "--payload", "40000000")
    machine.install("--apps", "rulo")
    before = tree(machine.app("rulo"))
    session = machine.start("run", "--action", "uninstall", "--apps", "rulo")
    # Not a wait: distributes the kills over the duration of a removal.
    time.sleep(random.Random(seed).uniform(0.0, 0.3))
    session.kill()
    session.finish()

    assert not machine.app("rulo").exists() or tree(machine.app("rulo")) == before
    assert {entry.name for entry in machine.applications.iterdir()} <= {"Kelo Rulo.app", ".Kelo Rulo.app.kelo-uninstall"}
    machine.install("--apps", "rulo")
    assert machine.uninstall("--apps", "rulo").statuses == {"rulo": "uninstalled"}
    assert list(machine.applications.iterdir()) == []


def test_two_engines_at_once_keep_their_log_lines_whole(installation):
    machine = installation("2.0")
    sessions = [machine.start("hello") for _ in range(4)]
    for session in sessions:
        assert session.finish().status == 0
    for line in machine.log.splitlines():
        assert line.startswith(("[", "  ")), line
    assert machine.log.count("] engine-cli launching — ") == 4


@pytest.mark.parametrize(
    "content",
    [b"[" * 50_000_000, b"", b"{", b"[]", b'{"apps":[]}', b"\xff\xfe\x00", b'{"apps":{}}' + b"\x00"],
    ids=["deep", "empty", "cut", "array", "wrong-apps", "not-utf8", "trailing-nul"],
)
def test_a_broken_configuration_costs_a_log_line_and_nothing_more(installation, content):
    machine = installation("2.0")
    (machine.resources / "installer_config.json").write_bytes(content)
    run = machine.run("hello")
    assert run.status == 0
    assert len(run.events[0]["apps"]) == len(APPS)
    assert "installer_config.json" in machine.log


def test_a_configuration_that_is_a_folder_is_unreadable(installation):
    machine = installation("2.0")
    (machine.resources / "installer_config.json").unlink()
    (machine.resources / "installer_config.json").mkdir()
    assert machine.run("hello").status == 0
    assert "InstallerConfig: Failed to read installer_config.json" in machine.log


def test_a_package_name_cannot_leave_its_folder(installation):
    machine = installation("2.0")

    def escape(index):
        for entry in index.values():
            entry["destination"] = "../../../../escaped.dmg"

    machine.manifest(escape)
    run = machine.install("--apps", "brenna")
    assert run.statuses == {"brenna": "installed"}  # without an entry: installed with a warning
    assert "No checksum entry for brenna_installer.dmg — integrity check skipped" in machine.log


def test_garbage_instead_of_an_image_is_a_failed_install(installation):
    machine = installation("2.0")
    (machine.packages / "packages.json").unlink()
    (machine.packages / "brenna_installer.dmg").write_bytes(b"not an image" * 1000)
    run = machine.install("--apps", "brenna,rulo")
    assert run.statuses == {"brenna": "failed", "rulo": "installed"}
    assert "hdiutil attach failed with exit code" in machine.log
    assert without_leftovers(machine)


def test_every_line_of_a_failing_run_is_json(installation):
    machine = installation("2.0")
    (machine.packages / "brenna_installer.dmg").unlink()
    run = machine.install("--apps", "brenna")
    assert all(json.loads(line) for line in run.output.splitlines() if line.startswith("{"))
    assert run.done["exitCode"] == run.status == 2
