#!/usr/bin/env python3
"""check_executable.py EXECUTABLE STUBS LIBSYSTEM [FORBIDDEN...]: checks the linked engine without a Mac.

Checks that it has both architectures, is built for macOS 12.0 and later, is position-independent, has an LC_UUID, and links
exactly the libraries of the stubs below STUBS and libSystem (LIBSYSTEM is its stub); that the stub of its library has every
undefined symbol; and that it contains none of the texts FORBIDDEN, such as the build folder.
"""

import pathlib
import sys

import macho
import stubs

ARCHITECTURES = ["arm64", "x86_64"]
MINIMUM = ("macos", "12.0")


def known_libraries(folder, libsystem, architecture):
    texts = [path.read_text() for path in sorted(folder.rglob("*.tbd"))] + [libsystem.read_text()]
    return dict(stubs.read(text, architecture) for text in texts)


def short_name(install_name):
    """The tools' short name: "libobjc" for "/usr/lib/libobjc.A.dylib", the name of a framework."""
    return install_name.rsplit("/", 1)[1].split(".")[0]


def slice_problems(code, libraries):
    if code.platform_and_minimum() != MINIMUM:
        yield f"is built for {code.platform_and_minimum()} and not for {MINIMUM}"
    if not code.is_position_independent():
        yield "isn't position-independent"
    if len(code.commands("LC_UUID")) != 1:
        yield "has no LC_UUID, by which crash reports find its symbols"
    linked = code.libraries()
    for name in sorted(set(libraries) - set(linked)):
        yield f"isn't linked against {name}"
    for name in sorted(set(linked) - set(libraries)):
        yield f"is linked against {name}, which has no stub"
    symbols = {short_name(name): each for name, each in libraries.items()}
    for symbol, library in code.undefined:
        if symbol not in symbols.get(library, ()):
            yield f"needs {symbol} of {library or 'no library'}, and no stub has that"


def problems(executable, folder, libsystem, forbidden):
    found = macho.architectures(executable)
    if sorted(found) != ARCHITECTURES:
        yield f"has the architectures {found} and not {ARCHITECTURES}"
    for architecture in sorted(set(found) & set(ARCHITECTURES)):
        libraries = known_libraries(folder, libsystem, architecture)
        for problem in slice_problems(macho.Slice(executable, architecture), libraries):
            yield f"{architecture} {problem}"
    content = pathlib.Path(executable).read_bytes()
    for text in forbidden:
        if text.encode() in content:
            yield f"contains the text {text}"


def main(arguments):
    if len(arguments) < 3:
        raise SystemExit(__doc__)
    executable, folder, libsystem, *forbidden = arguments
    found = list(problems(executable, pathlib.Path(folder), pathlib.Path(libsystem), forbidden))
    for problem in found:
        print(f"{executable} {problem}", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
