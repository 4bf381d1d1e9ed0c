#!/usr/bin/python3
"""lab-publish probe URL: checks that a live tree meets the engine's requirements, and prints the problems.

URL is the base address of the build, as in cdn.domains of its installer_config.json. probe requests each package where the
engine does. For each package found it checks metadata, release notes, image, byte ranges, validators, codings, lifetimes,
redirects and the answer for a missing file, and for each app that both processors get the same version. With --configuration
an app of the build without a package, and a package without the release notes that the build shows, are problems too. It
transfers at most a few megabytes per package; --download fetches whole images and compares their digests.

Exit status: 0 no problems, 1 problems, 64 usage.
"""

import argparse
import contextlib
import hashlib
import http.client
import json
import re
import socket
import ssl
import sys
from pathlib import Path
from urllib.parse import quote, urljoin, urlsplit

ROOT = Path(__file__).resolve().parents[2]
SCOPES = {app["id"]: app["cdnArch"] for app in json.loads((ROOT / "protocol/catalog.json").read_text())["apps"]}
APPS = list(SCOPES)
ARCHITECTURES = ("arm64", "x64", "universal")
DEFAULT_DOMAINS = json.loads((ROOT / "packaging/macos/bundle/installer_config.json").read_text())["trustedDownloadDomains"]
GONE = (403, 404, 410)
MOVED = (301, 302, 303, 307, 308)
REDIRECTS = 20
PATIENCE = 30  # seconds
LONGEST_METADATA = 1 << 20
SHORT, LONG = 300, 86400  # seconds: the longest lifetime of metadata, the shortest of images
CHECKSUM = re.compile(r"\s*[0-9a-fA-F]{64}\s*")


def encoded(name):
    """One component of a path, as the engine encodes it."""
    return quote(name, safe="!$&'()*+,;=:@")


def checksum_of(meta):
    """The SHA-256 in metadata, also under the key's older name; None if there is none that the engine accepts."""
    texts = {key: value for key, value in meta.items() if isinstance(value, str) and value}
    checksum = texts.get("checksum", texts.get("sha256", ""))
    is_sha256 = texts.get("checksumAlgorithm", "sha256").lower() == "sha256" and CHECKSUM.fullmatch(checksum)
    return checksum.strip().lower() if is_sha256 else None


def are_notes(notes):
    """Whether the engine can read these release notes."""
    texts = [notes.get("product"), notes.get("version")]
    for entry in notes["releases"]:
        texts.append(entry.get("date"))
        if not isinstance(entry["notes"], list) or not all(isinstance(text, str) for text in (entry["version"], *entry["notes"])):
            return False
    return isinstance(notes["releases"], list) and all(isinstance(text, (str, type(None))) for text in texts)


class UnreachableError(Exception):
    """There is no usable answer."""


class Answer:
    def __init__(self, response, place, body):
        self.status, self.place, self.body = response.status, place, body
        self.header = lambda name: (response.getheader(name) or "").strip()

    @property
    def lifetime(self):
        """Seconds for which a cache may answer without revalidation; None if the answer doesn't limit them."""
        directives = dict(part.strip().lower().partition("=")[::2] for part in self.header("Cache-Control").split(","))
        if "no-cache" in directives or "no-store" in directives:
            return 0
        age = directives.get("s-maxage") or directives.get("max-age") or ""
        return int(age) if age.isdecimal() else None

    @property
    def validator(self):
        """The validator for If-Range: a strong tag, else a date."""
        tag = self.header("ETag")
        return tag if tag.startswith('"') else self.header("Last-Modified")


