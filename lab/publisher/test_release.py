"""lab-publish installer: a release made with a test identity, and read with other programs."""

import datetime
import fcntl
import hashlib
import http.server
import importlib.util
import json
import os
import pathlib
import plistlib
import shutil
import stat
import subprocess
import threading
import time
import zipfile

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KELO_BUILD", ROOT / "build/dev")).resolve()
LAB = BUILD / "lab/bin"
TEAM = "QX7M4R2V9D"
APP = "Kelo-Desk-Installer.app"
CONFIGURATION = ROOT / "packaging/macos/bundle/installer_config.json"


def run(*words, **options):
    return subprocess.run([str(word) for word in words], check=True, capture_output=True, text=True, **options).stdout


@pytest.fixture(scope="module")
def workshop(tmp_path_factory):
    """An authority, its identity as PKCS#12, an executable, and signed images of two apps."""
    folder = tmp_path_factory.mktemp("workshop")
    authority = folder / "authority"
    run(LAB / "lab-sign", "make-authority", authority, "--team", TEAM)
    chain = folder / "chain.pem"
    chain.write_text((authority / "intermediate.pem").read_text() + (authority / "root.pem").read_text())
    run("openssl", "pkcs12", "-export", "-inkey", authority / "leaf.key", "-in", authority / "leaf.pem", "-certfile", chain,
        "-passout", "pass:not a secret", "-out", folder / "identity.p12")
    (folder / "password").write_text("not a secret\n")
    run(LAB / "lab-sign", "make-macho", folder / "engine-cli", "--arch", "arm64,x86_64")
    for app in ("brenna", "rulo"):
        run(LAB / "lab-fixture", "app", "--app", app, "--version", "2.1", "--output", folder / app)
        run(LAB / "lab-sign", "sign", "--authority", authority, *(folder / app).glob("*.app"))
        run(LAB / "lab-diskimage", "--volume-name", f"Kelo {app}", folder / app, folder / f"{app}.dmg")
        run(LAB / "lab-sign", "sign", "--authority", authority, folder / f"{app}.dmg")
    return folder


@pytest.fixture(scope="module")
def own(tmp_path_factory):
    """Identities of an authority without the marks of a Developer ID, which began to be valid just now."""
    folder = tmp_path_factory.mktemp("own")
    (folder / "conf").write_text("[req]\ndistinguished_name = dn\n[dn]\n")
    issuer = None
    for name, *extensions in (("root", "basicConstraints=critical,CA:TRUE"), ("intermediate", "basicConstraints=critical,CA:TRUE"),
                              ("leaf", "keyUsage=critical,digitalSignature", "extendedKeyUsage=critical,codeSigning")):
        chained = ["-CA", folder / f"{issuer}.pem", "-CAkey", folder / f"{issuer}.key"] if issuer else []
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-noenc", "-config", folder / "conf", "-days", "30",
            "-subj", f"/CN=Own {name}/OU={TEAM}", "-keyout", folder / f"{name}.key", "-out", folder / f"{name}.pem", *chained,
            *(word for extension in extensions for word in ("-addext", extension)))
        issuer = name
    for file, names, options in (("whole", ("intermediate", "root"), ["-legacy"]), ("without-root", ("intermediate",), []),
                                 ("without-intermediate", ("root",), [])):
        (folder / "others.pem").write_text("".join((folder / f"{name}.pem").read_text() for name in names))
        run("openssl", "pkcs12", "-export", "-inkey", folder / "leaf.key", "-in", folder / "leaf.pem", "-certfile",
            folder / "others.pem", "-passout", "pass:not a secret", "-out", folder / f"{file}.p12", *options)
    (folder / "password").write_text("not a secret\n")
    return folder


def installer(workshop, output, *options, apps=("brenna", "rulo"), version="2.1", identity=True, configuration=CONFIGURATION,
              engine=None, environment=None):
    words = [LAB / "lab-publish", "installer", "--engine", engine or workshop / "engine-cli", "--configuration", configuration,
             "--output", output, "--test-authority", workshop / "authority/root.pem", *options]
    for app in apps:
        words += ["--image", f"{app}={version}={workshop / app}.dmg"]
    if identity:
        words += ["--identity", workshop / "identity.p12", "--password-file", workshop / "password"]
    return subprocess.run([str(word) for word in words], capture_output=True, text=True, check=False,
                          env={**os.environ, **(environment or {})})


