"""Runs side by side, and runs that end before their time."""

import json
import signal
import time

import pytest

MASTER1 = "master1.example"
BUSY = "Failed to acquire lock on hostDB update status file for server"


def wait_for(condition, seconds=20):
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, "it never came about"
        time.sleep(0.01)


def is_putting(server):
    return any(request["method"] == "PUT" for request in server.requests())


def test_a_second_update_of_the_same_server_reports_it_busy_while_the_first_goes_on(enrolled, scripted):
    server = scripted({"method": "PUT", "answer": {"status": 200, "body": "{}", "delay": 3}})
    first = enrolled.start_command("-update")
    wait_for(lambda: is_putting(server))
    second = enrolled.command("-update")
    assert (second.status, second.err) == (0, "Requested operation failed with error: 0\n")
    assert any(text.startswith(BUSY) for text in enrolled.log_texts(16))
    assert first.is_running()
    assert first.wait().status == 0
    assert len([request for request in server.requests() if request["method"] == "PUT"]) == 1


def test_of_two_daemon_updates_the_second_is_dropped(enrolled, scripted):
    server = scripted({"method": "PUT", "answer": {"status": 200, "body": "{}", "delay": 3}})
    first = enrolled.start_command("-update", "-daemon")
    wait_for(lambda: is_putting(server))
    second = enrolled.command("-update", "-daemon")
    assert (second.status, second.err) == (0, "")
    assert first.wait().status == 0
    assert enrolled.command("-update", "-daemon").status == 0


def test_twenty_updates_at_once_leave_one_record_one_cache_and_whole_log_entries(enrolled):
    runs = [enrolled.start_command("-update", "-force") for _ in range(20)]
    ends = [run.wait() for run in runs]
    assert {end.status for end in ends} == {0}
    assert {end.err for end in ends} <= {"", "Requested operation failed with error: 0\n"}
    assert "" in {end.err for end in ends}
    assert json.loads(enrolled.cache_file().read_text())
    assert len({entry.pid for entry in enrolled.log()}) == 20
    assert len(json.loads(enrolled.command("-readallhosts", "-display").out)["hosts"]) == 1


def test_updates_of_different_servers_do_not_wait_for_each_other(enrolled, scripted):
    second = enrolled.master("master2.example").serve()
    assert enrolled.enrol(second).status == 0
    holder = enrolled.hold_lock(f"/usr/torqv/var/hostdbupdate.lock.{MASTER1}")
    assert enrolled.command("-update").status == 0
    assert enrolled.cache_file("master2.example").exists()
    enrolled.let_go(holder)


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGTERM, signal.SIGHUP, signal.SIGINT])
def test_an_update_that_is_ended_leaves_its_locks_free_and_the_next_one_succeeds(enrolled, scripted, number):
    server = scripted({"method": "PUT", "times": 1, "answer": {"behaviour": "silence"}})
    run = enrolled.start_command("-update", "-daemon")
    wait_for(lambda: is_putting(server))
    run.signal(number)
    assert run.wait(5).status == -number
    assert enrolled.command("-update", "-daemon").status == 0
    assert json.loads(enrolled.cache_file().read_text())
    assert not enrolled.status_file().exists()


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP])
def test_a_run_that_is_ended_takes_the_tool_it_waits_for_with_it(enrolled, number):
    tool = enrolled.local_sbin / "uname"
    tool.write_text("#!/bin/sh\ntouch /shared/output/tool-runs\nsleep 600\n")
    run = enrolled.start_command("-localinfo")
    wait_for((enrolled.shared / "output" / "tool-runs").exists)
    run.signal(number)
    assert run.wait(5).status == -number
    wait_for(lambda: enrolled.running() == [line for line in enrolled.running() if "tqmasterd" in line])


def test_a_lock_whose_holder_was_killed_is_free_at_once(enrolled):
    holder = enrolled.hold_lock(f"/usr/torqv/var/hostdbupdate.lock.{MASTER1}")
    enrolled.let_go(holder)
    assert enrolled.command("-update").status == 0


def test_a_stopped_holder_keeps_its_lock_and_is_reported_at_once(enrolled):
    holder = enrolled.hold_lock(f"/usr/torqv/var/hostdbupdate.lock.{MASTER1}")
    holder.signal(signal.SIGSTOP)
    assert enrolled.command("-update").err == "Requested operation failed with error: 0\n"
    enrolled.let_go(holder)


def test_output_that_nobody_reads_does_not_end_the_run_early(enrolled):
    result = enrolled.run(["sh", "-c", "/usr/torqv/torquenix/bin/tqhostdbcmd -localinfo | true; exit 0"])
    assert result.status == 0
    assert "Retrieved local host information successfully" in enrolled.log_texts(2)


def test_output_to_a_full_disk_does_not_end_the_run_early(enrolled):
    result = enrolled.command("-localinfo", stdout="/dev/full")
    assert result.status == 0
    assert "Retrieved local host information successfully" in enrolled.log_texts(2)
