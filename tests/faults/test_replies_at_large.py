"""What broken replies cost: memory, time, a record that was stored although the reply was lost, and the other
servers of a host."""

import json
import time

import pytest

import bad_modes
from outcomes import ATTEMPTS, assert_failures, assert_update_failed, failed_with
from sandbox import BIN_DIR
from wire_host import FIVE_MASTERS, PLACES, READ, REFUSED, TOTAL_SECONDS

LIMIT_MEGABYTES = 40
STALL_SECONDS = 60
BUSY_MACHINE_SECONDS = 20


def peak_megabytes(wire, mode, status):
    """The most memory that a read of a mode's reply took."""
    wire.use(mode)
    # A sanitizer keeps what was freed for a while, which is no memory of ours.
    options = wire.box.environment()["ASAN_OPTIONS"] + ":quarantine_size_mb=1"
    program = ["/usr/bin/python3", "-I", "/faults/peak_memory.py", "/shared/peak", f"{BIN_DIR}/tqhostdbcmd"]
    result = wire.box.run(program + list(READ), env={"ASAN_OPTIONS": options})
    assert result.status == status, result.err
    return int((wire.box.shared / "peak").read_text()) / 1024


@pytest.mark.parametrize(
    "mode",
    [
        pytest.param("endless-body", marks=pytest.mark.row("B5")),
        pytest.param("endless-chunks", marks=[pytest.mark.row("B5"), pytest.mark.full]),
        pytest.param("gzip-bomb", marks=pytest.mark.row("B8")),
        pytest.param("gzip-in-gzip", marks=[pytest.mark.row("B8"), pytest.mark.full]),
        pytest.param("gzip-transfer", marks=[pytest.mark.row("B8"), pytest.mark.full]),
    ],
)
def test_a_reply_over_the_limit_takes_no_more_than_twice_the_limit(wire, mode):
    wire.set_limits(f"WEB_MAX_REPLY_MB = {LIMIT_MEGABYTES}", "WEB_TRANSFER_SECONDS = 60")
    small = peak_megabytes(wire, "good", 0)
    large = peak_megabytes(wire, mode, 252) - small
    assert wire.failures()[0][2] == 7623
    assert LIMIT_MEGABYTES / 2 < large <= 2.2 * LIMIT_MEGABYTES


@pytest.mark.row("B2")
@pytest.mark.full
@pytest.mark.parametrize("mode", ["silence-in-body", "silence-before-headers"])
def test_a_minute_without_a_byte_ends_a_request_before_its_limit(wire, mode):
    wire.set_limits("WEB_CONNECT_SECONDS = 5", "WEB_TRANSFER_SECONDS = 300")
    wire.use(mode)
    start = time.monotonic()
    result = wire.read()
    assert STALL_SECONDS <= time.monotonic() - start < STALL_SECONDS + BUSY_MACHINE_SECONDS
    assert (result.status, result.err) == (252, failed_with(7620))
    assert_failures(wire, "GET torquenix/config/hosts/1", "Operation too slow", 7620)


# A reply that is lost behind a stored record


def rows_of_host(wire):
    """The own host's records on the real master server."""
    wire.use_real_master()
    result = wire.box.command("-readallhosts", "-display")
    assert result.status == 0, result.err
    own = wire.box.identities()[0]["hostName"]
    return [host for host in json.loads(result.out)["hosts"] if host["hostName"] == own]


@pytest.mark.row("B14")
def test_a_record_that_was_stored_before_its_reply_was_lost_is_there_once(wire):
    assert wire.box.command("-readallhosts").status == 0  # brings a token that the real server knows
    wire.use(bad_modes.STORED_THEN_RESET)
    contract = wire.contract()
    result = wire.update()
    assert_update_failed(wire, result, 7624)
    assert [entry["status"] for entry in wire.seen("stored")] == [200] * ATTEMPTS
    contract.check(result)
    stored = rows_of_host(wire)
    assert len(stored) == 1
    wire.heal(contract)
    assert rows_of_host(wire) == stored


# Several servers


def use_each(wire, servers):
    """Gives the host an identity towards each server, and leads each name to a mode or a place."""
    wire.give_identities(servers)
    addresses = {
        server: PLACES.get(mode) or bad_modes.address_of(mode) for server, mode in servers.items()
    }
    wire.point(**addresses)


def attempts_of(wire, mode):
    return [entry for entry in wire.seen("request", mode) if entry["method"] == "PUT"]


@pytest.mark.row("B15")
@pytest.mark.row("A1")
@pytest.mark.parametrize(
    "bad, status",
    [
        (REFUSED, 25),
        pytest.param("status-503-json", bad_modes.ERROR_CODE, marks=pytest.mark.full),
        pytest.param("silence-before-headers", 7620, marks=pytest.mark.full),
        pytest.param("certificate-expired", 7621, marks=pytest.mark.full),
        pytest.param("endless-body", 7623, marks=pytest.mark.full),
    ],
)
@pytest.mark.parametrize("place", [0, pytest.param(4, marks=pytest.mark.full)])
def test_one_bad_server_of_five_keeps_no_other_from_its_update(wire, bad, status, place):
    servers = dict.fromkeys(FIVE_MASTERS, "good")
    servers[FIVE_MASTERS[place]] = bad
    use_each(wire, servers)
    contract = wire.contract()
    start = time.monotonic()
    result = wire.update()
    assert time.monotonic() - start < ATTEMPTS * TOTAL_SECONDS + 2 * BUSY_MACHINE_SECONDS
    assert (result.status, result.err) == (0, "")
    assert len(attempts_of(wire, "good")) == 4
    for server, mode in servers.items():
        assert wire.box.cache_file(server).exists() == (mode == "good")
        assert wire.box.status_file(server).exists() == (mode == bad)
    assert wire.box.status_file(FIVE_MASTERS[place]).read_text() == f"{status}\n"
    contract.check(result)
    servers[FIVE_MASTERS[place]] = "good"
    wire.point(**{server: bad_modes.address_of("good") for server in servers})
    assert wire.box.command("-update").status == 0
    assert not wire.box.status_file(FIVE_MASTERS[place]).exists()


@pytest.mark.row("B15")
@pytest.mark.row("A1")
@pytest.mark.full
def test_five_dead_servers_each_leave_their_own_status(wire):
    modes = (REFUSED, "reset-after-accept", "close-before-reply", "status-503-json", "certificate-expired")
    statuses = (25, 7621, 7624, bad_modes.ERROR_CODE, 7621)
    use_each(wire, dict(zip(FIVE_MASTERS, modes)))
    contract = wire.contract()
    result = wire.update()
    # The last server's status is the command's.
    assert (result.status, result.err) == (252, failed_with(7621))
    assert result.injected_waits(10) == len(FIVE_MASTERS) * (ATTEMPTS - 1)
    left = [wire.box.status_file(server).read_text() for server in FIVE_MASTERS]
    assert left == [f"{status}\n" for status in statuses]
    assert not any(wire.box.cache_file(server).exists() for server in FIVE_MASTERS)
    contract.check(result)
