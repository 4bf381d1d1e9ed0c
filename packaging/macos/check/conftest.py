"""The description of the SDK, as npm installs it: pinned by the lock file, under build/, once for all builds."""

import fcntl
import os
import pathlib
import shutil
import subprocess
import sys

import pytest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
INSTALLED = pathlib.Path(os.environ.get("KELO_BUILD_ROOT", HERE.parents[2] / "build")) / "macos-check"
PACKAGE = INSTALLED / "node_modules/@nativescript/macos-node-api"
# How npm says that there is no way to the registry. Anything else that goes wrong is a failure.
UNREACHABLE = ("ENOTFOUND", "EAI_AGAIN", "ECONNREFUSED", "ECONNRESET", "ETIMEDOUT", "ENETUNREACH", "EHOSTUNREACH",
               "ERR_SOCKET_TIMEOUT", "ENOTCACHED")


def install():
    """None, or why it can't be had here."""
    INSTALLED.mkdir(parents=True, exist_ok=True)
    wanted = (HERE / "package-lock.json").read_text()
    stamp = INSTALLED / "installed"
    with open(INSTALLED / "lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if stamp.exists() and stamp.read_text() == wanted:
            return None
        for name in ("package.json", "package-lock.json"):
            shutil.copy(HERE / name, INSTALLED)
        command = ["npm", "ci", "--ignore-scripts", "--no-audit", "--no-fund", "--fetch-retries=1"]
        done = subprocess.run(command, cwd=INSTALLED, capture_output=True, text=True)
        if done.returncode == 0:
            stamp.write_text(wanted)
            return None
    told = done.stdout + done.stderr
    if any(word in told for word in UNREACHABLE):
        return "npm's registry can't be reached, and the description of the SDK was never installed here"
    raise AssertionError(f"npm failed:\n{told}")


@pytest.fixture(scope="session")
def description():
    problem = install()
    if problem:
        pytest.skip(problem)
    from description import Description

    return Description(PACKAGE)
