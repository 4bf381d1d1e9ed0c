"""lab-publish probe, with nginx configured as in packaging/cdn.md, and with each fault that the page warns of."""

import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess

import probe
import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KELO_BUILD", ROOT / "build/dev")).resolve()
LAB = BUILD / "lab/bin"
CDN = ROOT / "lab/cdn/lab-cdn"
HOST = "desk.cdn-kelo.example"
(WELL,) = re.findall(r"^```nginx\n(.*?)^```$", (ROOT / "packaging/cdn.md").read_text(), re.MULTILINE | re.DOTALL)
FOLDER = "desksuite/apps/default/brenna/mac/arm64/dmg/latest"


@pytest.fixture(scope="module")
def tree(tmp_path_factory):
    folder = tmp_path_factory.mktemp("tree")
    image, notes = folder / "brenna.dmg", folder / "notes.json"
    notes.write_text(json.dumps({"releases": [{"version": "2.1", "notes": ["Faster"]}]}))
    subprocess.run([LAB / "lab-fixture", "image", "--app", "brenna", "--version", "2.1", "--output", image], check=True)
    for arch in ("arm64", "x64"):
        subprocess.run([LAB / "lab-publish", "publish", "--tree", folder / "tree", "--app", "brenna", "--version", "2.1",
                        "--arch", arch, "--image", image, "--notes", notes], check=True, capture_output=True)
    return folder / "tree"


@pytest.fixture
def probed(tree, tmp_path):
    """probed(locations, *options): the result of probe for nginx with these directives."""
    started = []

    def probe(locations=WELL, *options, base=f"https://{HOST}", served=tree):
        (tmp_path / "locations").write_text(locations)
        begun = subprocess.run([CDN, "start", "--folder", tmp_path / "cdn", "--tree", served, "--names", f"{HOST},elsewhere.example",
                                "--locations", tmp_path / "locations"], check=True, capture_output=True, text=True)
        started.append(True)
        host = json.loads(begun.stdout)
        connect = [word for name, address in host["hostAddresses"].items() for word in ("--connect", f"{name}={address}")]
        return subprocess.run([LAB / "lab-publish", "probe", base, "--ca", host["extraCertificateAuthority"], *connect, *options],
                              capture_output=True, text=True, check=False)

    yield probe
    if started:
        subprocess.run([CDN, "stop", "--folder", tmp_path / "cdn"], check=True)


@pytest.mark.parametrize("options", [(), ("--download",), ("--app", "brenna")])
def test_finds_a_server_sound_that_follows_the_page(probed, options):
    done = probed(WELL, *options)
    assert (done.returncode, done.stdout, done.stderr) == (0, "brenna arm64 2.1: sound\nbrenna x64 2.1: sound\n", "")


def test_the_labs_own_server_follows_the_page(tree, tmp_path):
    begun = subprocess.run([CDN, "start", "--folder", tmp_path / "cdn", "--tree", tree, "--names", HOST], check=True, capture_output=True)
    try:
        host = json.loads(begun.stdout)
        done = subprocess.run([LAB / "lab-publish", "probe", f"https://{HOST}/", "--ca", host["extraCertificateAuthority"],
                               "--connect", f"{HOST}={host['hostAddresses'][HOST]}"], capture_output=True, text=True, check=False)
    finally:
        subprocess.run([CDN, "stop", "--folder", tmp_path / "cdn"], check=True)
    assert (done.returncode, done.stderr) == (0, "")


IMMUTABLE = 'add_header Cache-Control "public, max-age=31536000, immutable";'
BAD = {
    "no validators": (WELL.replace("etag on;", "etag off;").replace(IMMUTABLE, IMMUTABLE + ' add_header Last-Modified "";'),
                      "neither a strong ETag nor Last-Modified: downloads can't resume"),
    "no ranges": (WELL.replace("max_ranges 1;", "max_ranges 0;"), "is served whole where a range is asked for"),
    "a claimed coding": (WELL.replace(IMMUTABLE, IMMUTABLE + " add_header Content-Encoding gzip;"), "is served as gzip"),
    "metadata kept for a day": (WELL.replace('"no-cache"', '"max-age=86400"'), "meta.json may be kept for 86400 seconds"),
    "metadata without a lifetime": (WELL.replace('add_header Cache-Control "no-cache";', ""), "meta.json has no lifetime"),
    "notes kept for a day": (WELL.replace("location / {", 'location ~ notes { add_header Cache-Control "max-age=86400"; }\nlocation / {'),
                             "release-notes.json may be kept for 86400 seconds"),
    "notes that fail": (WELL.replace("location / {", "location ~ notes { return 503; }\nlocation / {"),
                        "release-notes.json is answered with status 503"),
    "a page instead of notes": (WELL.replace("location / {",
                                             'location ~ notes { add_header Cache-Control no-cache; return 200 "<html>"; }\nlocation / {'),
                                "release-notes.json can't be read by the engine"),
    "images asked for each time": (WELL.replace(IMMUTABLE, 'add_header Cache-Control "no-cache";'), "has no long lifetime"),
    "a page instead of 404": (WELL + "error_page 404 =200 /desksuite/apps/default/brenna/mac/arm64/dmg/latest/meta.json;",
                              "a missing file is answered with status 200"),
    "a foreign redirect": (WELL.replace("max_ranges 1;", "return 302 https://elsewhere.example$uri;"),
                           "leads to https://elsewhere.example/"),
    "a redirect without TLS": (WELL.replace("max_ranges 1;", f"return 302 http://{HOST}$uri;"), f"leads to http://{HOST}/"),
    "a loop": (WELL.replace("max_ranges 1;", f"return 302 https://{HOST}$uri;"), "more than 20 redirects"),
    "images that are refused": (WELL.replace("max_ranges 1;", "return 403;"), "brenna-2.1.dmg is answered with status 403"),
    "metadata that fails": (WELL.replace("location / {", "location = /" + FOLDER + "/meta.json { return 503; }\nlocation / {"),
                            "meta.json is answered with status 503"),
    "parts under any validator": (WELL.replace("max_ranges 1;", 'if ($http_range) { return 206 "x"; }'), "bytes, and meta.json says"),
}


