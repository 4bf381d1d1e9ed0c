#!/usr/bin/env python3
"""Checks packaging/macos against the description of the SDK. Prints one line for each problem.

    check_declarations.py PACKAGE EXECUTABLES      the description's folder, and one with real Mach-O files
"""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parent))

import compare
import headers
import homes
import sources
import stubs
from description import Description

ROOT = pathlib.Path(__file__).resolve().parents[3]
LIBRARY = "engines/macos/Sources/SharedInstallerLib"
PLATFORM = f"{LIBRARY}/Platform"
UNLISTED = "packaging/macos/check/unlisted.txt"
UNSEEN = "packaging/macos/check/unseen.txt"


def files():
    """path -> text of the checked files."""
    patterns = ["packaging/macos/include/**/*.h", "packaging/macos/stubs/**/*.tbd", f"{LIBRARY}/Base/*.h", f"{PLATFORM}/*.h",
                f"{PLATFORM}/Darwin/*.mm", f"{PLATFORM}/Darwin/*.h", UNLISTED, UNSEEN]
    return {str(path.relative_to(ROOT)): path.read_text() for pattern in patterns for path in ROOT.glob(pattern)}


def part(texts, folder, *endings):
    return {path: text for path, text in texts.items() if path.startswith(folder) and path.endswith(endings)}


def rows(texts, path):
    """(words, path:line) of each line that isn't a comment."""
    lines = enumerate(texts[path].splitlines(), 1)
    return [(line.split(), f"{path}:{number}") for number, line in lines if line and not line.startswith("#")]


def problems(texts, description, seen):
    """`seen`: the result of `homes.seen`."""
    ours = part(texts, "packaging/macos/include", ".h")
    declarations = headers.read(ours)
    host = part(texts, f"{PLATFORM}/Darwin", ".mm", ".h")
    seam = {path: text for path, text in part(texts, LIBRARY, ".h").items() if path not in host}
    linked = part(texts, "packaging/macos/stubs", ".tbd")
    unlisted = {words[0]: where for words, where in rows(texts, UNLISTED)}
    kin = {words[0]: (words[1], where) for words, where in rows(texts, UNSEEN)}
    constants = {name for each in compare.BRINGS for name in description.framework(each).constants}
    return [
        *declarations.errors,
        *compare.compare(declarations, description, unlisted),
        *sources.check(host, seam, ours, declarations, constants),
        *stubs.check(linked, declarations, host),
        *homes.problems(stubs.entries(linked), kin, seen),
    ]


def main():
    found = problems(files(), Description(sys.argv[1]), homes.seen(sys.argv[2]))
    print(*found, sep="\n", end="\n" if found else "")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
