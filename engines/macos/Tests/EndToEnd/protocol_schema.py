"""Holds events of the engine against protocol/schema."""

import json
import pathlib

import jsonschema

PROTOCOL = pathlib.Path(__file__).resolve().parents[4] / "protocol"
SCHEMAS = PROTOCOL / "schema"
SHARED = ("common.json", "event.json", "command.json")


def load(name):
    """One schema as a document of its own: what it takes from the shared one lies inside it."""
    text = (SCHEMAS / name).read_text(encoding="utf-8").replace("common.json#/$defs/", "#/$defs/")
    common = (SCHEMAS / "common.json").read_text(encoding="utf-8").replace("common.json#/$defs/", "#/$defs/")
    return {**json.loads(text), "$defs": json.loads(common)["$defs"]}


EVENTS = {path.stem: load(path.name) for path in SCHEMAS.glob("*.json") if path.name not in SHARED}


def complaints(event):
    """What is wrong with an event; an empty list when nothing is."""
    kind = event.get("type")
    schema = EVENTS.get(kind) if isinstance(kind, str) else None
    if schema is None:
        return [f"no event has the type {kind!r}"]
    validator = jsonschema.Draft202012Validator(schema)
    return [error.message for error in validator.iter_errors(event)]


def check(event):
    found = complaints(event)
    assert not found, f"{found} in {json.dumps(event)}"
