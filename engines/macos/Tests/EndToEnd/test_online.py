"""The engine with a CDN that misbehaves, over TLS.

In every case, there is one result, percentages are from 0 to 100, the engine downloads no unneeded bytes, and Applications
has only the expected bytes.
"""

import shutil

import pytest

import hostile_cdn
import online_machine
from online_machine import FOLDER, META, MIRROR, NAMES, PACKAGE, Stage


def test_installs_what_was_promised(stage):
    stage.installs()
    assert len(stage.transfers) == 1
    assert stage.bytes_fetched == len(stage.workshop.image)


def test_deletes_the_last_download_before_it_ends(stage):
    slow = online_machine.BUILD / "engines" / "macos" / "Tests" / "libkill-points.so"
    stage.machine.environment.update(LD_PRELOAD=str(slow), KELO_SLOW="brenna_installer.dmg")
    stage.installs()


# Resuming an interrupted transfer.

GOOD_RESUMPTIONS = {"the_rest": {}, "no_ranges": {"ranges": "ignore"}}
RESTARTS = ["wrongStart", "shortRange", "wrongTotal", "noContentRange", "wrongLength", "changedTag", 412, 416]


@pytest.mark.parametrize("name", GOOD_RESUMPTIONS)
def test_goes_on_after_a_dropped_connection(stage, name):
    half = len(stage.workshop.image) // 2
    stage.package(stage.image(closeAt=half), stage.image(**GOOD_RESUMPTIONS[name]))
    stage.installs()
    first, second = stage.transfers
    assert (first["from"], second["from"]) == (None, half)
    assert stage.bytes_fetched == len(stage.workshop.image) + (half if name == "no_ranges" else 0)


def test_goes_on_after_a_reset(stage):
    half = len(stage.workshop.image) // 2
    stage.package(stage.image(resetAt=half), stage.image())
    stage.installs()
    assert stage.transfers[1]["from"] is not None


@pytest.mark.parametrize("kind", RESTARTS)
def test_starts_over_once_when_the_rest_is_not_the_rest(stage, kind):
    half = len(stage.workshop.image) // 2
    stage.package(stage.image(closeAt=half), stage.image(ranges=kind), stage.image())
    stage.installs()
    assert [record["from"] for record in stage.transfers] == [None, half, None]
    assert stage.bytes_fetched <= 3 * len(stage.workshop.image)


def test_never_joins_two_versions(stage):
    half = len(stage.workshop.image) // 2
    other = {"bytes": len(stage.workshop.image), "seed": 7, "etag": '"7"'}
    stage.package({**other, "closeAt": half}, stage.image())
    stage.installs()


def test_has_nothing_to_resume_under_a_weak_tag(stage):
    half = len(stage.workshop.image) // 2
    stage.package(stage.image(closeAt=half, etag='W/"1"'), stage.image(etag='W/"1"'))
    stage.installs()
    assert [record["from"] for record in stage.transfers] == [None, None]


def test_gives_up_after_four_broken_attempts(stage):
    stage.package({"hangUp": True})
    stage.fails_with("DOWNLOAD_FAILED")
    assert len(stage.transfers) == 4


# Wrong bytes.

@pytest.mark.parametrize("status", [403, 404, 410, 500, 503])
def test_fails_on_an_error_status(stage, status):
    stage.package({"status": status, "text": "<html>sorry</html>"})
    stage.fails_with("DOWNLOAD_FAILED")
    assert len(stage.transfers) == 1


def test_refuses_a_page_that_says_200(stage):
    stage.package({"text": "<html>log in to the network</html>"})
    stage.fails_with("VERIFY_FAILED")


def test_refuses_other_bytes_of_the_same_length(stage):
    stage.package({"bytes": len(stage.workshop.image)})
    stage.fails_with("VERIFY_FAILED")


def test_takes_an_image_without_length(stage):
    stage.package(stage.image(length="none"))
    stage.installs()


def test_takes_an_image_in_chunks(stage):
    stage.package(stage.image(length="chunked"))
    stage.installs()


