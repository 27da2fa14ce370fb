"""The ways in which a master server's web service can misbehave: a name for each, and what it does.

Shared by the server (bad_server.py), which runs inside a sandbox, and by the tests, which choose a mode by
the address that they let the master server's name lead to: every mode has an address in each of two faces. In
the face of requests a mode spoils every answer but those about tokens, in the face of tokens only these.

A mode of CONNECTIONS gets the TCP connection before any TLS. A mode of REPLIES gets a request and gives the
bytes of its answer piece by piece; the connection is closed behind the last of them. A mode of TLS answers
well, but under a certificate or a protocol of its own.
"""

import dataclasses
import functools
import gzip
import json
import socket
import ssl
import struct
import time
import zlib

REQUESTS, TOKENS = 1, 2  # the faces
SILENCE_SECONDS = 600
DRIP_SECONDS = 1
MEGABYTE = 1 << 20
PLAIN_PORT = 8080  # where redirects to another port or to plain HTTP lead

HOST = {"uuid": "1", "hostName": "a"}


class Reset(Exception):
    """Ends the connection with a reset."""


@dataclasses.dataclass
class Request:
    """A request as it arrived."""

    method: str
    path: str
    headers: dict
    body: bytes

    @property
    def is_for_token(self):
        return self.path.endswith("/security/tokens")

    @property
    def success(self):
        """The HTTP status by which a good server answers it."""
        return {"POST": 201, "DELETE": 204}.get(self.method, 200)

    @property
    def good_body(self):
        if self.is_for_token:
            return json.dumps({"token": f"token-{time.monotonic_ns()}", "expiresIn": 3600}).encode()
        if self.method == "DELETE":
            return b""
        return self.body if self.method == "PUT" else json.dumps(HOST).encode()


def head(status, *headers):
    lines = [f"HTTP/1.1 {status} X", *headers]
    return "\r\n".join(lines).encode() + b"\r\n\r\n"


def complete(status, body, *headers):
    length = () if status in (204, 304) else (f"Content-Length: {len(body)}",)
    return head(status, *length, *headers) + body


def answer(status, body, *headers):
    """A complete answer before the connection is closed, which it says: a client that found out only by its
    next request could not tell whether that was lost."""
    return complete(status, body, "Connection: close", *headers)


def good_answer(request, *headers):
    return complete(request.success, request.good_body, "Content-Type: application/json", *headers)


def last_good_answer(request):
    return good_answer(request, "Connection: close")


# Connections


def reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def reset_after_accept(connection):
    connection.recv(1)  # else the reset may overtake the client's own look at its connection
    reset(connection)


def silence(_connection):
    time.sleep(SILENCE_SECONDS)


def send_to_tls(words):
    """Sends these bytes in place of a TLS handshake, and takes what comes until the client goes away."""

    def send(connection):
        connection.sendall(words)
        connection.shutdown(socket.SHUT_WR)
        while connection.recv(4096):
            pass

    return send


def drip_handshake(connection):
    for byte in b"\x16\x03\x03\x40\x00\x02" + b"\0" * SILENCE_SECONDS:
        connection.send(bytes([byte]))
        time.sleep(DRIP_SECONDS)


WARNING_ALERT = b"\x15\x03\x03\x00\x02\x01\x5a"
TLS_RECORD_TOO_LONG = b"\x16\x03\x03\xff\xff" + b"\0" * 0xFFFF

