"""Clients that take their time, two hundred at once: a good client is served as if they were not there, and
nothing lasts for ever."""

import contextlib
import select
import sqlite3
import threading
import time

import pytest

from attacked_server import GOOD_CLIENT_SECONDS, AttackedServer
from master_client import HOSTS, compose
from sandbox import is_sanitized

CONNECTIONS = 200
MOST_CONNECTIONS = 512  # that the server serves at once; others wait until it lets go of a silent one
OTHER_THREADS = 4
MORE_THAN_IT_BEARS = 600

# A list that is far more than what fits between a server and a client that does not read.
FLEET_HOSTS = 1200
FLEET_RECORD_BYTES = 16 * 1024
LIST_BYTES = FLEET_HOSTS * FLEET_RECORD_BYTES
# What the server may need for all of them together; holding a list for each would be 4 GB. The sanitizers
# keep what is freed, for a while and in each thread.
MEMORY_MIB, SANITIZED_MEMORY_MIB = 400, 1500


def before_tls(attacked):
    return attacked.client.connect_plain()


def in_the_handshake(attacked):
    connection = attacked.client.connect_plain()
    connection.sendall(b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03")  # the beginning of a client's hello
    return connection


def without_a_request(attacked):
    return attacked.client.connect(attacked.a)


def half_a_header(attacked):
    connection = attacked.client.connect(attacked.a)
    connection.sendall(b"GET / HTTP/1.1\r\nHost: mas")
    return connection


def body_to_come(attacked):
    connection = attacked.client.connect(attacked.a)
    connection.sendall(compose("PUT", attacked.a.path, attacked.a, headers=["Content-Length: 200000"]))
    return connection


def reply_unread(attacked):
    connection = attacked.client.connect(attacked.a, receive_buffer=4096)
    connection.sendall(compose("GET", HOSTS, attacked.a))
    return connection


def send_a_byte(connection):
    connection.sendall(b" ")


def read_a_byte(connection):
    connection.recv(1)


def do_nothing(_connection):
    pass


# How a connection begins, and what it does again and again from then on.
MANNERS = {
    "silent before TLS": (before_tls, do_nothing),
    "silent in the handshake": (in_the_handshake, do_nothing),
    "silent after the handshake": (without_a_request, do_nothing),
    "silent within a header": (half_a_header, do_nothing),
    "header byte by byte": (half_a_header, send_a_byte),
    "body byte by byte": (body_to_come, send_a_byte),
    "reply never read": (reply_unread, do_nothing),
    "reply read byte by byte": (reply_unread, read_a_byte),
}
QUICK = ("silent before TLS", "silent within a header", "body byte by byte", "reply read byte by byte")


@contextlib.contextmanager
def kept_busy(connections, step):
    """Takes a step on every connection, again and again; one that the server ended is left alone."""
    ended = threading.Event()

    def work():
        alive = list(connections)
        while not ended.wait(0.2):
            for connection in list(alive):
                try:
                    connection.settimeout(5)
                    step(connection)
                except OSError:
                    alive.remove(connection)

    worker = threading.Thread(target=work)
    worker.start()
    try:
        yield
    finally:
        ended.set()
        worker.join()


def fill_with_a_fleet(master):
    """Enters the records of a fleet behind the server's back: enrolling them would only take time."""
    record = '{"osType":"' + "x" * FLEET_RECORD_BYTES + '"}'
    into_hosts = "INSERT INTO host (host_id, host_name, record) VALUES (?, ?, ?)"
    file = master.data_outside / "hosts.db"
    with contextlib.closing(sqlite3.connect(file, timeout=30)) as database, database:
        for number in range(FLEET_HOSTS):
            host = (f"id-{number:05}", f"fleet-{number:05}")
            database.execute("INSERT INTO identity (host_id, host_name, type) VALUES (?, ?, 'host')", host)
            database.execute(into_hosts, (*host, record))


@pytest.fixture(scope="module")
def fleet(shared_master):
    """A master server whose list of hosts is long."""
    attacked = AttackedServer(shared_master)
    fill_with_a_fleet(shared_master)
    return attacked


@pytest.mark.row("S1")
@pytest.mark.parametrize(
    "manner", [name if name in QUICK else pytest.param(name, marks=pytest.mark.full) for name in MANNERS]
)
def test_two_hundred_slow_clients_keep_nobody_waiting(fleet, manner, figure):
    begin, step = MANNERS[manner]
    with contextlib.ExitStack() as stack:
        connections = [stack.enter_context(begin(fleet)) for _ in range(CONNECTIONS)]
        with kept_busy(connections, step):
            seconds = fleet.seconds_of_a_good_client()
    assert seconds < GOOD_CLIENT_SECONDS
    limit = SANITIZED_MEMORY_MIB if is_sanitized(fleet.box.build) else MEMORY_MIB
    assert fleet.peak_memory_mib() < limit
    figure("slow connections", CONNECTIONS)


@pytest.mark.row("S1")
@pytest.mark.full
def test_more_clients_than_the_server_bears_at_once_wait_for_those_who_say_nothing(fleet, figure):
    with contextlib.ExitStack() as stack:
        for _ in range(MORE_THAN_IT_BEARS):
            stack.enter_context(before_tls(fleet))
        assert fleet.client.put(fleet.b, osType="before").status == 200  # within the client's own limit
        assert MOST_CONNECTIONS <= fleet.threads() <= MOST_CONNECTIONS + OTHER_THREADS
    assert fleet.seconds_of_a_good_client() < GOOD_CLIENT_SECONDS
    figure("slow connections", MORE_THAN_IT_BEARS)


def seconds_until_closed(connection, step, longest):
    """How long a server lets a connection go on that takes a step now and then and gets no reply."""
    start = time.monotonic()
    with contextlib.suppress(OSError):  # a step towards a server that has hung up
        while time.monotonic() - start < longest and not select.select([connection], [], [], 0.1)[0]:
            step(connection)
    return time.monotonic() - start


@pytest.mark.row("S1")
@pytest.mark.full
@pytest.mark.parametrize(
    "manner, least, most",
    [
        ("silent before TLS", 10, 40),
        ("silent in the handshake", 10, 40),
        ("silent after the handshake", 10, 40),
        ("header byte by byte", 20, 60),
        ("body byte by byte", 20, 60),
    ],
)
def test_a_client_that_asks_slowly_is_let_go_at_its_limit(fleet, manner, least, most):
    begin, step = MANNERS[manner]
    with begin(fleet) as connection:
        seconds = seconds_until_closed(connection, step, most)
    assert least < seconds < most


@pytest.mark.row("S1")
@pytest.mark.full
def test_a_client_that_takes_its_reply_slowly_is_let_go_at_its_limit(fleet):
    taken = 0
    start = time.monotonic()
    with reply_unread(fleet) as connection:
        with contextlib.suppress(OSError):
            while time.monotonic() - start < 300 and (piece := connection.recv(2048)):
                taken += len(piece)
                time.sleep(0.05)  # 40 KiB a second, where the server asks for 64
    assert taken < LIST_BYTES
    assert 30 < time.monotonic() - start < 300
