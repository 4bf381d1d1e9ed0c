"""Wrong packages, missing rights, running apps."""

import os
import shutil
import subprocess
import time

import pytest
from support import APPS, NOBODY, RUNNING_AS_ROOT, give_away, tree, without_leftovers

needs_root = pytest.mark.skipif(not RUNNING_AS_ROOT, reason="only root can make another user's folders")


def receipt(app):
    (app / "Contents/_MASReceipt").mkdir(parents=True)
    (app / "Contents/_MASReceipt/receipt").write_bytes(b"")
    give_away(app)


def entry_of(index, image):
    (entry,) = [value for value in index.values() if value.get("destination") == image]
    return entry


def test_a_wrong_digest_stops_that_app_only(installation):
    machine = installation("2.0")
    machine.manifest(lambda index: entry_of(index, "tolvi_installer.dmg").update(checksum="0" * 64))
    run = machine.install()
    assert run.status == 1
    assert run.statuses == {app: "failed" if app == "tolvi" else "installed" for app in APPS}
    assert run.codes["tolvi"] == "VERIFY_FAILED"
    assert not machine.app("tolvi").exists()
    assert (machine.packages / "tolvi_installer.dmg").exists()  # files beside the installer are never deleted
    assert "InstallOrchestrator: Checksum failed for Kelo Tolvi" in machine.log


def test_strict_turns_one_failure_into_a_failed_run(installation):
    machine = installation("2.0")
    machine.manifest(lambda index: entry_of(index, "tolvi_installer.dmg").update(checksum="0" * 64))
    assert machine.install("--strict", "true").status == 2


