#!/usr/bin/python3
"""A CDN over TLS that misbehaves as scripted.

In a test: `with HostileCDN(folder, names) as cdn: cdn.on("/a.dmg", {...}, {...})`. As a program, for tests in
another language:

  hostile_cdn.py --folder DIR --names a.example,b.example --script FILE

prints {"port": N, "authority": PATH} and serves until its standard input closes; then it writes the received
requests to DIR/requests.json. FILE holds {"hosts": {NAME: KIND}, "paths": {PATH: [ANSWER, ...]}}.

An answer is a dict. Each answer of a path is used once; the last one is repeated. Keys:

  text, file, or bytes and seed
                            the body: UTF-8 text, a file, or that many bytes of the pattern `seed`
  status                    200 by default
  headers                   additional fields; None removes a default one
  etag                      literal, with quotes; None omits it. Derived from the body by default
  ranges                    the answer to a range request:
                            "honour" (206 if If-Range matches, else 200; the default), "ignore",
                            "wrongStart", "shortRange", "wrongTotal", "noContentRange", "wrongLength", "changedTag",
                            "always" (206 regardless of If-Range), or a status such as 412
  unasked                   a 206 without a range request
  location                  a redirect, with status 302 by default
  resetAt, closeAt          after that many bytes of the body: a reset, or an orderly close
  stallAt                   after that many bytes of the body: nothing more until the client disconnects
  drip                      [bytes, seconds]: that many bytes per interval
  length                    "none", "chunked", or a false Content-Length
  extra                     bytes after the announced body
  hangUp                    no answer
  garbage                   an answer that isn't HTTP
  head                      the literal head instead of the default one: a list of texts and of [text, count],
                            which is repeated
  encoding                  "gzip": a compressed body, declared in the head
  gate                      [name, count]: no answer until that many requests wait at the gate of that name

Kinds of hosts: "otherName" has a certificate for another name, "stranger" one from an unknown authority; "hangUp" and
"reset" disconnect during the handshake, "alert" ends it with a TLS alert, and "plain" uses HTTP without TLS.
"""

import argparse
import contextlib
import ctypes
import email.utils
import gzip
import hashlib
import json
import os
import socket
import socketserver
import ssl
import struct
import sys
import threading
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[4] / "lab" / "cdn"))
import authority

CHUNK = 64 * 1024


