"""The schemas are as strict about presence as the protocol is, and the shell authors' page knows every word."""

import copy
import json

import jsonschema
import pytest

import protocol_schema
from protocol_schema import EVENTS, PROTOCOL, SCHEMAS, SHARED, complaints, load

RESULT = {"v": 1, "type": "app-result", "app": "brenna", "status": "installed"}
CATALOG_APP = {
    "id": "brenna", "displayName": "Kelo Brenna", "descriptionCode": "d", "iconName": "i",
    "updateAvailable": False, "installedVersion": None, "latestVersion": None, "sizeBytes": None,
    "source": None, "webUrl": None,
}
# One good event of each kind, with every key that may be left out left out.
GOOD = {
    "hello": {"v": 1, "type": "hello", "engineVersion": "1.0.0", "protocolVersion": 1, "platform": "macos",
              "mode": "online", "capabilities": ["install"], "helpUrl": "h", "feedbackUrl": "f",
              "apps": [CATALOG_APP]},
    "update-check-result": {"v": 1, "type": "update-check-result",
                            "apps": [{"id": "brenna", "updateAvailable": True}]},
    "stage": {"v": 1, "type": "stage", "app": "brenna", "stage": "verify"},
    "progress": {"v": 1, "type": "progress", "percent": 37.5, "indeterminate": False},
    "app-result": {**RESULT, "errorCode": None, "installedPath": "/p", "installedVersion": "2.0"},
    "disk-free-result": {"v": 1, "type": "disk-free-result", "path": "/", "freeBytes": None},
    "export-logs-result": {"v": 1, "type": "export-logs-result", "path": None, "errorCode": "UNKNOWN"},
    "done": {"v": 1, "type": "done", "action": "install", "exitCode": 0, "results": [RESULT]},
    "log": {"v": 1, "type": "log", "level": "info", "message": "m"},
}
# Keys that an event may leave out, by its type.
OMITTED = {
    "hello": {"installerRetired"},
    "update-check-result": {"installerRetired"},
    "stage": {"index", "total"},
    "progress": {"app", "detailCode", "detailArgs"},
    "done": {"results", "installerRetired"},
}


def test_there_is_a_schema_for_every_event_and_none_besides():
    assert set(EVENTS) == set(GOOD)
    listed = {entry["$ref"] for entry in json.loads((SCHEMAS / "event.json").read_text())["oneOf"]}
    assert listed == {f"{kind}.json" for kind in GOOD}


@pytest.mark.parametrize("path", sorted(SCHEMAS.glob("*.json")), ids=lambda path: path.name)
def test_every_schema_is_one(path):
    jsonschema.Draft202012Validator.check_schema(json.loads(path.read_text(encoding="utf-8")))


@pytest.mark.parametrize("kind", sorted(GOOD))
def test_a_good_event_passes(kind):
    assert complaints(GOOD[kind]) == []


@pytest.mark.parametrize("kind, key", [(kind, key) for kind in sorted(GOOD) for key in GOOD[kind] if key != "type"])
def test_an_event_without_one_of_its_keys_is_refused(kind, key):
    event = {name: value for name, value in GOOD[kind].items() if name != key}
    assert complaints(event) != []


@pytest.mark.parametrize("kind", sorted(GOOD))
def test_an_unknown_key_is_refused(kind):
    assert complaints({**GOOD[kind], "surprise": 1}) != []


@pytest.mark.parametrize("kind", sorted(EVENTS))
def test_what_may_be_left_out_is_as_stated(kind):
    schema = EVENTS[kind]
    assert set(schema["properties"]) - set(schema["required"]) == OMITTED.get(kind, set())


@pytest.mark.parametrize("key", ["errorCode", "installedPath", "installedVersion"])
def test_a_result_is_null_alone_and_left_out_inside_done(key):
    assert complaints({**GOOD["app-result"], key: None}) == []
    inside = copy.deepcopy(GOOD["done"])
    inside["results"][0][key] = None
    assert complaints(inside) != []


@pytest.mark.parametrize("action", ["hello", "check-updates", "disk-free", "export-logs"])
def test_only_a_run_has_results(action):
    assert complaints({"v": 1, "type": "done", "action": action, "exitCode": 0}) == []
    assert complaints({"v": 1, "type": "done", "action": action, "exitCode": 0, "results": []}) != []


@pytest.mark.parametrize("line, good", [
    ({"type": "cancel"}, True), ({"type": "cancel", "app": "tolvi"}, True),
    ({}, False), ({"type": "pause"}, False), ({"type": "cancel", "app": 5}, False), ([], False),
])
def test_commands(line, good):
    validator = jsonschema.Draft202012Validator(load("command.json"))
    assert validator.is_valid(line) is good


def test_the_page_for_shell_authors_knows_every_key_and_word():
    page = (PROTOCOL / "README.md").read_text(encoding="utf-8")
    common = load("common.json")["$defs"]
    words = set(common["status"]["enum"]) | set(common["errorCode"]["enum"])
    for schema in [*EVENTS.values(), *(common[name] for name in common if "properties" in common[name])]:
        words |= set(schema["properties"])
        for rule in schema["properties"].values():
            words |= {word for word in rule.get("enum", []) if word is not None} if isinstance(rule, dict) else set()
    missing = sorted(word for word in words if f"`{word}`" not in page)
    assert missing == []


def test_the_word_lists_agree_with_the_catalog():
    catalog = json.loads((PROTOCOL / "catalog.json").read_text(encoding="utf-8"))
    assert [app["id"] for app in catalog["apps"]] == protocol_schema.load("common.json")["$defs"]["app"]["enum"]
