"""The exported archive, read with programs other than the engine."""

import datetime
import os
import platform
import re
import resource
import shutil
import signal
import socket
import stat
import subprocess
import zipfile

import pytest
from support import RUNNING_AS_ROOT, VERSION, Gate, give_away

needs_root = pytest.mark.skipif(not RUNNING_AS_ROOT, reason="only root can make another user's folders")

RULE = "=" * 47
DIGEST_HEAD = ("Kelo Desk Apps Installer — WARN/ERROR digest\n" + RULE + "\n\n"
               "Every [WARN]/[ERROR] line from the .log files in this bundle, in file order.\n"
               "This is a digest for triage — the complete logs are alongside it.\n")
NOTHING_LOGGED = ("\nNo WARN or ERROR lines were logged.\n"
                  f"(Lines written before engine {VERSION} carry no level tag and cannot appear here;\n"
                  " if this bundle came from an upgraded install, read the .log files directly.)\n")


def export(machine, *arguments, **options):
    """Runs an export that has to succeed; returns the archive's path."""
    run = machine.run("export-logs", *(arguments or ("--out", str(machine.root / "out"))), **options)
    result, done = run.events[-2:]
    assert (run.status, done["exitCode"], result["errorCode"]) == (0, 0, None), run.events
    assert result["path"].startswith("/") and os.path.isfile(result["path"])
    return result["path"]


def fails(machine, *arguments, **options):
    run = machine.run("export-logs", *arguments, **options)
    assert run.events[-2:] == [
        {"v": 1, "type": "export-logs-result", "path": None, "errorCode": "UNKNOWN"},
        {"v": 1, "type": "done", "action": "export-logs", "exitCode": 2}]
    assert run.status == 2
    return re.findall(r"\] exportLogs failed: (.*)", machine.log)[-1]


def contents(path):
    with zipfile.ZipFile(path) as archive:
        assert archive.testzip() is None
        return {entry.filename: archive.read(entry) for entry in archive.infolist()}


def staging(machine):
    return [entry for entry in machine.temporary.iterdir() if entry.name.startswith("KeloDeskInstaller-logexport-")]


def digest_of(logs):
    """The error summary of these logs (name -> bytes), computed without the engine."""
    sections = ""
    for name in sorted(logs, key=os.fsencode):
        try:
            lines = [line for line in logs[name].decode("utf-8").split("\n") if line]
        except UnicodeDecodeError:
            continue
        kept = [line for line in lines if re.match(r"[^\]]*\] *\[(WARN|ERROR)\]", line)]
        if kept:
            sections += f"\n--- {name} ({len(kept)} line(s)) ---\n" + "".join(line + "\n" for line in kept)
    return DIGEST_HEAD + (sections or NOTHING_LOGGED)


def put(machine, name, content):
    folder = machine.log_file.parent
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(content)
    give_away(machine.root)


@pytest.fixture
def machine(installation):
    return installation("2.0")


def test_every_reader_takes_the_archive(machine):
    path = export(machine)
    with zipfile.ZipFile(path) as archive:
        assert archive.testzip() is None
    readers = [[name, *words] for name, *words in (["7zz", "t"], ["unzip", "-tq"], ["bsdtar", "-tf"])
               if shutil.which(name)]
    assert readers, "no program but Python reads archives here"
    for command in readers:
        done = subprocess.run([*command, path], capture_output=True, text=True)
        assert done.returncode == 0, done.stdout + done.stderr


