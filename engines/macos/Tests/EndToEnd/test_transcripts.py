"""The transcripts under protocol/transcripts equal the engine's output, and the page shows them unchanged.

With KELO_WRITE_TRANSCRIPTS=1 (./dev transcripts) they are written instead.
"""

import contextlib
import json
import os
import pathlib
import re
import tempfile

import pytest

import hostile_cdn
import online_machine
import protocol_schema
import transcripts
from command_surface import VOCABULARY
from protocol_schema import PROTOCOL

FOLDER = PROTOCOL / "transcripts"
PAGE = PROTOCOL / "README.md"
WRITES = os.environ.get("KELO_WRITE_TRANSCRIPTS") == "1"


@pytest.fixture
def open_folder(workshop):
    """A folder that the unprivileged user can access."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="story-", dir=workshop))
    folder.chmod(0o755)
    return folder


class Tools:
    def __init__(self, installation, workshop, folder):
        self.installation, self._workshop, self._folder = installation, workshop, folder

    @contextlib.contextmanager
    def online(self):
        with hostile_cdn.HostileCDN(self._folder / "cdn", online_machine.NAMES) as cdn:
            yield transcripts.Online(self._workshop, self._folder, cdn)


def block(name, command, status, lines):
    """A transcript as a block of the page."""
    return f"<!-- transcript {name} -->\n```\n$ {command}\n" + "\n".join(lines) + f"\n$ echo $?\n{status}\n```\n"


def blocks(page):
    """name -> the block on the page."""
    found = re.findall(r"(<!-- transcript (\S+) -->\n```\n(.*?)```\n)", page, re.DOTALL)
    return {name: whole for whole, name, _ in found}


def write(name, command, status, lines):
    FOLDER.mkdir(exist_ok=True)
    (FOLDER / f"{name}.jsonl").write_text("\n".join(lines) + "\n", encoding="utf-8")
    page = PAGE.read_text(encoding="utf-8")
    page = re.sub(rf"<!-- transcript {name} -->\n```\n.*?```\n", lambda _: block(name, command, status, lines), page,
                  flags=re.DOTALL)
    PAGE.write_text(page, encoding="utf-8")


@pytest.mark.parametrize("name", transcripts.SCENARIOS)
def test_the_transcript_is_what_the_engine_says(installation, online_workshop, open_folder, name):
    tools = Tools(installation, online_workshop, open_folder)
    command, status, lines = transcripts.SCENARIOS[name](tools)
    if WRITES:
        write(name, command, status, lines)
    assert (FOLDER / f"{name}.jsonl").read_text(encoding="utf-8").splitlines() == lines
    on_page = blocks(PAGE.read_text(encoding="utf-8")).get(name)
    assert on_page is None or on_page == block(name, command, status, lines)


def stored():
    return {path.stem: path.read_text(encoding="utf-8").splitlines() for path in sorted(FOLDER.glob("*.jsonl"))}


def test_there_is_a_transcript_for_every_scenario_and_none_besides():
    assert set(stored()) == set(transcripts.SCENARIOS)


@pytest.mark.parametrize("name", sorted(transcripts.SCENARIOS))
def test_every_line_is_an_event_of_the_protocol(name):
    for line in stored()[name]:
        protocol_schema.check(json.loads(line))


def test_every_kind_of_event_status_and_error_code_is_shown_somewhere():
    events = [json.loads(line) for lines in stored().values() for line in lines]
    assert {event["type"] for event in events} == set(protocol_schema.EVENTS)
    statuses = {event["status"] for event in events if event["type"] == "app-result"}
    words = protocol_schema.load("common.json")["$defs"]
    assert statuses == set(words["status"]["enum"])
    codes = {event["errorCode"] for event in events if event["type"] == "app-result"}
    assert codes - {None} == set(words["errorCode"]["enum"])


def test_the_page_shows_the_stories_that_a_shell_meets():
    assert {"hello", "install", "failure", "cancel-one", "cancel-all", "source-gone", "uninstall"} <= \
        set(blocks(PAGE.read_text(encoding="utf-8")))


def test_the_table_of_error_codes_leads_to_a_run_with_each():
    rows = re.findall(r"^\| `([A-Z_]+)` \|.*\| \[`([a-z-]+)`\]\(transcripts/\2\.jsonl\) \|$", PAGE.read_text(encoding="utf-8"),
                      re.MULTILINE)
    assert [code for code, _ in rows] == [row["name"] for row in VOCABULARY["errorCodes"]]
    told = stored()
    assert [code for code, name in rows if f'"errorCode":"{code}"' not in "".join(told[name])] == []


def test_progress_keeps_to_the_scale_that_the_page_states():
    events = [json.loads(line) for lines in stored().values() for line in lines]
    told = {(event["detailCode"], event["percent"], event["indeterminate"]) for event in events if event["type"] == "progress"}
    assert {percent for code, percent, open_ended in told if code == "DOWNLOADING" and not open_ended} == {0, 0.0025, 50, 80}
    assert {row for row in told if row[0] != "DOWNLOADING"} == \
        {("VERIFYING", 85, True), ("INSTALLING", 95, True), ("UNINSTALLING", 100, True)}
