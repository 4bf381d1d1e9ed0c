"""lab-publish: what a release engineer puts into a tree, and what she is kept from."""

import ctypes
import errno
import fcntl
import hashlib
import json
import os
import platform
import struct
import subprocess
from pathlib import Path

import pytest

BUILD = Path(os.environ.get("KELO_BUILD", Path(__file__).resolve().parents[4] / "build" / "dev"))
PUBLISH = BUILD / "lab" / "bin" / "lab-publish"
FIXTURE = BUILD / "lab" / "bin" / "lab-fixture"
FOLDER = Path("desksuite/apps/default/brenna/mac/arm64/dmg/latest")


@pytest.fixture(scope="module")
def image(tmp_path_factory):
    path = tmp_path_factory.mktemp("image") / "brenna.dmg"
    subprocess.run([FIXTURE, "image", "--app", "brenna", "--version", "2.1", "--output", path], check=True)
    return path


def publish(tree, image, child=None, **changes):
    options = {"tree": tree, "app": "brenna", "version": "2.1", "arch": "arm64", "image": image, **changes}
    words = [word for name, value in options.items() for word in (f"--{name.replace('_', '-')}", str(value))]
    return subprocess.run([PUBLISH, "publish", *words], capture_output=True, text=True, check=False, preexec_fn=child)


def verify(tree):
    return subprocess.run([PUBLISH, "verify", "--tree", tree], capture_output=True, text=True, check=False)


def test_publishes_what_the_engine_looks_for(tmp_path, image):
    notes = tmp_path / "notes.json"
    notes.write_text(json.dumps({"releases": [{"version": "2.1", "notes": ["Faster"]}]}))
    done = publish(tmp_path / "tree", image, notes=notes, alternate="HTTPS://mirror.kelo.example/b.dmg")
    assert done.returncode == 0, done.stderr
    folder = tmp_path / "tree" / FOLDER
    assert sorted(path.name for path in folder.iterdir()) == ["brenna-2.1.dmg", "meta.json", "release-notes.json"]
    meta = json.loads((folder / "meta.json").read_text())
    assert meta["checksum"] == hashlib.sha256(image.read_bytes()).hexdigest()
    assert (meta["size"], meta["destination"]) == (image.stat().st_size, "brenna-2.1.dmg")
    assert meta["alternateDownloadUrl"] == "HTTPS://mirror.kelo.example/b.dmg"
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


def test_refuses_an_image_with_one_bit_that_fell_over(tmp_path, image):
    bytes_ = bytearray(image.read_bytes())
    bytes_[1000] ^= 1
    damaged = tmp_path / "damaged.dmg"
    damaged.write_bytes(bytes_)
    done = publish(tmp_path / "tree", damaged)
    assert done.returncode == 1 and "checksum" in done.stderr
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


# A publication that ends before its time.

# Where the publisher can be killed, and what the tree then holds.
KILLED_AT = {
    "copying_the_image": ("sendfile", "2.1"),
    "naming_the_metadata": ("rename", "2.1"),
    "the_way_to_the_disk": ("syncfs", "2.1"),
    "the_exchange": ("renameat2", "2.1"),
    "the_way_of_the_exchange_to_the_disk": ("fsync", "2.2"),
    "clearing_up": ("unlinkat", "2.2"),
}
NUMBERS = {
    "x86_64": {"sendfile": 40, "rename": 82, "syncfs": 306, "renameat2": 316, "fsync": 74, "unlinkat": 263},
    "aarch64": {"sendfile": 71, "rename": 38, "syncfs": 267, "renameat2": 276, "fsync": 82, "unlinkat": 35},
}
KILL, INVALID = 0x80000000, 0x00050000 | errno.EINVAL  # what becomes of the system call
BY_PATH = 0xFFFFFF9C  # AT_FDCWD, where a call takes a folder's descriptor


