"""The role on several hosts, each a local connection with its own installer and machine."""

import datetime
import importlib.util
import json
import os
import shutil
import socket
import subprocess
import zipfile
from pathlib import Path

import pytest

FLEET = Path(__file__).resolve().parents[1]
BUILD = Path(os.environ.get("KELO_BUILD", "build/dev")).resolve()
PROGRAMS = BUILD / "lab/bin"
ENGINE = BUILD / "engines/macos/engine-cli"
BUNDLE = "Kelo-Desk-Installer.app"
# A shell that evaluates this path creates the file `injected`.
INJECTION = "fresh 'n \"odd\" $(touch injected) `touch injected`; touch injected"

# Whether this machine lets users have an empty network namespace.
CAN_CUT = subprocess.run(["unshare", "--user", "--map-current-user", "--net", "true"], capture_output=True).returncode == 0


class Fleet:
    """Hosts by name, the last report, and runs of the playbook."""

    def __init__(self, folder):
        self.folder = folder
        shutil.copytree(FLEET, folder / "fleet", ignore=shutil.ignore_patterns("Tests"))
        (folder / "home").mkdir()
        self.hosts = {}
        self.bundles = folder / "bundles"
        self.report_file = folder / "report.json"

    def installer(self, host, *options, place=None, version="2.0"):
        place = self.folder / (place or host)
        subprocess.run([PROGRAMS / "lab-fixture", "offline-installer", "--engine", ENGINE, "--programs", PROGRAMS,
                        "--machine", place / "machine", "--version", version, "--apps", "brenna,tolvi",
                        "--output", place, *options], check=True, capture_output=True)
        self.hosts[host] = {"kelo_desk_engine": str(place / BUNDLE / "Contents/MacOS/engine-cli")}
        return place / BUNDLE / "Contents/Resources"

    def fake(self, host, silent, brenna=None, offers=None, source="direct", retired=False):
        """A host with a fake engine, which records its command lines. `silent` is the log of an unattended run, `brenna` and
        `source` the version and source of its only app, `offers` app -> version on the CDN."""
        place = self.folder / host
        place.mkdir()
        rows = [{"id": "brenna", "displayName": "Kelo Brenna", "installedVersion": brenna, "source": brenna and source,
                 "installedPath": brenna and "/Applications/Brenna.app", "updateAvailable": False},
                {"id": "tolvi", "displayName": "Kelo Tolvi", "installedVersion": None, "updateAvailable": False}]
        offers = {"brenna": "2.0", "tolvi": "2.0"} if offers is None else offers
        news = [{"id": app, "latestVersion": offers.get(app),
                 "updateAvailable": app == "brenna" and bool(brenna) and offers.get(app, brenna) > brenna} for app in ("brenna", "tolvi")]
        verdict = {"installerRetired": {"reason": "expired"}} if retired else {}
        said = {"hello": "a line that isn't JSON\n" + json.dumps({"type": "hello", "engineVersion": "7.8", "mode": "online",
                                                                    "apps": rows, **verdict}),
                "check-updates": json.dumps({"type": "update-check-result", "apps": news}),
                "--silent": "".join(f"[2026-01-02 03:04:05.678] {line}\n" for line in silent)}
        for command, text in said.items():
            (place / command).write_text(text + "\n")
        engine = place / "engine-cli"
        engine.write_text(f'#!/bin/sh\necho "$*" >>"{place}/started"\n[ "$1" = --silent ] && exec >&2\n'
                          f'[ -e "{place}/$1" ] && cat -- "{place}/$1"\n')
        engine.chmod(0o755)
        self.hosts[host] = {"kelo_desk_engine": str(engine)}

    def runs(self, host):
        """The apps of the unattended runs of a fake engine."""
        lines = (self.folder / host / "started").read_text().splitlines()
        return [line.split()[5] for line in lines if line.startswith("--silent")]

    def behind(self, host, *command):
        """Starts the host's engine with a command."""
        engine = Path(self.hosts[host]["kelo_desk_engine"])
        wrapper = self.folder / f"{host}-engine"
        wrapper.write_text(f'#!/bin/sh\nexec {" ".join(command)} {engine} "$@"\n')
        wrapper.chmod(0o755)
        self.hosts[host] = {"kelo_desk_engine": str(wrapper)}

    def install(self, host):
        subprocess.run([self.hosts[host]["kelo_desk_engine"], "--silent", "--apps", "brenna,tolvi"], check=True,
                       capture_output=True)

    def log(self, host):
        log = Path(self.hosts[host]["kelo_desk_engine"]).parents[3] / "machine/Library/Logs/Kelo-Desk-Installer/webinstall.log"
        return log.read_text() if log.exists() else ""

    def applications(self, host):
        place = Path(self.hosts[host]["kelo_desk_engine"]).parents[3] / "machine/Applications"
        return sorted(entry.name for entry in place.iterdir())

    def play(self, *arguments, hosts=None, batches=None, **variables):
        """Runs the playbook. Returns its exit status, and the result of each task on each host."""
        if batches:
            arguments = (*arguments, "-e", json.dumps({"kelo_desk_batches": batches}))
        inventory = self.folder / "inventory.json"
        inventory.write_text(json.dumps({"kelo_desks": {
            "vars": {"ansible_connection": "local", "ansible_python_interpreter": "/usr/bin/python3",
                     "kelo_desk_apps": ["brenna", "tolvi"], "kelo_desk_report": str(self.report_file),
                     "kelo_desk_bundles": str(self.bundles), **variables},
            "hosts": {host: self.hosts[host] for host in hosts or self.hosts}}}))
        environment = {"HOME": str(self.folder / "home"), "PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8",
                       "ANSIBLE_CALLBACK_PLUGINS": str(FLEET / "Tests/callback_plugins"),
                       "ANSIBLE_CALLBACKS_ENABLED": "record", "RECORD": str(self.folder / "record.json"),
                       "ANSIBLE_RETRY_FILES_ENABLED": "false",
                       "ANSIBLE_LOCAL_TEMP": str(self.folder / "home/local"),
                       "ANSIBLE_REMOTE_TEMP": str(self.folder / "home/remote"), "PYTHONDONTWRITEBYTECODE": "1"}
        done = subprocess.run(["ansible-playbook", "-i", inventory, "kelo-desk.yml", *arguments],
                              cwd=self.folder / "fleet", env=environment, capture_output=True, text=True, timeout=240)
        print(done.stdout, done.stderr)
        told = json.loads((self.folder / "record.json").read_text())
        told["status"] = done.returncode
        return told

    @property
    def report(self):
        return json.loads(self.report_file.read_text())

    def statuses(self, host):
        return {app: result["status"] for app, result in self.report[host]["apps"].items()}


