"""A proxy on loopback that tunnels every name to one port of this machine and records the requests.

`with ConnectProxy(port) as proxy: proxy.url, proxy.asked`. With `status` it refuses with that status.
"""

import socket
import socketserver
import threading

CHUNK = 64 * 1024


class Handler(socketserver.BaseRequestHandler):
    def handle(self):
        try:
            self.request.settimeout(60)
            self._tunnel(self.server.proxy)
        except OSError:
            pass

    def _tunnel(self, proxy):
        head = b""
        while b"\r\n\r\n" not in head:
            got = self.request.recv(CHUNK)
            if not got:
                return
            head += got
        lines = head.decode("latin-1").split("\r\n")
        proxy.remember(lines[0], [line for line in lines if line.lower().startswith("proxy-authorization:")])
        if proxy.status is not None:
            self.request.sendall(f"HTTP/1.1 {proxy.status} No\r\nContent-Length: 0\r\n\r\n".encode())
            return
        with socket.create_connection(("127.0.0.1", proxy.target)) as target:
            self.request.sendall(b"HTTP/1.1 200 Connection established\r\nVia: kelo\r\n\r\n")
            back = threading.Thread(target=self._copy, args=(target, self.request), daemon=True)
            back.start()
            self._copy(self.request, target)
            back.join()

    @staticmethod
    def _copy(source, sink):
        try:
            while got := source.recv(CHUNK):
                sink.sendall(got)
            sink.shutdown(socket.SHUT_WR)
        except OSError:
            pass


class Server(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True


class ConnectProxy:
    def __init__(self, target, status=None):
        self.target = target
        self.status = status
        self.asked = []
        self.credentials = []
        self._lock = threading.Lock()
        self._server = Server(("127.0.0.1", 0), Handler)
        self._server.proxy = self
        self._thread = threading.Thread(target=self._server.serve_forever, kwargs={"poll_interval": 0.05})

    def remember(self, line, credentials):
        with self._lock:
            self.asked.append(line)
            self.credentials += credentials

    @property
    def address(self):
        return f"127.0.0.1:{self._server.server_address[1]}"

    @property
    def url(self):
        return f"http://{self.address}"

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._server.shutdown()
        self._server.server_close()
        self._thread.join()
