"""Our declarations in `packaging/macos/include`, read with libclang."""

import ctypes
import pathlib
import re
import tempfile
from dataclasses import dataclass, field
from typing import ClassVar

from clang import cindex
from clang.cindex import CursorKind, TypeKind
from description import BOOLEAN, NUMBER, OBJECT, POINTER, SELF, STRING, VOID, Member, Type

# The compiler's headers that ours import, so that the check doesn't need the compiler.
RUNTIME = {
    "objc/objc.h": "typedef signed char BOOL;\ntypedef long NSInteger;\ntypedef unsigned long NSUInteger;\n",
    "objc/NSObject.h": "#include <objc/objc.h>\n@protocol NSObject\n@end\n"
                       "__attribute__((objc_root_class)) @interface NSObject <NSObject>\n@end\n",
    "stdint.h": "".join(f"typedef __{sign}INT{width}_TYPE__ {sign.lower()}int{width}_t;\n"
                        for sign in ("", "U") for width in (8, 16, 32, 64)),
}
ARGUMENTS = ["-x", "objective-c++", "-std=c++23", "-target", "arm64-apple-macos12.0", "-fobjc-arc", "-nostdinc", "-w"]
NAMED = {"BOOL": BOOLEAN, "SEL": STRING, "instancetype": SELF, "id": OBJECT, "Class": OBJECT}
PLAIN = {TypeKind.VOID: VOID, TypeKind.BOOL: BOOLEAN, TypeKind.OBJCID: OBJECT, TypeKind.OBJCCLASS: OBJECT,
         TypeKind.OBJCTYPEPARAM: OBJECT}
READONLY, OF_THE_CLASS = 1, 1 << 12  # bits of a property's attributes

ATTRIBUTES = cindex.conf.lib.clang_Cursor_getObjCPropertyAttributes
OPTIONAL = cindex.conf.lib.clang_Cursor_isObjCOptional
ATTRIBUTES.argtypes, OPTIONAL.argtypes = [cindex.Cursor, ctypes.c_uint], [cindex.Cursor]


@dataclass
class Declared:
    """A declaration and its place."""

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
    types: dict = field(default_factory=dict)
    errors: list = field(default_factory=list)  # unknown constructs

    def named(self, *kinds):
        return {declared.name: declared for declared in self.found if declared.kind in kinds}

    def family(self, name):
        """Our type of that name, its ancestors and their protocols."""
        found = self.types.get(name)
        parents = [*found.protocols, found.superclass] if found else []
        return [found, *(each for parent in parents for each in self.family(parent))] if found else []


