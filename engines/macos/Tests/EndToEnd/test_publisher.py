"""lab-publish: publishing, checking, rolling back and withdrawing packages."""

import ctypes
import errno
import fcntl
import hashlib
import json
import os
import platform
import shutil
import struct
import subprocess
from pathlib import Path

import pytest

BUILD = Path(os.environ.get("KELO_BUILD", Path(__file__).resolve().parents[4] / "build" / "dev"))
PUBLISH = BUILD / "lab" / "bin" / "lab-publish"
FIXTURE = BUILD / "lab" / "bin" / "lab-fixture"
SIGN = BUILD / "lab" / "bin" / "lab-sign"
FOLDER = Path("desksuite/apps/default/brenna/mac/universal/dmg/latest")


@pytest.fixture(autouse=True)
def served(tmp_path):
    """Many tests use tmp_path as the tree, which other users must be able to enter."""
    tmp_path.chmod(0o755)


def made(path, *options, app="brenna", version="2.1"):
    subprocess.run([FIXTURE, "image", "--app", app, "--version", version, "--output", path, *options], check=True)
    return path


@pytest.fixture(scope="module")
def image(tmp_path_factory):
    return made(tmp_path_factory.mktemp("image") / "brenna.dmg")


@pytest.fixture(scope="module")
def newer(tmp_path_factory):
    """The same app in version 2.2."""
    return made(tmp_path_factory.mktemp("newer") / "brenna.dmg", version="2.2")


def publish(tree, image, child=None, **changes):
    options = {"tree": tree, "app": "brenna", "version": "2.1", "arch": "universal", "image": image, **changes}
    words = [word for name, value in options.items() for word in (f"--{name.replace('_', '-')}", str(value))]
    return subprocess.run([PUBLISH, "publish", *words], capture_output=True, text=True, check=False, preexec_fn=child)


def verify(tree, *options):
    return subprocess.run([PUBLISH, "verify", "--tree", tree, *options], capture_output=True, text=True, check=False)


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
    assert sound.stdout.startswith("brenna universal 2.1: brenna-2.1.dmg, ")


def test_publishes_under_the_builds_own_names(tmp_path, image):
    assert publish(tmp_path, image, flavour="blue", release="beta", apps_root="a", distribution_root="d").returncode == 0
    assert (tmp_path / "d/a/blue/brenna/mac/universal/dmg/beta/meta.json").exists()
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
    ({"destination": ".x"}, "path"), ({"destination": "meta.json"}, "doesn't end in .dmg"),
    ({"flavour": "a/b"}, "path"), ({"alternate": "http://a/b"}, "https"),
    ({"alternate": "https://mirror.other.example/b.dmg"}, "trustedDownloadDomains"), ({"configuration": "missing.json"}, "missing.json"),
    ({"colour": "blue"}, "--colour"), ({"test_authority": "root.pem"}, "--team"),
    ({"team": "A", "timestamp_authority": "root.pem"}, "--test-authority")])
def test_refuses_wrong_words(tmp_path, image, changes, word):
    done = publish(tmp_path / "tree", image, **changes)
    assert done.returncode == 64 and word in done.stderr, done.stderr
    assert not (tmp_path / "tree").exists()


@pytest.mark.parametrize("command", ["rollback", "withdraw"])
@pytest.mark.parametrize("name", ["meta.json", "release-notes.json", "brenna-2.1.DMG"])
def test_withdraws_and_offers_no_other_file_than_an_image(two_versions, command, name):
    before = {path.name: path.read_bytes() for path in (two_versions / FOLDER).iterdir()}
    done = tool(command, two_versions, "--destination", name)
    assert done.returncode == 64 and f"--destination '{name}' doesn't end in .dmg" in done.stderr, done.stderr
    assert {path.name: path.read_bytes() for path in (two_versions / FOLDER).iterdir()} == before


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
                                    {"alternateDownloadUrl": "http://a/"}, {"alternateDownloadUrl": "https://a.other.example/"},
                                    {"version": "2.2"}, {"product": "rulo"}, {"arch": "x64"}, {"release": "beta"},
                                    {"flavour": "blue"}, {"os": "win"}, {"format": "pkg"}])
def test_finds_wrong_metadata(tmp_path, image, change):
    publish(tmp_path, image)
    damage(tmp_path / FOLDER, "meta.json", change)
    checked = verify(tmp_path)
    assert checked.returncode == 1 and str(FOLDER) in checked.stderr


