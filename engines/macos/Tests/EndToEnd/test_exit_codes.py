"""Every exit code from real unattended runs, with the summary."""

import re
import socket

import pytest
from support import APPS, IDENTIFIERS

ENTRY = re.compile(r'  app="(?P<name>.*?)" status=(?P<status>\w+)(?: detail="(?P<detail>.*)")?$')
DENIED = ("permission denied. On macOS 13+, grant App Management permission in System Settings → "
          "Privacy & Security → App Management.")


def summary(machine):
    """The last summary in the log, without times and source locations."""
    lines = [re.sub(r"^\[[^]]*\] \[[^]]*\] ", "", line) for line in machine.log.splitlines()]
    last = max(number for number, line in enumerate(lines) if line.startswith("--- SILENT RUN SUMMARY "))
    return lines[last : lines.index("--- END SUMMARY ---", last)]


def silent(machine, action, *arguments):
    """Runs to the end; returns the exit status, the summary's app -> status, and its note."""
    run = machine.run("--silent", "--mode", action, *arguments)
    assert run.events == []
    opening, *entries = summary(machine)
    assert opening == f"--- SILENT RUN SUMMARY action={action} exit_code={run.status} ---"
    found = [match.groupdict() for match in map(ENTRY.match, entries) if match]
    notes = [line for line in entries if not ENTRY.match(line)]
    machine.details = {entry["name"].removeprefix("Kelo ").lower(): entry["detail"] for entry in found}
    return (run.status, {entry["name"].removeprefix("Kelo ").lower(): entry["status"] for entry in found},
            notes[0] if notes else None)


def lock(machine, app):
    """Makes a folder in the installed app unwritable, so that a removal needs an administrator."""
    locked = machine.app(app) / "Contents/Locked"
    locked.mkdir()
    (locked / "file").write_text("x")
    locked.chmod(0o555)


@pytest.fixture
def closed_port():
    """A port of this machine without a listener."""
    with socket.socket() as holder:
        holder.bind(("127.0.0.1", 0))
        yield holder.getsockname()[1]


@pytest.fixture
def online_without_network(installation, closed_port):
    """version -> an online installer on a machine without a network."""

    def make(version="2.0"):
        machine = installation(version)
        for package in machine.packages.iterdir():
            package.unlink()
        machine.packages.rmdir()
        machine.settings(hostAddresses={"www.kelo.example": f"127.0.0.1:{closed_port}"})
        return machine

    return make


# 0: every app reached its goal, or there was nothing to do.

def test_0_when_all_are_installed(installation):
    assert silent(installation("2.0"), "install") == (0, dict.fromkeys(APPS, "installed"), None)


def test_0_when_all_are_current_and_the_summary_still_says_installed(installation):
    machine = installation("2.0")
    silent(machine, "install")
    assert silent(machine, "install") == (0, dict.fromkeys(APPS, "installed"), None)
    assert machine.log.count("is already installed (same version) — skipping") == len(APPS)


def test_0_when_all_are_removed_and_when_none_was_there(installation):
    machine = installation("2.0")
    silent(machine, "install", "--apps", "rulo")
    assert silent(machine, "uninstall", "--apps", "rulo,tolvi") == (
        0, {"rulo": "uninstalled", "tolvi": "already_absent"}, None)


def test_0_when_a_copy_of_the_store_is_left_alone(installation):
    machine = installation("2.0", "--variant", "rulo=app-store")
    silent(machine, "install", "--apps", "rulo")
    assert silent(machine, "uninstall", "--apps", "rulo") == (0, {"rulo": "skipped"}, None)
    assert machine.app("rulo").is_dir() and machine.details["rulo"]


# 1: some failed and some succeeded.

def test_1_when_one_package_is_not_what_was_promised(installation):
    machine = installation("2.0", "--variant", "tolvi=wrong-digest")
    assert silent(machine, "install", "--strict", "no") == (1, {**dict.fromkeys(APPS, "installed"), "tolvi": "failed"}, None)


def test_1_when_one_removal_is_denied_and_another_succeeds(installation):
    machine = installation("2.0")
    silent(machine, "install", "--apps", "rulo,tolvi")
    lock(machine, "rulo")
    assert silent(machine, "uninstall", "--apps", "rulo,tolvi") == (1, {"rulo": "failed", "tolvi": "uninstalled"}, None)


