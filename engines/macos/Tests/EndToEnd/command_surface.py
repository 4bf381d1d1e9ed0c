"""What the executable accepts, read from where it is decided: its own usage texts, and the sources of both roads.

What is written beside the executable, its manual page and its completions, is held against this.
"""

import json
import re
from pathlib import Path

HOME = Path(__file__).resolve().parents[4]
SOURCES = HOME / "engines/macos/Sources"
APPS = [app["id"] for app in json.loads((HOME / "protocol/catalog.json").read_text())["apps"]]

# Accepted, and answered with a warning that it isn't honoured: nobody should be led to it.
NOT_HONOURED = "--install-dir"


def subcommands(machine):
    """In the order of the executable's own usage text."""
    return re.search(r"<([a-z|-]+)>", machine.run().errors).group(1).split("|")


def silent_options(machine):
    """Those of the usage text, and those that the entry point looks for itself."""
    hint = machine.run("--silent", "--mode").errors
    listed = re.findall(r"^  (--[a-z-]+)", hint, re.MULTILINE)
    looked_for = re.findall(r'holds\(flags, "(--[a-z-]+)"\)', (SOURCES / "engine-cli/SilentRoad.cpp").read_text())
    assert len(listed) == 6 and looked_for
    return set(listed) | set(looked_for)


def exit_codes(machine):
    hint = machine.run("--silent", "--mode").errors
    return [int(code) for code in re.findall(r"^  (\d)  ", hint, re.MULTILINE)]


def protocol_options():
    """subcommand -> the options that it reads."""
    source = (SOURCES / "engine-cli/ProtocolRoad.cpp").read_text()
    served = re.findall(r'\{"([a-z-]+)", (\w+)\}', source)
    assert len(served) == 5
    options = {}
    for name, function in served:
        body = re.search(rf"\nstd::int32_t {function}\(.*?\n}}\n", source, re.DOTALL).group(0)
        options[name] = {f"--{option}" for option in re.findall(r'args\.(?:value|has)\("([a-z-]+)"\)', body)}
        options[name].add("--offline")
    assert options["run"] >= {"--action", "--apps", "--strict"}
    return options


def accepts_mode(machine, value):
    return "--mode" not in machine.run("--silent", "--mode", value, "--apps", "!").errors.splitlines()[0]


def accepts_action(machine, value):
    return "--action" not in machine.run("run", "--action", value, "--apps", "!").errors


def accepts_apps(machine, value):
    """On both roads. Neither line gets as far as doing anything."""
    silent = machine.run("--silent", "--apps", value, "--mode", "!").errors.splitlines()[0]
    protocol = machine.run("run", "--action", "install", "--apps", f"{value},!").errors
    alone = machine.run("check-updates", "--offline", "--apps", value)
    return silent.startswith("Error: Unknown --mode") and protocol.startswith("Error: Unknown app") and alone.status == 0
