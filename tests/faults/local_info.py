"""What the tests of tools and of hostile hosts have in common: describing the host, and reading what it cost."""

import json

from sandbox import BIN_DIR, NO_CLUSTER

PEAK_FILE = "/shared/output/peak-memory"


def describe(box, **options):
    """The host's record, from a run that has nothing to say on standard error."""
    result = box.command("-localinfo", **options)
    assert (result.status, result.err) == (0, "")
    return json.loads(result.out)


def errors_but_the_clusters(box):
    """The log's errors without the one of every host outside a cluster."""
    return [text for text in box.log_texts(16) if text != NO_CLUSTER]


def run_measured(box, *arguments):
    """Runs the command; its result and the most memory in KiB that it or one of its tools had resident."""
    argv = ["/usr/bin/python3", "-I", "/faults/peak_memory.py", PEAK_FILE, f"{BIN_DIR}/tqhostdbcmd"]
    result = box.run([*argv, *arguments])
    return result, int((box.shared / "output" / "peak-memory").read_text())
