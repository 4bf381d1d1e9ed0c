"""The repository's pages, and the files that `cmake --install` installs."""

import json
import os
import pathlib
import plistlib
import re
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[1]
BUILD = pathlib.Path(os.environ.get("KELO_BUILD", "build/dev")).resolve()
PAGE = (ROOT / "protocol/administrators.md").read_text()
WORKFLOW = (ROOT / ".github/workflows/ci.yml").read_text()
VERSION = re.search(r"^project\(\S+ VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]


def known_tests():
    """Suite.Test of every GoogleTest, file.py::test of every pytest."""
    cases = re.compile(r"^(?:TYPED_)?TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)", re.MULTILINE)
    found = {f"{suite}.{name}" for source in ROOT.glob("[el]*/**/*.cpp") if "build" not in source.parts
             for suite, name in cases.findall(source.read_text())}
    return found | {f"{source.name}::{name}" for source in ROOT.glob("[elp]*/**/test_*.py")
                    for name in re.findall(r"^def (test_\w+)", source.read_text(), re.MULTILINE)}


def test_every_threat_names_tests_and_each_of_them_exists():
    rows = re.findall(r"^\| (?!threat|---)(.*) \| .* \| (.*) \|$", (ROOT / "SECURITY.md").read_text(), re.MULTILINE)
    named = {threat: re.findall(r"`([^`]+)`", cell) for threat, cell in rows}
    assert len(named) > 20 and all(named.values())
    known = known_tests()
    assert [test for tests in named.values() for test in tests if test not in known] == []


def test_the_newest_section_of_the_changelog_is_of_this_version():
    assert re.search(r"^## (\S+)", (ROOT / "CHANGELOG.md").read_text(), re.MULTILINE)[1] == VERSION


def test_every_link_of_an_installed_page_leads_to_an_installed_file(installed):
    pages = list((installed / "share/doc").rglob("*.md"))
    links = {(page, target) for page in pages for target in re.findall(r"\]\((?!https?:|#)([^)#]+)", page.read_text())}
    assert len(pages) == 3 and len(links) > 20
    assert [(page.name, target) for page, target in links if not (page.parent / target).exists()] == []


def host_programs():
    """The programs that the Linux host starts from the bundle."""
    host = (ROOT / "engines/macos/Sources/SharedInstallerLib/Platform/Linux/LinuxHost.cpp").read_text()
    found = set(re.findall(r' = program\("(\w+)"\)', host))
    assert len(found) > 5
    return found


def test_fixtures_and_the_client_of_shells_have_this_version(tmp_path):
    lab = BUILD / "lab/bin"
    subprocess.run([lab / "lab-fixture", "offline-installer", "--engine", BUILD / "engines/macos/engine-cli", "--programs", lab,
                    "--machine", tmp_path / "machine", "--apps", "rulo", "--output", tmp_path], check=True, capture_output=True)
    contents = tmp_path / "Kelo-Desk-Installer.app/Contents"
    made, shipped = (plistlib.loads(path.read_bytes()) for path in (contents / "Info.plist", BUILD / "packaging/Info.plist"))
    keys = ("CFBundleIdentifier", "CFBundleShortVersionString", "CFBundleVersion", "CFBundleExecutable", "CFBundlePackageType")
    assert {key: made[key] for key in keys} == {key: shipped[key] for key in keys}
    assert {path.name for path in (contents / "Resources/programs").iterdir()} == host_programs()
    for file in ("package.json", "package-lock.json"):
        assert json.loads((ROOT / "shell/client" / file).read_text())["version"] == VERSION


@pytest.fixture(scope="module")
def installed(tmp_path_factory):
    prefix = tmp_path_factory.mktemp("a prefix")
    subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], check=True, capture_output=True)
    # A machine below the prefix; by default the engine would use the user's home folder.
    (prefix / "lib/Kelo-Desk-Installer.app/Contents/Resources/linux_host.json").write_text(f'{{"root": "{prefix}/machine"}}')
    return prefix


def test_the_installed_engine_answers_through_its_link_with_the_version(installed):
    hello = subprocess.run([installed / "bin/engine-cli", "hello", "--offline"], check=True, capture_output=True, text=True)
    assert f'"engineVersion":"{VERSION}"' in hello.stdout
    assert (installed / "machine/Library/Logs/Kelo-Desk-Installer/webinstall.log").is_file()


def test_the_installed_script_finds_the_engine_beside_it(installed):
    asked = subprocess.run([installed / "bin/kelo", "hello", "--offline"], capture_output=True, text=True, env={"PATH": "/usr/bin:/bin"})
    assert (asked.returncode, '"type":"done"' in asked.stdout) == (0, True), asked.stderr


