"""Our own declarations: what `packaging/macos/include` says, taken apart.

Reads the small part of C and Objective-C in which those headers are written, and nothing else: what isn't
understood is an error, so that no declaration escapes the check.
"""

import re
from dataclasses import dataclass, field

from description import BOOLEAN, NUMBER, OBJECT, POINTER, SELF, STRING, VOID, Member, Type
from tokens import NotUnderstood, Tokens

IMPORT = re.compile(r"^[ \t]*#\s*(?:import|include) <(\w+/\w+\.h)>", re.M)

NUMBERS = {
    "char", "short", "int", "long", "unsigned", "signed", "float", "double", "size_t", "NSInteger", "NSUInteger",
    "int8_t", "uint8_t", "int16_t", "uint16_t", "int32_t", "uint32_t", "int64_t", "uint64_t",
}
QUALIFIERS = {"const", "__unsafe_unretained", "__autoreleasing", "struct", "static", "inline", "extern"}


@dataclass
class Declared:
    """One declaration and where it stands."""

    kind: str  # "class", "protocol", "structure", "member", "enumerator", "constant", "function" or "typedef"
    name: str
    framework: str
    where: str  # file:line
    value: object = None  # Type, Member, type, (result, parameters) or (value, enumeration)
    owner: Type | None = None  # of a member
    inline: bool = False  # a function that needs no library

    @property
    def full_name(self):
        return f"{self.owner.name}.{self.name}" if self.owner else self.name


@dataclass
class Declarations:
    found: list = field(default_factory=list)
    typedefs: dict = field(default_factory=dict)
    types: dict = field(default_factory=dict)
    forward: set = field(default_factory=set)

    def named(self, *kinds):
        return {declared.name: declared for declared in self.found if declared.kind in kinds}

    def family(self, name):
        """Our type of that name, what it inherits from and the protocols of all of them."""
        found = self.types.get(name)
        parents = [*found.protocols, found.superclass] if found else []
        return [found, *(each for parent in parents for each in self.family(parent))] if found else []


def number(*aliases):
    """A number under the names of its typedefs, the outermost first."""
    return (NUMBER, aliases) if aliases else NUMBER


