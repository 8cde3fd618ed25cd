"""Servers that do what nginx cannot. A machine starts one by its name: `machine.odd_server("slow", 20)`."""

import contextlib
import itertools
import socket
import ssl
import sys
import threading
import time

TLS_FOLDER = "/srv/vendor/tls"


def ready():
    print("ready", flush=True)


def raw():
    """Prints one HTTP request byte for byte, and answers with status 404."""
    with socket.create_server(("127.0.0.1", 80)) as listener:
        ready()
        with listener.accept()[0] as connection:
            print(connection.recv(9999).decode(), end="")
            connection.sendall(b"HTTP/1.0 404 None\r\n\r\n")


def names():
    """A name server that prints "asked" at the first query, and never answers."""
    server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    server.bind(("127.0.0.9", 53))
    ready()
    server.recv(512)
    print("asked", flush=True)
    while True:  # keep reading: a closed port would be an answer
        server.recv(512)


class SlowTls:
    """The TLS server side of one connection; pauses before each quarter of everything that it sends."""

    def __init__(self, connection, silence):
        self._connection, self._silence = connection, silence
        self._received, self._sent = ssl.MemoryBIO(), ssl.MemoryBIO()
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(f"{TLS_FOLDER}/certificate.pem", f"{TLS_FOLDER}/key.pem")
        self._tls = context.wrap_bio(self._received, self._sent, server_side=True)
        self._until_done(self._tls.do_handshake)
        self._send()

    def _until_done(self, step):
        while True:
            try:
                return step()
            except ssl.SSLWantReadError:
                self._send()
                self._received.write(self._connection.recv(9999))

    def _send(self):
        flight = self._sent.read()
        step = -(-len(flight) // 4)
        for start in range(0, len(flight), max(step, 1)):
            time.sleep(self._silence)
            self._connection.sendall(flight[start:start + step])

    def answer(self, *pieces):
        self._until_done(lambda: self._tls.read(9999))
        for piece in pieces:
            self._tls.write(piece)
            self._send()


def slow(rate):
    """Its first address never answers. The second sends the version 3, with pauses of four seconds by a clock that
    runs `rate` times as fast."""
    listener = socket.create_server(("127.0.0.2", 443))
    full = socket.create_server(("127.0.0.1", 443), backlog=0)
    with full, socket.create_connection(("127.0.0.1", 443)):
        ready()
        server = SlowTls(listener.accept()[0], 4 / int(rate))
        server.answer(b"HTTP/1.1 200 OK\r\nServer: s", b"low\r\nContent-Length: 1\r\n", b"\r\n", b"3")


OK, CHUNKED = "HTTP/1.1 200 OK\r\n", "Transfer-Encoding: chunked\r\n\r\n"
FIELDS = [f"X-{number}: x\r\n" for number in range(10_000)]

# The start of each answer, and what is then repeated.
ENDLESS = {
    "a header": (OK + "X: ", ["x" * 10_000]),
    "headers": (OK, FIELDS),
    "interim answers": ("", ["HTTP/1.1 100 Continue\r\n\r\n" * 100]),
    "trailers": (OK + CHUNKED + "1\r\nx\r\n0\r\n", FIELDS),
    "a chunk extension": (OK + CHUNKED + "1;", ["x" * 10_000]),
    "chunk extensions": (OK + CHUNKED, ["1;" + "x" * 10_000 + "\r\nx\r\n"]),
    "a body that leads elsewhere": ("HTTP/1.1 302 Found\r\nLocation: /\r\n" + CHUNKED,
                                    ["2710\r\n" + "x" * 10_000 + "\r\n"]),
    "a status": ("HTTP/1.1 99999999999999999999 \x1b[2J\r\nContent-Length: 0\r\n\r\n", []),
}


def endless(address, name):
    """A TLS server whose answer ends only after a hundred megabytes. Prints how many bytes each client has read."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(f"{TLS_FOLDER}/certificate.pem", f"{TLS_FOLDER}/key.pem")
    first, again = ENDLESS[name]

    def answer(connection):
        taken = 0
        with contextlib.suppress(OSError), context.wrap_socket(connection, server_side=True) as stream:
            stream.recv(9999)
            for text in itertools.chain([first], itertools.cycle(again)):
                stream.sendall(text.encode())
                taken += len(text)
                if taken > 100_000_000:
                    break
        print(taken, flush=True)

    with socket.create_server((address, 443)) as listener:
        ready()
        while True:
            threading.Thread(target=answer, args=listener.accept()[:1]).start()


if __name__ == "__main__":
    {"raw": raw, "names": names, "slow": slow, "endless": endless}[sys.argv[1]](*sys.argv[2:])
