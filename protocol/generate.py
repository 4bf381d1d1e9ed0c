#!/usr/bin/env python3
"""Generates schemas and parts of other files from catalog.json, vocabulary.json and the strict schemas.

The strict schemas describe the events of this engine; their lists of words come from the catalog and the vocabulary. The
open schemas also accept the additions of a later engine with the same protocol version: keys, words and kinds of event. In
other files, the comments "generated: NAME" and "end" enclose a generated part.
"""

import copy
import json
import pathlib
import re

HERE = pathlib.Path(__file__).resolve().parent
TOP = HERE.parent
SCHEMAS = HERE / "schema"
CONFIGURATION = TOP / "packaging/macos/bundle/installer_config.json"
APPS = json.loads((HERE / "catalog.json").read_text(encoding="utf-8"))["apps"]
VOCABULARY = json.loads((HERE / "vocabulary.json").read_text(encoding="utf-8"))
OPTIONS = VOCABULARY["options"]


def names(rows):
    return [row["name"] for row in rows]


IDENTIFIERS = [app["id"] for app in APPS]
OF_A_RUN = names(action for action in VOCABULARY["actions"] if action["of"] == "run")


# Strict schemas.

# Name in common.json -> words.
ENUMERATIONS = {
    "app": IDENTIFIERS,
    "status": names(VOCABULARY["statuses"]),
    "errorCode": names(code for code in VOCABULARY["errorCodes"] if code["of"] == "run"),
    "stage": names(VOCABULARY["stages"]),
    "detailCode": [stage["detailCode"] for stage in VOCABULARY["stages"]],
    "action": names(VOCABULARY["actions"]),
    "capability": names(VOCABULARY["capabilities"]),
    "mode": names(VOCABULARY["modes"]),
    "source": names(VOCABULARY["sources"]),
    "logLevel": names(VOCABULARY["levels"]),
    "retirementReason": names(VOCABULARY["retirementReasons"]),
}


def complete(name, schema):
    """Puts the words of the catalog and the vocabulary into a strict schema."""
    if name == "common.json":
        for key, words in ENUMERATIONS.items():
            schema["$defs"][key]["enum"] = words
    if name == "event.json":
        schema["oneOf"] = [{"$ref": f"{event}.json"} for event in names(VOCABULARY["events"])]
    if name == "done.json":
        schema["properties"]["exitCode"]["maximum"] = max(row["code"] for row in VOCABULARY["exitCodes"])
        schema["if"]["properties"]["action"]["enum"] = OF_A_RUN
    if name == "packages.json":
        destination = schema["additionalProperties"]["properties"]["destination"]
        destination["enum"] = [app["tempFileName"] for app in APPS]
    for event in VOCABULARY["events"]:
        if name == f"{event['name']}.json":
            schema["description"] = event["description"]
    return schema


def strict_schemas():
    """path -> schema."""
    paths = [*sorted(SCHEMAS.glob("*.json")), SCHEMAS / "files/packages.json"]
    return {path: complete(path.name, json.loads(path.read_text(encoding="utf-8"))) for path in paths}


# Open schemas.

def opened(node):
    """A part of a strict schema that accepts additions. A condition (`if`) stays: it chooses among known words."""
    if isinstance(node, list):
        return [opened(element) for element in node]
    if not isinstance(node, dict):
        return node
    made = {key: value if key == "if" else opened(value) for key, value in node.items()}
    if made.get("additionalProperties") is False:
        del made["additionalProperties"]
    # A later engine may add a key to events that don't have it now.
    made.pop("else", None)
    if made.get("type") == "integer":
        made.pop("maximum", None)
    if "enum" in made:
        known = {"type": made.pop("type"), "enum": made.pop("enum")}
        made["anyOf"] = [known, {"type": known["type"]}]
    return made


def any_event(strict):
    """The schema of all events, without the discriminator, which refuses unknown kinds, and with a case for these."""
    made = copy.deepcopy(strict)
    del made["discriminator"]
    made["oneOf"].append({
        "title": "UnknownEvent", "description": "A kind of event that a later engine may add. Ignore it.",
        "type": "object",
        "properties": {"v": {"const": 1}, "type": {"type": "string", "not": {"enum": names(VOCABULARY["events"])}}},
        "required": ["v", "type"],
    })
    return made


def open_schema(name, strict):
    made = any_event(strict) if name == "event.json" else opened(strict)
    made["$id"] = strict["$id"].replace("/protocol/1/", "/protocol/1/open/")
    return made


# Pages.

def table(*columns, rows):
    return [f"| {' | '.join(columns)} |", "|---" * len(columns) + "|", *(f"| {' | '.join(row)} |" for row in rows)]