def counts(told, host):
    stats = told["counts"][host]
    return {key: stats[key] for key in ("changed", "failures", "unreachable") if stats[key]}


def result_of(told, task, host=None):
    (found,) = [entry["result"] for entry in told["results"]
                if entry["task"].endswith(task) and host in (None, entry["host"])]
    return found


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
    # Only the run that installed them.
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


@pytest.mark.skipif(not CAN_CUT, reason="this machine gives its users no network namespace")
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


# The apps of a run, with fake engines.

@pytest.fixture
def fakes(tmp_path):
    return Fleet(tmp_path)


DONE = ["--- SILENT RUN SUMMARY action=install exit_code=0 ---", '  app="Kelo Brenna" status=installed', "--- END SUMMARY ---"]


def test_only_what_is_absent_or_older_is_run(fakes):
    fakes.fake("older", DONE, brenna="1.0")
    fakes.fake("current", DONE, brenna="2.0")
    fakes.fake("store", DONE, brenna="1.0", source="appstore")
    fakes.fake("absent", DONE)
    told = fakes.play(kelo_desk_apps=["brenna"])
    assert {host: fakes.runs(host) for host in fakes.hosts} == {
        "older": ["brenna"], "current": [], "store": [], "absent": ["brenna"]}
    assert [fakes.report[host]["verdict"] for host in ("current", "store")] == ["ok", "ok"]
    assert fakes.statuses("store") == {"brenna": "app_store"} and fakes.statuses("current") == {"brenna": "current"}
    # The engine reported "installed", but there is no app.
    assert fakes.statuses("absent") == {"brenna": "absent afterwards"}
    assert counts(told, "absent") == {"failures": 1}


