"""What became of a fleet, for people and for programs."""

import json

from ansible.errors import AnsibleFilterError

NOT_REACHED = {"verdict": "unreachable", "apps": {}, "exit_status": None, "note": None}


def _outcome(hostvars, host):
    outcome = dict(hostvars[host].get("kelo_desk_outcome") or {})
    if "verdict" not in outcome:
        outcome = {**NOT_REACHED, "note": outcome.get("msg")}
        if not hostvars[host].get("kelo_desk_outcome", {}).get("unreachable"):
            outcome["verdict"] = "failed"
    return outcome


def _versions(app):
    if app["before"] == app["after"] or app["after"] is None:
        return app["before"] or ""
    return f"{app['before']} -> {app['after']}" if app["before"] else app["after"]


def table(hostvars, hosts):
    """One line per host and app, in columns."""
    rows = [("host", "verdict", "app", "status", "version", "")]
    for host in hosts:
        outcome = _outcome(hostvars, host)
        head = (host, outcome["verdict"].replace("_", " "))
        apps = outcome["apps"].items()
        rows += [(*head, name, app["status"], _versions(app), app["detail"] or "") for name, app in apps]
        if not apps:
            rows.append((*head, "", "", "", outcome["note"] or ""))
    widths = [max(len(row[column]) for row in rows) for column in range(5)]
    return ["  ".join([*(cell.ljust(width) for cell, width in zip(row, widths)), row[5]]).rstrip() for row in rows]


def report(hostvars, hosts):
    """host -> verdict, exit status, note and apps."""
    kept = ("verdict", "exit_status", "note", "apps")
    return {host: {key: _outcome(hostvars, host)[key] for key in kept} for host in hosts}


def bundle_path(output):
    """Where export-logs has put the archive."""
    for line in output.splitlines():
        try:
            event = json.loads(line)
        except ValueError:
            continue
        if isinstance(event, dict) and event.get("type") == "export-logs-result" and event.get("path"):
            return event["path"]
    raise AnsibleFilterError("the engine told of no archive")


class FilterModule:
    def filters(self):
        return {"kelo_desk_table": table, "kelo_desk_report": report, "kelo_desk_bundle_path": bundle_path}
