"""The independent description of the macOS SDK: TypeScript declarations, one file per framework.

The files are generated: a declaration begins at the start of a line, and a member is one line. Anything else is an error, so
that nothing is skipped.
"""

import pathlib
import re
from dataclasses import dataclass, field

NUMBER, BOOLEAN, STRING, VOID, OBJECT, SELF, POINTER = "number", "boolean", "string", "void", "object", "self", "pointer"


@dataclass
class Member:
    name: str
    static: bool
    method: bool
    result: object  # a type: a word above, ("class", X), ("enum", X) or ("block", result, parameters)
    parameters: list = field(default_factory=list)
    readonly: bool = False
    optional: bool = False
    parts: tuple = ()  # of our methods: the parts of the selector

    @property
    def kind(self):
        return ("class " if self.static else "") + ("method" if self.method else "property")


@dataclass
class Type:
    """A class, a protocol or a structure."""

    name: str
    kind: str  # "class" or "protocol"; structures are classes without a superclass here
    superclass: str | None
    protocols: list
    generics: list
    members: list


def split(text, separator):
    """Splits `text` at `separator` outside of brackets."""
    parts, depth, start, index = [], 0, 0, 0
    while index < len(text):
        if text.startswith("=>", index):
            index += 2
            continue
        if text[index] in "(<[{":
            depth += 1
        elif text[index] in ")>]}":
            depth -= 1
        elif depth == 0 and text[index] == separator:
            parts.append(text[start:index].strip())
            start = index + 1
        index += 1
    parts.append(text[start:].strip())
    return [part for part in parts if part]


def closing(text, start):
    """The index of the bracket that closes the one at `start`."""
    depth, index = 0, start
    while index < len(text):
        if text.startswith("=>", index):
            index += 2
            continue
        if text[index] in "(<[{":
            depth += 1
        elif text[index] in ")>]}":
            depth -= 1
            if depth == 0:
                return index
        index += 1
    raise ValueError(f"unbalanced: {text}")


WORDS = {
    "number": NUMBER, "boolean": BOOLEAN, "string": STRING, "void": VOID, "this": SELF, "interop.Object": OBJECT,
    "interop.PointerConvertible": POINTER, "interop.Pointer": POINTER, "any": OBJECT,
}


def type_of(text, generics=()):
    text = text.strip()
    if text.startswith("("):
        end = closing(text, 0)
        arrow = text[end + 1 :].strip()
        if arrow.startswith("=>"):
            # A nullable block is printed as "(...) => result | null".
            result = re.sub(r"\s*\|\s*null$", "", arrow[2:].strip())
            return ("block", type_of(result, generics), parameters_of(text[1:end], generics))
        return type_of(text[1:end], generics)
    choices = [choice for choice in split(text, "|") if choice != "null"]
    first = choices[0]
    if first in WORDS:
        return WORDS[first]
    if first in generics:
        return OBJECT
    if found := re.fullmatch(r"interop\.Enum<typeof (\w+)>", first):
        return ("enum", found[1])
    if first.startswith("InstanceType<"):
        return SELF
    return ("class", first.split("<")[0])


def parameters_of(text, generics=()):
    parameters = []
    for part in split(text, ","):
        name, _, kind = part.partition(":")
        if name.strip() != "this":
            parameters.append(type_of(kind, generics))
    return parameters


ACCESSOR = re.compile(r"(static )?(get|set) ([\w$]+)\((.*)\)(?:: (.*))?;")
METHOD = re.compile(r"(static )?([\w$]+)(\?)?(?=[(<])(.*);")
PROPERTY = re.compile(r"(static )?(readonly )?([\w$]+)(\?)?: (.*);")


