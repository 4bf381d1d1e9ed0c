"""kelo, the script that starts engine-cli only with valid arguments, and quits no app without --quit-apps."""

import json
import os
import plistlib
import pty
import select
import shutil
import signal
import subprocess

import pytest
from command_surface import HOME, NOT_HONOURED, SILENT_OPTIONS, SUBCOMMANDS
from support import APPS, HANG

KELO = HOME / "packaging/command/kelo"


@pytest.fixture
def bundle(tmp_path):
    """A bundle with kelo and a fake engine, which prints its arguments, one per line, and exits with 42. For hello and
    check-updates it also prints the answers that `answers` has written."""
    contents = tmp_path / "a folder/Kelo-Desk-Installer.app/Contents"
    for folder in ("MacOS", "Resources/bin"):
        (contents / folder).mkdir(parents=True)
    for script in ("kelo", "kelo-summary"):
        shutil.copy(KELO.with_name(script), contents / "Resources/bin" / script)
    engine = contents / "MacOS/engine-cli"
    engine.write_text('#!/bin/sh\nprintf "%s\\n" "$@"\n[ ! -e "$0.$1" ] || cat "$0.$1"\nexit 42\n')
    engine.chmod(0o755)
    answers(contents)
    return contents


def answers(contents, *rows, latest=None, excluded=(), news=None, **facts):
    """Sets the fake engine's answers to hello and check-updates. `rows` are apps; the others are absent. `news` are other keys
    of the answer to check-updates, `facts` of hello."""
    rows = [*rows, *(app(name) for name in APPS if name not in {*excluded, *(row["id"] for row in rows)})]
    hello = {"type": "hello", "engineVersion": "7.8", "mode": "offline", "apps": rows, **facts}
    news = {"type": "update-check-result", "apps": [{**row, "latestVersion": latest, "updateAvailable": True} for row in rows],
            **(news or {})}
    for command, event in (("hello", hello), ("check-updates", news)):
        (contents / f"MacOS/engine-cli.{command}").write_text(
            json.dumps(event, separators=(",", ":")).replace("/", "\\/") + "\n")


def app(name, version=None, latest="2.0", path=None, source="direct"):
    return {"id": name, "displayName": f"Kelo {name.title()}", "installedVersion": version, "latestVersion": latest,
            "updateAvailable": version == "1.0", "source": version and source,
            "installedPath": version and str(path or f"/Applications/{name}.app")}


def retired(reason):
    return {"installerRetired": {"reason": reason, "downloadUrl": "https://www.kelo.example/desk/"}}


def kelo(program, *words, path="/usr/bin:/bin"):
    return subprocess.run([program, *words], capture_output=True, text=True, env={"PATH": path})


@pytest.mark.parametrize("line, passed", [
    ("--apps brenna", "--silent --apps brenna"),
    ("--silent --apps brenna,tolvi --mode uninstall --strict true", "--silent --silent --apps brenna,tolvi --mode uninstall --strict true"),
    ("--mode install --apps rulo --open-after-install false --verbose --offline",
     "--silent --mode install --apps rulo --open-after-install false --verbose --offline"),
    ("hello", "hello"), ("hello --offline", "hello --offline"), ("check-updates", "check-updates"),
    ("check-updates --apps galdivane", "check-updates --apps galdivane"),
    ("run --action update --apps tolvi --strict true", "run --action update --apps tolvi --strict true"),
    ("disk-free --path /a", "disk-free --path /a"), ("export-logs --out a", "export-logs --out a"),
])
def test_understood_words_reach_the_engine_and_its_status_comes_back(bundle, line, passed):
    done = kelo(bundle / "Resources/bin/kelo", *line.split())
    said = [word for word in done.stdout.splitlines() if not word.startswith("{")]
    assert (said, done.stderr, done.returncode) == (passed.split(), "", 42)