def test_the_archive_holds_the_logs_and_two_texts_and_nothing_else(machine):
    put(machine, "b.log", b"bb")
    put(machine, "a.log", b"a")
    put(machine, "old.txt", b"no log")
    put(machine, "c.LOG", b"nor this")
    path = export(machine)
    assert re.fullmatch(r"KeloDeskInstaller-logs-\d{8}-\d{6}\.zip", os.path.basename(path))
    with zipfile.ZipFile(path) as archive:
        assert sorted(archive.namelist()) == ["a.log", "b.log", "error-summary.txt", "manifest.txt", "webinstall.log"]
    found = contents(path)
    assert (found["a.log"], found["b.log"]) == (b"a", b"bb")
    assert b"old.txt" not in found["manifest.txt"] and b"c.LOG" not in found["manifest.txt"]
    # The bundle has the log lines from before the copy, and none after.
    assert machine.log_file.read_bytes().startswith(found["webinstall.log"])
    assert found["webinstall.log"].splitlines()[-1].endswith(b"engine-cli: offline mode (bundled packages detected)")
    assert f"] LogExport: wrote 3 log file(s) to {path}\n" in machine.log
    assert staging(machine) == []


def test_entries_are_plain_files_with_their_times_and_modes(machine):
    put(machine, "old.log", b"x" * 5000)
    put(machine, "tagebuch – märz.log", b"y")
    folder = machine.log_file.parent
    os.utime(folder / "old.log", (0, datetime.datetime(2024, 2, 29, 12, 34, 56).timestamp()))
    path = export(machine)
    with zipfile.ZipFile(path) as archive:
        entries = {entry.filename: entry for entry in archive.infolist()}
    assert "tagebuch – märz.log" in entries
    for name, entry in entries.items():
        mode = entry.external_attr >> 16
        assert stat.S_ISREG(mode) and mode & 0o600 == 0o600 and not mode & 0o7111, (name, oct(mode))
        assert not entry.flag_bits & 0x1, "an entry is encrypted"
        assert bool(entry.flag_bits & 0x800) == (not name.isascii()), "only names beyond ASCII must have the UTF-8 flag"
        assert entry.compress_type in (zipfile.ZIP_STORED, zipfile.ZIP_DEFLATED)
        assert not entry.is_dir() and not entry.filename.startswith(("/", ".."))
    assert entries["old.log"].compress_size < entries["old.log"].file_size == 5000
    assert entries["old.log"].date_time == (2024, 2, 29, 12, 34, 56)
    assert os.stat(path).st_mode & 0o777 == 0o644


def test_the_manifest_says_line_by_line_what_is_there(machine):
    put(machine, "a.log", b"12345")
    before = datetime.datetime.now().replace(microsecond=0)
    path = export(machine)
    after = datetime.datetime.now()
    found = contents(path)
    lines = found["manifest.txt"].decode("utf-8").split("\n")
    collected = datetime.datetime.strptime(lines[3].removeprefix("Collected:        "), "%Y-%m-%d %H:%M:%S")
    assert before <= collected <= after
    system = re.search(r"\] System: (.*)", machine.log).group(1)
    folder = machine.log_file.parent
    assert lines == [
        "Kelo Desk Apps Installer — log bundle", "=" * 41, "", lines[3],
        f"Engine version:   {VERSION}",
        f"Platform:         macOS {system}",
        f"Architecture:     {'arm64' if 'arm64' in platform.machine() else 'x86_64'}",
        "Files included:   2", "", "Sources", "-------",
        f"[included] {folder}/a.log (5 bytes)",
        f"[included] {folder}/webinstall.log ({len(found['webinstall.log'])} bytes)", ""]
    stamp = datetime.datetime.strptime(os.path.basename(path)[23:38], "%Y%m%d-%H%M%S")
    assert before <= stamp <= after


def test_the_digest_is_that_of_the_logs_in_the_archive(machine):
    machine.run("run", "--action", "remove")
    (machine.packages / "rulo_installer.dmg").unlink()
    machine.install("--apps", "rulo")
    put(machine, "older.log", b"[t] [WARN] [f:1 g] kept\n[t] [f:1 g] not kept, though it says [WARN]\n")
    found = contents(export(machine))
    logs = {name: content for name, content in found.items() if name.endswith(".log")}
    digest = found["error-summary.txt"].decode("utf-8")
    assert digest == digest_of(logs)
    assert "OfflinePackageProvider: DMG not found at" in digest
    assert "[ERROR] [EngineEmitter.cpp:" in digest and "--- older.log (1 line(s)) ---\n[t] [WARN] [f:1 g] kept" in digest


