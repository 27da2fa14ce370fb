"""Requests that no honest client sends: what the master server answers, that nothing of them is stored, and
that the next client is served."""

import gzip
import json

import pytest

from attacked_server import is_error
from master_client import ENROLLMENTS, HOSTS, TOKENS, compose

KIB = 1024
CLOSED = None  # the connection ends without an answer

CHUNKED = "Transfer-Encoding: chunked"
EMPTY_CHUNKS = b"2\r\n{}\r\n0\r\n\r\n"


def put(*headers, body=b""):
    """A PUT of the host's own record whose framing is the case's own."""
    return lambda host: compose("PUT", host.path, host, headers=headers, close=True) + body


def get(*headers, body=b""):
    return lambda host: compose("GET", host.path, host, headers=headers, close=True) + body


def record(body):
    """A well-framed PUT of this body."""
    return lambda host: compose("PUT", host.path, host, body, close=True)


def packed(body):
    """A PUT of a body that gzip has packed."""
    return lambda host: compose("PUT", host.path, host, body, ["Content-Encoding: gzip"], close=True)


def method(name):
    return lambda host: compose(name, host.path, host, close=True)


def raw(data):
    return lambda _host: data


FLOODS = {
    "flood of headers": (raw(b"GET / HTTP/1.1\r\n" + b"X-Flood: 0123456789\r\n" * 100_000 + b"\r\n"), 400),
    "header without end": (raw(b"GET / HTTP/1.1\r\nX: " + b"a" * 4_000_000), 400),
    "request line without end": (raw(b"GET /" + b"a" * 4_000_000), CLOSED),
    "long target": (raw(b"GET /" + b"a" * 9000 + b" HTTP/1.1\r\n\r\n"), 414),
    "blank lines without end": (raw(b"\r\n" * 1_000_000), 400),
    "body of 257 KiB": (record(b"{" + b" " * (257 * KIB) + b"}"), 413),
    "length of 10 GB": (put("Content-Length: 9999999999"), 413),
    "body of 100 MiB in gzip": (packed(gzip.compress(b" " * (100 * KIB * KIB))), 413),
    "chunks without end": (put(CHUNKED, body=b"1\r\n \r\n" * 800_000), 413),
    "chunk size line without end": (put(CHUNKED, body=b"2;" + b"a" * 4_000_000), 400),
}

