"""Reads a slice of a Mach-O file with LLVM's tools."""

import re
import subprocess

UNDEFINED = re.compile(r"\(undefined[^)]*\)(?: weak)? external (\S+) \((?:from|dynamically looked up)\s*([^)]*)\)")


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def architectures(executable):
    return run("llvm-lipo-19", "-archs", executable).split()


def undefined(executable, architecture="all"):
    """(symbol, short name of its library, empty if any) of each undefined symbol."""
    said = run("llvm-nm-19", "-m", "-u", f"--arch={architecture}", executable)
    found = UNDEFINED.findall(said)
    if len(found) != sum("(undefined" in line for line in said.splitlines()):
        raise ValueError("unexpected output of llvm-nm-19:\n" + said)
    return found


class Slice:
    def __init__(self, executable, architecture):
        self.architecture = architecture
        self._headers = run("llvm-otool-19", "-hvl", "-arch", architecture, executable)
        self.undefined = undefined(executable, architecture)

    def commands(self, name):
        """The text of each load command of that name."""
        return [each for each in self._headers.split("Load command ") if f"cmd {name}\n" in each]

    def is_position_independent(self):
        """Whether the system can load it at a random address."""
        return " PIE" in self._headers.split("Load command 0")[0]

    def libraries(self):
        kinds = ("LC_LOAD_DYLIB", "LC_LOAD_WEAK_DYLIB", "LC_REEXPORT_DYLIB", "LC_LAZY_LOAD_DYLIB")
        return [re.search(r"name (\S+)", each)[1] for kind in kinds for each in self.commands(kind)]

    def platform_and_minimum(self):
        """Such as ("macos", "12.0")."""
        found = self.commands("LC_BUILD_VERSION")
        if len(found) != 1:
            return None
        platform = re.search(r"platform (\S+)", found[0])[1]
        return {"1": "macos"}.get(platform, platform.lower()), re.search(r"minos (\S+)", found[0])[1]
