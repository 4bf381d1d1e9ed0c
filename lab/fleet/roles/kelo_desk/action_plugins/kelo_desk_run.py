"""Runs engine-cli unattended on a host, and reports the state of each app.

It first queries the installed and available versions, and installs only absent and older apps, because an install also
downloads and quits a current app. It queries them again after the run, because the summary of an install has the status
"installed" for current apps too. Commands are lists of arguments and use no shell.

The action doesn't fail if the run fails; `verdict` in the result is
  changed     something was installed, updated or removed, and nothing failed
  ok          there was nothing to do
  failed      something failed, an app is missing in the summary, or its available version is unknown
  no_network  the host has no network; nothing was touched
  held        too many other hosts have failed; this one wasn't contacted

`installer` in the result has the version, the release and the last day of the installer, as far as they are known.

In check mode only queries run, and `verdict` is a prediction.
"""

import base64
import json
import re
from pathlib import PurePosixPath

from ansible.errors import AnsibleActionFail
from ansible.module_utils.parsing.convert_bool import boolean
from ansible.plugins.action import ActionBase

# Statuses of an app that make its host fail.
NO_SUCCESS = {"no result", "absent afterwards", "no answer", "not offered"}
# generated: meanings
MEANINGS = {
    None: "there was no whole run",
    0: "success",
    1: "some apps failed and some succeeded, or some were cancelled",
    2: "nothing succeeded, or something failed under strict, or the installer has expired",
    3: "the command line is unusable, or it leaves no app",
    4: "permission denied",
    5: "no network",
}
# end
OPENING = re.compile(r"--- SILENT RUN SUMMARY action=\w+ exit_code=-?\d+ ---$")
CLOSING = "--- END SUMMARY ---"
ENTRY = re.compile(r'  app="(?P<name>.*?)" status=(?P<status>\w+)(?: detail="(?P<detail>.*)")?$', re.DOTALL)
NOTE = re.compile(r'  note="(.*)"$', re.DOTALL)
COMPLAINT = re.compile(r"^Error: (.*)$", re.MULTILINE)
TIME = re.compile(r"^\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d+\] ", re.MULTILINE)


def event_of(output, kind):
    """The last event of this type in the output, or None."""
    found = None
    for line in output.splitlines():
        try:
            event = json.loads(line)
        except ValueError:
            continue
        if isinstance(event, dict) and event.get("type") == kind:
            found = event
    return found


def summary_of(echo):
    """The summary in a run's log: display name -> status and detail, and the note."""
    entries, note, inside = {}, None, False
    for message in (text.rstrip("\n") for text in TIME.split(echo)[1:]):
        if OPENING.match(message):
            entries, note, inside = {}, None, True
        elif message == CLOSING:
            inside = False
        elif inside and (entry := ENTRY.match(message)):
            entries[entry["name"]] = {"status": entry["status"], "detail": entry["detail"]}
        elif inside and (found := NOTE.match(message)):
            note = found[1]
    return entries, note


def rows_of(hello):
    """id -> the installed copy, and its status before an install, if the installer is an offline one."""
    return {row["id"]: {"name": row["displayName"], "version": row.get("installedVersion"),
                        "path": row.get("installedPath"), "source": row.get("source"),
                        **offer_of(row, "not offered")} for row in hello["apps"]}


def offer_of(row, unknown):
    """The `status` of an installed app before an install."""
    if row.get("latestVersion") is None:
        return {"status": unknown}
    return {"status": "would be updated" if row.get("updateAvailable") else "current"}


def judged(entry, before, after):
    """The status in the report, and whether the app has changed."""
    moved = (before["version"], before["path"]) != (after["version"], after["path"])
    if entry is None:
        return "no result", moved
    if entry["status"] != "installed":
        return entry["status"], moved or entry["status"] == "uninstalled"
    if after["path"] is None:
        return "absent afterwards", moved
    if before["path"] is None:
        return "installed", True
    # Without a version, a replacement by the same version can't be excluded.
    return ("updated", True) if moved or after["version"] is None else ("current", False)


def predicted(mode, before):
    """The expected result for an app; begins with "would" if the run would change the app."""
    if mode == "uninstall":
        return "already_absent" if before["path"] is None else "would be uninstalled"
    if before["path"] is None:
        return "would be installed"
    return "app_store" if before["source"] == "appstore" else before["status"]


def verdict_of(status, apps):
    words = {app["status"] for app in apps.values()}
    if status == 5 or words == {"no answer"}:
        return "no_network"
    if status not in (0, None) or words & NO_SUCCESS:
        return "failed"
    return "changed" if any(app["changed"] for app in apps.values()) else "ok"


def facts_of(hello, configuration):
    """The installer's entry in the report. An unreadable configuration isn't an error."""
    try:
        given = json.loads(configuration)
    except ValueError:
        given = {}

    def text(section, key):
        inner = given.get(section) if isinstance(given, dict) else None
        found = inner.get(key) if isinstance(inner, dict) else None
        return found if isinstance(found, str) and found else None

    return {"version": hello.get("engineVersion"), "release": text("cdn", "release") or "latest",
            "expires": text("expiresOn", hello["mode"])}


class NoAnswerError(Exception):
    """The engine can't be started, gives no usable answer, or isn't the expected one."""


