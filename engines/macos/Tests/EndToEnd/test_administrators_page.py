"""Runs every console block of protocol/administrators.md, in order, on one machine.

The output has to equal the page's, except for times and paths.
"""

import plistlib
import re
import shutil
import subprocess
from xml.etree import ElementTree

import pytest
from command_surface import HOME
from support import BUILD, HANG, LAB, give_away, unprivileged

PAGE = (HOME / "protocol/administrators.md").read_text()
BLOCKS = re.findall(r"^```(\w+)\n(.*?)^```$", PAGE, re.MULTILINE | re.DOTALL)
SCRIPTS = HOME / "packaging/command"
UNITS = dict(re.findall(r"^`/etc/systemd/system/([\w.-]+)`:\n\n```ini\n(.*?)^```$", PAGE, re.MULTILINE | re.DOTALL))
BUNDLE_PATH = ":".join(f"/Applications/Kelo-Desk-Installer.app/Contents/{folder}" for folder in ("Resources/bin", "MacOS"))
BUNDLE_PATH += ":/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin"
NEW_VERSION = "Version 2.0 is out:\n"

# Prints each command on a line, and gives it the status of the previous one.
TYPIST = r"""
status=0
typed() { printf '\001%s\n' "$1"; (exit $status); eval "$1"; status=$?; }
"""


def blocks_of(kind):
    return [text for found, text in BLOCKS if found == kind]


def commands(block):
    """The typed commands, and their output on the page."""
    found = []
    for line in block.splitlines():
        if line.startswith("$ "):
            found.append((line[2:], []))
        else:
            found[-1][1].append(line)
    return found


def quoted(text):
    return "'" + text.replace("'", "'\\''") + "'"


class Desk:
    """A machine of the user anna. Her home is the machine's root; the scripts and the engine are in the PATH."""

    def __init__(self, installation, authority):
        options = ("--authority", str(authority), "--team-id", "QX7M4R2V9D", "--variant", "rulo=wrong-digest")
        self.machine = installation("1.0", *options)
        self.newer = installation("2.0", *options)
        self.scripts = shutil.copytree(SCRIPTS, self.machine.resources / "bin")
        give_away(self.machine.folder)
        subprocess.run(["rm", "-rf", self.machine.root / "Library/Logs"], check=True)
        self.path = f"{self.scripts}:{self.machine.engine.parent}:/usr/bin:/bin"

    def publish(self):
        """Replaces the packages by newer ones."""
        shutil.rmtree(self.machine.packages)
        shutil.copytree(self.newer.packages, self.machine.packages)

    def environment(self, **changes):
        return {"HOME": str(self.machine.root), "PATH": self.path, "LC_ALL": "C.UTF-8", **changes}

    def run(self, command, **environment):
        return subprocess.run(command, env=self.environment(**environment), cwd="/", stdin=subprocess.DEVNULL, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=HANG, **unprivileged())

    def type(self, block):
        """Each command with its output."""
        script = self.machine.folder / "typed"
        script.write_text(self.typed_before() + "".join(f"typed {quoted(line)}\n" for line, _ in commands(block)))
        out = self.run(["bash", str(script)]).stdout
        answers = []
        for piece in out.split("\001")[1:]:
            line, _, answer = piece.partition("\n")
            answers.append((line, self.places(answer).splitlines()))
        return answers

    def typed_before(self):
        # Functions of earlier blocks; all other state is on the machine.
        functions = [line for block in blocks_of("console") for line, _ in commands(block)
                     if re.match(r"\w+\(\) \{", line)]
        return TYPIST + "\n".join(functions) + "\n"

    def places(self, text):
        return text.replace(str(self.machine.root), "/Users/anna")


def same_times(lines):
    return [re.sub(r"-logs-\d{8}-\d{6}\.zip$", "-logs-TIME.zip", line) for line in lines]


@pytest.fixture(scope="module")
def authority(workshop):
    folder = workshop / "administrators-authority"
    subprocess.run([LAB / "lab-sign", "make-authority", folder, "--team", "QX7M4R2V9D"], check=True, capture_output=True)
    return folder


@pytest.fixture
def desk(installation, authority):
    return Desk(installation, authority)


def test_every_console_block_does_what_the_page_shows(desk):
    assert len(blocks_of("console")) == PAGE.count("```console") > 0
    for block in blocks_of("console"):
        if PAGE.index(NEW_VERSION) < PAGE.index(block) and desk.newer:
            desk.publish()
            desk.newer = None
        shown = [(line, same_times(answer)) for line, answer in commands(block)]
        assert [(line, same_times(answer)) for line, answer in desk.type(block)] == shown


def installed_version(desk):
    answer = desk.type("$ versions\n")[0][1]
    return answer[0]


