"""A log bundle has the cause of every failure, with the text of the failing program or system call.

Each row causes one fault, runs the engine, exports the logs with `export-logs`, and reads only the archive. Texts of the
system or of a program have to appear literally.
"""

import json
import os
import subprocess
import zipfile

import pytest

import hostile_cdn
import online_machine
from online_machine import META, MIRROR, NAMES, PACKAGE, Stage
from support import LAB, RUNNING_AS_ROOT, give_away
from test_signatures import add_a_file, change_the_executable, drop_the_seal, remove_a_file, swap_nested_code

INSTALL = ("run", "--action", "install", "--offline", "--apps", "rulo")
UNINSTALL = ("run", "--action", "uninstall", "--apps", "rulo")
SILENT = ("--silent", "--offline", "--apps", "rulo")


def missing(text, words, **places):
    """The `words`, with this machine's paths filled in, that `text` lacks."""
    for name, place in places.items():
        words = [word.replace("{" + name + "}", str(place)) for word in words]
    absent = [word for word in words if word not in text]
    if absent:
        print(text)
    return absent


def exported(events):
    """The text of all logs in the archive of an export-logs."""
    (result,) = [event for event in events if event["type"] == "export-logs-result"]
    with zipfile.ZipFile(result["path"]) as archive:
        assert archive.testzip() is None
        return "".join(archive.read(name).decode("utf-8") for name in archive.namelist() if name.endswith(".log"))


def fault(name, words, arrange, *, command=INSTALL, root=False):
    marks = [pytest.mark.skipif(not RUNNING_AS_ROOT, reason="only root can make another user's folders")]
    return pytest.param(arrange, command, words, id=name, marks=marks if root else [])


# Missing and wrong packages.

def image(machine, name="rulo"):
    return machine.packages / f"{name}_installer.dmg"


def promise(**changes):
    def arrange(machine, _):
        def change(index):
            for entry in index.values():
                if entry["destination"] == image(machine).name:
                    entry.update(**changes)
        machine.manifest(change)
    return arrange


def tamper(machine, _):
    data = bytearray(image(machine).read_bytes())
    data[len(data) // 2] ^= 1
    image(machine).write_bytes(data)


def without_image(machine, _):
    image(machine).unlink()


def unreadable_image(machine, _):
    image(machine).chmod(0)
    os.chown(image(machine), 0, 0)


def garbage_image(machine, _):
    (machine.packages / "packages.json").unlink()
    image(machine).write_bytes(b"not an image" * 1000)


def manifest_text(text):
    def arrange(machine, _):
        (machine.packages / "packages.json").write_text(text)
    return arrange


def without_manifest(machine, _):
    (machine.packages / "packages.json").unlink()


def other_content(*bundles):
    """An image with these names and without a manifest."""
    def arrange(machine, folder):
        for bundle in bundles:
            (folder / "volume" / bundle / "Contents").mkdir(parents=True)
        (folder / "volume").mkdir(exist_ok=True)
        (folder / "volume/Read me.txt").write_text("hello")
        image(machine).unlink()
        subprocess.run([str(LAB / "lab-diskimage"), "--volume-name", "Other", str(folder / "volume"),
                        str(image(machine))], check=True, capture_output=True)
        without_manifest(machine, folder)
        give_away(machine.packages)
    return arrange


# Missing permissions and programs.

def closed_applications(machine, _):
    os.chown(machine.applications, 0, 0)


def closed_old_copy(machine, _):
    old_copy(machine, _)
    os.chown(machine.applications, 0, 0)


def old_copy(machine, _):
    assert machine.install("--apps", "rulo").status == 0
    plist = machine.app("rulo") / "Contents/Info.plist"
    plist.write_text(plist.read_text().replace("2.0", "1.0"))


def installed(machine, _):
    assert machine.install("--apps", "rulo").status == 0


def app_store_copy(machine, _):
    installed(machine, _)
    plist = machine.app("rulo") / "Contents/Info.plist"
    plist.write_text(plist.read_text().replace("2.0", "1.0"))
    (machine.app("rulo") / "Contents/_MASReceipt").mkdir()
    (machine.app("rulo") / "Contents/_MASReceipt/receipt").write_bytes(b"")
    give_away(machine.app("rulo"))


def installed_in_closed_folder(machine, _):
    installed(machine, _)
    os.chown(machine.applications, 0, 0)


def installed_with_closed_folder_inside(machine, _):
    installed(machine, _)
    locked = machine.app("rulo") / "Contents/Locked"
    locked.mkdir()
    (locked / "file").write_text("x")
    os.chown(locked, 0, 0)


def file_instead_of_applications(machine, _):
    machine.applications.rmdir()
    machine.applications.write_text("a file")


def without(program):
    def arrange(machine, _):
        (machine.resources / "programs" / program).unlink()
    return arrange


def not_executable(program):
    def arrange(machine, _):
        (machine.resources / "programs" / program).chmod(0o644)
    return arrange


def replaced(program, script):
    def arrange(machine, _):
        path = machine.resources / "programs" / program
        path.unlink()
        path.write_text("#!/bin/sh\n" + script)
        path.chmod(0o755)
    return arrange


def configuration_bytes(content):
    def arrange(machine, _):
        (machine.resources / "installer_config.json").write_bytes(content)
    return arrange


def configuration_folder(machine, _):
    (machine.resources / "installer_config.json").unlink()
    (machine.resources / "installer_config.json").mkdir()


def configured(**changes):
    return lambda machine, _: machine.configuration(**changes)


def nothing(*_):
    pass


def prompted(answer, before):
    def arrange(machine, folder):
        before(machine, folder)
        machine.prompt(answer)
    return arrange


def full_disk(machine, _):
    made = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=256k,mode=777", "none", str(machine.applications)],
                          capture_output=True)
    if made.returncode != 0:
        pytest.skip("the suite can't mount a small volume on this machine")
    return lambda: subprocess.run(["umount", str(machine.applications)], check=True)


