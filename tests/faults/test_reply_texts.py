"""Replies whose text is not what was asked for: what each way of reading makes of them, and never a crash."""

import json

import pytest

import bad_modes
from outcomes import Fault, TextDecides, cases, check, failed_with

READS = {
    "by-name": ("-read", "-hostname", "a", "-display"),
    "by-identifier": ("-read", "-hostid", "1", "-display"),
    "own": ("-read", "-display"),
    "all": ("-readallhosts", "-display"),
}
NO_HOST = "Unable to get host information from server response."
NO_HOSTS_SHOWN = '{"hosts":[]}\n'
LARGE_REPLIES = "WEB_MAX_REPLY_MB = 64"

# Text -> row, and the statuses of a read by name, of one by identifier and of the list of all hosts. A read
# by name needs a list with a host in it, one by identifier a text that is JSON once it stands in brackets,
# the list of all hosts needs nothing at all.
NO_JSON = (114, 114, 0)
JSON_WITHOUT_HOST = (114, 0, 0)
WITH_HOST = (0, 0, 0)
TEXTS = {
    "empty": ("C1", JSON_WITHOUT_HOST),
    "null": ("C1", JSON_WITHOUT_HOST),
    "array": ("C1", JSON_WITHOUT_HOST),
    "text": ("C1", JSON_WITHOUT_HOST),
    "number": ("C1", JSON_WITHOUT_HOST),
    "two-documents": ("C1", NO_JSON),
    "two-records": ("C1", JSON_WITHOUT_HOST),
    "byte-order-mark": ("C1", NO_JSON),
    "comment": ("C1", NO_JSON),
    "trailing-junk": ("C1", NO_JSON),
    "trailing-bracket": ("C1", NO_JSON),
    "cut": ("C1", NO_JSON),
    "hosts-missing": ("C2", JSON_WITHOUT_HOST),
    "hosts-is-object": ("C2", JSON_WITHOUT_HOST),
    "hosts-is-empty": ("C2", JSON_WITHOUT_HOST),
    "hosts-twice": ("C2", JSON_WITHOUT_HOST),
    "hosts-of-number": ("C2", WITH_HOST),
    "fields-of-wrong-type": ("C2", WITH_HOST),
    "field-twice": ("C2", WITH_HOST),
    "unknown-field": ("C2", WITH_HOST),
    "400-digits": ("C2", NO_JSON),
    "infinite-number": ("C2", NO_JSON),
    "minus-zero": ("C2", WITH_HOST),
    "deep-2047": ("C3", JSON_WITHOUT_HOST),
    "deep-2048": ("C3", NO_JSON),
    "deep-100000": ("C3", NO_JSON),
    "deep-1000000": ("C3", NO_JSON),
    "deep-2047-open": ("C3", NO_JSON),
    "deep-2048-open": ("C3", NO_JSON),
    "deep-100000-open": ("C3", NO_JSON),
    "deep-1000000-open": ("C3", NO_JSON),
    "deep-objects-2048": ("C3", NO_JSON),
    "deep-objects-100000": ("C3", NO_JSON),
    "deep-objects-1000000": ("C3", NO_JSON),
    "not-utf-8": ("C4", NO_JSON),
    "overlong": ("C4", NO_JSON),
    "lone-surrogate": ("C4", NO_JSON),
    "raw-nul": ("C4", NO_JSON),
    "escaped-nul": ("C4", NO_JSON),
    "nul-first": ("C4", NO_JSON),
    "nul-behind-a-host": ("C4", NO_JSON),
    "10-mb-string": ("C4", JSON_WITHOUT_HOST),
}
# Records that are no objects, or hold nothing: each field is noted at error level, as what it lacks.
NO_OBJECT, NO_TEXT = "data object", "string"
RECORDS_NOTED = {
    "empty": NO_OBJECT,
    "null": NO_OBJECT,
    "array": NO_OBJECT,
    "text": NO_OBJECT,
    "number": NO_OBJECT,
    "two-records": NO_TEXT,
    "hosts-missing": NO_TEXT,
    "hosts-of-number": NO_OBJECT,
    "fields-of-wrong-type": NO_TEXT,
    "deep-2047": NO_OBJECT,
}
EMPTY_RECORD = {
    **dict.fromkeys(("hostId", "hostName", "masterServer", "osType", "osVersion", "osReleaseVersion"), ""),
    **dict.fromkeys(("installedHFXs", "installedPackages", "kqUpdatePlatform", "hwDescription"), ""),
    **dict.fromkeys(("cpuArchitecture", "tquVersion", "trustVersion", "machineType", "hypervisorType"), ""),
    **{"servers": [], "clusterSharedNames": [], "isSecureEnabled": False},
}
ONLY_IN_FULL = (
    "deep-2047-open",
    "deep-2048-open",
    "deep-objects-2048",
    "deep-1000000",
    "deep-objects-100000",
)


