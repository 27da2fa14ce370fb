"""Times whole processes inside a sandbox, several rows in turn (A B C A B C ...), so that drift hits all alike.

Reads {"rows": {label: argv}, "rounds": n} from standard input; writes for each label wall and CPU times of every round
in milliseconds, the largest peak of its memory in MiB, and its exit status.
"""

import json
import os
import sys
import time

WARM_UP = 3


def run(argv, nowhere):
    redirect = [(os.POSIX_SPAWN_DUP2, nowhere, descriptor) for descriptor in (0, 1, 2)]
    start = time.monotonic_ns()
    pid = os.posix_spawn(argv[0], argv, {"LANG": "C"}, file_actions=redirect)
    _, status, usage = os.wait4(pid, 0)
    wall = (time.monotonic_ns() - start) / 1e6
    # The peak covers the tools that the process waited for as well; they are all smaller than it.
    return wall, (usage.ru_utime + usage.ru_stime) * 1e3, usage.ru_maxrss / 1024, os.waitstatus_to_exitcode(status)


def main():
    request = json.load(sys.stdin)
    nowhere = os.open("/dev/null", os.O_RDWR)
    results = {label: {"wall": [], "cpu": [], "peak": 0.0, "status": 0} for label in request["rows"]}
    for number in range(-WARM_UP, request["rounds"]):
        for label, argv in request["rows"].items():
            wall, cpu, peak, status = run(argv, nowhere)
            row = results[label]
            row["peak"] = max(row["peak"], peak)
            row["status"] = row["status"] or status
            if number >= 0:
                row["wall"].append(wall)
                row["cpu"].append(cpu)
    json.dump(results, sys.stdout)


if __name__ == "__main__":
    main()