FRAMING = {
    "length over 64 bits": (put("Content-Length: 18446744073709551618", body=b"{}"), 400),
    "negative length": (put("Content-Length: -2", body=b"{}"), 400),
    "length with a sign": (put("Content-Length: +2", body=b"{}"), 400),
    "hexadecimal length": (put("Content-Length: 0x2", body=b"{}"), 400),
    "length in words": (put("Content-Length: two", body=b"{}"), 400),
    "two lengths": (put("Content-Length: 2", "Content-Length: 2", body=b"{}"), 400),
    "two lengths in one": (put("Content-Length: 2, 2", body=b"{}"), 400),
    "length and chunks": (put("Content-Length: 2", CHUNKED, body=EMPTY_CHUNKS), 400),
    "chunks twice": (put(CHUNKED, CHUNKED, body=EMPTY_CHUNKS), 400),
    "unknown transfer coding": (put("Transfer-Encoding: xchunked", body=EMPTY_CHUNKS), 400),
    "gzip as transfer coding": (put("Transfer-Encoding: gzip, chunked", body=EMPTY_CHUNKS), 400),
    "blank before a colon": (put("Transfer-Encoding : chunked", body=EMPTY_CHUNKS), 400),
    "folded header": (put("Transfer-Encoding:\r\n chunked", body=EMPTY_CHUNKS), 400),
    "header without a colon": (put("Content-Length", body=b"{}"), 400),
    "header without a name": (put(": 2", body=b"{}"), 400),
    "NUL in a header": (put("X: a\0b", "Content-Length: 2", body=b"{}"), 400),
    "control byte in a header": (put("X: \x1b[2J", "Content-Length: 2", body=b"{}"), 400),
    "NUL in a header's name": (put("X\0Y: a", "Content-Length: 2", body=b"{}"), 400),
    "line ends without CR": (raw(b"GET / HTTP/1.1\nHost: x\n\n"), CLOSED),
    "chunk size negative": (put(CHUNKED, body=b"-2\r\n{}\r\n0\r\n\r\n"), 400),
    "chunk size with a prefix": (put(CHUNKED, body=b"0x2\r\n{}\r\n0\r\n\r\n"), 400),
    "chunk size over 64 bits": (put(CHUNKED, body=b"10000000000000002\r\n{}\r\n0\r\n\r\n"), 400),
    "chunk size missing": (put(CHUNKED, body=b"\r\n{}\r\n0\r\n\r\n"), 400),
    "chunk longer than told": (put(CHUNKED, body=b"2\r\n{}X\r\n0\r\n\r\n"), 400),
    "chunk without its end": (put(CHUNKED, body=b"2\r\n{}0\r\n\r\n"), 400),
    "trailer after the last chunk": (put(CHUNKED, body=b"2\r\n{}\r\n0\r\nX: y\r\n\r\n"), 400),
    "body of a GET": (get("Content-Length: 2", body=b"{}"), 400),
    "form": (put("Content-Type: multipart/form-data; boundary=x", "Content-Length: 2", body=b"{}"), 400),
    "gzip that is none": (put("Content-Encoding: gzip", "Content-Length: 2", body=b"{}"), 400),
    "brotli that is none": (put("Content-Encoding: br", "Content-Length: 2", body=b"{}"), 400),
    "impossible range": (get("Range: bytes=9-1"), 416),
    "HTTP/0.9": (raw(b"GET /torquenix/config/hosts\r\n\r\n"), 400),
    "HTTP/2 preface": (raw(b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"), 400),
    "HTTP/9.9": (raw(b"GET / HTTP/9.9\r\n\r\n"), 400),
    "nothing but noise": (raw(bytes(range(256)) * 40), CLOSED),
}

METHODS = {
    f"method {name!r:.12}": (method(name), status)
    for name, status in {
        "BREW": 400, "TRACE": 400, "CONNECT": 400, "PRI": 400, "get": 400, "": 400, "GET\0": CLOSED,
        "G" * 5000: 400, "PATCH": 405, "OPTIONS": 405, "POST": 405,
    }.items()
}  # fmt: skip

BODIES = {
    "no JSON": b"junk",
    "cut off": b'{"osType":"x"',
    "an array": b"[]",
    "null": b"null",
    "a text": b'"x"',
    "a number": b"1",
    "two documents": b"{}{}",
    "junk behind": b"{} x",
    "byte order mark": b"\xef\xbb\xbf{}",
    "a number for a text": b'{"osType":1}',
    "a text for a list": b'{"servers":"x"}',
    "a number in a list of texts": b'{"servers":["x",1]}',
    "a text for a truth value": b'{"isSecureEnabled":"yes"}',
    "null for a text": b'{"osType":null}',
    "a number for an identifier": b'{"uuid":7}',
    "raw NUL": b'{"osType":"a\0b"}',
    "escaped NUL": b'{"osType":"a\\u0000b"}',
    "NUL in a key": b'{"os\\u0000Type":"a"}',
    "not UTF-8": b'{"osType":"\xff"}',
    "overlong UTF-8": b'{"osType":"\xc0\xaf"}',
    "encoded surrogate": b'{"osType":"\xed\xa0\x80"}',
    "lone surrogate": b'{"osType":"\\ud800"}',
    "number without end": b'{"x":' + b"9" * 400 + b"}",
    "1e999": b'{"x":1e999}',
    "100,000 arrays deep": b"[" * 100_000,
    "40,000 objects deep": b'{"a":' * 40_000,
    "3,000 deep and closed": b'{"a":' + b"[" * 3000 + b"]" * 3000 + b"}",
}
BODIES = {f"body: {name}": (record(body), 400) for name, body in BODIES.items()}

REQUESTS = FLOODS | FRAMING | METHODS | BODIES


@pytest.mark.row("S2")
@pytest.mark.parametrize("fault", REQUESTS)
def test_a_request_that_makes_no_sense_is_refused_and_stores_nothing(attacked, fault):
    request, status = REQUESTS[fault]
    answers = attacked.client.send(request(attacked.a), attacked.a, answers=3)
    assert [answer.status for answer in answers] == ([status] if status else [])
    assert status is CLOSED or is_error(answers[0], status)
    attacked.check_unharmed()


def inner(host):
    """The request that a smuggler hides in another one."""
    return compose("DELETE", host.path, host)


SMUGGLING = {
    "length before chunks": lambda host: put("Content-Length: 5", CHUNKED, body=b"0\r\n\r\n" + inner(host)),
    "chunks before a length": lambda host: put(CHUNKED, "Content-Length: 5", body=b"0\r\n\r\n" + inner(host)),
    "length of nothing first": lambda host: put(
        "Content-Length: 0", f"Content-Length: {len(inner(host))}", body=inner(host)
    ),
    "body of a GET": lambda host: get(f"Content-Length: {len(inner(host))}", body=inner(host)),
    "blank before the colon": lambda host: put(
        "Transfer-Encoding : chunked", body=b"0\r\n\r\n" + inner(host)
    ),
    "tab before the colon": lambda host: put("Content-Length\t: 400", body=inner(host)),
    "coding in another case with a mark": lambda host: put(
        "Transfer-Encoding: \x0bchunked", body=inner(host)
    ),
    "folded coding": lambda host: put("Transfer-Encoding:\r\n\tchunked", body=b"0\r\n\r\n" + inner(host)),
    "length behind a lone CR": lambda host: get("X: y\rContent-Length: 400", body=inner(host)),
    "length behind a lone LF": lambda host: get("X: y\nContent-Length: 400", body=inner(host)),
    "line end in a chunk's extension": lambda host: put(
        CHUNKED, body=b"2;\n\r\n{}\r\n0\r\n\r\n" + inner(host)
    ),
    "chunk that ends early": lambda host: put(CHUNKED, body=b"2\r\n{}XX" + inner(host)),
    "chunk size cut to 32 bits": lambda host: put(CHUNKED, body=b"100000000\r\n\r\n" + inner(host)),
}


@pytest.mark.row("S2")
@pytest.mark.parametrize("trick", SMUGGLING)
def test_no_request_can_be_hidden_in_another(attacked, trick):
    request = SMUGGLING[trick](attacked.a)(attacked.a).replace(b"Connection: close\r\n", b"", 1)
    answers = attacked.client.send(request, attacked.a, answers=3)
    assert [answer.status for answer in answers] == [400]
    attacked.check_unharmed()


@pytest.mark.row("S2")
def test_requests_that_follow_each_other_properly_are_each_answered(attacked):
    # So that the refusals above are known to come from what each of them hides.
    requests = compose("PUT", attacked.a.path, attacked.a, b'{"osType":"before"}')
    requests += put(CHUNKED, body=b'13;x=y\r\n{"osType":"before"}\r\n0\r\n\r\n')(attacked.a).replace(
        b"Connection: close\r\n", b""
    )
    requests += compose("GET", attacked.a.path, attacked.a, close=True)
    answers = attacked.client.send(requests, attacked.a, answers=4)
    assert [answer.status for answer in answers] == [200, 200, 200]
    attacked.check_unharmed()


SQL = "x' OR '1'='1"
PATHS = {
    "dot segments": ("/torquenix/config/../config/hosts", 404),
    "dot segments at the end": (HOSTS + "/..", 404),
    "encoded dot segments": (HOSTS + "/%2e%2e/hosts", 404),
    "encoded slash": ("/torquenix/config%2fhosts", 404),
    "encoded slash in an identifier": (HOSTS + "/..%2f..%2fsecurity", 404),
    "encoded backslash": (HOSTS + "/..%5c..%5cetc", 404),
    "encoded twice": (HOSTS + "/%252e%252e", 404),
    "two slashes": ("/torquenix//config/hosts", 404),
    "two slashes first": ("//torquenix/config/hosts", 404),
    "semicolon": (HOSTS + ";a=b", 404),
    "fragment": ("/torquenix/config#/hosts", 404),
    "NUL": ("{path}%00", 404),
    "NUL and an ending": ("{path}%00.json", 404),
    "line end": ("{path}%0d%0aX: y", 400),
    "capitals": ("/TORQUENIX/config/hosts", 404),
    "full-width dots": (HOSTS + "/%ef%bc%8e%ef%bc%8e", 404),
    "overlong slash": ("/torquenix/config%c0%afhosts", 404),
    "bytes that are not UTF-8": (HOSTS + "/\xff\xfe", 404),
    "half an encoding": ("{path}%", 400),
    "no encoding": ("{path}%zz", 400),
    "absolute form": ("https://master1.example{path}", 400),
    "absolute form of elsewhere": ("http://evil.example{path}", 400),
    "asterisk": ("*", 400),
    "backslashes": ("\\torquenix\\config\\hosts", 400),
    "query where none belongs": ("{path}?x=y", 400),
    "file of the system": ("/etc/passwd", 404),
    "file of the data": (HOSTS + "/../../hosts.db", 404),
    "identifier in capitals": ("{PATH}", 404),
    "SQL in an identifier": (HOSTS + "/x'%20OR%20'1'='1", 404),
    "SQL comment in an identifier": ("{path}'--", 404),
    "SQL wildcard in an identifier": (HOSTS + "/%25", 404),
    "filter of another name": (HOSTS + "?filter=osType%20eq%20'x'", 400),
    "filter with a second one": (HOSTS + "?filter=hostName%20eq%20'a'&filter=hostName%20eq%20'b'&", 400),
    "filter without quotes": (HOSTS + "?filter=hostName%20eq%20a", 400),
    "filter of NUL": (HOSTS + "?filter=%00", 400),
}


@pytest.mark.row("S4")
@pytest.mark.parametrize("trick", PATHS)
def test_a_path_leads_nowhere_but_where_it_stands(attacked, trick):
    path, status = PATHS[trick]
    capitals = f"{HOSTS}/{attacked.a.host_id.upper()}"
    target = path.replace("{path}", attacked.a.path).replace("{PATH}", capitals)
    assert is_error(attacked.client.ask("GET", target, attacked.a), status)
    answer = attacked.client.ask("PUT", target, attacked.a, b'{"osType":"changed"}')
    assert is_error(answer, answer.status) and answer.status in (400, 403, 404, 405)
    attacked.check_unharmed()


FILTERS = {
    "always true": SQL,
    "second statement": "x'; DROP TABLE host; --",
    "union": "x' UNION SELECT hash FROM token --",
    "wildcard": "%",
    "any character": "_.example",
    "NUL behind a name": "a.example\0",
    "another case": "A.EXAMPLE",
    "blank behind a name": "a.example ",
    "1,000 quotes": "'" * 1000,
}


@pytest.mark.row("S4")
@pytest.mark.parametrize("trick", FILTERS)
def test_a_filter_is_a_name_and_no_sql(attacked, trick):
    text = "".join(f"%{byte:02x}" for byte in FILTERS[trick].encode())
    answer = attacked.client.ask("GET", f"{HOSTS}?filter=hostName%20eq%20'{text}'", attacked.a)
    assert (answer.status, answer.json()) == (200, {"hosts": []})
    attacked.check_unharmed()


@pytest.mark.row("S4")
def test_a_filter_finds_the_name_that_it_holds(attacked):
    answer = attacked.client.ask("GET", f"{HOSTS}?filter=hostName%20eq%20'a.example'", attacked.b)
    assert [host["hostName"] for host in answer.json()["hosts"]] == ["a.example"]


@pytest.mark.row("S4")
@pytest.mark.parametrize(
    "text", [SQL, "'", "'; DROP TABLE invitation; --", "0" * 16 + "." + "0" * 64, "\0", "ü"]
)
def test_sql_in_an_invitation_is_no_invitation(attacked, text):
    body = json.dumps({"invitation": text, "certificateRequest": text}).encode()
    answer = attacked.client.ask("POST", ENROLLMENTS, body=body)
    assert is_error(answer, 400 if "\0" in text else 403)
    attacked.check_unharmed()


@pytest.mark.row("S4")
@pytest.mark.parametrize("text", [SQL, "0" * 16 + "." + "0" * 64, "x" * 8000])
def test_sql_in_a_token_is_no_token(attacked, text):
    answer = attacked.client.ask("GET", HOSTS, headers=[f"Authorization: Bearer {text}"])
    assert is_error(answer, 403)  # no certificate
    request = compose("GET", HOSTS, headers=[f"Authorization: Bearer {text}"], close=True)
    (answer,) = attacked.client.send(request, attacked.a)
    assert is_error(answer, 401)
    attacked.check_unharmed()


@pytest.mark.row("S4")
@pytest.mark.parametrize("name", [SQL, "a'; DROP TABLE host; --", "a b", "../x", "a\nb", "", "x" * 254])
def test_an_administrator_cannot_invite_what_is_no_host_name(attacked, name):
    for command in ("invite", "revoke"):
        argv = ["/usr/torqv/torquenix/bin/tqmasterd", command, "--data", attacked.master.data, "--host", name]
        result = attacked.box.run(argv)
        assert (result.status, result.out) == (2, "")
        assert "host name" in result.err or "--host" in result.err
    attacked.check_unharmed()


@pytest.mark.row("S4")
def test_sql_in_a_record_is_a_text(attacked):
    text = "x'); DROP TABLE host; --"
    assert attacked.client.put(attacked.a, osType=text).status == 200
    assert attacked.client.ask("GET", attacked.a.path, attacked.b).json()["osType"] == text
    assert attacked.client.put(attacked.a, osType="before").status == 200
    attacked.check_unharmed()


@pytest.mark.row("S2")
@pytest.mark.parametrize("body", [b"[]", b"junk", b"{", b"\0", b"[" * 100_000])
def test_a_token_asked_for_with_a_body_that_makes_no_sense_is_refused(attacked, body):
    assert is_error(attacked.client.ask("POST", TOKENS, attacked.a, body), 400)
    attacked.check_unharmed()