def text_cases():
    for name, (row, statuses) in TEXTS.items():
        marks = [pytest.mark.row(row)] + ([pytest.mark.full] if name in ONLY_IN_FULL else [])
        yield pytest.param(name, statuses, marks=marks, id=name)


@pytest.mark.parametrize("name, statuses", text_cases())
def test_what_each_way_of_reading_makes_of_a_text(wire, name, statuses):
    by_name, by_identifier, all_hosts = statuses
    expected = {"by-name": by_name, "by-identifier": by_identifier, "own": by_identifier, "all": all_hosts}
    wire.use(f"text-{name}")
    wire.set_limits(LARGE_REPLIES)
    contract = wire.contract()
    results = {way: wire.box.command(*arguments) for way, arguments in READS.items()}
    assert {way: result.status for way, result in results.items()} == expected
    for way, result in results.items():
        assert result.err == (failed_with(114) if expected[way] else ""), way
        assert (result.out == "") == (expected[way] != 0), way
    refused = [text for text in wire.box.log_texts(16) if text == NO_HOST]
    assert len(refused) == sum(expected[way] == 114 for way in ("by-name", "own"))
    unparsed = [text for text in wire.box.log_texts(16) if text.startswith("load_json() failed:")]
    assert len(unparsed) == (len(READS) if by_identifier == 114 else 0)
    if by_name == 114:
        assert results["all"].out == NO_HOSTS_SHOWN
    contract.check(*results.values())


def read_from_list(name):
    return "by-name" if name in ("hosts-of-number", "fields-of-wrong-type") else "by-identifier"


@pytest.mark.row("C1")
@pytest.mark.parametrize("name", RECORDS_NOTED)
def test_a_record_that_holds_no_field_is_noted_and_gives_an_empty_one(wire, name):
    wire.use(f"text-{name}")
    result = wire.box.command(*READS[read_from_list(name)])
    assert (result.status, result.err) == (0, "")
    assert json.loads(result.out) == EMPTY_RECORD
    noted = f"Invalid JSON {RECORDS_NOTED[name]} for key and rec num:"
    assert {f"{noted}uuid,0", f"{noted}hostName,0"} <= set(wire.box.log_texts(16))


@pytest.mark.row("C2")
@pytest.mark.parametrize("way", ["by-name", "by-identifier"])
@pytest.mark.parametrize("name", ["unknown-field", "minus-zero"])
def test_an_unknown_field_changes_nothing_of_those_that_are_known(wire, name, way):
    wire.use(f"text-{name}")
    result = wire.box.command(*READS[way])
    assert (result.status, result.err) == (0, "")
    assert json.loads(result.out) == EMPTY_RECORD | {"hostId": "1"}
    assert not any("odd" in text for text in wire.box.log_texts(16))


@pytest.mark.row("C2")
def test_of_a_key_that_stands_twice_the_last_holds(wire):
    wire.use("text-field-twice")
    assert json.loads(wire.read().out)["hostName"] == "last"


@pytest.mark.row("C2")
@pytest.mark.parametrize("way", READS)
def test_a_list_field_whose_elements_are_no_texts_ends_as_an_unknown_failure(wire, way):
    # Element texts are taken unchecked; what the string class says to none is no status, so it ends with 0.
    wire.use("text-servers-of-numbers")
    contract = wire.contract()
    result = wire.box.command(*READS[way])
    assert (result.status, result.out) == (0, "")
    assert result.err == "Requested operation failed with unknown error\n"
    contract.check(result)


@pytest.mark.row("B4")
def test_a_list_that_was_cut_by_the_end_of_the_connection_is_empty_and_noted(wire):
    wire.use("until-close-cut")
    result = wire.box.command(*READS["all"])
    assert (result.status, result.out, result.err) == (0, NO_HOSTS_SHOWN, "")
    assert any(text.startswith("load_json() failed:") for text in wire.box.log_texts(16))


@pytest.mark.row("C4")
def test_a_string_of_10_mb_comes_through_whole(wire):
    wire.use("text-10-mb-string")
    wire.set_limits(LARGE_REPLIES)
    assert json.loads(wire.read().out)["hostName"] == "x" * 10_000_000


def texts_nobody_asked_for():
    """The same texts as the answer to a request for a token, and to an enrolment."""
    for name, (row, _) in TEXTS.items():
        if len(bad_modes.TEXTS[name]) < bad_modes.MEGABYTE:
            quick = ("token", "enrol") if name in ("null", "raw-nul") else ()
            yield Fault(row, f"text-{name}", TextDecides(), quick, ("token", "enrol"))


@pytest.mark.parametrize("fault, operation", cases(texts_nobody_asked_for()))
def test_texts_that_hold_neither_token_nor_identity(wire, fault, operation):
    check(wire, fault, operation)
