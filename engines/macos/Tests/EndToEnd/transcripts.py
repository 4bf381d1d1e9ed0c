"""The runs that protocol/README.md shows. Values of this machine and of the fixtures are replaced by fixed ones.

A scenario returns (command line, exit status, lines); each line is one event.
"""

import hashlib
import json
import re

import online_machine
from online_machine import META
from protocol_schema import PROTOCOL
from support import Gate, give_away, unprivileged

# Fixed values, of the same types, for those that depend on the fixtures' size and the date.
SIZE = 31457280
STEADY = {"sizeBytes": SIZE, "freeBytes": 214748364800, "totalBytes": SIZE}
# The size of the replaced copy.
RECLAIMED = 41943040
RATIOS = {app["id"]: app["expansionRatio"] for app in json.loads((PROTOCOL / "catalog.json").read_text())["apps"]}


def steady_need(match):
    """`requiredBytes` of one app, computed from the fixed values as the engine computes it."""
    row, app, size, need = match.group(1), match.group(2), int(match.group("size")), int(match.group("need"))
    full = size + int(RATIOS[app] * size)
    assert size <= need <= full, match.group()
    steady_full = SIZE + int(RATIOS[app] * SIZE)
    return f"{row}{steady_full if need == full else max(SIZE, steady_full - RECLAIMED)}"


def steady_needs(text):
    """Replaces `requiredBytes` in each app that also has `sizeBytes`, in either order."""
    inside = r'(?:(?!\{"id":).)*?'
    before = rf'((?=\{{"id":"(\w+)"{inside}"sizeBytes":(?P<size>\d+))\{{"id":{inside}"requiredBytes":)(?P<need>\d+)'
    return re.sub(before, steady_need, text)


def steady(text, places):
    """A run's standard output with fixed values, without lines that aren't JSON objects."""
    text = steady_needs(text)
    for place, name in places:
        text = text.replace(str(place).replace("/", "\\/"), name.replace("/", "\\/"))
    text = re.sub(r"logs-\d{8}-\d{6}\.zip", "logs-20260301-090000.zip", text)
    text = re.sub(r'"downloadedBytes":(\d+),"totalBytes":\1\b', f'"downloadedBytes":{SIZE},"totalBytes":{SIZE}', text)
    for key, value in STEADY.items():
        text = re.sub(rf'"{key}":\d+', f'"{key}":{value}', text)
    text = re.sub(r'"percent":\d+\.\d+', '"percent":0.0025', text)
    text = re.sub(r"1,000 bytes of [\d.,]+ [KM]B", "1,000 bytes of 30 MB", text)
    text = re.sub(r"[\d.,]+ [KM]B of [\d.,]+ [KM]B \(100%\)", "30 MB of 30 MB (100%)", text)
    return [line for line in text.splitlines() if line.startswith("{")]


def without_pace(lines):
    """Keeps a transfer's reports of the first thousand bytes and of the end; those between depend on timing. A report is a
    `log` and the `progress` after it."""
    kept = []
    for line in lines:
        counts = json.loads(line).get("detailArgs")
        if counts and counts["downloadedBytes"] not in (1000, counts["totalBytes"]):
            kept.pop()
            continue
        kept.append(line)
    return kept


def shown(arguments, places):
    words = " ".join(arguments)
    for place, name in places:
        words = words.replace(str(place), name)
    return f"engine-cli {words}".rstrip()


class Offline:
    """An offline installer and its machine."""

    def __init__(self, installation, version="2.0", machine=None):
        self.machine = installation(version, machine=machine)
        self.places = [(self.machine.applications, "/Applications"), (self.machine.root, "/Users/ada")]

    def run(self, *arguments):
        run = self.machine.run(*arguments)
        return self.story(arguments, run)

    def story(self, arguments, run):
        return shown(arguments, self.places), run.status, steady(run.output, self.places)


class Online:
    """A CDN over TLS, and an installer that uses it."""

    def __init__(self, workshop, folder, cdn):
        self.cdn = cdn
        self.stage = online_machine.Stage(workshop, folder, cdn)
        self.machine = self.stage.machine
        self.places = [(self.machine.root / "Applications", "/Applications"), (self.machine.root, "/Users/ada")]

    def make_older(self):
        """Replaces the installed copy by an earlier version."""
        plist = self.machine.installed / "Contents/Info.plist"
        plist.write_text(plist.read_text().replace("2.1", "2.0"))

    def configure_notes(self):
        path = self.machine.installer / "Contents/Resources/installer_config.json"
        cdn = json.loads(path.read_text())["cdn"]
        self.machine.change_resource(path.name, cdn={**cdn, "releaseNotesEnabled": True})

    def offer(self, variant):
        """Replaces the image on the CDN by one with another signature."""
        file = self.stage.folder / "offered.dmg"
        file.write_bytes(self.stage.workshop.image)
        online_machine.run(online_machine.PROGRAMS / "lab-sign", "sign", "--authority", self.stage.workshop.signers,
                           "--variant", variant, file)
        image = file.read_bytes()
        self.stage.package({"file": str(file)})
        self.stage.meta(checksum=hashlib.sha256(image).hexdigest(), size=len(image))

    def install(self, **options):
        return self.run("run", "--action", "install", "--apps", "brenna", **options)

    def run(self, *arguments, after=None, say="", **options):
        """Runs to the end. After a line that contains `after`, writes `say` to standard input."""
        process = self.machine.start(*arguments, **options)
        lines = []
        for line in process.stdout if after else ():
            lines.append(line)
            if after in line:
                break
        rest, _ = process.communicate(say, timeout=online_machine.TIME_LIMIT)
        told = without_pace(steady("".join(lines) + rest, self.places))
        return shown(arguments, self.places), process.returncode, told


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
        return online.install()


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
        pass  # the CDN has stopped, so no host answers
    return online.run("run", "--action", "install", "--apps", "brenna,tolvi")


