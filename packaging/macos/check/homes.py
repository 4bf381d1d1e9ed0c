"""Compares the stubs with the libraries to which real executables bind their symbols.

With a symbol in the wrong stub, the program links but doesn't start on a Mac: Foundation reexports CoreFoundation's
symbols, but not the reverse. Every Mach-O file from Apple's linker names the library of each symbol.
"""

import collections
import pathlib
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "executable"))
import macho

MAGIC = (b"\xcf\xfa\xed\xfe", b"\xca\xfe\xba\xbe")  # one architecture, several


def seen(folder):
    """symbol -> short names of the libraries to which the Mach-O files below `folder` bind it."""
    homes = collections.defaultdict(set)
    for path in sorted(pathlib.Path(folder).rglob("*")):
        if not path.is_file() or path.read_bytes()[:4] not in MAGIC:
            continue
        for symbol, library in macho.undefined(str(path)):
            if library:
                homes[symbol].add(library)
    return homes


def problems(entries, kin, homes):
    """`entries`: (symbol, library, place) of each symbol in the stubs; `kin`: symbol that no executable uses -> (a symbol of the
    same library, place)."""
    named = set()
    for symbol, library, where in entries:
        named.add(symbol)
        if symbol in kin and symbol in homes:
            yield f"{kin[symbol][1]}: a real executable uses {symbol}"
        witness = kin[symbol][0] if symbol in kin else symbol
        if witness not in homes:
            yield f"{where}: no real executable uses {witness}"
        elif homes[witness] != {library}:
            yield f"{where}: {symbol} is in {' and '.join(sorted(homes[witness]))}, not in {library}"
    yield from (f"{where}: no stub has {symbol}" for symbol, (_, where) in kin.items() if symbol not in named)