def online_installer(workshop, own, output, *options, identity="whole", **environment):
    """An online installer that an identity of `own` signs."""
    words = [LAB / "lab-publish", "installer", "--engine", workshop / "engine-cli", "--configuration", CONFIGURATION, "--output", output,
             "--identity", own / f"{identity}.p12", "--password-file", own / "password", *options]
    kept = {name: value for name, value in os.environ.items() if name != "SOURCE_DATE_EPOCH"}
    return subprocess.run([str(word) for word in words], capture_output=True, text=True, check=False, env={**kept, **environment})


@pytest.fixture(scope="module")
def release(workshop, tmp_path_factory):
    output = tmp_path_factory.mktemp("release") / "out"
    done = installer(workshop, output)
    assert done.returncode == 0, done.stderr
    return output


def codesign_that_trusts(root, folder, **others):
    shutil.copy(LAB / "codesign", folder)
    (folder / "linux_host.json").write_text(json.dumps({"testAuthority": str(root), **others}))
    return lambda *words: subprocess.run([folder / "codesign", *words], capture_output=True, text=True, check=False)


@pytest.fixture(scope="module")
def codesign(workshop, tmp_path_factory):
    """A copy of the lab's codesign that trusts the workshop's authority."""
    return codesign_that_trusts(workshop / "authority/root.pem", tmp_path_factory.mktemp("codesign"))


def test_the_bundle_holds_what_an_offline_installer_needs(release):
    contents = release / APP / "Contents"
    information = plistlib.loads((contents / "Info.plist").read_bytes())
    assert information["CFBundleIdentifier"] == "com.kelo.desk-installer" and information["NSDesktopFolderUsageDescription"]
    assert (contents / "MacOS" / information["CFBundleExecutable"]).stat().st_mode & 0o777 == 0o755
    assert (contents / "Resources/installer_config.json").read_bytes() == CONFIGURATION.read_bytes()
    packages = json.loads((contents / "Resources/packages/packages.json").read_text())
    assert {app: entry["version"] for app, entry in packages.items()} == {"brenna": "2.1", "rulo": "2.1"}
    for entry in packages.values():
        image = contents / "Resources/packages" / entry["destination"]
        assert (image.stat().st_size, hashlib.sha256(image.read_bytes()).hexdigest()) == (entry["size"], entry["checksum"])
    assert (contents / "Resources/bin/kelo").is_file() and (contents / "Resources/share/man/man1/engine-cli.1").is_file()


def test_everything_is_signed_by_the_identity_with_the_hardened_runtime_and_no_entitlements(release, codesign):
    requirement = f'=anchor apple generic and certificate leaf[subject.OU] = "{TEAM}"'
    for made in (release / APP, release / "Kelo-Desk-Installer.dmg"):
        judged = codesign("--verify", "--strict", "-R", requirement, made)
        assert judged.returncode == 0, judged.stderr
    told = codesign("-d", "-vvv", release / APP).stderr
    assert f"TeamIdentifier={TEAM}" in told and "runtime" in told and "Identifier=com.kelo.desk-installer" in told
    executable = (release / APP / "Contents/MacOS/engine-cli").read_bytes()
    assert executable.count(bytes.fromhex("fade0c02")) == 2  # a code directory in each slice
    assert bytes.fromhex("fade7171") not in executable  # the magic of an entitlements blob


def test_a_changed_image_breaks_the_seal(release, codesign, tmp_path):
    copy = tmp_path / APP
    shutil.copytree(release / APP, copy)
    with (copy / "Contents/Resources/packages/brenna_installer.dmg").open("ab") as image:
        image.write(b"x")
    assert codesign("--verify", "--strict", copy).returncode == 1


def test_archive_and_disk_image_hold_the_bundle(release, tmp_path):
    with zipfile.ZipFile(release / "Kelo-Desk-Installer.zip") as packed:
        packed.extractall(tmp_path / "zip")
        assert stat.S_IMODE(packed.getinfo(f"{APP}/Contents/MacOS/engine-cli").external_attr >> 16) == 0o755
    run("7zz", "x", f"-o{tmp_path / 'dmg'}", release / "Kelo-Desk-Installer.dmg")
    for place in (tmp_path / "zip" / APP, next((tmp_path / "dmg").rglob(APP))):
        assert {path.relative_to(place): path.read_bytes() for path in place.rglob("*") if path.is_file()} == {
            path.relative_to(release / APP): path.read_bytes() for path in (release / APP).rglob("*") if path.is_file()}