def test_a_tampered_image_is_refused(installation):
    machine = installation("2.0")
    image = machine.packages / "rulo_installer.dmg"
    data = bytearray(image.read_bytes())
    data[len(data) // 2] ^= 1
    image.write_bytes(data)
    run = machine.install("--apps", "rulo")
    assert (run.status, run.codes) == (2, {"rulo": "VERIFY_FAILED"})
    assert list(machine.applications.iterdir()) == []


def test_a_missing_image_is_package_not_found(installation):
    machine = installation("2.0")
    (machine.packages / "brenna_installer.dmg").unlink()
    run = machine.install("--apps", "brenna,rulo")
    assert run.codes == {"brenna": "PACKAGE_NOT_FOUND", "rulo": None}
    assert run.status == 1


def test_an_unknown_digest_algorithm_is_refused(installation):
    machine = installation("2.0")
    machine.manifest(lambda index: entry_of(index, "rulo_installer.dmg").update(checksumAlgorithm="crc32"))
    assert machine.install("--apps", "rulo").codes == {"rulo": "VERIFY_FAILED"}


def test_without_a_manifest_everything_installs_with_a_warning(installation):
    machine = installation("2.0")
    (machine.packages / "packages.json").unlink()
    assert machine.install().status == 0
    assert "No checksum entry for rulo_installer.dmg — integrity check skipped" in machine.log


def test_an_app_store_copy_is_never_touched(installation):
    old = installation("1.0")
    old.install("--apps", "rulo")
    receipt(old.app("rulo"))
    before = tree(old.app("rulo"))
    new = installation("2.0", machine=old)
    run = new.install("--apps", "rulo")
    assert (run.status, run.codes) == (2, {"rulo": "INSTALL_FAILED"})
    removal = new.uninstall("--apps", "rulo")
    assert (removal.status, removal.statuses, removal.codes) == (0, {"rulo": "skipped"}, {"rulo": "SKIPPED"})
    assert tree(new.app("rulo")) == before
    assert new.run("hello").events[0]["apps"][2]["source"] == "appstore"


def test_a_foreign_app_store_copy_under_the_same_name_stays_beside_the_new_one(installation):
    machine = installation("2.0")
    other = machine.app("rulo")
    (other / "Contents").mkdir(parents=True)
    (other / "Contents/Info.plist").write_text(
        '<?xml version="1.0"?><plist version="1.0"><dict><key>CFBundleIdentifier</key>'
        "<string>com.kelo.rulo.fed</string></dict></plist>")
    receipt(other)
    run = machine.install("--apps", "rulo")
    assert run.status == 0
    assert run.of_type("app-result")[0]["installedPath"].endswith("/Applications/Kelo Rulo 2.app")
    assert (other / "Contents/_MASReceipt/receipt").exists()


@needs_root
def test_a_folder_that_may_not_be_written_needs_the_administrator(installation, prompt):
    machine = installation("2.0")
    os.chown(machine.applications, 0, 0)
    server = prompt(machine, "accept")
    run = machine.install()
    assert (run.status, run.statuses) == (0, dict.fromkeys(APPS, "installed"))
    assert server.prompts == 1  # one password for the escalations of all apps
    owner = machine.app("brenna").stat()
    assert (owner.st_uid, owner.st_gid) == (NOBODY, NOBODY)
    assert machine.log.count("DMGInstaller: Requesting admin privileges to install") == len(APPS)


@needs_root
def test_a_refused_prompt_installs_nothing_and_keeps_the_old_copy(installation, prompt):
    old = installation("1.0")
    old.install("--apps", "rulo")
    before = tree(old.app("rulo"))
    os.chown(old.applications, 0, 0)
    new = installation("2.0", machine=old)
    prompt(new, "dismiss")
    run = new.install("--apps", "rulo")
    assert (run.status, run.codes) == (2, {"rulo": "INSTALL_FAILED"})
    assert tree(new.app("rulo")) == before
    assert without_leftovers(new)
    assert "DMGInstaller: admin authorization dismissed by the user" in new.log


@needs_root
def test_a_refused_prompt_keeps_an_old_copy_whole_that_holds_a_folder_of_the_administrators(installation, prompt):
    old = installation("1.0")
    old.install("--apps", "rulo")
    locked = old.app("rulo") / "Contents/Locked"
    locked.mkdir()
    (locked / "file").write_text("x")
    os.chown(locked, 0, 0)
    before = tree(old.app("rulo"))
    new = installation("2.0", machine=old)
    prompt(new, "dismiss")
    run = new.install("--apps", "rulo")
    assert (run.status, run.codes) == (2, {"rulo": "INSTALL_FAILED"})
    assert tree(new.app("rulo")) == before and without_leftovers(new)
    assert "DMGInstaller: Permission denied removing existing app — will retry with admin privileges" in new.log


@needs_root
@pytest.mark.parametrize(
    "answer, status, code",
    [("dismiss", 4, "UNINSTALL_AUTH_CANCELLED"), ("deny", 4, "UNINSTALL_PERMISSION_DENIED"), ("accept", 0, None)],
)
def test_removal_from_a_folder_of_the_administrators(installation, prompt, answer, status, code):
    machine = installation("2.0")
    machine.install("--apps", "rulo")
    os.chown(machine.applications, 0, 0)
    before = tree(machine.app("rulo"))
    prompt(machine, answer)
    run = machine.uninstall("--apps", "rulo")
    assert (run.status, run.codes) == (status, {"rulo": code})
    assert (tree(machine.app("rulo")) == before) if code else not machine.app("rulo").exists()


@needs_root
def test_a_nested_folder_of_the_administrators_stops_nothing_halfway(installation, prompt):
    machine = installation("2.0")
    machine.install("--apps", "rulo")
    locked = machine.app("rulo") / "Contents/Locked"
    locked.mkdir()
    (locked / "file").write_text("x")
    locked.chmod(0o555)
    os.chown(locked, 0, 0)
    before = tree(machine.app("rulo"))

    prompt(machine, "dismiss")
    run = machine.uninstall("--apps", "rulo")
    assert (run.status, run.codes) == (4, {"rulo": "UNINSTALL_AUTH_CANCELLED"})
    assert tree(machine.app("rulo")) == before and without_leftovers(machine)

    silent = machine.run("--silent", "--mode", "uninstall", "--apps", "rulo")
    assert silent.status == 4
    assert tree(machine.app("rulo")) == before and without_leftovers(machine)


@needs_root
def test_a_silent_install_without_rights_exits_with_a_failure(installation, prompt):
    machine = installation("2.0")
    os.chown(machine.applications, 0, 0)
    server = prompt(machine, "dismiss")
    run = machine.run("--silent", "--apps", "brenna")
    assert (run.status, server.prompts) == (2, 1)
    assert 'status=failed detail="Admin credentials required to install Kelo Brenna. ' in machine.log


def launch(machine, app):
    """Starts the installed app with the lab's `open` and returns its process identifier."""
    assert machine.program("open", machine.app(app)).returncode == 0
    deadline = time.monotonic() + 30
    while time.monotonic() < deadline:
        found = subprocess.run(["pgrep", "-f", str(machine.app(app))], capture_output=True, text=True).stdout.split()
        if found:
            return int(found[0])
        time.sleep(0.05)
    raise AssertionError("the app didn't start")


def is_running(pid):
    try:
        with open(f"/proc/{pid}/stat") as stat:
            return stat.read().rsplit(")", 1)[1].split()[0] != "Z"
    except FileNotFoundError:
        return False


def test_a_running_app_is_asked_to_quit_before_it_is_replaced(installation):
    old = installation("1.0")
    old.install("--apps", "rulo")
    pid = launch(old, "rulo")
    new = installation("2.0", machine=old)
    run = new.install("--apps", "rulo")
    assert (run.status, run.statuses) == (0, {"rulo": "installed"})
    assert not is_running(pid)
    assert f"is running (pid {pid}) — sending graceful quit" in new.log
    assert "Force killing" not in new.log


def test_an_app_that_ignores_the_request_is_forced(installation):
    machine = installation("2.0", "--variant", "rulo=ignores-quit")
    machine.install("--apps", "rulo")
    pid = launch(machine, "rulo")
    run = machine.uninstall("--apps", "rulo")
    assert run.statuses == {"rulo": "uninstalled"}
    assert not is_running(pid)
    assert f"AppUninstaller: Force killing Kelo Rulo (pid {pid})" in machine.log


@needs_root
def test_a_full_disk_is_told_before_anything_is_removed(installation):
    machine = installation("2.0")
    small = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=256k,mode=777", "none", str(machine.applications)],
                           capture_output=True)
    if small.returncode != 0:
        pytest.skip("the suite can't mount a small volume on this machine")
    try:
        run = machine.install("--apps", "rulo")
        assert (run.status, run.codes) == (2, {"rulo": "INSTALL_FAILED"})
        assert "DMGInstaller: Not enough space for Kelo Rulo: needs " in machine.log
        assert list(machine.applications.iterdir()) == []
    finally:
        subprocess.run(["umount", str(machine.applications)], check=True)


