"""Replies that no good server gives: the outcome that the rules of reading name, and never a crash."""

import gzip
import json

import pytest

from servers import raw_answer

HOST = {"uuid": "1", "hostName": "a"}
BY_NAME = ["-read", "-hostname", "a", "-display"]
BY_ID = ["-read", "-hostid", "1", "-display"]
OWN = ["-read", "-display"]
ALL = ["-readallhosts", "-display"]


def get(**answer):
    return {"method": "GET", "answer": answer}


def http(status_line, headers=(), body=b""):
    head = "\r\n".join([status_line, *headers]).encode()
    return head + b"\r\n\r\n" + body


# Text -> outcome by way of reading: a filtered read needs a list with a host, a read by identifier needs a text
# that is JSON once it stands in brackets, the list of all hosts needs nothing at all.
BODIES = {
    "empty": ("", 114, 0, 0),
    "null": ("null", 114, 0, 0),
    "array": ("[]", 114, 0, 0),
    "text": ('"x"', 114, 0, 0),
    "number": ("7", 114, 0, 0),
    "two-documents": ("{} {}", 114, 114, 0),
    "two-records": ("{},{}", 114, 0, 0),
    "comment": ("{} // comment", 114, 114, 0),
    "bom": ("\ufeff{}", 114, 114, 0),
    "cut": ('{"hosts":[{"uuid":"1"', 114, 114, 0),
    "not-utf-8": (b'{"hosts":[{"uuid":"\xff"}]}'.decode("utf-8", "surrogateescape"), 114, 114, 0),
    "nul": ('{"uuid":"a\\u0000b"}', 114, 114, 0),
    "huge-number": ('{"hosts":' + "9" * 400 + "}", 114, 114, 0),
    "infinite-number": ('{"hosts":1e999}', 114, 114, 0),
    "deep": ("[" * 5000 + "]" * 5000, 114, 114, 0),
    "deep-and-cut": ("[" * 100_000, 114, 114, 0),
    "hosts-is-object": ('{"hosts":{}}', 114, 0, 0),
    "hosts-is-empty": ('{"hosts":[]}', 114, 0, 0),
    "hosts-twice": ('{"hosts":[{"uuid":"1"}],"hosts":[]}', 114, 0, 0),
}


@pytest.mark.parametrize("text, by_name, by_id, all_hosts", BODIES.values(), ids=BODIES.keys())
def test_a_body_that_is_not_what_was_asked(enrolled, scripted, text, by_name, by_id, all_hosts):
    scripted(get(status=200, body=text))
    for arguments, status in ((BY_NAME, by_name), (BY_ID, by_id), (OWN, by_id), (ALL, all_hosts)):
        result = enrolled.command(*arguments)
        assert result.status == status, arguments
        assert result.status == 0 or result.out == ""
    assert enrolled.command(*ALL).out == '{"hosts":[]}\n'


def test_an_empty_list_element_gives_an_empty_record(enrolled, scripted):
    scripted(get(status=200, body='{"hosts":[7]}'))
    for arguments in (BY_NAME, ALL):
        result = enrolled.command(*arguments)
        assert result.status == 0
        assert json.loads(result.out)
        assert enrolled.log_texts(16)


def test_a_read_by_name_takes_the_first_of_several_hosts(enrolled, scripted):
    scripted(get(status=200, body=json.dumps({"hosts": [HOST, {"uuid": "2", "hostName": "b"}]})))
    assert json.loads(enrolled.command(*BY_NAME).out)["hostName"] == "a"


def test_a_name_with_blanks_and_quotes_stands_in_the_filter_and_the_client_encodes_it(enrolled, scripted):
    server = scripted()
    enrolled.command("-read", "-hostname", "a b'c#d+e%41")
    assert server.seen() == [("GET", "torquenix/config/hosts?filter=hostName%20eq%20'a%20b'c%23d%2Be%41'")]


def test_dots_in_an_identifier_are_not_folded(enrolled, scripted):
    server = scripted()
    enrolled.command("-read", "-hostid", "../x")
    assert server.seen() == [("GET", "torquenix/config/hosts/../x")]


@pytest.mark.parametrize("status", [201, 204, 301, 302, 307, 400, 403, 404, 409, 413, 429, 500, 503])
def test_another_status_than_the_reads_own_is_a_web_service_failure(enrolled, scripted, status):
    elsewhere = {"Location": "https://master3.example:1556/"}
    server = scripted(get(status=status, body="", headers=elsewhere))
    result = enrolled.command(*BY_ID)
    assert (result.status, result.err) == (252, "Unknown webservice exception encountered\n")
    assert len(server.seen()) == 1


def test_a_401_renews_the_token_once_and_repeats_the_request_once(enrolled, scripted):
    server = scripted(
        {"method": "GET", "times": 1, "answer": {"status": 401, "body": ""}},
        get(status=200, body=json.dumps(HOST)),
    )
    assert enrolled.command(*BY_ID).status == 0
    assert [request["method"] for request in server.requests()] == ["POST", "GET", "POST", "GET"]
    first, second = [r["headers"]["authorization"] for r in server.requests() if r["method"] == "GET"]
    assert first != second


def test_a_second_401_after_a_good_renewal_is_the_answer(enrolled, scripted):
    server = scripted(get(status=401, body='{"errorCode": 41, "errMessage": "who"}'))
    assert enrolled.command(*BY_ID).status == 41
    assert len(server.seen()) == 2


