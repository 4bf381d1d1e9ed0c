"""A CDN with a high latency, and an engine that uses it."""

import asyncio
import contextlib
import json
import shutil
import sys
import threading
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "Tests" / "EndToEnd"))
import hostile_cdn

HOST = "cdn.kelo.example"
CATALOG = json.loads((Path(__file__).resolve().parents[3] / "protocol/catalog.json").read_text(encoding="utf-8"))["apps"]
# The architectures of the packages that the CDN has for each app.
ARCHITECTURES = {app["id"]: ("arm64", "x64") if app["cdnArch"] == "perArch" else ("universal",) for app in CATALOG}


class Relay:
    """A port that forwards to another one with a delay."""

    def __init__(self, target, latency):
        self._target = target
        self._one_way = latency / 2
        self._loop = asyncio.new_event_loop()
        self._server = self._loop.run_until_complete(asyncio.start_server(self._serve, "127.0.0.1", 0))
        self.port = self._server.sockets[0].getsockname()[1]
        threading.Thread(target=self._loop.run_forever, daemon=True).start()

    async def _serve(self, reader, writer):
        onward_reader, onward_writer = await asyncio.open_connection("127.0.0.1", self._target)
        await asyncio.gather(self._carry(reader, onward_writer), self._carry(onward_reader, writer))

    async def _carry(self, reader, writer):
        while True:
            try:
                piece = await reader.read(1 << 16)
            except ConnectionError:
                piece = b""
            if not piece:
                self._loop.call_later(self._one_way, writer.close)
                return
            self._loop.call_later(self._one_way, writer.write, piece)


@contextlib.contextmanager
def slow_engine(folder, build, latency):
    """A copy of the built engine, configured for a CDN with all apps. Each round trip takes `latency` seconds."""
    with hostile_cdn.HostileCDN(folder / "cdn", [HOST]) as cdn:
        for app, architectures in ARCHITECTURES.items():
            cdn.on(f"/desksuite/apps/default/{app}/mac/{architectures[-1]}/dmg/latest/meta.json", {"text": '{"version": "2.1"}'})
        relay = Relay(cdn.port, latency)
        settings = {**cdn.host_settings, "hostAddresses": {HOST: f"127.0.0.1:{relay.port}"}}
        (folder / "linux_host.json").write_text(json.dumps({"root": str(folder / "machine"), **settings}))
        (folder / "installer_config.json").write_text(json.dumps(
            {"apps": {}, "trustedDownloadDomains": ["kelo.example"], "cdn": {"domains": {"us": f"https://{HOST}"}}}))
        yield shutil.copy(build / "engines/macos/engine-cli", folder / "engine-cli")