@pytest.mark.parametrize("words, complaint", [
    (["--apps=brenna"], "'--apps=brenna' isn't understood"), (["--app", "brenna"], "'--app' isn't understood"),
    (["--apps", ""], "'' is none of"), (["--apps", ","], "'' is none of"), (["--apps", "brenna,"], "'' is none of"),
    (["--apps", "brenna,,rulo"], "'' is none of"), (["--apps", "brenna rulo"], "'brenna rulo' is none of"),
    (["--apps", "brenna", "rulo"], "'rulo' isn't understood"), (["--apps", "word"], "'word' is none of"),
    (["--silent"], "--apps is missing"), (["--mode", "uninstall"], "--apps is missing"),
    (["--apps", "--verbose"], "--apps has no value"), (["--apps"], "--apps has no value"),
    (["--apps", "rulo", "--mode", "remove"], "--mode doesn't take 'remove'"),
    (["--apps", "rulo", "--strict", "yes"], "--strict doesn't take 'yes'"),
    (["--apps", "rulo", "--strict"], "--strict has no value"),
    (["--apps", "rulo", "--apps", "brenna"], "--apps is given twice"),
    (["--apps", "rulo", "--VERBOSE"], "'--VERBOSE' isn't understood"),
    (["--apps", "rulo", "--verbose --offline"], "--verbose --offline has no value"), (["-silent"], "'-silent' isn't understood"),
    (["run", "--action", "install"], "--apps is missing"), (["run", "--apps", "rulo"], "--action is missing"),
    (["run", "--dry-run", "--apps", "rulo"], "--action is missing"), (["run", "--silent"], "'--silent' isn't understood"),
    (["run", "--action", "install", "--apps", "rulo", NOT_HONOURED, "/"], f"'{NOT_HONOURED}' isn't understood"),
    (["hello", "--apps", "rulo"], "'--apps' isn't understood"), (["disk-free", "--path", ""], "--path doesn't take ''"),
    (["brenna"], "'brenna' isn't understood"), (["HELLO"], "'HELLO' isn't understood"),
])
def test_other_words_are_refused_and_start_nothing(bundle, words, complaint):
    done = kelo(bundle / "Resources/bin/kelo", *words)
    assert (done.returncode, done.stdout) == (3, "")
    assert done.stderr.startswith("kelo: ") and complaint in done.stderr


def test_it_explains_itself(bundle):
    program = bundle / "Resources/bin/kelo"
    asked = kelo(program, "--help")
    assert (asked.returncode, asked.stderr) == (0, "") and asked.stdout.startswith("Usage: kelo")
    for words in (["run", "--help"], ["inventory", "-h"], ["--apps", "rulo", "--help"]):
        assert kelo(program, *words).stdout == asked.stdout
    without = kelo(program)
    assert (without.returncode, without.stdout, without.stderr) == (3, "", asked.stdout)


def test_it_finds_the_engine_of_its_bundle_through_links_and_else_the_one_in_the_path(bundle, tmp_path):
    (tmp_path / "bin").mkdir()
    (tmp_path / "bin/second").symlink_to(bundle / "Resources/bin/kelo")
    (tmp_path / "bin/kelo").symlink_to("second")
    assert kelo(tmp_path / "bin/kelo", "hello").returncode == 42
    (tmp_path / "elsewhere").mkdir()
    alone = shutil.copy(KELO, tmp_path / "elsewhere/alone")
    assert kelo(alone, "hello").returncode == 127
    assert kelo(alone, "hello", path=f"{bundle / 'MacOS'}:/usr/bin:/bin").returncode == 42
    beside = shutil.copy(bundle / "MacOS/engine-cli", tmp_path / "elsewhere/engine-cli")
    assert (kelo(alone, "hello").returncode, os.access(beside, os.X_OK)) == (42, True)


def test_it_says_the_engines_version_and_an_inventory(bundle):
    program = bundle / "Resources/bin/kelo"
    answers(bundle, app("brenna", "1.0"), app("tolvi"), app("rulo"), app("galdivane", "2.0"))
    (bundle / "Resources/installer_config.json").write_text(
        '{"apps": {},\n "expiresOn": {"online": "2031-01-31",\n "offline" : "2030-12-31"}}')
    assert kelo(program, "--version").stdout == "engine-cli 7.8\n"
    assert kelo(program, "inventory").stdout == "engine 7.8; brenna 1.0; tolvi -; rulo -; galdivane 2.0; expires 2030-12-31\n"
    assert kelo(program, "inventory", "--offline").stdout == kelo(program, "inventory").stdout
    (bundle / "Resources/installer_config.json").unlink()
    without = kelo(program, "inventory")
    assert without.stdout.endswith("; expires -\n") and without.stderr == ""


@pytest.fixture
def starts(bundle, tmp_path):
    """starts(identifier): an application with this bundle identifier, which runs until the test's end."""
    processes = []
    machine = tmp_path / "the machine"
    (bundle / "Resources/linux_host.json").write_text(json.dumps({"root": str(machine)}))

    def start(identifier="com.kelo.brenna.mac", folder=machine / "Applications", script=False):
        contents = folder / "Brenna's \"own\".app/Contents"
        executable = contents / "MacOS/Brenna"
        executable.parent.mkdir(parents=True)
        (contents / "Info.plist").write_bytes(plistlib.dumps({"CFBundleIdentifier": identifier, "CFBundleName": "com.kelo.rulo"}))
        executable.write_text("#!/bin/sh\nread line\n")
        executable.chmod(0o755)
        if not script:
            shutil.copy("/usr/bin/cat", executable)
        processes.append(subprocess.Popen([executable], stdin=subprocess.PIPE))
        return contents.parent

    yield start
    for process in processes:
        process.stdin.close()
        process.wait()