def test_cron_runs_the_sweep(desk):
    (crontab,) = blocks_of("crontab")
    path, line = crontab.splitlines()
    minute, hour, day, month, weekday, command = line.split(None, 5)
    assert (minute, hour, day, month, weekday) == ("17", "12", "*", "*", "1-5")
    assert path == f"PATH={BUNDLE_PATH}"

    desk.type("$ kelo --apps brenna\n")
    desk.publish()
    assert command == "kelo-sweep 1800"
    done = desk.run(["/bin/sh", "-c", command.replace("1800", "1")], SHELL="/bin/sh", LOGNAME="anna", LC_ALL="C")
    assert (done.returncode, done.stdout) == (0, "")
    assert installed_version(desk) == "brenna 2.0"


def test_a_sweep_that_fails_tells_and_packs_the_logs(desk):
    desk.type("$ kelo --apps brenna\n")
    desk.publish()
    (desk.machine.packages / "brenna_installer.dmg").write_bytes(b"no image")
    done = desk.run(["kelo-sweep"])
    assert done.returncode == 2
    assert 'app="Kelo Brenna" status=failed detail="Checksum verification failed for Kelo Brenna"' in done.stdout
    assert len(list((desk.machine.root / "kelo-sweep").glob("*.zip"))) == 1
    assert installed_version(desk) == "brenna 1.0"


def test_a_sweep_without_engine_or_jq_is_no_success(desk):
    assert desk.run(["kelo-sweep"], PATH=f"{desk.scripts}:/usr/bin:/bin").returncode == 127
    tools = desk.machine.folder / "tools"
    tools.mkdir()
    for tool in ("sh", "awk", "sed"):
        (tools / tool).symlink_to(shutil.which(tool))
    path = f"{tools}:{desk.scripts}:{desk.machine.engine.parent}"
    assert desk.run(["/bin/sh", desk.scripts / "kelo-sweep"], PATH=path).returncode == 127


def test_a_sweep_over_current_apps_quits_none_and_mounts_nothing(desk):
    desk.type("$ kelo --apps brenna\n")
    before = desk.machine.log.count("SilentRunner: Starting")
    (program,) = (desk.machine.app("brenna") / "Contents/MacOS").iterdir()
    running = subprocess.Popen([program], cwd="/", **unprivileged())
    try:
        done = desk.run(["kelo-sweep"])
        assert (done.returncode, done.stdout, running.poll()) == (0, "", None)
        assert desk.machine.log.count("SilentRunner: Starting") == before
        # The reason for the sweep: an install quits the app before it compares versions.
        assert desk.run(["kelo", "--quit-apps", "--apps", "brenna"]).returncode == 0
        assert running.wait(timeout=HANG) is not None
        assert "is already installed (same version)" in desk.machine.log
    finally:
        running.kill()
        running.wait()


def test_kelo_spares_a_running_copy_that_the_engine_would_quit(desk):
    desk.type("$ kelo --apps brenna\n")
    copy = shutil.copytree(desk.machine.app("brenna"), desk.machine.root / "Users/anna/Another Brenna.app")
    (program,) = (copy / "Contents/MacOS").iterdir()
    running = subprocess.Popen([program], cwd="/", **unprivileged())
    try:
        assert (desk.run(["kelo", "--apps", "brenna", "--offline"]).returncode, running.poll()) == (75, None)
        assert desk.run(["kelo", "--quit-apps", "--apps", "brenna"]).returncode == 0
        assert running.wait(timeout=HANG) is not None
    finally:
        running.kill()
        running.wait()


def test_a_summary_is_there_when_the_log_is_not(desk):
    desk.type("$ kelo --apps brenna\n")
    shutil.rmtree(desk.machine.log_file.parent)
    desk.machine.log_file.parent.write_text("in the way")
    done = desk.run(["kelo-summary", "kelo", "--apps", "rulo"])
    assert done.returncode == 2 and 'app="Kelo Rulo" status=failed' in done.stdout and "Brenna" not in done.stdout


def test_a_host_that_cannot_start_the_engine_is_no_success(desk):
    desk.machine.settings(colour="blue")
    done = desk.run(["kelo-sweep"])
    assert done.returncode == 78 and "kelo-sweep: engine-cli hello ended with status 78" in done.stdout


def test_a_sweep_leaves_the_copies_of_the_store_to_the_store(desk):
    desk.type("$ kelo --apps brenna\n")
    receipt = desk.machine.app("brenna") / "Contents/_MASReceipt"
    receipt.mkdir()
    (receipt / "receipt").write_text("x")
    desk.publish()
    assert desk.run(["kelo-sweep"]).returncode == 0
    assert installed_version(desk) == "brenna 1.0"


