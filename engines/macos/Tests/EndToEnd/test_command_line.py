"""The command line of both roads, as a shell or a script meets it."""

import pytest

USAGE = (
    "Usage: engine-cli <hello|run|check-updates|disk-free|export-logs> [flags]\n"
    "       engine-cli --silent --mode install|uninstall --apps brenna,tolvi,rulo,galdivane\n\n"
    "See protocol/README.md for the full command surface."
)


@pytest.mark.parametrize("arguments", [[], ["--offline", "hello"], ["--apps", "brenna"]])
def test_without_a_subcommand_the_usage_goes_to_standard_error(installation, arguments):
    run = installation("2.0").run(*arguments)
    assert (run.status, run.errors, run.events) == (3, USAGE, [])


@pytest.mark.parametrize(
    "arguments, message",
    [
        (["HELLO"], "Unknown subcommand 'HELLO'. Valid: hello, run, check-updates, disk-free, export-logs"),
        (["run"], "--action must be install, update, or uninstall"),
        (["run", "--action", "remove"], "--action must be install, update, or uninstall"),
        (["run", "--apps", "nonsense"], "--action must be install, update, or uninstall"),
        (["run", "--action", "install", "--apps", "nonsense"],
         "Unknown app identifier in --apps. Valid values: brenna, tolvi, rulo, galdivane"),
        (["run", "--action", "install", "--apps", " "],
         "Unknown app identifier in --apps. Valid values: brenna, tolvi, rulo, galdivane"),
        (["check-updates", "--apps", "x"],
         "Unknown app identifier in --apps. Valid values: brenna, tolvi, rulo, galdivane"),
    ],
)
def test_a_bad_command_line_is_told_twice_and_exits_with_3(installation, arguments, message):
    machine = installation("2.0")
    run = machine.run(*arguments)
    assert run.status == 3
    assert run.events == [{"v": 1, "type": "log", "level": "error", "message": message}]
    assert run.errors == f"Error: {message}\n"
    assert f"engine: {message}" in machine.log


def test_install_dir_is_warned_about_and_ignored(installation):
    machine = installation("2.0")
    run = machine.install("--apps", "brenna", "--install-dir", "/tmp/elsewhere")
    assert run.events[0] == {
        "v": 1, "type": "log", "level": "warn",
        "message": "--install-dir is not yet honored (Phase 1); installing to /Applications",
    }
    assert machine.app("brenna").is_dir()


def test_an_excluded_app_is_unknown(installation):
    machine = installation("2.0")
    machine.configuration(apps={"rulo": {"primaryBundleIdentifier": "com.kelo.rulo", "included": False}})
    run = machine.install("--apps", "rulo")
    assert run.status == 3
    assert run.errors.endswith("Valid values: brenna, tolvi, galdivane\n")


@pytest.mark.parametrize(
    "arguments, message",
    [
        (["--silent", "--mode"], "--mode requires a value: install | uninstall"),
        (["--silent", "--mode", "Repair"], "Unknown --mode value 'Repair'. Valid values: install, uninstall"),
        (["--silent", "--apps", "--strict", "true"],
         "Unknown app identifier '--strict'. Valid values: brenna, tolvi, rulo, galdivane"),
    ],
)
def test_the_silent_road_prints_the_hint_and_exits_with_3(installation, arguments, message):
    run = installation("2.0").run(*arguments)
    assert run.status == 3
    assert run.errors.startswith(f"Error: {message}\n\nUsage: <installer> [--silent]")
    assert run.errors.endswith("  5  Network unavailable (online mode only)\n")


def test_an_expired_installer_installs_nothing_and_still_removes(installation):
    machine = installation("2.0")
    machine.install("--apps", "brenna")
    machine.configuration(expiresOn={"offline": "2020-01-31"})
    run = machine.run("run", "--action", "install")
    assert run.status == 2
    assert set(run.codes.values()) == {"NOT_COMPATIBLE"} and len(run.codes) == 4
    assert run.done["installerRetired"]["reason"] == "expired"
    assert run.done["installerRetired"]["expiresOn"] == "2020-01-31"
    assert machine.run("hello").events[0]["installerRetired"]["reason"] == "expired"
    assert machine.uninstall("--apps", "brenna").statuses == {"brenna": "uninstalled"}