def test_finds_a_package_where_nobody_looks(tmp_path, image):
    publish(tmp_path, image)
    (tmp_path / FOLDER).rename(tmp_path / "elsewhere")
    assert "no installer reads" in verify(tmp_path).stderr


def test_finds_a_folder_without_metadata(tmp_path, image):
    publish(tmp_path, image)
    publish(tmp_path, image, release="beta")
    (tmp_path / FOLDER.with_name("beta") / "meta.json").unlink()
    checked = verify(tmp_path)
    assert checked.returncode == 1 and "beta: there is no meta.json" in checked.stderr
    (tmp_path / FOLDER.with_name("empty")).mkdir()
    assert "empty: there is no meta.json" in verify(tmp_path).stderr


def test_does_not_take_other_files_of_the_web_server_for_packages(tmp_path, image):
    publish(tmp_path, image)
    for name in ("mirror/brenna.dmg", "robots.txt", "desksuite/apps/index.html"):
        (tmp_path / name).parent.mkdir(exist_ok=True)
        (tmp_path / name).write_text("x")
    assert (verify(tmp_path).returncode, verify(tmp_path).stderr) == (0, "")


@pytest.mark.parametrize("folder", ["brena/mac/universal/dmg/latest", "brenna/mac/arm/dmg/latest", "brenna/mac/universal/zip/latest"])
def test_finds_a_wrong_folder_with_or_without_metadata(tmp_path, image, folder):
    publish(tmp_path, image)
    wrong = tmp_path / "desksuite/apps/default" / folder
    wrong.parent.mkdir(parents=True, exist_ok=True)
    (tmp_path / FOLDER).rename(wrong)
    assert "no installer reads" in verify(tmp_path).stderr
    (wrong / "meta.json").unlink()
    assert "no installer reads" in verify(tmp_path).stderr


def test_finds_uneven_architectures(tmp_path, image, newer):
    publish(tmp_path, image, arch="arm64")
    assert "brenna latest: there is no package for x64" in verify(tmp_path).stderr
    publish(tmp_path, newer, arch="x64", version="2.2")
    assert "brenna latest: arm64 has version 2.1, x64 has 2.2" in verify(tmp_path).stderr
    publish(tmp_path, newer, arch="arm64", version="2.2")
    assert (verify(tmp_path).returncode, verify(tmp_path).stderr) == (0, "")


def test_finds_what_others_may_not_read(tmp_path, image):
    publish(tmp_path, image)
    (tmp_path / FOLDER.parent).chmod(0o750)
    (tmp_path / FOLDER / "meta.json").chmod(0o640)
    checked = verify(tmp_path)
    assert checked.returncode == 1
    assert f"{FOLDER.parent}: other users can't enter it" in checked.stderr
    assert f"{FOLDER}/meta.json: other users can't read it" in checked.stderr


# The contents of the image.

def test_refuses_an_image_of_another_app_or_version(tmp_path, image, newer):
    rulo = made(tmp_path / "rulo.dmg", app="rulo")
    for wrong, complaint in ((rulo, "holds no app 'com.kelo.brenna.mac' but com.kelo.rulo"), (newer, "holds version 2.2, not 2.1"),
                             (made(tmp_path / "none.dmg", "--variant", "no-version"), "holds version no version, not 2.1")):
        done = publish(tmp_path / "tree", wrong)
        assert done.returncode == 1 and complaint in done.stderr, done.stderr
    assert not (tmp_path / "tree").exists()


def test_finds_an_image_of_another_app(tmp_path, image):
    publish(tmp_path, image)
    rulo = made(tmp_path / "rulo.dmg", app="rulo").read_bytes()
    (tmp_path / FOLDER / "brenna-2.1.dmg").write_bytes(rulo)
    damage(tmp_path / FOLDER, "meta.json", {"size": len(rulo), "checksum": hashlib.sha256(rulo).hexdigest()})
    checked = verify(tmp_path)
    assert checked.returncode == 1 and "holds no app 'com.kelo.brenna.mac' but com.kelo.rulo" in checked.stderr


def test_takes_an_image_that_holds_the_app_among_others(tmp_path):
    both = made(tmp_path / "both.dmg", "--variant", "second-bundle-right")
    assert publish(tmp_path / "tree", both).returncode == 0
    assert verify(tmp_path / "tree").returncode == 0


# A build's configuration.

@pytest.fixture
def configuration(tmp_path):
    def make(**values):
        path = tmp_path / "installer_config.json"
        path.write_text(json.dumps(values))
        return path
    return make


