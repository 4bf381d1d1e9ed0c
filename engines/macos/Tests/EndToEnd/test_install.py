"""Installing, updating and removing with disk images beside the installer, mostly without failures."""

import json
import subprocess

import pytest
from support import APPS, BUNDLES, IMAGES, NAMES, VERSION, tree, without_leftovers


def expected_events(app, index, total, status, path, version):
    label = f"{NAMES[app]} ({index}/{total})"

    def entering(stage):
        return {"v": 1, "type": "stage", "app": app, "stage": stage, "index": index, "total": total}

    def progress(percent, indeterminate, code):
        return {"v": 1, "type": "progress", "app": app, "percent": percent, "indeterminate": indeterminate,
                "detailCode": code}

    def log(message):
        return {"v": 1, "type": "log", "level": "info", "message": message}

    return [
        entering("download"),
        progress(0, False, "DOWNLOADING"),
        log(f"Preparing {label}..."),
        progress(0, False, "DOWNLOADING"),
        log(f"Found {label}"),
        progress(50, False, "DOWNLOADING"),
        log(f"Verifying {label}..."),
        entering("verify"),
        progress(85, True, "VERIFYING"),
        log(f"Installing {label}..."),
        entering("install"),
        progress(95, True, "INSTALLING"),
        log(f"{NAMES[app]} installed successfully"),
        {"v": 1, "type": "app-result", "app": app, "status": status, "errorCode": None,
         "installedPath": str(path), "installedVersion": version},
    ]


def test_installs_all_apps_with_every_event_in_its_order(installation):
    machine = installation("2.0")
    run = machine.install()

    wanted = []
    for index, app in enumerate(APPS, start=1):
        wanted += expected_events(app, index, 4, "installed", machine.app(app), "2.0")
    assert run.events[:-1] == wanted
    assert run.done == {
        "v": 1, "type": "done", "action": "install", "exitCode": 0,
        "results": [
            {"v": 1, "type": "app-result", "app": app, "status": "installed",
             "installedPath": str(machine.app(app)), "installedVersion": "2.0"}
            for app in APPS
        ],
    }
    assert run.status == 0
    assert run.errors == ""
    assert without_leftovers(machine)


def test_only_the_logger_speaks_among_the_events(installation):
    run = installation("2.0").install("--apps", "brenna")
    assert [line for line in run.other_lines if not line.startswith("Created log directory: ")] == []


def test_slashes_go_out_escaped(installation):
    run = installation("2.0").install("--apps", "brenna")
    assert "\\/Applications\\/Brenna.app" in run.output
    assert "/Applications" not in run.output.replace("\\/", "")  # every slash in the events is escaped


def test_the_installed_bundle_is_the_images_bundle(installation):
    machine = installation("2.0")
    attached = machine.program(
        "hdiutil", "attach", machine.packages / IMAGES["galdivane"], "-nobrowse", "-noverify", "-readonly", "-plist")
    assert attached.returncode == 0, attached.stderr
    (mount,) = machine.mounted()
    original = tree(machine.volumes / mount / "Kelo Galdivane.app")
    detached = machine.program("hdiutil", "detach", machine.volumes / mount, "-force", "-quiet")
    assert detached.returncode == 0 and machine.mounted() == []

    machine.install("--apps", "galdivane")
    assert tree(machine.app("galdivane")) == original
    kinds = {entry[0] for entry in original.values()}
    assert kinds == {"dir", "link", "file"}
    assert any("'" in name for name in original) and any(" " in name for name in original)
    assert any(not name.isascii() for name in original)
    assert any(entry[0] == "file" and entry[1] for entry in original.values())


def test_update_replaces_older_copies(installation):
    old = installation("1.0")
    assert old.install().status == 0
    new = installation("2.0", machine=old)
    run = new.run("run", "--action", "UPDATE", "--offline")
    assert run.status == 0
    assert run.done["action"] == "update"
    assert run.statuses == dict.fromkeys(APPS, "updated")
    assert {event["installedVersion"] for event in run.of_type("app-result")} == {"2.0"}
    assert "DMGInstaller: Upgrading Kelo Rulo from v1.0 to v2.0" in new.log


