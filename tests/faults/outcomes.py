"""What a misbehaving master server must lead to, whichever operation meets it, and the cases of a table of
such faults: every fault is met by a read, a request for a token, an update and an enrolment."""

import dataclasses
import json
import re
import time

import pytest

import bad_modes
from certificates import MASTER
from contract import identity_files, temporary_files
from sandbox import WEB_SERVICE_PORT
from wire_host import PLANTED_TOKEN, TOTAL_SECONDS

ATTEMPTS = 5
WAIT_SECONDS = 10
NO_ANSWER_BODY = "Unknown webservice exception encountered\n"
NO_TOKEN = 7625
UNKNOWN_ANSWER = 7500
BUSY_MACHINE_SECONDS = 20

# How tqenroll ends when a request could not be carried out, by the client's status.
ENROL_EXITS = {25: 4, 7620: 4, 7621: 5, 7622: 5, 7623: 8, 7624: 8}
INVITATION_REFUSED, REPLY_UNUSABLE = 7, 8


def exit_status(status):
    return status if status <= 255 else 252


def failed_with(status):
    return f"Requested operation failed with error: {status}\n"


def assert_failures(wire, what, cause, status, number=1):
    """The log names the server, the cause and the status, once for each request."""
    failures = wire.failures()
    assert [(failure[0], failure[2]) for failure in failures] == [(what, status)] * number, failures
    for failure in failures:
        assert re.search(cause, failure[1]), failure


def assert_update_failed(wire, result, status):
    """All attempts were made, with their waits, and the status stays behind for others to read."""
    assert (result.status, result.err) == (exit_status(status), failed_with(status))
    assert result.injected_waits(WAIT_SECONDS) == ATTEMPTS - 1
    assert result.trace.count("nanosleep(") == ATTEMPTS - 1, "other waits than those between attempts"
    assert wire.box.status_file().read_text() == f"{status}\n"
    assert not wire.box.cache_file().exists()


def assert_not_enrolled(wire, result, status, sentence):
    assert (result.status, result.out) == (status, "")
    assert re.fullmatch(rf"tqenroll: .*{re.escape(MASTER)}.*\.\n", result.err), result.err
    assert re.search(sentence, result.err), result.err
    assert identity_files(wire.box) == {}
    assert temporary_files(wire.box) == []


class Outcome:
    """What each operation must come to; a subclass says how."""

    def check_repeats(self, wire, operation):
        """The client itself repeats nothing."""
        connections = {"update": ATTEMPTS, "enrol": 2}.get(operation, 1)
        assert len(wire.seen("connection")) <= connections
        assert len(wire.requests()) <= (ATTEMPTS if operation == "update" else 1)


@dataclasses.dataclass(frozen=True)
class NotCarriedOut(Outcome):
    """No answer could be had: a status of the client, and a cause in words."""

    status: int
    cause: str = ""

    def check_read(self, wire, result):
        assert (result.status, result.out) == (exit_status(self.status), "")
        assert result.err == failed_with(self.status)
        assert_failures(wire, "GET torquenix/config/hosts/1", self.cause, self.status)

    def check_token(self, wire, result):
        assert (result.status, result.out) == (exit_status(self.status), "")
        assert result.err == failed_with(self.status)
        assert_failures(wire, "Asking for an access token", self.cause, self.status)

    def check_update(self, wire, result):
        assert_update_failed(wire, result, self.status)
        put = f"PUT torquenix/config/hosts/{wire.box.identities()[0]['hostId']}"
        assert_failures(wire, put, self.cause, self.status, ATTEMPTS)

    def check_enrol(self, wire, result):
        assert_not_enrolled(wire, result, ENROL_EXITS[self.status], self.cause)


@dataclasses.dataclass(frozen=True)
class NotTrusted(NotCarriedOut):
    """A server that is not trusted gets not a byte of a request."""

    status: int = 7621
    enrol_status: int = 5
    enrol_cause: str = "not trusted"

    def check_repeats(self, wire, operation):
        super().check_repeats(wire, operation)
        assert wire.requests() == []

    def check_enrol(self, wire, result):
        assert_not_enrolled(wire, result, self.enrol_status, self.enrol_cause)


