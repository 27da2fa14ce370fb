"""What a master server has answered is there after a kill; on a full disk it refuses, keeps what it had and
works again when there is room."""

import contextlib
import dataclasses
import random
import shutil
import signal
import sqlite3
import threading
import time

import pytest

from attacked_server import is_error
from master_client import HOSTS, TOKENS, MasterClient, make_request
from servers import PROGRAM

WRITERS = 6
KILL_ROUNDS_QUICK = 4
KILL_ROUNDS_FULL = 40

DISK_MIB = 6
MIB = 1024 * 1024


class Writer:
    """A host that writes its record again and again, and remembers the last one that was answered."""

    def __init__(self, client, number):
        self.client = client
        self.identity = client.enrol(f"writer{number}.example")
        self.sent = 0
        self.answered = 0
        self.refused = []  # statuses that a server under no other attack has no reason for

    def write_until(self, ended):
        while not ended.is_set():
            self.sent += 1
            try:
                answer = self.client.put(self.identity, osVersion=str(self.sent))
            except OSError:  # the server is gone
                return
            if answer is None:
                return
            if answer.status != 200:
                self.refused.append(answer.status)
                return
            self.answered = self.sent

    def check(self, stored):
        """What is stored is the last answered record, or one that was on its way after it."""
        assert self.refused == []
        if self.answered:
            assert self.answered <= int(stored[self.identity.host_id]) <= self.sent


def kill(master):
    process, master.process = master.process, None
    process.signal(signal.SIGKILL)
    process.wait(20)


def check_database(master):
    with contextlib.closing(sqlite3.connect(master.data_outside / "hosts.db")) as database:
        assert database.execute("PRAGMA integrity_check").fetchall() == [("ok",)]
        assert database.execute("PRAGMA foreign_key_check").fetchall() == []


@pytest.mark.row("S5")
@pytest.mark.parametrize(
    "rounds", [KILL_ROUNDS_QUICK, pytest.param(KILL_ROUNDS_FULL, marks=pytest.mark.full)]
)
def test_an_answered_write_is_there_after_a_kill(box, master, rounds, figure):
    client = MasterClient(box, master)
    writers = [Writer(client, number) for number in range(WRITERS)]
    chance = random.Random(rounds)
    for _ in range(rounds):
        ended = threading.Event()
        threads = [threading.Thread(target=writer.write_until, args=[ended]) for writer in writers]
        for thread in threads:
            thread.start()
        time.sleep(chance.uniform(0.05, 0.6))  # anywhere within the writes
        kill(master)
        ended.set()
        for thread in threads:
            thread.join()
        check_database(master)
        master.serve()
        hosts = client.stored(writers[0].identity)
        stored = {host["uuid"]: host["osVersion"] for host in hosts}
        for writer in writers:
            writer.check(stored)
    answered = sum(writer.answered for writer in writers)
    assert answered > rounds
    figure("kills", rounds)


@pytest.mark.row("S5")
@pytest.mark.parametrize("rounds", [3, pytest.param(20, marks=pytest.mark.full)])
def test_an_answered_enrolment_is_there_after_a_kill(box, master, rounds, figure):
    client = MasterClient(box, master)
    chance = random.Random(rounds)
    for number in range(rounds):
        request, key = make_request(client.folder, f"late{number}")
        invitation = master.invite(f"late{number}.example").text
        answers = []

        def enrol(wanted=invitation, sent=request, got=answers):
            with contextlib.suppress(OSError):
                got.append(client.redeem(wanted, sent))

        thread = threading.Thread(target=enrol)
        thread.start()
        time.sleep(chance.uniform(0, 0.08))
        kill(master)
        thread.join()
        check_database(master)
        master.serve()
        if answers and answers[0] is not None:
            late = client.take_token(client.keep(f"late{number}", key, answers[0]))
            assert client.put(late).status == 200
            assert is_error(client.redeem(invitation, request), 403)
        else:
            # Nobody got a certificate: the invitation is good, or used up by what was on its way.
            assert client.redeem(invitation, request).status in (201, 403)
    figure("kills", rounds)


class SmallDisk:
    """A master server whose data lies on a small file system of its own."""

    def __init__(self, box, master):
        master.stop()
        copy = box.shared / "data-before"
        shutil.move(master.data_outside, copy)
        master.data_outside.mkdir()
        box.restart("--size", str(DISK_MIB * MIB), "--tmpfs", master.data)
        words = f"cp -a /shared/data-before/. {master.data} && chmod 700 {master.data}"
        assert box.run(["sh", "-c", words]).status == 0
        self.box = box
        self.master = master.serve()
        self.client = MasterClient(box, master)

    def fill(self):
        """Takes all the room there is; what is left of the last page, too."""
        words = f"cat /dev/zero >{self.master.data}/lock 2>/dev/null; test -s {self.master.data}/lock"
        assert self.box.run(["sh", "-c", words]).status == 0

    def make_room(self):
        assert self.box.run(["sh", "-c", f": >{self.master.data}/lock"]).status == 0

    def check_database(self):
        code = "import sqlite3, sys; database = sqlite3.connect(sys.argv[1]); "
        code += "print(database.execute('PRAGMA integrity_check').fetchone()[0])"
        result = self.box.run(["/usr/bin/python3", "-I", "-c", code, f"{self.master.data}/hosts.db"])
        assert result.out == "ok\n", result.err


