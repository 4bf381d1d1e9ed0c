"""lab-publish: what a release engineer puts into a tree, and what she is kept from."""

import hashlib
import json
import os
import subprocess
from pathlib import Path

import pytest

BUILD = Path(os.environ.get("KELO_BUILD", Path(__file__).resolve().parents[4] / "build" / "dev"))
PUBLISH = BUILD / "lab" / "bin" / "lab-publish"
FIXTURE = BUILD / "lab" / "bin" / "lab-fixture"
FOLDER = Path("desksuite/apps/default/brenna/mac/arm64/dmg/latest")

pytestmark = pytest.mark.skipif(not (PUBLISH.exists() and FIXTURE.exists()), reason="lab-publish isn't built")


@pytest.fixture(scope="module")
def image(tmp_path_factory):
    path = tmp_path_factory.mktemp("image") / "brenna.dmg"
    subprocess.run([FIXTURE, "image", "--app", "brenna", "--version", "2.1", "--output", path], check=True)
    return path


def publish(tree, image, **changes):
    options = {"tree": tree, "app": "brenna", "version": "2.1", "arch": "arm64", "image": image, **changes}
    words = [word for name, value in options.items() for word in (f"--{name.replace('_', '-')}", str(value))]
    return subprocess.run([PUBLISH, "publish", *words], capture_output=True, text=True, check=False)


def verify(tree):
    return subprocess.run([PUBLISH, "verify", "--tree", tree], capture_output=True, text=True, check=False)


def test_publishes_what_the_engine_looks_for(tmp_path, image):
    notes = tmp_path / "notes.json"
    notes.write_text(json.dumps({"releases": [{"version": "2.1", "notes": ["Faster"]}]}))
    done = publish(tmp_path / "tree", image, notes=notes, alternate="https://mirror.kelo.example/b.dmg")
    assert done.returncode == 0, done.stderr
    folder = tmp_path / "tree" / FOLDER
    assert sorted(path.name for path in folder.iterdir()) == ["brenna-2.1.dmg", "meta.json", "release-notes.json"]
    meta = json.loads((folder / "meta.json").read_text())
    assert meta["checksum"] == hashlib.sha256(image.read_bytes()).hexdigest()
    assert (meta["size"], meta["destination"]) == (image.stat().st_size, "brenna-2.1.dmg")
    assert meta["alternateDownloadUrl"] == "https://mirror.kelo.example/b.dmg"
    sound = verify(tmp_path / "tree")
    assert sound.returncode == 0, sound.stderr
    assert sound.stdout.startswith("brenna arm64 2.1: brenna-2.1.dmg, ")


def test_publishes_under_the_builds_own_names(tmp_path, image):
    assert publish(tmp_path, image, flavour="blue", release="beta", apps_root="a", distribution_root="d").returncode == 0
    assert (tmp_path / "d/a/blue/brenna/mac/arm64/dmg/beta/meta.json").exists()
    assert verify(tmp_path).returncode == 0


def test_publishes_the_same_again(tmp_path, image):
    assert publish(tmp_path, image).returncode == 0
    assert publish(tmp_path, image).returncode == 0


def test_never_changes_a_published_image(tmp_path, image):
    assert publish(tmp_path, image).returncode == 0
    published = tmp_path / FOLDER / "brenna-2.1.dmg"
    published.write_bytes(published.read_bytes() + b"x")
    before = (tmp_path / FOLDER / "meta.json").read_bytes()
    done = publish(tmp_path, image)
    assert done.returncode == 1 and "published already" in done.stderr
    assert (tmp_path / FOLDER / "meta.json").read_bytes() == before


@pytest.mark.parametrize("changes, word", [
    ({"app": "Brenna"}, "catalog"), ({"version": "2.1-b"}, "version"), ({"version": ""}, "version"),
    ({"version": "2..1"}, "version"), ({"arch": "arm"}, "architecture"), ({"destination": "../x.dmg"}, "path"),
    ({"destination": ".x"}, "path"), ({"flavour": "a/b"}, "path"), ({"alternate": "http://a/b"}, "https"),
    ({"colour": "blue"}, "--colour")])
def test_refuses_wrong_words(tmp_path, image, changes, word):
    done = publish(tmp_path / "tree", image, **changes)
    assert done.returncode == 64 and word in done.stderr, done.stderr
    assert not (tmp_path / "tree").exists()


def test_refuses_what_is_no_image(tmp_path, image):
    short, torn = tmp_path / "short.dmg", tmp_path / "torn.dmg"
    short.write_bytes(b"koly")
    torn.write_bytes(image.read_bytes()[:-100])
    for bad in (short, torn, tmp_path / "missing.dmg", tmp_path):
        done = publish(tmp_path / "tree", bad)
        assert done.returncode == 1 and done.stderr.startswith("lab-publish: "), bad
    assert not (tmp_path / "tree").exists()


def test_refuses_notes_that_the_engine_cannot_read(tmp_path, image):
    notes = tmp_path / "notes.json"
    notes.write_text('{"releases": [{"version": 2}]}')
    assert publish(tmp_path / "tree", image, notes=notes).returncode == 1
    assert not (tmp_path / "tree").exists()


def damage(folder, name, change):
    path = folder / name
    path.write_text(json.dumps({**json.loads(path.read_text()), **change}))


@pytest.mark.parametrize("change", [{"checksum": "0" * 64}, {"checksum": ""}, {"size": 1}, {"destination": "other.dmg"},
                                    {"destination": "../meta.json"}, {"checksumAlgorithm": "md5"}, {"version": "x"},
                                    {"alternateDownloadUrl": "http://a/"}])
def test_finds_wrong_metadata(tmp_path, image, change):
    publish(tmp_path, image)
    damage(tmp_path / FOLDER, "meta.json", change)
    checked = verify(tmp_path)
    assert checked.returncode == 1 and str(FOLDER) in checked.stderr


def test_finds_a_package_where_nobody_looks(tmp_path, image):
    publish(tmp_path, image)
    (tmp_path / FOLDER).rename(tmp_path / "elsewhere")
    assert "no installer looks" in verify(tmp_path).stderr


def test_finds_the_rest_of_a_publication_that_was_cut_short(tmp_path, image):
    publish(tmp_path, image)
    (tmp_path / FOLDER / ".brenna-2.2.dmg.publishing").write_bytes(b"half")
    assert "cut short" in verify(tmp_path).stderr


def test_does_not_call_an_empty_tree_sound(tmp_path):
    assert verify(tmp_path).returncode == 1
    assert verify(tmp_path / "missing").returncode == 1


def test_helps(tmp_path):
    done = subprocess.run([PUBLISH, "--help"], capture_output=True, text=True, check=False)
    assert done.returncode == 0 and "verify" in done.stdout
    assert subprocess.run([PUBLISH], capture_output=True, check=False).returncode == 64
