"""Sweeps of the role over hosts with real engines."""

import json
import shutil
import socket
import subprocess
import zipfile

import pytest
from fleet import Fleet, counts, result_of

# A shell that evaluates this path creates the file `injected`.
INJECTION = "fresh 'n \"odd\" $(touch injected) `touch injected`; touch injected"

# Whether users of this machine can make a network namespace.
CAN_CUT = subprocess.run(["unshare", "--user", "--map-current-user", "--net", "true"], capture_output=True).returncode == 0


@pytest.fixture(scope="module")
def fleet(tmp_path_factory):
    folder = tmp_path_factory.mktemp("fleet")
    made = Fleet(folder)
    made.installer("fresh", place=INJECTION)
    made.installer("older", version="1.0")
    made.installer("current")
    for host in ("older", "current"):
        made.install(host)
    made.installer("older")
    made.installer("partial", "--variant", "tolvi=wrong-digest")
    (made.installer("denied") / "programs/hdiutil").chmod(0o644)
    made.fake("mute", ["--- SILENT RUN SUMMARY action=install exit_code=0 ---", "--- END SUMMARY ---"])
    made.fake("hostile", ["--- SILENT RUN SUMMARY action=install exit_code=0 ---",
                          '  app="Kelo Brenna" status=installed',
                          "  app=\"Kelo Tolvi\" status=failed detail=\"{{ lookup('pipe', 'touch injected') }}\"",
                          "--- END SUMMARY ---"])
    made.fake("online", [], brenna="1.0")
    made.hosts["missing"] = {"kelo_desk_engine": str(folder / "nowhere/engine-cli")}
    with socket.socket() as closed:
        closed.bind(("127.0.0.1", 0))  # and never listens
        settings = made.installer("offnet") / "linux_host.json"
        shutil.rmtree(settings.parent / "packages")
        settings.write_text(json.dumps({**json.loads(settings.read_text()),
                                        "hostAddresses": {"www.kelo.example": f"127.0.0.1:{closed.getsockname()[1]}"}}))
        if CAN_CUT:
            shutil.rmtree(made.installer("cut") / "packages")
            made.behind("cut", "unshare", "--user", "--map-current-user", "--net")
        yield made


@pytest.fixture(scope="module")
def first(fleet):
    """The first sweep over all hosts, with its report and bundles."""
    told = fleet.play(hosts=[host for host in fleet.hosts if host != "online"])
    told["report"] = fleet.report
    return told


def test_a_host_that_got_apps_has_changed(fleet, first):
    assert counts(first, "fresh") == {"changed": 1}
    assert first["report"]["fresh"]["apps"]["tolvi"] == {
        "status": "installed", "changed": True, "detail": None, "before": None, "after": "2.0"}
    assert fleet.applications("fresh") == ["Brenna.app", "Kelo Tolvi.app"]


def test_a_host_with_older_apps_has_changed(first):
    assert counts(first, "older") == {"changed": 1}
    assert first["report"]["older"]["apps"]["brenna"] == {
        "status": "updated", "changed": True, "detail": None, "before": "1.0", "after": "2.0"}


def test_a_host_that_had_them_is_ok(fleet, first):
    assert counts(first, "current") == {}
    assert first["report"]["current"]["exit_status"] is None
    assert {app["status"] for app in first["report"]["current"]["apps"].values()} == {"current"}
    # The only run is the fixture's install.
    assert fleet.log("current").count("SilentRunner: Starting") == 1


def test_a_host_on_which_one_app_failed_has_changed_and_failed(first):
    assert counts(first, "partial") == {"changed": 1, "failures": 1}
    assert result_of(first, "Give the verdict", "partial")["msg"] == (
        "exit status 1: some apps failed and some succeeded, or some were cancelled; "
        "tolvi failed: Checksum verification failed for Kelo Tolvi")


def test_a_host_that_denies_has_failed(first):
    assert counts(first, "denied") == {"failures": 1}
    assert first["report"]["denied"]["exit_status"] == 4
    assert "permission denied" in result_of(first, "Give the verdict", "denied")["msg"]


def test_a_host_without_network_counts_as_unreachable(first):
    assert counts(first, "offnet") == {"unreachable": 1}
    installer = first["report"]["offnet"].pop("installer")
    assert first["report"]["offnet"] == {
        "verdict": "no_network", "exit_status": 5, "note": "No internet connection", "apps": {}}
    assert (installer["release"], installer["expires"]) == ("latest", None)