@pytest.fixture
def running(starts):
    return starts()


def test_a_running_app_is_left_out_and_the_others_are_not(bundle, running):
    answers(bundle, app("brenna", "1.0", path=running), app("tolvi"))
    done = kelo(bundle / "Resources/bin/kelo", "--mode", "install", "--apps", "brenna,tolvi", "--strict", "true")
    assert done.stdout.split() == ["--silent", "--mode", "install", "--apps", "tolvi", "--strict", "true"]
    assert (done.returncode, done.stderr) == (42, "Kelo Brenna: is running, left alone; --quit-apps quits it\n")


@pytest.mark.parametrize("identifier, where, status", [
    ("com.kelo.brenna.mac", "the machine/a copy", 75), ("com.kelo.brenna.mac.fed", "the machine/a variant", 75),
    ("com.kelo.brenna.mac.other", "the machine/another app", 42), ("com.kelo.brenna.mac", "another machine", 42)])
@pytest.mark.parametrize("script", [False, True])
def test_a_copy_or_variant_elsewhere_counts_as_running(bundle, starts, tmp_path, identifier, where, status, script):
    starts(identifier, tmp_path / where, script)
    answers(bundle, app("brenna", "1.0"))
    assert kelo(bundle / "Resources/bin/kelo", "--apps", "brenna").returncode == status


def test_a_copy_that_was_moved_while_it_runs_counts(bundle, running, tmp_path):
    (tmp_path / "the machine/moved").mkdir()
    running.rename(tmp_path / "the machine/moved/Brenna.app")
    answers(bundle, app("brenna"))
    assert kelo(bundle / "Resources/bin/kelo", "--apps", "brenna").returncode == 75


def test_on_a_mac_the_system_is_asked_too(bundle, tmp_path):
    (tmp_path / "lsappinfo").write_text(
        '#!/bin/sh\n[ "$*" != "find bundleid=com.kelo.rulo.fed" ] || echo \'ASN:0x0-0x1b01b-"Kelo Rulo":\'\n')
    (tmp_path / "lsappinfo").chmod(0o755)
    answers(bundle, app("rulo"), app("brenna"))
    for name, status in (("rulo", 75), ("brenna", 42)):
        assert kelo(bundle / "Resources/bin/kelo", "--apps", name, path=f"{tmp_path}:/usr/bin:/bin").returncode == status


def test_with_nothing_else_to_do_the_status_says_try_again(bundle, running):
    answers(bundle, app("brenna", "1.0", path=running))
    for words in (["--apps", "brenna"], ["run", "--action", "uninstall", "--apps", "brenna"]):
        done = kelo(bundle / "Resources/bin/kelo", *words)
        assert (done.returncode, done.stdout) == (75, "")
    engine = bundle / "MacOS/engine-cli"
    engine.write_text(engine.read_text().replace("exit 42", "exit 0"))
    assert kelo(bundle / "Resources/bin/kelo", "--apps", "tolvi,brenna").returncode == 75


def test_a_running_app_is_handed_over_when_it_may_be_quit(bundle, running):
    answers(bundle, app("brenna", "1.0", path=running))
    done = kelo(bundle / "Resources/bin/kelo", "--quit-apps", "--apps", "brenna")
    assert (done.returncode, done.stdout.split(), done.stderr) == (42, ["--silent", "--apps", "brenna"], "")


def test_without_an_answer_nothing_is_started(bundle):
    (bundle / "MacOS/engine-cli.hello").unlink()
    done = kelo(bundle / "Resources/bin/kelo", "--apps", "brenna")
    assert (done.returncode, done.stdout, done.stderr) == (70, "", "kelo: engine-cli gives no answer to hello\n")


