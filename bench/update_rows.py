"""-update: an unchanged one, a first one, its connections and its memory."""

import json
import re

import bed
from verdicts import Goal, Row

UNCHANGED = Goal("update", "unchanged `-update` / `-localinfo`", 1.05)
FIRST = Goal("update", "first `-update` / (`-localinfo` + three requests on one connection)", 1.15)
PEAK = Goal("update", "peak memory of `-update`", 16, shown="{:.1f} MB")
CONNECTIONS = Goal("update", "connections of one first `-update`", 2, shown="{:.0f}")

TRACE = "/shared/output/connections.trace"
CONNECTED = re.compile(r"connect\(\d+, \{sa_family=AF_INET6?, sin6?_port=htons\(1556\)")
IDENTITY = "/usr/torqv/var/identity"


def state_of_an_update(box):
    """The files whose absence makes the next update a first one."""
    server = box.identities()[0]["server"]
    return [f"/usr/torqv/var/hostdb.cache.{server}", f"{IDENTITY}/token.host.{server}"]


def forget_updates(box):
    for file in state_of_an_update(box):
        box.path(file).unlink(missing_ok=True)


def connections_of_a_first_update(box):
    forget_updates(box)
    strace = ["strace", "-f", "--seccomp-bpf", "-e", "trace=connect", "-o", TRACE]
    bed.run_well(box.run([*strace, bed.COMMAND, "-update"], traced=True), "-update")
    return len(CONNECTED.findall((box.shared / "output" / "connections.trace").read_text()))


def write_own_record(box):
    """Reads the host's record back, for the bare program to send."""
    record = json.loads(bed.run_well(box.command("-read", "-display"), "-read").out)
    record.pop("machineTquType", None)
    (box.shared / "record.json").write_text(json.dumps(record, separators=(",", ":")))


def three_requests(box, master, connections):
    identity = box.identities()[0]
    files = [f"{IDENTITY}/{identity[kind]}" for kind in ("caCertificates", "certificate", "privateKey")]
    url = f"https://{master.name}:1556"
    return ["/bench/three-requests", str(connections), url, *files, identity["hostId"], "/shared/record.json"]


def measure(settings):
    with bed.host(settings, "update") as box:
        master = box.master().serve()
        bed.enrolled_with(box, master)
        connections = connections_of_a_first_update(box)
        write_own_record(box)
        # The bare program sends a record of its own, so that each update that sends has something to replace.
        rows = [
            {"label": "-localinfo", "argv": [bed.COMMAND, "-localinfo"]},
            {"label": "unchanged", "argv": [bed.COMMAND, "-update"]},
            {"label": "requests", "argv": three_requests(box, master, 1)},
            {"label": "on two", "argv": three_requests(box, master, 2)},
            {"label": "first", "argv": [bed.COMMAND, "-update"], "remove": state_of_an_update(box)},
            {"label": "forced", "argv": [bed.COMMAND, "-update", "-force"]},
        ]
        timings = bed.take_turns(box, rows, settings.rounds * settings.scaled(2), settings.scaled(3, 0))
        master.stop()
    return judged(timings, connections)


def judged(timings, connections):
    """The rows of what was measured."""
    local, unchanged, first = (timings[label] for label in ("-localinfo", "unchanged", "first"))
    requests, both = timings["requests"], timings["on two"]
    on_two = bed.median_ratio(first.wall, bed.added(local, both).wall)
    peak = max(timings[label].peak for label in ("unchanged", "first", "forced"))
    peaks = f"unchanged {bed.in_megabytes(unchanged.peak)}, bare requests {bed.in_megabytes(both.peak)}"
    return [
        bed.ratio_row(UNCHANGED, unchanged, local),
        bed.ratio_row(FIRST, first, bed.added(local, requests), f"{on_two:.2f} against two connections; "),
        Row(PEAK, peak / bed.MEGABYTE, peaks),
        Row(CONNECTIONS, connections),
    ]
