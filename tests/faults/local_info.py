"""What the tests of tools and of hostile hosts share: describing the host, and reading what that cost."""

import json

import pytest

from sandbox import BIN_DIR, NO_CLUSTER

PEAK_FILE = "/shared/output/peak-memory"


def cases(table, quick):
    """Parameters out of a table of names and values; those not named in `quick` are in the full run alone."""
    return [
        pytest.param(value, id=name, marks=[] if name in quick else [pytest.mark.full])
        for name, value in table.items()
    ]


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