def test_the_installed_bundle_states_the_version_and_lacks_nothing(installed):
    contents = installed / "lib/Kelo-Desk-Installer.app/Contents"
    assert plistlib.loads((contents / "Info.plist").read_bytes())["CFBundleShortVersionString"] == VERSION
    assert {path.name for path in (contents / "Resources/programs").iterdir()} == host_programs()
    for page in ("man/man1/engine-cli.1", "bash-completion/completions/engine-cli", "zsh/site-functions/_engine-cli"):
        assert (installed / "share" / page).is_file(), page


def test_the_recipe_of_a_package_links_to_files_of_the_released_bundle(tmp_path):
    recipe = re.search(r"^```sh\n(root=.*?)^```$", PAGE, re.MULTILINE | re.DOTALL)[1]
    lab = BUILD / "lab/bin"
    subprocess.run([lab / "lab-sign", "make-macho", tmp_path / "engine", "--arch", "arm64,x86_64"], check=True)
    subprocess.run([lab / "lab-publish", "installer", "--engine", tmp_path / "engine", "--output", tmp_path / "release", "--configuration",
                    ROOT / "packaging/macos/bundle/installer_config.json"], check=True, capture_output=True)
    (tmp_path / "ditto").write_text('#!/bin/sh\n[ "$1 $2" = "-x -k" ] && exec unzip -q "$3" -d "$4"\n')
    (tmp_path / "ditto").chmod(0o755)
    subprocess.run(["sh", "-euc", re.sub("^root=.*", "root=../root", recipe)], cwd=tmp_path / "release", check=True,
                   env={"PATH": f"{tmp_path}:/usr/bin:/bin"})
    links = {path.relative_to(tmp_path / "root/usr/local").as_posix(): tmp_path / "root" / os.readlink(path).lstrip("/")
             for path in (tmp_path / "root").rglob("*") if path.is_symlink()}
    assert sorted(links) == ["bin/kelo", "share/bash-completion/completions/kelo", "share/man/man1/engine-cli.1",
                             "share/zsh/site-functions/_engine-cli"]
    assert all(target.is_file() for target in links.values())
    # The package's version comes from this tree's engine, here one that this machine can run, and its script is executable.
    (tmp_path / "root/Applications/Kelo-Desk-Installer.app/Contents/MacOS/engine-cli").write_text(
        '#!/bin/sh\necho \'{"type":"hello","engineVersion":"7.8"}\'\n')
    for program in ("pkgbuild", "launchctl"):
        (tmp_path / program).write_text('#!/bin/sh\necho "$@"\n')
        (tmp_path / program).chmod(0o755)
    built, loads = (re.search(rf"^```sh\n({start}.*?)^```$", PAGE, re.MULTILINE | re.DOTALL)[1]
                    for start in ("kelo=root", "mkdir -p scripts"))
    shell = {"cwd": tmp_path, "check": True, "env": {"PATH": f"{tmp_path}:/usr/bin:/bin"}, "text": True, "capture_output": True}
    assert " --version 7.8 " in subprocess.run(["sh", "-euc", built], **shell).stdout
    subprocess.run(["sh", "-euc", loads], **shell)
    assert subprocess.run(["scripts/postinstall"], **shell).stdout.splitlines()[-1].startswith("bootstrap system ")
    assert "`--scripts scripts`" in PAGE


# The macOS commands that packaging/macos/smoke.sh uses and that aren't installed.
MAKERS = {
    "hdiutil": 'if [ "$1" = create ]; then shift; exec "{lab}/lab-diskimage" --volume-name "$3" "$5" "$8"; fi',
    "codesign": 'if [ "$1" = --force ]; then exec "{lab}/lab-sign" sign --variant ad-hoc "$4"; fi',
    "xattr": "",
}


@pytest.fixture
def mac_like(installed, tmp_path):
    """Runs the workflow's steps that follow the installation of the bundle, with lab programs in the PATH."""
    programs = installed / "lib/Kelo-Desk-Installer.app/Contents/Resources/programs"
    for name, maker in MAKERS.items():
        (tmp_path / name).write_text(f'#!/bin/sh\n{maker.format(lab=BUILD / "lab/bin")}\nexec "{programs / name}" "$@"\n')
        (tmp_path / name).chmod(0o755)
    subprocess.run([BUILD / "lab/bin/lab-sign", "make-macho", tmp_path / "Brenna"], check=True)
    app = tmp_path / "installed/lib/Kelo-Desk-Installer.app"
    shutil.copytree(installed / "lib/Kelo-Desk-Installer.app", app)
    (app / "Contents/Resources/linux_host.json").write_text(json.dumps({"root": str(tmp_path / "machine")}))
    (tmp_path / "tmp").mkdir()
    environment = {**os.environ, "PATH": f"{tmp_path}:/usr/bin:/bin", "TMPDIR": str(tmp_path / "tmp"), "RUNNER_TEMP": str(tmp_path)}
    _, *steps = re.findall(r"^ +(?:- )?run: (.*)", WORKFLOW[WORKFLOW.index("run: cmake --install") - 1:], re.MULTILINE)
    return lambda: subprocess.run(["sh", "-euc", "\n".join(steps) + f' "{tmp_path}/Brenna"'], env=environment, cwd=ROOT,
                                  capture_output=True, text=True)


