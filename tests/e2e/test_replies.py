"""Requests and replies as they stand on the wire. Replies that go wrong are among the faults."""

import json

HOST = {"uuid": "1", "hostName": "a"}
BY_NAME = ["-read", "-hostname", "a", "-display"]


def get(**answer):
    return {"method": "GET", "answer": answer}


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


def test_a_put_that_is_cut_off_is_not_repeated_by_the_client_but_by_the_next_attempt(enrolled, scripted):
    server = scripted({"method": "PUT", "times": 1, "answer": {"behaviour": "close"}})
    result = enrolled.update_without_waiting()
    assert result.status == 0
    assert result.injected_waits(10) == 1
    assert [method for method, _ in server.seen()] == ["PUT", "PUT"]
    assert "Update attempt [1] failed with error: 7624" in enrolled.log_texts(16)