def test_a_second_run_skips_everything(installation):
    machine = installation("2.0")
    machine.install()
    before = {app: tree(machine.app(app)) for app in APPS}
    run = machine.install()
    assert run.status == 0
    assert run.statuses == dict.fromkeys(APPS, "skipped")
    assert {event["installedVersion"] for event in run.of_type("app-result")} == {"2.0"}
    assert {app: tree(machine.app(app)) for app in APPS} == before


def test_an_older_installer_downgrades_nothing(installation):
    new = installation("2.0")
    new.install("--apps", "tolvi")
    old = installation("1.0", machine=new)
    run = old.install("--apps", "tolvi")
    assert (run.status, run.statuses) == (0, {"tolvi": "skipped"})
    assert run.of_type("app-result")[0]["installedVersion"] == "2.0"
    assert "DMGInstaller: Kelo Tolvi v2.0 is newer than installer v1.0 — skipping downgrade" in new.log


def test_uninstall_removes_all_and_then_finds_nothing(installation):
    machine = installation("2.0")
    machine.install()
    run = machine.uninstall()
    assert run.status == 0
    wanted = []
    for index, app in enumerate(APPS, start=1):
        wanted += [
            {"v": 1, "type": "stage", "app": app, "stage": "uninstall", "index": index, "total": len(APPS)},
            {"v": 1, "type": "progress", "app": app, "percent": 100, "indeterminate": True,
             "detailCode": "UNINSTALLING"},
            {"v": 1, "type": "app-result", "app": app, "status": "uninstalled", "errorCode": None,
             "installedPath": None, "installedVersion": None},
        ]
    assert run.events[:-1] == wanted
    assert run.done == {
        "v": 1, "type": "done", "action": "uninstall", "exitCode": 0,
        "results": [{"v": 1, "type": "app-result", "app": app, "status": "uninstalled"} for app in APPS],
    }
    assert list(machine.applications.iterdir()) == []
    again = machine.uninstall()
    assert (again.status, again.statuses) == (0, dict.fromkeys(APPS, "already_absent"))


def test_the_order_of_the_list_is_the_order_of_the_run(installation):
    run = installation("2.0").install("--apps", " Rulo,,brenna")
    assert [event["app"] for event in run.of_type("app-result")] == ["rulo", "brenna"]


def test_naming_an_app_twice_installs_it_twice(installation):
    run = installation("2.0").install("--apps", "rulo,rulo")
    assert [event["status"] for event in run.of_type("app-result")] == ["installed", "skipped"]
    assert run.status == 0


def test_offline_is_chosen_by_the_packages_alone(installation):
    machine = installation("2.0")
    run = machine.run("run", "--action", "install", "--apps", "brenna")
    assert run.status == 0
    assert "engine-cli: offline mode (bundled packages detected)" in machine.log
    machine.run("run", "--action", "install", "--apps", "brenna", "--offline")
    assert "engine-cli: offline mode (--offline flag)" in machine.log


def test_hello_tells_what_is_installed_and_what_is_offered(installation):
    old = installation("1.0")
    old.install("--apps", "brenna,rulo")
    new = installation("2.0", machine=old)
    run = new.run("hello")
    assert run.status == 0
    hello, done = run.events
    assert set(hello) == {"v", "type", "engineVersion", "protocolVersion", "platform", "mode", "capabilities",
                          "helpUrl", "feedbackUrl", "apps"}
    assert (hello["engineVersion"], hello["protocolVersion"], hello["platform"], hello["mode"]) == (
        VERSION, 1, "macos", "offline")
    assert hello["capabilities"][:6] == ["install", "update", "uninstall", "check-updates", "offline", "export-logs"]
    rows = {row["id"]: row for row in hello["apps"]}
    assert list(rows) == APPS
    assert (rows["brenna"]["installedVersion"], rows["brenna"]["latestVersion"]) == ("1.0", "2.0")
    assert rows["brenna"]["updateAvailable"] is True and rows["brenna"]["source"] == "direct"
    assert rows["brenna"]["installedPath"] == str(new.app("brenna"))
    assert rows["tolvi"]["updateAvailable"] is False
    assert rows["tolvi"]["installedVersion"] is None and rows["tolvi"]["source"] is None
    assert "installedPath" not in rows["tolvi"] and "releaseNotes" not in rows["tolvi"]
    assert rows["tolvi"]["sizeBytes"] == (new.packages / "tolvi_installer.dmg").stat().st_size
    assert rows["tolvi"]["requiredBytes"] > rows["tolvi"]["sizeBytes"]
    assert done == {"v": 1, "type": "done", "action": "hello", "exitCode": 0}


