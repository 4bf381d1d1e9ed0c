"""kelo, the script that starts engine-cli only if it knows every word."""

import shutil
import subprocess

import pytest
from command_surface import HOME, NOT_HONOURED, SILENT_OPTIONS, SUBCOMMANDS
from support import APPS

KELO = HOME / "packaging/command/kelo"


@pytest.fixture
def bundle(tmp_path):
    """A bundle with kelo and an engine that repeats its words, one per line, and ends with 42."""
    contents = tmp_path / "a folder/Kelo-Desk-Installer.app/Contents"
    for folder in ("MacOS", "Resources/bin"):
        (contents / folder).mkdir(parents=True)
    shutil.copy(KELO, contents / "Resources/bin/kelo")
    engine = contents / "MacOS/engine-cli"
    engine.write_text('#!/bin/sh\nprintf "%s\\n" "$@"\nexit 42\n')
    engine.chmod(0o755)
    return contents


def kelo(program, *words, path="/usr/bin:/bin"):
    return subprocess.run([program, *words], capture_output=True, text=True, env={"PATH": path})


@pytest.mark.parametrize("line, passed", [
    ("--apps brenna", "--silent --apps brenna"),
    ("--silent --apps brenna,tolvi --mode uninstall --strict true", "--silent --silent --apps brenna,tolvi --mode uninstall --strict true"),
    ("--mode install --apps rulo --open-after-install false --verbose --offline",
     "--silent --mode install --apps rulo --open-after-install false --verbose --offline"),
    ("hello", "hello"), ("hello --offline", "hello --offline"), ("check-updates", "check-updates"),
    ("check-updates --apps galdivane", "check-updates --apps galdivane"),
    ("run --action update --apps tolvi --strict true", "run --action update --apps tolvi --strict true"),
    ("disk-free --path /a", "disk-free --path /a"), ("export-logs --out a", "export-logs --out a"),
])
def test_understood_words_reach_the_engine_and_its_status_comes_back(bundle, line, passed):
    done = kelo(bundle / "Resources/bin/kelo", *line.split())
    assert (done.stdout.split(), done.stderr, done.returncode) == (passed.split(), "", 42)


@pytest.mark.parametrize("words, complaint", [
    (["--apps=brenna"], "'--apps=brenna' isn't understood"), (["--app", "brenna"], "'--app' isn't understood"),
    (["--apps", ""], "'' is none of"), (["--apps", ","], "'' is none of"), (["--apps", "brenna,"], "'' is none of"),
    (["--apps", "brenna,,rulo"], "'' is none of"), (["--apps", "brenna rulo"], "'brenna rulo' is none of"),
    (["--apps", "brenna", "rulo"], "'rulo' isn't understood"), (["--apps", "word"], "'word' is none of"),
    (["--silent"], "--apps is missing"), (["--mode", "uninstall"], "--apps is missing"),
    (["--apps", "--verbose"], "--apps has no value"), (["--apps"], "--apps has no value"),
    (["--apps", "rulo", "--mode", "remove"], "--mode doesn't take 'remove'"),
    (["--apps", "rulo", "--strict", "yes"], "--strict doesn't take 'yes'"),
    (["--apps", "rulo", "--strict"], "--strict has no value"),
    (["--apps", "rulo", "--apps", "brenna"], "--apps is given twice"),
    (["--apps", "rulo", "--VERBOSE"], "'--VERBOSE' isn't understood"),
    (["--apps", "rulo", "--verbose --offline"], "--verbose --offline has no value"), (["-silent"], "'-silent' isn't understood"),
    (["run", "--action", "install"], "--apps is missing"), (["run", "--silent"], "'--silent' isn't understood"),
    (["run", "--action", "install", "--apps", "rulo", NOT_HONOURED, "/"], f"'{NOT_HONOURED}' isn't understood"),
    (["hello", "--apps", "rulo"], "'--apps' isn't understood"), (["disk-free", "--path", ""], "--path doesn't take ''"),
    (["brenna"], "'brenna' isn't understood"), (["HELLO"], "'HELLO' isn't understood"),
])
def test_other_words_are_refused_and_start_nothing(bundle, words, complaint):
    done = kelo(bundle / "Resources/bin/kelo", *words)
    assert (done.returncode, done.stdout) == (3, "")
    assert done.stderr.startswith("kelo: ") and complaint in done.stderr


def test_it_explains_itself(bundle):
    program = bundle / "Resources/bin/kelo"
    asked = kelo(program, "--help")
    assert (asked.returncode, asked.stderr) == (0, "") and asked.stdout.startswith("Usage: kelo")
    without = kelo(program)
    assert (without.returncode, without.stdout, without.stderr) == (3, "", asked.stdout)


def test_it_finds_the_engine_of_its_bundle_through_links_and_else_the_one_in_the_path(bundle, tmp_path):
    (tmp_path / "bin").mkdir()
    (tmp_path / "bin/second").symlink_to(bundle / "Resources/bin/kelo")
    (tmp_path / "bin/kelo").symlink_to("second")
    assert kelo(tmp_path / "bin/kelo", "hello").returncode == 42
    alone = shutil.copy(KELO, tmp_path / "alone")
    assert kelo(alone, "hello").returncode == 127
    assert kelo(alone, "hello", path=f"{bundle / 'MacOS'}:/usr/bin:/bin").returncode == 42


def test_it_knows_every_option_and_app(bundle):
    program = bundle / "Resources/bin/kelo"
    values = {"--apps": ",".join(APPS), "--mode": "install", "--action": "install", "--path": "/", "--out": "a"}
    known = {"--silent": set(SILENT_OPTIONS), **{name: set(row["options"]) for name, row in SUBCOMMANDS.items()}}
    for command, options in known.items():
        words = [word for option in sorted(options - {NOT_HONOURED, "--silent"})
                 for word in ([option] if option in ("--verbose", "--offline") else [option, values.get(option, "true")])]
        assert kelo(program, command, *words).returncode == 42, (command, words)
        assert all(option in kelo(program, "--help").stdout for option in options - {NOT_HONOURED})
