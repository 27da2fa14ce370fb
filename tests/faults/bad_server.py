"""A master server's web service that misbehaves in as many ways as it has addresses (bad_modes.py).

Runs inside a sandbox. Every connection and every request is written to a file, one JSON object a line, so
that a test can tell how often a client came and what it told.
"""

import argparse
import dataclasses
import http.client
import json
import pathlib
import selectors
import socket
import ssl
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

import bad_modes  # noqa: E402
from bad_modes import REQUESTS, TOKENS, Request, Reset  # noqa: E402

PORT = 1556
HEAD_MAX_BYTES = 1 << 16
FAREWELL_SECONDS = 10
IDENTITY = pathlib.Path("/usr/torqv/var/identity")
REAL_MASTER = "127.0.0.2"


@dataclasses.dataclass(frozen=True)
class Place:
    """What a listening socket stands for."""

    mode: str
    face: int
    port: int = PORT

    @property
    def address(self):
        return bad_modes.address_of(self.mode, self.face)


class Record:
    """The file of what arrived."""

    def __init__(self, path):
        self._path = path
        self._lock = threading.Lock()

    def add(self, place, event, **facts):
        entry = {"mode": place.mode, "face": place.face, "port": place.port, "event": event} | facts
        with self._lock, open(self._path, "a", encoding="utf-8") as file:
            file.write(json.dumps(entry) + "\n")


def read_request(connection, with_body=True):
    """The next request of a connection; None when the client has gone."""
    data = b""
    while b"\r\n\r\n" not in data:
        more = connection.recv(4096)
        if not more or len(data) > HEAD_MAX_BYTES:
            return None
        data += more
    text, _, body = data.partition(b"\r\n\r\n")
    first, *lines = text.decode("latin-1").split("\r\n")
    headers = {name.lower(): value.strip() for name, _, value in (line.partition(":") for line in lines)}
    method, target, _ = first.split(" ")
    length = int(headers.get("content-length", 0)) if with_body else 0
    while len(body) < length:
        more = connection.recv(65536)
        if not more:
            return None
        body += more
    return Request(method, target.lstrip("/"), headers, body)


def host_names(certificate):
    return [value for kind, value in (certificate or {}).get("subjectAltName", ()) if kind == "DNS"]


def store_for_real(request):
    """Hands a request on to the real master server, under this host's own identity."""
    identity = json.loads((IDENTITY / "identity.json").read_text())["identities"][0]
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.check_hostname = False
    context.load_verify_locations(IDENTITY / identity["caCertificates"])
    context.load_cert_chain(IDENTITY / identity["certificate"], IDENTITY / identity["privateKey"])
    server = http.client.HTTPSConnection(REAL_MASTER, PORT, context=context)
    headers = {name: request.headers[name] for name in ("authorization", "content-type")}
    server.request(request.method, "/" + request.path, request.body, headers)
    status = server.getresponse().status
    server.close()
    return status


def finish(connection):
    """Ends a connection without TLS's farewell but with everything sent arriving: what is not read would
    make it a reset."""
    connection.settimeout(FAREWELL_SECONDS)
    connection.shutdown(socket.SHUT_WR)
    while connection.recv(65536):
        pass


