"""Connections that cannot be made, or break before anything is said."""

import time

import pytest

import bad_modes
from outcomes import ATTEMPTS, Fault, NotCarriedOut, NotTrusted, assert_failures, cases, check, failed_with
from wire_host import CONNECT_SECONDS, DROPPED, NO_NAME, NO_ROUTE, REFUSED, UNREACHABLE

NO_CONNECTION = NotCarriedOut(25, "no connection could be made")
NOT_IN_TIME = NotCarriedOut(7620, "the server did not answer in time")
NOT_TLS = NotTrusted(cause="no trusted connection could be made")
BUSY_MACHINE_SECONDS = 8
LARGE_BODY_BYTES = 8_000_000

FAULTS = (
    Fault("A1", REFUSED, NO_CONNECTION, ("read", "update", "enrol")),
    Fault("A1", NO_ROUTE, NO_CONNECTION),
    Fault("A1", UNREACHABLE, NO_CONNECTION),
    Fault("A1", NO_NAME, NotCarriedOut(25, "the server's name cannot be resolved"), ("read", "token")),
    Fault("A1", "reset-after-accept", NOT_TLS, ("read", "update")),
    Fault("A1", "close-after-accept", NOT_TLS),
    Fault("A2", DROPPED, NOT_IN_TIME, ()),
    Fault("A2", bad_modes.QUEUE_FULL, NOT_IN_TIME, ("enrol",)),
    Fault("A4", "handshake-silence", NOT_IN_TIME, ("token",)),
    Fault("A4", "handshake-drip", NOT_IN_TIME, ()),
    Fault("A5", "garbage", NOT_TLS),
    Fault("A5", "plain-http", NOT_TLS, ("read", "enrol")),
    Fault("A5", "ssh-banner", NOT_TLS),
    Fault("A5", "alert-flood", NOT_TLS),
    Fault("A5", "record-too-long", NOT_TLS),
)

# What asks one server, and asks it once.
OTHER_OPERATIONS = {
    "own-host": ("-read",),
    "all-hosts": ("-readallhosts",),
    "delete": ("-delete",),
    "reload-host": ("-reloadconfig", "-host"),
    "reload-security": ("-reloadconfig", "-security"),
}


@pytest.mark.parametrize("fault, operation", cases(FAULTS))
def test_connections_that_cannot_be_made(wire, fault, operation):
    check(wire, fault, operation)


@pytest.mark.row("A1")
@pytest.mark.parametrize("arguments", OTHER_OPERATIONS.values(), ids=OTHER_OPERATIONS.keys())
def test_what_asks_one_server_reports_a_refused_port_at_once(wire, arguments):
    wire.use(REFUSED)
    contract = wire.contract()
    result = wire.box.command(*arguments, inject=["clock_nanosleep:retval=0"])
    assert (result.status, result.out, result.err) == (25, "", failed_with(25))
    assert result.trace.count("nanosleep") == 0
    assert len(wire.failures()) == 1
    contract.check(result)


def time_of_read(wire, seconds):
    """How long a read takes that ends at the connect limit, with all other limits far away."""
    wire.set_limits(f"WEB_CONNECT_SECONDS = {seconds}", "WEB_TRANSFER_SECONDS = 120")
    start = time.monotonic()
    result = wire.read()
    assert (result.status, result.err) == (252, failed_with(7620))
    assert_failures(wire, "GET torquenix/config/hosts/1", "did not answer in time", 7620)
    return time.monotonic() - start


@pytest.mark.parametrize(
    "mode",
    [
        pytest.param(DROPPED, marks=pytest.mark.row("A2")),
        pytest.param(bad_modes.QUEUE_FULL, marks=[pytest.mark.row("A2"), pytest.mark.full]),
        pytest.param("handshake-silence", marks=[pytest.mark.row("A4"), pytest.mark.full]),
        pytest.param("handshake-drip", marks=[pytest.mark.row("A4"), pytest.mark.full]),
    ],
)
def test_the_connect_limit_covers_all_that_comes_before_the_request(wire, mode):
    wire.use(mode)
    seconds = time_of_read(wire, CONNECT_SECONDS)
    assert CONNECT_SECONDS <= seconds < CONNECT_SECONDS + BUSY_MACHINE_SECONDS


@pytest.mark.row("A3")
def test_dead_name_servers_cost_no_more_than_the_connect_limit(wire):
    # The library's thread that looks the name up goes on for 20 seconds: nobody may wait for its end.
    wire.use(NO_NAME)
    wire.use_dead_name_servers()
    contract = wire.contract()
    seconds = time_of_read(wire, CONNECT_SECONDS)
    assert CONNECT_SECONDS <= seconds < CONNECT_SECONDS + BUSY_MACHINE_SECONDS
    contract.check()


@pytest.mark.row("A3")
@pytest.mark.full
def test_dead_name_servers_are_asked_in_each_attempt_of_an_update(wire):
    wire.use_dead_name_servers()
    check(wire, Fault("A3", NO_NAME, NOT_IN_TIME), "update")


@pytest.mark.row("A4")
@pytest.mark.full
def test_a_server_that_never_reads_a_large_request_costs_the_total_limit(wire):
    summary = wire.box.torqv / "pack" / "pack.summary"
    summary.parent.mkdir()
    summary.write_text("HFX_Torquenix_9.1_PET_SET" + "x" * LARGE_BODY_BYTES + "\n")
    total = 8
    wire.set_limits("WEB_CONNECT_SECONDS = 5", f"WEB_TRANSFER_SECONDS = {total}")
    wire.use(bad_modes.NEVER_READS)
    contract = wire.contract()
    start = time.monotonic()
    result = wire.update()
    seconds = time.monotonic() - start
    assert ATTEMPTS * total <= seconds < ATTEMPTS * total + 2 * BUSY_MACHINE_SECONDS
    assert (result.status, result.err) == (252, failed_with(7620))
    put = f"PUT torquenix/config/hosts/{wire.box.identities()[0]['hostId']}"
    assert_failures(wire, put, "did not answer in time", 7620, ATTEMPTS)
    lengths = [entry["length"] for entry in wire.seen("request")]
    assert len(lengths) == ATTEMPTS and min(lengths) > LARGE_BODY_BYTES
    contract.check(result)