def test_takes_names_hosts_and_identifiers_from_the_configuration(tmp_path, image, configuration):
    others = {app: {"included": False} for app in ("tolvi", "rulo", "galdivane")}
    path = configuration(flavour="blue", cdn={"appsRoot": "a", "release": "beta"}, trustedDownloadDomains=["other.example"], apps=others)
    tree = tmp_path / "tree"
    done = publish(tree, image, configuration=path, alternate="HTTPS://mirror.other.example/b.dmg", release="gamma")
    assert done.returncode == 0, done.stderr
    assert (tree / "desksuite/a/blue/brenna/mac/universal/dmg/gamma/meta.json").exists()
    assert "trustedDownloadDomains" in verify(tree).stderr
    # The release of the configuration is "beta".
    assert "brenna: the place in the configuration has no package" in verify(tree, "--configuration", path).stderr
    sound = verify(tree, "--configuration", path, "--release", "gamma")
    assert (sound.returncode, sound.stderr) == (0, "")
    path = configuration(apps={"brenna": {"primaryBundleIdentifier": "com.other"}})
    assert "holds no app 'com.other'" in publish(tmp_path / "new", image, configuration=path).stderr


def test_reports_each_app_of_the_configuration_without_a_package(tmp_path, image, configuration):
    tree = tmp_path / "tree"
    assert publish(tree, image).returncode == 0
    path = configuration(apps={"rulo": {"included": False}, "tolvi": {"primaryBundleIdentifier": "com.kelo.ktolvimac"}})
    absent = verify(tree, "--configuration", path)
    assert absent.returncode == 1
    assert [line.split(": ")[1] for line in absent.stderr.splitlines()] == ["galdivane", "tolvi"], absent.stderr
    assert verify(tree, "--release", "latest").returncode == 0  # a name lists no apps


@pytest.mark.parametrize("values", [{"flavour": 1}, {"cdn": {"release": "a/b"}}, {"trustedDownloadDomains": "a"}, {"flavour": ""}])
def test_refuses_a_configuration_that_the_engine_would_not_follow(tmp_path, image, configuration, values):
    assert publish(tmp_path / "tree", image, configuration=configuration(**values)).returncode == 64
    broken = configuration()
    broken.write_text("{")
    assert publish(tmp_path / "tree", image, configuration=broken).returncode == 64


# Interrupted publications.

# The system call at which the publisher is killed -> the contents of the tree.
KILLED_AT = {
    "copying_the_image": ("sendfile", "2.1"),
    "naming_the_metadata": ("renameat", "2.1"),
    "the_way_to_the_disk": ("syncfs", "2.1"),
    "the_exchange": ("renameat2", "2.1"),
    "the_way_of_the_exchange_to_the_disk": ("fsync", "2.2"),
    "clearing_up": ("unlinkat", "2.2"),
}
NUMBERS = {
    "x86_64": {"sendfile": 40, "renameat": 264, "syncfs": 306, "renameat2": 316, "fsync": 74, "unlinkat": 263},
    "aarch64": {"sendfile": 71, "renameat": 38, "syncfs": 267, "renameat2": 276, "fsync": 82, "unlinkat": 35},
}
KILL, INVALID = 0x80000000, 0x00050000 | errno.EINVAL  # the effect on the system call
BY_PATH = 0xFFFFFF9C  # AT_FDCWD


def meeting(call, action):
    """A preexec_fn: installs a filter that lets this system call kill the process or fail."""
    number = NUMBERS[platform.machine()][call]
    # Excludes unlinks by path: ThreadSanitizer's runtime makes one before main, and the publisher makes none.
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


def publish_twice(tree, images, notes, **options):
    """Publishes version 2.1, then 2.2 with `options`."""
    for version, image in zip(("2.1", "2.2"), images, strict=True):
        notes.write_text(json.dumps({"releases": [{"version": version, "notes": []}]}))
        done = publish(tree, image, version=version, notes=notes, **(options if version == "2.2" else {}))
    return done


def holds_whole(tree, version):
    checked = verify(tree)
    assert checked.returncode == 0, checked.stderr
    assert checked.stdout.startswith(f"brenna universal {version}: brenna-{version}.dmg, ")
    notes = json.loads((tree / FOLDER / "release-notes.json").read_text())
    assert notes["releases"][0]["version"] == version
    return checked


