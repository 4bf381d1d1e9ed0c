import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

import pytest

sys.path.insert(0, os.path.dirname(__file__))

from prompt_server import PromptServer
from support import ENGINE, LAB, RUNNING_AS_ROOT, Installation


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
    """version -> the folder of an offline installer with images of that version, made once."""
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
            pytest.skip("an administrator prompt can be played by root only")
        path = installation.folder / f"prompt-{len(servers)}"
        server = PromptServer(path, answer)
        servers.append(server)
        # With this name the host interprets the exit statuses 126 and 127.
        client = installation.folder / "pkexec"
        shutil.copy(pathlib.Path(__file__).parent / "prompt_client.py", client)
        client.chmod(0o755)
        installation.settings(administrator={"command": [str(client), str(path)]})
        return server

    yield make
    for server in servers:
        server.close()
