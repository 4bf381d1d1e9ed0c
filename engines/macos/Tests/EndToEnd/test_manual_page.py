"""The manual page is well-formed, complete and correct, and its examples run."""

import os
import re
import shlex
import subprocess

import pytest
from command_surface import SILENT_OPTIONS, SOURCES, SUBCOMMANDS
from support import BUILD

PAGE = SOURCES / "engine-cli/engine-cli.1"
TEXT = PAGE.read_text()


def section(title):
    """The lines of a section (.Sh) or subsection (.Ss)."""
    return re.search(rf"^\.S[hs] {title}\n(.*?)(?=^\.S[hs] |\Z)", TEXT, re.MULTILINE | re.DOTALL).group(1)


def options(text):
    return {f"--{name}" for name in re.findall(r"Fl \\-([a-z-]+)", text)} - {"--name"}


def tagged_options(text):
    """Options with an entry."""
    return {f"--{name}" for name in re.findall(r"^\.It Fl \\-([a-z-]+)", text, re.MULTILINE)}


def test_mandoc_has_nothing_to_complain_of():
    lint = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", PAGE], capture_output=True, text=True)
    assert (lint.returncode, lint.stdout + lint.stderr) == (0, "")


def test_the_unattended_mode_has_an_entry_for_every_option():
    assert tagged_options(section("The unattended mode")) == set(SILENT_OPTIONS)
    synopsis = section("SYNOPSIS").split(".Nm\n")[1]
    assert options(synopsis) == set(SILENT_OPTIONS)


def test_the_mode_of_a_graphical_shell_has_an_entry_for_every_subcommand_and_option():
    text = section("The mode of a graphical shell")
    assert set(re.findall(r"^\.It Cm ([a-z-]+)$", text, re.MULTILINE)) == set(SUBCOMMANDS)
    assert tagged_options(text) == {option for row in SUBCOMMANDS.values() for option in row["options"]}
    entries = {re.match(r"\.Cm ([a-z-]+)", entry).group(1): options(entry) for entry in section("SYNOPSIS").split(".Nm\n")[2:]}
    assert entries == {name: set(row["options"]) for name, row in SUBCOMMANDS.items()}


def test_the_files_are_where_the_page_says(installation):
    machine = installation("2.0")
    machine.run("hello")
    (log,) = re.findall(r"^\.It Pa ~/(\S+\.log)$", section("FILES"), re.MULTILINE)
    assert machine.root / log == machine.log_file and machine.log_file.exists()
    for place in re.findall(r"^\.It Pa Kelo-Desk-Installer\.app/(\S+)$", section("FILES"), re.MULTILINE):
        assert (machine.bundle / place).exists(), place


def test_the_log_is_cut_where_the_page_says(installation):
    machine = installation("2.0")
    limit, kept = map(int, re.search(r"past (\d+) bytes, its last (\d+) are kept", section("FILES")).groups())
    machine.run("hello")
    machine.log_file.write_text("x" * limit)
    machine.run("hello")
    assert 0 < machine.log.index("[") < kept, "the first entry must be written before the cut"
    machine.log_file.write_text("x" * (limit + 1))
    machine.run("hello")
    assert machine.log.index("[") == kept


EXAMPLES = re.findall(r"^\.Dl \$ (engine-cli .*)$", TEXT, re.MULTILINE)


@pytest.mark.parametrize("line", EXAMPLES)
def test_each_example_runs_as_it_stands(installation, line):
    machine = installation("2.0")
    machine.run("--silent")
    _, *arguments = shlex.split(line)
    run = machine.run(*arguments)
    assert run.status == 0, run.errors
    for archive in (event["path"] for event in run.of_type("export-logs-result")):
        subprocess.run(["rm", archive], check=True)


def test_there_are_examples_of_both_modes():
    assert any("--silent" in line for line in EXAMPLES) and any("--silent" not in line for line in EXAMPLES)


def test_the_caveats_of_the_summary_hold(installation):
    machine = installation("2.0")
    machine.run("--silent", "--apps", "rulo")
    run = machine.run("--silent", "--apps", "rulo", "--verbose")
    assert "is already installed (same version)" in run.errors and 'app="Kelo Rulo" status=installed' in run.errors


def test_page_and_completions_are_installed_where_their_readers_look(tmp_path):
    build = subprocess.run(["cmake", "--install", BUILD, "--component", "administration",
                            "--prefix", tmp_path], capture_output=True, text=True)
    assert build.returncode == 0, build.stderr
    files = sorted(str(path.relative_to(tmp_path)) for path in tmp_path.rglob("*") if path.is_file())
    assert [file for file in files if not file.startswith("share/doc/engine-cli/")] == [
        "bin/kelo", "bin/kelo-summary", "bin/kelo-sweep", "share/bash-completion/completions/engine-cli",
        "share/man/man1/engine-cli.1", "share/zsh/site-functions/_engine-cli"]
    assert {f"share/doc/engine-cli/protocol/{page}.md" for page in ("README", "administrators", "installer")} <= set(files)
    assert (tmp_path / "share/man/man1/engine-cli.1").read_bytes() == PAGE.read_bytes()
    assert os.access(tmp_path / "bin/kelo", os.X_OK)
    seen = re.findall(r"^\.Pa Kelo-Desk-Installer\.app/Contents/Resources/(share/\S+)$", section("SEE ALSO"), re.MULTILINE)
    assert len(seen) == 2 and all((tmp_path / page).exists() for page in seen)