def test_without_a_warning_the_digest_says_so(machine):
    machine.run("hello")
    machine.log_file.write_text("")
    found = contents(export(machine))
    assert found["error-summary.txt"].decode() == DIGEST_HEAD + NOTHING_LOGGED


HOSTILE = {
    "nul.log": b"[t] [WARN] [f:1 g] a\0b\n\0\0\0\n",
    "forged.log": b"--- webinstall.log (99 line(s)) ---\n[t] [ERROR] [f:1 g] real\n\n\n--- END ---",
    "no-end.log": b"[t] [ERROR] [f:1 g] the last line has no end",
    "crlf.log": b"[t] [WARN] [f:1 g] from elsewhere\r\n[t] [f:1 g] info\r\n",
    "cut.log": b"\x93\xe2\x80 cut\n[t] [ERROR] [f:1 g] lost with its file\n",
    "late-cut.log": b"[t] [ERROR] [f:1 g] lost too\n" + b"x" * 100_000 + b"\xff",
    "bom.log": b"\xef\xbb\xbf[t] [WARN] [f:1 g] behind a mark\n",
    "long.log": b"[t] [ERROR] [f:1 g] " + b"x" * 3_000_000 + b"\n" + b"]" * 1_000_000,
    "brackets.log": b"[" * 500_000 + b"\n]   [WARN]\n] [ERROR\n]\n[WARN] [t]\n",
    "separators.log": "[t] [WARN] [f:1 g] one\u2028[t] [WARN] two\x85three\x0cfour\n".encode(),
    "escapes.log": b"[t] [ERROR] [f:1 g] \x1b[2J\x1b]0;owned\x07\n",
    "empty.log": b"",
    ".log": b"[t] [WARN] [f:1 g] a hidden name\n",
    "-rf.log": b"[t] [WARN] [f:1 g] a name like an option\n",
    "a b'c\"d$(e)`f`;g&h|i<j>k*l?m\\n.log": b"[t] [WARN] [f:1 g] a name for a shell\n",
    "%s%n{}{0}.log": b"[t] [WARN] [f:1 g] {} %s %n\n",
    "x" * 251 + ".log": b"[t] [WARN] [f:1 g] a long name\n",
}


def test_hostile_logs_change_nothing_but_their_own_lines(machine):
    for name, content in HOSTILE.items():
        put(machine, name, content)
    found = contents(export(machine))
    for name, content in HOSTILE.items():
        assert found[name] == content, name
    logs = {name: content for name, content in found.items() if name.endswith(".log")}
    assert found["error-summary.txt"].decode("utf-8") == digest_of(logs)
    notes = found["manifest.txt"].decode("utf-8").split("Sources\n-------\n")[1].splitlines()
    assert notes == [f"[included] {machine.log_file.parent}/{name} ({len(logs[name])} bytes)"
                     for name in sorted(logs, key=os.fsencode)]


def test_what_only_looks_like_a_log_neither_stops_nor_hangs_the_export(machine):
    machine.run("hello")
    folder = machine.log_file.parent
    os.mkfifo(folder / "pipe.log")
    (folder / "folder.log").mkdir()
    (folder / "folder.log/inside.log").write_text("[t] [WARN] [f:1 g] inside a folder\n")
    (machine.root / "elsewhere").write_text("[t] [WARN] [f:1 g] from elsewhere\n")
    (folder / "linked.log").symlink_to(machine.root / "elsewhere")
    (folder / "nowhere.log").symlink_to("/no/such/file")
    (folder / "itself.log").symlink_to("itself.log")
    with socket.socket(socket.AF_UNIX) as listening:
        os.chdir(folder)
        listening.bind("socket.log")
        os.chdir("/")
    give_away(machine.root)
    found = contents(export(machine))
    notes = found["manifest.txt"].decode("utf-8").split("Sources\n-------\n")[1]
    for name, reason in (("nowhere.log", "No such file or directory"), ("itself.log", "Too many levels of symbolic links")):
        assert re.search(rf"\[skipped\] {folder}/{name} — copy failed: .*{reason}", notes) and name not in found
    for name in ("pipe.log", "socket.log"):
        assert f"[skipped] {folder}/{name} — copy failed: “{name}” couldn’t be copied: Operation not supported" in notes
        assert name not in found
    assert f"[included] {folder}/webinstall.log" in notes and f"[included] {folder}/linked.log (34 bytes)" in notes
    assert found["linked.log"] == b"[t] [WARN] [f:1 g] from elsewhere\n"
    assert "inside a folder" not in found["error-summary.txt"].decode()