@pytest.mark.parametrize("fault", BAD)
def test_says_what_is_missing(probed, fault):
    locations, said = BAD[fault]
    assert locations != WELL
    done = probed(locations)
    assert done.returncode == 1 and said in done.stderr, (done.stdout, done.stderr)
    assert "brenna arm64: " in done.stderr and "Traceback" not in done.stderr


def test_follows_a_redirect_to_a_trusted_host(probed):
    moved = WELL.replace("location / {", f"location ^~ /old/ {{ rewrite ^/old/(.*)$ https://{HOST}/$1 redirect; }}\nlocation / {{")
    done = probed(moved, base=f"https://{HOST}/old")
    assert (done.returncode, done.stderr) == (0, "")


def test_a_download_that_arrives_changed_is_found(probed, tree):
    image = tree / FOLDER / "brenna-2.1.dmg"
    kept, image_time = image.read_bytes(), image.stat()
    image.unlink()  # both architectures share the file
    image.write_bytes(bytes([kept[0] ^ 1]) + kept[1:])
    try:
        done = probed(WELL, "--download", "--app", "brenna")
        assert done.returncode == 1 and "brenna arm64: brenna-2.1.dmg has another digest" in done.stderr
        assert "brenna x64 2.1: sound" in done.stdout
    finally:
        image.write_bytes(kept)
        os.utime(image, ns=(image_time.st_atime_ns, image_time.st_mtime_ns))


SOUND = {"version": "2.1", "destination": "x.dmg", "checksum": "0" * 64}


@pytest.mark.parametrize("metadata, said", [
    ({"version": "2.1", "destination": "../x.dmg", "checksum": "00"}, "a destination or a SHA-256 that the engine refuses"),
    ({**SOUND, "alternateDownloadUrl": 7}, "an alternateDownloadUrl that isn't a string"),
    ({**SOUND, "alternateDownloadUrl": {"a": 1}}, "an alternateDownloadUrl that isn't a string"),
    ({**SOUND, "alternateDownloadUrl": f"https://{HOST}:x/"}, "leads to an unusable address"),
    ({**SOUND, "alternateDownloadUrl": "https://[x/"}, "leads to an unusable address"),
    ({**SOUND, "alternateDownloadUrl": f"https://a b.{HOST}/"}, "can't contain"),
    ({**SOUND, "alternateDownloadUrl": f"https://{HOST}/\u00e4\u20ac"}, "leads to an unusable address"),
    ({**SOUND, "checksumAlgorithm": "md5"}, "a SHA-256 that the engine refuses"), ({**SOUND, "checksum": ""}, "a SHA-256 that the engine"),
    ({**SOUND, "destination": ".."}, "a destination or"), ([], "or isn't JSON"), (None, "or isn't JSON")])
def test_metadata_that_the_engine_refuses_is_found(probed, tmp_path, metadata, said):
    folder = tmp_path / "tree" / FOLDER
    folder.mkdir(parents=True)
    (folder / "meta.json").write_text(json.dumps(metadata))
    (folder / "x.dmg").write_text("x")
    done = probed(WELL, served=tmp_path / "tree")
    assert done.returncode == 1 and said in done.stderr and "Traceback" not in done.stderr, done.stderr


@pytest.mark.parametrize("options, status, said", [
    (["--connect", "bad"], 64, "'bad' isn't HOST=ADDRESS:PORT"), (["--connect", f"{HOST}=127.0.0.1:http"], 64, "isn't HOST=ADDRESS:PORT"),
    (["--connect", f"{HOST}=127.0.0.1:70000"], 64, "isn't HOST=ADDRESS:PORT"),
    ([f"https://{HOST}:x"], 64, f"'https://{HOST}:x' isn't an address"),
    (["--ca", "absent.pem"], 1, "absent.pem: "), (["--ca", "list.json"], 1, "list.json: "),
    (["--configuration", "absent.json"], 1, "absent.json: "), (["--configuration", "list.json"], 1, "list.json: "),
    (["--configuration", "domains.json"], 1, "domains.json: "), (["--configuration", "cdn.json"], 1, "cdn.json: ")])
