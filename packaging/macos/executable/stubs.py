"""Reads text-based stub libraries: install name and symbols."""

import re

DOCUMENT = re.compile(r"^--- !tapi-tbd\n(.*?)(?=^--- !tapi-tbd\n|^\.\.\.|\Z)", re.MULTILINE | re.DOTALL)
INSTALL_NAME = re.compile(r"^install-name:\s*'?([^'\n]+?)'?$", re.MULTILINE)
SECTION = re.compile(r"^(exports|reexports):\n(.*?)(?=^\S|\Z)", re.MULTILINE | re.DOTALL)
GROUP = re.compile(r"- targets:\s*\[([^\]]*)\]\n(.*?)(?=^\s*- targets:|\Z)", re.MULTILINE | re.DOTALL)
LIST = re.compile(r"(symbols|weak-symbols|objc-classes|thread-local-symbols):\s*\[([^\]]*)\]")
REEXPORTED = re.compile(r"^reexported-libraries:\n(.*?)(?=^[a-z]\S*:|\Z)", re.MULTILINE | re.DOTALL)
WORD = re.compile(r"'([^']*)'|([^\s,\[\]']+)")
CLASS_SYMBOLS = ("_OBJC_CLASS_$_", "_OBJC_METACLASS_$_")

# The stubs' names of a slice's architecture. A library for arm64e only can be linked for arm64 too.
TARGETS = {"arm64": ("arm64-macos", "arm64e-macos"), "x86_64": ("x86_64-macos",)}


def words(text):
    return [quoted or bare for quoted, bare in WORD.findall(text)]


def symbols_of(document, architecture):
    found = set()
    for _, section in SECTION.findall(document):
        for targets, group in GROUP.findall(section):
            if not set(words(targets)) & set(TARGETS[architecture]):
                continue
            for kind, names in LIST.findall(group):
                prefixes = CLASS_SYMBOLS if kind == "objc-classes" else ("",)
                found.update(prefix + name for name in words(names) for prefix in prefixes)
    return found


def read(text, architecture):
    """The install name and the symbols, including reexported ones, of the first library in `text`."""
    documents = DOCUMENT.findall(text)
    if not documents:
        raise ValueError("no stub of a library")
    names = [INSTALL_NAME.search(each)[1] for each in documents]
    passed_on = set(names[1:])
    for listed in REEXPORTED.findall(documents[0]):
        passed_on &= set(words(listed))
    symbols = symbols_of(documents[0], architecture)
    for name, document in zip(names, documents, strict=True):
        if name in passed_on:
            symbols |= symbols_of(document, architecture)
    return names[0], symbols
