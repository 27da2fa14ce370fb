"""tqmasterd as a process: its life, and what it refuses."""

import signal
import stat

import pytest

pytestmark = pytest.mark.shipped

MASTER1 = "master1.example"
PROGRAM = "/usr/torqv/torquenix/bin/tqmasterd"


def serve(box, master, address):
    return box.run([PROGRAM, "serve", "--data", master.data, "--listen", address], timeout=20)


def test_a_second_server_on_the_same_data_says_so_and_ends(box, master):
    result = serve(box, master, "127.0.0.3")
    assert result.status == 3
    assert master.data in result.err
    assert master.process.is_running()


def test_a_second_server_on_the_same_port_says_so_and_ends(box, master):
    other = box.master("master2.example")
    result = serve(box, other, master.address)
    assert result.status == 4
    assert "1556" in result.err
    assert master.process.is_running()


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_ends_the_server_cleanly(box, master, number):
    process, master.process = master.process, None
    process.signal(number)
    result = process.wait(10)
    assert (result.status, result.err) == (0, "")


def test_data_is_the_owners_alone(master):
    files = list(master.data_outside.iterdir())
    assert files
    assert stat.S_IMODE(master.data_outside.stat().st_mode) & 0o077 == 0
    assert [file for file in files if stat.S_IMODE(file.stat().st_mode) & 0o077] == []


def test_data_that_exists_is_not_made_again(box, master):
    before = (master.data_outside / "authority.pem").read_bytes()
    result = box.run([PROGRAM, "init", "--data", master.data, "--name", MASTER1])
    assert result.status != 0 and result.err
    assert (master.data_outside / "authority.pem").read_bytes() == before


def test_a_folder_without_data_is_refused(box):
    result = box.run([PROGRAM, "serve", "--data", "/shared/nothing"], timeout=20)
    assert result.status > 0
    assert "/shared/nothing" in result.err


@pytest.mark.parametrize("arguments", [[], ["bogus"], ["init"], ["serve", "--data"], ["invite", "--bogus"]])
def test_a_command_line_that_makes_no_sense_is_refused(box, arguments):
    result = box.run([PROGRAM, *arguments], timeout=20)
    assert result.status == 2
    assert result.err


def test_two_names_are_both_served(box):
    box.write_hosts("127.0.0.2 alias.example\n")
    master = box.master()
    both = "/shared/both"
    assert box.run([PROGRAM, "init", "--data", both, "--name", f"{MASTER1},alias.example"]).status == 0
    master.data = both
    master.serve()
    made = master.invite(box.host_name)
    argv = ["/usr/torqv/torquenix/bin/tqenroll", "--server", "alias.example", "--invitation", made.text]
    assert box.run([*argv, "--fingerprint", made.fingerprint]).status == 0
