"""The schemas refuse invalid events: every event of every transcript, with every mutation.

The tables of presence are independent of the schemas.
"""

import copy
import json

import jsonschema
import pytest

from protocol_schema import PROTOCOL, complaints, load

ALWAYS, NULL, OMITTED = "always", "null", "omitted"


def keys(always="", null="", omitted=""):
    return {**dict.fromkeys(always.split(), ALWAYS), **dict.fromkeys(null.split(), NULL),
            **dict.fromkeys(omitted.split(), OMITTED)}


TABLES = {
    "hello": keys("v type engineVersion protocolVersion platform mode capabilities helpUrl feedbackUrl apps",
                  omitted="installerRetired"),
    "update-check-result": keys("v type apps", omitted="installerRetired"),
    "stage": keys("v type app stage", omitted="index total"),
    "progress": keys("v type percent indeterminate", omitted="app detailCode detailArgs"),
    "app-result": keys("v type app status", null="errorCode installedPath installedVersion"),
    "disk-free-result": keys("v type path", null="freeBytes"),
    "export-logs-result": keys("v type", null="path errorCode"),
    "done": keys("v type action exitCode", omitted="results installerRetired"),
    "log": keys("v type level message"),
    "a row of hello": keys("id displayName descriptionCode iconName updateAvailable",
                           null="installedVersion latestVersion sizeBytes source webUrl",
                           omitted="requiredBytes installedPath"),
    "a row of updates": keys("id updateAvailable", omitted="latestVersion sizeBytes requiredBytes releaseNotes"),
    "a result in done": keys("v type app status", omitted="errorCode installedPath installedVersion"),
    "a retirement": keys("reason downloadUrl", omitted="expiresOn"),
    "release notes": keys("releases", omitted="product version"),
    "a release": keys("version notes", omitted="date"),
    "arguments": keys("downloadedBytes totalBytes"),
}
INSIDE = {
    ("hello", "apps"): "a row of hello", ("update-check-result", "apps"): "a row of updates",
    ("done", "results"): "a result in done", ("hello", "installerRetired"): "a retirement",
    ("update-check-result", "installerRetired"): "a retirement", ("done", "installerRetired"): "a retirement",
    ("a row of updates", "releaseNotes"): "release notes", ("release notes", "releases"): "a release",
    ("progress", "detailArgs"): "arguments",
}


def objects(value, kind, path=()):
    """(path, name of its table) of every object in an event."""
    yield path, kind
    for key, child in value.items():
        inner = INSIDE.get((kind, key))
        if inner and isinstance(child, list):
            for index, element in enumerate(child):
                yield from objects(element, inner, (*path, key, index))
        elif inner:
            yield from objects(child, inner, (*path, key))


def at(event, path):
    for step in path:
        event = event[step]
    return event


def spoiled(event):
    """(description, mutated event, whether it is still valid)."""
    for path, kind in objects(event, event["type"]):
        for key, value in at(event, path).items():
            presence = TABLES[kind][key]
            where = f"{kind}.{key}"
            # The `done` of a run always has results.
            may_go = presence == OMITTED and (kind, key) != ("done", "results")
            yield f"{where} taken away", changed(event, path, lambda o, key=key: o.pop(key)), may_go
            yield f"{where} made null", changed(event, path, lambda o, key=key: o.update({key: None})), presence == NULL
            for other in ("text", -7, 0.5, True, [], [0], {}, {"a": 1}):
                if not same_type(value, other):
                    yield f"{where} made {other!r}", changed(event, path, lambda o, new={key: other}: o.update(new)), False
        yield f"{kind} with a key too many", changed(event, path, lambda o: o.update(surprise=1)), False
        absent = set(TABLES[kind]) - set(at(event, path))
        assert all(TABLES[kind][key] == OMITTED for key in absent), absent


def same_type(value, other):
    """Whether the mutation keeps the JSON type, so that the schema may accept it. The type of a null's key is unknown, so a
    string or a number counts as the same."""
    if value is None:
        return isinstance(other, (str, int)) and not isinstance(other, bool)
    if isinstance(value, bool) or isinstance(other, bool):
        return isinstance(value, bool) and isinstance(other, bool)
    if isinstance(value, (int, float)) and isinstance(other, (int, float)):
        return True
    return type(value) is type(other)


def changed(event, path, change):
    made = copy.deepcopy(event)
    change(at(made, path))
    return made


TRANSCRIPTS = sorted((PROTOCOL / "transcripts").glob("*.jsonl"))


@pytest.mark.parametrize("path", TRANSCRIPTS, ids=lambda path: path.stem)
def test_a_spoiled_event_is_refused_and_an_allowed_change_is_not(path):
    wrong = []
    for line in dict.fromkeys(path.read_text(encoding="utf-8").splitlines()):
        event = json.loads(line)
        assert complaints(event) == []
        for what, mutation, good in spoiled(event):
            if (complaints(mutation) == []) is not good:
                wrong.append((what, mutation))
    assert wrong == []


def test_every_table_is_met_in_the_transcripts():
    met = set()
    for path in TRANSCRIPTS:
        for line in path.read_text(encoding="utf-8").splitlines():
            event = json.loads(line)
            met |= {kind for _, kind in objects(event, event["type"])}
    assert met == set(TABLES)


@pytest.mark.parametrize("event", [
    {"v": 2, "type": "log", "level": "info", "message": "m"}, {"v": 1.5, "type": "log", "level": "info", "message": "m"},
    {"v": 1, "type": "log", "level": "INFO", "message": "m"}, {"v": 1, "type": "log", "level": "debug", "message": "m"},
    {"v": 1, "type": "stage", "app": "mozi", "stage": "verify"}, {"v": 1, "type": "stage", "app": "brenna", "stage": "open"},
    {"v": 1, "type": "stage", "app": "brenna", "stage": "verify", "index": 0},
    {"v": 1, "type": "progress", "percent": 100.01, "indeterminate": False},
    {"v": 1, "type": "progress", "percent": -0.01, "indeterminate": False},
    {"v": 1, "type": "done", "action": "hello", "exitCode": 6}, {"v": 1, "type": "done", "action": "pause", "exitCode": 0},
    {"v": 1, "type": "app-result", "app": "brenna", "status": "failed", "errorCode": "UNKNOWN", "installedPath": None,
     "installedVersion": None},
    {"v": 1, "type": "export-logs-result", "path": None, "errorCode": "INSTALL_FAILED"},
    {"v": 1, "type": "disk-free-result", "path": "/", "freeBytes": -1}, {"v": 1, "type": "goodbye"}, {"v": 1},
], ids=json.dumps)
def test_words_and_numbers_outside_the_protocol_are_refused(event):
    assert complaints(event) != []


@pytest.mark.parametrize("line, good", [
    ({"type": "cancel"}, True), ({"type": "cancel", "app": "Tolvi"}, True), ({"type": "Cancel"}, False),
    ({"type": "cancel", "app": None}, False), ({"type": "cancel", "app": ""}, False), ({"app": "tolvi"}, False),
    ({"type": "cancel", "app": "tolvi", "why": "x"}, False), ("cancel", False), (None, False), ([{"type": "cancel"}], False),
], ids=json.dumps)
def test_commands_are_as_strict(line, good):
    assert jsonschema.Draft202012Validator(load("command.json")).is_valid(line) is good