class ActionModule(ActionBase):
    TRANSFERS_FILES = False
    _VALID_ARGS = frozenset(("engine", "mode", "apps", "strict", "open_after_install", "offline",
                             "release", "failures", "max_failures"))

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        self._task_vars = task_vars
        self._read_arguments()
        if 0 <= self._max_failures < self._failures:
            return {**result, **self._told({}, None, f"{self._failures} hosts failed before", "held")}
        try:
            before = self._asked()
            return {**result, **(self._prediction(before) if self._task.check_mode else self._outcome(before))}
        except NoAnswerError as silence:
            return {**result, **self._told({}, None, str(silence), "failed")}
        except KeyError as key:
            return {**result, **self._told({}, None, f"{self._engine}: an answer without {key}", "failed")}

    def _read_arguments(self):
        given = self._task.args
        self._engine, self._mode = given["engine"], given["mode"]
        apps = given["apps"]
        if isinstance(apps, str):  # from `-e kelo_desk_apps=brenna,tolvi`
            apps = [app.strip() for app in apps.split(",")]
        self._apps = list(dict.fromkeys(apps))
        self._offline = ["--offline"] if boolean(given["offline"]) else []
        self._release, self._installer = given["release"], {}
        self._failures, self._max_failures = int(given["failures"]), int(given["max_failures"])
        self._switches = ["--strict", str(boolean(given["strict"])).lower(),
                          "--open-after-install", str(boolean(given["open_after_install"])).lower()]
        if self._mode not in ("install", "uninstall"):
            raise AnsibleActionFail(f"mode must be install or uninstall, not {self._mode!r}")
        if not self._apps:
            raise AnsibleActionFail("apps must name at least one app")

    def _command(self, *words):
        return self._execute_module(module_name="ansible.legacy.command", task_vars=self._task_vars,
                                    module_args={"argv": [self._engine, *words, *self._offline]})

    def _without_check_mode(self, act):
        """Runs a query, in check mode too."""
        checking, self._task.check_mode = self._task.check_mode, False
        try:
            return act()
        finally:
            self._task.check_mode = checking

    def _configuration(self):
        """The installer_config.json of the engine's bundle."""
        path = PurePosixPath(self._engine).parent.parent / "Resources/installer_config.json"
        read = self._without_check_mode(lambda: self._execute_module(
            module_name="ansible.legacy.slurp", task_vars=self._task_vars, module_args={"src": str(path)}))
        return base64.b64decode(read.get("content", ""))

    def _ask(self, kind, *words):
        """The answer to a query."""
        finished = self._without_check_mode(lambda: self._command(*words))
        answer = event_of(finished.get("stdout", ""), kind)
        if answer is None:
            raise NoAnswerError(f"{self._engine} {words[0]}: no answer, status {finished.get('rc')}: "
                           f"{finished.get('msg') or finished.get('stderr')}")
        return answer

    def _asked(self):
        """id -> the installed copy, and its status before an install."""
        hello = self._ask("hello", "hello")
        rows, self._retired = rows_of(hello), "installerRetired" in hello
        self._installer = facts_of(hello, self._configuration())
        if self._release and self._installer["release"] != self._release:
            raise NoAnswerError(f"the installer follows the release {self._installer['release']}, not {self._release}")
        if unknown := [app for app in self._apps if app not in rows]:
            raise NoAnswerError(f"the installer doesn't offer {', '.join(unknown)}")
        if hello["mode"] == "online" and self._mode == "install":
            answer = self._ask("update-check-result", "check-updates", "--apps", ",".join(self._apps))
            self._retired = self._retired or "installerRetired" in answer
            for row in answer["apps"]:
                rows[row["id"]].update(offer_of(row, "no answer"))
        return rows

    def _rows(self, before, after, judge):
        apps = {}
        for app in self._apps:
            status, changed, detail = judge(app)
            apps[app] = {"status": status, "changed": changed, "detail": detail,
                         "before": before[app]["version"], "after": after[app]["version"] if after else None}
        return apps

    def _prediction(self, before):
        def judge(app):
            status = predicted(self._mode, before[app])
            return status, status.startswith("would"), None

        apps = self._rows(before, None, judge)
        return self._told(apps, None, None, verdict_of(None, apps))

    def _outcome(self, before):
        left = {app: predicted(self._mode, before[app]) for app in self._apps}
        # A removal ignores absent apps and removes leftovers. A retired installer's engine gives the reason in its note.
        if self._mode == "uninstall" or self._retired:
            left = {}
        left = {app: status for app, status in left.items() if not status.startswith("would")}
        wanted = [app for app in self._apps if app not in left]
        if not wanted:
            apps = self._rows(before, before, lambda app: (left[app], False, None))
            return {**self._told(apps, None, None, verdict_of(None, apps)), "echo": ""}
        finished = self._command("--silent", "--verbose", "--mode", self._mode, "--apps", ",".join(wanted), *self._switches)
        if "rc" not in finished:  # the connection or the module failed
            return finished
        after = rows_of(self._ask("hello", "hello"))
        echo, status = finished.get("stderr", ""), finished["rc"]
        entries, note = summary_of(echo)
        if status == 3 and note is None and (complaint := COMPLAINT.search(echo)):
            note = complaint[1]

        def judge(app):
            if app in left:
                return left[app], False, None
            entry = entries.get(before[app]["name"])
            return *judged(entry, before[app], after[app]), entry and entry["detail"]

        # A run that couldn't begin has no lines for apps. A success without lines counts as a failure.
        apps = self._rows(before, after, judge) if entries or status == 0 else {}
        return {**self._told(apps, status, note, verdict_of(status, apps)), "echo": echo}

    def _told(self, apps, status, note, verdict):
        return {"changed": any(app["changed"] for app in apps.values()), "verdict": verdict, "apps": apps,
                "exit_status": status, "note": note, "installer": self._installer, "meaning": MEANINGS.get(status, MEANINGS[None])}
