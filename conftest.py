"""Rules for every Python suite: unlisted skips fail, and a suite can run in parts."""

import pytest

# ctest's SKIP_RETURN_CODE: nothing failed and something was skipped.
SKIPPED = 77


def pytest_addoption(parser):
    parser.addini("may_skip", "the reasons for which a test may be skipped", type="linelist")
    parser.addoption("--part", metavar="K/N", default="1/1", help="run every Nth test, beginning with the Kth")


def pytest_collection_modifyitems(config, items):
    part, parts = map(int, config.getoption("part").split("/"))
    items[:] = items[part - 1::parts]


def refuse_unlisted_skip(config, report):
    """Turns a skip (or an expected failure) whose reason isn't listed in pytest.ini into a failure."""
    if not report.skipped:
        return
    reason = report.longrepr[2].removeprefix("Skipped: ") if isinstance(report.longrepr, tuple) else "expected to fail"
    if reason not in config.getini("may_skip"):
        report.outcome = "failed"
        vars(report).pop("wasxfail", None)
        report.longrepr = f"skipped, and pytest.ini doesn't list the reason: {reason}"


@pytest.hookimpl(hookwrapper=True, tryfirst=True)
def pytest_runtest_makereport(item):
    outcome = yield
    refuse_unlisted_skip(item.config, outcome.get_result())


@pytest.hookimpl(hookwrapper=True, tryfirst=True)
def pytest_make_collect_report(collector):
    outcome = yield
    refuse_unlisted_skip(collector.config, outcome.get_result())


def pytest_sessionfinish(session, exitstatus):
    counts = session.config.pluginmanager.get_plugin("terminalreporter").stats
    if exitstatus == pytest.ExitCode.OK and counts.get("skipped"):
        session.exitstatus = SKIPPED