@pytest.mark.skipif(platform.machine() not in NUMBERS, reason="the system calls have other numbers here")
@pytest.mark.parametrize("place", KILLED_AT)
def test_leaves_the_old_or_the_new_package_whole_when_killed_at(tmp_path, image, newer, place):
    tree, notes = tmp_path / "tree", tmp_path / "notes.json"
    call, version = KILLED_AT[place]
    assert publish_twice(tree, (image, newer), notes, child=meeting(call, KILL)).returncode < 0
    assert "left by an interrupted publication" in holds_whole(tree, version).stderr
    assert publish(tree, newer, version="2.2", notes=notes).returncode == 0
    assert holds_whole(tree, "2.2").stderr == ""
    assert (tree / FOLDER / "brenna-2.1.dmg").exists()


@pytest.mark.skipif(platform.machine() not in NUMBERS, reason="the system calls have other numbers here")
def test_publishes_where_two_folders_cannot_be_exchanged(tmp_path, image, newer):
    tree, notes = tmp_path / "tree", tmp_path / "notes.json"
    done = publish_twice(tree, (image, newer), notes, child=meeting("renameat2", INVALID))
    assert done.returncode == 0, done.stderr
    assert holds_whole(tree, "2.2").stderr == ""
    assert sorted(path.name for path in (tree / FOLDER).iterdir()) == [
        "brenna-2.1.dmg", "brenna-2.2.dmg", "meta.json", "release-notes.json"]


def test_lets_one_publication_to_a_place_go_on_at_a_time(tmp_path, image, newer):
    assert publish(tmp_path, image).returncode == 0
    other = os.open((tmp_path / FOLDER).parent, os.O_RDONLY)
    fcntl.flock(other, fcntl.LOCK_EX)
    done = publish(tmp_path, newer, version="2.2")
    os.close(other)
    assert done.returncode == 1 and "under way" in done.stderr
    assert verify(tmp_path).stdout.startswith("brenna universal 2.1: ")


def test_keeps_the_images_that_were_published_before(tmp_path, image, newer):
    assert publish(tmp_path, image).returncode == 0
    before = (tmp_path / FOLDER / "brenna-2.1.dmg").stat()
    assert publish(tmp_path, newer, version="2.2").returncode == 0
    after = (tmp_path / FOLDER / "brenna-2.1.dmg").stat()
    # The inode and the time are unchanged, so that running downloads can resume with their validator.
    assert (after.st_ino, after.st_mtime_ns, after.st_nlink) == (before.st_ino, before.st_mtime_ns, 1)


def test_publishes_through_a_link_that_somebody_set(tmp_path, image):
    folder = tmp_path / FOLDER
    (tmp_path / "elsewhere").mkdir()
    folder.parent.mkdir(parents=True)
    folder.symlink_to(tmp_path / "elsewhere")
    assert publish(tmp_path, image).returncode == 0
    assert folder.is_symlink() and (tmp_path / "elsewhere" / "meta.json").exists()


def test_verifies_what_a_link_leads_to(tmp_path, image):
    folder = tmp_path / FOLDER
    target = folder.with_name("2.1")
    target.mkdir(parents=True)
    folder.symlink_to("2.1")
    assert publish(tmp_path, image).returncode == 0
    sound = verify(tmp_path)
    assert (sound.returncode, sound.stdout.count("\n"), sound.stderr) == (0, 1, "")
    damage(folder, "meta.json", {"size": 1})
    assert verify(tmp_path).returncode == 1
    (tmp_path / "desksuite/loop").symlink_to("..")
    (folder.parent / "older").symlink_to("nowhere")
    problems = verify(tmp_path).stderr
    assert "loop: the link leads to one of its own parent folders" in problems and "older: the link's target doesn't exist" in problems


def test_follows_a_link_out_of_the_tree(tmp_path, image):
    tree = tmp_path / "tree"
    (tree / FOLDER).parent.mkdir(parents=True)
    (tmp_path / "elsewhere").mkdir()
    (tree / FOLDER).symlink_to(tmp_path / "elsewhere")
    assert publish(tree, image).returncode == 0
    assert verify(tree).stdout.startswith("brenna universal 2.1: ")


def test_publishes_for_whoever_serves_the_tree_under_any_mask(tmp_path, image):
    assert publish(tmp_path / "tree", image, child=lambda: os.umask(0o077)).returncode == 0
    folders = [path for path in (tmp_path / "tree").rglob("*") if path.is_dir()]
    assert {path.stat().st_mode & 0o777 for path in folders} == {0o755}
    assert verify(tmp_path / "tree").returncode == 0