def test_unusable_arguments_get_a_sentence(tmp_path, options, status, said):
    for name, content in (("list", []), ("domains", {"trustedDownloadDomains": [7]}), ("cdn", {"cdn": {"release": 7}})):
        (tmp_path / f"{name}.json").write_text(json.dumps(content))
    words = options if options[0].startswith("https") else [f"https://{HOST}", *options]
    done = subprocess.run([LAB / "lab-publish", "probe", *words], capture_output=True, text=True, check=False, cwd=tmp_path)
    assert (done.returncode, done.stdout) == (status, "") and said in done.stderr and "Traceback" not in done.stderr, done.stderr


def test_an_empty_tree_and_a_server_that_is_not_there_are_not_sound(probed, tmp_path):
    (tmp_path / "empty").mkdir()
    done = probed(WELL, served=tmp_path / "empty")
    assert (done.returncode, done.stderr) == (1, "lab-publish: no package is there\n")
    away = subprocess.run([LAB / "lab-publish", "probe", f"https://{HOST}", "--connect", f"{HOST}=127.0.0.1:1", "--app", "rulo"],
                          capture_output=True, text=True, check=False)
    assert away.returncode == 1 and "Connection refused" in away.stderr


def test_reads_names_and_metadata_as_the_engine_does(probed, tmp_path):
    name = "100% done? #1.dmg"
    meta = {"version": "2.1", "destination": name, "sha256": hashlib.sha256(b"image").hexdigest().upper(), "checksumAlgorithm": "SHA256"}
    folder = tmp_path / "tree" / FOLDER.replace("latest", "a b").replace("arm64", "universal")
    folder.mkdir(parents=True)
    (folder / "meta.json").write_text(json.dumps(meta))
    (folder / name).write_bytes(b"image")
    done = probed(WELL, "--download", "--app", "brenna", "--configuration", configuration(tmp_path, cdn={"release": "a b"}),
                  served=tmp_path / "tree")
    assert (done.returncode, done.stdout, done.stderr) == (0, "brenna universal 2.1: sound\n", "")


def configuration(folder, **values):
    (folder / "configuration.json").write_text(json.dumps(values))
    return folder / "configuration.json"


def test_reports_what_the_builds_apps_lack(probed, tree, tmp_path):
    shutil.copytree(tree, tmp_path / "tree")
    meta = tmp_path / "tree" / FOLDER / "meta.json"
    meta.write_text(meta.read_text().replace('"2.1"', '"2.2"'))
    (meta.parent / "release-notes.json").unlink()
    told = configuration(tmp_path, apps={"rulo": {"included": False}}, cdn={"releaseNotesEnabled": True})
    done = probed(WELL, "--configuration", told, served=tmp_path / "tree")
    assert done.returncode == 1
    assert done.stderr.splitlines() == ["lab-publish: brenna arm64: there is no release-notes.json, and the build shows it",
                                        "lab-publish: brenna: arm64 has version 2.2, x64 has 2.1",
                                        "lab-publish: tolvi: there is no package", "lab-publish: galdivane: there is no package"]


def test_reports_a_package_for_one_processor_only(probed, tree, tmp_path):
    shutil.copytree(tree, tmp_path / "tree")
    (tmp_path / "tree" / FOLDER / "meta.json").unlink()
    done = probed(WELL, served=tmp_path / "tree")
    assert (done.returncode, done.stdout) == (1, "brenna x64 2.1: sound\n")
    assert done.stderr == "lab-publish: brenna: there is no package for arm64\n"


@pytest.mark.parametrize("app, versions, problems", [
    ("brenna", {"arm64": "2.2", "x64": "2.2", "universal": "2.1"}, []),
    ("rulo", {"universal": "2.2", "x64": "2.1"}, []),
    ("brenna", {"arm64": "2.2", "universal": "2.1"}, ["the package for x64 is under universal, and the engine reads release notes "
                                                     "under x64 only", "arm64 has version 2.2, x64 has 2.1"]),
    ("rulo", {"x64": "2.2"}, ["there is no package for arm64", "the package for x64 is under x64, and the engine reads release notes "
                              "under universal only"])])
def test_compares_the_packages_that_engines_read(app, versions, problems):
    assert list(probe.uneven(app, versions, True)) == problems


def test_hosts_come_from_the_configuration(probed, tmp_path):
    (tmp_path / "other.json").write_text(json.dumps({"trustedDownloadDomains": ["other.example"]}))
    done = probed(WELL, "--configuration", tmp_path / "other.json")
    assert done.returncode == 1 and "isn't https on a host of trustedDownloadDomains" in done.stderr


def test_looks_under_the_release_of_the_configuration(probed, tmp_path):
    (tmp_path / "pilot.json").write_text(json.dumps({"cdn": {"release": "pilot"}}))
    done = probed(WELL, "--configuration", tmp_path / "pilot.json", "--app", "brenna")
    assert (done.returncode, done.stderr) == (1, "lab-publish: brenna: there is no package\nlab-publish: no package is there\n")
