"""Compares each of our declarations with the description. Gives one line per difference."""

import difflib
import re

from description import NUMBER, SELF

# The files of the description that are part of one framework.
BRINGS = {
    "Foundation": ["Foundation", "CoreFoundation", "Runtime"],
    "CoreFoundation": ["CoreFoundation", "Runtime"],
    "CoreServices": ["CoreServices", "Runtime"],
    "ApplicationServices": ["ApplicationServices", "Runtime"],
    "Carbon": ["Carbon"],
    "AppKit": ["AppKit"],
}
# A protocol with the name of a class has another name in the description.
PROTOCOL_NAMES = {"NSObject": "NSObjectProtocol"}


def shown(kind):
    if isinstance(kind, str):
        return kind
    if kind[0] == "block":
        return f"block({', '.join(map(shown, kind[2]))}) -> {shown(kind[1])}"
    return " = ".join(kind[1]) if kind[0] == NUMBER else kind[1]


class Comparison:
    def __init__(self, description, names_nearest=True):
        self._description, self._names_nearest = description, names_nearest
        self.problems = []

    # Declarations that a framework can use.

    def _frameworks(self, declared):
        return [self._description.framework(name) for name in BRINGS[declared.framework]]

    def _type(self, declared, name):
        """The first one with members; a class can occur in several files."""
        return next((found for each in self._frameworks(declared) if (found := each.type(name))), None)

    def _family(self, declared, name):
        """The type, its ancestors and their protocols, the nearest first."""
        family, waiting = [], [name]
        while waiting:
            current = self._type(declared, waiting.pop(0))
            if current and current not in family:
                family.append(current)
                waiting += ([current.superclass] if current.superclass else []) + current.protocols
        return family

    def _is_enum(self, declared, name):
        return any(name in each.enums for each in self._frameworks(declared))

    # Problems.

    def _problem(self, declared, text, known=()):
        near = difflib.get_close_matches(declared.name, known, 1, 0.5) if self._names_nearest else ()
        self.problems.append(f"{declared.where}: {text}" + (f"; the nearest known name is {near[0]}" if near else ""))

    def _unknown(self, declared, known):
        elsewhere = [other for other in BRINGS if other not in BRINGS[declared.framework]
                     and self._names(self._description.framework(other), declared)]
        if elsewhere:
            self._problem(declared, f"{declared.name} belongs to {elsewhere[0]}, not to {declared.framework}")
            return
        self._problem(declared, f"{declared.framework} has no {declared.kind} {declared.name}", known)

    @staticmethod
    def _names(framework, declared):
        if declared.kind == "function":
            return declared.name in framework.functions
        if declared.kind in ("constant", "enumerator"):
            return declared.name in framework.constants
        return declared.name in framework.types

    # Types.

    def _same(self, declared, ours, theirs):
        if isinstance(theirs, tuple) and theirs[0] == "block":
            return (isinstance(ours, tuple) and ours[0] == "block" and self._same(declared, ours[1], theirs[1])
                    and len(ours[2]) == len(theirs[2])
                    and all(self._same(declared, *pair) for pair in zip(ours[2], theirs[2], strict=True)))
        if isinstance(ours, tuple) and ours[0] == NUMBER:
            if isinstance(theirs, tuple):
                return theirs[0] == "enum" and theirs[1] in ours[1]
            return theirs == NUMBER and not any(self._is_enum(declared, alias) for alias in ours[1])
        return ours == theirs

    def _signature(self, declared, ours, theirs):
        (our_result, our_parameters), (their_result, their_parameters) = ours, theirs
        if len(our_parameters) != len(their_parameters):
            self._problem(declared, f"{declared.name} takes {len(their_parameters)} arguments, not {len(our_parameters)}")
            return
        for index, (mine, right) in enumerate(zip(our_parameters, their_parameters, strict=True), 1):
            if not self._same(declared, mine, right):
                self._problem(declared, f"argument {index} of {declared.name} is {shown(right)}, not {shown(mine)}")
        if not self._same(declared, our_result, their_result):
            self._problem(declared, f"{declared.name} gives {shown(their_result)}, not {shown(our_result)}")

    # One declaration each.

    def check(self, declared):
        getattr(self, f"_check_{declared.kind}")(declared)

    def _check_class(self, declared):
        found = self._type(declared, declared.name)
        if found is None or found.kind != "class" or found.superclass is None:
            names = [name for each in self._frameworks(declared) for name in each.types]
            self._unknown(declared, names)
            return
        if declared.value.superclass != found.superclass:
            self._problem(declared, f"{declared.name} inherits from {found.superclass}, not from {declared.value.superclass}")
        self._check_protocols(declared)

    def _check_protocol(self, declared):
        found = self._type(declared, declared.name)
        if found is None or found.kind != "protocol":
            self._unknown(declared, [name for each in self._frameworks(declared) for name in each.types])
            return
        self._check_protocols(declared)

    def _check_protocols(self, declared):
        adopted = {each.name for each in self._family(declared, declared.name)}
        for name in declared.value.protocols:
            if PROTOCOL_NAMES.get(name, name) not in adopted:
                self._problem(declared, f"{declared.name} doesn't adopt {name}")

    def _check_structure(self, declared):
        found = self._type(declared, declared.name)
        if found is None or found.superclass is not None:
            self._unknown(declared, [name for each in self._frameworks(declared) for name in each.types])
            return
        ours = [member.name for member in declared.value.members]
        theirs = [member.name for member in found.members]
        if ours != theirs:
            self._problem(declared, f"the fields of {declared.name} are {', '.join(theirs)}, not {', '.join(ours)}")

    def _check_member(self, declared):
        ours, owner = declared.value, declared.owner
        family = self._family(declared, owner.name)
        if not family or owner.kind == "structure":
            return  # already reported for the type
        named = [member for each in family for member in each.members if member.name == ours.name]
        same = [member for member in named if (member.static, member.method) == (ours.static, ours.method)]
        if not named:
            self._problem(declared, f"{owner.name} has no {ours.kind} {ours.name}",
                          {member.name for each in family for member in each.members})
        elif not same:
            self._problem(declared, f"{ours.name} is a {named[0].kind} of {owner.name}, not a {ours.kind}")
        else:
            self._check_same_member(declared, ours, same)

    def _check_same_member(self, declared, ours, same):
        theirs = next((each for each in same if len(each.parameters) == len(ours.parameters)), same[0])
        result = theirs.result
        if SELF in (ours.result, result) and {ours.result, result} <= {SELF, ("class", declared.owner.name)}:
            result = ours.result  # the description doesn't always distinguish the class from `instancetype`
        self._signature(declared, (ours.result, ours.parameters), (result, theirs.parameters))
        if not ours.method and theirs.readonly and not ours.readonly:
            self._problem(declared, f"{ours.name} of {declared.owner.name} is readonly")
        if declared.owner.kind == "protocol" and ours.optional != theirs.optional:
            wanted = "optional" if theirs.optional else "required"
            self._problem(declared, f"{ours.name} is {wanted} in {declared.owner.name}")

    def _check_enumerator(self, declared):
        value, enumeration = declared.value
        for framework in self._frameworks(declared):
            if declared.name in framework.constants:
                if framework.constant(declared.name) != NUMBER:
                    self._problem(declared, f"{declared.name} isn't a number")
                elif enumeration and self._is_enum(declared, enumeration):
                    self._problem(declared, f"{declared.name} doesn't belong to {enumeration}")
                return
        homes = self._homes(declared)
        if not homes:
            self._unknown(declared, self._enumerators(declared))
            return
        home = enumeration if enumeration in homes else next(iter(homes))
        if enumeration != home:
            self._problem(declared, f"{declared.name} belongs to {home}, not to {enumeration or 'no enumeration'}")
        if value != homes[home]:
            self._problem(declared, f"{declared.name} is {homes[home]}, not {value}")

    def _homes(self, declared):
        """enumeration -> value. The description omits the common prefix of an enumerator and its enumeration."""
        homes = {}
        for framework in self._frameworks(declared):
            for enumeration, values in framework.enums.items():
                for key, value in values.items():
                    if declared.name.endswith(key) and enumeration.startswith(declared.name[: -len(key)]):
                        homes[enumeration] = value
        return homes

    def _enumerators(self, declared):
        """The possible names of an enumerator."""
        for framework in self._frameworks(declared):
            yield from framework.constants
            for enumeration, values in framework.enums.items():
                words = re.findall(r"[A-Z]+(?![a-z])|[A-Z][a-z0-9]*", enumeration)
                for count in range(1, len(words)):
                    yield from ("".join(words[:count]) + key for key in values)

    def _check_constant(self, declared):
        kind = next((found for each in self._frameworks(declared) if (found := each.constant(declared.name))), None)
        if kind is None:
            self._unknown(declared, [name for each in self._frameworks(declared) for name in each.constants])
        elif not self._same(declared, declared.value, kind):
            self._problem(declared, f"{declared.name} is a {shown(kind)}, not a {shown(declared.value)}")

    def _check_function(self, declared):
        found = next((found for each in self._frameworks(declared) if (found := each.function(declared.name))), None)
        if found is None:
            self._unknown(declared, [name for each in self._frameworks(declared) for name in each.functions])
        else:
            self._signature(declared, declared.value, found)

    def _check_typedef(self, declared):
        if not self._is_enum(declared, declared.name):
            self._problem(declared, f"{declared.framework} has no enumeration {declared.name}")


def compare(declarations, description, unlisted):
    """`unlisted`: name -> place, of what the description doesn't list. One line for each problem."""
    problems = []
    for declared in declarations.found:
        name = declared.full_name
        comparison = Comparison(description, names_nearest=name not in unlisted)
        comparison.check(declared)
        if name not in unlisted:
            problems += comparison.problems
        elif not comparison.problems:
            problems.append(f"{unlisted[name]}: {name} is listed by the description after all")
    names = {declared.full_name for declared in declarations.found}
    problems += [f"{where}: {name} isn't declared any longer" for name, where in unlisted.items() if name not in names]
    return problems
