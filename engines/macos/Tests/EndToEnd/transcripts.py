"""What the engine says in the stories that protocol/README.md tells: captured from real runs, with the values of
this machine and of these fixtures replaced by steady ones.

A scenario gives (command line, exit status, lines): the lines are the events as they came, one JSON object each.
"""

import json
import re

import online_machine
from online_machine import META, PACKAGE
from support import Gate, give_away

# Steady values for those that follow the fixtures' size and the day. All have the types that they stand for.
STEADY = {"sizeBytes": 31457280, "requiredBytes": 157286400, "freeBytes": 214748364800, "totalBytes": 31457280}


def steady(text, places):
    """One run's standard output with steady values; lines that aren't JSON objects are left out."""
    for place, name in places:
        text = text.replace(str(place).replace("/", "\\/"), name.replace("/", "\\/"))
    text = re.sub(r"logs-\d{8}-\d{6}\.zip", "logs-20260301-090000.zip", text)
    for key, value in STEADY.items():
        text = re.sub(rf'"{key}":\d+', f'"{key}":{value}', text)
    text = re.sub(r'"percent":\d+\.\d+', '"percent":0.0025', text)
    text = re.sub(r"1,000 bytes of [\d.,]+ [KM]B", "1,000 bytes of 30 MB", text)
    return [line for line in text.splitlines() if line.startswith("{")]


def shown(arguments, places):
    words = " ".join(arguments)
    for place, name in places:
        words = words.replace(str(place), name)
    return f"engine-cli {words}".rstrip()


class Offline:
    """Disk images beside the installer, a machine of its own."""

    def __init__(self, installation, version="2.0", machine=None):
        self.machine = installation(version, machine=machine)
        self.places = [(self.machine.applications, "/Applications"), (self.machine.root, "/Users/ada")]

    def run(self, *arguments):
        run = self.machine.run(*arguments)
        return self.story(arguments, run)

    def story(self, arguments, run):
        return shown(arguments, self.places), run.status, steady(run.output, self.places)


class Online:
    """A CDN over real TLS, and an installer that downloads from it."""

    def __init__(self, workshop, folder, cdn):
        self.cdn = cdn
        self.stage = online_machine.Stage(workshop, folder, cdn)
        self.machine = self.stage.machine
        self.places = [(self.machine.root / "Applications", "/Applications"), (self.machine.root, "/Users/ada")]

    def make_older(self):
        """The installed copy of the app that the CDN has becomes an earlier one."""
        plist = self.machine.installed / "Contents/Info.plist"
        plist.write_text(plist.read_text().replace("2.1", "2.0"))

    def configure_notes(self):
        path = self.machine.installer / "Contents/Resources/installer_config.json"
        cdn = json.loads(path.read_text())["cdn"]
        self.machine.change_resource(path.name, cdn={**cdn, "releaseNotesEnabled": True})

    def run(self, *arguments, after=None, say=""):
        """Runs to the end; once a line holds `after`, `say` goes to standard input."""
        process = self.machine.start(*arguments)
        lines = []
        for line in process.stdout if after else ():
            lines.append(line)
            if after in line:
                break
        rest, _ = process.communicate(say, timeout=online_machine.TIME_LIMIT)
        return shown(arguments, self.places), process.returncode, steady("".join(lines) + rest, self.places)


def hello(tools):
    old = Offline(tools.installation, "1.0")
    old.run("run", "--action", "install", "--apps", "brenna")
    return Offline(tools.installation, "2.0", machine=old.machine).run("hello")


def check_updates(tools):
    with tools.online() as online:
        online.run("run", "--action", "install", "--apps", "brenna")
        online.make_older()
        online.configure_notes()
        notes = {"product": "Kelo Brenna", "version": "2.1", "releases": [
            {"version": "2.1", "date": "2026-02-27", "notes": ["Opens large projects in half the time."]}]}
        online.cdn.on(META.replace("meta.json", "release-notes.json"), {"text": json.dumps(notes)})
        return online.run("check-updates", "--apps", "brenna,tolvi")


