import hashlib
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

import pytest

sys.path.insert(0, os.path.dirname(__file__))

import hostile_cdn
import online_machine
from prompt_server import PromptServer
from support import ENGINE, LAB, RUNNING_AS_ROOT, TEAM, Installation, give_away, lab


@pytest.fixture(scope="session")
def workshop():
    """A folder of the session that the unprivileged user can access."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="kelo-e2e-"))
    folder.chmod(0o755)
    yield folder
    subprocess.run(["chmod", "-R", "u+rwX", str(folder)], check=False)
    shutil.rmtree(folder, ignore_errors=True)


@pytest.fixture(scope="session")
def installer_of(workshop):
    """version -> the folder of an offline installer with images of that version. Each is made once."""
    made = {}

    def make(version, *options):
        key = (version, *options)
        if key not in made:
            output = workshop / f"installer-{len(made)}-{version}"
            subprocess.run(
                [str(LAB / "lab-fixture"), "offline-installer", "--engine", str(ENGINE), "--programs", str(LAB),
                 "--machine", str(workshop / "unused"), "--version", version, "--output", str(output), *options],
                check=True, capture_output=True,
            )
            made[key] = output
        return made[key]

    return make


@pytest.fixture
def installation(workshop, installer_of):
    """version -> a new Installation; those of one test can share a machine."""
    folders = []

    def make(version="2.0", *options, machine=None):
        folder = pathlib.Path(tempfile.mkdtemp(prefix="run-", dir=workshop))
        folder.chmod(0o755)
        made = Installation(folder, installer_of(version, *options))
        if machine is not None:
            made.root = machine.root
            made.applications, made.volumes, made.temporary = machine.applications, machine.volumes, machine.temporary
            made.settings(root=str(machine.root))
        folders.append(made)
        return made

    yield make
    for made in folders:
        made.remove()


@pytest.fixture
def prompt(workshop):
    """answer -> a running PromptServer that the installation's host uses. Needs root."""
    servers = []

    def make(installation, answer):
        if not RUNNING_AS_ROOT:
            pytest.skip("only root can simulate an administrator prompt")
        path = installation.folder / f"prompt-{len(servers)}"
        server = PromptServer(path, answer)
        servers.append(server)
        # The host interprets the exit statuses 126 and 127 only from a program of this name.
        client = installation.folder / "pkexec"
        shutil.copy(pathlib.Path(__file__).parent / "prompt_client.py", client)
        client.chmod(0o755)
        installation.settings(administrator={"command": [str(client), str(path)]})
        return server

    yield make
    for server in servers:
        server.close()


@pytest.fixture(scope="session")
def authority(workshop):
    folder = workshop / "authority"
    lab("lab-sign", "make-authority", folder, "--team", TEAM)
    return folder


@pytest.fixture
def signed(installation, authority):
    """version -> an Installation with signed images that requires its own team."""

    def make(version="2.0", **options):
        return installation(version, "--authority", str(authority), "--team-id", TEAM, **options)

    return make


@pytest.fixture
def repackage(authority, tmp_path):
    """Replaces the bundle in the image of Kelo Rulo: signed as `variant`, then changed."""

    def make(machine, spoil=None, variant="valid", sign=True):
        lab("lab-fixture", "app", "--app", "rulo", "--version", "2.0", "--output", tmp_path / "volume")
        app = tmp_path / "volume/Kelo Rulo.app"
        if sign:
            lab("lab-sign", "sign", "--authority", authority, "--variant", variant, app)
        if spoil:
            spoil(app)
        image = machine.packages / "rulo_installer.dmg"
        image.unlink()
        lab("lab-diskimage", "--volume-name", "Kelo Rulo", tmp_path / "volume", image)

        def promise(index):
            for entry in index.values():
                if entry["destination"] == image.name:
                    entry.update(checksum=hashlib.sha256(image.read_bytes()).hexdigest(), size=image.stat().st_size)

        machine.manifest(promise)
        give_away(machine.packages)

    return make


@pytest.fixture(scope="session")
def online_workshop(workshop):
    folder = workshop / "online"
    folder.mkdir(mode=0o755)
    return online_machine.Workshop(folder)


@pytest.fixture
def stage(online_workshop, tmp_path):
    with hostile_cdn.HostileCDN(tmp_path / "cdn", online_machine.NAMES) as cdn:
        yield online_machine.Stage(online_workshop, tmp_path, cdn)