CONNECTIONS = {
    "reset-after-accept": reset_after_accept,
    "close-after-accept": lambda connection: None,
    "handshake-silence": silence,
    "handshake-drip": drip_handshake,
    "garbage": send_to_tls(b"\0\xff\x80garbage" * 400),
    "plain-http": send_to_tls(b"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}"),
    "ssh-banner": send_to_tls(b"SSH-2.0-x\r\n"),
    "alert-flood": send_to_tls(WARNING_ALERT * (16 * 1024 // len(WARNING_ALERT))),
    "record-too-long": send_to_tls(TLS_RECORD_TOO_LONG),
}

# Replies: B1, B2 and A4


def one_by_one(data, pause=DRIP_SECONDS):
    for byte in data:
        yield bytes([byte])
        time.sleep(pause)


def endless(piece, pause=0):
    while True:
        yield piece
        time.sleep(pause)


def silence_before_headers(_request):
    time.sleep(SILENCE_SECONDS)
    yield b""


def headers_drip(request):
    yield from one_by_one(head(request.success, *(f"X-{number}: y" for number in range(99))))


def silence_in_body(request):
    yield head(request.success, "Content-Length: 1000") + b"{"
    time.sleep(SILENCE_SECONDS)


def body_drip(request):
    yield head(request.success, "Content-Length: 1000")
    yield from one_by_one(b"{" + b" " * 998 + b"}")


def chunk_drip(request):
    yield head(request.success, "Transfer-Encoding: chunked")
    yield from endless(b"1\r\n \r\n", pause=0.1)


def close_before_reply(_request):
    return ()


def reset_before_reply(_request):
    raise Reset


def reset_in_body(request):
    yield head(request.success, "Content-Length: 1000") + b"{"
    raise Reset


# Replies: lengths and chunks (B3, B4, B5)

CUT_HOST = b'{"uuid":"1","hostNa'


def with_headers(*headers, body=b"{}"):
    return lambda request: (head(request.success, *headers) + body,)


def length_too_small(request):
    yield head(request.success, "Content-Length: 5") + request.good_body


def two_lengths(request):
    body = request.good_body
    yield head(request.success, "Content-Length: 2", f"Content-Length: {len(body)}") + body


def good_until_close(request):
    yield head(request.success) + request.good_body


def endless_chunks(request):
    yield head(request.success, "Transfer-Encoding: chunked")
    yield from endless(b"10000\r\n" + b" " * 0x10000 + b"\r\n")


def endless_body(request):
    yield head(request.success)
    yield from endless(b" " * 0x10000)


def long_body(request):
    yield answer(request.success, b" " * (2 * MEGABYTE))


# Replies: heads (B6, B7)


def flood_of(piece):
    return lambda request: endless(piece)


def header_flood(request):
    yield head(request.success)[:-2]
    yield from endless((b"X-Header: " + b"y" * 100 + b"\r\n") * 100)


def one_endless_header(request):
    yield head(request.success)[:-2] + b"X-Header: "
    yield from endless(b"y" * 1000)


def raw(words):
    return lambda request: (words,)


# Replies: compression (B8)

BOMB_MEGABYTES = 50


@functools.lru_cache
def packed_blanks(megabytes):
    return gzip.compress(b" " * (megabytes * MEGABYTE), compresslevel=1)


def gzip_bomb(request):
    yield answer(request.success, packed_blanks(BOMB_MEGABYTES), "Content-Encoding: gzip")


def gzip_in_gzip(request):
    packed_twice = gzip.compress(packed_blanks(BOMB_MEGABYTES))
    yield answer(request.success, packed_twice, "Content-Encoding: gzip, gzip")


def gzip_transfer(request):
    body = packed_blanks(BOMB_MEGABYTES)
    chunks = f"{len(body):x}\r\n".encode() + body + b"\r\n0\r\n\r\n"
    yield head(request.success, "Transfer-Encoding: gzip, chunked") + chunks


def gzip_good(request):
    yield answer(request.success, gzip.compress(request.good_body), "Content-Encoding: gzip")


def gzip_cut(request):
    yield answer(request.success, gzip.compress(request.good_body * 100)[:-20], "Content-Encoding: gzip")


def gzip_damaged(request):
    packed = bytearray(zlib.compress(b"x" * 1000 + request.good_body, wbits=31))
    packed[12:20] = b"\xff" * 8
    yield answer(request.success, bytes(packed), "Content-Encoding: gzip")


# Replies: statuses (B9 to B13)


def status(number, body=b"", *headers):
    return lambda request: (answer(number, body, *headers),)


def good_with(*headers):
    return lambda request: (answer(request.success, request.good_body, *headers),)


def text_answer(text):
    return lambda request: (answer(request.success, text, "Content-Type: application/json"),)


def status_with_body(number):
    return lambda request: (head(number) + request.good_body,)


REDIRECTS = (301, 302, 303, 307, 308)
REDIRECT_TARGETS = {
    "host": "https://target.example:1556/elsewhere",
    "port": f"https://master1.example:{PLAIN_PORT}/elsewhere",
    "http": f"http://target.example:{PLAIN_PORT}/elsewhere",
    "file": "file:///etc/passwd",
    "itself": "/torquenix/config/hosts/1",
}
ERROR_STATUSES = (400, 401, 403, 404, 409, 413, 429, 500, 502, 503)
ERROR_CODE = 47
ERROR_JSON = json.dumps({"errorCode": ERROR_CODE, "errMessage": "told by the server"}).encode()
ERROR_BODIES = {
    "empty": b"",
    "json": ERROR_JSON,
    "html": b"<html><body><h1>Error</h1></body></html>",
    "1-mb": b'{"errorCode": 47, "errMessage": "' + b"x" * 1_000_000 + b'"}',
}
RETRY_AFTER = {
    "0": "0",
    "1e12": "1000000000000",
    "negative": "-5",
    "date": "Fri, 01 Jan 2100 00:00:00 GMT",
    "garbage": "soon; \x01\x7f",
}


def refused_once(request):
    """A token that the server does not know any more; a renewed one is good."""
    renewed = request.headers.get("authorization", "").startswith("Bearer token-")
    yield last_good_answer(request) if renewed else answer(401, b"")


def refused_without_renewal(renewal):
    """No token is good, and none is to be had."""
    return lambda request: renewal(request) if request.is_for_token else (answer(401, b""),)


FORGED_ENTRY = "2026-01-01 00:00:00.000 [1] <2> forger: all is well"
HOSTILE_TEXTS = {
    "esc": f"\x1b[2J\x1b]0;owned\x07{FORGED_ENTRY}",
    "cr-lf": f"\r\n{FORGED_ENTRY}\r\n\n{FORGED_ENTRY}\n",
    "bidi": f"\u202e{FORGED_ENTRY}\u2066\u200f",
    "controls": "".join(map(chr, range(1, 32))) + "\x7f\x85\u2028" + FORGED_ENTRY,
    "long-line": "x" * 900_000 + FORGED_ENTRY,
}


def hostile_json(text):
    """An error body whose message is a hostile text once it is parsed."""
    return json.dumps({"errorCode": ERROR_CODE, "errMessage": text}).encode()


REPLIES = {
    "good": lambda request: (last_good_answer(request),),
    "good-too": lambda request: (last_good_answer(request),),
    "silence-before-headers": silence_before_headers,
    "headers-drip": headers_drip,
    "silence-in-body": silence_in_body,
    "body-drip": body_drip,
    "chunk-drip": chunk_drip,
    "close-before-reply": close_before_reply,
    "reset-before-reply": reset_before_reply,
    "reset-in-body": reset_in_body,
    "truncated": with_headers("Content-Length: 50"),
    "length-too-small": length_too_small,
    "length-negative": with_headers("Content-Length: -5"),
    "length-huge": with_headers("Content-Length: 99999999999999999999999"),
    "length-words": with_headers("Content-Length: many"),
    "two-lengths": two_lengths,
    "until-close-good": good_until_close,
    "until-close-cut": with_headers(body=CUT_HOST),
    "chunk-size-bad": with_headers("Transfer-Encoding: chunked", body=b"zz\r\n{}\r\n"),
    "chunk-size-huge": with_headers("Transfer-Encoding: chunked", body=b"FFFFFFFFFFFFFFFFF\r\n{}\r\n"),
    "chunks-cut": with_headers("Transfer-Encoding: chunked", body=b"2\r\n{}\r\n"),
    "endless-chunks": endless_chunks,
    "endless-body": endless_body,
    "long-body": long_body,
    "continue-flood": flood_of(head(100) * 100),
    "early-hints-flood": flood_of(head(103, "Link: </x>; rel=preload") * 100),
    "header-flood": header_flood,
    "one-endless-header": one_endless_header,
    "nul-in-header": with_headers("X-Header: a\0b", "Content-Length: 2"),
    "http-0.9": raw(b"HTTP/0.9 hello"),
    "bad-status-line": raw(b"HTTP/1.1 two hundred\r\n\r\n{}"),
    "bad-version": raw(b"HTTP/7.7 200 OK\r\nContent-Length: 2\r\n\r\n{}"),
    "no-http": raw(b"not HTTP at all\r\n\r\n"),
    "gzip-bomb": gzip_bomb,
    "gzip-in-gzip": gzip_in_gzip,
    "gzip-transfer": gzip_transfer,
    "gzip-good": gzip_good,
    "gzip-cut": gzip_cut,
    "gzip-damaged": gzip_damaged,
    "no-gzip": with_headers("Content-Encoding: gzip", "Content-Length: 2"),
    "status-201": lambda request: (answer(200 if request.method == "POST" else 201, request.good_body),),
    "status-204": status(204),
    "status-204-with-body": status_with_body(204),
    "status-304": status(304),
    "type-html": good_with("Content-Type: text/html"),
    "type-garbage": good_with("Content-Type: \x01;;;=\xff"),
    "type-missing": good_with(),
    **{
        f"redirect-{number}-{name}": status(number, b"", f"Location: {place}")
        for number in REDIRECTS
        for name, place in REDIRECT_TARGETS.items()
    },
    **{
        f"status-{number}-{name}": status(number, body)
        for number in ERROR_STATUSES
        for name, body in ERROR_BODIES.items()
    },
    **{
        f"retry-after-{name}": status(503, ERROR_JSON, f"Retry-After: {value}")
        for name, value in RETRY_AFTER.items()
    },
    "401-once": refused_once,
    "401-renewal-500": refused_without_renewal(status(500, ERROR_JSON)),
    "401-renewal-403": refused_without_renewal(status(403)),
    "401-renewal-reset": refused_without_renewal(reset_before_reply),
    "401-renewal-silence": refused_without_renewal(silence_before_headers),
    "401-renewal-no-json": refused_without_renewal(status(201, b"<html>")),
    **{f"hostile-body-{name}": status(500, text.encode()) for name, text in HOSTILE_TEXTS.items()},
    **{f"hostile-message-{name}": status(500, hostile_json(text)) for name, text in HOSTILE_TEXTS.items()},
}

# Replies: texts (C). All of them come with the status of success.

# A text is wrapped in brackets once more, and 2,048 is the most that the parser takes.
DEPTHS = (2047, 2048, 100_000, 1_000_000)
NUL_HOST = b'{"uuid":"a\0b"}'
TEXTS = {
    "empty": b"",
    "null": b"null",
    "array": b"[]",
    "text": b'"x"',
    "number": b"7",
    "two-documents": b"{} {}",
    "two-records": b"{},{}",
    "byte-order-mark": b"\xef\xbb\xbf{}",
    "comment": b"{} // comment",
    "trailing-junk": b'{"hosts":[{"uuid":"1"}]}]x',
    "trailing-bracket": b'{"hosts":[{"uuid":"1"}]}]',
    "cut": b'{"hosts":[{"uuid":"1"',
    "hosts-missing": b"{}",
    "hosts-is-object": b'{"hosts":{}}',
    "hosts-is-empty": b'{"hosts":[]}',
    "hosts-twice": b'{"hosts":[{"uuid":"1"}],"hosts":[]}',
    "hosts-of-number": b'{"hosts":[7]}',
    "fields-of-wrong-type": b'{"hosts":[{"uuid":7,"servers":"x","isSecureEnabled":"yes","hostName":null}]}',
    "field-twice": b'{"uuid":"1","hostName":"first","hostName":"last","hosts":[{"uuid":"1"}]}',
    "unknown-field": b'{"uuid":"1","odd":{"a":[1,{}]},"hosts":[{"uuid":"1","odd":null}]}',
    "servers-of-numbers": b'{"uuid":"1","servers":[1,{}],"hosts":[{"uuid":"1","servers":[7]}]}',
    "400-digits": b'{"hosts":' + b"9" * 400 + b"}",
    "infinite-number": b'{"hosts":1e999}',
    "minus-zero": b'{"uuid":"1","odd":-0,"hosts":[{"uuid":"1","odd":-0}]}',
    **{f"deep-{depth}": b"[" * depth + b"]" * depth for depth in DEPTHS},
    **{f"deep-{depth}-open": b"[" * depth for depth in DEPTHS},
    **{f"deep-objects-{depth}": b'{"a":' * depth + b"1" + b"}" * depth for depth in DEPTHS[1:]},
    "not-utf-8": b'{"uuid":"\xff","hosts":[{"uuid":"\xff"}]}',
    "overlong": b'{"uuid":"\xc0\xaf","hosts":[{"uuid":"\xc0\xaf"}]}',
    "lone-surrogate": b'{"uuid":"\\ud800","hosts":[{"uuid":"\\ud800"}]}',
    "raw-nul": NUL_HOST,
    "escaped-nul": b'{"uuid":"a\\u0000b"}',
    "nul-first": b"\0{}",
    "nul-behind-a-host": b'{"uuid":"1"}\0{"uuid":"2"}',
    "10-mb-string": b'{"uuid":"1","hostName":"' + b"x" * 10_000_000 + b'"}',
}

REPLIES |= {f"text-{name}": text_answer(text) for name, text in TEXTS.items()}

# Replies: texts in the answer to a token request (D3).

TOKEN_TEXTS = {
    "no-object": b"null",
    "no-token": b"{}",
    "token-is-number": b'{"token": 7, "expiresIn": 1}',
    "token-is-empty": b'{"token": "", "expiresIn": 60}',
    "token-with-cr-lf": b'{"token": "a\\r\\nX: y", "expiresIn": 60}',
    "token-with-nul": b'{"token": "a\\u0000b", "expiresIn": 60}',
    "token-of-10-mb": b'{"token": "' + b"x" * 10_000_000 + b'", "expiresIn": 60}',
    "expires-missing": b'{"token": "a"}',
    "expires-is-text": b'{"token": "a", "expiresIn": "60"}',
    "expires-negative": b'{"token": "a", "expiresIn": -1}',
}
REPLIES |= {f"token-{name}": text_answer(text) for name, text in TOKEN_TEXTS.items()}

# TLS


@dataclasses.dataclass(frozen=True)
class Tls:
    """How a mode of TLS differs from a good server; the certificate is a file of the tests' authority."""

    certificate: str = "good"
    lowest: ssl.TLSVersion = ssl.TLSVersion.TLSv1_2
    highest: ssl.TLSVersion = ssl.TLSVersion.TLSv1_3
    ciphers: str = ""
    client: ssl.VerifyMode = ssl.CERT_OPTIONAL
    clients_of: str = "authority"


def only(version, **more):
    return Tls(lowest=version, highest=version, **more)


CERTIFICATES = (
    "expired",
    "not-yet-valid",
    "self-signed",
    "foreign-authority",
    "issuer-is-no-authority",
    "for-clients-only",
    "other-name",
    "no-address",
    "with-address",
    "common-name-only",
    "wildcard",
    "nul-in-name",
    "name-within-name",
)
ALL_CIPHERS = "ALL:@SECLEVEL=0"
TLS = {
    "tls-1.0": only(ssl.TLSVersion.TLSv1, ciphers=ALL_CIPHERS),
    "tls-1.1": only(ssl.TLSVersion.TLSv1_1, ciphers=ALL_CIPHERS),
    "tls-1.2": only(ssl.TLSVersion.TLSv1_2),
    "tls-1.3": only(ssl.TLSVersion.TLSv1_3),
    "cipher-null": only(ssl.TLSVersion.TLSv1_2, ciphers="eNULL:@SECLEVEL=0", certificate="rsa"),
    "cipher-anonymous": only(ssl.TLSVersion.TLSv1_2, ciphers="ADH:AECDH:@SECLEVEL=0"),
    "key-of-1024-bits": Tls(certificate="key-of-1024-bits", ciphers=ALL_CIPHERS),
    "client-needed-1.2": only(ssl.TLSVersion.TLSv1_2, client=ssl.CERT_REQUIRED),
    "client-needed-1.3": only(ssl.TLSVersion.TLSv1_3, client=ssl.CERT_REQUIRED),
    "clients-of-others-1.2": only(ssl.TLSVersion.TLSv1_2, client=ssl.CERT_REQUIRED, clients_of="foreign"),
    "clients-of-others-1.3": only(ssl.TLSVersion.TLSv1_3, client=ssl.CERT_REQUIRED, clients_of="foreign"),
    "client-not-asked": Tls(client=ssl.CERT_NONE),
    **{f"certificate-{name}": Tls(certificate=name) for name in CERTIFICATES},
}

# Places without an answer: a listener whose queue is full, one that never reads a body, one that stores what
# it was asked to and then loses the reply, and the targets of redirects.
QUEUE_FULL, NEVER_READS = "queue-full", "never-reads"
STORED_THEN_RESET, TARGET = "stored-then-reset", "target"

# These spoil answers about tokens in the face of requests, too.
EVERY_ANSWER = tuple(name for name in REPLIES if name.startswith("401-renewal-"))

DEAD_NAME_SERVERS = ("127.53.0.1", "127.53.0.2")

MODES = (*CONNECTIONS, *REPLIES, *TLS, QUEUE_FULL, NEVER_READS, STORED_THEN_RESET, TARGET)


def address_of(mode, face=REQUESTS):
    """Where a mode listens."""
    number = MODES.index(mode)
    return f"127.{face}.{number // 200}.{1 + number % 200}"