def test_an_app_whose_version_on_offer_is_unknown_is_left_alone_and_told(fakes):
    fakes.fake("partly", DONE, brenna="1.0", offers={"tolvi": "2.0"})
    fakes.fake("dark", DONE, brenna="1.0", offers={})
    fakes.fake("retired", ["--- SILENT RUN SUMMARY action=install exit_code=2 ---", '  note="expired"'], brenna="1.0",
                         offers={}, retired=True)
    told = fakes.play(kelo_desk_apps=["brenna", "tolvi"], hosts=["partly"])
    assert (fakes.runs("partly"), counts(told, "partly")) == (["tolvi"], {"failures": 1})
    assert fakes.statuses("partly")["brenna"] == "no answer"
    assert "brenna no answer" in result_of(told, "Give the verdict", "partly")["msg"]
    told = fakes.play(kelo_desk_apps=["brenna"], hosts=["dark", "retired"])
    assert (fakes.runs("dark"), counts(told, "dark")) == ([], {"unreachable": 1})
    # The note is the engine's.
    assert (fakes.runs("retired"), fakes.report["retired"]["note"]) == (["brenna"], "expired")


def test_an_app_that_the_installer_does_not_offer_fails_with_a_note(fakes):
    fakes.fake("host", DONE)
    told = fakes.play(kelo_desk_apps=["rulo"])
    assert (fakes.runs("host"), counts(told, "host")) == ([], {"failures": 1})
    assert fakes.report["host"]["note"] == "the installer doesn't offer rulo"


def test_apps_may_come_as_one_text_on_the_command_line(fakes):
    fakes.fake("host", DONE, brenna="2.0")
    told = fakes.play("-e", "kelo_desk_apps=brenna")
    assert (told["status"], fakes.statuses("host")) == (0, {"brenna": "current"})
    assert fakes.play("-e", "kelo_desk_apps=brenna,tolvi")["counts"]["host"]["failures"] == 1  # DONE has no tolvi
    assert fakes.runs("host") == ["tolvi"]


def test_in_batches_the_report_keeps_what_earlier_batches_did_and_what_is_still_to_come(fakes):
    for host in ("first", "third"):
        fakes.fake(host, DONE, brenna="2.0")
    with socket.socket() as closed:
        closed.bind(("127.0.0.1", 0))  # and never listens
        fakes.hosts["second"] = {"ansible_connection": "ssh", "ansible_host": "127.0.0.1",
                                      "ansible_port": closed.getsockname()[1], "ansible_ssh_common_args": "-F none"}
        told = fakes.play(hosts=["first", "second", "third"], batches=[1], kelo_desk_apps=["brenna"])
    assert told["status"] == 4 and counts(told, "second") == {"unreachable": 1}
    assert {host: entry["verdict"] for host, entry in fakes.report.items()} == {
        "first": "ok", "second": "unreachable", "third": "not_begun"}
    table = next(result for result in told["results"] if result["task"].endswith("Report per host and app"))["result"]["msg"]
    assert [line.split() for line in table[1:]] == [["first", "ok", "brenna", "current", "2.0"], ["second", "not", "begun"],
                                                    ["third", "not", "begun"]]
    fakes.play(hosts=["first", "third"], batches=[1], kelo_desk_apps=["brenna"])
    assert {host: entry["verdict"] for host, entry in fakes.report.items()} == {"first": "ok", "third": "ok"}


def test_after_too_many_failures_no_further_host_is_begun(fakes):
    for host, version in {"fine": "2.0", "one": None, "two": None, "three": "1.0", "four": "1.0"}.items():
        fakes.fake(host, DONE, brenna=version)
    told = fakes.play(batches=[3, "100%"], kelo_desk_apps=["brenna"], kelo_desk_max_failures=1)
    assert {host: entry["verdict"] for host, entry in fakes.report.items()} == {
        "fine": "ok", "one": "failed", "two": "failed", "three": "held", "four": "held"}
    assert fakes.report["three"]["note"] == "2 hosts failed before"
    assert (counts(told, "three"), (fakes.folder / "three/started").exists()) == ({"unreachable": 1}, False)
    fakes.play(batches=[3, "100%"], kelo_desk_apps=["brenna"], kelo_desk_max_failures=2)
    assert fakes.runs("three") == ["brenna"]


