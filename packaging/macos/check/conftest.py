"""The packages that `dev` installs for the check with npm: the description of the SDK, and executables that Apple's linker
made."""

import os
import pathlib
import sys

import pytest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
import homes  # noqa: E402
from description import Description  # noqa: E402

INSTALLED = pathlib.Path(os.environ.get("KELO_BUILD", HERE.parents[2] / "build/dev")).parent / "macos-check"


def installed(place):
    assert (INSTALLED / place).exists(), f"{INSTALLED / place} is missing: ./dev test installs it with npm"
    return INSTALLED / place


@pytest.fixture(scope="session")
def description():
    return Description(installed("node_modules/@nativescript/macos-node-api"))


@pytest.fixture(scope="session")
def seen():
    return homes.seen(installed("executables"))