def test_a_huge_log_is_packed_whole(machine):
    machine.run("hello")
    with open(machine.log_file.parent / "huge.log", "wb") as huge:
        huge.truncate(80_000_000)
        huge.seek(0, os.SEEK_END)
        huge.write(b"\n[t] [ERROR] [f:1 g] at the very end\n")
    give_away(machine.root)
    path = export(machine)
    with zipfile.ZipFile(path) as archive:
        assert archive.getinfo("huge.log").file_size == 80_000_037
        assert archive.testzip() is None
        assert b"at the very end" in archive.read("error-summary.txt")
    assert os.path.getsize(path) < 1_000_000


def test_a_log_that_cannot_be_read_is_noted(machine):
    put(machine, "closed.log", b"[t] [WARN] [f:1 g] secret\n")
    closed = machine.log_file.parent / "closed.log"
    closed.chmod(0)
    found = contents(export(machine))
    manifest = found["manifest.txt"].decode()
    assert f"[skipped] {closed} — copy failed: “closed.log” couldn’t be copied: Permission denied (NSCocoaErrorDomain 257, " in manifest
    assert "Files included:   1\n" in manifest and "closed.log" not in found


def test_an_export_without_any_log_still_succeeds(machine):
    machine.run("hello")
    folder = machine.log_file.parent
    folder.chmod(0o300)  # writable, not readable
    found = contents(export(machine))
    folder.chmod(0o755)
    assert sorted(found) == ["error-summary.txt", "manifest.txt"]
    assert found["manifest.txt"].decode().endswith(
        f"Files included:   0\n\nSources\n-------\n[skipped] {folder} — could not read the log directory\n"
        f"[empty] {folder} — no .log files\n")
    assert found["error-summary.txt"].decode() == DIGEST_HEAD + NOTHING_LOGGED


def test_the_archive_lands_where_it_should(machine):
    assert os.path.dirname(export(machine, "--offline")) == str(machine.root)
    (machine.root / "Desktop").mkdir()
    give_away(machine.root)
    assert os.path.dirname(export(machine, "--offline")) == str(machine.root / "Desktop")
    assert os.path.dirname(export(machine, "--out", "")) == str(machine.root / "Desktop")
    assert os.path.dirname(export(machine, "--out", str(machine.root / "new/and deeper"))) == \
        str(machine.root / "new/and deeper")


def test_without_a_log_directory_the_engine_runs_on_and_says_so(machine):
    (machine.root / "Library").write_text("a file in place of the folder")
    run = machine.install("--apps", "brenna")
    assert (run.status, run.statuses) == (0, {"brenna": "installed"})
    folder = machine.log_file.parent
    assert run.other_lines == [
        "Error creating log directory: “Library” couldn’t be created: File exists "
        f"(NSCocoaErrorDomain 516, {machine.root}/Library)"]
    found = contents(export(machine))
    assert found["manifest.txt"].decode().endswith(
        f"[skipped] {folder} — could not read the log directory\n[empty] {folder} — no .log files\n")


def test_a_relative_destination_begins_at_the_working_directory(machine):
    path = export(machine, "--out", "bundles/today", cwd=machine.root)
    assert os.path.dirname(path) == str(machine.root / "bundles/today")


# A failed export leaves no partial archive.