def test_a_leftover_of_a_crashed_removal_is_cleared(installation):
    machine = installation("2.0")
    machine.install("--apps", "rulo")
    leftover = machine.applications / ".Kelo Rulo.app.kelo-uninstall"
    shutil.copytree(machine.app("rulo"), leftover, symlinks=True)
    give_away(leftover)
    run = machine.uninstall("--apps", "rulo")
    assert run.statuses == {"rulo": "uninstalled"}
    assert list(machine.applications.iterdir()) == []
    assert f"AppUninstaller: clearing a leftover staging path at {leftover}" in machine.log


def test_a_husk_is_cleared_and_a_foreign_bundle_is_not(installation):
    machine = installation("2.0")
    husk = machine.app("rulo")
    (husk / "Contents/MacOS").mkdir(parents=True)
    give_away(husk)
    assert machine.uninstall("--apps", "rulo").statuses == {"rulo": "uninstalled"}
    foreign = machine.app("tolvi")
    (foreign / "Contents").mkdir(parents=True)
    (foreign / "Contents/Info.plist").write_text(
        '<?xml version="1.0"?><plist version="1.0"><dict><key>CFBundleIdentifier</key>'
        "<string>org.example.other</string></dict></plist>")
    assert machine.uninstall("--apps", "tolvi").statuses == {"tolvi": "already_absent"}
    assert foreign.exists() and not husk.exists()