HELLO = ("hello",)
SILENT_UNINSTALL = ("--silent", "--mode", "uninstall", "--apps", "rulo")
NO_PKEXEC = "“pkexec” couldn’t be started: No such file or directory (NSCocoaErrorDomain 4, /usr/bin/pkexec)"
NO_MOVE = ("could not stage Kelo Rulo out of {}/Kelo Rulo.app: “Kelo Rulo.app” couldn’t be moved: "
           "Permission denied (NSCocoaErrorDomain 513, ")
OFFLINE = [
    fault("a-wrong-digest", ["Checksum verification FAILED — calculated: ", "…, expected: 00000000…"], promise(checksum="0" * 64)),
    fault("a-short-digest", ["Expected checksum length invalid (expected 64, got 3)"], promise(checksum="abc")),
    fault("a-tampered-image", ["Checksum verification FAILED — calculated: "], tamper),
    fault("a-missing-image", ["DMG not found at {resources}/packages/rulo_installer.dmg"], without_image),
    fault("an-unreadable-image", ["Permission denied (NSCocoaErrorDomain 257, {resources}/packages/rulo_installer.dmg)"],
          unreadable_image, root=True),
    fault("an-unknown-digest-algorithm", ["'crc32'"], promise(checksumAlgorithm="crc32")),
    fault("garbage-instead-of-an-image",
          ["hdiutil attach failed with exit code 1", "attach failed - image not recognized: it has no UDIF trailer"], garbage_image),
    fault("an-image-without-an-app", ["No .app bundle found in DMG", '["Read me.txt"]'], other_content()),
    fault("an-image-with-two-other-apps", ['carries 2 app bundles, none with the expected identifier com.kelo.rulo: ["A.app", "B.app"]'],
          other_content("A.app", "B.app")),
    fault("a-manifest-that-is-not-json", ["packages.json: The text isn't valid JSON around byte 1.", "integrity check skipped"],
          manifest_text("<html>")),
    fault("no-manifest", ["“packages.json” couldn’t be opened: No such file or directory (NSCocoaErrorDomain 260, "], without_manifest),
    fault("an-app-store-copy", ["App Store: true", "Please remove it from Launchpad first"], app_store_copy),
    fault("applications-of-the-administrators",
          ["“Kelo Rulo.app” couldn’t be copied: Permission denied (NSCocoaErrorDomain 513, {applications}/Kelo Rulo.app)", NO_PKEXEC],
          closed_applications, root=True),
    fault("an-old-copy-of-the-administrators",
          ["“Kelo Rulo.app” couldn’t be removed: Permission denied (NSCocoaErrorDomain 513, {applications}/Kelo Rulo.app)", NO_PKEXEC],
          closed_old_copy, root=True),
    fault("a-silent-run-without-rights", ["Permission denied (NSCocoaErrorDomain 513, ", 'detail="Admin credentials required'],
          closed_applications, command=SILENT, root=True),
    fault("a-removal-without-rights", [NO_MOVE.format("{applications}"), NO_PKEXEC],
          installed_in_closed_folder, command=UNINSTALL, root=True),
    fault("a-silent-removal-without-rights", [NO_MOVE.format("{applications}"), 'detail="Cannot remove Kelo Rulo: permission denied.'],
          installed_in_closed_folder, command=SILENT_UNINSTALL, root=True),
    fault("a-nested-folder-of-the-administrators",
          ["Contents/Locked is not writable — an unprivileged delete of Kelo Rulo would stop partway"],
          installed_with_closed_folder_inside, command=SILENT_UNINSTALL, root=True),
    fault("a-dismissed-prompt", ["DMGInstaller: admin authorization dismissed by the user"],
          prompted("dismiss", installed_in_closed_folder), command=UNINSTALL, root=True),
    fault("a-denied-prompt", ['Admin command error: {"NSAppleScriptErrorMessage":'],
          prompted("deny", installed_in_closed_folder), command=UNINSTALL, root=True),
    fault("a-full-disk", ["Not enough space for Kelo Rulo: needs ", " reclaimable — short by "], full_disk, root=True),
    fault("a-file-instead-of-the-applications", ["Not a directory (NSCocoaErrorDomain 512, "], file_instead_of_applications),
    fault("no-hdiutil", ["“hdiutil” couldn’t be started: No such file or directory (NSCocoaErrorDomain 4, "], without("hdiutil")),
    fault("an-hdiutil-that-may-not-be-run", ["“hdiutil” couldn’t be started: Permission denied (NSPOSIXErrorDomain 13, "],
          not_executable("hdiutil")),
    fault("an-hdiutil-that-prints-nonsense", ["hdiutil attach: surprise", "Failed to parse hdiutil output"],
          replaced("hdiutil", "echo surprise\n")),
    fault("an-hdiutil-that-fails", ["hdiutil attach: hdiutil: attach failed - Resource busy", "exit code 1"],
          replaced("hdiutil", "echo 'hdiutil: attach failed - Resource busy' >&2; exit 1\n")),
    fault("no-xattr", ["“xattr” couldn’t be started: No such file or directory (NSCocoaErrorDomain 4, "], without("xattr")),
    fault("an-xattr-that-fails", ["xattr exited 1 for ", "xattr: [Errno 1] Operation not permitted"],
          replaced("xattr", "echo 'xattr: [Errno 1] Operation not permitted' >&2; exit 1\n")),
    fault("an-expired-installer", ["This installer expired on 2020-01-31. Download a current installer from "],
          configured(expiresOn={"offline": "2020-01-31"})),
    fault("a-malformed-expiry", ["expiresOn 'soon' is not yyyy-MM-dd"], configured(expiresOn={"offline": "soon"})),
    fault("a-configuration-that-is-cut", ["Failed to read installer_config.json: The text isn't valid JSON around byte 2"],
          configuration_bytes(b"{"), command=HELLO),
    fault("a-configuration-of-another-shape", ["Invalid JSON structure in installer_config.json"],
          configuration_bytes(b'{"apps":[]}'), command=HELLO),
    fault("a-configuration-that-nests-too-deep", ["Failed to read installer_config.json: The JSON text nests deeper than 512 levels"],
          configuration_bytes(b"[" * 100000), command=HELLO),
    fault("a-configuration-that-is-not-utf-8", ["Failed to read installer_config.json: The text isn't valid JSON around byte 3"],
          configuration_bytes(b"\xff\xfe\x00"), command=HELLO),
    fault("a-configuration-that-is-a-folder", ["Failed to read installer_config.json: ", "Is a directory (NSCocoaErrorDomain 256, "],
          configuration_folder, command=HELLO),
    fault("an-unknown-app", ["Unknown app identifier in --apps"], nothing, command=("run", "--action", "install", "--apps", "mozi")),
    fault("an-unknown-subcommand", ["Unknown subcommand 'frobnicate'"], nothing, command=("frobnicate",)),
    fault("a-bad-silent-line", ["invalid arguments: Unknown --mode value 'Repair'"], nothing, command=("--silent", "--mode", "Repair")),
]


