"""Holds the stubs that are linked against to our declarations: each names the other, and neither anything else.

A class needs a stub when the sources send to it by its name or inherit from it; one that only occurs as the type
of an object needs none.
"""

import difflib
import re

# Foundation's oldest classes live in the library of CoreFoundation.
HOLDS = {"Foundation": {"Foundation", "CoreFoundation"}}
# What the compiler calls without our having said so.
BY_THE_COMPILER = re.compile(r"_objc_\w+|__objc_empty_cache|___CFConstantStringClassReference")
LIST = re.compile(r"^\s*(?:- )?(symbols|objc-classes):\s*\[([^\]]*)\]", re.M)


def _entries(stubs):
    """(kind, name, library, file:line) of all that the stubs name."""
    for path, text in stubs.items():
        library = path.split("/")[-1].removesuffix(".tbd")
        for found in LIST.finditer(text):
            for entry in re.finditer(r"[\w$]+", found[2]):
                line = text.count("\n", 0, found.start(2) + entry.start()) + 1
                yield found[1] == "objc-classes", entry[0], library, f"{path}:{line}"


def _linked(name, sources):
    return re.search(rf"\[{name}\b|^@interface \w+ : {name}\b", sources, re.M)


def check(stubs, declarations, sources):
    """`stubs`, `sources`: path -> text."""
    text = "\n".join(sources.values())
    classes = {name: each for name, each in declarations.named("class").items() if _linked(name, text)}
    symbols = {f"_{name}": declared for name, declared in declarations.named("constant", "function").items()
               if not declared.inline}
    named = set()
    for is_class, name, library, where in _entries(stubs):
        known = classes if is_class else symbols
        if is_class and name == "NSObject" or not is_class and BY_THE_COMPILER.fullmatch(name):
            continue
        if name not in known:
            near = difflib.get_close_matches(name, known, 1, 0.5)
            yield f"{where}: {name} is neither declared nor used" + (f"; the nearest name is {near[0]}" if near else "")
            continue
        framework = known[name].framework
        if library not in HOLDS.get(framework, {framework}):
            yield f"{where}: {name} is declared by {framework}, not by {library}"
        if name in named:
            yield f"{where}: {name} stands in another stub as well"
        named.add(name)
    for name, declared in (classes | symbols).items():
        if name not in named:
            yield f"{declared.where}: no stub names {name}"
