"""What the repository says of itself to others, and what `cmake --install` gives to users."""

import os
import pathlib
import plistlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[1]
BUILD = pathlib.Path(os.environ.get("KELO_BUILD", "build/dev")).resolve()
VERSION = re.search(r"^project\(\S+ VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]


def known_tests():
    """Suite.Test of every GoogleTest, file.py::test of every pytest."""
    cases = re.compile(r"^(?:TYPED_)?TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)", re.MULTILINE)
    found = {f"{suite}.{name}" for source in ROOT.glob("[el]*/**/*.cpp") if "build" not in source.parts
             for suite, name in cases.findall(source.read_text())}
    return found | {f"{source.name}::{name}" for source in ROOT.glob("[elp]*/**/test_*.py")
                    for name in re.findall(r"^def (test_\w+)", source.read_text(), re.MULTILINE)}


def test_every_threat_names_tests_and_each_of_them_exists():
    rows = re.findall(r"^\| (?!threat|---)(.*) \| .* \| (.*) \|$", (ROOT / "SECURITY.md").read_text(), re.MULTILINE)
    named = {threat: re.findall(r"`([^`]+)`", cell) for threat, cell in rows}
    assert len(named) > 20 and all(named.values())
    known = known_tests()
    assert [test for tests in named.values() for test in tests if test not in known] == []


def test_the_newest_section_of_the_changelog_is_of_this_version():
    assert re.search(r"^## (\S+)", (ROOT / "CHANGELOG.md").read_text(), re.MULTILINE)[1] == VERSION


@pytest.fixture(scope="module")
def installed(tmp_path_factory):
    prefix = tmp_path_factory.mktemp("a prefix")
    subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], check=True, capture_output=True)
    # A machine below the prefix: without settings the engine would use the home of the user.
    (prefix / "lib/Kelo-Desk-Installer.app/Contents/Resources/linux_host.json").write_text(f'{{"root": "{prefix}/machine"}}')
    return prefix


def test_the_installed_engine_answers_through_its_link_with_the_version(installed):
    hello = subprocess.run([installed / "bin/engine-cli", "hello", "--offline"], check=True, capture_output=True, text=True)
    assert f'"engineVersion":"{VERSION}"' in hello.stdout
    assert (installed / "machine/Library/Logs/Kelo-Desk-Installer/webinstall.log").is_file()


def test_the_installed_script_finds_the_engine_beside_it(installed):
    asked = subprocess.run([installed / "bin/kelo", "hello", "--offline"], capture_output=True, text=True, env={"PATH": "/usr/bin:/bin"})
    assert (asked.returncode, '"type":"done"' in asked.stdout) == (0, True), asked.stderr


def test_the_installed_bundle_states_the_version_and_lacks_nothing(installed):
    contents = installed / "lib/Kelo-Desk-Installer.app/Contents"
    assert plistlib.loads((contents / "Info.plist").read_bytes())["CFBundleShortVersionString"] == VERSION
    assert sorted(program.name for program in (contents / "Resources/programs").iterdir()) == [
        "codesign", "ditto", "hdiutil", "lsregister", "open", "spctl", "xattr"]
    for page in ("man/man1/engine-cli.1", "bash-completion/completions/engine-cli", "zsh/site-functions/_engine-cli"):
        assert (installed / "share" / page).is_file(), page