@pytest.mark.parametrize("arrange, command, words", OFFLINE)
def test_a_fault_offline_names_its_cause(installation, prompt, tmp_path, arrange, command, words):
    machine = installation("2.0")
    machine.prompt = lambda answer: prompt(machine, answer)
    undo = arrange(machine, tmp_path)
    machine.run(*command)
    if callable(undo):
        undo()
    told = machine.run("export-logs", "--out", str(machine.root / "out"))
    places = {"resources": machine.resources, "applications": machine.applications}
    assert missing(exported(told.events), words, **places) == []


# Wrong signatures.

def repacked(*arguments, **options):
    return lambda machine, package: package(machine, *arguments, **options)


def without_authority(machine, _):
    machine.settings(testAuthority=None)


def altered_copy(machine, _):
    """Changes the copy between copying and verification."""
    codesign = machine.resources / "programs/codesign"
    codesign.rename(codesign.with_name("codesign-itself"))
    codesign.write_text(
        "#!/bin/sh\nfor path; do :; done\n"
        f'case "$path" in {machine.applications}/*) echo x >>"$path/Contents/Resources/payload.bin" ;; esac\n'
        f'exec "{codesign}-itself" "$@"\n')
    codesign.chmod(0o755)


REFUSED = "Kelo Rulo.app does not satisfy the signing requirement (team QX7M4R2V9D) — codesign exit "
SIGNED = {
    "an-added-file": (repacked(add_a_file), ["a file has been added: ", "added.txt"]),
    "a-removed-file": (repacked(remove_a_file), ["a sealed resource is missing: ", "Überblick"]),
    "a-changed-executable": (repacked(change_the_executable), ["Kelo Rulo.app: signature doesn't cover the code"]),
    "a-swapped-helper": (repacked(swap_nested_code), ["nested code Helpers/Kelo Rulo Helper.app: "]),
    "no-seal": (repacked(drop_the_seal), ["code object is not signed at all"]),
    "an-unsigned-bundle": (repacked(sign=False), ["code object is not signed at all"]),
    "another-team": (repacked(variant="wrong-team"), ["test-requirement: code failed to satisfy specified code requirement(s)"]),
    "an-ad-hoc-signature": (repacked(variant="ad-hoc"), ["test-requirement: code failed to satisfy specified code requirement(s)"]),
    "a-self-made-authority": (repacked(variant="self-signed"), ["the signer is self-signed and not trusted"]),
    "an-expired-certificate": (repacked(variant="expired"), ["a signing certificate had expired"]),
    "an-unknown-authority": (without_authority, ["root certificate isn't trusted"]),
    "a-copy-that-is-altered": (altered_copy, ["the installed copy at {applications}/Kelo Rulo.app does not satisfy the signing requirement",
                                              "a sealed resource has been modified: ", "payload.bin"]),
    "no-codesign": (without("codesign"), ["Error evaluating the signing requirement: “codesign” couldn’t be started: "
                                          "No such file or directory (NSCocoaErrorDomain 4, "]),
}


