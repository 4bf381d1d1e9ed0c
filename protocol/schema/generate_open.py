#!/usr/bin/env python3
"""Writes protocol/schema/open from the strict schemas beside this script.

The strict schemas say what this engine writes. The open ones accept what a later engine of the same protocol
version may add as well: keys, words and kinds of event.
"""

import copy
import json
import pathlib

HERE = pathlib.Path(__file__).resolve().parent
EVENTS = "event.json"
# What a shell writes itself.
COMMANDS = "command.json"


def opened(node):
    """A part of a strict schema that accepts additions. A condition (`if`) stays as it is: it chooses among known words."""
    if isinstance(node, list):
        return [opened(element) for element in node]
    if not isinstance(node, dict):
        return node
    made = {key: value if key == "if" else opened(value) for key, value in node.items()}
    if made.get("additionalProperties") is False:
        del made["additionalProperties"]
    # What only some events have now, others may have later.
    made.pop("else", None)
    if made.get("type") == "integer":
        made.pop("maximum", None)
    if "enum" in made:
        known = {"type": made.pop("type"), "enum": made.pop("enum")}
        made["anyOf"] = [known, {"type": known["type"]}]
    return made


def kinds():
    return [entry["$ref"].removesuffix(".json") for entry in json.loads((HERE / EVENTS).read_text())["oneOf"]]


def any_event(strict):
    """Instead of the discriminator, which refuses a kind that it doesn't know: one more case for those kinds."""
    made = copy.deepcopy(strict)
    del made["discriminator"]
    made["oneOf"].append({
        "title": "UnknownEvent", "description": "A kind of event that a later engine may add. Ignore it.",
        "type": "object",
        "properties": {"v": {"const": 1}, "type": {"type": "string", "not": {"enum": kinds()}}},
        "required": ["v", "type"],
    })
    return made


def generated():
    """file name -> text."""
    texts = {}
    for path in sorted(set(HERE.glob("*.json")) - {HERE / COMMANDS}):
        strict = json.loads(path.read_text(encoding="utf-8"))
        made = any_event(strict) if path.name == EVENTS else opened(strict)
        made["$id"] = strict["$id"].replace("/protocol/1/", "/protocol/1/open/")
        texts[path.name] = json.dumps(made, indent=2, ensure_ascii=False) + "\n"
    return texts


if __name__ == "__main__":
    (HERE / "open").mkdir(exist_ok=True)
    for name, text in generated().items():
        (HERE / "open" / name).write_text(text, encoding="utf-8")