def test_the_manifest_has_every_file_and_another_program_agrees(release):
    run("sha256sum", "--check", "--strict", "manifest.sha256", cwd=release)
    listed = [line.split("  ", 1)[1] for line in (release / "manifest.sha256").read_text().splitlines()]
    assert sorted([*listed, "manifest.sha256"]) == sorted(
        path.relative_to(release).as_posix() for path in release.rglob("*") if path.is_file())


def test_the_sbom_names_files_images_and_linked_libraries(release):
    sbom = json.loads((release / "sbom.spdx.json").read_text())
    assert (sbom["spdxVersion"], sbom["dataLicense"], sbom["SPDXID"]) == ("SPDX-2.3", "CC0-1.0", "SPDXRef-DOCUMENT")
    names = {package["name"]: package for package in sbom["packages"]}
    assert {"Kelo-Desk-Installer", "Kelo Brenna", "Kelo Rulo", "nlohmann-json", "fmt", "libc++"} == set(names)
    assert all(package["versionInfo"] not in ("", "NOASSERTION") for package in names.values())
    files = {file["fileName"]: {checksum["algorithm"]: checksum["checksumValue"] for checksum in file["checksums"]}
             for file in sbom["files"]}
    inside = {name: sums for name, sums in files.items() if name.startswith(f"./{APP}/")}
    assert set(files) == {f"./{path.relative_to(release).as_posix()}" for path in release.rglob("*")
                          if path.is_file() and path.name not in ("sbom.spdx.json", "manifest.sha256")}
    for name, sums in files.items():
        assert sums["SHA256"] == hashlib.sha256((release / name).read_bytes()).hexdigest()
    verification = names["Kelo-Desk-Installer"]["packageVerificationCode"]["packageVerificationCodeValue"]
    assert verification == hashlib.sha1("".join(sorted(sums["SHA1"] for sums in inside.values())).encode()).hexdigest()
    known = {"SPDXRef-DOCUMENT", *(item["SPDXID"] for item in sbom["packages"] + sbom["files"])}
    assert len(known) == 1 + len(sbom["packages"]) + len(sbom["files"])
    assert {end for link in sbom["relationships"] for end in (link["spdxElementId"], link["relatedSpdxElement"])} <= known


def test_the_same_input_gives_the_same_bytes_in_another_folder(workshop, own, tmp_path):
    once, again = tmp_path / "out", tmp_path / "another name"
    for output in (once, again):
        assert installer(workshop, output, identity=False).returncode == 0
    assert (again / "manifest.sha256").read_text() == (once / "manifest.sha256").read_text()
    (again / "left over").write_text("x")
    now = str(int(time.time()))
    for output in (once, again):  # replaces its own output
        assert online_installer(workshop, own, output, SOURCE_DATE_EPOCH=now).returncode == 0
    assert (again / "manifest.sha256").read_text() == (once / "manifest.sha256").read_text()
    assert not (again / "left over").exists()


@pytest.mark.parametrize("identity, options", [("whole", ()), ("without-root", ("--test-authority", "root.pem"))])
def test_an_identity_of_an_authority_of_ones_own_makes_valid_signatures(workshop, own, tmp_path, identity, options):
    done = online_installer(workshop, own, tmp_path / "out", *(own / word if "." in word else word for word in options), identity=identity)
    assert done.returncode == 0, done.stderr
    assert ("a Mac doesn't trust the root" in done.stderr) == (not options)
    judge = codesign_that_trusts(own / "root.pem", tmp_path)
    for made in (tmp_path / "out" / APP, tmp_path / "out/Kelo-Desk-Installer.dmg"):
        judged = judge("--verify", "--strict", "-vv", made)
        assert judged.returncode == 0 and "satisfies its Designated Requirement" in judged.stderr, judged.stderr