@pytest.mark.parametrize("name", SIGNED)
def test_a_refused_signature_names_its_cause(signed, repackage, name):
    arrange, words = SIGNED[name]
    machine = signed()
    arrange(machine, repackage)
    assert machine.install("--apps", "rulo").codes == {"rulo": "SIGNATURE_FAILED"}
    told = machine.run("export-logs", "--out", str(machine.root / "out"))
    assert missing(exported(told.events), words, applications=machine.applications) == []


# Faults of the CDN.

BUSY = {"status": 503, "text": "busy"}


def answers(path, *plans):
    return lambda stage: stage.cdn.on(path, *plans)


def metadata(**changes):
    return lambda stage: stage.cdn.on(META, stage.workshop.meta(**changes))


def all_of(*steps):
    def arrange(stage):
        for step in steps:
            step(stage)
    return arrange


def gatekeeper_says_no(stage):
    (stage.machine.installer / "Contents/Resources/programs/spctl").unlink()
    (stage.machine.installer / "Contents/Resources/programs/spctl").write_text("#!/bin/sh\necho 'rejected: no usable signature'; exit 3\n")
    (stage.machine.installer / "Contents/Resources/programs/spctl").chmod(0o755)


def temporary_is_a_file(stage):
    stage.machine.root.mkdir(parents=True, exist_ok=True)
    (stage.machine.root / "tmp").mkdir()
    (stage.machine.root / "tmp/brenna_installer.dmg").mkdir()
    (stage.machine.root / "tmp/brenna_installer.dmg/inside").write_text("x")