def test_a_ring_takes_only_installers_of_its_release_and_the_report_has_them(fakes):
    soon = (datetime.datetime.now(datetime.UTC) + datetime.timedelta(days=9)).strftime("%Y-%m-%d")
    for host, configuration in (("pilot", {"cdn": {"release": "pilot"}, "expiresOn": {"online": soon, "offline": "2001-01-01"}}),
                                ("broad", {"expiresOn": {"online": "2999-12-31"}}), ("odd", ["no object"])):
        fakes.fake(host, DONE, brenna="2.0")
        engine = Path(fakes.hosts[host]["kelo_desk_engine"])
        bundle = fakes.folder / f"{host}.app/Contents"
        for folder in ("MacOS", "Resources"):
            (bundle / folder).mkdir(parents=True)
        fakes.hosts[host]["kelo_desk_engine"] = str(engine.rename(bundle / "MacOS/engine-cli"))
        (bundle / "Resources/installer_config.json").write_text(json.dumps(configuration))
    told = fakes.play(kelo_desk_apps=["brenna"], kelo_desk_release="pilot")
    assert [fakes.report[host]["verdict"] for host in ("pilot", "broad", "odd")] == ["ok", "failed", "failed"]
    assert fakes.report["broad"]["note"] == "the installer follows the release latest, not pilot"
    assert fakes.runs("broad") == [] and counts(told, "pilot") == {}
    told = fakes.play(kelo_desk_apps=["brenna"])
    assert {host: entry["installer"] for host, entry in fakes.report.items()} == {
        "pilot": {"version": "7.8", "release": "pilot", "expires": soon},
        "broad": {"version": "7.8", "release": "latest", "expires": "2999-12-31"},
        "odd": {"version": "7.8", "release": "latest", "expires": None}}
    lines = [line.split() for line in result_of(told, "Report per host and app")["msg"]]
    assert [line for line in lines if "expires" in line] == [["pilot", "ok", "expires", "7.8", soon]]


# Reading the engine's output.

@pytest.fixture(scope="module")
def reading(tmp_path_factory):
    """The plugin as a module. Importing Ansible creates a folder, by default in the home folder."""
    os.environ["ANSIBLE_LOCAL_TEMP"] = str(tmp_path_factory.mktemp("ansible"))
    spec = importlib.util.spec_from_file_location("run", FLEET / "roles/kelo_desk/action_plugins/kelo_desk_run.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def echo(*messages):
    return "banner\n" + "".join(f"[2026-11-21 14:51:19.046] {message}\n" for message in messages)


OPENING = "--- SILENT RUN SUMMARY action=install exit_code=1 ---"


@pytest.mark.parametrize("messages, wanted", [
    ([OPENING, '  app="A" status=failed detail="said "no" to it"', "--- END SUMMARY ---"],
     ({"A": {"status": "failed", "detail": 'said "no" to it'}}, None)),
    ([OPENING, '  app="A" status=failed detail="two\nlines"', "--- END SUMMARY ---"],
     ({"A": {"status": "failed", "detail": "two\nlines"}}, None)),
    ([OPENING, '  note="No internet connection"', "--- END SUMMARY ---"], ({}, "No internet connection")),
    (['  app="A" status=installed', OPENING, "--- END SUMMARY ---", '  app="B" status=installed'], ({}, None)),
    (["[WARN] --- SILENT RUN SUMMARY action=install exit_code=1 ---", '  app="A" status=installed'], ({}, None)),
    ([OPENING, '  app="A" status=failed', OPENING, '  app="B" status=installed', "--- END SUMMARY ---"],
     ({"B": {"status": "installed", "detail": None}}, None)),
    ([], ({}, None)),
])
def test_the_summary_is_read_as_it_is_written(reading, messages, wanted):
    assert reading.summary_of(echo(*messages)) == wanted


@pytest.mark.parametrize("status, words, wanted", [
    (0, ["current"], "ok"), (0, ["installed"], "changed"), (0, ["no result"], "failed"), (0, [], "ok"),
    (1, ["installed", "failed"], "failed"), (2, [], "failed"), (3, [], "failed"), (4, ["failed"], "failed"),
    (5, [], "no_network"), (None, ["current"], "ok"), (None, ["no answer", "no answer"], "no_network"),
    (None, ["no answer", "current"], "failed"), (0, ["absent afterwards"], "failed"), (None, ["not offered"], "failed"),
    (-9, [], "failed"), (78, [], "failed"),
])
def test_the_verdict_follows_the_exit_status(reading, status, words, wanted):
    apps = {str(number): {"status": word, "changed": word == "installed"} for number, word in enumerate(words)}
    assert reading.verdict_of(status, apps) == wanted
