"""The command lines: the vocabulary's lists, and what the executable accepts when it runs."""

import json
import re
from pathlib import Path

from support import IMAGES

HOME = Path(__file__).resolve().parents[4]
SOURCES = HOME / "engines/macos/Sources"
VOCABULARY = json.loads((HOME / "protocol/vocabulary.json").read_text(encoding="utf-8"))
SUBCOMMANDS = {row["name"]: row for row in VOCABULARY["subcommands"]}
SILENT_OPTIONS = {row["name"]: row for row in VOCABULARY["options"]["silent"]}
# Accepted with a warning and ignored, so neither offered nor explained.
NOT_HONOURED = "--install-dir"
# The log line of a run with --offline.
OFFLINE = "engine-cli: offline mode (--offline flag)"


def subcommands(machine):
    """In the order of the executable's usage text."""
    return re.search(r"<([a-z|-]+)>", machine.run().errors).group(1).split("|")


def silent_options(machine):
    """The options of the usage text, and two that it omits."""
    refused = machine.run("--silent", "--verbose", "--mode").errors
    listed = re.findall(r"^  (--[a-z-]+)", refused, re.MULTILINE)
    assert len(listed) == 6 and "verbose mode" in refused
    machine.run("--silent", "--offline", "--mode", "uninstall", "--apps", "rulo")
    assert OFFLINE in machine.log
    return {*listed, "--verbose", "--offline"}


def exit_codes(machine):
    hint = machine.run("--silent", "--mode").errors
    return [int(code) for code in re.findall(r"^  (\d)  ", hint, re.MULTILINE)]


# For each option: the words after it, and how to see that a subcommand reads it.
PROBES = {
    "--action": (["!"], lambda machine, run: "--action must be" in run.errors),
    "--apps": (["!"], lambda machine, run: "Unknown app identifier" in run.errors),
    "--install-dir": (["/x"], lambda machine, run: "--install-dir" in run.output),
    "--offline": ([], lambda machine, run: OFFLINE in machine.log),
    "--out": (["probe"], lambda machine, run: "probe" in run.output),
    "--path": (["/probe"], lambda machine, run: "probe" in run.output),
    "--strict": (["true"], lambda machine, run: run.status == 2),
}


def reads(machine, subcommand, option):
    words, left_a_trace = PROBES[option]
    needed = {"--action": ["install"], "--apps": ["rulo,brenna"]} if subcommand == "run" else {}
    others = [word for name, value in needed.items() if name != option for word in (name, *value)]
    machine.log_file.unlink(missing_ok=True)
    return left_a_trace(machine, machine.run(subcommand, *others, option, *words, cwd=machine.root))


def protocol_options(machine):
    """subcommand -> the options that it reads. Removes an image, so that a run fails partly."""
    (machine.packages / IMAGES["rulo"]).unlink(missing_ok=True)
    return {subcommand: {option for option in PROBES if reads(machine, subcommand, option)}
            for subcommand in subcommands(machine)}


def accepts_mode(machine, value):
    return "--mode" not in machine.run("--silent", "--mode", value, "--apps", "!").errors.splitlines()[0]


def accepts_action(machine, value):
    return "--action" not in machine.run("run", "--action", value, "--apps", "!").errors


def accepts_apps(machine, value):
    """In both modes. None of the lines starts a run."""
    silent = machine.run("--silent", "--apps", value, "--mode", "!").errors.splitlines()[0]
    protocol = machine.run("run", "--action", "install", "--apps", f"{value},!").errors
    alone = machine.run("check-updates", "--offline", "--apps", value)
    return silent.startswith("Error: Unknown --mode") and protocol.startswith("Error: Unknown app") and alone.status == 0