class Server:
    def __init__(self, arguments, domains):
        self.context = ssl.create_default_context(cafile=arguments.ca)
        self.addresses = dict(arguments.connect)
        self.domains = [domain.strip(".") for domain in domains]

    def is_trusted(self, place):
        parts = urlsplit(place)
        host = (parts.hostname or "").rstrip(".")
        return parts.scheme == "https" and any(host == domain or host.endswith("." + domain) for domain in self.domains)

    def get(self, place, consume=None, **headers):
        """The answer after trusted redirects. `consume` gets the pieces of the body, which is read up to a limit otherwise."""
        try:
            return self.follow(place, consume, headers)
        except ValueError as failure:  # from an address that can't be parsed
            raise UnreachableError(f"leads to an unusable address: {failure}") from failure

    def follow(self, place, consume, headers):
        for _ in range(REDIRECTS + 1):
            if not self.is_trusted(place):
                raise UnreachableError(f"leads to {place}, which isn't https on a host of trustedDownloadDomains")
            answer = self.once(place, consume, headers)
            if answer.status not in MOVED or not answer.header("Location"):
                return answer
            place = urljoin(place, answer.header("Location"))
        raise UnreachableError(f"more than {REDIRECTS} redirects")

    def once(self, place, consume, headers):
        parts = urlsplit(place)
        host, port = parts.hostname, parts.port or 443
        try:
            with contextlib.closing(http.client.HTTPSConnection(host, port, context=self.context, timeout=PATIENCE)) as connection:
                raw = socket.create_connection(self.addresses.get(host, (host, port)), PATIENCE)
                connection.sock = self.context.wrap_socket(raw, server_hostname=host)
                names = {name.replace("_", "-"): value for name, value in headers.items()}
                connection.request("GET", parts.path + (f"?{parts.query}" if parts.query else ""),
                                   headers={"Accept-Encoding": "identity", **names})
                response = connection.getresponse()
                if consume and response.status == 200:
                    while piece := response.read(1 << 20):
                        consume(piece)
                    return Answer(response, place, b"")
                return Answer(response, place, response.read(LONGEST_METADATA))
        except (OSError, http.client.HTTPException) as failure:
            raise UnreachableError(f"{host}: {failure}") from failure


