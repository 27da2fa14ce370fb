"""-readallhosts -display: against its road done barely, against curl with jq, and how it grows."""

import json
import statistics
import time

import bed
from servers import ADDRESSES
from verdicts import Goal, Row

OF_ROAD = Goal("list", "`-readallhosts -display`, 100,000 hosts / the prescribed road done barely", 1.0)
OF_JQ_SMALL = Goal("list", "the same / (curl piped to jq), 1,000 hosts", 0.9)
OF_JQ_LARGE = Goal("list", "the same / (curl piped to jq), 100,000 hosts", 0.9)
MEMORY = Goal("list", "peak memory / size of the reply, 100,000 hosts", 7.5)
GROWTH = Goal("list", "time at 1,000,000 hosts / time at 100,000", 13, shown="{:.1f}")

SMALL, LARGE, HUGE = 1000, 100_000, 1_000_000
LARGE_SECONDS = 170
NAME = "master1.example"
REPLY = "/shared/reply.json"
IDENTITY = "/usr/torqv/var/identity"
URL = f"https://{NAME}:1556/torquenix/config/hosts/"


def make_hosts(box, count):
    """The reply of so many hosts: its file, seen from outside, and its size."""
    path = box.shared / f"hosts.{count}.json"
    bed.run_well(box.run(["/bench/make-hosts", str(count)], stdout=f"/shared/{path.name}"), "make-hosts")
    return path, path.stat().st_size


def serve_files(box, master):
    """The fast server in the master's place. The host keeps a token, so that a read is one request."""
    trust = [f"{master.data}/server.pem", f"{master.data}/authority.pem"]
    server = box.start_process(["/bench/file-server", ADDRESSES[NAME], *trust, REPLY])
    if not box.wait_until_listening(ADDRESSES[NAME]):
        raise bed.BenchError(f"the file server does not listen: {server.errors()}")
    token = box.var("identity") / f"token.host.{NAME}"
    token.write_text(json.dumps({"token": "bench", "expiresAt": int(time.time()) + 86400}))
    token.chmod(0o600)
    return server


def tls_files(box):
    identity = box.identities()[0]
    return [f"{IDENTITY}/{identity[kind]}" for kind in ("caCertificates", "certificate", "privateKey")]


def rows_for(box, reply):
    """The tool and the two it is held against, all reading the same reply."""
    authority, certificate, key = tls_files(box)
    curl = f"/usr/bin/curl -s -f --cacert {authority} --cert {certificate} --key {key} {URL}"
    link = {"path": REPLY, "target": f"/shared/{reply.name}"}
    log = "/usr/torqv/torquenix/logs/admin/bare-list.log"
    removed = [log, *(f"/usr/torqv/torquenix/logs/admin/{file.name}" for file in box.log_files())]
    return {
        "tool": {"argv": [bed.COMMAND, "-readallhosts", "-display"], "link": link, "remove": removed},
        "road": {"argv": ["/bench/bare-list", URL, authority, certificate, key, "bench", log], "link": link},
        "jq": {"argv": ["/bin/sh", "-c", f"{curl} | /usr/bin/jq -c '.hosts[]'"], "link": link},
    }


def check_same_list(box, reply):
    """The road done barely must print what the tool prints, or it is no yardstick."""
    rows = rows_for(box, reply)
    box.run(["ln", "-sf", f"/shared/{reply.name}", REPLY])
    lists = [bed.run_well(box.run(rows[label]["argv"]), label).out for label in ("tool", "road")]
    if lists[0] != lists[1] or '"hostId"' not in lists[0]:
        raise bed.BenchError("the bare road prints another list than -readallhosts -display")


def turns(box, reply, rounds, warm_up, labels=("tool", "road", "jq")):
    rows = [{"label": label} | row for label, row in rows_for(box, reply).items() if label in labels]
    return bed.take_turns(box, rows, rounds, warm_up)


def large_rounds(settings, timings):
    """As many rounds as the time for them allows, three at least."""
    one = sum(timing.median for timing in timings.values()) / 1e3
    return settings.scaled(max(3, min(settings.rounds, int(LARGE_SECONDS / one))))


def measure(settings):
    with bed.host(settings, "list") as box:
        master = box.master().serve()
        bed.enrolled_with(box, master)
        master.stop()
        server = serve_files(box, master)
        sizes = {SMALL: 10, LARGE: 20, HUGE: 200}
        replies = [make_hosts(box, settings.scaled(count, smallest)) for count, smallest in sizes.items()]
        check_same_list(box, replies[0][0])
        small = turns(box, replies[0][0], settings.rounds, warm_up=settings.scaled(2, 0))
        first = turns(box, replies[1][0], 1, warm_up=0)
        large = turns(box, replies[1][0], large_rounds(settings, first), warm_up=0)
        huge = turns(box, replies[2][0], 1, warm_up=0, labels=("tool",))["tool"]
        after = turns(box, replies[1][0], 1, warm_up=0, labels=("tool",))["tool"]
        server.stop()
    return judged(small, large, huge, after, replies)


def judged(small, large, huge, after, replies):
    """The rows of what was measured; `after` is a run of the tool right after the one of the largest list."""
    tool, road, jq = (large[label] for label in ("tool", "road", "jq"))
    _, size, huge_size = (size for _, size in replies)
    near = statistics.median([*tool.wall[-2:], *after.wall])
    memory = f"{bed.in_megabytes(tool.peak)} / {bed.in_megabytes(size)}; the bare road {road.peak / size:.1f}"
    growth = f"{huge.median / 1e3:.1f} s once, peak {huge.peak / huge_size:.1f} of its reply"
    return [
        bed.ratio_row(OF_ROAD, tool, road),
        bed.ratio_row(OF_JQ_SMALL, small["tool"], small["jq"]),
        bed.ratio_row(OF_JQ_LARGE, tool, jq),
        Row(MEMORY, tool.peak / size, memory),
        Row(GROWTH, huge.median / near, growth),
    ]