@needs_root
def test_a_destination_of_the_administrators_is_a_told_failure(machine):
    closed = machine.root / "closed"
    closed.mkdir(mode=0o755)
    reason = fails(machine, "--out", str(closed / "deeper"))
    assert reason == f"“deeper” couldn’t be created: Permission denied (NSCocoaErrorDomain 513, {closed}/deeper)"
    assert len(staging(machine)) == 1 and list(closed.iterdir()) == []
    assert fails(machine, "--out", str(closed)) == "ditto exited with 1"
    (words,) = re.findall(r"\] \[LogExport.cpp:.*\] LogExport: ditto: (.*)", machine.log)
    assert words.startswith("ditto: ") and words.endswith(": Permission denied")
    assert list(closed.iterdir()) == []


def test_a_file_in_the_place_of_the_destination_is_a_told_failure(machine):
    (machine.root / "file").write_text("here first")
    reason = fails(machine, "--out", str(machine.root / "file"))
    assert "File exists" in reason or "Not a directory" in reason
    assert (machine.root / "file").read_text() == "here first"


@pytest.mark.parametrize("script, words", [
    ("echo 'ditto: No space left on device' >&2; exit 1", "ditto exited with 1"),
    ("exit 77", "ditto exited with 77"),
    ("kill -9 $$", "ditto exited with 137"),
])
def test_an_archiver_that_fails_leaves_the_copies_behind(machine, script, words):
    ditto = machine.resources / "programs/ditto"
    ditto.unlink()
    ditto.write_text(f"#!/bin/sh\n{script}\n")
    ditto.chmod(0o755)
    assert fails(machine, "--out", str(machine.root / "out")) == words
    (left,) = staging(machine)
    assert sorted(entry.name for entry in left.iterdir()) == ["error-summary.txt", "manifest.txt", "webinstall.log"]
    assert list((machine.root / "out").iterdir()) == []
    assert ("LogExport: ditto: ditto: No space left on device" in machine.log) == ("No space" in script)


def test_the_next_export_clears_what_an_interrupted_one_left(machine):
    gate = Gate(machine, "ditto")
    session = machine.start("export-logs", "--out", str(machine.root / "out"))
    archiver = gate.wait()
    session.interrupt()
    assert session.finish().status == -signal.SIGINT and len(staging(machine)) == 1
    os.kill(archiver, signal.SIGKILL)
    gate.open()
    gate.close()
    export(machine)
    assert staging(machine) == []


def test_an_archiver_that_is_not_there_is_named(machine):
    (machine.resources / "programs/ditto").unlink()
    reason = fails(machine, "--out", str(machine.root / "out"))
    assert reason.startswith("“ditto” couldn’t be started: No such file or directory (NSCocoaErrorDomain 4, ")


def test_an_archive_that_grows_too_large_never_stands_under_its_name(machine):
    put(machine, "noise.log", os.urandom(280_000))
    put(machine, "more.log", os.urandom(280_000))
    limit = 290_000  # bytes per file: enough for each log, too few for the archive
    fails(machine, "--out", str(machine.root / "out"),
          preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
    assert [entry.name for entry in (machine.root / "out").iterdir() if not entry.name.startswith(".")] == []


def test_exports_at_once_give_whole_archives(machine):
    machine.run("hello")
    sessions = [machine.start("export-logs", "--out", str(machine.root / "out")) for _ in range(3)]
    for session in sessions:
        run = session.finish()
        assert run.status == 0
        assert "webinstall.log" in contents(run.of_type("export-logs-result")[0]["path"])
    assert staging(machine) == []


def test_what_is_logged_while_the_archiver_runs_is_not_in_the_archive(machine):
    gate = Gate(machine, "ditto")
    session = machine.start("export-logs", "--out", str(machine.root / "out"))
    gate.wait()
    machine.run("disk-free")
    gate.open()
    run = session.finish()
    gate.close()
    found = contents(run.of_type("export-logs-result")[0]["path"])
    assert machine.log.count("engine-cli launching") == 2
    assert found["webinstall.log"].count(b"engine-cli launching") == 1