def install(tools):
    return Offline(tools.installation).run("run", "--action", "install", "--apps", "brenna,rulo")


def update(tools):
    old = Offline(tools.installation, "1.0")
    old.run("run", "--action", "install", "--apps", "tolvi")
    return Offline(tools.installation, "2.0", machine=old.machine).run("run", "--action", "update", "--apps", "tolvi,rulo")


def failure(tools):
    offline = Offline(tools.installation)
    image = offline.machine.packages / "brenna_installer.dmg"
    data = bytearray(image.read_bytes())
    data[len(data) // 2] ^= 1
    image.write_bytes(data)
    (offline.machine.packages / "rulo_installer.dmg").unlink()
    return offline.run("run", "--action", "install", "--apps", "brenna,rulo,tolvi")


def cancel_one(tools):
    offline = Offline(tools.installation)
    gate = Gate(offline.machine, "xattr")
    arguments = ("run", "--action", "install", "--apps", "brenna,tolvi,rulo")
    session = offline.machine.start(*arguments)
    gate.wait()
    session.cancel("tolvi")
    offline.machine.wait_for_log("Cancel requested for tolvi")
    gate.open()
    run = session.finish()
    gate.close()
    return offline.story(arguments, run)


def cancel_all(tools):
    with tools.online() as online:
        online.stage.package(online.stage.image(stallAt=1000))
        return online.run("run", "--action", "install", "--apps", "brenna,tolvi",
                          after='"downloadedBytes":1000', say='{"type":"cancel"}\n')


def source_gone(tools):
    with tools.online() as online:
        online.cdn.on(META, {"status": 404, "text": "gone"})
        return online.run("run", "--action", "install", "--apps", "brenna")


def source_gone_on_check(tools):
    with tools.online() as online:
        online.cdn.on(META, {"status": 404, "text": "gone"})
        return online.run("check-updates", "--apps", "brenna")


def expired(tools):
    offline = Offline(tools.installation)
    offline.machine.configuration(expiresOn={"offline": "2026-01-31"})
    return offline.run("run", "--action", "install", "--apps", "brenna,tolvi")


def no_network(tools):
    with tools.online() as online:
        pass  # the CDN has gone away, and with it every host that answers
    return online.run("run", "--action", "install", "--apps", "brenna,tolvi")


def uninstall(tools):
    offline = Offline(tools.installation)
    offline.run("run", "--action", "install", "--apps", "brenna,rulo")
    store = offline.machine.app("rulo") / "Contents/_MASReceipt"
    store.mkdir()
    (store / "receipt").write_bytes(b"")
    give_away(offline.machine.app("rulo"))
    return offline.run("run", "--action", "uninstall", "--apps", "brenna,rulo,tolvi")


def disk_free(tools):
    return Offline(tools.installation).run("disk-free")


def export_logs(tools):
    offline = Offline(tools.installation)
    return offline.run("export-logs", "--out", str(offline.machine.root / "Desktop"))


def export_logs_failing(tools):
    offline = Offline(tools.installation)
    (offline.machine.resources / "programs/ditto").unlink()
    return offline.run("export-logs")


def bad_command_line(tools):
    return Offline(tools.installation).run("run", "--action", "install", "--apps", "mozi")


SCENARIOS = {
    "hello": hello, "check-updates": check_updates, "install": install, "update": update, "failure": failure,
    "cancel-one": cancel_one, "cancel-all": cancel_all, "source-gone": source_gone,
    "source-gone-on-check": source_gone_on_check, "expired": expired, "no-network": no_network,
    "uninstall": uninstall, "disk-free": disk_free, "export-logs": export_logs,
    "export-logs-failing": export_logs_failing, "bad-command-line": bad_command_line,
}