def test_disk_free_measures_the_nearest_existing_parent(installation):
    machine = installation("2.0")
    asked = f"{machine.root}/not/yet/there"
    run = machine.run("disk-free", "--path", asked)
    result, done = run.events
    assert result["path"] == asked
    assert isinstance(result["freeBytes"], int) and result["freeBytes"] > 0
    assert done == {"v": 1, "type": "done", "action": "disk-free", "exitCode": 0}
    assert machine.run("disk-free").events[0]["path"] == str(machine.applications)


def test_an_app_is_found_by_its_registration_under_another_name(installation):
    old = installation("1.0")
    old.install("--apps", "rulo")
    moved = old.applications / "Rulo renamed.app"
    subprocess.run(["mv", str(old.app("rulo")), str(moved)], check=True)
    assert old.program("lsregister", "-f", moved).returncode == 0
    new = installation("2.0", machine=old)
    run = new.install("--apps", "rulo")
    assert run.status == 0
    assert not moved.exists() and new.app("rulo").is_dir()
    assert f"DMGInstaller: Removing existing copy at {moved}" in new.log


def test_a_quarantined_copy_is_released_after_the_check(installation):
    machine = installation("2.0")
    machine.install("--apps", "brenna")
    listed = machine.program("xattr", "-l", machine.app("brenna"))
    assert b"com.apple.quarantine" not in listed.stdout


def test_export_logs_gives_an_archive(installation):
    machine = installation("2.0")
    machine.install("--apps", "brenna")
    out = machine.root / "exports"
    run = machine.run("export-logs", "--out", str(out))
    result, done = run.events
    assert (run.status, result["errorCode"], done["exitCode"]) == (0, None, 0)
    listing = subprocess.run(["/usr/bin/python3", "-m", "zipfile", "-l", result["path"]], capture_output=True, text=True)
    for entry in ("webinstall.log", "manifest.txt", "error-summary.txt"):
        assert entry in listing.stdout


def test_an_unattended_run_gives_an_exit_status_and_a_summary(installation):
    machine = installation("2.0")
    run = machine.run("--silent", "--mode", "install", "--apps", "brenna,rulo")
    assert (run.status, run.events) == (0, [])
    assert "--- SILENT RUN SUMMARY action=install exit_code=0 ---" in machine.log
    assert '  app="Kelo Brenna" status=installed' in machine.log
    run = machine.run("--silent", "--mode", "uninstall", "--verbose")
    assert run.status == 0
    assert run.errors.startswith("Kelo Desk Apps Installer — verbose mode\n")
    assert f"SilentRunner: Uninstalling {', '.join(APPS)}" in run.errors


@pytest.mark.parametrize("app", APPS)
def test_every_app_installs_alone(installation, app):
    run = installation("2.0").install("--apps", app)
    assert (run.status, run.statuses) == (0, {app: "installed"})


def test_the_bundle_names_are_the_catalogs(installation):
    machine = installation("2.0")
    machine.install()
    assert sorted(entry.name for entry in machine.applications.iterdir()) == sorted(BUNDLES.values())


def test_events_are_one_json_object_per_line(installation):
    machine = installation("2.0")
    first, *lines = machine.install("--apps", "brenna").output.splitlines()
    assert first == f"Created log directory: {machine.log_file.parent}"
    events = [json.loads(line) for line in lines]
    assert {event["v"] for event in events} == {1} and events[-1]["type"] == "done"
