"""A layer of the engine includes only itself and lower layers, a host nothing of the other one, the executable and the fakes
no host, and the lab only the headers that it shares.
"""

import pathlib
import re

TOP = pathlib.Path(__file__).resolve().parents[2]
ENGINE = TOP / "engines/macos"
LIBRARY = ENGINE / "Sources/SharedInstallerLib"
LAYERS = ["Base", "Platform", "Models", "Utils", "Installer", "Engine"]  # each may include itself and those before it
HOSTS = ("Platform/Linux/", "Platform/Darwin/")
# The publisher's tools write and check a tree of a CDN with the engine's own readers.
SHARED_WITH_THE_LAB = {"Models/AppInfo.h", "Models/CDNLayout.h", "Models/Deployment.h", "Models/PackageMeta.h",
                       "Models/ReleaseNotes.h", "Utils/URLTrust.h"}
# One fake is a package source and not a service of the machine.
SHARED_WITH_THE_FAKES = {"Models/PackageProvider.h"}
INCLUDE = re.compile(r'^#(?:include|import) "([^"]+)"', re.MULTILINE)


def includes(folder):
    """(source, included) of all quoted includes below `folder`."""
    for source in sorted(path for path in folder.rglob("*") if path.suffix in (".h", ".cpp", ".mm")):
        for included in INCLUDE.findall(source.read_text()):
            yield source.relative_to(folder).as_posix(), included


def layer(path):
    return path.split("/")[0]


def is_generated(included):
    return included.endswith(".inc")


def wrong_in_the_library(source, included):
    if is_generated(included):
        return False
    if layer(included) not in LAYERS or layer(source) not in LAYERS:
        return True
    if LAYERS.index(layer(included)) > LAYERS.index(layer(source)):
        return True
    return included.startswith(HOSTS) and not any(source.startswith(host) and included.startswith(host) for host in HOSTS)


def wrong_in_the_executable(included):
    return "/" in included and (layer(included) not in LAYERS or included.startswith(HOSTS))


def wrong_in_the_fakes(included):
    if included in SHARED_WITH_THE_FAKES:
        return False
    return layer(included) not in ("Support", "Base", "Platform") or included.startswith(HOSTS)


def test_the_library_includes_downwards_only():
    found = list(includes(LIBRARY))
    assert len(found) > 500
    assert [pair for pair in found if wrong_in_the_library(*pair)] == []


def test_the_executable_and_the_fakes_include_no_host():
    executable, fakes = list(includes(ENGINE / "Sources/engine-cli")), list(includes(ENGINE / "Tests/Support"))
    assert executable
    assert fakes
    assert [pair for pair in executable if wrong_in_the_executable(pair[1])] == []
    assert [pair for pair in fakes if wrong_in_the_fakes(pair[1])] == []


def test_the_lab_includes_what_it_shares_and_nothing_else_of_the_engine():
    found = {included for _, included in includes(TOP / "lab") if layer(included) in LAYERS}
    assert {included for included in found if layer(included) != "Base"} == SHARED_WITH_THE_LAB


def test_a_wrong_include_is_seen():
    assert wrong_in_the_library("Utils/A.h", "Installer/B.h")
    assert wrong_in_the_library("Utils/A.cpp", "Args.h")
    assert wrong_in_the_library("Installer/A.cpp", "Platform/Linux/LinuxHost.h")
    assert wrong_in_the_library("Platform/Linux/A.cpp", "Platform/Darwin/DarwinHost.h")
    assert wrong_in_the_library("Platform/Darwin/A.mm", "Platform/Linux/LinuxHost.h")
    assert wrong_in_the_library("Platform/POSIX/A.cpp", "Platform/Linux/LinuxHost.h")
    assert wrong_in_the_executable("Platform/Linux/LinuxHost.h")
    assert wrong_in_the_fakes("Utils/Log.h")
    assert wrong_in_the_fakes("Platform/Linux/LinuxHost.h")
    assert not wrong_in_the_library("Platform/Linux/LinuxHost.cpp", "Platform/Linux/HTTP/CurlEngine.h")
    assert not wrong_in_the_library("Engine/A.h", "Base/Text.h")
    assert not wrong_in_the_executable("Args.h")