def pattern(count, seed=0):
    """`count` bytes that depend on position and seed."""
    block = b"".join(hashlib.sha256(f"{seed}:{index}".encode()).digest() for index in range(256))
    stamped = bytearray(block * (count // len(block) + 1))[:count]
    for offset in range(0, count - 8, len(block)):
        struct.pack_into(">Q", stamped, offset, offset)
    return bytes(stamped)


def body_of(answer):
    if "encoding" in answer:
        return gzip.compress(body_of({key: value for key, value in answer.items() if key != "encoding"}), mtime=0)
    if "text" in answer:
        return answer["text"].encode()
    if "file" in answer:
        return Path(answer["file"]).read_bytes()
    return pattern(answer.get("bytes", 0), answer.get("seed", 0))


class Request:
    def __init__(self, head):
        lines = head.decode("latin-1").split("\r\n")
        self.method, self.path, _ = lines[0].split(" ", 2)
        self.fields = {}
        for line in lines[1:]:
            name, _, value = line.partition(":")
            if value:
                self.fields[name.strip().lower()] = value.strip()

    @property
    def first_byte(self):
        """The first byte of a range request, or None."""
        text = self.fields.get("range", "")
        return int(text[6:-1]) if text.startswith("bytes=") and text.endswith("-") else None


class Answer:
    """The status line, the fields and the body of one answer."""

    def __init__(self, plan, request):
        self.plan = plan
        self.wire = plan.get("head")
        self.body = body_of(plan)
        self.status = plan.get("status", 302 if "location" in plan else 200)
        self.fields = {"Date": email.utils.formatdate(usegmt=True), "Content-Type": "application/octet-stream",
                       "Accept-Ranges": "bytes", "Connection": "close"}
        self.etag = plan.get("etag", f'"{hashlib.sha256(self.body).hexdigest()[:16]}"')
        if "encoding" in plan:
            self.fields["Content-Encoding"] = plan["encoding"]
        if "location" in plan:
            self.fields["Location"] = plan["location"]
        if self.status == 200:
            self._part(request)
        if self.etag is not None:
            self.fields["ETag"] = self.etag
        self._length()
        for name, value in plan.get("headers", {}).items():
            self.fields.pop(name, None)
            if value is not None:
                self.fields[name] = value

    def _part(self, request):
        mode = self.plan.get("ranges", "honour")
        first = request.first_byte
        if first is None:
            if self.plan.get("unasked"):
                self._partial(1, len(self.body) - 1, len(self.body))
            return
        if isinstance(mode, int):
            self.status, self.body = mode, b""
            return
        agrees = request.fields.get("if-range", self.etag) == self.etag
        if mode == "ignore" or (mode == "honour" and not agrees):
            return
        if mode == "honour" and first >= len(self.body):
            self.status, self.body = 416, b""
            return
        self._distorted_part(mode, first)

    def _distorted_part(self, mode, first):
        total = len(self.body)
        last = total - 1
        if mode == "wrongStart":
            first = first // 2
        if mode == "shortRange":
            last = first + (last - first) // 2
        if mode == "wrongTotal":
            total += 1
        if mode == "changedTag":
            self.etag = '"another version"'
        self._partial(first, last, total)
        if mode == "noContentRange":
            del self.fields["Content-Range"]
        if mode == "wrongLength":
            self.body = self.body[:-1]

    def _partial(self, first, last, total):
        self.status = 206
        self.fields["Content-Range"] = f"bytes {first}-{last}/{total}"
        self.body = self.body[first:last + 1]

    def _length(self):
        length = self.plan.get("length", len(self.body))
        if length == "chunked":
            self.fields["Transfer-Encoding"] = "chunked"
        elif length != "none":
            self.fields["Content-Length"] = str(length)

    def head(self):
        if self.wire is not None:
            pieces = ([piece, 1] if isinstance(piece, str) else piece for piece in self.wire)
            return "".join(text * count for text, count in pieces).encode("latin-1")
        lines = [f"HTTP/1.1 {self.status} Scripted"] + [f"{name}: {value}" for name, value in self.fields.items()]
        return ("\r\n".join(lines) + "\r\n\r\n").encode("latin-1")


class Handler(socketserver.BaseRequestHandler):
    def handle(self):
        cdn = self.server.cdn
        try:
            self.request.settimeout(30)
            with cdn.context.wrap_socket(self.request, server_side=True) as connection:
                self._serve(cdn, connection)
        except (OSError, ValueError):
            pass

    def _serve(self, cdn, connection):
        head = b""
        while b"\r\n\r\n" not in head:
            got = connection.recv(CHUNK)
            if not got:
                return
            head += got
        request = Request(head.split(b"\r\n\r\n", 1)[0])
        plan = cdn.next_answer(request.path)
        record = {"method": request.method, "host": request.fields.get("host", ""), "path": request.path,
                  "from": request.first_byte, "ifRange": request.fields.get("if-range"), "status": None, "sent": 0}
        cdn.remember(record)
        if "gate" in plan:
            cdn.wait_at_gate(*plan["gate"])
        if plan.get("hangUp"):
            return
        if plan.get("garbage"):
            connection.sendall(b"\x00\x01 this isn't HTTP\r\n\r\n")
            return
        answer = Answer(plan, request)
        record["status"] = answer.status
        connection.sendall(answer.head())
        if request.method != "HEAD":
            self._send_body(connection, answer, record)

    def _send_body(self, connection, answer, record):
        plan, body = answer.plan, answer.body + b"x" * answer.plan.get("extra", 0)
        ends = [plan[key] for key in ("resetAt", "closeAt", "stallAt") if key in plan]
        limit = min([len(body), *ends])
        step, pause = plan.get("drip", [CHUNK, 0])
        for start in range(0, limit, step):
            piece = body[start:min(start + step, limit)]
            if plan.get("length") == "chunked":
                piece = f"{len(piece):x}\r\n".encode() + piece + b"\r\n"
            connection.sendall(piece)
            record["sent"] += min(step, limit - start)
            if pause:
                time.sleep(pause)
        if "stallAt" in plan:
            self._wait_for_the_client_to_go(connection)
        elif "resetAt" in plan:
            self._reset(connection)
        elif plan.get("length") == "chunked" and "closeAt" not in plan:
            connection.sendall(b"0\r\n\r\n")
        if "resetAt" not in plan and "stallAt" not in plan:
            connection.unwrap()

    @staticmethod
    def _wait_for_the_client_to_go(connection):
        connection.settimeout(180)
        while connection.recv(CHUNK):
            pass

    @staticmethod
    def _reset(connection):
        # The sent bytes have to arrive before the reset.
        connection.settimeout(0.2)
        with contextlib.suppress(OSError):
            connection.recv(1)
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        socket.socket(fileno=connection.detach()).close()


class Server(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True
    request_queue_size = 128

    def handle_error(self, request, client_address):
        pass


class HostileCDN:
    def __init__(self, folder, names, hosts=None):
        folder = Path(folder)
        self.names = list(names)
        self.authority = authority.make_authority(folder / "authority")
        self.context = self._context(folder / "authority", "server", self.names)
        self._strange = {"otherName": self._context(folder / "authority", "other", ["other.example"]),
                         "stranger": self._context(folder / "stranger", "server", self.names)}
        self._hosts = dict(hosts or {})
        self.context.sni_callback = self._choose_certificate
        self._paths = {}
        self._lock = threading.Lock()
        self._gates = {}
        self.requests = []
        self._server = Server(("127.0.0.1", 0), Handler)
        self._server.cdn = self
        self.port = self._server.server_address[1]
        self._thread = threading.Thread(target=self._server.serve_forever, kwargs={"poll_interval": 0.05})

    @staticmethod
    def _context(folder, label, names):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(*authority.make_certificate(folder, label, names))
        return context

    def _choose_certificate(self, connection, name, _context):
        kind = self._hosts.get(name)
        if kind in self._strange:
            connection.context = self._strange[kind]
        elif kind:
            with socket.socket(fileno=os.dup(connection.fileno())) as below:
                if kind == "plain":
                    below.sendall(b"HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n")
                if kind == "alert":
                    below.sendall(b"\x15\x03\x03\x00\x02\x02\x28")
                if kind == "reset":
                    ctypes.CDLL(None).connect(below.fileno(), bytes(16), 16)  # to no address: closes with a reset
                    return
                with contextlib.suppress(OSError):  # the client may have disconnected
                    below.shutdown(socket.SHUT_RDWR)

    def on(self, path, *answers):
        with self._lock:
            self._paths[path] = list(answers)

    def next_answer(self, path):
        with self._lock:
            answers = self._paths.get(path)
            if not answers:
                return {"status": 404, "text": "not here", "etag": None}
            return answers.pop(0) if len(answers) > 1 else answers[0]

    def remember(self, record):
        with self._lock:
            self.requests.append(record)

    def wait_at_gate(self, name, count):
        with self._lock:
            gate = self._gates.setdefault(name, threading.Barrier(count))
        with contextlib.suppress(threading.BrokenBarrierError):
            gate.wait(30)

    def requests_for(self, path):
        with self._lock:
            return [dict(record) for record in self.requests if record["path"] == path]

    @property
    def host_settings(self):
        """The keys of linux_host.json for reaching this server under its names."""
        return {"extraCertificateAuthority": str(self.authority),
                "hostAddresses": dict.fromkeys(self.names, f"127.0.0.1:{self.port}")}

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._server.shutdown()
        self._server.server_close()
        self._thread.join()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--folder", required=True)
    parser.add_argument("--names", required=True)
    parser.add_argument("--script", required=True)
    arguments = parser.parse_args()
    script = json.loads(Path(arguments.script).read_text())
    with HostileCDN(arguments.folder, arguments.names.split(","), script.get("hosts")) as cdn:
        for path, answers in script["paths"].items():
            cdn.on(path, *answers)
        print(json.dumps({"port": cdn.port, "authority": str(cdn.authority)}), flush=True)
        sys.stdin.read()
        Path(arguments.folder, "requests.json").write_text(json.dumps(cdn.requests))


if __name__ == "__main__":
    main()