def test_launchd_finds_a_property_list_whose_program_works(desk):
    job = plistlib.loads(blocks_of("xml")[0].encode())
    program, *words = job["ProgramArguments"]
    assert program == "/Applications/Kelo-Desk-Installer.app/Contents/Resources/bin/kelo-sweep" and words == ["1800"]
    assert job["UserName"] == "anna" and job["StandardErrorPath"] == job["StandardOutPath"]
    assert job["StartCalendarInterval"] == {"Hour": 12, "Minute": 17}
    assert job["EnvironmentVariables"] == {"HOME": "/Users/anna", "PATH": BUNDLE_PATH}
    assert set(job) == {"Label", "UserName", "EnvironmentVariables", "ProgramArguments", "StandardOutPath",
                        "StandardErrorPath", "StartCalendarInterval"}
    done = subprocess.run([desk.scripts / "kelo-sweep"], env={"HOME": str(desk.machine.root), "PATH": desk.path}, cwd="/",
                          capture_output=True, text=True, timeout=HANG, **unprivileged())
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def of_a_server(desk, script, *words):
    """The status of a script of the page, which finds the bundle on the desk."""
    text = script.replace("/Applications/Kelo-Desk-Installer.app/Contents/Resources/bin", str(desk.scripts))
    assert text != script
    return desk.run(["sh", "-c", text, "script", *words]).returncode


def test_munki_finds_the_item_due_installs_and_removes_it(desk):
    item = plistlib.loads(blocks_of("xml")[1].encode())
    due, install, is_there, remove = (lambda name=name: of_a_server(desk, item[f"{name}_script"])
                                      for name in ("installcheck", "preinstall", "uninstallcheck", "uninstall"))
    assert (item["installer_type"], item["uninstall_method"]) == ("nopkg", "uninstall_script")
    assert (due(), is_there(), install(), due(), is_there()) == (0, 1, 0, 1, 0)
    desk.publish()
    (program,) = (desk.machine.app("brenna") / "Contents/MacOS").iterdir()
    running = subprocess.Popen([program], cwd="/", **unprivileged())
    try:
        assert (due(), install(), due()) == (0, 0, 1)  # Tolvi only
        assert (installed_version(desk), running.poll()) == ("brenna 1.0", None)
    finally:
        running.kill()
        running.wait()
    assert (due(), remove(), is_there()) == (0, 0, 1)
    for status, change in ((3, ("brenna,tolvi", "brenna,word")), (127, ("/bin/kelo", "/bin/nowhere"))):
        wrong = [of_a_server(desk, item[f"{name}_script"].replace(*change)) for name in ("installcheck", "preinstall")]
        assert wrong == [0, status]


def test_jamf_runs_a_script_that_installs_the_apps_of_its_policy(desk):
    policy = ElementTree.fromstring(blocks_of("xml")[2])
    (script,) = (block for block in blocks_of("sh") if '"$4"' in block)
    words = ("/", "a Mac", "anna", policy.findtext("scripts/script/parameter4"))
    assert [of_a_server(desk, script, *words) for _ in range(2)] == [0, 0]
    assert desk.machine.log.count("SilentRunner: Starting") == 1
    assert desk.type("$ versions\n")[0][1][:2] == ["brenna 1.0", "tolvi 1.0"]
    assert of_a_server(desk, script, *words[:3], "brenna,word") == 3
    assert of_a_server(desk, script.replace("/bin/kelo", "/bin/nowhere"), *words) == 127


@pytest.mark.skipif(not shutil.which("systemd-analyze"), reason="systemd isn't installed on this machine")
def test_systemd_has_nothing_to_complain_of(tmp_path):
    assert sorted(UNITS) == ["kelo-sweep.service", "kelo-sweep.timer"]
    program = SCRIPTS / "kelo-sweep"
    for name, text in UNITS.items():
        moved = text.replace("/opt/Kelo-Desk-Installer.app/Contents/Resources/bin/kelo-sweep", str(program))
        (tmp_path / name).write_text(moved)
    assert str(program) in (tmp_path / "kelo-sweep.service").read_text()
    checked = subprocess.run(["systemd-analyze", "verify", "--man=no", *(tmp_path / name for name in UNITS)],
                             capture_output=True, text=True)
    complaints = [line for line in (checked.stdout + checked.stderr).splitlines() if str(tmp_path) in line or "kelo" in line]
    assert (checked.returncode, complaints) == (0, [])


def test_a_stranger_can_type_the_page_in_at_a_desk(tmp_path):
    typed = "\n".join(line for block in blocks_of("console") for line, _ in commands(block))
    typed = typed.replace("kelo-sweep;", "publish-2.0; kelo-sweep;", 1)
    shown = [line for block in blocks_of("console") for _, answer in commands(block) for line in answer]
    done = subprocess.run([HOME / "lab/demo/desk.sh", BUILD, tmp_path / "desk", "bash"], input=typed, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=HANG,
                          env={"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8"})
    answers = done.stdout.replace(str(tmp_path / "desk/anna"), "/Users/anna").splitlines()
    assert same_times(answers) == same_times(shown)
