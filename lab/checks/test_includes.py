"""A layer of the engine includes only itself and lower layers, and the lab includes only the headers that it shares."""

import pathlib
import re

TOP = pathlib.Path(__file__).resolve().parents[2]
LIBRARY = TOP / "engines/macos/Sources/SharedInstallerLib"
LAYERS = ["Base", "Platform", "Models", "Utils", "Installer", "Engine"]  # each may include itself and those before it
HOSTS = ("Platform/Linux/", "Platform/Darwin/")
# The parts of the engine with which the publisher's tools read and check files.
SHARED_WITH_THE_LAB = re.compile(r"Base/|Models/|Utils/URLTrust\.h")
INCLUDE = re.compile(r'^#(?:include|import) "([A-Z]\w*/[^"]+)"', re.MULTILINE)


def includes(folder):
    for source in sorted(path for path in folder.rglob("*") if path.suffix in (".h", ".cpp", ".mm")):
        for included in INCLUDE.findall(source.read_text()):
            yield source.relative_to(TOP if folder != LIBRARY else LIBRARY).as_posix(), included


def layer(path):
    return path.split("/")[0]


def wrong_in_the_library(source, included):
    if layer(included) not in LAYERS or layer(source) not in LAYERS:
        return True
    if LAYERS.index(layer(included)) > LAYERS.index(layer(source)):
        return True
    return included.startswith(HOSTS) and not source.startswith(HOSTS)


def test_the_library_includes_downwards_only():
    found = list(includes(LIBRARY))
    assert len(found) > 500
    assert [pair for pair in found if wrong_in_the_library(*pair)] == []


def test_the_lab_includes_what_it_shares_and_nothing_else_of_the_engine():
    found = [pair for pair in includes(TOP / "lab") if layer(pair[1]) in LAYERS]
    assert found
    assert [pair for pair in found if not SHARED_WITH_THE_LAB.match(pair[1])] == []


def test_a_wrong_include_is_seen():
    assert wrong_in_the_library("Utils/A.h", "Installer/B.h")
    assert wrong_in_the_library("Installer/A.cpp", "Platform/Linux/LinuxHost.h")
    assert not wrong_in_the_library("Platform/Linux/LinuxHost.cpp", "Platform/Linux/HTTP/CurlEngine.h")
    assert not wrong_in_the_library("Engine/A.h", "Base/Text.h")