ONLINE_FAULTS = {
    "an-error-status": (answers(PACKAGE, BUSY), ["download for Kelo Brenna returned HTTP 503"]),
    "a-page-instead-of-the-image": (answers(PACKAGE, {"text": "<html>log in</html>"}), ["Checksum verification FAILED"]),
    "a-broken-connection": (lambda stage: stage.package(stage.image(closeAt=1000), stage.image()),
                            ["Network error detected: NSURLErrorDomain code -1005: ", "Retrying download in 5s (attempt 1/3)"]),
    "an-answer-that-is-not-http": (answers(PACKAGE, {"garbage": True}), ["NSURLErrorDomain"]),
    "an-unrequested-part": (answers(PACKAGE, {"bytes": 5000, "unasked": True}),
                                     ["the server sent a partial response to a request without a range (NSURLErrorDomain -1011)"]),
    "a-redirect-to-a-stranger": (answers(PACKAGE, {"location": "https://evil.example/x.dmg"}),
                                 ["refusing a redirect to 'evil.example'"]),
    "a-redirect-to-http": (answers(PACKAGE, {"location": "http://cdn.kelo.example/x.dmg"}),
                           ["refusing a redirect to 'cdn.kelo.example' — not https"]),
    "a-redirect-of-the-metadata": (answers(META, {"location": "https://evil.example/meta.json"}),
                                   ["refusing a redirect to 'evil.example'", "was refused as untrusted"]),
    "a-loop": (answers(PACKAGE, {"location": PACKAGE}), ["too many HTTP redirects (NSURLErrorDomain -1007)"]),
    "metadata-that-is-gone": (answers(META, {"status": 404, "text": "no"}), ["HTTP 404 for Kelo Brenna at https://cdn.kelo.example",
                                                                            "the CDN tree this installer was built against is gone"]),
    "metadata-with-an-error": (answers(META, {"status": 500, "text": "no"}), ["HTTP 500 for Kelo Brenna at https://cdn.kelo.example"]),
    "metadata-that-is-a-page": (answers(META, {"text": "<html>log in</html>"}),
                                ["unparseable meta.json for Kelo Brenna", "begin with: <html>log in</html>"]),
    "metadata-of-another-shape": (answers(META, {"text": "[1]"}), ["The JSON text isn't an object.", "begin with: [1]"]),
    "metadata-without-a-digest": (metadata(checksum=None), ["checksum is unusable (algorithm 'sha256', checksum absent)"]),
    "metadata-without-a-destination": (metadata(destination=None), ["meta.json for Kelo Brenna has no 'destination'"]),
    "a-destination-outside": (metadata(destination="../../escape.dmg"), ["escape.dmg"]),
    "a-dead-alternate": (all_of(metadata(alternateDownloadUrl=f"https://mirror.kelo.example{MIRROR}"), answers(PACKAGE, BUSY)),
                         ["returned HTTP 503", "returned HTTP 404"]),
    "a-foreign-alternate": (all_of(metadata(alternateDownloadUrl="https://evilkelo.example/brenna.dmg"), answers(PACKAGE, BUSY)),
                            ["evilkelo.example"]),
    "a-gatekeeper-that-refuses": (gatekeeper_says_no, ["rejected: no usable signature", "Gatekeeper verification result: Failed"]),
    "no-spctl": (lambda stage: (stage.machine.installer / "Contents/Resources/programs/spctl").unlink(),
                 ["Error verifying Gatekeeper: “spctl” couldn’t be started: No such file or directory (NSCocoaErrorDomain 4, "]),
    "a-place-that-is-taken": (temporary_is_a_file, ["brenna_installer.dmg"]),
}


@pytest.mark.parametrize("name", ONLINE_FAULTS)
def test_a_fault_online_names_its_cause(online_workshop, tmp_path, name):
    arrange, words = ONLINE_FAULTS[name]
    with hostile_cdn.HostileCDN(tmp_path / "cdn", NAMES) as cdn:
        stage = Stage(online_workshop, tmp_path, cdn)
        arrange(stage)
        stage.machine.install()
        assert missing(exported(exports(stage.machine)), words) == []


@pytest.mark.parametrize("host", ["cdn.kelo.example", "www.kelo.example"])
@pytest.mark.parametrize("kind, words", [("otherName", ["no alternative certificate subject name matches", "NSURLErrorDomain -1202"]),
                                         ("stranger", ["SSL certificate problem: ", "NSURLErrorDomain -1202"])])
def test_a_wrong_certificate_is_named(online_workshop, tmp_path, host, kind, words):
    with hostile_cdn.HostileCDN(tmp_path / "cdn", NAMES, {host: kind}) as cdn:
        stage = Stage(online_workshop, tmp_path, cdn)
        stage.machine.install()
        assert missing(exported(exports(stage.machine)), words) == []


def test_a_closed_port_is_named(online_workshop, tmp_path):
    with hostile_cdn.HostileCDN(tmp_path / "cdn", NAMES) as cdn:
        stage = Stage(online_workshop, tmp_path, cdn)
    stage.machine.install()
    words = ["No internet connection", "connectivity probe failed: ", "(NSURLErrorDomain -1004)"]
    assert missing(exported(exports(stage.machine)), words) == []


def exports(machine):
    process = machine.start("export-logs", "--out", str(machine.root / "out"))
    output, _ = process.communicate(timeout=online_machine.TIME_LIMIT)
    return [json.loads(line) for line in output.splitlines() if line.startswith("{")]
