"""A master server that many cases attack one after the other, and what must hold of it after each."""

import statistics
import time

from master_client import MasterClient

# What a good client's request may take, whatever others do at the same time.
GOOD_CLIENT_SECONDS = 2


class AttackedServer:
    """A serving master server with the records of two hosts, `a` and `b`."""

    def __init__(self, master):
        self.master = master
        self.box = master.sandbox
        self.client = MasterClient(self.box, master)
        self.a, self.b = (self.client.enrol(name) for name in ("a.example", "b.example"))
        for host in (self.a, self.b):
            assert self.client.put(host, osType="before").status == 200
        self.before = self.client.stored(self.b)

    def check_unharmed(self):
        """The server lives, serves the next client and holds what it held before."""
        assert self.master.process.is_running()
        assert self.client.stored(self.b) == self.before
        assert self.client.put(self.b, osType="before").status == 200

    def seconds_of_a_good_client(self, tries=5):
        """How long a good client waits for its record to be stored: the middle one of some tries, since a
        busy machine holds up now and then what nobody attacks."""
        taken = []
        for _ in range(tries):
            start = time.monotonic()
            assert self.client.put(self.b, osType="before").status == 200
            taken.append(time.monotonic() - start)
        return statistics.median(taken)

    def peak_memory_mib(self):
        """The most memory that the server has had in use."""
        return self._fact("VmHWM") // 1024

    def threads(self):
        return self._fact("Threads")

    def _fact(self, name):
        """A number that the kernel keeps of the server's process."""
        status = self.box.run(["cat", f"/proc/{self.master.process.pid}/status"]).out
        fields = dict(line.split(":", 1) for line in status.splitlines())
        return int(fields[name].split()[0])


def is_error(answer, status):
    """Whether an answer is an error of this status with the body that all errors have."""
    if answer is None or answer.status != status:
        return False
    body = answer.json()
    return set(body) == {"errorCode", "errMessage"} and body["errorCode"] != 0 and body["errMessage"] != ""