def test_publishes_for_whoever_serves_the_tree(tmp_path, image):
    private = tmp_path / "private.dmg"
    private.write_bytes(image.read_bytes())
    private.chmod(0o600)
    assert publish(tmp_path / "tree", private).returncode == 0
    assert {path.stat().st_mode & 0o777 for path in (tmp_path / "tree" / FOLDER).iterdir()} == {0o644}


def test_refuses_to_touch_a_folder_that_is_no_publication(tmp_path, image, newer):
    assert publish(tmp_path, image).returncode == 0
    (tmp_path / FOLDER / "mine").mkdir()
    done = publish(tmp_path, newer, version="2.2")
    assert done.returncode == 1 and "is a folder instead of a file" in done.stderr
    assert (tmp_path / FOLDER / "mine").is_dir()
    assert verify(tmp_path).stdout.startswith("brenna universal 2.1: ")


def test_does_not_call_an_empty_tree_sound(tmp_path):
    assert verify(tmp_path).returncode == 1
    assert verify(tmp_path / "missing").returncode == 1


def test_helps(tmp_path):
    done = subprocess.run([PUBLISH, "--help"], capture_output=True, text=True, check=False)
    assert done.returncode == 0 and "verify" in done.stdout
    again = subprocess.run([PUBLISH, "publish", "--tree", tmp_path, "--help"], capture_output=True, text=True, check=False)
    assert again.returncode == 0 and "--image" in again.stdout and "Examples:" in again.stdout
    assert subprocess.run([PUBLISH], capture_output=True, check=False).returncode == 64


def tool(command, tree, *options, program=PUBLISH, **changes):
    """rollback and withdraw of Brenna 2.1, or list."""
    package = {} if command == "list" else {"app": "brenna", "version": "2.1", "arch": "universal", **changes}
    words = [word for name, value in package.items() for word in (f"--{name}", value)]
    return subprocess.run([program, command, "--tree", tree, *words, *options], capture_output=True, text=True, check=False)


@pytest.fixture
def two_versions(tmp_path, image, newer):
    tree = tmp_path / "tree"
    assert publish(tree, image).returncode == publish(tree, newer, version="2.2").returncode == 0
    return tree


def test_lists_what_is_on_offer_and_what_else_is_there(two_versions, image):
    assert publish(two_versions, image, app="brenna", arch="arm64").returncode == 0
    assert tool("list", two_versions).stdout.splitlines() == [
        "brenna arm64: 2.1 in brenna-2.1.dmg; other images: none",
        "brenna universal: 2.2 in brenna-2.2.dmg; other images: brenna-2.1.dmg"]
    none = tool("list", two_versions, "--app", "rulo")
    assert (none.returncode, none.stdout) == (1, "") and "holds no such package" in none.stderr


def test_rolls_back_to_an_image_that_is_there(two_versions):
    done = tool("rollback", two_versions)
    assert (done.returncode, done.stdout) == (0, f"{two_versions / FOLDER}\n"), done.stderr
    assert json.loads((two_versions / FOLDER / "meta.json").read_text())["version"] == "2.1"
    assert tool("list", two_versions).stdout == "brenna universal: 2.1 in brenna-2.1.dmg; other images: brenna-2.2.dmg\n"
    assert verify(two_versions).returncode == 0
    assert "there is no brenna-1.9.dmg" in tool("rollback", two_versions, version="1.9").stderr