@dataclasses.dataclass(frozen=True)
class Answered(Outcome):
    """An answer with another HTTP status than the operation's own."""

    http_status: int
    body: str = ""

    @property
    def code(self):
        try:
            return json.loads(self.body)["errorCode"]
        except (ValueError, KeyError):
            return UNKNOWN_ANSWER

    def check_read(self, wire, result):
        shown = self.body + "\n" if self.body else NO_ANSWER_BODY
        assert (result.status, result.out, result.err) == (exit_status(self.code), "", shown)
        if self.body:
            (line,) = [text for text in wire.box.log_texts(2) if text.startswith("HTTP status = ")]
            assert line.startswith(f"HTTP status = {self.http_status}, HTTP response body = ")
        self.check_noted(wire, 1)

    def check_noted(self, wire, number):
        """The log names the server and the HTTP status once for each request, also when there is no body."""
        noted = [text for text in wire.box.log_texts(8) if ": answered HTTP status " in text]
        named = rf"[A-Z]+ \S+, server {re.escape(MASTER)}, port 1556: "
        named += rf"answered HTTP status {self.http_status}\b"
        assert [bool(re.match(named, text)) for text in noted] == [True] * number, noted

    def check_token(self, wire, result):
        assert (result.status, result.err) == (252, failed_with(NO_TOKEN))
        cause = rf"the server answered HTTP status {self.http_status}\b"
        assert_failures(wire, "Asking for an access token", cause, NO_TOKEN)

    def check_update(self, wire, result):
        assert_update_failed(wire, result, self.code)
        caught = [text for text in wire.box.log_texts(16) if text.startswith("Caught WebServiceException")]
        assert [text.split(",")[1] for text in caught] == [f" err = {self.code}"] * ATTEMPTS
        self.check_noted(wire, ATTEMPTS)

    def check_enrol(self, wire, result):
        if self.http_status == 403:
            assert_not_enrolled(wire, result, INVITATION_REFUSED, "does not take the invitation")
        else:
            assert_not_enrolled(wire, result, REPLY_UNUSABLE, rf"HTTP status {self.http_status}\b")


@dataclasses.dataclass(frozen=True)
class AnsweredTwice(Answered):
    """A 401: the token is renewed once and the request repeated once; the second answer counts. No renewal
    helps where the answer is about a token, or where none was shown."""

    def check_repeats(self, wire, operation):
        methods = [method for method, _ in wire.requests()]
        once = {"read": ["GET", "POST", "GET"], "token": ["POST"], "enrol": ["POST"]}
        assert methods == once.get(operation, ["PUT", "POST", "PUT"] * ATTEMPTS)


@dataclasses.dataclass(frozen=True)
class Redirected(Answered):
    """Nobody goes where an answer leads: all that came, came to the server itself."""

    def check_repeats(self, wire, operation):
        super().check_repeats(wire, operation)
        places = {(entry["mode"], entry["port"]) for entry in wire.seen("connection")}
        assert len(places) == 1
        assert places.pop()[1] == WEB_SERVICE_PORT
        assert wire.seen("bytes") == []


@dataclasses.dataclass(frozen=True)
class NotRenewed(NotCarriedOut):
    """A 401 with no new token to be had: the old one stays."""

    status: int = NO_TOKEN

    def check_read(self, wire, result):
        assert (result.status, result.err) == (252, failed_with(NO_TOKEN))
        assert_failures(wire, "Renewing the access token", self.cause, NO_TOKEN)

    def check_update(self, wire, result):
        assert_update_failed(wire, result, NO_TOKEN)
        assert_failures(wire, "Renewing the access token", self.cause, NO_TOKEN, ATTEMPTS)

    def check_repeats(self, wire, operation):
        methods = [method for method, _ in wire.requests()]
        assert methods == (["GET", "POST"] if operation == "read" else ["PUT", "POST"] * ATTEMPTS)
        assert wire.stored_token() == PLANTED_TOKEN