class Reader:
    """Reads the headers `paths` in `folder`."""

    def __init__(self, folder, paths):
        self._folder, self._paths, self._into = folder, paths, Declarations()

    def read(self):
        main = "".join(f'#import "{self._folder}/{path}"\n' for path in self._paths)
        includes = {f"-I{self._folder}/{path.rsplit('/', 2)[0]}" for path in self._paths}
        unit = cindex.Index.create().parse("all.mm", [*ARGUMENTS, *includes, f"-I{self._folder}/runtime"],
                                           [("all.mm", main)])
        for problem in unit.diagnostics:
            self._into.errors.append(f"{self._where(problem.location)}: {problem.spelling}")
        for cursor in unit.cursor.walk_preorder():
            if cursor.location.file and self._path(cursor.location) in self._paths and cursor.kind in self.READERS:
                self.READERS[cursor.kind](self, cursor)
        return self._into

    def _path(self, location):
        return location.file.name.removeprefix(f"{self._folder}/") if location.file else ""

    def _where(self, location):
        return f"{self._path(location)}:{location.line}"

    def _add(self, kind, cursor, value, name=None, owner=None, inline=False):
        framework = self._path(cursor.location).split("/")[-2]
        self._into.found.append(Declared(kind, name or cursor.spelling, framework, self._where(cursor.location), value,
                                         owner, inline))

    # Types.

    def _type(self, kind):
        if kind.kind == TypeKind.ELABORATED:
            return self._type(kind.get_named_type())
        if kind.kind == TypeKind.TYPEDEF:
            return self._typedef_type(kind.get_declaration())
        if kind.kind == TypeKind.OBJCOBJECTPOINTER:
            name, protocol = re.match(r"(?:(?:const|__\w+) )*(\w+)(?:<(\w+))?", kind.spelling).groups()
            return STRING if name == "NSString" else ("class", protocol if name == "id" else name)
        if kind.kind == TypeKind.BLOCKPOINTER:
            return ("block", *self._signature(kind.get_pointee()))
        if kind.kind == TypeKind.POINTER:
            return STRING if kind.get_pointee().kind in (TypeKind.CHAR_S, TypeKind.CHAR_U) else POINTER
        if kind.kind in (TypeKind.INCOMPLETEARRAY, TypeKind.CONSTANTARRAY):
            return POINTER
        if kind.kind == TypeKind.RECORD:
            return ("class", kind.get_declaration().spelling)
        return PLAIN.get(kind.kind, NUMBER)

    def _typedef_type(self, declaration):
        name = declaration.spelling
        if name in NAMED:
            return NAMED[name]
        kind = self._type(declaration.underlying_typedef_type)
        if kind == POINTER and name.endswith("Ref"):
            return OBJECT
        if (kind != NUMBER and kind[0] != NUMBER) or self._path(declaration.location) not in self._paths:
            return kind
        return (NUMBER, (name, *(kind[1] if kind != NUMBER else ())))

    def _signature(self, function):
        return self._type(function.get_result()), [self._type(each) for each in function.argument_types()]

    # Declarations.

    def _interface(self, cursor):
        kind = "protocol" if cursor.kind == CursorKind.OBJC_PROTOCOL_DECL else "class"
        references = [(child.kind, child.spelling) for child in cursor.get_children()]
        parents = [name for each, name in references if each == CursorKind.OBJC_SUPER_CLASS_REF]
        protocols = [name for each, name in references if each == CursorKind.OBJC_PROTOCOL_REF]
        owner = Type(cursor.spelling, kind, parents[0] if parents else None, protocols, [], [])
        self._into.types[owner.name] = owner
        self._add(kind, cursor, owner)

    def _member(self, cursor, member):
        owner = self._into.types.get(cursor.semantic_parent.spelling)
        # The methods of a property have its place. The members of an unknown construct are skipped.
        if owner is None or any(each.owner is owner and each.where == self._where(cursor.location) for each in self._into.found):
            return
        member.optional = bool(OPTIONAL(cursor))
        owner.members.append(member)
        self._add("member", cursor, member, member.name, owner)

    def _property(self, cursor):
        bits = ATTRIBUTES(cursor, 0)
        self._member(cursor, Member(cursor.spelling, bool(bits & OF_THE_CLASS), False, self._type(cursor.type),
                                    readonly=bool(bits & READONLY)))

    def _method(self, cursor):
        parts = cursor.spelling.removesuffix(":").split(":")
        name = parts[0] + "".join(part[0].upper() + part[1:] for part in parts[1:])
        parameters = [self._type(each.type) for each in cursor.get_arguments()]
        self._member(cursor, Member(name, cursor.kind == CursorKind.OBJC_CLASS_METHOD_DECL, True,
                                    self._type(cursor.result_type), parameters, parts=tuple(parts)))

    def _typedef(self, cursor):
        record = cursor.underlying_typedef_type.get_canonical()
        if record.kind != TypeKind.RECORD:
            return self._add("typedef", cursor, self._typedef_type(cursor))
        members = [Member(each.spelling, False, False, self._type(each.type)) for each in record.get_fields()]
        self._into.types[cursor.spelling] = Type(cursor.spelling, "structure", None, [], [], members)
        return self._add("structure", cursor, self._into.types[cursor.spelling])

    def _enumerator(self, cursor):
        kind = cursor.semantic_parent.enum_type
        name = kind.get_declaration().spelling or None
        self._add("enumerator", cursor, (cursor.enum_value, name))

    def _constant(self, cursor):
        self._add("constant", cursor, self._type(cursor.type))

    def _function(self, cursor):
        self._add("function", cursor, self._signature(cursor.type),
                  inline=cursor.storage_class == cindex.StorageClass.STATIC)

    def _category(self, cursor):
        self._into.errors.append(f"{self._where(cursor.location)}: a category isn't compared with anything")

    READERS: ClassVar = {
        CursorKind.OBJC_INTERFACE_DECL: _interface, CursorKind.OBJC_PROTOCOL_DECL: _interface,
        CursorKind.OBJC_PROPERTY_DECL: _property, CursorKind.OBJC_INSTANCE_METHOD_DECL: _method,
        CursorKind.OBJC_CLASS_METHOD_DECL: _method, CursorKind.TYPEDEF_DECL: _typedef,
        CursorKind.ENUM_CONSTANT_DECL: _enumerator, CursorKind.VAR_DECL: _constant,
        CursorKind.FUNCTION_DECL: _function, CursorKind.OBJC_CATEGORY_DECL: _category,
    }


def read(sources):
    """`sources`: path -> text of every header."""
    with tempfile.TemporaryDirectory() as folder:
        runtime = {f"runtime/{path}": text for path, text in RUNTIME.items()}
        for path, text in (sources | runtime).items():
            file = pathlib.Path(folder, path)
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)
        return Reader(folder, sorted(sources)).read()
