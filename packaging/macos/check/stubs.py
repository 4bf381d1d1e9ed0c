"""Compares the stubs with our declarations: both have the same symbols.

A class needs a symbol if the sources send a message to it or inherit from it, but not if it is only the type of an object.
"""

import difflib
import re

CLASS = "_OBJC_CLASS_$_"
# Functions that the compiler calls implicitly, and the root class.
BY_THE_COMPILER = re.compile(r"_objc_\w+|__objc_empty_cache|___CFConstantStringClassReference|_OBJC_CLASS_\$_NSObject")
LIST = re.compile(r"^\s*(?:- )?(symbols|objc-classes):\s*\[([^\]]*)\]", re.MULTILINE)


def entries(stubs):
    """(symbol, library, file:line) of each symbol in the stubs. `stubs`: path -> text."""
    for path, text in stubs.items():
        library = path.split("/")[-1].removesuffix(".tbd")
        for found in LIST.finditer(text):
            for entry in re.finditer(r"[\w$]+", found[2]):
                line = text.count("\n", 0, found.start(2) + entry.start()) + 1
                yield (CLASS if found[1] == "objc-classes" else "") + entry[0], library, f"{path}:{line}"


def _linked(name, sources):
    return re.search(rf"\[{name}\b|^@interface \w+ : {name}\b", sources, re.MULTILINE)


def check(stubs, declarations, sources):
    """`stubs`, `sources`: path -> text."""
    text = "\n".join(sources.values())
    needed = {CLASS + name: each for name, each in declarations.named("class").items() if _linked(name, text)}
    needed |= {f"_{name}": each for name, each in declarations.named("constant", "function").items() if not each.inline}
    named = set()
    for symbol, _, where in entries(stubs):
        if BY_THE_COMPILER.fullmatch(symbol):
            continue
        if symbol not in needed:
            near = difflib.get_close_matches(symbol, needed, 1, 0.5)
            yield f"{where}: {symbol} is neither declared nor used" + (f"; the nearest name is {near[0]}" if near else "")
        elif symbol in named:
            yield f"{where}: {symbol} is in another stub too"
        named.add(symbol)
    for symbol, declared in needed.items():
        if symbol not in named:
            yield f"{declared.where}: no stub has {symbol}"
