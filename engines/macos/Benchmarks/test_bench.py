"""bench.py prints its table and writes its history, on small inputs. Durations aren't checked."""

import json
import os
import pathlib
import subprocess

BENCH = pathlib.Path(__file__).with_name("bench.py")
BUILD = pathlib.Path(os.environ.get("KELO_BUILD", BENCH.parents[3] / "build/dev")).resolve()
ROWS = "digest,copies,install,bulk"


def bench(work, *options):
    return subprocess.run([BENCH, BUILD, "--rounds", "1", "--scale", "0.001", "--work", work, *options], capture_output=True, text=True,
                          check=False)


def test_a_run_prints_a_table_and_keeps_its_figures_beside_the_last_ones(tmp_path):
    for _ in range(2):
        done = bench(tmp_path, "--rows", ROWS)
        assert done.returncode == 0, done.stderr
    lines = [line.split(" | ") for line in done.stdout.splitlines() if line.startswith("| ")]
    assert len(lines) == 1 + 1 + 4 + 2 + 2
    runs = [json.loads(line) for line in (tmp_path / "history.jsonl").read_text().splitlines()]
    assert [len(run["rows"]) for run in runs] == [9, 9]
    assert lines[1][-1].startswith(f"{runs[0]['rows'][0]['ratio']:.2f}")  # the last run's
    assert all(row["seconds"] > 0 for run in runs for row in run["rows"])
    assert all(1000 < row["peak"] < 1_000_000 for run in runs for row in run["rows"])
    assert [path.name for path in tmp_path.iterdir()] == ["history.jsonl"]


def test_a_program_that_fails_ends_the_run_and_leaves_no_figures(tmp_path):
    (tmp_path / "build").mkdir()
    done = subprocess.run([BENCH, tmp_path / "build", "--rows", "digest", "--scale", "0.001", "--work", tmp_path / "work"],
                          capture_output=True, text=True, check=False)
    assert done.returncode != 0 and not (tmp_path / "work/history.jsonl").exists()
    assert bench(tmp_path, "--rows", "nothing").returncode == 2
