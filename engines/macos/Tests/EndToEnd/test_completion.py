"""Compares the completions of engine-cli in real shells, bash and zsh, with the vocabulary."""

import os
import pty
import subprocess

import pytest
from command_surface import HOME, NOT_HONOURED, SILENT_OPTIONS, SUBCOMMANDS
from support import APPS

COMPLETION = HOME / "packaging/completion"

BASH = r"""
source "$1"; shift
[ "$(complete -p "$1")" = "complete -F _engine_cli $1" ] || exit 1
COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMP_LINE="$*"; COMP_POINT=${#COMP_LINE}
_engine_cli engine-cli "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
[ ${#COMPREPLY[@]} = 0 ] || printf '%s\n' "${COMPREPLY[@]}"
"""

# The line editor starts with the line and completes it, and the shell exits. compadd receives every match.
ZSH = r"""
fpath=($COMPLETION $fpath)
autoload -Uz compinit; compinit -D -u
compadd() {
  local -a found
  if (( ! ${@[(I)-[OAD]]} )); then
    builtin compadd -A found "$@"
    (( $#found )) && print -rl -- $found >>$ANSWERS
  fi
  builtin compadd "$@"
}
ask() { _main_complete; compstate[insert]=; compstate[list]= }
zle -C ask complete-word ask
zle-line-init() { BUFFER=$TYPED; CURSOR=$#BUFFER; zle ask; exit 0 }
zle -N zle-line-init
"""


def ask_bash(typed, folder):
    words = typed.split(" ")
    asked = subprocess.run(["bash", "--norc", "-c", BASH, "bash", COMPLETION / "engine-cli.bash", *words],
                           cwd=folder, capture_output=True, text=True)
    assert (asked.returncode, asked.stderr) == (0, "")
    return [line.rsplit(",", 1)[-1] for line in asked.stdout.splitlines()]


def ask_zsh(typed, folder):
    (folder / ".zshrc").write_text(ZSH)
    answers = folder / "answers"
    answers.write_text("")
    environment = {"ZDOTDIR": str(folder), "HOME": str(folder), "PATH": "/usr/bin:/bin", "TERM": "dumb",
                   "COMPLETION": str(COMPLETION), "ANSWERS": str(answers), "TYPED": typed}
    child, terminal = pty.fork()
    if child == 0:
        os.chdir(folder)
        os.execvpe("zsh", ["zsh", "-d", "-i"], environment)
    screen = b""
    try:
        while piece := os.read(terminal, 65536):
            screen += piece
    except OSError:
        pass  # the terminal closes with the shell
    os.close(terminal)
    _, status = os.waitpid(child, 0)
    assert status == 0, screen.decode("utf-8", "replace")
    return list(dict.fromkeys(answers.read_text().splitlines()))


@pytest.fixture(params=[ask_bash, ask_zsh], ids=["bash", "zsh"])
def offered(request, tmp_path):
    (tmp_path / "a folder").mkdir()
    (tmp_path / "a file").touch()
    return lambda typed: request.param(typed, tmp_path)


def test_the_script_kelo_is_completed_too(offered):
    assert offered("kelo --apps ru") == offered("engine-cli --apps ru") == ["rulo"]


def test_the_first_word_is_a_subcommand_or_the_unattended_mode(offered):
    assert offered("engine-cli ") == [*SUBCOMMANDS, "--silent"]
    assert offered("engine-cli --") == ["--silent"]
    assert offered("engine-cli e") == ["export-logs"]


def test_the_unattended_mode_offers_each_of_its_options(offered):
    assert set(offered("engine-cli --silent --")) == set(SILENT_OPTIONS) - {"--silent"}
    assert set(offered("engine-cli --verbose --")) == set(SILENT_OPTIONS) - {"--verbose"}


@pytest.mark.parametrize("subcommand", SUBCOMMANDS)
def test_each_subcommand_offers_the_options_that_it_reads(offered, subcommand):
    assert set(offered(f"engine-cli {subcommand} --")) == set(SUBCOMMANDS[subcommand]["options"]) - {NOT_HONOURED}


def test_an_option_is_offered_once(offered):
    assert "--apps" not in offered("engine-cli --silent --apps brenna --")
    assert set(offered("engine-cli run --apps brenna --action install --")) == {"--strict", "--offline"}


def test_modes_and_actions_are_those_of_the_vocabulary(offered):
    assert offered("engine-cli --silent --mode ") == SILENT_OPTIONS["--mode"]["values"]
    assert offered("engine-cli run --action ") == ["install", "update", "uninstall"]
    assert offered("engine-cli run --action un") == ["uninstall"]


@pytest.mark.parametrize("form", ["--silent", "run", "check-updates"])
def test_apps_are_those_of_the_catalog_and_each_is_offered_once(offered, form):
    assert offered(f"engine-cli {form} --apps ") == APPS
    assert offered(f"engine-cli {form} --apps tolvi,") == [app for app in APPS if app != "tolvi"]
    assert offered(f"engine-cli {form} --apps tolvi,brenna,g") == ["galdivane"]


def test_the_words_of_the_switches(offered):
    assert offered("engine-cli --silent --strict ") == ["true", "false"]
    assert offered("engine-cli --silent --open-after-install f") == ["false"]
    assert offered("engine-cli run --strict ") == ["true"]


def test_places_are_completed_from_the_disk(offered):
    folders = [name.rstrip("/").replace("\\", "") for name in offered("engine-cli export-logs --out a")]
    assert folders == ["a folder"]
    places = [name.rstrip("/").replace("\\", "") for name in offered("engine-cli disk-free --path a")]
    assert sorted(set(places) - {"answers"}) == ["a file", "a folder"]


def test_nothing_is_offered_after_an_unknown_subcommand(offered):
    assert offered("engine-cli repair --") == []


def test_completing_leaves_no_trace(offered, tmp_path):
    before = sorted(entry.name for entry in tmp_path.iterdir())
    offered("engine-cli --silent --apps ")
    assert {entry.name for entry in tmp_path.iterdir()} - set(before) <= {".zshrc", "answers"}
