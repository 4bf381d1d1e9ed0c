"""Writes the result of each task on each host, and the counts, to the file RECORD."""

import json
import os

from ansible.plugins.callback import CallbackBase


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = "notification"
    CALLBACK_NAME = "record"
    CALLBACK_NEEDS_ENABLED = True

    def __init__(self):
        super().__init__()
        self._results = []

    def _note(self, result, **_):
        self._results.append({"task": result.task_name, "host": result._host.get_name(), "result": result._result})

    v2_runner_on_ok = v2_runner_on_failed = v2_runner_on_unreachable = _note

    def v2_playbook_on_stats(self, stats):
        counts = {host: stats.summarize(host) for host in stats.processed}
        with open(os.environ["RECORD"], "w") as record:
            json.dump({"counts": counts, "results": self._results}, record, default=str)
