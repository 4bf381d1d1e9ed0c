"""The schemas require the right keys, the page for shell authors has every word, and the generated files are current."""

import copy
import json
import os
import pathlib
import re
import subprocess
import sys

import jsonschema
import pytest

import protocol_schema
from protocol_schema import EVENTS, FILES, OPEN, PROTOCOL, SCHEMAS, complaints, load
from support import BUILD

sys.path.insert(0, str(PROTOCOL))
import generate

RESULT = {"v": 1, "type": "app-result", "app": "brenna", "status": "installed"}
CATALOG_APP = {
    "id": "brenna", "displayName": "Kelo Brenna", "descriptionCode": "d", "iconName": "i",
    "updateAvailable": False, "installedVersion": None, "latestVersion": None, "sizeBytes": None,
    "source": None, "webUrl": None,
}
# One valid event of each kind, without optional keys.
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
# The optional keys of each kind.
OMITTED = {
    "hello": {"installerRetired"},
    "update-check-result": {"installerRetired"},
    "stage": {"index", "total"},
    "progress": {"app", "detailCode", "detailArgs"},
    "done": {"results", "installerRetired"},
}


def test_there_is_a_schema_for_every_event_and_none_besides():
    assert set(EVENTS) == set(GOOD)
    assert set(EVENTS) == {event["name"] for event in generate.VOCABULARY["events"]}


@pytest.mark.parametrize("path", sorted(SCHEMAS.rglob("*.json")), ids=lambda path: str(path.relative_to(SCHEMAS)))
def test_every_schema_is_one(path):
    jsonschema.Draft202012Validator.check_schema(json.loads(path.read_text(encoding="utf-8")))


def test_every_type_that_a_generator_makes_has_a_name_of_its_own():
    for folder in (SCHEMAS, OPEN, FILES):
        schemas = [json.loads(path.read_text(encoding="utf-8")) for path in folder.glob("*.json")]
        named = [part for schema in schemas for part in (schema, *schema.get("$defs", {}).values())]
        names = [part["title"] for part in named]
        assert [name for name in names if not re.fullmatch(r"([A-Z][a-z]+)+|CDN[A-Za-z]*", name)] == []
        assert len(set(names)) == len(names)


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


def words_of(node):
    """Every key and every enumerated word of a schema."""
    if isinstance(node, list):
        for element in node:
            yield from words_of(element)
    if isinstance(node, dict):
        yield from node.get("properties", {})
        yield from (word for word in node.get("enum", []) if word is not None)
        for part in node.values():
            yield from words_of(part)


def test_the_page_for_shell_authors_knows_every_key_and_word():
    page = (PROTOCOL / "README.md").read_text(encoding="utf-8")
    words = set(words_of(list(EVENTS.values())))
    assert {"rulo", "appstore", "INSTALL_FAILED", "downloadedBytes", "skip-terms", "UNKNOWN"} <= words
    missing = sorted(word for word in words if f"`{word}`" not in page)
    assert missing == []


def test_the_page_for_shell_authors_has_every_option_with_its_subcommands():
    rows = re.findall(r"^\| `(--[a-z-]+)` \| (.*?) \|", (PROTOCOL / "README.md").read_text(encoding="utf-8"), re.MULTILINE)
    subcommands = generate.VOCABULARY["subcommands"]
    names = set(generate.names(generate.OPTIONS["protocol"])) - {"--offline"}  # explained above the table
    options = {name: [row["name"] for row in subcommands if name in row["options"]] for name in names}
    assert {name: re.findall(r"`([a-z-]+)`", of) for name, of in rows} == options


GENERATED = generate.generated()


@pytest.mark.parametrize("path", GENERATED, ids=lambda path: str(path.relative_to(generate.TOP)))
def test_a_generated_file_is_what_the_catalog_and_the_vocabulary_give(path):
    """After a change: ./dev generate."""
    assert path.read_text(encoding="utf-8") == GENERATED[path]


# The open schemas, for shells.

OPEN_EVENTS = protocol_schema.events(OPEN)


def test_there_is_no_open_schema_without_a_strict_one():
    assert set(OPEN.iterdir()) == {path for path in GENERATED if path.parent == OPEN}


