"""The engine and the network: proxies, unknown names, latency, broken transfers."""

import base64

import pytest

import online_machine
from connect_proxy import ConnectProxy
from online_machine import FOLDER, META, MIRROR
from support import APPS, CATALOG

# The label is too long for DNS, so the resolver sends no query.
NOWHERE = "x" * 64 + ".kelo.example"


def move_cdn(stage, base, *trusted):
    stage.machine.change_resource("installer_config.json", cdn={"domains": {"us": base}},
                                  trustedDownloadDomains=["kelo.example", *trusted])


# Proxies from the environment, as curl uses them.

@pytest.fixture
def proxy(stage):
    stage.machine.change_resource("linux_host.json", hostAddresses=None)
    with ConnectProxy(stage.cdn.port) as proxy:
        yield proxy


@pytest.mark.parametrize("variable", ["https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"])
def test_goes_through_the_proxy_of(stage, proxy, variable):
    stage.machine.environment[variable] = proxy.url
    stage.installs()
    assert set(proxy.asked) == {"CONNECT www.kelo.example:443 HTTP/1.1", "CONNECT cdn.kelo.example:443 HTTP/1.1"}


def test_takes_a_proxy_without_a_scheme(stage, proxy):
    stage.machine.environment["https_proxy"] = proxy.address
    stage.installs()


def test_shows_a_proxy_the_credentials_that_it_was_given(stage, proxy):
    stage.machine.environment["https_proxy"] = proxy.url.replace("//", "//someone:secret@")
    stage.installs()
    assert set(proxy.credentials) == {"Proxy-Authorization: Basic " + base64.b64encode(b"someone:secret").decode()}


@pytest.mark.parametrize("variable", ["no_proxy", "NO_PROXY"])
def test_goes_past_the_proxy_to_the_hosts_of(stage, proxy, variable):
    move_cdn(stage, f"https://localhost:{stage.cdn.port}", "localhost")
    stage.machine.environment.update({"https_proxy": proxy.url, variable: "other.example,localhost"})
    stage.installs()
    assert set(proxy.asked) == {"CONNECT www.kelo.example:443 HTTP/1.1"}
    assert len(stage.transfers) == 1


def test_goes_past_the_proxy_to_a_host_whose_address_was_given(stage):
    stage.machine.environment["https_proxy"] = "http://127.0.0.1:1"
    stage.installs()


@pytest.mark.parametrize("status", [403, 407, 502])
def test_has_no_network_behind_a_proxy_that_refuses(stage, status):
    stage.machine.change_resource("linux_host.json", hostAddresses=None)
    with ConnectProxy(stage.cdn.port, status) as proxy:
        stage.machine.environment["https_proxy"] = proxy.url
        has_no_network(stage)
        assert len(proxy.asked) == 1


def test_has_no_network_behind_a_proxy_that_is_gone(stage):
    stage.machine.change_resource("linux_host.json", hostAddresses=None)
    stage.machine.environment["https_proxy"] = "http://127.0.0.1:1"
    has_no_network(stage)


# Unknown names and missing networks.

def has_no_network(stage):
    outcome = stage.fails_with("NETWORK_UNAVAILABLE")
    assert outcome.status == 5
    assert [event["message"] for event in outcome.events if event["type"] == "log"] == ["No internet connection"]
    assert stage.cdn.requests_for(META) == []


def test_has_no_network_when_the_public_site_cannot_be_reached(stage):
    addresses = {**stage.cdn.host_settings["hostAddresses"], "www.kelo.example": "127.0.0.1:1"}
    stage.machine.change_resource("linux_host.json", hostAddresses=addresses)
    has_no_network(stage)


def test_has_a_network_when_the_public_site_is_out_of_order(stage):
    stage.cdn.on("/", {"status": 503, "text": "sorry"})
    stage.installs()


def test_is_retired_when_the_name_of_the_cdn_is_gone_and_the_page_answers(stage):
    move_cdn(stage, f"https://{NOWHERE}")
    stage.cdn.on("/desk/", {"status": 404, "text": "moved"})
    stage.cdn.on("/download/", {"status": 404, "text": "moved"})
    stage.fails_with("SOURCE_UNAVAILABLE")


