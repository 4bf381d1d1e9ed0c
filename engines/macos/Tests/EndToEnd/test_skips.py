"""The rules of conftest.py: a listed skip gives a run its own status, any other skip fails it, parts are complete."""

import os
import pathlib
import re
import subprocess
import sys

import pytest

TOP = pathlib.Path(__file__).resolve().parents[4]
LISTED = "users of this machine can't make a network namespace"
PASSES = "def test_that_passes():\n    pass\n"


def pytest_on(folder, text, *options):
    (folder / "test_made.py").write_text(text)
    return subprocess.run(
        [sys.executable, "-m", "pytest", "-c", TOP / "pytest.ini", "-p", "conftest", "--noconftest", *options, folder / "test_made.py"],
        env={**os.environ, "PYTHONPATH": str(TOP)}, cwd=folder, capture_output=True, text=True)


def mark(words):
    return f"@pytest.mark.{words}\ndef test_left_out():\n    pass\n"


@pytest.mark.parametrize("text, status", [
    (PASSES, 0),
    (PASSES + mark(f"skip(reason={LISTED!r})"), 77),
    (PASSES + mark("skipif(True, reason='not built')"), 1),
    (PASSES + "def test_left_out():\n    pytest.skip('not built')\n", 1),
    (PASSES + "def test_left_out():\n    pytest.importorskip('no_such_module')\n", 1),
    (PASSES + "@pytest.mark.xfail\ndef test_left_out():\n    assert False\n", 1),
    (PASSES + mark("parametrize('value', [])").replace("left_out()", "left_out(value)"), 1),
    ("pytest.skip('not built', allow_module_level=True)\n", 2),
])
def test_a_run_with(tmp_path, text, status):
    done = pytest_on(tmp_path, "import pytest\n\n\n" + text)
    assert done.returncode == status, done.stdout + done.stderr


def test_the_parts_together_run_every_test_once(tmp_path):
    text = "import pytest\n\n\n@pytest.mark.parametrize('n', range(8))\ndef test_numbered(n):\n    print(f'ran {n}.')\n"
    ran = [re.findall(r"ran (\d)\.", pytest_on(tmp_path, text, "-s", "--part", f"{part}/3").stdout) for part in (1, 2, 3)]
    assert [len(part) for part in ran] == [3, 3, 2]
    assert sorted(n for part in ran for n in part) == [str(n) for n in range(8)]
