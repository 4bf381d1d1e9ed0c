"""An administrator prompt for tests, which runs commands as root or refuses them.

The engine's host is configured to use `prompt_client.py SOCKET` as its prompt. The client passes its command line and
its three streams to this server, which runs as root, counts the prompts, and refuses or runs the command. The socket
is in the test's folder.
"""

import array
import json
import os
import socket
import subprocess
import threading


class PromptServer:
    def __init__(self, path, answer="accept"):
        self.path = str(path)
        self.answer = answer  # "accept", "dismiss" (a closed prompt) or "deny" (a wrong password)
        self.prompts = 0
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.bind(self.path)
        os.chmod(self.path, 0o777)
        self._socket.listen()
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def _serve(self):
        while True:
            try:
                connection, _ = self._socket.accept()
            except OSError:
                return
            threading.Thread(target=self._answer, args=(connection,), daemon=True).start()

    def _answer(self, connection):
        with connection:
            descriptors = array.array("i")
            data, ancillary, _, _ = connection.recvmsg(1 << 16, socket.CMSG_SPACE(3 * descriptors.itemsize))
            for _, _, payload in ancillary:
                descriptors.frombytes(payload[: 3 * descriptors.itemsize])
            self.prompts += 1
            status = {"dismiss": 126, "deny": 127}.get(self.answer)
            if status is None:
                status = subprocess.call(
                    json.loads(data), stdin=descriptors[0], stdout=descriptors[1], stderr=descriptors[2]
                )
            for descriptor in descriptors:
                os.close(descriptor)
            connection.sendall(bytes([status & 0xFF]))

    def close(self):
        # If the thread still waited on this descriptor, it would accept the connections of the next socket with that number.
        self._socket.shutdown(socket.SHUT_RDWR)
        self._thread.join()
        self._socket.close()