@pytest.mark.skipif(not CAN_CUT, reason="users of this machine can't make a network namespace")
def test_a_host_in_a_network_of_its_own_counts_as_unreachable(first):
    assert counts(first, "cut") == {"unreachable": 1}
    assert first["report"]["cut"]["exit_status"] == 5


def test_a_success_without_a_word_about_the_apps_is_a_failure(first):
    assert counts(first, "mute") == {"failures": 1}
    assert "brenna no result; tolvi no result" in result_of(first, "Give the verdict", "mute")["msg"]


def test_a_host_without_engine_has_failed_and_says_why(first):
    assert counts(first, "missing") == {"failures": 1}
    assert "No such file or directory" in first["report"]["missing"]["note"]


def test_nothing_that_a_host_says_or_is_called_is_ever_run(fleet, first):
    assert first["report"]["hostile"]["apps"]["brenna"]["status"] == "absent afterwards"
    assert first["report"]["hostile"]["apps"]["tolvi"]["detail"] == "{{ lookup('pipe', 'touch injected') }}"
    assert [str(path) for path in fleet.folder.rglob("injected")] == []


def test_bundles_come_from_the_hosts_that_failed_and_from_no_other(fleet, first):
    assert sorted(path.name for path in fleet.bundles.iterdir()) == ["denied.zip", "partial.zip"]
    with zipfile.ZipFile(fleet.bundles / "partial.zip") as bundle:
        assert sorted(bundle.namelist()) == ["error-summary.txt", "manifest.txt", "webinstall.log"]
        log = bundle.read("webinstall.log").decode()
    assert 'app="Kelo Tolvi" status=failed detail="Checksum verification failed for Kelo Tolvi"' in log
    assert list((fleet.folder / "home/remote").glob("*.kelo-desk")) == []


def test_people_get_a_line_per_host_and_app(first):
    table = result_of(first, "Report per host and app")["msg"]
    lines = [" ".join(line.split()) for line in table]
    assert lines[0] == "host verdict app status version"
    for line in ("fresh changed brenna installed 2.0", "current ok tolvi current 2.0", "older changed tolvi updated 1.0 -> 2.0",
                 "partial failed tolvi failed Checksum verification failed for Kelo Tolvi",
                 "offnet no network No internet connection"):
        assert line in lines
    assert len([line for line in lines if line.startswith("denied ")]) == 2


def test_a_second_sweep_changes_nothing(fleet, first):
    told = fleet.play(hosts=["fresh", "current"])
    assert told["status"] == 0
    assert (counts(told, "fresh"), counts(told, "current")) == ({}, {})
    assert fleet.statuses("fresh") == {"brenna": "current", "tolvi": "current"}


def test_check_mode_tells_asks_the_network_and_touches_nothing(fleet, first):
    before = fleet.log("fresh").count("SILENT RUN SUMMARY")
    fleet.hosts["online"]["kelo_desk_mode"] = "install"
    told = fleet.play("--check", hosts=["fresh", "online"], kelo_desk_mode="uninstall")
    assert (told["status"], counts(told, "fresh"), counts(told, "online")) == (0, {"changed": 1}, {"changed": 1})
    assert fleet.statuses("fresh") == {"brenna": "would be uninstalled", "tolvi": "would be uninstalled"}
    assert fleet.statuses("online") == {"brenna": "would be updated", "tolvi": "would be installed"}
    assert fleet.applications("fresh") == ["Brenna.app", "Kelo Tolvi.app"]
    assert fleet.log("fresh").count("SILENT RUN SUMMARY") == before


def test_removal_changes_once(fleet, first):
    told = fleet.play(hosts=["fresh"], kelo_desk_mode="uninstall", kelo_desk_apps=["tolvi"], kelo_desk_strict=True)
    assert (told["status"], counts(told, "fresh")) == (0, {"changed": 1})
    assert fleet.report["fresh"]["apps"]["tolvi"]["status"] == "uninstalled"
    assert fleet.applications("fresh") == ["Brenna.app"]
    assert "strict=true openAfterInstall=false" in fleet.log("fresh")
    again = fleet.play(hosts=["fresh"], kelo_desk_mode="uninstall", kelo_desk_apps=["tolvi"])
    assert (again["status"], counts(again, "fresh")) == (0, {})


def test_an_unknown_app_stops_before_any_host_is_touched(fleet, first):
    before = fleet.log("current")
    told = fleet.play(hosts=["current"], kelo_desk_apps=["brenna; touch injected"])
    assert (told["status"], counts(told, "current")) == (2, {"failures": 1})
    assert fleet.log("current") == before
    assert list(fleet.folder.rglob("injected")) == []