def member_of(line, generics, members):
    if found := ACCESSOR.fullmatch(line):
        static, name = bool(found[1]), found[3].rstrip("$")
        if found[2] == "get":
            members.append(Member(name, static, False, type_of(found[5], generics), readonly=True))
            return
        for known in members:
            if not known.method and known.name == name and known.static == static:
                known.readonly = False
        return
    if found := METHOD.fullmatch(line):
        rest, own = found[4], list(generics)
        if rest.startswith("<"):
            end = closing(rest, 0)
            own += [part.split()[0] for part in split(rest[1:end], ",") if not part.startswith("This")]
            rest = rest[end + 1 :]
        end = closing(rest, 0)
        result = rest[end + 1 :].lstrip(": ") or "void"
        members.append(Member(found[2].rstrip("$"), bool(found[1]), True, type_of(result, own),
                              parameters_of(rest[1:end], own), optional=bool(found[3])))
        return
    if found := PROPERTY.fullmatch(line):
        members.append(Member(found[3].rstrip("$"), bool(found[1]), False, type_of(found[5], generics),
                              readonly=bool(found[2]), optional=bool(found[4])))
        return
    raise ValueError(f"unexpected in the description: {line}")


HEAD = re.compile(r"declare (class|interface) ([\w$]+)(<.*?>)?(?: extends ([^{]*?))?(?: implements ([^{]*?))? \{(\})?")


class Framework:
    """The contents of one file. The members of a type are read when needed."""

    def __init__(self, path):
        self.types, self.constants, self.enums, self.functions = {}, {}, {}, {}
        self._made = {}
        self._lines = path.read_text().splitlines()
        for number, line in enumerate(self._lines):
            if line.startswith("declare "):
                self._read(number, line)

    def _read(self, number, line):
        if found := re.fullmatch(r"declare const ([\w$]+): \{(\};)?", line):
            self.enums[found[1]] = {} if found[2] else self._enumerators(number + 1)
        elif found := re.fullmatch(r"declare const ([\w$]+): (.*);", line):
            self.constants[found[1]] = found[2]
        elif found := re.fullmatch(r"declare function ([\w$]+)(.*);", line):
            self.functions[found[1]] = found[2]
        elif found := HEAD.fullmatch(line):
            kind = "protocol" if found[1] == "interface" else "class"
            # A protocol is listed twice, as an interface and as a value; the interface has the members.
            if kind == "protocol" or found[2] not in self.types:
                self.types[found[2]] = (kind, number, found)
        else:
            raise ValueError(f"unexpected in the description: {line}")

    def _enumerators(self, number):
        values = {}
        while self._lines[number] != "};":
            found = re.fullmatch(r"\s*([\w$]+): (-?[\d.e+]+),", self._lines[number])
            if found:
                values[found[1]] = int(found[2]) if re.fullmatch(r"-?\d+", found[2]) else float(found[2])
            number += 1
        return values

    def type(self, name):
        if name in self.types and name not in self._made:
            self._made[name] = self._make(name)
        return self._made.get(name)

    def _make(self, name):
        kind, number, found = self.types[name]
        generics = [part.split()[0] for part in split(found[3][1:-1], ",")] if found[3] else []
        parents = [part.split("<")[0] for part in split(found[4] or "", ",")]
        protocols = [part.split("<")[0] for part in split(found[5] or "", ",")]
        members = []
        while not found[6] and self._lines[number := number + 1] != "}":
            line = self._lines[number].strip()
            if line and not line.startswith(("constructor(", "//", "readonly [Symbol.")):
                member_of(line, generics, members)
        if kind == "protocol":
            return Type(name, kind, None, parents, generics, members)
        return Type(name, kind, parents[0] if parents else None, protocols, generics, members)

    def constant(self, name):
        return type_of(self.constants[name]) if name in self.constants else None

    def function(self, name):
        if name not in self.functions:
            return None
        rest = self.functions[name]
        end = closing(rest, 0)
        return type_of(rest[end + 1 :].lstrip(": ") or "void"), parameters_of(rest[1:end])


class Description:
    """All files, each read when first needed."""

    def __init__(self, package):
        self._folder = pathlib.Path(package) / "types"
        self._read = {}

    def framework(self, name):
        if name not in self._read:
            self._read[name] = Framework(self._folder / f"{name}.d.ts")
        return self._read[name]
