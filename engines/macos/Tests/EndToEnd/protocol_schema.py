"""Checks the engine's events with protocol/schema."""

import json
import pathlib

import jsonschema

PROTOCOL = pathlib.Path(__file__).resolve().parents[4] / "protocol"
SCHEMAS = PROTOCOL / "schema"
# The schemas for shells, and those of the installer's files.
OPEN = SCHEMAS / "open"
FILES = SCHEMAS / "files"
SHARED = ("common.json", "event.json", "command.json")


def load(name, folder=SCHEMAS):
    """A schema that includes the shared definitions."""
    text = (folder / name).read_text(encoding="utf-8").replace("common.json#/$defs/", "#/$defs/")
    common = (folder / "common.json").read_text(encoding="utf-8").replace("common.json#/$defs/", "#/$defs/")
    return {**json.loads(text), "$defs": json.loads(common)["$defs"]}




def events(folder):
    """kind -> schema."""
    return {path.stem: load(path.name, folder) for path in folder.glob("*.json") if path.name not in SHARED}


EVENTS = events(SCHEMAS)


def complaints(event, schemas=None):
    """The errors of an event; empty if it is valid."""
    kind = event.get("type")
    schema = (schemas or EVENTS).get(kind) if isinstance(kind, str) else None
    if schema is None:
        return [f"no event has the type {kind!r}"]
    validator = jsonschema.Draft202012Validator(schema)
    return [error.message for error in validator.iter_errors(event)]


def check(event):
    found = complaints(event)
    assert not found, f"{found} in {json.dumps(event)}"


def file_validator(name):
    """The validator of a schema in `files`, which may refer to other schemas."""
    documents = [json.loads(path.read_text(encoding="utf-8"))
                 for path in (*FILES.glob("*.json"), SCHEMAS / "common.json")]
    known = {document["$id"]: document for document in documents}
    schema = known[f"https://kelo.example/engine/protocol/1/files/{name}"]
    resolver = jsonschema.RefResolver.from_schema(schema, store=known)
    return jsonschema.Draft202012Validator(schema, resolver=resolver)
