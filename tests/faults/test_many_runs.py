"""Thousands of runs, hundreds at once, a thousand killed at random: nothing grows, and the record is as after
one."""

import json
import re
import time

import pytest

from contract import Contract, temporary_files
from test_locks import BUSY, trivial_tools

SEED = 20_261_123
UPDATE = ["/usr/torqv/torquenix/bin/tqhostdbcmd", "-update"]
FORCED = [*UPDATE, "-force"]

pytestmark = pytest.mark.row("F7")


@pytest.fixture
def host(enrolled_host):
    """A host whose record has been sent once, with tools that take no time."""
    box = enrolled_host(trivial_tools)
    assert box.command("-update").err == ""
    return box


def run_many(box, how, count, command):
    """How many runs ended in which way: {"0": 10000}."""
    name = f"{how}.ends"
    argv = ["/usr/bin/python3", "-I", "/faults/many_runs_agent.py", f"/shared/output/{name}", how, str(count)]
    ended = box.run([*argv, str(SEED), *command], timeout=3600)
    assert ended.status == 0, ended.err
    return json.loads((box.shared / "output" / name).read_text())


class Sizes:
    """What may not grow: the host's files, the server's files, its descriptors and its memory."""

    def __init__(self, box):
        self.box = box
        (self.master,) = box.masters.values()
        self.contract = Contract(box)
        self.files = self._files()
        self.descriptors = self._descriptors()

    def _files(self):
        """Their names, logs without their day: the runs may last over midnight."""
        folders = (self.box.torqv, self.master.data_outside)
        names = {str(file) for folder in folders for file in folder.rglob("*")}
        return sorted({re.sub(r"\.\d{8}\.log$", ".log", name) for name in names})

    def _descriptors(self):
        """Descriptors of the server; connections that have just ended are given time to go."""
        return len(self.box.run(["sh", "-c", f"ls /proc/{self.master.process.pid}/fd"]).out.split())

    def check(self):
        assert self._files() == self.files, "files have come or gone"
        deadline = time.monotonic() + 90
        while (now := self._descriptors()) > self.descriptors + 2:
            assert time.monotonic() < deadline, f"the server had {self.descriptors} descriptors and has {now}"
            time.sleep(0.2)
        self.contract.check()

    def check_record(self):
        """The record in the database and the cache are those of a fresh run."""
        fresh = json.loads(self.box.command("-localinfo").out)
        identifier = fresh.pop("hostId")
        assert json.loads(self.box.cache_file().read_text()) == fresh | {"uuid": identifier}
        (stored,) = json.loads(self.box.command("-readallhosts", "-display").out)["hosts"]
        assert stored | {"securityFlag": 0} == fresh | {"hostId": identifier} | {"securityFlag": 0}


@pytest.mark.parametrize("share", [0, *[pytest.param(n, marks=pytest.mark.full) for n in range(1, 5)]])
def test_runs_over_and_over(host, figure, share):
    """Unchanged updates: they take every lock and open log and cache, and go quickest of all that do."""
    count = 2475 if share else 100
    sizes = Sizes(host)
    assert run_many(host, "repeat", count, UPDATE) == {"0": count}
    sizes.check()
    sizes.check_record()
    figure("runs", count)


@pytest.mark.full
def test_two_hundred_runs_at_once(host, figure):
    sizes = Sizes(host)
    ends = run_many(host, "together", 200, FORCED)
    assert ends.keys() <= {"0", f"0 {BUSY.strip()}"} and ends["0"] > 0
    sizes.check()
    sizes.check_record()
    figure("at once", 200)


@pytest.mark.parametrize("count", [30, *[pytest.param(n, marks=pytest.mark.full) for n in (485, 486)]])
def test_runs_killed_at_random(host, figure, count):
    sizes = Sizes(host)
    ends = run_many(host, "kill", count, FORCED)
    assert ends.keys() <= {"0", "-9"}
    sizes.contract.check()
    sizes.contract.check_healed()
    assert temporary_files(host) == []
    assert host.command("-update", "-force").err == ""
    sizes.check()
    sizes.check_record()
    figure("killed at random", ends.get("-9", 0))