@dataclasses.dataclass(frozen=True)
class TextDecides(Outcome):
    """The status of success, with a text that is not what was asked for. A PUT asks for none."""

    by_identifier: int = 114

    def check_read(self, wire, result):
        assert (result.status, result.err) == (
            self.by_identifier,
            failed_with(self.by_identifier) if self.by_identifier else "",
        )
        if self.by_identifier:
            (line,) = [text for text in wire.box.log_texts(16) if text.startswith("getHostByHostId, ")]
            assert line == "getHostByHostId, getHostObj returned false : "

    def check_token(self, wire, result):
        assert (result.status, result.err) == (252, failed_with(NO_TOKEN))
        assert_failures(wire, "Asking for an access token", "holds none that can be used", NO_TOKEN)

    def check_update(self, wire, result):
        assert (result.status, result.err) == (0, "")
        assert wire.box.cache_file().stat().st_size > 0
        assert not wire.box.status_file().exists()

    def check_enrol(self, wire, result):
        assert_not_enrolled(wire, result, REPLY_UNUSABLE, "cannot be used: .* ask for a new one")

    def check_repeats(self, wire, operation):
        expected = {"update": ["PUT", "POST"], "read": ["GET"]}.get(operation, ["POST"])
        assert [method for method, _ in wire.requests()] == expected


@dataclasses.dataclass(frozen=True)
class Works(TextDecides):
    """An odd answer that is good all the same."""

    by_identifier: int = 0

    def check_read(self, wire, result):
        assert (result.status, result.err) == (0, "")
        assert json.loads(result.out)["hostName"] == bad_modes.HOST["hostName"]

    def check_token(self, wire, result):
        self.check_read(wire, result)

    def check_enrol(self, wire, result):
        assert_not_enrolled(wire, result, REPLY_UNUSABLE, 'it has no "hostId"')

    def check_repeats(self, wire, operation):
        if operation == "token":
            assert [method for method, _ in wire.requests()] == ["POST", "GET"]
        else:
            super().check_repeats(wire, operation)


# The table and its cases

OPERATIONS = ("read", "token", "update", "enrol")


@dataclasses.dataclass(frozen=True)
class Fault:
    """One way of misbehaving, what it leads to, and which operations meet it in every test run (`quick`)
    or at all."""

    row: str
    mode: str
    outcome: Outcome
    quick: tuple = ("read",)
    operations: tuple = OPERATIONS


def cases(faults):
    """Every fault with each of its operations, as parameters of a test."""
    for fault in faults:
        for operation in fault.operations:
            marks = [pytest.mark.row(fault.row)]
            if operation not in fault.quick:
                marks.append(pytest.mark.full)
            yield pytest.param(fault, operation, marks=marks, id=f"{fault.mode}-{operation}")


def run(wire, fault, operation):
    """Lets an operation meet a fault; gives its result."""
    wire.use(fault.mode, bad_modes.TOKENS if operation == "token" else bad_modes.REQUESTS)
    if operation == "update":
        return wire.update()
    return wire.enrol() if operation == "enrol" else wire.read()


def check(wire, fault, operation):
    """One case: what the operation comes to, how long it takes, what it leaves, and that the host heals.
    Gives the result of the operation."""
    if operation == "token":
        wire.drop_token()
    elif operation == "enrol":
        wire.forget_identity()
    contract = wire.contract()
    start = time.monotonic()
    result = run(wire, fault, operation)
    requests = ATTEMPTS if operation == "update" else 2
    assert time.monotonic() - start < requests * TOTAL_SECONDS + BUSY_MACHINE_SECONDS
    getattr(fault.outcome, f"check_{operation}")(wire, result)
    fault.outcome.check_repeats(wire, operation)
    contract.check(result)
    if operation == "update":
        wire.heal(contract)
    elif operation == "enrol":
        wire.use_real_master()
        assert wire.enrol().status == 0
    return result
