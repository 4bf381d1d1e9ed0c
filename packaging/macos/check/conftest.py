"""What npm brings for the check, under build/, once for all builds: the description of the SDK, pinned by the lock
file, and executables that Apple's linker made, pinned by their digests."""

import base64
import fcntl
import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import sys

import pytest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
import homes  # noqa: E402
from description import Description  # noqa: E402

INSTALLED = pathlib.Path(os.environ.get("KELO_BUILD_ROOT", HERE.parents[2] / "build")) / "macos-check"
PACKAGE = INSTALLED / "node_modules/@nativescript/macos-node-api"
EXECUTABLES = INSTALLED / "executables"
# How npm says that there is no way to the registry. Anything else that goes wrong is a failure.
UNREACHABLE = ("ENOTFOUND", "EAI_AGAIN", "ECONNREFUSED", "ECONNRESET", "ETIMEDOUT", "ENETUNREACH", "EHOSTUNREACH",
               "ERR_SOCKET_TIMEOUT", "ENOTCACHED")


def npm(folder, *arguments):
    done = subprocess.run(["npm", *arguments, "--ignore-scripts", "--fetch-retries=1"], cwd=folder,
                          capture_output=True, text=True)
    told = done.stdout + done.stderr
    if done.returncode and any(word in told for word in UNREACHABLE):
        pytest.skip("npm's registry can't be reached, and what the check needs was never installed here")
    assert done.returncode == 0, f"npm failed:\n{told}"
    return done.stdout


def install_description():
    for name in ("package.json", "package-lock.json"):
        shutil.copy(HERE / name, INSTALLED)
    npm(INSTALLED, "ci", "--no-audit", "--no-fund")


def install_executables():
    shutil.rmtree(EXECUTABLES, ignore_errors=True)
    for name, digest in json.loads((HERE / "executables.json").read_text()).items():
        folder = EXECUTABLES / name
        folder.mkdir(parents=True)
        archive = folder / npm(folder, "pack", name, "--silent").split()[-1]
        found = base64.b64encode(hashlib.sha512(archive.read_bytes()).digest()).decode()
        assert f"sha512-{found}" == digest, f"{name} isn't the package that was pinned"
        subprocess.run(["tar", "-xzf", archive, "-C", folder], check=True)


def installed_once(install, pinned):
    """Runs `install` unless it has run for the file `pinned` as it stands."""
    INSTALLED.mkdir(parents=True, exist_ok=True)
    wanted = (HERE / pinned).read_text()
    stamp = INSTALLED / f"{pinned}.installed"
    with open(INSTALLED / "lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not stamp.exists() or stamp.read_text() != wanted:
            install()
            stamp.write_text(wanted)


@pytest.fixture(scope="session")
def description():
    installed_once(install_description, "package-lock.json")
    return Description(PACKAGE)


@pytest.fixture(scope="session")
def seen():
    installed_once(install_executables, "executables.json")
    return homes.seen(EXECUTABLES)