@pytest.fixture
def small_disk(box, master):
    return SmallDisk(box, master)


LARGE = "x" * 200_000


class FullDisk:
    """Asks for everything that has to be stored, and remembers what was answered as done."""

    def __init__(self, client, host, invitation, request):
        self.client = client
        self.host = host
        self.invitation = invitation
        self.request = request
        self.tokens = []
        self.is_stored = self.is_enrolled = False
        self.refusals = set()

    def ask_for_all(self):
        if self._is_done(self.client.put(self.host, osType=LARGE), 200):
            self.is_stored = True
        token = self.client.ask("POST", TOKENS, self.host, b"{}")
        if self._is_done(token, 201):
            self.tokens.append(token.json()["token"])
        enrolled = self.client.redeem(self.invitation, self.request)
        if self.is_enrolled:
            assert is_error(enrolled, 403)
        elif self._is_done(enrolled, 201):
            self.is_enrolled = True

    def _is_done(self, answer, status):
        """A log of changes that exists is written in place: a few writes may still find room in it."""
        if answer.status == status:
            return True
        assert is_error(answer, 500) or is_error(answer, 507)
        self.refusals.add(answer.status)
        return False

    def check_record(self, reader):
        (record,) = self.client.stored(reader)
        assert record["osType"] == (LARGE if self.is_stored else "before")

    def check(self, reader):
        """What was answered as done is there, and nothing else."""
        self.check_record(reader)
        for token in self.tokens:
            assert self.client.put(dataclasses.replace(self.host, token=token)).status == 200
        assert self.client.redeem(self.invitation, self.request).status == (403 if self.is_enrolled else 201)


@pytest.mark.row("S6")
def test_a_full_disk_stores_nothing_by_halves_and_is_survived(small_disk):
    client, master = small_disk.client, small_disk.master
    host, other = client.enrol("a.example"), client.enrol("b.example")
    assert client.put(host, osType="before").status == 200
    full = FullDisk(client, host, master.invite("c.example").text, make_request(client.folder, "c")[0])
    small_disk.fill()
    for _ in range(20):
        full.ask_for_all()
    assert full.refusals
    full.check_record(other)  # reading needs no room
    assert master.process.is_running()
    small_disk.make_room()
    full.check(other)
    assert client.put(host, osType="after").status == 200
    assert [record["osType"] for record in client.stored(other)] == ["after"]
    assert client.put(client.enrol("d.example")).status == 200
    kill(master)
    small_disk.check_database()
    master.serve()
    assert {record["hostName"] for record in client.stored(other)} == {"a.example", "d.example"}


@pytest.mark.row("S6")
def test_a_server_says_why_it_does_not_start_on_a_full_disk_and_starts_when_there_is_room(small_disk):
    client, master = small_disk.client, small_disk.master
    host = client.enrol("a.example")
    assert client.put(host, osType="before").status == 200
    master.stop()
    small_disk.fill()
    argv = [PROGRAM, "serve", "--data", master.data, "--listen", master.address]
    result = small_disk.box.run(argv)
    assert (result.status, result.out) == (1, "")
    assert f"{master.data}/hosts.db" in result.err and "No space left on device" in result.err
    small_disk.make_room()
    master.serve()
    assert [record["osType"] for record in client.stored(host)] == ["before"]
    assert client.put(host, osType="after").status == 200


@pytest.mark.row("S6")
@pytest.mark.row("S1")
@pytest.mark.unsanitized  # a sanitizer needs descriptors to look at an exception's type
def test_a_server_out_of_descriptors_serves_again_when_there_are_some(box, master):
    client = MasterClient(box, master)
    host = client.enrol("a.example")
    master.stop()
    argv = ["prlimit", "--nofile=40", PROGRAM, "serve", "--data", master.data, "--listen", master.address]
    master.process = box.start_process(argv)
    assert box.wait_until_listening(master.address)
    with client.connect(host) as kept, kept.makefile("rb"), contextlib.ExitStack() as stack:
        for _ in range(60):
            stack.enter_context(client.connect_plain())
        deadline = time.monotonic() + 20
        while "Too many open files" not in master.process.errors() and time.monotonic() < deadline:
            time.sleep(0.05)
        assert "accepting failed: Too many open files" in master.process.errors()
        # A connection that stands goes on; what needs a descriptor of its own is refused with its cause.
        request = f"GET {HOSTS}/reloadconfig HTTP/1.1\r\nAuthorization: Bearer {host.token}\r\n\r\n"
        kept.sendall(request.encode())
        assert kept.recv(12) == b"HTTP/1.1 500"
    assert client.put(host, osType="after").status == 200
    assert master.process.is_running()
