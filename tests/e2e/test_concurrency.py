"""Runs side by side, and output that gets nowhere."""

import time

MASTER1 = "master1.example"


def wait_for(condition, seconds=20):
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, "it never came about"
        time.sleep(0.01)


def is_putting(server):
    return any(request["method"] == "PUT" for request in server.requests())


def test_of_two_daemon_updates_the_second_is_dropped(enrolled, scripted):
    server = scripted({"method": "PUT", "answer": {"status": 200, "body": "{}", "delay": 3}})
    first = enrolled.start_command("-update", "-daemon")
    wait_for(lambda: is_putting(server))
    second = enrolled.command("-update", "-daemon")
    assert (second.status, second.err) == (0, "")
    assert first.wait().status == 0
    assert enrolled.command("-update", "-daemon").status == 0


def test_updates_of_different_servers_do_not_wait_for_each_other(enrolled, scripted):
    second = enrolled.master("master2.example").serve()
    assert enrolled.enrol(second).status == 0
    holder = enrolled.hold_lock(f"/usr/torqv/var/hostdbupdate.lock.{MASTER1}")
    assert enrolled.command("-update").status == 0
    assert enrolled.cache_file("master2.example").exists()
    enrolled.let_go(holder)


def test_output_that_nobody_reads_does_not_end_the_run_early(enrolled):
    result = enrolled.run(["sh", "-c", "/usr/torqv/torquenix/bin/tqhostdbcmd -localinfo | true; exit 0"])
    assert result.status == 0
    assert "Retrieved local host information successfully" in enrolled.log_texts(2)


def test_output_to_a_full_disk_does_not_end_the_run_early(enrolled):
    result = enrolled.command("-localinfo", stdout="/dev/full")
    assert result.status == 0
    assert "Retrieved local host information successfully" in enrolled.log_texts(2)