class Package:
    """One place where the engine looks for a package, and its problems."""

    def __init__(self, server, folder, downloads, needs_notes):
        self.server, self.folder, self.downloads, self.needs_notes = server, folder, downloads, needs_notes
        self.problems, self.version = [], None

    def wrong(self, what):
        self.problems.append(what)

    def check(self):
        """Whether there is a package."""
        try:
            metadata = self.server.get(self.folder + "meta.json", Accept_Encoding="gzip, identity")
            if metadata.status in GONE:
                return False
            self.check_metadata(metadata)
            self.check_notes(self.server.get(self.folder + "release-notes.json", Accept_Encoding="gzip, identity"))
            self.check_missing()
        except UnreachableError as failure:
            self.wrong(str(failure))
        return True

    def check_small_file(self, name, answer):
        """Whether there is an answer to read."""
        if answer.status != 200:
            self.wrong(f"{name} is answered with status {answer.status}")
            return False
        lifetime = answer.lifetime
        if lifetime is None:
            self.wrong(f"{name} has no lifetime: caches may keep it for days; Cache-Control: no-cache")
        elif lifetime > SHORT:
            self.wrong(f"{name} may be kept for {lifetime} seconds; no-cache, or {SHORT} at most")
        tag, date = answer.header("ETag"), answer.header("Last-Modified")
        if not tag and not date:
            self.wrong(f"{name} has neither ETag nor Last-Modified: it can't be revalidated")
        return True

    def check_notes(self, answer):
        if answer.status in GONE:
            return self.wrong("there is no release-notes.json, and the build shows it") if self.needs_notes else None
        if not self.check_small_file("release-notes.json", answer):
            return None
        try:
            sound = are_notes(json.loads(self.server.get(answer.place).body))
        except (ValueError, KeyError, TypeError, AttributeError):
            sound = False
        return None if sound else self.wrong("release-notes.json can't be read by the engine")

    def check_metadata(self, answer):
        if not self.check_small_file("meta.json", answer):
            return None
        try:
            meta = json.loads(self.server.get(answer.place).body)
            name, self.version, checksum = meta["destination"], meta["version"], checksum_of(meta)
            sound = isinstance(name, str) and "/" not in name and name not in ("", ".", "..") and checksum
            place = self.folder + encoded(str(name))
            if not isinstance(self.version, str) or not self.version:
                return self.wrong("meta.json has no version")
        except (ValueError, KeyError, TypeError, AttributeError):
            return self.wrong("meta.json lacks a destination or version, or isn't JSON")
        if not sound:
            return self.wrong("meta.json has a destination or a SHA-256 that the engine refuses")
        alternate = meta.get("alternateDownloadUrl")
        if not isinstance(alternate, (str, type(None))):
            alternate = self.wrong("meta.json has an alternateDownloadUrl that isn't a string")
        for address in (place, alternate):
            if address:
                self.check_image(address, meta)
        return None

    def check_image(self, place, meta):
        name = place if not place.startswith(self.folder) else meta["destination"]
        part = self.server.get(place, Range="bytes=0-0", Accept_Encoding="gzip, identity")
        if part.status in GONE or part.status >= 400:
            return self.wrong(f"{name} is answered with status {part.status}")
        if part.header("Content-Encoding"):
            self.wrong(f"{name} is served as {part.header('Content-Encoding')}: a part of it can't be resumed")
        if part.lifetime is None or part.lifetime < LONG:
            self.wrong(f"{name} has no long lifetime; Cache-Control: public, max-age=31536000, immutable")
        if part.status != 206:
            self.wrong(f"{name} is served whole where a range is asked for: downloads can't resume")
        else:
            self.check_ranges(place, name, meta, part)
        if self.downloads:
            self.check_digest(place, name, meta)
        return None

    def check_ranges(self, place, name, meta, part):
        total = part.header("Content-Range").rpartition("/")[2]
        if isinstance(meta.get("size"), int) and total != str(meta["size"]):
            self.wrong(f"{name} has {total} bytes, and meta.json says {meta['size']}")
        if not part.validator:
            return self.wrong(f"{name} has neither a strong ETag nor Last-Modified: downloads can't resume")
        again = self.server.get(place, Range="bytes=0-0", If_Range=part.validator)
        if again.status != 206:
            self.wrong(f"{name} isn't continued under its own validator ({part.validator})")
        if self.server.get(place, Range="bytes=0-0", If_Range='"another"').status == 206:
            self.wrong(f"{name} is continued under the validator of another file")
        return None

    def check_digest(self, place, name, meta):
        digest = hashlib.sha256()
        self.server.get(place, consume=digest.update)
        if digest.hexdigest() != checksum_of(meta):
            self.wrong(f"{name} has another digest than meta.json says")

    def check_missing(self):
        answer = self.server.get(self.folder + "no-such-file.dmg")
        if answer.status not in GONE:
            self.wrong(f"a missing file is answered with status {answer.status}: 404, so that the engine sees what is gone")


def base_address(text):
    try:
        _ = urlsplit(text).port
    except ValueError as failure:
        raise argparse.ArgumentTypeError(f"'{text}' isn't an address: {failure}") from failure
    return text.rstrip("/")


def connection(text):
    match = re.fullmatch(r"([^=]+)=(.+):([0-9]{1,5})", text)
    if not match or not 0 < int(match[3]) < 65536:
        raise argparse.ArgumentTypeError(f"'{text}' isn't HOST=ADDRESS:PORT")
    return match[1], (match[2].strip("[]"), int(match[3]))


