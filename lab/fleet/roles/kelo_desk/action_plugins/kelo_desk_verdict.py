"""Sets the result of a host: ok, failed, or unreachable.

A host without a network, or one that was held, counts as unreachable, because a later run can succeed without a change.
"""

from ansible.plugins.action import ActionBase


def sentence(outcome):
    parts = [f"exit status {outcome['exit_status']}: {outcome['meaning']}"]
    if outcome["note"]:
        parts.append(outcome["note"])
    for app, result in outcome["apps"].items():
        if result["status"] in ("failed", "no result", "absent afterwards", "no answer", "not offered"):
            parts.append(f"{app} {result['status']}" + (f": {result['detail']}" if result["detail"] else ""))
    return "; ".join(parts)


class ActionModule(ActionBase):
    TRANSFERS_FILES = False
    _VALID_ARGS = frozenset(("outcome",))

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        outcome = self._task.args["outcome"]
        if "verdict" not in outcome:  # the connection broke before or during the run
            return {**result, "changed": False, "unreachable": bool(outcome.get("unreachable")),
                    "failed": not outcome.get("unreachable"), "msg": outcome.get("msg", "")}
        if outcome["verdict"] in ("no_network", "held"):
            return {**result, "unreachable": True, "changed": False, "msg": sentence(outcome)}
        failed = outcome["verdict"] == "failed"
        return {**result, "failed": failed, "changed": False,
                "msg": sentence(outcome) if failed else outcome["verdict"]}
