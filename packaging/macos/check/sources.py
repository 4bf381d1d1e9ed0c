"""Checks what the compiler doesn't check in the host's sources.

A misspelt delegate method is never called, a key or selector in quotes is only text, and an unused declaration is untested.
"""

import collections
import difflib
import re

IMPLEMENTATION = re.compile(r"^@implementation (\w+)(.*?)^@end", re.MULTILINE | re.DOTALL)
INTERFACE = re.compile(r"^@interface (\w+) : (\w+)(?: <([\w, ]+)>)?", re.MULTILINE)
METHOD = re.compile(r"^([-+]) \([^\n{;]*?\)(\w[^{;]*?)\s*\{", re.MULTILINE | re.DOTALL)
LITERAL = re.compile(r'(?:@selector\(|NSSelectorFromString\(@")([\w:]+)|"(NS[A-Z]\w+)"')

# Members that the compiler calls for syntax of the language.
BY_THE_COMPILER = {
    "countByEnumeratingWithStateObjectsCount": "for (x in y)",
    "arrayWithObjectsCount": "@[x, y]",
    "objectForKeyedSubscript": "x[key]",
}


def _line(text, position):
    return text.count("\n", 0, position) + 1


def _nearest(name, known):
    near = difflib.get_close_matches(name, known, 1, 0.5)
    return f"; the nearest declared one is {near[0]}" if near else ""


def _implemented(path, text, declarations):
    """Every method of our classes belongs to one of their protocols or superclasses."""
    adopted = {found[1]: [found[2], *re.findall(r"\w+", found[3] or "")] for found in INTERFACE.finditer(text)}
    for implementation in IMPLEMENTATION.finditer(text):
        known = {}
        for parent in adopted.get(implementation[1], []):
            for type_ in declarations.family(parent):
                known |= {":".join(member.parts) + ":" * bool(member.parameters): member for member in type_.members}
        for method in METHOD.finditer(implementation[2]):
            parts = re.findall(r"(\w+)\s*:\s*\(", method[2])
            selector = "".join(part + ":" for part in parts) or method[2].strip()
            if selector not in known or known[selector].static != (method[1] == "+"):
                where = f"{path}:{_line(text, implementation.start(2) + method.start())}"
                yield f"{where}: nothing that {implementation[1]} adopts declares {selector}{_nearest(selector, known)}"


def _quoted(path, text, declarations, constants):
    selectors = {":".join(declared.value.parts) + ":" * bool(declared.value.parameters)
                 for declared in declarations.found if declared.owner and declared.value.method}
    for found in LITERAL.finditer(text):
        where = f"{path}:{_line(text, found.start())}"
        if found[1] and found[1] not in selectors:
            yield f"{where}: no selector {found[1]} is declared{_nearest(found[1], selectors)}"
        if found[2] and found[2] not in constants:
            yield f"{where}: there is no constant of the value {found[2]}{_nearest(found[2], constants)}"


class Words:
    """The words of the sources and of our headers."""

    def __init__(self, sources, headers):
        text, declared = "\n".join(sources.values()), "\n".join(headers.values())
        self._words = set(re.findall(r"\w+", text))
        self._parts = set(re.findall(r"(\w+)\s*:", text))
        self._declared = collections.Counter(re.findall(r"\w+", declared))

    def use(self, declared):
        name = declared.name
        if declared.kind in ("class", "protocol", "structure", "typedef"):
            return name in self._words or self._declared[name] > 1
        if declared.kind != "member" or not declared.value.parameters:
            return name in self._words
        return name in BY_THE_COMPILER or self._parts.issuperset(declared.value.parts)


def check(sources, seam, headers, declarations, constants):
    """`sources`: the host's files, `seam`: the headers above them, `headers`: our declarations, each path -> text;
    `constants`: the names that the description knows."""
    for path, text in sources.items():
        yield from _implemented(path, text, declarations)
    for path, text in (sources | seam).items():
        yield from _quoted(path, text, declarations, constants)
    words = Words(sources, headers)
    for declared in declarations.found:
        if not words.use(declared):
            yield f"{declared.where}: {declared.full_name} is declared and never used"
