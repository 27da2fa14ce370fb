"""tqmasterd: synced writes against the smallest server of the same parts, and the read of everything."""

import re
import statistics

import bed
import fleet_store
from list_rows import make_hosts
from servers import ADDRESSES
from verdicts import Goal, Row

RATE = Goal(
    "server",
    "`tqmasterd`: synced PUTs/s on new mutual connections, 8 agents / the bare server",
    0.95,
    at_least=True,
)
CPU = Goal("server", "`tqmasterd`: server CPU for one push / the bare server", 1.1)
LATENCY = Goal("server", "`tqmasterd`: p99 of a push at 8 agents / the bare server", 1.3)
WRITERS = Goal("server", "`tqmasterd`: synced writes of 16 writers / one writer", 1.8, at_least=True)
READ = Goal("server", "`tqmasterd`: GET of 100,000 hosts, first to last byte / SQLite's own ordered read", 2)
MEMORY = Goal("server", "`tqmasterd`: peak memory / body of that GET", 1)

AGENTS = 8
WRITERS_AT_ONCE = 16
HOSTS = 100_000
TURN_SECONDS = 1.2
BARE_ADDRESS = ADDRESSES["master2.example"]
AGENTS_FILE = "/shared/agents"


def enrol_agents(box, master, count):
    """Real identities, by invitations of the server's own command."""
    names = [f"agent{number}.example" for number in range(count)]
    invitations = [f"{name} {master.invite(name).text}\n" for name in names]
    (box.shared / "invitations").write_text("".join(invitations))
    argv = ["/bench/enrol-agents", master.address, f"{master.data}/authority.pem", "4"]
    bed.run_well(box.run(argv, stdin="/shared/invitations", stdout=AGENTS_FILE), "enrol-agents")


def serve_barely(box, master):
    """The yardstick's server: the same certificate, the same disk, an address of its own."""
    pem = f"{master.data}/server.pem"
    argv = ["/bench/bare-server", BARE_ADDRESS, pem, f"{master.data}/authority.pem", "/shared/bare.db"]
    server = box.start_process(argv)
    if not box.wait_until_listening(BARE_ADDRESS):
        raise bed.BenchError(f"the bare server does not listen: {server.errors()}")
    return server


def push(box, master, address, server, at_once, seconds, connection="new"):
    argv = ["/bench/push-load", address, f"{master.data}/authority.pem", AGENTS_FILE]
    outcome = bed.run_json(box, [*argv, str(at_once), str(seconds), connection, str(server.pid)])
    if outcome["failed"]:
        raise bed.BenchError(f"{outcome['failed']} pushes to {address} failed")
    return outcome


def values(outcomes, key):
    return [outcome[key] for outcome in outcomes]


def ratio_row(goal, over, under, key, unit):
    note = f"{statistics.median(values(over, key)):.2f} / {statistics.median(values(under, key)):.2f} {unit}"
    figure = bed.median_ratio(values(over, key), values(under, key))
    return Row(goal, figure, f"{note}, {len(over)} pairs of {TURN_SECONDS} s")


def push_rows(settings, box, master):
    """New connections against the bare server, taking turns, then many writers against one."""
    bare = serve_barely(box, master)
    seconds = settings.scaled(TURN_SECONDS, 0.2)
    rounds = settings.scaled(max(3, settings.rounds))
    ours, theirs, many, one = [], [], [], []
    for _ in range(rounds + settings.scaled(1, 0)):
        ours.append(push(box, master, master.address, master.process, AGENTS, seconds))
        theirs.append(push(box, master, BARE_ADDRESS, bare, AGENTS, seconds))
    bare.stop()
    for _ in range(rounds):
        many.append(push(box, master, master.address, master.process, WRITERS_AT_ONCE, seconds, "kept"))
        one.append(push(box, master, master.address, master.process, 1, seconds, "kept"))
    ours, theirs = ours[-rounds:], theirs[-rounds:]  # without the round that warmed up
    return [
        ratio_row(RATE, ours, theirs, "perSecond", "/s"),
        ratio_row(CPU, ours, theirs, "cpuMs", "ms"),
        ratio_row(LATENCY, ours, theirs, "p99Ms", "ms"),
        ratio_row(WRITERS, many, one, "perSecond", "/s"),
    ]


def peak_of(box, process):
    """The most memory in bytes that a running process has had."""
    status = bed.run_well(box.run(["cat", f"/proc/{process.pid}/status"]), "cat").out
    return int(re.search(r"VmHWM:\s+(\d+) kB", status)[1]) * 1024


def read_rows(settings, box, master):
    """The list of a large fleet, filled in behind a stopped server."""
    master.stop()
    database = master.data_outside / fleet_store.DATABASE
    fleet_store.add_hosts(database, make_hosts(box, settings.scaled(HOSTS, 300))[0])
    master.serve()
    fetch = ["/bench/fetch-list", master.address, f"{master.data}/authority.pem", AGENTS_FILE]
    fetch += [str(master.process.pid)]
    read = ["/bench/bare-read", f"{master.data}/{fleet_store.DATABASE}"]
    replies, reads = [], []
    for _ in range(settings.rounds + settings.scaled(1, 0)):
        replies.append(bed.run_json(box, fetch))
        reads.append(bed.run_json(box, read))
    replies, reads = replies[-settings.rounds:], reads[-settings.rounds:]
    peak, body = peak_of(box, master.process), reads[0]["bytes"]
    ours, cpu, client = (statistics.median(values(replies, key)) for key in ("ms", "cpuMs", "ownCpuMs"))
    theirs = statistics.median(values(reads, "ms"))
    note = f"{ours:.0f} / {theirs:.0f} ms, CPU of server {cpu:.0f} ms, client {client:.0f} ms, "
    note += f"{len(replies)} pairs"
    return [
        Row(READ, bed.median_ratio(values(replies, "ms"), values(reads, "ms")), note),
        Row(MEMORY, peak / body, f"{peak / 1e6:.0f} / {body / 1e6:.0f} MB"),
    ]


def measure(settings):
    with bed.host(settings, "server") as box:
        master = box.master().serve()
        enrol_agents(box, master, WRITERS_AT_ONCE)
        rows = push_rows(settings, box, master) + read_rows(settings, box, master)
        master.stop()
    return rows