def test_is_a_network_problem_when_the_page_is_gone_too(stage):
    stage.cdn.on(META, {"status": 404, "text": "no"})
    stage.cdn.on("/desk/", {"hangUp": True})
    stage.cdn.on("/download/", {"hangUp": True})
    stage.fails_with("NETWORK_UNAVAILABLE")
    assert "is also unreachable" in stage.machine.log


def test_does_not_retry_an_alternate_whose_name_is_gone(stage):
    stage.meta(alternateDownloadUrl=f"https://{NOWHERE}/brenna.dmg")
    stage.package({"status": 503, "text": "busy"})
    outcome = stage.fails_with("DOWNLOAD_FAILED")
    assert "Retrying download" not in stage.machine.log, str(outcome)


# Check-updates.

def test_asks_for_all_packages_before_the_first_is_answered(stage):
    for app in CATALOG:
        arch = online_machine.ARCH if app["cdnArch"] == "perArch" else app["cdnArch"]
        meta = META.replace("brenna", app["id"]).replace(online_machine.ARCH, arch)
        stage.cdn.on(meta, {**stage.workshop.meta(version="3.0"), "gate": ["sweep", len(CATALOG)]})
    result = stage.machine.check_updates()[0]
    assert {entry["id"]: entry["latestVersion"] for entry in result["apps"]} == dict.fromkeys(APPS, "3.0")


@pytest.mark.parametrize("answer", [{"status": 500, "text": "no"}, {"text": "[]"}, {"text": '{"releases": [{"version": 1}]}'},
                                    {"location": "https://evil.example/notes.json"}, {"bytes": 20 << 20}, {"hangUp": True}],
                         ids=["an_error", "no_object", "a_wrong_type", "a_foreign_place", "a_flood", "nothing"])
def test_leaves_out_release_notes_behind(stage, answer):
    move_cdn(stage, "https://cdn.kelo.example")
    stage.machine.change_resource("installer_config.json",
                                  cdn={"domains": {"us": "https://cdn.kelo.example"}, "releaseNotesEnabled": True})
    stage.cdn.on(f"{FOLDER}/release-notes.json", answer)
    entry = stage.machine.check_updates("brenna")[0]["apps"][0]
    assert entry["latestVersion"] == "2.1"
    assert "releaseNotes" not in entry


# Broken transfers.

def test_resumes_a_transfer_that_stalls(stage):
    stage.machine.change_resource("linux_host.json", requestTimeout=6)
    half = len(stage.workshop.image) // 2
    stage.package(stage.image(stallAt=half), stage.image())
    stage.installs()
    assert [record["from"] for record in stage.transfers] == [None, half]
    assert "Network error detected: NSURLErrorDomain code -1001: " in stage.machine.log
    assert stage.bytes_fetched == len(stage.workshop.image)


def test_resumes_a_transfer_that_dies_three_times(stage):
    quarter = len(stage.workshop.image) // 4
    stage.package(stage.image(closeAt=quarter), stage.image(resetAt=quarter), stage.image(closeAt=quarter), stage.image())
    stage.installs()
    assert [record["from"] for record in stage.transfers][::3] == [None, 3 * quarter]
    assert stage.bytes_fetched == len(stage.workshop.image)


def test_starts_afresh_at_the_alternate_for_a_transfer_that_dies_four_times(stage):
    stage.meta(alternateDownloadUrl=f"https://mirror.kelo.example{MIRROR}")
    fifth = len(stage.workshop.image) // 5
    stage.package(stage.image(closeAt=fifth))
    stage.cdn.on(MIRROR, stage.image(closeAt=fifth), stage.image())
    stage.installs()
    assert [record["from"] for record in stage.transfers] == [None, fifth, 2 * fifth, 3 * fifth]
    assert [record["from"] for record in stage.cdn.requests_for(MIRROR)] == [None, fifth]