@pytest.mark.parametrize("identity, epoch, said", [
    ("whole", "1767225600", 'the certificate "Own leaf" is valid from '), ("whole", "4102444800", "but the signing time is 2100-01-01"),
    ("whole", "yesterday", "SOURCE_DATE_EPOCH is 'yesterday'"),
    ("without-intermediate", "", 'lacks the certificate "CN = Own intermediate, OU = QX7M4R2V9D", which issued "Own leaf"'),
    ("without-root", "", 'lacks the certificate "CN = Own root, OU = QX7M4R2V9D", which issued "Own intermediate"')])
def test_refuses_an_identity_that_signs_nothing_valid(workshop, own, tmp_path, identity, epoch, said):
    done = online_installer(workshop, own, tmp_path / "out", identity=identity, SOURCE_DATE_EPOCH=epoch)
    assert done.returncode == 1 and said in done.stderr and not (tmp_path / "out").exists(), done.stderr


def sbom_of(output):
    return json.loads((output / "sbom.spdx.json").read_text())


def seconds_of(sbom):
    return datetime.datetime.fromisoformat(sbom["creationInfo"]["created"]).timestamp()


def test_refuses_an_identity_whose_signatures_its_verifier_refuses(workshop, own, tmp_path):
    done = online_installer(workshop, own, tmp_path / "out", "--test-authority", workshop / "authority/root.pem")
    assert done.returncode == 1 and "root certificate isn't trusted" in done.stderr and not (tmp_path / "out").exists()


def test_stapling_changes_what_the_lists_say_and_they_are_made_again(workshop, tmp_path):
    output = tmp_path / "out"

    def again(*options, identity=True, **environment):
        words = [LAB / "lab-publish", "installer", "--output", output, *options]
        signer = ["--identity", workshop / "identity.p12", "--password-file", workshop / "password"] if identity else []
        kept = {name: value for name, value in os.environ.items() if name != "SOURCE_DATE_EPOCH"}
        return subprocess.run([str(word) for word in (*words, *signer)], capture_output=True, text=True, check=False,
                              env={**kept, **environment})

    assert again("--stapled", "app").returncode == 1 and not output.exists()
    assert installer(workshop, output).returncode == 0
    (output / APP / "Contents/CodeResources").write_bytes(b"a ticket")  # the name that stapler gives to it
    made = again("--stapled", "app")
    assert made.returncode == 0, made.stderr
    test_archive_and_disk_image_hold_the_bundle(output, tmp_path)
    assert (tmp_path / "zip" / APP / "Contents/CodeResources").read_bytes() == b"a ticket"
    test_the_manifest_has_every_file_and_another_program_agrees(output)
    test_the_sbom_names_files_images_and_linked_libraries(output)
    before, start = sbom_of(output), int(time.time())
    with (output / "Kelo-Desk-Installer.dmg").open("ab") as image:
        image.write(b"a ticket")
    stapled = (output / "Kelo-Desk-Installer.dmg").read_bytes()
    assert again("--stapled", "image", identity=False).returncode == 0
    assert start <= seconds_of(sbom_of(output)) <= time.time()
    assert sbom_of(output)["documentNamespace"] != before["documentNamespace"]
    assert again("--stapled", "image", identity=False, SOURCE_DATE_EPOCH="1800000000").returncode == 0
    assert seconds_of(sbom_of(output)) == 1800000000
    assert (output / "Kelo-Desk-Installer.dmg").read_bytes() == stapled
    test_the_manifest_has_every_file_and_another_program_agrees(output)
    test_the_sbom_names_files_images_and_linked_libraries(output)
    (output / APP / "Contents/Resources/installer_config.json").write_text("{}")
    refused = again("--stapled", "app")
    assert refused.returncode == 1 and "the signature is no good" in refused.stderr


@pytest.mark.parametrize("options, said", [
    ([], "--engine and --configuration are required"), (["--stapled", "app"], "needs --identity"),
    (["--stapled", "image", "--identity", "x", "--password-file", "y"], "signs nothing"),
    (["--stapled", "image", "--engine", "x"], "takes the bundle in OUTPUT"), (["--stapled", "zip"], "invalid choice")])
def test_unusable_options_are_refused(tmp_path, options, said):
    done = subprocess.run([LAB / "lab-publish", "installer", "--output", tmp_path / "out", *options], capture_output=True, text=True,
                          check=False)
    assert done.returncode == 64 and said in done.stderr