def test_refuses_an_image_without_length_that_ends_early(stage):
    stage.package(stage.image(length="none", closeAt=1000))
    stage.fails_with("VERIFY_FAILED")


def test_ignores_what_lies_behind_the_announced_length(stage):
    stage.package(stage.image(extra=100_000))
    stage.installs()


def test_waits_for_a_slow_drip(stage):
    step = len(stage.workshop.image) // 20 + 1
    stage.package(stage.image(drip=[step, 0.1]))
    outcome = stage.installs()
    assert sum(event["type"] == "progress" for event in outcome.events) >= 2


def test_refuses_a_part_that_nobody_asked_for(stage):
    stage.package(stage.image(unasked=True))
    stage.fails_with("DOWNLOAD_FAILED")


# Redirects and names.

FOREIGN = {"http": "http://cdn.kelo.example/x.dmg", "foreign": "https://evil.example/x.dmg",
           "look_alike": "https://evilkelo.example/x.dmg", "user": "https://kelo.example@evil.example/x.dmg"}


@pytest.mark.parametrize("name", FOREIGN)
def test_refuses_a_redirect_of_the_package(stage, name):
    stage.meta(alternateDownloadUrl=f"https://mirror.kelo.example{MIRROR}")
    stage.cdn.on(MIRROR, stage.image())
    stage.package({"location": FOREIGN[name]})
    stage.fails_with("UNTRUSTED_SOURCE")
    assert stage.cdn.requests_for(MIRROR) == []


@pytest.mark.parametrize("name", FOREIGN)
def test_refuses_a_redirect_of_the_metadata(stage, name):
    stage.cdn.on(META, {"location": FOREIGN[name]})
    stage.fails_with("UNTRUSTED_SOURCE")
    assert stage.transfers == []


def test_writes_down_no_secrets_of_its_connections(stage):
    secrets = stage.folder / "secrets"
    stage.machine.environment["SSLKEYLOGFILE"] = str(secrets)
    stage.installs()
    assert not secrets.exists()


def test_loads_libcurl_for_a_connection_only(stage):
    stage.machine.environment.update(LD_DEBUG="files", LD_DEBUG_OUTPUT=str(stage.folder / "loads"))
    for words, loads in (("hello", False), ("disk-free", False), ("check-updates", True)):
        process = stage.machine.start(words)
        process.communicate(timeout=online_machine.TIME_LIMIT)
        assert process.returncode == 0
        assert ("libcurl.so" in (stage.folder / f"loads.{process.pid}").read_text()) == loads


def test_follows_a_trusted_redirect(stage):
    stage.package({"location": f"https://mirror.kelo.example{MIRROR}"})
    stage.cdn.on(MIRROR, stage.image())
    stage.installs()


def test_leaves_a_loop(stage):
    stage.package({"location": PACKAGE})
    stage.fails_with("DOWNLOAD_FAILED")
    assert len(stage.transfers) == 21


@pytest.mark.parametrize("kind", ["otherName", "stranger"])
def test_refuses_a_certificate(online_workshop, tmp_path, kind):
    with hostile_cdn.HostileCDN(tmp_path / "cdn", NAMES, {"cdn.kelo.example": kind}) as cdn:
        stage = Stage(online_workshop, tmp_path, cdn)
        stage.fails_with("NETWORK_UNAVAILABLE")
        assert cdn.requests_for(META) == []


# Metadata.

@pytest.mark.parametrize("status, code", [(403, "SOURCE_UNAVAILABLE"), (404, "SOURCE_UNAVAILABLE"),
                                          (410, "SOURCE_UNAVAILABLE"), (500, "NETWORK_UNAVAILABLE"),
                                          (503, "NETWORK_UNAVAILABLE")])
def test_sorts_the_status_of_the_metadata(stage, status, code):
    stage.cdn.on(META, {"status": status, "text": "no"})
    outcome = stage.fails_with(code)
    assert any(event["type"] == "installer-retired" or "installerRetired" in event
               for event in outcome.events) == (code == "SOURCE_UNAVAILABLE")


