"""Every way in which a master server's replies can go wrong, met by every operation that waits for one."""

import json

import pytest

import bad_modes
from outcomes import (
    OPERATIONS,
    Answered,
    AnsweredTwice,
    Fault,
    NotCarriedOut,
    Redirected,
    TextDecides,
    Works,
    cases,
    check,
)
from test_connections import OTHER_OPERATIONS

IN_TIME = "the server did not answer in time"
ENDLESS = NotCarriedOut(7620, IN_TIME)
TOO_LARGE = NotCarriedOut(7623, "the reply is larger than allowed")
NO_HTTP = NotCarriedOut(7624, "the reply is not HTTP")
LOST = NotCarriedOut(7624, "the connection was lost or the reply is damaged")
CUT_OFF = NotCarriedOut(7624, "the reply was cut off")
NO_REPLY = NotCarriedOut(7624, "the server closed the connection without a reply")
NOT_PACKED = NotCarriedOut(7624, "the reply cannot be decompressed")
NEVER = ()  # in no quick run: it waits for a limit, or shows what others show
ALL_BUT_UPDATE = ("read", "token", "enrol")

REPLIES = (
    Fault("B1", "silence-before-headers", ENDLESS),
    Fault("B1", "headers-drip", ENDLESS, NEVER),
    Fault("B1", "close-before-reply", NO_REPLY, ("read", "update")),
    Fault("B1", "reset-before-reply", LOST),
    Fault("B2", "silence-in-body", ENDLESS, NEVER),
    Fault("B2", "body-drip", ENDLESS, NEVER),
    Fault("B2", "chunk-drip", ENDLESS, NEVER),
    Fault("B2", "reset-in-body", LOST, ("read", "enrol")),
    Fault("B3", "truncated", CUT_OFF, ("read", "token")),
    Fault("B3", "length-too-small", TextDecides()),
    Fault("B3", "length-negative", NO_HTTP),
    Fault("B3", "length-words", NO_HTTP),
    # A length that no number holds counts as none: the body ends with the connection.
    Fault("B3", "length-huge", TextDecides(by_identifier=0)),
    # The last of two lengths holds.
    Fault("B3", "two-lengths", Works(), operations=("read", "token", "update")),
    # A body that ends with the connection cannot be told from a whole one: its text decides.
    Fault("B4", "until-close-cut", TextDecides(), ("read", "token", "update", "enrol")),
    Fault("B4", "until-close-good", Works(), operations=("read", "token", "update")),
    Fault("B5", "chunk-size-bad", LOST),
    Fault("B5", "chunk-size-huge", LOST),
    Fault("B5", "chunks-cut", CUT_OFF),
    Fault("B5", "endless-chunks", TOO_LARGE),
    Fault("B5", "endless-body", TOO_LARGE, ("read", "token", "update", "enrol")),
    Fault("B5", "long-body", TOO_LARGE),
    Fault("B6", "continue-flood", TOO_LARGE),
    Fault("B6", "early-hints-flood", TOO_LARGE),
    Fault("B7", "header-flood", TOO_LARGE, ("read", "token")),
    Fault("B7", "one-endless-header", NotCarriedOut(7624, "the reply begins with an endless header")),
    Fault("B7", "nul-in-header", NO_HTTP),
    Fault("B7", "http-0.9", NO_REPLY),
    Fault("B7", "bad-status-line", NO_HTTP),
    Fault("B7", "bad-version", NO_HTTP),
    Fault("B7", "no-http", NO_HTTP, ("read", "enrol")),
    Fault("B8", "gzip-bomb", TOO_LARGE, ("read", "token")),
    Fault("B8", "gzip-in-gzip", TOO_LARGE),
    Fault("B8", "gzip-transfer", TOO_LARGE),
    Fault("B8", "gzip-good", Works(), operations=("read", "token", "update")),
    Fault("B8", "gzip-cut", TextDecides()),
    Fault("B8", "gzip-damaged", NOT_PACKED),
    Fault("B8", "no-gzip", NOT_PACKED),
    Fault("B10", "status-201", Answered(201, json.dumps(bad_modes.HOST)), ("read",), ("read", "update")),
    Fault("B10", "status-204", Answered(204), ("read", "update")),
    Fault("B10", "status-204-with-body", Answered(204)),
    Fault("B10", "status-304", Answered(304)),
    Fault("B10", "type-html", Works(), ("read", "update"), operations=("read", "token", "update")),
    Fault("B10", "type-garbage", Works(), operations=("read", "token", "update")),
    Fault("B10", "type-missing", Works(), operations=("read", "token", "update")),
)