def test_does_not_roll_back_to_an_image_that_was_damaged_meanwhile(two_versions):
    image = two_versions / FOLDER / "brenna-2.1.dmg"
    content = bytearray(image.read_bytes())
    content[len(content) // 2] ^= 1
    image.write_bytes(content)
    assert tool("rollback", two_versions).returncode == 1
    assert json.loads((two_versions / FOLDER / "meta.json").read_text())["version"] == "2.2"


def test_withdraws_an_image_that_is_not_on_offer(two_versions):
    before = (two_versions / FOLDER / "meta.json").read_text()
    done = tool("withdraw", two_versions)
    assert (done.returncode, done.stdout) == (0, f"{two_versions / FOLDER / 'brenna-2.1.dmg'}\n"), done.stderr
    assert sorted(path.name for path in (two_versions / FOLDER).iterdir()) == ["brenna-2.2.dmg", "meta.json"]
    assert (two_versions / FOLDER / "meta.json").read_text() == before and verify(two_versions).returncode == 0
    again = tool("withdraw", two_versions)
    assert again.returncode == 1 and "there is no brenna-2.1.dmg" in again.stderr


def test_does_not_withdraw_what_is_on_offer(two_versions):
    done = tool("withdraw", two_versions, version="2.2")
    assert done.returncode == 1 and "is on offer; publish another version or roll back first" in done.stderr
    assert (two_versions / FOLDER / "brenna-2.2.dmg").exists() and verify(two_versions).returncode == 0


@pytest.fixture(scope="module")
def team(tmp_path_factory):
    """An authority, and a copy of lab-publish whose linux_host.json trusts it."""
    folder = tmp_path_factory.mktemp("team")
    subprocess.run([SIGN, "make-authority", folder / "authority", "--team", "QX7M4R2V9D"], check=True, capture_output=True)
    (folder / "linux_host.json").write_text(json.dumps({"testAuthority": str(folder / "authority/root.pem")}))
    shutil.copy(PUBLISH, folder)
    return folder


def signed_image(team, folder, bundle=("--authority",), image=("--authority",)):
    """An image of Brenna 2.1; bundle and image signed with these options, or not at all."""
    subprocess.run([FIXTURE, "app", "--app", "brenna", "--version", "2.1", "--output", folder / "volume"], check=True, capture_output=True)
    for options, made in ((bundle, folder / "volume/Brenna.app"), (image, folder / "brenna.dmg")):
        if made.suffix == ".dmg":
            subprocess.run([PUBLISH.with_name("lab-diskimage"), "--volume-name", "Kelo Brenna", folder / "volume", made], check=True)
        if options:
            subprocess.run([SIGN, "sign", "--authority", team / "authority", *options[1:], made], check=True)
    return folder / "brenna.dmg"


@pytest.mark.parametrize("bundle, image, said", [
    (("",), ("",), None), ((), ("",), "Brenna.app"), (("",), (), "brenna-2.1.dmg"),
    (("", "--variant", "wrong-team"), ("",), "Brenna.app isn't signed by the expected team"),
    (("",), ("", "--variant", "wrong-team"), "brenna-2.1.dmg isn't signed by the expected team"),
    (("", "--variant", "self-signed"), ("",), "the signature of Brenna.app")])
def test_verifies_signatures_when_a_team_is_expected(team, tmp_path, bundle, image, said):
    made = signed_image(team, tmp_path, bundle, image)
    assert publish(tmp_path / "tree", made).returncode == 0  # no team is demanded
    with_team = ("--team", "QX7M4R2V9D")
    checked = subprocess.run([team / "lab-publish", "verify", "--tree", tmp_path / "tree", *with_team], capture_output=True,
                             text=True, check=False)
    offered = subprocess.run([team / "lab-publish", "publish", "--tree", tmp_path / "strict", "--app", "brenna", "--version", "2.1",
                              "--arch", "universal", "--image", made, *with_team], capture_output=True, text=True, check=False)
    again = tool("rollback", tmp_path / "tree", *with_team, program=team / "lab-publish")
    assert [checked.returncode, offered.returncode, again.returncode] == [int(bool(said))] * 3, (checked.stderr, offered.stderr)
    if said:
        assert said in checked.stderr
        assert not (tmp_path / "strict" / FOLDER / "meta.json").exists()


def test_believes_no_authority_that_the_machine_does_not_name(team, tmp_path):
    assert publish(tmp_path / "tree", signed_image(team, tmp_path)).returncode == 0
    done = verify(tmp_path / "tree", "--team", "QX7M4R2V9D")
    assert done.returncode == 1 and "the signature of brenna-2.1.dmg" in done.stderr
    assert "--test-authority names a root of your own" in done.stderr
    trusted = ("--team", "QX7M4R2V9D", "--test-authority")
    assert verify(tmp_path / "tree", *trusted, team / "authority/root.pem").returncode == 0
    unusable = verify(tmp_path / "tree", *trusted, team / "absent.pem")
    assert unusable.returncode == 1 and "absent.pem" in unusable.stderr
    for team_identifier in ('X" or true', 'X" or identifier "a'):
        assert "isn't a team identifier" in verify(tmp_path / "tree", "--team", team_identifier).stderr


def test_leaves_no_scratch_folder(team, tmp_path):
    assert publish(tmp_path / "tree", signed_image(team, tmp_path)).returncode == 0
    (tmp_path / "tmp").mkdir()
    done = subprocess.run([team / "lab-publish", "verify", "--tree", tmp_path / "tree", "--team", "QX7M4R2V9D"], check=False,
                          env={**os.environ, "TMPDIR": str(tmp_path / "tmp")}, capture_output=True)
    assert (done.returncode, list((tmp_path / "tmp").iterdir())) == (0, [])
