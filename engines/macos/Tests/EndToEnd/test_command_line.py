"""Both command lines: what the engine accepts, and how it refuses the rest."""

import command_surface
import pytest
from command_surface import SILENT_OPTIONS, SUBCOMMANDS, VOCABULARY
from support import APPS

USAGE = (
    f"Usage: engine-cli <{'|'.join(SUBCOMMANDS)}> [flags]\n"
    f"       engine-cli --silent --mode install|uninstall --apps {','.join(APPS)}\n\n"
    "See protocol/README.md for the full command surface."
)
UNKNOWN_APP = f"Unknown app identifier in --apps. Valid values: {', '.join(APPS)}"


def test_it_takes_the_options_of_the_vocabulary_and_no_others(installation):
    machine = installation("2.0")
    assert command_surface.protocol_options(machine) == {name: set(row["options"]) for name, row in SUBCOMMANDS.items()}
    assert command_surface.silent_options(machine) == set(SILENT_OPTIONS)
    for option, row in SILENT_OPTIONS.items():
        run = machine.run("--silent", option, *(["brenna"] if {"value", "values"} & set(row) else []), "--mode", "!")
        assert option in ("--verbose", "--offline") or f"unrecognised argument '{option}'" not in machine.log, run.errors


def test_it_takes_the_values_of_the_vocabulary_and_no_others(installation):
    machine = installation("2.0")
    actions = [row["name"] for row in VOCABULARY["actions"]]
    assert [name for name in actions if command_surface.accepts_action(machine, name)] == ["install", "update", "uninstall"]
    assert [name for name in actions if command_surface.accepts_mode(machine, name)] == SILENT_OPTIONS["--mode"]["values"]
    assert command_surface.accepts_apps(machine, ",".join(APPS))
    assert not command_surface.accepts_apps(machine, "brenna,word")


def test_it_explains_the_exit_codes_of_the_vocabulary(installation):
    assert command_surface.exit_codes(installation("2.0")) == [row["code"] for row in VOCABULARY["exitCodes"]]


@pytest.mark.parametrize("arguments", [[], ["--offline", "hello"], ["--apps", "brenna"]])
def test_without_a_subcommand_the_usage_goes_to_standard_error(installation, arguments):
    run = installation("2.0").run(*arguments)
    assert (run.status, run.errors, run.events) == (3, USAGE, [])


@pytest.mark.parametrize(
    "arguments, message",
    [
        (["HELLO"], f"Unknown subcommand 'HELLO'. Valid: {', '.join(SUBCOMMANDS)}"),
        (["run"], "--action must be install, update, or uninstall"),
        (["run", "--action", "remove"], "--action must be install, update, or uninstall"),
        (["run", "--apps", "nonsense"], "--action must be install, update, or uninstall"),
        (["run", "--action", "install", "--apps", "nonsense"], UNKNOWN_APP),
        (["run", "--action", "install", "--apps", " "], UNKNOWN_APP),
        (["check-updates", "--apps", "x"], UNKNOWN_APP),
    ],
)
def test_a_bad_command_line_is_reported_twice_and_exits_with_3(installation, arguments, message):
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
    assert run.errors.endswith(f"Valid values: {', '.join(app for app in APPS if app != 'rulo')}\n")


@pytest.mark.parametrize(
    "arguments, message",
    [
        (["--silent", "--mode"], "--mode requires a value: install | uninstall"),
        (["--silent", "--mode", "Repair"], "Unknown --mode value 'Repair'. Valid values: install, uninstall"),
        (["--silent", "--apps", "--strict", "true"],
         f"Unknown app identifier '--strict'. Valid values: {', '.join(APPS)}"),
    ],
)
def test_an_unattended_run_prints_the_hint_and_exits_with_3(installation, arguments, message):
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
    assert set(run.codes.values()) == {"NOT_COMPATIBLE"} and list(run.codes) == APPS
    assert run.done["installerRetired"]["reason"] == "expired"
    assert run.done["installerRetired"]["expiresOn"] == "2020-01-31"
    assert machine.run("hello").events[0]["installerRetired"]["reason"] == "expired"
    assert machine.uninstall("--apps", "brenna").statuses == {"brenna": "uninstalled"}
