"""demo.sh: its parts, its option, and its output into a pipe."""

import os
import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KELO_BUILD", ROOT / "build/dev")).resolve()


def demo(folder, *words):
    return subprocess.run([ROOT / "lab/demo/demo.sh", BUILD, folder, *words], capture_output=True, text=True, stdin=subprocess.DEVNULL)


def test_events_can_follow_the_part_and_a_pipe_gets_plain_text(tmp_path):
    done = demo(tmp_path / "demo", "offline", "--events")
    assert (done.returncode, done.stderr) == (0, "")
    assert '{"v":1,"type":"stage","app":"brenna","stage":"download"' in done.stdout
    assert "== Updating to version 2.0\n" in done.stdout
    assert "\033" not in done.stdout


def test_an_unknown_part_is_refused(tmp_path):
    for words in (["--events", "elsewhere"], ["elsewhere", "--events"], ["common"]):
        done = demo(tmp_path / "demo", *words)
        assert (done.returncode, "unknown part" in done.stderr) == (1, True)
    assert not (tmp_path / "demo").exists()