def test_looks_under_the_other_segment(stage):
    universal = FOLDER.replace("/x64/", "/universal/")
    stage.cdn.on(META, {"status": 404, "text": "no"})
    stage.cdn.on(f"{universal}/meta.json", stage.workshop.meta())
    stage.cdn.on(f"{universal}/brenna.dmg", stage.image())
    stage.installs()
    assert "was NOT under the declared" in stage.machine.log


@pytest.mark.parametrize("text", ["", "<html>", "[]", "{", "\x00"])
def test_takes_unreadable_metadata_for_a_network_problem(stage, text):
    stage.cdn.on(META, {"text": text})
    stage.fails_with("NETWORK_UNAVAILABLE")


def test_refuses_metadata_without_a_digest(stage):
    stage.meta(checksum=None)
    stage.fails_with("VERIFY_FAILED")
    assert stage.transfers == []


def test_refuses_metadata_without_a_destination(stage):
    stage.meta(destination=None)
    stage.fails_with("METADATA_INVALID")


def test_does_not_leave_the_temporary_folder_by_a_destination(stage):
    stage.meta(destination="../../../../../../../../escape.dmg")
    stage.fails_with("DOWNLOAD_FAILED")
    assert not list(stage.folder.rglob("escape.dmg"))


# The alternate location.

def test_goes_to_the_alternate_after_an_error_status(stage):
    stage.meta(alternateDownloadUrl=f"https://mirror.kelo.example{MIRROR}")
    stage.package({"status": 503, "text": "busy"})
    stage.cdn.on(MIRROR, stage.image())
    stage.installs()
    assert len(stage.transfers) == 1


def test_fails_when_the_alternate_is_dead_too(stage):
    stage.meta(alternateDownloadUrl=f"https://mirror.kelo.example{MIRROR}")
    stage.package({"status": 503, "text": "busy"})
    stage.fails_with("DOWNLOAD_FAILED")


def test_refuses_a_foreign_alternate(stage):
    stage.meta(alternateDownloadUrl="https://evilkelo.example/brenna.dmg")
    stage.package({"status": 503, "text": "busy"})
    stage.fails_with("UNTRUSTED_SOURCE")


# Cancelling, and the next run.

def test_ends_a_cancelled_transfer(stage):
    stage.package(stage.image(stallAt=1000))
    process = stage.machine.start("run", "--action", "install", "--apps", "brenna")
    lines = []
    for line in process.stdout:
        lines.append(line)
        if '"detailCode":"DOWNLOADING"' in line or '"progress"' in line:
            break
    rest, errors = process.communicate('{"type":"cancel"}\n', timeout=online_machine.TIME_LIMIT)
    outcome = online_machine.Outcome(stage.machine, process.returncode, "".join(lines) + rest, errors)
    assert outcome.result in ("failed", "cancelled"), str(outcome)
    assert not stage.machine.installed.exists()
    stage.leaves_nothing_behind()
    assert len(stage.transfers) <= 1


def test_uses_a_sound_file_that_lies_there(stage):
    tmp = stage.machine.root / "tmp"
    tmp.mkdir(parents=True)
    (tmp / "brenna_installer.dmg").write_bytes(stage.workshop.image)
    stage.installs()
    assert stage.transfers == []


def test_replaces_a_file_that_is_not_the_image(stage):
    tmp = stage.machine.root / "tmp"
    tmp.mkdir(parents=True)
    (tmp / "brenna_installer.dmg").write_bytes(b"not the image")
    stage.installs()
    assert len(stage.transfers) == 1


def test_removes_what_a_killed_engine_left(stage):
    stage.package(stage.image(stallAt=1000), stage.image())
    process = stage.machine.start("run", "--action", "install", "--apps", "brenna")
    for line in process.stdout:
        if '"downloadedBytes":1000' in line.replace(" ", ""):
            break
    process.kill()
    process.communicate()
    assert [name for name in stage.machine.temporary_files if name.endswith(".part")]
    shutil.rmtree(stage.machine.root / "Applications", ignore_errors=True)
    stage.installs()