def test_what_a_mac_tries_by_itself_passes_with_the_counterparts(mac_like):
    done = mac_like()
    assert (done.returncode, done.stdout.splitlines()[-1:]) == (0, ["ok: all"]), done.stdout + done.stderr


@pytest.mark.parametrize("program, said", [
    ("codesign", "failed: the signature of the bundle as it was built"),
    ("xattr", "failed: the installed application is in quarantine"),
    ("hdiutil", "failed: the image is still attached"),
])
def test_what_a_mac_tries_by_itself_can_fail(mac_like, tmp_path, program, said):
    # More output follows than a pipe holds.
    spoilt = {"codesign": "[ $1 != --verify ] || exit 1", "xattr": '[ "$1" != -r ] || { echo com.apple.quarantine; exec seq 99999; }',
              "hdiutil": '[ "$1" != info ] || { echo "$TMPDIR"/*; exec seq 99999; }'}
    (tmp_path / program).write_text((tmp_path / program).read_text().replace("#!/bin/sh\n", f"#!/bin/sh\n{spoilt[program]}\n"))
    done = mac_like()
    assert done.returncode == 1 and said in done.stderr, done.stdout + done.stderr


def test_the_workflow_names_scripts_and_presets_that_exist():
    scripts = re.findall(r"run: (\S*/\S+)", WORKFLOW)
    assert {".ci/run", "./dev", "packaging/macos/smoke.sh"} == set(scripts)
    assert all(os.access(ROOT / script, os.X_OK) for script in scripts)
    presets = {preset["name"] for preset in json.loads((ROOT / "CMakePresets.json").read_text())["configurePresets"]}
    assert {f"macos-{processor}" for processor in re.findall(r"processor: (\w+)", WORKFLOW)} <= presets


@pytest.mark.parametrize("processor, homebrew", [("arm64", "/opt/homebrew"), ("x86_64", "/usr/local")])
def test_on_a_mac_the_preset_looks_in_homebrews_folder_and_warnings_stop_nothing(tmp_path, processor, homebrew):
    probe = tmp_path / "probe.cmake"
    probe.write_text(f'set(CMAKE_HOST_SYSTEM_NAME Darwin)\nset(KELO_MACOS_ARCHITECTURE {processor})\n'
                     f'include("{ROOT}/cmake/toolchains/macos.cmake")\n'
                     'message("${CMAKE_OSX_ARCHITECTURES} ${CMAKE_PREFIX_PATH} ${KELO_WERROR}")\n')
    told = subprocess.run(["cmake", "-P", probe], check=True, capture_output=True, text=True).stderr
    assert told.strip() == f"{processor} {homebrew};{homebrew}/opt/openssl@3 OFF"


@pytest.mark.parametrize("identifier, team, status", [
    ("com.kelo.desk-installer", "QX7M4R2V9D", 0), ("com.kelo.desk-installer", "AAAAAAAAAA", 3), ("com.other", "QX7M4R2V9D", 3)])
def test_the_configuration_profile_allows_the_publishers_bundle_and_no_other(tmp_path, identifier, team, status):
    profile = plistlib.loads((ROOT / "packaging/macos/app-management.mobileconfig").read_bytes())
    (payload,) = profile["PayloadContent"]
    assert (profile["PayloadType"], payload["PayloadType"]) == ("Configuration", "com.apple.TCC.configuration-profile-policy")
    assert profile["PayloadUUID"] != payload["PayloadUUID"]
    ((service, (entry,)),) = payload["Services"].items()
    assert (service, entry["Authorization"], entry["StaticCode"]) == ("SystemPolicyAppBundles", "Allow", False)
    information = plistlib.loads((BUILD / "packaging/Info.plist").read_bytes())
    assert (entry["IdentifierType"], entry["Identifier"]) == ("bundleID", information["CFBundleIdentifier"])
    lab, authority, code = BUILD / "lab/bin", tmp_path / "authority", tmp_path / "code"
    subprocess.run([lab / "lab-sign", "make-authority", authority, "--team", team], check=True, capture_output=True)
    subprocess.run([lab / "lab-sign", "make-macho", code], check=True)
    subprocess.run([lab / "lab-sign", "sign", "--authority", authority, "--identifier", identifier, code], check=True, capture_output=True)
    codesign = shutil.copy(lab / "codesign", tmp_path / "codesign")
    (tmp_path / "linux_host.json").write_text(json.dumps({"testAuthority": str(authority / "root.pem")}))
    judged = subprocess.run([codesign, "--verify", "-R", "=" + entry["CodeRequirement"], code], capture_output=True, text=True)
    assert judged.returncode == status, judged.stderr
