"""A skip for a listed reason gives the run a status of its own; any other skip fails it."""

import os
import pathlib
import subprocess
import sys

import pytest

TOP = pathlib.Path(__file__).resolve().parents[4]
LISTED = "this machine gives its users no network namespace"
PASSES = "def test_that_passes():\n    pass\n"


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
    (tmp_path / "test_made.py").write_text("import pytest\n\n\n" + text)
    done = subprocess.run(
        [sys.executable, "-m", "pytest", "-c", TOP / "pytest.ini", "-p", "conftest", "--noconftest", tmp_path / "test_made.py"],
        env={**os.environ, "PYTHONPATH": str(TOP)}, cwd=tmp_path, capture_output=True, text=True)
    assert done.returncode == status, done.stdout + done.stderr