def test_a_dry_run_says_what_would_happen_and_starts_nothing(bundle, running):
    program = bundle / "Resources/bin/kelo"
    answers(bundle, app("brenna", "1.0", path=running), app("tolvi"), app("rulo", "1.0", source="appstore"),
            app("galdivane", "2.0"))
    assert kelo(program, "--dry-run", "--apps", "brenna,tolvi,rulo,galdivane").stdout.splitlines() == [
        "Kelo Brenna: would be updated from version 1.0 to 2.0; is running, left alone",
        "Kelo Tolvi: would be installed, version 2.0", "Kelo Rulo: a copy from the App Store, left alone",
        "Kelo Galdivane: current, version 2.0"]
    assert kelo(program, "--mode", "uninstall", "--apps", "brenna,tolvi,rulo", "--dry-run", "--quit-apps").stdout.splitlines() == [
        "Kelo Brenna: would be removed; is running, quit first", "Kelo Tolvi: isn't installed",
        "Kelo Rulo: a copy from the App Store, left alone"]
    assert kelo(program, "run", "--action", "update", "--apps", "brenna", "--dry-run").stdout == (
        "Kelo Brenna: would be updated from version 1.0 to 2.0; is running, left alone\n")
    assert kelo(program, "run", "--action", "uninstall", "--apps", "galdivane", "--dry-run").stdout == "Kelo Galdivane: would be removed\n"
    answers(bundle, app("tolvi", "1.0", latest=None), mode="online", latest="3.0")
    assert kelo(program, "--apps", "tolvi", "--dry-run").stdout == "Kelo Tolvi: would be updated from version 1.0 to 3.0\n"
    answers(bundle, app("tolvi", "1.0", latest=None))
    assert kelo(program, "--apps", "tolvi", "--dry-run").stdout == "Kelo Tolvi: the available version is unknown\n"


@pytest.mark.parametrize("command", ["--mode install", "run --action update", "run --action install"])
@pytest.mark.parametrize("facts", [{**retired("expired")}, {"mode": "online", **retired("expired")},
                                   {"mode": "online", "news": retired("source-unavailable")}])
def test_a_dry_run_of_a_retired_installer_promises_nothing_and_ends_like_a_run(bundle, command, facts):
    answers(bundle, app("brenna", "1.0"), latest="2.0", **facts)
    done = kelo(bundle / "Resources/bin/kelo", *command.split(), "--apps", "brenna", "--dry-run")
    assert (done.returncode, done.stdout, done.stderr) == (
        2, "", "kelo: this installer is retired; a current installer is at https://www.kelo.example/desk/\n")
    removal = kelo(bundle / "Resources/bin/kelo", "--mode", "uninstall", "--apps", "brenna", "--dry-run")
    assert (removal.returncode, removal.stdout) == (0, "Kelo Brenna: would be removed\n")


@pytest.mark.parametrize("words", [["--apps", "tolvi,brenna", "--dry-run"], ["--apps", "brenna"],
                                   ["run", "--action", "uninstall", "--apps", "brenna"]])
def test_an_app_that_this_build_excludes_is_refused(bundle, running, words):
    answers(bundle, excluded=["brenna"])
    done = kelo(bundle / "Resources/bin/kelo", *words)
    assert (done.returncode, done.stdout, done.stderr) == (
        3, "", "kelo: 'brenna' is no app of this installer; see kelo --help\n")


# Prints its requests to end. The first one interrupts `read`. Ends after a line on standard input, which it prints.
PATIENT = """#!/bin/sh
case $1 in hello) cat "$0.hello"; exit ;; esac
trap 'echo HUP' HUP
trap 'echo TERM' TERM
trap 'echo INT' INT
echo started
read -r line || read -r line
echo "$line"
exit 2
"""


def is_alone(process, number):
    process.send_signal(number)


def is_in_a_group(process, number):
    os.killpg(process.pid, number)


@pytest.mark.parametrize("number, send, before, request_", [
    (signal.SIGTERM, is_alone, [], "HUP"), (signal.SIGTERM, is_in_a_group, [], "HUP"), (signal.SIGINT, is_in_a_group, [], "HUP"),
    (signal.SIGHUP, is_in_a_group, [], "HUP"), (signal.SIGTERM, is_alone, ["nohup"], "TERM")])
@pytest.mark.parametrize("shell", ["dash", "bash --posix"])
def test_a_request_to_end_reaches_the_engine_once_and_its_end_is_awaited(bundle, running, shell, number, send, before, request_):
    answers(bundle, app("brenna", "1.0", path=running), app("tolvi"))
    (bundle / "MacOS/engine-cli").write_text(PATIENT)
    with subprocess.Popen([*before, *shell.split(), bundle / "Resources/bin/kelo", "--apps", "tolvi,brenna"], text=True,
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True) as process:
        assert process.stdout.readline() == "started\n"
        send(process, number)
        assert select.select([process.stdout], [], [], HANG)[0], "no request reached the engine"
        assert process.stdout.readline() == f"{request_}\n"
        said, _ = process.communicate("a line\n", timeout=HANG)
    assert (process.returncode, said) == (2, "a line\n")


