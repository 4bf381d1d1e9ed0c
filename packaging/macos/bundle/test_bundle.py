"""The bundle and the archive that ./dev macos has made."""

import hashlib
import json
import pathlib
import plistlib
import re
import stat
import sys
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[2]
MADE = ROOT / "build/macos"
APP = MADE / "Kelo-Desk-Installer.app"
sys.path.insert(0, str(HERE))
import archive  # noqa: E402


def files_of_the_app():
    return sorted(path.relative_to(MADE).as_posix() for path in APP.rglob("*") if path.is_file())


ADMINISTRATION = {  # in Contents/Resources -> its source
    **{f"bin/{name}": f"packaging/command/{name}" for name in ("kelo", "kelo-summary", "kelo-sweep")},
    "share/bash-completion/completions/engine-cli": "packaging/completion/engine-cli.bash",
    **{f"share/doc/engine-cli/{path.relative_to(ROOT)}": path.relative_to(ROOT).as_posix() for path in (
        *ROOT.glob("protocol/**/*.md"), *ROOT.glob("protocol/**/*.json*"), ROOT / "packaging/macos/app-management.mobileconfig")},
    "share/man/man1/engine-cli.1": "engines/macos/Sources/engine-cli/engine-cli.1",
    "share/zsh/site-functions/_engine-cli": "packaging/completion/_engine-cli",
}
EXECUTABLES = {"MacOS/engine-cli", *(f"Resources/{name}" for name in ADMINISTRATION if name.startswith("bin/"))}


def test_the_bundle_holds_the_engine_its_configuration_the_administrators_files_and_its_seal():
    assert files_of_the_app() == sorted(f"Kelo-Desk-Installer.app/Contents/{name}" for name in (
        "Info.plist", "MacOS/engine-cli", "Resources/installer_config.json", "_CodeSignature/CodeResources",
        *(f"Resources/{name}" for name in ADMINISTRATION)))
    for name, source in ADMINISTRATION.items():
        installed, written = ((path / file).read_text() for path, file in ((APP / "Contents/Resources", name), (ROOT, source)))
        links_out = re.compile(r"!?\[([^]]*)\]\(\.\./(lab|shell)/.*?\)")
        assert re.sub(r" \(`.*?` in the source tree\)", "", installed) == links_out.sub(r"\1", written), name


def test_the_information_names_the_executable_the_least_system_and_the_engines_version():
    information = plistlib.loads((APP / "Contents/Info.plist").read_bytes())
    hello = json.loads((ROOT / "protocol/transcripts/hello.jsonl").read_text().splitlines()[0])
    assert (APP / "Contents/MacOS" / information["CFBundleExecutable"]).is_file()
    assert information["LSMinimumSystemVersion"] == "12.0"
    assert information["CFBundleShortVersionString"] == hello["engineVersion"]


def test_the_configuration_offers_the_apps_of_the_catalog():
    configuration = json.loads((APP / "Contents/Resources/installer_config.json").read_text())
    catalog = json.loads((ROOT / "protocol/catalog.json").read_text())
    assert configuration["apps"] == {app["id"]: {"primaryBundleIdentifier": app["installerBundleIdentifier"],
                                                 "otherBundleIdentifiers": app["otherBundleIdentifiers"],
                                                 "included": True} for app in catalog["apps"]}


def test_the_manifest_has_the_digest_of_every_file():
    lines = dict(reversed(line.split("  ", 1)) for line in (MADE / "manifest.sha256").read_text().splitlines())
    assert sorted(lines) == [*files_of_the_app(), "Kelo-Desk-Installer.dmg", "Kelo-Desk-Installer.zip", "sbom.spdx.json"]
    for name, digest in lines.items():
        assert hashlib.sha256((MADE / name).read_bytes()).hexdigest() == digest, name


def test_the_archive_holds_the_bundle_as_it_stands():
    with zipfile.ZipFile(MADE / "Kelo-Desk-Installer.zip") as packed:
        assert packed.testzip() is None
        held = {each.filename: each for each in packed.infolist() if not each.is_dir()}
        assert sorted(held) == files_of_the_app()
        for name, each in held.items():
            assert packed.read(name) == (MADE / name).read_bytes(), name
            assert stat.S_IMODE(each.external_attr >> 16) == (
                0o755 if name.split("/Contents/")[1] in EXECUTABLES else 0o644), name


def test_packing_twice_gives_the_same_bytes_whatever_the_times_and_modes(tmp_path):
    for name, mode in (("first", 0o600), ("second", 0o644)):
        folder = tmp_path / name / "A.app"
        (folder / "Contents").mkdir(parents=True)
        for inside in ("z", "a") if name == "first" else ("a", "z"):
            (folder / "Contents" / inside).write_text(inside)
            (folder / "Contents" / inside).chmod(mode)
        archive.pack(folder, tmp_path / f"{name}.zip")
    assert (tmp_path / "first.zip").read_bytes() == (tmp_path / "second.zip").read_bytes()
