"""The report, as a table and as JSON."""

import datetime
import json

from ansible.errors import AnsibleFilterError

def _outcome(hostvars, host, waiting):
    """A host's outcome. Without one, the host hasn't begun if it is in `waiting`, the hosts that remain in the play."""
    outcome = dict(hostvars[host].get("kelo_desk_outcome") or {})
    if "verdict" in outcome:
        return outcome
    verdict = "unreachable" if outcome.get("unreachable") else "failed"
    if not outcome and host in waiting:
        verdict = "not_begun"
    return {"verdict": verdict, "apps": {}, "exit_status": None, "note": outcome.get("msg")}


def _versions(app):
    if app["before"] == app["after"] or app["after"] is None:
        return app["before"] or ""
    return f"{app['before']} -> {app['after']}" if app["before"] else app["after"]


def _expires_soon(installer, days):
    """Whether the last day is at most `days` away or past. An invalid date counts as absent. As in the engine, a month and a
    day can have one digit."""
    try:
        last = datetime.date(*map(int, (installer.get("expires") or "").split("-")))
    except (TypeError, ValueError, OverflowError):
        return False
    return last - datetime.datetime.now(datetime.timezone.utc).date() <= datetime.timedelta(days=int(days))


def failures(hostvars, hosts):
    """The number of failed hosts so far."""
    return sum(_outcome(hostvars, host, hosts)["verdict"] == "failed" for host in hosts)


def table(hostvars, hosts, waiting, days):
    """One line per host and app, in columns."""
    rows = [("host", "verdict", "app", "status", "version", "")]
    for host in hosts:
        outcome = _outcome(hostvars, host, waiting)
        head = (host, outcome["verdict"].replace("_", " "))
        apps = outcome["apps"].items()
        rows += [(*head, name, app["status"], _versions(app), app["detail"] or "") for name, app in apps]
        if not apps:
            rows.append((*head, "", "", "", outcome["note"] or ""))
        if _expires_soon(outcome.get("installer") or {}, days):
            rows.append((*head, "", "expires", outcome["installer"]["version"] or "", outcome["installer"]["expires"]))
    widths = [max(len(row[column]) for row in rows) for column in range(5)]
    return ["  ".join([*(cell.ljust(width) for cell, width in zip(row, widths)), row[5]]).rstrip() for row in rows]


def report(hostvars, hosts, waiting):
    """host -> verdict, exit status, note, apps and installer."""
    kept = ("verdict", "exit_status", "note", "apps", "installer")
    return {host: {key: _outcome(hostvars, host, waiting).get(key) for key in kept} for host in hosts}


def bundle_path(output):
    """The path of the archive in the output of export-logs."""
    for line in output.splitlines():
        try:
            event = json.loads(line)
        except ValueError:
            continue
        if isinstance(event, dict) and event.get("type") == "export-logs-result" and event.get("path"):
            return event["path"]
    raise AnsibleFilterError("the engine reported no archive")


class FilterModule:
    def filters(self):
        return {"kelo_desk_table": table, "kelo_desk_report": report, "kelo_desk_bundle_path": bundle_path,
                "kelo_desk_failures": failures}
