"""Control groups that limit how many processes there may be, below the one that the tests are in."""

import contextlib
import os
import pathlib

HIERARCHY = pathlib.Path("/sys/fs/cgroup/pids")


def own_group():
    """The folder of the tests' own group of processes; None where groups are not limited this way."""
    for line in pathlib.Path("/proc/self/cgroup").read_text().splitlines():
        _, controllers, path = line.split(":", 2)
        if controllers == "pids":
            return HIERARCHY / path.lstrip("/")
    return None


def may_make_groups():
    group = own_group()
    return group is not None and os.access(group / "cgroup.procs", os.W_OK)


@contextlib.contextmanager
def process_group(processes):
    """A group that may have so many processes, threads included."""
    group = own_group() / f"tq-faults-{os.getpid()}"
    group.mkdir()
    try:
        (group / "pids.max").write_text(str(processes))
        yield group
    finally:
        group.rmdir()