def retry(tools):
    with tools.online() as online:
        online.stage.package(online.stage.image(closeAt=1000), online.stage.image())
        return online.install()


def untrusted_source(tools):
    with tools.online() as online:
        online.stage.package({"location": "https://downloads.example/brenna.dmg"})
        return online.install()


def metadata_invalid(tools):
    with tools.online() as online:
        online.stage.meta(destination=None)
        return online.install()


def file_save_failed(tools):
    with tools.online() as online:
        taken = online.machine.root / "tmp/brenna_installer.dmg"
        taken.mkdir(parents=True)
        (taken / "inside").write_text("x")
        give_away(online.machine.root)
        taken.chmod(0o555)
        return online.install(**unprivileged())


def gatekeeper_failed(tools):
    with tools.online() as online:
        online.offer("ad-hoc")
        return online.install()


def signature_failed(tools):
    with tools.online() as online:
        online.offer("wrong-team")
        return online.install()


def from_the_store(machine, app):
    """Makes the installed copy one from the App Store."""
    store = machine.app(app) / "Contents/_MASReceipt"
    store.mkdir()
    (store / "receipt").write_bytes(b"")
    give_away(machine.app(app))


def app_store(tools, *arguments):
    """An older copy from the App Store, and a newer package beside the installer."""
    old = Offline(tools.installation, "1.0")
    old.run("run", "--action", "install", "--apps", "rulo")
    from_the_store(old.machine, "rulo")
    return Offline(tools.installation, "2.0", machine=old.machine).run(*arguments)


def app_store_hello(tools):
    return app_store(tools, "hello")


def install_failed(tools):
    return app_store(tools, "run", "--action", "update", "--apps", "rulo")


def skip_terms(tools):
    offline = Offline(tools.installation)
    offline.machine.configuration(showTermsStep=False)
    return offline.run("hello")


def removal_without_rights(tools, status):
    """A removal that needs an administrator's prompt. The prompt exits with this status."""
    offline = Offline(tools.installation)
    offline.run("run", "--action", "install", "--apps", "brenna,rulo")
    prompt = offline.machine.folder / "pkexec"  # with this name the host interprets the statuses
    prompt.write_text(f"#!/bin/sh\nexit {status}\n")
    prompt.chmod(0o755)
    offline.machine.settings(administrator={"command": [str(prompt)]})
    offline.machine.applications.chmod(0o555)
    return offline.run("run", "--action", "uninstall", "--apps", "brenna,rulo")


def uninstall_auth_cancelled(tools):
    return removal_without_rights(tools, 126)


def uninstall_permission_denied(tools):
    return removal_without_rights(tools, 127)


def uninstall_failed(tools):
    """A removal with every staging name taken."""
    offline = Offline(tools.installation)
    offline.run("run", "--action", "install", "--apps", "brenna")
    for number in range(20):
        taken = offline.machine.applications / (".Brenna.app.kelo-uninstall" + (f".{number}" if number else ""))
        taken.mkdir()
        (taken / "inside").write_text("x")
        give_away(taken)
        taken.chmod(0o555)
    return offline.run("run", "--action", "uninstall", "--apps", "brenna")


def uninstall(tools):
    offline = Offline(tools.installation)
    offline.run("run", "--action", "install", "--apps", "brenna,rulo")
    from_the_store(offline.machine, "rulo")
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
    "retry": retry, "untrusted-source": untrusted_source, "metadata-invalid": metadata_invalid,
    "file-save-failed": file_save_failed, "gatekeeper-failed": gatekeeper_failed, "signature-failed": signature_failed,
    "app-store": app_store_hello, "install-failed": install_failed, "skip-terms": skip_terms,
    "uninstall-auth-cancelled": uninstall_auth_cancelled, "uninstall-permission-denied": uninstall_permission_denied,
    "uninstall-failed": uninstall_failed, "uninstall": uninstall, "disk-free": disk_free, "export-logs": export_logs,
    "export-logs-failing": export_logs_failing, "bad-command-line": bad_command_line,
}
