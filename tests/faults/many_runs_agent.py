"""Runs inside a sandbox: one command over and over, or at once, or killed at random; counts how the runs end.

    many_runs_agent.py RESULT repeat|together|kill COUNT SEED COMMAND...
"""

import collections
import json
import random
import subprocess
import sys
import time


def start(command):
    return subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)


def ended(process):
    """Status and the last line that the run said."""
    _, err = process.communicate(timeout=300)
    lines = err.decode(errors="replace").splitlines()
    return f"{process.returncode} {lines[-1] if lines else ''}".strip()


def repeat(command, count, _chance):
    return [ended(start(command)) for _ in range(count)]


def together(command, count, _chance):
    return [ended(process) for process in [start(command) for _ in range(count)]]


def kill(command, count, chance):
    """Kills each run at a random time of a healthy run's length."""
    begun = time.monotonic()
    start(command).communicate()
    length = time.monotonic() - begun
    ends = []
    for _ in range(count):
        process = start(command)
        time.sleep(chance.uniform(0, length))
        process.kill()
        ends.append(ended(process))
    return ends


def main():
    result, how, count, seed, *command = sys.argv[1:]
    ways = {"repeat": repeat, "together": together, "kill": kill}
    ends = ways[how](command, int(count), random.Random(int(seed)))
    with open(result, "w", encoding="utf-8") as file:
        json.dump(collections.Counter(ends), file)


if __name__ == "__main__":
    main()