def code(word):
    return f"`{word}`"


def statuses():
    rows = [(code(row["name"]), row["of"], row["description"]) for row in VOCABULARY["statuses"]]
    return table("status", "of", "meaning", rows=rows)


def error_codes():
    rows = [(code(row["name"]), row["description"], row["sentence"], row["offer"],
             f"[`{row['transcript']}`](transcripts/{row['transcript']}.jsonl)") for row in VOCABULARY["errorCodes"]]
    return table("code", "meaning", "a sentence for the user", "what to offer", "transcript", rows=rows)


def exit_statuses():
    return table("status", "meaning", rows=[(str(row["code"]), row["meaning"]) for row in VOCABULARY["exitCodes"]])


def exit_statuses_with_advice():
    rows = [(str(row["code"]), row["meaning"], row["next"]) for row in VOCABULARY["exitCodes"]]
    return table("status", "meaning", "what to do next", rows=rows)


def apps_and_bundles():
    rows = [(code(app["id"]), app["displayName"], code(app["appBundleName"])) for app in APPS]
    return table("app", "name", "in `/Applications`", rows=rows)


def apps_and_images():
    rows = [(code(app["id"]), app["displayName"], code(app["tempFileName"])) for app in APPS]
    return table("app", "name", "file in `packages`", rows=rows)


def mdoc(text):
    """Sentences with words in backquotes as lines of the manual page."""
    lines = []
    for sentence in re.split(r"(?<=\.) ", text):
        for index, piece in enumerate(sentence.split("`")):
            if index % 2:
                option, _, value = piece.partition(" ")
                macro = f".Fl \\-{option[2:]} Cm {value}" if option.startswith("--") else f".Dq {piece}"
                lines.append(f".Pa {piece}" if piece.startswith("/") else macro)
                continue
            mark = re.match(r"[.,;:](?=\s|$)", piece) if index else None
            if mark:
                lines[-1] += f" {mark[0]}"
            if rest := piece[mark.end() if mark else 0:].strip():
                lines.append(rest)
    return lines


def manual_of_exit_statuses():
    lines = [".Bl -tag -width Ds"]
    for row in VOCABULARY["exitCodes"]:
        lines += [f".It {row['code']}", *mdoc(row["meaning"]), *mdoc(f"Next: {row['next'][0].lower()}{row['next'][1:]}")]
    return [*lines, ".El"]


# Scripts.

def honoured(subcommand):
    ignored = {option["name"] for option in OPTIONS["protocol"] if not option.get("honoured", True)}
    return [option for option in subcommand["options"] if option not in ignored]


def options_by_form():
    """--silent or a subcommand -> option names."""
    return {"--silent": names(OPTIONS["silent"]), **{row["name"]: honoured(row) for row in VOCABULARY["subcommands"]}}


def shell_options(function):
    cases = [f"    {form}) echo '{' '.join(options)}' ;;" for form, options in options_by_form().items()]
    return [f"{function}() {{", "  case $1 in", *cases, "  esac", "}"]


def bash_completion():
    values = [(form, option) for form, options in (("--silent", OPTIONS["silent"]), ("run", OPTIONS["protocol"]))
              for option in options if "values" in option]
    cases = [f"    {form}:{option['name']}) echo '{' '.join(option['values'])}' ;;" for form, option in values]
    return [f"_engine_cli_subcommands='{' '.join(names(VOCABULARY['subcommands']))}'",
            f"_engine_cli_apps='{' '.join(IDENTIFIERS)}'",
            "", "# The options of --silent or of a subcommand.", *shell_options("_engine_cli_options"),
            "", "# The words that an option takes.", "_engine_cli_values() {", "  case $1:$2 in", *cases, "  esac", "}"]


def zsh_specification(option):
    arguments = {"list": ":apps, separated by commas:_engine_cli_apps", "folder": ":folder:_files -/", "path": ":path:_files"}
    value = f":value:({' '.join(option['values'])})" if "values" in option else arguments.get(option.get("value"), "")
    return f"'{option['name']}[{option['description'].replace('`', '').rstrip('.')}]{value}'"