def arguments_of():
    parser = argparse.ArgumentParser(prog="lab-publish probe", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.error = lambda reason: (parser.print_usage(sys.stderr), parser.exit(64, f"lab-publish: {reason}\n"))
    parser.add_argument("url", type=base_address)
    parser.add_argument("--configuration", type=Path, help="the build's installer_config.json: names and trusted hosts")
    parser.add_argument("--app", action="append", choices=APPS, help="only this app; can be repeated")
    parser.add_argument("--download", action="store_true", help="fetch the images whole")
    parser.add_argument("--ca", metavar="PEM", help="trust these authorities instead of the system's")
    parser.add_argument("--connect", action="append", default=[], type=connection, metavar="HOST=ADDRESS:PORT",
                        help="connect to this address for HOST")
    return parser.parse_args()


def folders(configuration, given):
    """(app, architecture, address of the folder) of each place where the engine looks."""
    cdn = configuration.get("cdn", {})
    names = [encoded(name) for name in (cdn.get("distributionRoot", "desksuite"), cdn.get("appsRoot", "apps"),
                                        configuration.get("flavour", "default"), cdn.get("release", "latest"))]
    return [(app, architecture, "/".join((given.url, *names[:3], app, "mac", architecture, "dmg", names[3])) + "/")
            for app in given.app or offered(configuration) for architecture in ARCHITECTURES]


def offered(configuration):
    entries = configuration.get("apps", {})
    return [app for app in APPS if entries.get(app, {}).get("included", True) is not False]


def shows_notes(configuration):
    return configuration.get("cdn", {}).get("releaseNotesEnabled") is True


def needs_notes(configuration, app, architecture):
    """Whether the build shows notes from this place: the engine looks for them under the app's own architectures only."""
    return shows_notes(configuration) and (architecture == "universal") == (SCOPES[app] == "universal")


def uneven(app, versions, notes):
    """The problems of an app with these versions by architecture. The engine reads the app's own segment for its processor, and
    the other segment only if the first has no package. `notes` is true if the build shows release notes."""
    own = {processor: "universal" if SCOPES[app] == "universal" else processor for processor in ("arm64", "x64")}
    other = {processor: processor if SCOPES[app] == "universal" else "universal" for processor in own}
    read = {processor: next((place for place in (own[processor], other[processor]) if place in versions), None) for processor in own}
    for processor, place in read.items():
        if place is None:
            yield f"there is no package for {processor}"
        elif notes and place != own[processor]:
            yield f"the package for {processor} is under {place}, and the engine reads release notes under {own[processor]} only"
    if None not in read.values() and len({versions[place] for place in read.values()} - {None}) == 2:
        yield f"arm64 has version {versions[read['arm64']]}, x64 has {versions[read['x64']]}"


def problems_at(places, server, given, configuration):
    """Checks every place, and prints a line for each package without problems."""
    versions, problems = {app: {} for app, _, _ in places}, []
    for app, architecture, folder in places:
        package = Package(server, folder, given.download, needs_notes(configuration, app, architecture))
        if not package.check():
            continue
        versions[app][architecture] = package.version
        if not package.problems:
            print(f"{app} {architecture} {package.version}: sound")
        problems += [f"{app} {architecture}: {problem}" for problem in package.problems]
    for app, found in versions.items():
        if found:
            problems += [f"{app}: {problem}" for problem in uneven(app, found, shows_notes(configuration))]
        elif given.configuration:
            problems.append(f"{app}: there is no package")
    return problems if any(versions.values()) else [*problems, "no package is there"]


def main():
    given = arguments_of()
    try:
        configuration = json.loads(given.configuration.read_text()) if given.configuration else {}
        domains = [domain.lower() for domain in configuration.get("trustedDownloadDomains") or DEFAULT_DOMAINS]
        places = folders(configuration, given)
    except (OSError, ValueError, AttributeError, TypeError) as failure:
        sys.exit(f"lab-publish: {given.configuration}: not a usable configuration: {failure}")
    try:
        server = Server(given, domains)
    except OSError as failure:
        sys.exit(f"lab-publish: {given.ca}: {failure}")
    problems = problems_at(places, server, given, configuration)
    for problem in problems:
        print(f"lab-publish: {problem}", file=sys.stderr)
    sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()
