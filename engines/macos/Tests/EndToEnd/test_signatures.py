"""Only verified apps are installed: real signatures, verified by the lab's codesign."""

import json
import os
import shutil

import pytest
from support import TEAM, lab, tree, without_leftovers

REFUSED = "Kelo Rulo could not be verified as genuine and was not installed."
NAME = "Kelo Rulo.app"


def test_a_genuine_package_is_proved_twice_and_installed(signed):
    machine = signed()
    run = machine.install()
    assert run.status == 0, machine.log
    assert set(run.statuses.values()) == {"installed"}
    assert machine.log.count(f"Signature requirement output for {NAME}") == 2
    assert "SKIPPED" not in machine.log
    vouched = machine.program("codesign", "-d", "-vv", machine.app("rulo"))
    assert TEAM in (vouched.stdout + vouched.stderr).decode()


def test_an_empty_team_identifier_is_announced_each_time(signed):
    machine = signed()
    machine.configuration(expectedSigningTeamId="")
    assert machine.install("--apps", "rulo").status == 0
    skipped = (f"Signature requirement check SKIPPED for {NAME} — expectedSigningTeamId is empty in installer_config.json. "
               "A release build must never ship in this state.")
    assert machine.log.count("[WARN]") >= 2 and machine.log.count(skipped) == 2


def change_a_resource(app):
    (app / "Contents/Resources/What's new.txt").write_text("something else")


def add_a_file(app):
    (app / "Contents/Resources/added.txt").write_text("added")


def remove_a_file(app):
    (app / "Contents/Resources/Überblick – résumé.txt").unlink()


def change_a_link(app):
    (link,) = [path for path in (app / "Contents/Resources").iterdir() if path.is_symlink()][:1]
    link.unlink()
    link.symlink_to("tools/report")


def change_the_executable(app):
    executable = app / "Contents/MacOS/Kelo Rulo"
    executable.write_text(executable.read_text() + "\necho owned\n")


def swap_nested_code(app):
    helper = app / "Contents/Helpers/Kelo Rulo Helper.app/Contents/MacOS/Kelo Rulo Helper"
    helper.write_text("#!/bin/sh\necho owned\n")


def drop_the_seal(app):
    shutil.rmtree(app / "Contents/_CodeSignature")


@pytest.mark.parametrize("spoil", [change_a_resource, add_a_file, remove_a_file, change_a_link, change_the_executable,
                                   swap_nested_code, drop_the_seal], ids=lambda spoil: spoil.__name__)
def test_a_broken_seal_is_refused_before_anything_is_copied(signed, repackage, spoil):
    machine = signed()
    repackage(machine, spoil)
    run = machine.install("--apps", "rulo")
    assert (run.status, run.codes) == (2, {"rulo": "SIGNATURE_FAILED"})
    assert f"InstallOrchestrator: Kelo Rulo failed: {REFUSED}" in machine.log
    assert list(machine.applications.iterdir()) == [] and without_leftovers(machine)


@pytest.mark.parametrize("variant", ["wrong-team", "self-signed", "ad-hoc", "expired", "not-yet-valid"])
def test_another_signer_is_refused(signed, repackage, variant):
    machine = signed()
    repackage(machine, variant=variant)
    assert machine.install("--apps", "rulo").codes == {"rulo": "SIGNATURE_FAILED"}
    assert f"DMGInstaller: {NAME} in the DMG for Kelo Rulo does not satisfy the signing requirement — refusing to install it" in machine.log
    assert list(machine.applications.iterdir()) == []


def test_swapped_nested_code_is_refused_though_the_same_team_signed_it(signed, repackage, authority):
    def swap(app):
        helper = app / "Contents/Helpers/Kelo Rulo Helper.app"
        (helper / "Contents/MacOS/Kelo Rulo Helper").write_text("#!/bin/sh\necho an older, weaker helper\n")
        lab("lab-sign", "sign", "--authority", authority, helper)

    machine = signed()
    repackage(machine, swap)
    assert machine.install("--apps", "rulo").codes == {"rulo": "SIGNATURE_FAILED"}
    assert "Kelo Rulo Helper.app: isn't the code that was sealed" in machine.log
    assert list(machine.applications.iterdir()) == []


def test_a_bundle_that_expired_without_a_timestamp_is_tolerated_and_told(signed, repackage):
    machine = signed()
    repackage(machine, variant="expired-unstamped")
    assert machine.install("--apps", "rulo").statuses == {"rulo": "installed"}
    assert machine.log.count("its certificate has expired and there is no secure timestamp") == 2


def test_an_unsigned_bundle_is_refused(signed, repackage):
    machine = signed()
    repackage(machine, sign=False)
    assert machine.install("--apps", "rulo").codes == {"rulo": "SIGNATURE_FAILED"}


def test_a_test_authority_that_the_host_does_not_name_is_worth_nothing(signed):
    machine = signed()
    machine.settings(testAuthority=None)
    assert machine.install("--apps", "rulo").codes == {"rulo": "SIGNATURE_FAILED"}


def test_a_refused_package_leaves_the_old_copy_alone(signed, repackage):
    old = signed("1.0")
    old.install("--apps", "rulo")
    before = tree(old.app("rulo"))
    new = signed("2.0", machine=old)
    repackage(new, change_a_resource)
    assert new.install("--apps", "rulo").codes == {"rulo": "SIGNATURE_FAILED"}
    assert tree(new.app("rulo")) == before


def test_a_copy_that_is_altered_before_the_second_check_is_removed(signed):
    machine = signed()
    programs = machine.resources / "programs"
    os.rename(programs / "codesign", programs / "codesign-itself")
    # Changes the copy between copying and verification.
    (programs / "codesign").write_text(
        "#!/bin/sh\n"
        f'for path; do :; done\ncase "$path" in {machine.applications}/*) echo x >>"$path/Contents/Resources/payload.bin" ;; esac\n'
        f'exec "{programs}/codesign-itself" "$@"\n')
    (programs / "codesign").chmod(0o755)
    run = machine.install("--apps", "rulo")
    assert (run.status, run.codes) == (2, {"rulo": "SIGNATURE_FAILED"})
    assert list(machine.applications.iterdir()) == [] and without_leftovers(machine)
    assert f"DMGInstaller: the installed copy at {machine.app('rulo')} does not satisfy the signing requirement" in machine.log


def test_a_codesign_that_cannot_be_started_is_a_no(signed):
    machine = signed()
    (machine.resources / "programs/codesign").unlink()
    assert machine.install("--apps", "rulo").codes == {"rulo": "SIGNATURE_FAILED"}
    assert "Error evaluating the signing requirement: " in machine.log


def test_the_events_of_a_refusal_name_no_reason_and_the_log_does(signed, repackage):
    machine = signed()
    repackage(machine, add_a_file)
    run = machine.install("--apps", "rulo")
    assert "verified as genuine" not in json.dumps(run.events)
    assert "added.txt" in machine.log  # codesign's words