def zsh_completion():
    by_name = {option["name"]: option for option in OPTIONS["protocol"]}
    subcommands = [f"  '{row['name']}:{row['description'].split('.')[0]}'" for row in VOCABULARY["subcommands"]]
    lines = [f"local -a _engine_cli_apps_known=({' '.join(IDENTIFIERS)})", "local -a _engine_cli_subcommands_known=(", *subcommands,
             "  '--silent:Runs unattended'", ")", "", "_engine_cli_specifications() {", "  case $1 in"]
    of_subcommands = {row["name"]: [by_name[name] for name in honoured(row)] for row in VOCABULARY["subcommands"]}
    for form, options in {"--silent": OPTIONS["silent"], **of_subcommands}.items():
        lines += [f"    {form})", "      reply=(", *(f"        {zsh_specification(option)}" for option in options), "      )", "      ;;"]
    return [*lines, "    *) return 1 ;;", "  esac", "}"]


def command_words():
    values = {}
    for option in (*OPTIONS["silent"], *OPTIONS["protocol"]):
        for value in option.get("values", []):
            values.setdefault(option["name"], {})[f"{option['name']}={value}"] = True
    patterns = [f"    {' | '.join(taken)}) ;;" for taken in values.values()]
    is_app = ["is_app() {", f"  case $1 in {' | '.join(IDENTIFIERS)}) ;; *) return 1 ;; esac", "}"]
    bundles = [f"    {app['id']}) echo {' '.join([app['installerBundleIdentifier'], *app['otherBundleIdentifiers']])} ;;" for app in APPS]
    return [f"apps='{', '.join(IDENTIFIERS)}'", "", *is_app, "", "bundles_of() {", "  case $1 in", *bundles, "  esac", "}", "",
            *shell_options("options_of"), "", "takes() {", "  case $1=$2 in", *patterns, "    *) return 1 ;;", "  esac", "}"]


def fleet_meanings():
    rows = [f"    {row['code']}: \"{row['summary']}\"," for row in VOCABULARY["exitCodes"]]
    return ["MEANINGS = {", '    None: "there was no whole run",', *rows, "}"]


# File -> name of a generated part -> its lines.
PARTS = {
    "protocol/README.md": {"apps": apps_and_bundles, "statuses": statuses, "error codes": error_codes, "exit statuses": exit_statuses},
    "protocol/administrators.md": {"exit statuses": exit_statuses_with_advice},
    "protocol/installer.md": {"images": apps_and_images},
    "engines/macos/Sources/engine-cli/engine-cli.1": {
        "exit statuses": manual_of_exit_statuses,
        "apps": lambda: [f".Cm {' , '.join(IDENTIFIERS[:-1])}", "and", f".Cm {IDENTIFIERS[-1]}"],
    },
    "packaging/completion/engine-cli.bash": {"words": bash_completion},
    "packaging/completion/_engine-cli": {"words": zsh_completion},
    "packaging/command/kelo": {"words": command_words},
    "lab/fleet/roles/kelo_desk/action_plugins/kelo_desk_run.py": {"meanings": fleet_meanings},
    "lab/fleet/roles/kelo_desk/meta/argument_specs.yml": {"apps": lambda: [f"        choices: [{', '.join(IDENTIFIERS)}]"]},
}


def with_parts(text, parts):
    for name, lines in parts.items():
        enclosed = re.compile(rf"(^[^\w\n]*generated: {name}[^\w\n]*\n).*?(^[^\w\n]*end[^\w\n]*$)", re.MULTILINE | re.DOTALL)
        body = "".join(f"{line}\n" for line in lines())
        text, count = enclosed.subn(lambda match, body=body: match[1] + body + match[2], text)
        assert count == 1, f"{count} parts are called {name}"
    return text


def with_apps(text):
    """The configuration of the bundle for macOS, which has no comments, with the apps of the catalog."""
    entries = [f"""    "{app['id']}": {{
      "primaryBundleIdentifier": "{app['installerBundleIdentifier']}",
      "otherBundleIdentifiers": {json.dumps(app['otherBundleIdentifiers'])},
      "included": true
    }}""" for app in APPS]
    return re.sub(r'(?<="apps": \{\n).*?(?=\n  \},\n)', lambda _: ",\n".join(entries), text, count=1, flags=re.DOTALL)


def generated():
    """path -> text."""
    strict = strict_schemas()
    events = {path for path in strict if path.parent == SCHEMAS and path.name != "command.json"}
    schemas = strict | {SCHEMAS / "open" / path.name: open_schema(path.name, strict[path]) for path in events}
    texts = {path: json.dumps(schema, indent=2, ensure_ascii=False) + "\n" for path, schema in schemas.items()}
    texts[CONFIGURATION] = with_apps(CONFIGURATION.read_text(encoding="utf-8"))
    return texts | {TOP / path: with_parts((TOP / path).read_text(encoding="utf-8"), parts) for path, parts in PARTS.items()}


if __name__ == "__main__":
    for path, text in generated().items():
        path.write_text(text, encoding="utf-8")
