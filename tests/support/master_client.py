"""A client of a master server whose every byte is the test's own, from identities to answers."""

import dataclasses
import json
import pathlib
import ssl
import subprocess

PORT = 1556
TIMEOUT = 60
HOSTS = "/torquenix/config/hosts"
TOKENS = "/torquenix/security/tokens"
ENROLLMENTS = "/torquenix/security/enrollments"
RENEWALS = "/torquenix/security/renewals"


@dataclasses.dataclass(frozen=True)
class Identity:
    """A host as a master server knows it. `pem` is a file with its key and its certificate."""

    host_name: str
    host_id: str
    pem: pathlib.Path
    token: str = ""

    @property
    def path(self):
        return f"{HOSTS}/{self.host_id}"


@dataclasses.dataclass(frozen=True)
class Answer:
    status: int
    headers: dict
    body: bytes

    def json(self):
        return json.loads(self.body)


def read_chunks(stream):
    """The body of an answer in chunks; a body that ends early is an error."""
    body = b""
    while True:
        size = int(stream.readline(), 16)
        chunk = stream.read(size + 2)
        if len(chunk) != size + 2:
            raise EOFError("cut off inside a chunk")
        if size == 0:
            return body
        body += chunk[:-2]


def read_answer(stream):
    """The next answer of a stream; None when the server has closed, or refuses the connection."""
    try:
        words = stream.readline().split(None, 2)
        if not words:
            return None
        headers = {}
        while (line := stream.readline().strip()) != b"":
            name, value = line.split(b":", 1)
            headers[name.strip().lower().decode()] = value.strip().decode()
        if headers.get("transfer-encoding") == "chunked":
            body = read_chunks(stream)
        else:
            body = stream.read(int(headers.get("content-length", 0)))
    except (ssl.SSLError, ConnectionError):
        return None
    return Answer(int(words[1]), headers, body)


def compose(method, target, identity=None, body=b"", headers=(), close=False):
    """A well-formed request, but for what a test puts into its parts."""
    lines = [f"{method} {target} HTTP/1.1".encode("latin-1"), b"Host: master1.example"]
    if identity is not None and identity.token:
        lines.append(b"Authorization: Bearer " + identity.token.encode())
    if body:
        lines.append(b"Content-Length: %d" % len(body))
    if close:
        lines.append(b"Connection: close")
    lines += [header if isinstance(header, bytes) else header.encode() for header in headers]
    return b"\r\n".join(lines) + b"\r\n\r\n" + body


def openssl(*arguments, env=None):
    subprocess.run(["openssl", *map(str, arguments)], check=True, capture_output=True, env=env)


def make_request(folder, name, *arguments):
    """A certificate request in PEM, and the file of its new P-256 key."""
    key, request = folder / f"{name}.key", folder / f"{name}.csr"
    openssl("req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-keyout",
            key, "-out", request, *(arguments or ("-subj", "/CN=anything")))  # fmt: skip
    return request.read_text(), key


class MasterClient:
    """Talks to one master server in a sandbox; may be used by several threads."""

    def __init__(self, box, master):
        self.box = box
        self.master = master
        self.folder = box.work / "clients"
        self.folder.mkdir(exist_ok=True)

    def connect_plain(self, **options):
        return self.box.connect(self.master.address, PORT, **options)

    @staticmethod
    def context(identity=None, **settings):
        """A TLS context that shows an identity's certificate and looks at nobody's."""
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        context.check_hostname = False
        context.verify_mode = ssl.CERT_NONE
        context.set_ciphers("ALL:@SECLEVEL=0")
        if identity is not None:
            context.load_cert_chain(identity.pem)
        for name, value in settings.items():
            setattr(context, name, value)
        return context

    def connect(self, identity=None, context=None, session=None, **options):
        """A connection after its handshake. Raises ssl.SSLError or ConnectionError when it is refused."""
        connection = self.connect_plain(timeout=TIMEOUT, **options)
        try:
            return (context or self.context(identity)).wrap_socket(connection, session=session)
        except OSError:
            connection.close()
            raise

    def send(self, data, identity=None, answers=1, context=None):
        """Sends bytes on a connection of their own; the first `answers` answers, fewer when it is closed."""
        try:
            connection = self.connect(identity, context)
        except (ssl.SSLError, ConnectionError):
            return []
        with connection, connection.makefile("rb") as stream:
            try:
                connection.sendall(data)
            except (ssl.SSLError, ConnectionError):
                pass  # a server that has heard enough may hang up; it may have answered all the same
            found = []
            while len(found) < answers and (answer := read_answer(stream)) is not None:
                found.append(answer)
            return found

    def ask(self, method, target, identity=None, body=b"", headers=()):
        """One well-formed request; its answer, None when the connection is refused."""
        answers = self.send(compose(method, target, identity, body, headers, close=True), identity)
        return answers[0] if answers else None

    def put(self, identity, **record):
        return self.ask("PUT", identity.path, identity, json.dumps(record).encode())

    def stored(self, identity):
        """All records as the server gives them."""
        return self.ask("GET", HOSTS, identity).json()["hosts"]

    # Identities

    def take_token(self, identity):
        answer = self.ask("POST", TOKENS, identity, b"{}")
        return dataclasses.replace(identity, token=answer.json()["token"])

    def redeem(self, invitation, request):
        body = {"invitation": invitation, "certificateRequest": request}
        return self.ask("POST", ENROLLMENTS, body=json.dumps(body).encode())

    def keep(self, name, key, answer):
        """The identity that an answered enrolment gives, without a token."""
        pem = self.folder / f"{name}.pem"
        pem.write_text(key.read_text() + answer.json()["certificate"])
        return Identity(name, answer.json()["hostId"], pem)

    def enrol(self, name):
        """Invites, enrols and takes a token."""
        request, key = make_request(self.folder, name)
        answer = self.redeem(self.master.invite(name).text, request)
        return self.take_token(self.keep(name, key, answer))