class Server:
    """All places, each with its listening socket, and a thread for each connection."""

    def __init__(self, certificates, record):
        self._certificates = certificates
        self._record = record
        self._selector = selectors.DefaultSelector()
        self._contexts = {name: self._context(tls) for name, tls in bad_modes.TLS.items()}
        self._good = self._context(bad_modes.Tls())
        self._kept = []

    def _context(self, tls):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.minimum_version, context.maximum_version = tls.lowest, tls.highest
        if tls.ciphers:
            context.set_ciphers(tls.ciphers)
        context.load_cert_chain(self._certificates / f"{tls.certificate}.pem")
        context.load_verify_locations(self._certificates / f"{tls.clients_of}.crt")
        context.verify_mode = tls.client
        return context

    def listen(self, place):
        listener = socket.socket()
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        if place.mode == bad_modes.NEVER_READS:
            listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        listener.bind((place.address, place.port))
        if place.mode == bad_modes.QUEUE_FULL:
            self._fill(listener)
            return
        listener.listen(64)
        self._selector.register(listener, selectors.EVENT_READ, place)

    def _fill(self, listener):
        """Nobody accepts here, and the queue of those who wait is full."""
        listener.listen(0)
        self._kept.append(listener)
        for _ in range(4):
            client = socket.socket()
            client.setblocking(False)
            client.connect_ex(listener.getsockname())
            self._kept.append(client)

    def listen_for_names(self, address):
        """A name server that never says a word."""
        silent = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        silent.bind((address, 53))
        self._kept.append(silent)

    def serve_forever(self):
        while True:
            for key, _ in self._selector.select():
                connection, _ = key.fileobj.accept()
                threading.Thread(target=self._serve, args=(key.data, connection), daemon=True).start()

    def _serve(self, place, connection):
        self._record.add(place, "connection")
        try:
            if place.port != PORT:
                self._record.add(place, "bytes", count=len(connection.recv(4096)))
            elif place.mode in bad_modes.CONNECTIONS:
                bad_modes.CONNECTIONS[place.mode](connection)
            else:
                context = self._contexts.get(place.mode, self._good)
                self._talk(place, connection, context)
        except (OSError, ValueError):
            pass  # a client that goes away is nothing to report
        finally:
            connection.close()

    def _talk(self, place, connection, context):
        """Answers requests until one of them was answered badly."""
        try:
            secured = context.wrap_socket(connection, server_side=True)
        except OSError as error:
            self._record.add(place, "refused", cause=str(error))
            return
        with secured:
            while (request := read_request(secured, place.mode != bad_modes.NEVER_READS)) is not None:
                self._keep(place, secured, request)
                if self._is_spoiled(place, request):
                    self._misbehave(place, secured, request)
                    return
                secured.sendall(bad_modes.good_answer(request))

    @staticmethod
    def _is_spoiled(place, request):
        of_this_face = request.is_for_token == (place.face == TOKENS)
        return place.mode not in bad_modes.TLS and (of_this_face or place.mode in bad_modes.EVERY_ANSWER)

    def _keep(self, place, connection, request):
        self._record.add(
            place,
            "request",
            method=request.method,
            path=request.path,
            authorization=request.headers.get("authorization", ""),
            length=int(request.headers.get("content-length", 0)),
            client=host_names(connection.getpeercert()),
        )

    def _misbehave(self, place, connection, request):
        try:
            if place.mode == bad_modes.NEVER_READS:
                time.sleep(bad_modes.SILENCE_SECONDS)
            if place.mode == bad_modes.STORED_THEN_RESET:
                self._record.add(place, "stored", status=store_for_real(request))
                raise Reset
            for piece in bad_modes.REPLIES.get(place.mode, bad_modes.REPLIES["good"])(request):
                connection.sendall(piece)
            finish(connection)
        except Reset:
            bad_modes.reset(connection)


def places():
    for mode in bad_modes.MODES:
        yield Place(mode, REQUESTS)
        yield Place(mode, TOKENS)
    # Where redirects to another port lead: the same address, once for every redirect.
    for mode in bad_modes.MODES:
        if mode.startswith("redirect-") or mode == bad_modes.TARGET:
            yield Place(mode, REQUESTS, bad_modes.PLAIN_PORT)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--certificates", required=True, type=pathlib.Path)
    parser.add_argument("--record", required=True, type=pathlib.Path)
    parser.add_argument("--ready", required=True, type=pathlib.Path, help="made once all places listen")
    arguments = parser.parse_args()
    server = Server(arguments.certificates, Record(arguments.record))
    for place in places():
        server.listen(place)
    for address in bad_modes.DEAD_NAME_SERVERS:
        server.listen_for_names(address)
    arguments.ready.touch()
    server.serve_forever()


if __name__ == "__main__":
    main()