def meeting(call, action):
    """For a child: from here on that system call ends it, or fails."""
    number = NUMBERS[platform.machine()][call]
    # ThreadSanitizer's runtime unlinks a file of its own by its path before main; the publisher goes by descriptors.
    spared = [(0x20, 0, 0, 16), (0x15, 1, 0, BY_PATH)] if call == "unlinkat" else []
    rules = b"".join(struct.pack("HBBI", *rule) for rule in
                     [(0x20, 0, 0, 0), (0x15, 0, 1 + len(spared), number), *spared,
                      (0x06, 0, 0, action), (0x06, 0, 0, 0x7FFF0000)])
    rules = ctypes.create_string_buffer(rules, len(rules))
    program = struct.pack("HxxxxxxP", len(rules) // 8, ctypes.addressof(rules))
    prctl = ctypes.CDLL(None, use_errno=True).prctl

    def begin():
        assert prctl(38, 1, 0, 0, 0) == 0 and prctl(22, 2, program, 0, 0) == 0
        assert rules
    return begin


def publish_twice(tree, image, notes, **options):
    """Version 2.1 as it should be, then 2.2 with what `options` do to it."""
    for version in ("2.1", "2.2"):
        notes.write_text(json.dumps({"releases": [{"version": version, "notes": []}]}))
        done = publish(tree, image, version=version, notes=notes, **(options if version == "2.2" else {}))
    return done


def holds_whole(tree, version):
    checked = verify(tree)
    assert checked.returncode == 0, checked.stderr
    assert checked.stdout.startswith(f"brenna arm64 {version}: brenna-{version}.dmg, ")
    notes = json.loads((tree / FOLDER / "release-notes.json").read_text())
    assert notes["releases"][0]["version"] == version
    return checked


@pytest.mark.skipif(platform.machine() not in NUMBERS, reason="the system calls have other numbers here")
@pytest.mark.parametrize("place", KILLED_AT)
def test_leaves_the_old_or_the_new_package_whole_when_killed_at(tmp_path, image, place):
    tree, notes = tmp_path / "tree", tmp_path / "notes.json"
    call, version = KILLED_AT[place]
    assert publish_twice(tree, image, notes, child=meeting(call, KILL)).returncode < 0
    assert "cut short" in holds_whole(tree, version).stderr
    assert publish(tree, image, version="2.2", notes=notes).returncode == 0
    assert holds_whole(tree, "2.2").stderr == ""
    assert (tree / FOLDER / "brenna-2.1.dmg").exists()


@pytest.mark.skipif(platform.machine() not in NUMBERS, reason="the system calls have other numbers here")
def test_publishes_where_two_folders_cannot_be_exchanged(tmp_path, image):
    tree, notes = tmp_path / "tree", tmp_path / "notes.json"
    done = publish_twice(tree, image, notes, child=meeting("renameat2", INVALID))
    assert done.returncode == 0, done.stderr
    assert holds_whole(tree, "2.2").stderr == ""
    assert sorted(path.name for path in (tree / FOLDER).iterdir()) == [
        "brenna-2.1.dmg", "brenna-2.2.dmg", "meta.json", "release-notes.json"]


def test_lets_one_publication_to_a_place_go_on_at_a_time(tmp_path, image):
    assert publish(tmp_path, image).returncode == 0
    other = os.open((tmp_path / FOLDER).parent, os.O_RDONLY)
    fcntl.flock(other, fcntl.LOCK_EX)
    done = publish(tmp_path, image, version="2.2")
    os.close(other)
    assert done.returncode == 1 and "under way" in done.stderr
    assert verify(tmp_path).stdout.startswith("brenna arm64 2.1: ")


def test_keeps_the_images_that_were_published_before(tmp_path, image):
    assert publish(tmp_path, image).returncode == 0
    before = (tmp_path / FOLDER / "brenna-2.1.dmg").stat()
    assert publish(tmp_path, image, version="2.2").returncode == 0
    after = (tmp_path / FOLDER / "brenna-2.1.dmg").stat()
    # The same file, so that downloads of it go on under the validator that they began with.
    assert (after.st_ino, after.st_mtime_ns, after.st_nlink) == (before.st_ino, before.st_mtime_ns, 1)


def test_publishes_through_a_link_that_somebody_set(tmp_path, image):
    folder = tmp_path / FOLDER
    (tmp_path / "elsewhere").mkdir()
    folder.parent.mkdir(parents=True)
    folder.symlink_to(tmp_path / "elsewhere")
    assert publish(tmp_path, image).returncode == 0
    assert folder.is_symlink() and (tmp_path / "elsewhere" / "meta.json").exists()


def test_publishes_for_whoever_serves_the_tree(tmp_path, image):
    private = tmp_path / "private.dmg"
    private.write_bytes(image.read_bytes())
    private.chmod(0o600)
    assert publish(tmp_path / "tree", private).returncode == 0
    assert {path.stat().st_mode & 0o777 for path in (tmp_path / "tree" / FOLDER).iterdir()} == {0o644}


def test_refuses_to_touch_a_folder_that_is_no_publication(tmp_path, image):
    assert publish(tmp_path, image).returncode == 0
    (tmp_path / FOLDER / "mine").mkdir()
    done = publish(tmp_path, image, version="2.2")
    assert done.returncode == 1 and "none belongs there" in done.stderr
    assert (tmp_path / FOLDER / "mine").is_dir()
    assert verify(tmp_path).stdout.startswith("brenna arm64 2.1: ")


def test_does_not_call_an_empty_tree_sound(tmp_path):
    assert verify(tmp_path).returncode == 1
    assert verify(tmp_path / "missing").returncode == 1


def test_helps(tmp_path):
    done = subprocess.run([PUBLISH, "--help"], capture_output=True, text=True, check=False)
    assert done.returncode == 0 and "verify" in done.stdout
    again = subprocess.run([PUBLISH, "publish", "--tree", tmp_path, "--help"], capture_output=True, text=True, check=False)
    assert again.stdout == done.stdout
    assert subprocess.run([PUBLISH], capture_output=True, check=False).returncode == 64
