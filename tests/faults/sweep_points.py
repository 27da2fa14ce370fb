"""The points of a sweep: every system call of a run, by name and number, from a plain trace of it.

strace counts the calls of each name apart and each process apart, so a point is (name, k), and only the main
thread is traced: what a tool does at its own k-th call is that tool's affair (rows G), and the one other
thread, libcurl's for name look-ups, touches nothing that outlives the process.
"""

import random
import re

# The first call of main(): what comes before it is the dynamic loader, which only reads the distribution's
# libraries. Killed there, a program has not begun, so all of it is one point: the last one before main().
FIRST_OF_MAIN = re.compile(r"^fcntl\(0, F_GETFD")

# Memory of the process itself: outside it nothing differs from the call that follows, which is a point.
MEMORY_CALLS = {"brk", "mmap", "munmap", "mprotect", "madvise", "mremap"}

# Groups of names, so that a case's name says where a failure lies. Every other name is of the group "rest".
GROUPS = {
    "open-close": ("openat", "close"),
    "read": ("read", "lseek", "getdents64"),
    "write": ("write",),
    "status": ("newfstatat", "access", "utimensat", "fcntl"),
    "whole-files": ("rename", "unlink", "mkdir", "fsync", "ftruncate", "flock"),
    "network": ("socket", "socketpair", "connect", "bind", "sendto", "recvfrom", "recvmsg", "poll",
                "getsockopt", "setsockopt", "getsockname", "getpeername"),
    "children": ("clone3", "wait4", "pipe2", "prctl", "prlimit64", "timer_create", "timer_settime",
                 "timer_delete"),
    "signals": ("rt_sigaction", "rt_sigprocmask"),
}
REST = "rest"
GROUP_NAMES = (*GROUPS, REST)


def group_of(name):
    """The group of a system call."""
    return next((group for group, names in GROUPS.items() if name in names), REST)


def calls_of_trace(text):
    """All points of a trace: ("write", 3) for the third write. The loader's share is its last call alone."""
    counts, points, in_main, before = {}, [], False, None
    for line in text.splitlines():
        match = re.match(r"([a-z_0-9]+)\(", line)
        if not match:
            continue
        name = match[1]
        counts[name] = counts.get(name, 0) + 1
        if not in_main and FIRST_OF_MAIN.match(line):
            in_main = True
            points.append(before)
        if in_main and name not in MEMORY_CALLS:
            points.append((name, counts[name]))
        before = (name, counts[name])
    return points


def closings_of_pipes(text):
    """The points that close an end of a pipe. A failure that is injected leaves the call out, while a real
    close() frees the descriptor in any case: who keeps the writing end open never reads the pipe's end."""
    count, ends, found = 0, set(), set()
    for line in text.splitlines():
        if pipe := re.match(r"pipe2\(\[(\d+), (\d+)\]", line):
            ends |= {pipe[1], pipe[2]}
        elif closed := re.match(r"close\((\d+)\)", line):
            count += 1
            if closed[1] in ends:
                ends.remove(closed[1])
                found.add(("close", count))
        elif line.startswith("close("):
            count += 1
    return found


def some_of(points, number, seed):
    """A sample, the same for the same seed, in order; every name of a call is in it if there is room."""
    if number >= len(points):
        return list(points)
    chance = random.Random(seed)
    names = sorted({name for name, _ in points})
    chosen = {chance.choice([point for point in points if point[0] == name]) for name in names}
    chosen = set(chance.sample(sorted(chosen), min(number, len(chosen))))
    others = [point for point in points if point not in chosen]
    chosen.update(chance.sample(others, number - len(chosen)))
    return [point for point in points if point in chosen]


def spread(points, number):
    """Up to so many points, the first and the last among them, evenly apart."""
    if len(points) <= number:
        return list(points)
    return [points[round(place * (len(points) - 1) / (number - 1))] for place in range(number)]