def test_a_renewal_that_fails_is_7625_and_the_old_token_stays(enrolled, scripted):
    assert enrolled.command("-readallhosts").status == 0
    (token,) = enrolled.var("identity").glob("token.host.*")
    before = token.read_bytes()
    scripted(
        get(status=401, body=""), {"path": "security/tokens", "answer": {"status": 500, "body": ""}}
    )
    result = enrolled.command(*BY_ID)
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7625\n")
    assert token.read_bytes() == before


@pytest.mark.parametrize(
    "body",
    ["", "null", "{}", '{"token": 7, "expiresIn": 1}', '{"token": "a\\r\\nX: y", "expiresIn": 60}'],
)
def test_a_token_reply_without_a_usable_token_is_7625(enrolled, scripted, body):
    scripted({"path": "security/tokens", "answer": {"status": 201, "body": body}})
    result = enrolled.command(*BY_ID)
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7625\n")


@pytest.mark.parametrize(
    "reply",
    [
        b"",
        b"not HTTP at all\r\n\r\n",
        b"HTTP/0.9 hello",
        http("HTTP/1.1 200 OK", ["Content-Length: 50"], b"{}"),
        http("HTTP/1.1 200 OK", ["Content-Length: -5"], b"{}"),
        http("HTTP/1.1 200 OK", ["Transfer-Encoding: chunked"], b"zz\r\n{}\r\n"),
        http("HTTP/1.1 200 OK", ["Content-Encoding: gzip", "Content-Length: 2"], b"{}"),
        http("HTTP/1.1 200 OK", [f"X-{n}: {'y' * 60000}" for n in range(8)], b"{}"),
    ],
    ids=["nothing", "words", "http-0.9", "cut", "negative-length", "chunks", "no-gzip", "headers"],
)
def test_a_reply_that_is_cut_off_or_not_http_is_7624(enrolled, scripted, reply):
    scripted(get(**raw_answer(reply)))
    result = enrolled.command(*BY_ID)
    assert result.status == 252
    assert result.err in (
        "Requested operation failed with error: 7624\n",
        "Requested operation failed with error: 7623\n",
    )
    assert any("master1.example" in text for text in enrolled.log_texts(16))


@pytest.mark.parametrize("behaviour", ["close", "reset"])
def test_a_connection_that_ends_before_the_reply_is_7624(enrolled, scripted, behaviour):
    scripted(get(behaviour=behaviour))
    result = enrolled.command(*BY_ID)
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7624\n")


def test_a_body_that_ends_with_the_connection_is_judged_by_its_text(enrolled, scripted):
    scripted(get(**raw_answer(http("HTTP/1.1 200 OK", [], b'{"uuid":"1","hostNa'))))
    assert enrolled.command(*BY_ID).status == 114
    assert enrolled.command(*ALL).out == '{"hosts":[]}\n'


def test_a_reply_over_the_limit_is_7623(enrolled, scripted):
    enrolled.add_config("WEB_MAX_REPLY_MB = 1")
    scripted(get(status=200, body="x" * 1_100_000))
    result = enrolled.command(*BY_ID)
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7623\n")


def test_decoded_bytes_count_against_the_limit(enrolled, scripted):
    enrolled.add_config("WEB_MAX_REPLY_MB = 1")
    packed = gzip.compress(b" " * 50_000_000)
    headers = ["Content-Encoding: gzip", f"Content-Length: {len(packed)}"]
    scripted(get(**raw_answer(http("HTTP/1.1 200 OK", headers, packed))))
    result = enrolled.command(*BY_ID)
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7623\n")


def test_a_packed_reply_is_unpacked(enrolled, scripted):
    packed = gzip.compress(json.dumps(HOST).encode())
    headers = ["Content-Encoding: gzip", f"Content-Length: {len(packed)}"]
    scripted(get(**raw_answer(http("HTTP/1.1 200 OK", headers, packed))))
    assert json.loads(enrolled.command(*BY_ID).out)["hostName"] == "a"


def test_a_server_that_says_nothing_is_7620_at_the_limit(enrolled, scripted):
    enrolled.add_config("WEB_TRANSFER_SECONDS = 1")
    scripted(get(behaviour="silence"))
    result = enrolled.command(*BY_ID, timeout=20)
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7620\n")


def test_a_server_that_is_silent_in_the_handshake_is_7620_at_the_limit(enrolled, scripted):
    enrolled.add_config("WEB_CONNECT_SECONDS = 1")
    scripted({"connection": {"behaviour": "silence"}})
    result = enrolled.command(*BY_ID, timeout=20)
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7620\n")


def test_an_error_body_with_control_bytes_and_line_ends_cannot_forge_an_entry(enrolled, scripted):
    forged = "2026-01-01 00:00:00.000 [1] <2> forger: all is well"
    scripted(get(status=500, body=f"\x1b[2J\r\n{forged}\r\n"))
    enrolled.command(*BY_ID)
    assert b"\x1b" not in enrolled.log_files()[0].read_bytes()
    assert all(entry.context != "forger" for entry in enrolled.log())


def test_a_put_that_is_cut_off_is_not_repeated_by_the_client_but_by_the_next_attempt(enrolled, scripted):
    server = scripted({"method": "PUT", "times": 1, "answer": {"behaviour": "close"}})
    result = enrolled.update_without_waiting()
    assert result.status == 0
    assert result.injected_waits(10) == 1
    assert [method for method, _ in server.seen()] == ["PUT", "PUT"]
    assert "Update attempt [1] failed with error: 7624" in enrolled.log_texts(16)


def test_a_long_error_body_is_shown_whole(enrolled, scripted):
    body = json.dumps({"errorCode": 47, "errMessage": "x" * 1_000_000})
    scripted(get(status=500, body=body))
    result = enrolled.command(*BY_ID)
    assert (result.status, result.err) == (47, body + "\n")