# 2: nothing succeeded; strict and something failed; expired.

def test_2_when_nothing_succeeds(installation):
    machine = installation("2.0", "--variant", "rulo=not-an-image")
    assert silent(machine, "install", "--apps", "rulo") == (2, {"rulo": "failed"}, None)


def test_2_when_strict_and_one_fails(installation):
    machine = installation("2.0", "--variant", "tolvi=wrong-digest")
    assert silent(machine, "install", "--apps", "rulo,tolvi", "--strict", "TRUE") == (
        2, {"rulo": "installed", "tolvi": "failed"}, None)


EXPIRED = "This installer expired on 2020-01-31. Download a current installer from https://www.kelo.example/desk/."


def test_2_when_the_installer_has_expired(installation):
    machine = installation("2.0")
    machine.configuration(expiresOn={"offline": "2020-01-31"})
    assert silent(machine, "install") == (2, {}, f'  note="{EXPIRED}"')
    assert silent(machine, "uninstall") == (0, dict.fromkeys(APPS, "already_absent"), None)


def test_2_comes_before_5_when_the_installer_has_expired_and_there_is_no_network(online_without_network):
    machine = online_without_network()
    machine.configuration(expiresOn={"online": "2020-01-31"})
    assert silent(machine, "install") == (2, {}, f'  note="{EXPIRED}"')
    assert "Checking internet connectivity" not in machine.log


# 3: the command line is unusable, or no app remains.

@pytest.mark.parametrize("arguments", [["--mode", "repair"], ["--apps", "word"], ["--strict"], ["--apps"]])
def test_3_when_the_command_line_cannot_be_used(installation, arguments):
    machine = installation("2.0")
    assert machine.run("--silent", *arguments).status == 3
    assert "SILENT RUN SUMMARY" not in machine.log
    assert "engine-cli: invalid arguments: " in machine.log


@pytest.mark.parametrize("action", ["install", "uninstall"])
def test_3_when_every_app_is_excluded(installation, action):
    machine = installation("2.0")
    excluded = {app: {"primaryBundleIdentifier": IDENTIFIERS[app], "included": False} for app in APPS}
    machine.configuration(apps=excluded, expiresOn={"offline": "2020-01-31"})
    assert silent(machine, action) == (3, {}, '  note="No valid app identifiers supplied"')


# 4: like 2, and permission was denied at least once.

def test_4_when_a_removal_would_need_an_administrator(installation):
    machine = installation("2.0")
    silent(machine, "install", "--apps", "rulo")
    lock(machine, "rulo")
    assert silent(machine, "uninstall", "--apps", "rulo") == (4, {"rulo": "failed"}, None)
    assert machine.details["rulo"] == f"Cannot remove Kelo Rulo: {DENIED}"
    assert (machine.app("rulo") / "Contents/Locked/file").read_text() == "x"


def test_4_when_strict_and_one_removal_is_denied(installation):
    machine = installation("2.0")
    silent(machine, "install", "--apps", "rulo,tolvi")
    lock(machine, "rulo")
    assert silent(machine, "uninstall", "--apps", "rulo,tolvi", "--strict", "true") == (
        4, {"rulo": "failed", "tolvi": "uninstalled"}, None)


def test_4_when_an_install_is_denied_what_it_needs(installation):
    machine = installation("2.0")
    (machine.resources / "programs/hdiutil").chmod(0o644)
    assert silent(machine, "install", "--apps", "rulo") == (4, {"rulo": "failed"}, None)
    assert "permission" in machine.details["rulo"].lower()


# 5: an online install found no network before it began.

def test_5_when_an_online_install_finds_no_network(online_without_network):
    machine = online_without_network()
    assert silent(machine, "install") == (5, {}, '  note="No internet connection"')


def test_a_removal_needs_no_network(online_without_network, installation):
    machine = online_without_network()
    silent(installation("2.0", machine=machine), "install", "--apps", "rulo")
    assert silent(machine, "uninstall", "--apps", "rulo") == (0, {"rulo": "uninstalled"}, None)