class Header(Tokens):
    """Reads one header into `into`."""

    def __init__(self, path, text, into):
        super().__init__(path, text)
        self._into, self._framework = into, path.split("/")[-2]
        self._generics = []

    def _add(self, kind, name, where, value=None, owner=None, inline=False):
        self._into.found.append(Declared(kind, name, self._framework, where, value, owner, inline))

    # Types.

    def _type(self, tokens):
        tokens = [token for token in tokens if token not in QUALIFIERS]
        if "^" in tokens:
            start = tokens.index("^") - 1
            parameters = tokens[tokens.index(")", start) + 2 : -1]
            return ("block", self._type(tokens[:start]), self._parameters(parameters))
        if "<" in tokens:
            start, end = tokens.index("<"), len(tokens) - 1 - tokens[::-1].index(">")
            if tokens[0] == "id":
                return ("class", tokens[start + 1])
            tokens = tokens[:start] + tokens[end + 1 :]
        stars = tokens.count("*") + tokens.count("[")
        return self._named([token for token in tokens if token not in "*[]"], stars)

    def _named(self, base, stars):
        name = base[0] if base else ""
        if name == "NSString" and stars == 1 or name == "char" and stars == 1:
            return STRING
        if stars == 1 and (name in self._into.forward or self._kind(name) == "class"):
            return ("class", name)
        if stars:
            return POINTER
        if name in ("id", "Class") or name in self._generics:
            return OBJECT
        plain = {"void": VOID, "BOOL": BOOLEAN, "bool": BOOLEAN, "instancetype": SELF, "SEL": STRING}
        if name in plain:
            return plain[name]
        if name in self._into.typedefs:
            return self._into.typedefs[name]
        if all(word in NUMBERS for word in base):
            return NUMBER
        if self._kind(name) == "structure":
            return ("class", name)
        raise NotUnderstood(f"{self._where()}: the type {' '.join(base)} isn't declared")

    def _kind(self, name):
        return self._into.types[name].kind if name in self._into.types else None

    def _parameters(self, tokens):
        parameters, part, depth = [], [], 0
        for token in [*tokens, ","]:
            if token == "," and depth == 0:
                if part and part != ["void"]:
                    parameters.append(self._type(self._unnamed(part)))
                part = []
                continue
            depth += token in ("(", "<", "[")
            depth -= token in (")", ">", "]")
            part.append(token)
        return parameters

    @staticmethod
    def _unnamed(part):
        """A parameter without its name."""
        words = [token for token in part if re.fullmatch(r"\w+", token) and token not in QUALIFIERS]
        return part[:-1] if len(words) > 1 and re.fullmatch(r"\w+", part[-1]) else part

    # Declarations.

    def read(self):
        while self._at < len(self._tokens):
            self._declaration()

    def _declaration(self):
        token = self._peek()
        if token == "@class":
            self._next()
            self._into.forward.update(self._list(";"))
        elif token in ("@interface", "@protocol"):
            self._interface("class" if self._next() == "@interface" else "protocol")
        elif token == "typedef":
            self._typedef()
        elif token == "enum":
            self._enumeration()
        elif token == "struct":
            self._next()
            self._structure(self._next())
            self._next(";")
        else:
            self._variable_or_function()

    def _interface(self, kind):
        where, name = self._where(), self._next()
        generics, superclass, protocols = [], None, []
        if kind == "class" and self._skip("<"):
            generics = self._list(">")
        if self._skip(":"):
            superclass = self._next()
            if self._skip("<") and self._peek() in generics:
                self._list(">")
            elif self._peek(-1) == "<":
                protocols = self._list(">")
        if self._skip("<"):
            protocols = self._list(">")
        declared = Type(name, kind, superclass, protocols, generics, [])
        self._into.types[name] = declared
        self._generics = generics
        self._add(kind, name, where, declared)
        self._members(declared)
        self._generics = []

    def _members(self, owner):
        optional = False
        while not self._skip("@end"):
            where, token = self._where(), self._next()
            if token in ("@optional", "@required"):
                optional = token == "@optional"
                continue
            if token == "@property":
                member = self._property()
            elif token in "+-":
                member = self._method(static=token == "+")
            else:
                raise NotUnderstood(f"{where}: {token} isn't understood among the members of {owner.name}")
            member.optional = optional
            owner.members.append(member)
            self._add("member", member.name, where, member, owner)

    def _property(self):
        attributes = self._list(")") if self._skip("(") else []
        tokens = self._until(";")
        # A block has its name inside: void (^name)(...).
        name = tokens.pop(tokens.index("^") + 1 if "^" in tokens else -1)
        return Member(name, "class" in attributes, False, self._type(tokens), readonly="readonly" in attributes)

    def _method(self, static):
        self._next("(")
        result = self._type(self._until(")"))
        parts, parameters = [self._next()], []
        while not self._skip(";"):
            if self._peek() != ":":
                parts.append(self._next())
            self._next(":")
            self._next("(")
            parameters.append(self._type(self._until(")")))
            self._next()
        name = parts[0] + "".join(part[0].upper() + part[1:] for part in parts[1:])
        return Member(name, static, True, result, parameters, parts=tuple(parts))

    def _typedef(self):
        where = self._where()
        self._next("typedef")
        if self._peek() == "struct" and "{" in (self._peek(1), self._peek(2)):
            self._next()
            tag = None if self._peek() == "{" else self._next()
            name = self._structure(tag)
            self._next(";")
            return
        tokens = self._until(";")
        name, kind = tokens[-1], self._type_of_typedef(tokens[:-1])
        if isinstance(kind, tuple) and kind[0] == NUMBER:
            kind = number(name, *kind[1])
        elif kind == NUMBER:
            kind = number(name)
        elif kind == POINTER and name.endswith("Ref"):
            kind = OBJECT
        self._into.typedefs[name] = kind
        self._add("typedef", name, where, kind)

    def _type_of_typedef(self, tokens):
        if "struct" in tokens and tokens[-1] == "*":
            return POINTER
        return self._type(tokens)

    def _structure(self, tag):
        where, fields = self._where(), []
        self._next("{")
        while not self._skip("}"):
            tokens = self._until(";")
            if "[" in tokens and tokens.index("[") > 0:
                fields.append((tokens[tokens.index("[") - 1], POINTER))
                continue
            fields.append((tokens[-1], self._type(tokens[:-1])))
        name = self._next() if self._peek() != ";" else tag
        declared = Type(name, "structure", None, [], [], [Member(each, False, False, kind) for each, kind in fields])
        self._into.types[name] = declared
        self._add("structure", name, where, declared)
        return name

    def _enumeration(self):
        self._next("enum")
        enumeration = self._next() if self._skip(":") else None
        self._next("{")
        value = -1
        while not self._skip("}"):
            where, name = self._where(), self._next()
            value = self._value() if self._skip("=") else value + 1
            self._add("enumerator", name, where, (value, enumeration))
            self._skip(",")
        self._next(";")

    def _value(self):
        sign = -1 if self._skip("-") else 1
        token = self._next()
        if token.startswith("'"):
            return int.from_bytes(token[1:-1].encode(), "big")
        return sign * int(token, 0)

    def _variable_or_function(self):
        if self._peek() == "extern" and self._peek(1) == '"C"':
            self._at += 2
        where, tokens = self._where(), []
        while self._peek() not in ("(", ";"):
            tokens.append(self._next())
        name, kind = tokens[-1], self._type(tokens[:-1])
        if self._next() == ";":
            self._add("constant", name, where, kind)
            return
        signature = (kind, self._parameters(self._until(")")))
        self._add("function", name, where, signature, inline="inline" in tokens)
        if self._skip("{"):
            self._until("}")
        else:
            self._next(";")


def read(sources):
    """`sources`: path -> text of every header. Each is read after those that it imports."""
    into, done = Declarations(), set()

    def visit(path):
        if path in done:
            return
        done.add(path)
        for imported in IMPORT.findall(sources[path]):
            for other in sources:
                if other.endswith("/" + imported):
                    visit(other)
        Header(path, sources[path], into).read()

    for path in sorted(sources):
        visit(path)
    return into