@pytest.mark.parametrize("kind", sorted(GOOD))
def test_the_open_schemas_take_new_keys_and_miss_no_old_one(kind):
    assert complaints({**GOOD[kind], "surprise": 1}, OPEN_EVENTS) == []
    for key in GOOD[kind]:
        assert complaints({name: value for name, value in GOOD[kind].items() if name != key}, OPEN_EVENTS) != [], key


def with_new_word(kind, path, word):
    event = copy.deepcopy(GOOD[kind])
    inner = event
    for step in path[:-1]:
        inner = inner[step]
    inner[path[-1]] = word
    return event


@pytest.mark.parametrize("kind, path, word", [
    ("hello", ["capabilities", 0], "repair"), ("hello", ["mode"], "both"),
    ("hello", ["apps", 0, "id"], "mozi"), ("hello", ["apps", 0, "source"], "gift"), ("stage", ["stage"], "unpack"),
    ("progress", ["detailCode"], "UNPACKING"), ("app-result", ["status"], "deferred"),
    ("app-result", ["errorCode"], "NEW_CODE"), ("done", ["results", 0, "status"], "deferred"),
    ("done", ["action"], "repair"), ("done", ["exitCode"], 6), ("log", ["level"], "debug"),
    ("export-logs-result", ["errorCode"], "NEW_CODE"),
])
def test_the_open_schemas_take_new_words_and_the_strict_ones_do_not(kind, path, word):
    event = with_new_word(kind, path, word)
    assert complaints(event) != [] and complaints(event, OPEN_EVENTS) == []


@pytest.mark.parametrize("kind, path, value", [
    ("hello", ["v"], 2), ("hello", ["apps", 0, "id"], 5), ("hello", ["apps"], {}), ("progress", ["percent"], "half"),
    ("app-result", ["status"], None), ("app-result", ["errorCode"], 7), ("done", ["exitCode"], -1), ("stage", ["type"], "log"),
])
def test_the_open_schemas_refuse_what_no_later_engine_may_write(kind, path, value):
    event = with_new_word(kind, path, value)
    assert complaints({**event, "type": kind} if path != ["type"] else event, OPEN_EVENTS) != []


# ajv, the validator for authors of shells.

AJV = BUILD.parent / "ajv/node_modules"
IDENTIFIER = "https://kelo.example/engine/protocol/1/"


def ajv(cases):
    """Whether ajv in its strict mode accepts each (schema, value)."""
    assert AJV.exists(), f"{AJV} is missing: ./dev test installs it with npm"
    folders = [SCHEMAS, OPEN, FILES]
    text = json.dumps([{"schema": IDENTIFIER + schema, "value": value} for schema, value in cases])
    run = subprocess.run(["node", pathlib.Path(__file__).parent / "ajv/check.js", *folders], input=text,
                         capture_output=True, text=True, env={**os.environ, "NODE_PATH": str(AJV)})
    assert (run.returncode, run.stderr) == (0, "")
    return json.loads(run.stdout)


def test_ajv_takes_every_schema_in_its_strict_mode_and_judges_alike():
    good = list(GOOD.values())
    more = [{**event, "surprise": 1} for event in good]
    later = [{"v": 1, "type": "goodbye"}, {"v": 1, "type": "done", "action": "repair", "exitCode": 9}]
    bad = [{"v": 1}, {"v": 2, "type": "goodbye"}, {"v": 1, "type": "done", "action": "install", "exitCode": 0}]
    rows = [(good, True, True), (more, False, True), (later, False, True), (bad, False, False)]
    cases = [(schema, event) for events, _, _ in rows for event in events for schema in ("event.json", "open/event.json")]
    wanted = [answer for events, strict, opened in rows for _ in events for answer in (strict, opened)]
    assert ajv(cases) == wanted


def test_ajv_takes_every_transcript():
    events = [json.loads(line) for path in sorted((PROTOCOL / "transcripts").glob("*.jsonl"))
              for line in path.read_text(encoding="utf-8").splitlines()]
    answers = ajv([(schema, event) for event in events for schema in ("event.json", "open/event.json")])
    assert len(answers) > 100 and all(answers)