def read_from(terminal):
    """The next bytes of the terminal's output; none after the last writer has closed it."""
    assert select.select([terminal], [], [], HANG)[0], "the program neither writes nor ends"
    try:
        return os.read(terminal, 4096)
    except OSError:
        return b""


def at_a_terminal(*words):
    """The status and the lines on the screen."""
    here, there = pty.openpty()
    process = subprocess.Popen(words, stdout=there, stderr=there, stdin=subprocess.PIPE, start_new_session=True)
    os.close(there)
    screen = b"".join(iter(lambda: read_from(here), b""))
    os.close(here)
    process.stdin.close()
    return process.wait(timeout=HANG), screen.decode().replace("\r\n", "\n").splitlines()


def test_a_person_at_a_terminal_reads_one_line_an_app(installation):
    machine = installation("1.0")
    machine.install("--apps", "brenna")
    machine = installation("2.0", machine=machine)
    scripts = machine.resources / "bin"
    scripts.mkdir()
    for script in ("kelo", "kelo-summary"):
        shutil.copy(KELO.with_name(script), scripts / script)
    (machine.packages / "rulo_installer.dmg").write_bytes(b"not what was promised")

    def kelo_says(*words):
        return at_a_terminal(scripts / "kelo", *words)

    assert kelo_says("--apps", "brenna,tolvi,rulo") == (1, [
        "Kelo Brenna: updated from 1.0, version 2.0", "Kelo Tolvi: installed, version 2.0",
        "Kelo Rulo: failed: Checksum verification failed for Kelo Rulo"])
    assert kelo_says("--apps", "tolvi") == (0, ["Kelo Tolvi: current, version 2.0"])
    without_input = '"$0" --apps tolvi <&-'
    assert at_a_terminal("sh", "-c", without_input, scripts / "kelo") == (0, ["Kelo Tolvi: current, version 2.0"])
    assert kelo_says("--mode", "uninstall", "--apps", "tolvi,rulo") == (0, [
        "Kelo Tolvi: uninstalled", "Kelo Rulo: already absent"])
    assert kelo_says("run", "--action", "install", "--apps", "brenna,tolvi,rulo") == (1, [
        "Kelo Brenna: current, version 2.0", "Kelo Tolvi: installed, version 2.0", "Kelo Rulo: failed: VERIFY_FAILED"])
    machine.configuration(expiresOn={"offline": "2020-01-01"})
    note = "  note=A current installer is at https://www.kelo.example/desk/"
    assert kelo_says("run", "--action", "update", "--apps", "brenna") == (2, [
        "Kelo Brenna: failed, version 2.0: NOT_COMPATIBLE", note])
    assert kelo_says("run", "--action", "uninstall", "--apps", "brenna,rulo") == (0, [
        "Kelo Brenna: uninstalled", "Kelo Rulo: already absent", note])


@pytest.mark.parametrize("event, said", [
    ({"type": "done", "results": [{"type": "app-result", "app": "tolvi", "status": "cancelled"}]}, "Kelo Tolvi: cancelled"),
    ({"type": "log"}, "kelo: the engine gave no result")])
def test_a_person_who_interrupts_a_run_still_reads_its_result(bundle, event, said):
    answers(bundle, app("tolvi"))
    (bundle / "MacOS/engine-cli").write_text(
        '#!/bin/sh\n[ "$1" = run ] || { cat "$0.$1"; exit; }\ntrap \'cat "$0.run"; exit 2\' HUP\nkill -INT 0\nread -r line\n')
    (bundle / "MacOS/engine-cli.run").write_text(json.dumps(event, separators=(",", ":")) + "\n")
    assert at_a_terminal(bundle / "Resources/bin/kelo", "run", "--action", "install", "--apps", "tolvi") == (2, [said])


def test_it_knows_every_option_and_app(bundle):
    program = bundle / "Resources/bin/kelo"
    values = {"--apps": ",".join(APPS), "--mode": "install", "--action": "install", "--path": "/", "--out": "a"}
    known = {"--silent": set(SILENT_OPTIONS), **{name: set(row["options"]) for name, row in SUBCOMMANDS.items()}}
    for command, options in known.items():
        words = [word for option in sorted(options - {NOT_HONOURED, "--silent"})
                 for word in ([option] if option in ("--verbose", "--offline") else [option, values.get(option, "true")])]
        assert kelo(program, command, *words).returncode == 42, (command, words)
        assert all(option in kelo(program, "--help").stdout for option in options - {NOT_HONOURED})