def error_statuses():
    """With a JSON body they meet every operation; the others say what becomes of a body."""
    for number in bad_modes.ERROR_STATUSES:
        for name, body in bad_modes.ERROR_BODIES.items():
            answered = (AnsweredTwice if number == 401 else Answered)(number, body.decode())
            quick = ("read",) if number in (401, 503) or name == "empty" else NEVER
            operations = OPERATIONS if name == "json" else ALL_BUT_UPDATE
            yield Fault("B11", f"status-{number}-{name}", answered, quick, operations)


def redirects():
    for number in bad_modes.REDIRECTS:
        for name in bad_modes.REDIRECT_TARGETS:
            quick = ("read",) if number in (302, 308) or name == "host" else NEVER
            operations = OPERATIONS if name == "host" else ALL_BUT_UPDATE
            yield Fault("B9", f"redirect-{number}-{name}", Redirected(number), quick, operations)


def retries():
    """What a server says about when to come back changes nothing."""
    answered = Answered(503, bad_modes.ERROR_JSON.decode())
    for name in bad_modes.RETRY_AFTER:
        quick = ("read", "update") if name == "1e12" else ("read",)
        yield Fault("B12", f"retry-after-{name}", answered, quick)
    yield Fault("B12", "status-503-json", answered, NEVER, ("update",))


FAULTS = (*REPLIES, *redirects(), *error_statuses(), *retries())


@pytest.mark.parametrize("fault, operation", cases(FAULTS))
def test_replies_that_go_wrong(wire, fault, operation):
    check(wire, fault, operation)


DONE = None
ERROR = bad_modes.ERROR_JSON.decode()
REFUSED_503, REFUSED_401 = Answered(503, ERROR), Answered(401, ERROR)

# Operation, row, mode and outcome. A deletion and a reload ask for a status and for no text.
WHAT_OTHER_OPERATIONS_MEET = (
    ("delete", "B10", "status-204-with-body", DONE),
    ("delete", "B10", "type-html", DONE),
    ("delete", "B10", "text-not-utf-8", DONE),
    ("delete", "B10", "status-201", Answered(201)),
    ("delete", "B10", "status-304", Answered(304)),
    ("reload-host", "B10", "text-cut", DONE),
    ("reload-host", "B10", "status-204", Answered(204)),
    ("reload-security", "B10", "text-empty", DONE),
    ("delete", "B9", "redirect-307-host", Answered(307)),
    ("reload-host", "B9", "redirect-302-itself", Answered(302)),
    *((name, "B11", "status-503-json", REFUSED_503) for name in OTHER_OPERATIONS),
    *((name, "B11", "status-401-json", REFUSED_401) for name in OTHER_OPERATIONS),
)


def other_operations():
    for name, row, mode, outcome in WHAT_OTHER_OPERATIONS_MEET:
        marks = [pytest.mark.row(row)] + ([] if name == "delete" else [pytest.mark.full])
        yield pytest.param(name, mode, outcome, marks=marks, id=f"{mode}-{name}")


@pytest.mark.parametrize("name, mode, outcome", other_operations())
def test_answers_to_operations_that_make_one_attempt(wire, name, mode, outcome):
    wire.use(mode)
    contract = wire.contract()
    result = wire.box.command(*OTHER_OPERATIONS[name])
    if outcome is DONE:
        assert (result.status, result.out, result.err) == (0, "", "")
    else:
        outcome.check_read(wire, result)
    method = "DELETE" if name == "delete" else "GET"
    expected = [method, "POST", method] if outcome is REFUSED_401 else [method]
    assert [method for method, _ in wire.requests()] == expected
    assert len({entry["mode"] for entry in wire.seen("connection")}) == 1
    contract.check(result)


def hostile_texts():
    """With the messages the error body is JSON that holds the text, without it is the text."""
    for name, text in bad_modes.HOSTILE_TEXTS.items():
        quick = ("read", "token", "update", "enrol") if name in ("esc", "cr-lf") else ("read",)
        yield Fault("B13", f"hostile-body-{name}", Answered(500, text), ("read",))
        message = bad_modes.hostile_json(text).decode()
        yield Fault("B13", f"hostile-message-{name}", Answered(500, message), quick)


@pytest.mark.parametrize("fault, operation", cases(hostile_texts()))
def test_error_texts_forge_no_entry_of_the_log(wire, fault, operation):
    result = check(wire, fault, operation)
    if operation == "enrol":  # which has no debug log, and shows one line
        assert result.err.removesuffix("\n").isprintable()
        return
    for file in wire.box.log_files():
        raw = set(file.read_bytes().decode())
        assert {char for char in raw if not char.isprintable()} <= {"\n", "\t"}
    entries = wire.box.log()
    assert entries and all(entry.context != "forger" for entry in entries)