def test_without_identity_and_images_it_is_an_online_installer_signed_by_no_one(workshop, tmp_path, codesign):
    assert installer(workshop, tmp_path / "out", apps=(), identity=False).returncode == 0
    assert not (tmp_path / "out" / APP / "Contents/Resources/packages").exists()
    assert codesign("--verify", "--strict", tmp_path / "out" / APP).returncode == 0
    assert "Signature=adhoc" in codesign("-d", "-vv", tmp_path / "out" / APP).stderr


ENGINE = {"one slice": (7, b"\1"), "the same processor twice": (8, bytes.fromhex("01000007")), "an i386 slice": (28, b"\0\0\0\7")}


@pytest.mark.parametrize("change, said", [
    ({"version": "2.2"}, "holds version 2.1, not 2.2"), ({"apps": ("tolvi",)}, "tolvi.dmg isn't there"),
    ({"engine": "password"}, "isn't a universal executable"), ({"engine": "absent"}, "absent: No such file or directory"),
    *(({"engine": name}, "isn't a universal executable with an arm64 and an x86_64 slice") for name in ENGINE),
    ({"configuration": '{"apps": {}, "installScope": 7}'}, "given.json: $.installScope: 7 is not of type 'string'"),
    ({"configuration": "{"}, "Expecting"), ({"options": ["--image", "brenna=2.1=x"]}, "names an app twice"),
    ({"options": ["--image", "other=2.1=x"]}, "isn't APP=VERSION=FILE"), ({"options": ["--timestamp", "http://127.0.0.1:9/"]}, "server"),
    ({"options": ["--timestamp-authority", "x"]}, "--timestamp-authority needs --timestamp"),
    ({"environment": {"SOURCE_DATE_EPOCH": "9" * 20}}, "and not a number of seconds until the year 9999"),
    ({"environment": {"PATH": "/nowhere"}}, "cmake: No such file or directory"),
    ({"configuration": None}, "given.json: No such file or directory"), ({"output": "file/out"}, "file: File exists")])
def test_refuses_and_leaves_nothing(workshop, tmp_path, change, said):
    options, environment, output = change.pop("options", []), change.pop("environment", {}), tmp_path / change.pop("output", "out")
    (tmp_path / "file").write_text("x")
    if change.get("engine") in ENGINE:
        place, replaced = ENGINE[change["engine"]]
        executable = bytearray((workshop / "engine-cli").read_bytes())
        executable[place:place + len(replaced)] = replaced
        change["engine"] = tmp_path / "changed"
        change["engine"].write_bytes(executable)
    elif "engine" in change:
        change["engine"] = workshop / change["engine"]
    if "configuration" in change:
        if change["configuration"]:
            (tmp_path / "given.json").write_text(change["configuration"])
        change["configuration"] = tmp_path / "given.json"
    done = installer(workshop, output, *options, environment=environment, **change)
    assert done.returncode in (1, 64) and said in done.stderr and "Traceback" not in done.stderr, done.stderr
    assert not (tmp_path / "out").exists() and not list(tmp_path.glob(".installer.*"))


def test_refuses_an_output_that_is_a_file_and_one_without_its_archive(workshop, tmp_path, release):
    (tmp_path / "file").write_text("x")
    done = installer(workshop, tmp_path / "file")
    assert (done.returncode, done.stderr) == (1, f"lab-publish: {tmp_path}/file: Not a directory\n")
    shutil.copytree(release, tmp_path / "out", ignore=shutil.ignore_patterns("*.zip"))
    done = run_stapled_image(tmp_path / "out")
    assert (done.returncode, done.stderr) == (1, f"lab-publish: {tmp_path}/out/Kelo-Desk-Installer.zip: No such file or directory\n")
    assert (tmp_path / "out" / APP).is_dir()


def run_stapled_image(output):
    return subprocess.run([LAB / "lab-publish", "installer", "--stapled", "image", "--output", output], capture_output=True, text=True,
                          check=False)


