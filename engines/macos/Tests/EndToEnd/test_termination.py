"""Signals to an unattended run: Ctrl-C, a service manager, a closed terminal."""

import fcntl
import os
import signal
import subprocess
import termios

import pytest
from support import HANG, Gate, unprivileged, without_leftovers

REQUESTED = "engine-cli: termination requested, cancelling the whole run"
INSTALLED = '  app="Kelo Brenna" status=installed'


@pytest.fixture
def gate():
    gates = []

    def make(machine, name):
        gates.append(Gate(machine, name))
        return gates[-1]

    yield make
    for made in gates:
        made.close()


def summary(machine):
    """The lines of the run's summary, without time and source location."""
    lines = [line.partition("] ")[2].partition("] ")[2] for line in machine.log.splitlines()]
    first = next(i for i, line in enumerate(lines) if line.startswith("--- SILENT RUN SUMMARY"))
    return lines[first:lines.index("--- END SUMMARY ---")]


@pytest.mark.parametrize("request_", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP], ids=lambda each: each.name)
def test_the_app_at_work_ends_whole_and_the_rest_is_left_out(installation, gate, request_):
    machine = installation("2.0")
    held = gate(machine, "xattr")
    session = machine.start("--silent", "--apps", "brenna,rulo", "--verbose", "--open-after-install", "true")
    held.wait()
    assert machine.mounted() == ["Kelo Brenna"]
    os.kill(session.process.pid, request_)
    session.wait_for_error(REQUESTED)
    held.open()
    run = session.finish()
    assert run.status == 1
    assert summary(machine) == ["--- SILENT RUN SUMMARY action=install exit_code=1 ---", INSTALLED,
                                '  app="Kelo Rulo" status=failed detail="cancelled"']
    assert machine.app("brenna").is_dir() and not machine.app("rulo").exists()
    assert without_leftovers(machine) and list(machine.temporary.iterdir()) == []
    assert "SilentRunner: Opening" not in machine.log
    assert machine.install("--apps", "brenna").statuses == {"brenna": "skipped"}


def test_a_request_before_anything_is_mounted_mounts_nothing_more(installation, gate):
    machine = installation("2.0")
    held = gate(machine, "hdiutil")
    session = machine.start("--silent", "--verbose")
    attaching = held.wait()
    # A service manager signals every process of the run.
    os.kill(session.process.pid, signal.SIGTERM)
    session.wait_for_error(REQUESTED)
    os.kill(attaching, signal.SIGTERM)
    run = session.finish()
    assert run.status == 2
    assert summary(machine)[1:] == [
        '  app="Kelo Brenna" status=failed detail="hdiutil attach failed with exit code 143"',
        *(f'  app="{name}" status=failed detail="cancelled"' for name in ("Kelo Tolvi", "Kelo Rulo", "Kelo Galdivane"))]
    assert list(machine.applications.iterdir()) == [] and without_leftovers(machine)


def test_a_removal_under_way_ends_and_the_next_does_not_begin(installation, gate):
    machine = installation("2.0")
    machine.install("--apps", "brenna,rulo")
    held = gate(machine, "lsregister")
    session = machine.start("--silent", "--mode", "uninstall", "--apps", "brenna,rulo")
    held.wait()
    os.kill(session.process.pid, signal.SIGTERM)
    held.open()
    run = session.finish()
    assert run.status == 1
    assert summary(machine)[1:] == ['  app="Kelo Brenna" status=uninstalled',
                                    '  app="Kelo Rulo" status=failed detail="cancelled"']
    assert not machine.app("brenna").exists() and machine.app("rulo").is_dir() and without_leftovers(machine)


def test_a_terminal_that_goes_away_ends_the_run_cleanly(installation, gate):
    machine = installation("2.0")
    held = gate(machine, "xattr")
    terminal, end = os.openpty()

    def take_terminal():
        fcntl.ioctl(end, termios.TIOCSCTTY, 0)

    process = subprocess.Popen(
        [str(machine.engine), "--silent", "--apps", "brenna,rulo", "--verbose"], stdin=end, stdout=end, stderr=end,
        cwd="/", start_new_session=True, pass_fds=[end],
        preexec_fn=take_terminal, **unprivileged())  # noqa: PLW1509 (no other thread runs)
    os.close(end)
    held.wait()
    os.close(terminal)
    machine.wait_for_log(REQUESTED)
    held.open()
    assert process.wait(timeout=HANG) == 1
    assert INSTALLED in summary(machine)
    assert machine.app("brenna").is_dir() and not machine.app("rulo").exists() and without_leftovers(machine)


def test_a_request_that_is_ignored_from_the_start_stays_ignored(installation):
    machine = installation("2.0")
    session = machine.start("--silent", "--apps", "brenna,rulo", "--verbose",
                            preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
    session.wait_for_error("SilentRunner: Starting")
    os.kill(session.process.pid, signal.SIGHUP)
    assert session.finish().status == 0
    assert REQUESTED not in machine.log


def test_a_second_request_ends_the_process_at_once(installation, gate):
    machine = installation("2.0")
    held = gate(machine, "hdiutil")
    session = machine.start("--silent", "--apps", "brenna", "--verbose")
    attaching = held.wait()
    os.kill(session.process.pid, signal.SIGTERM)
    session.wait_for_error(REQUESTED)
    os.kill(session.process.pid, signal.SIGTERM)
    os.kill(attaching, signal.SIGKILL)
    assert session.finish().status == -signal.SIGTERM
    held.open()
    assert machine.run("--silent", "--apps", "brenna").status == 0
