"""The runs that the role starts on hosts with fake engines, and how it reads the engine's output."""

import datetime
import importlib.util
import json
import os
import socket
from pathlib import Path

import pytest
from fleet import FLEET, Fleet, counts, result_of


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
    # The engine reports "installed", but there is no app.
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
    # The engine ran and gave the note.
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
    soon = (datetime.datetime.now(datetime.timezone.utc) + datetime.timedelta(days=9)).strftime("%Y-%m-%d")
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


def test_an_answer_without_apps_is_a_failure_that_counts_and_has_a_note(fakes):
    for host in ("odd", "fine", "later"):
        fakes.fake(host, DONE, brenna="2.0")
    (fakes.folder / "odd/hello").write_text('{"type": "hello", "mode": "online"}\n')
    fakes.play(batches=[2, "100%"], kelo_desk_apps=["brenna"], kelo_desk_max_failures=0)
    assert [entry["verdict"] for entry in fakes.report.values()] == ["failed", "ok", "held"]
    assert fakes.report["odd"]["note"].endswith("odd/engine-cli: an answer without 'apps'")


# Reading the engine's output.

def plugin(kind, name):
    spec = importlib.util.spec_from_file_location(name, FLEET / f"roles/kelo_desk/{kind}_plugins/{name}.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


@pytest.fixture(scope="module", autouse=True)
def ansible_folder(tmp_path_factory):
    """The import of Ansible creates a folder, by default in the home folder."""
    os.environ["ANSIBLE_LOCAL_TEMP"] = str(tmp_path_factory.mktemp("ansible"))


@pytest.fixture(scope="module")
def reading(ansible_folder):
    return plugin("action", "kelo_desk_run")


@pytest.fixture
def reporting(ansible_folder, monkeypatch):
    """The filters, without what Python 3.9, the oldest one of Ansible 2.14, doesn't have."""
    monkeypatch.delattr(datetime, "UTC", raising=False)
    module = plugin("filter", "kelo_desk")
    module.zip = lambda *rows: zip(*rows)  # noqa: PLW0108 (takes no other arguments)
    return module


@pytest.mark.parametrize("expires, listed", [("2001-1-5", True), ("2001-01-05", True), ("2999-1-5", False), ("2001-02-30", False),
                                             ("2001-1", False), ("2001-1-5-1", False), ("2001-1-99999999999", False), ("soon", False),
                                             (None, False)])
def test_the_table_lists_an_expiry_in_each_form_that_the_engine_accepts(reporting, expires, listed):
    outcome = {"verdict": "ok", "apps": {}, "note": None, "installer": {"version": "7.8", "expires": expires}}
    lines = reporting.table({"host": {"kelo_desk_outcome": outcome}}, ["host"], [], 30)
    assert any("expires" in line for line in lines) == listed


def test_a_failed_task_counts_as_a_failed_host(reporting):
    outcomes = {"failed": {"verdict": "failed"}, "task": {"failed": True, "msg": "no module"}, "fine": {"verdict": "ok"},
                "gone": {"unreachable": True}, "waiting": None}
    hosts = {host: {"kelo_desk_outcome": outcome} if outcome else {} for host, outcome in outcomes.items()}
    assert reporting.failures(hosts, list(hosts)) == 2


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