def test_refuses_a_lab_without_programs(workshop, tmp_path):
    (tmp_path / "build/lab").mkdir(parents=True)
    shutil.copytree(LAB, tmp_path / "build/lab/bin", symlinks=True, ignore=shutil.ignore_patterns("spctl"))
    for name in ("packaging", "engines", "cmake_install.cmake"):
        (tmp_path / "build" / name).symlink_to(BUILD / name)
    words = ["--engine", workshop / "engine-cli", "--configuration", CONFIGURATION, "--output", tmp_path / "out",
             "--image", f"brenna=2.1={workshop / 'brenna.dmg'}"]
    done = subprocess.run([tmp_path / "build/lab/bin/lab-publish", "installer", *words], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (1, f"lab-publish: {tmp_path}/build/lab/bin/spctl: No such file or directory\n")
    assert not (tmp_path / "out").exists()


def test_refuses_an_image_that_the_engine_would_not_install(workshop, tmp_path):
    other = tmp_path / "other"
    other.mkdir()
    for name in ("identity.p12", "password", "engine-cli"):
        shutil.copy(workshop / name, other)
    shutil.copytree(workshop / "authority", other / "authority")
    run(LAB / "lab-fixture", "image", "--app", "brenna", "--version", "2.1", "--output", other / "brenna.dmg")
    done = installer(other, tmp_path / "out", apps=("brenna",))
    assert done.returncode == 1 and "the trial install ended with status 2" in done.stderr
    assert "could not be verified as genuine" in done.stderr and not (tmp_path / "out").exists()


@pytest.mark.parametrize("name, content", [("precious", "x"), ("manifest.sha256", f"{'0' * 64}  other.zip\n")])
def test_spares_a_folder_that_is_no_earlier_output(workshop, tmp_path, name, content):
    (tmp_path / "out").mkdir()
    (tmp_path / "out" / name).write_text(content)
    for done in (installer(workshop, tmp_path / "out"), run_stapled_image(tmp_path / "out")):
        assert done.returncode == 1 and "isn't an earlier output" in done.stderr
    assert (tmp_path / "out" / name).read_text() == content


@pytest.fixture
def script(monkeypatch):
    """The code of lab-publish installer."""
    monkeypatch.setattr("sys.argv", [str(LAB / "lab-publish-installer")])
    specification = importlib.util.spec_from_file_location("lab_publish_installer", ROOT / "lab/publisher/installer.py")
    module = importlib.util.module_from_spec(specification)
    specification.loader.exec_module(module)
    return module


@pytest.mark.parametrize("interruption", [OSError, KeyboardInterrupt])
def test_an_output_that_can_not_be_replaced_stays(script, tmp_path, interruption):
    class Made:
        def rename(self, _):
            raise interruption

    output = tmp_path / "out"
    output.mkdir()
    (output / "bundle").write_text("stapled")
    with pytest.raises(interruption):
        script.replace(output, Made(), tmp_path / "old")
    assert (output / "bundle").read_text() == "stapled" and not (tmp_path / "old").exists()


def test_removes_what_a_killed_run_left_and_returns_the_output_that_it_had_moved_away(release, tmp_path):
    killed, running, other = (tmp_path / f".installer.{name}" for name in ("killed", "running", "other"))
    for folder in (killed, running):
        (folder / "made").mkdir(parents=True)
        (folder / "old").mkdir()
    shutil.copytree(release, killed / "old/out")
    (other / "precious").mkdir(parents=True)
    lock = os.open(running, os.O_RDONLY)
    fcntl.flock(lock, fcntl.LOCK_EX)
    try:
        done = run_stapled_image(tmp_path / "out")
    finally:
        os.close(lock)
    assert done.returncode == 0, done.stderr
    assert sorted(path.name for path in tmp_path.iterdir()) == [".installer.other", ".installer.running", "out"]
    assert (tmp_path / "out" / APP / "Contents/MacOS/engine-cli").is_file()


@pytest.fixture
def timestamps(workshop, tmp_path):
    """A timestamp server of the workshop's authority on loopback, which counts the requests."""
    (tmp_path / "serial").write_text("01\n")
    (tmp_path / "ts.cnf").write_text(
        f"[tsa]\ndefault_tsa = ours\n[ours]\nserial = {tmp_path}/serial\nsigner_cert = {workshop}/authority/timestamp.pem\n"
        f"certs = {workshop}/chain.pem\nsigner_key = {workshop}/authority/timestamp.key\nsigner_digest = sha256\n"
        "default_policy = 1.2.3.4.1\ndigests = sha256\naccuracy = secs:1\n")

    class Server(http.server.BaseHTTPRequestHandler):
        requests = 0
        spoil = staticmethod(lambda reply: reply)

        def do_POST(self):
            type(self).requests += 1
            assert self.headers["Content-Type"] == "application/timestamp-query"
            (tmp_path / "query").write_bytes(self.rfile.read(int(self.headers["Content-Length"])))
            run("openssl", "ts", "-reply", "-config", tmp_path / "ts.cnf", "-queryfile", tmp_path / "query", "-out", tmp_path / "reply")
            reply = self.spoil((tmp_path / "reply").read_bytes())
            self.send_response(200)
            self.send_header("Content-Type", "application/timestamp-reply")
            self.end_headers()
            self.wfile.write(reply)

        def log_message(self, *_):
            pass

    server = http.server.HTTPServer(("127.0.0.1", 0), Server)
    thread = threading.Thread(target=server.serve_forever)
    thread.start()
    Server.url = f"http://127.0.0.1:{server.server_port}/"
    yield Server
    server.shutdown()
    thread.join()
    server.server_close()


def test_a_server_stamps_bundle_and_disk_image(workshop, tmp_path, codesign, timestamps):
    # The trial passes the root of the server to the engine's host, which refuses unknown keys.
    done = installer(workshop, tmp_path / "out", "--timestamp", timestamps.url, "--timestamp-authority", workshop / "authority/root.pem",
                     apps=("brenna",))
    assert done.returncode == 0, done.stderr
    assert timestamps.requests == 3  # two slices and the image
    for made in (tmp_path / "out" / APP, tmp_path / "out/Kelo-Desk-Installer.dmg"):
        assert codesign("--verify", "--strict", made).returncode == 0
        assert "Timestamp=" in codesign("-d", "-vvv", made).stderr


def test_a_server_of_another_root_stamps_if_that_root_is_named(workshop, own, release, tmp_path, timestamps):
    refused = online_installer(workshop, own, tmp_path / "out", "--timestamp", timestamps.url)
    assert refused.returncode == 1 and not (tmp_path / "out").exists()
    assert "secure timestamp: the time server's root certificate isn't trusted; --timestamp-authority names that root" in refused.stderr
    root = workshop / "authority/root.pem"
    done = online_installer(workshop, own, tmp_path / "out", "--timestamp", timestamps.url, "--timestamp-authority", root)
    assert done.returncode == 0, done.stderr
    judge = codesign_that_trusts(own / "root.pem", tmp_path, timestampAuthority=str(root))
    for made in (tmp_path / "out" / APP, tmp_path / "out/Kelo-Desk-Installer.dmg"):
        assert judge("--verify", "--strict", made).returncode == 0
        assert "Timestamp=" in judge("-d", "-vvv", made).stderr
    # A time server's root isn't trusted for code.
    assert "the signer's root certificate isn't trusted" in judge("--verify", release / APP).stderr


@pytest.mark.parametrize("spoil", [lambda reply: b"", lambda reply: b"<html>", lambda reply: reply[:-20], "the first again"])
def test_a_reply_that_is_none_or_to_another_request_is_refused(workshop, tmp_path, timestamps, spoil):
    kept = []
    if spoil == "the first again":
        spoil = lambda reply: kept[0] if kept else kept.append(reply) or reply  # noqa: E731
    timestamps.spoil = staticmethod(spoil)
    done = installer(workshop, tmp_path / "out", "--timestamp", timestamps.url, apps=())
    assert done.returncode == 1 and "timestamping server: " in done.stderr and not (tmp_path / "out").exists()


def test_the_signer_takes_no_wrong_password_and_no_file_that_is_no_identity(workshop, tmp_path):
    code = shutil.copy(workshop / "engine-cli", tmp_path / "code")
    (tmp_path / "wrong").write_text("a guess\n")
    for identity, password, said in (("identity.p12", tmp_path / "wrong", "can't be opened with this password"),
                                     ("engine-cli", workshop / "password", "isn't a PKCS#12 file"),
                                     ("identity.p12", tmp_path / "absent", "holds no password")):
        done = subprocess.run([LAB / "lab-sign", "sign", "--identity", workshop / identity, "--password-file", password, code],
                              capture_output=True, text=True, check=False)
        assert done.returncode == 1 and said in done.stderr
        assert "a guess" not in done.stderr
