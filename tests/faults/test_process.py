"""The process and its surroundings: limits on what it may use, streams that are closed or lead nowhere,
inherited signals and masks, and clocks that are wrong."""

import datetime
import json
import re
import stat

import pytest

from clock import at_time, prepare_clock
from contract import Contract, identity_files
from local_info import cases
from process_group import process_group
from sandbox import BIN_DIR, is_sanitized

COMMAND = f"{BIN_DIR}/tqhostdbcmd"
RETRIEVED = "Retrieved local host information successfully"


# The waits between the attempts of an update take no time.
WITHOUT_WAITING = ["strace", "-f", "--seccomp-bpf", "-o", "/dev/null", "-e", "trace=clock_nanosleep"]
WITHOUT_WAITING += ["-e", "inject=clock_nanosleep:retval=0"]
NO_LEAK_CHECK = {"ASAN_OPTIONS": "detect_leaks=0"}  # it cannot work under a tracer


# Limits

# Name, options of prlimit, statuses that the rules allow: those of the log, of an update and of the loader of
# programs.
LIMITS = [
    ("no-descriptor", ["--nofile=3"], {12, 127}),
    ("one-descriptor", ["--nofile=4"], {0, 12, 25, 127, 252}),
    *((f"{count}-descriptors", [f"--nofile={count + 3}"], {0, 12, 25, 252}) for count in range(2, 10)),
    ("files-of-no-size", ["--fsize=0"], {0}),
    ("files-of-one-page", ["--fsize=4096"], {0}),
    ("no-stack-to-speak-of", ["--stack=65536"], {0, -11, 127}),
    ("no-locked-memory-no-core", ["--memlock=0", "--core=0", "--msgqueue=0", "--sigpending=0"], {0}),
]
QUICK_LIMITS = {"4-descriptors", "files-of-no-size"}


@pytest.mark.row("F2")
@pytest.mark.parametrize(
    "options, allowed",
    [
        pytest.param(options, allowed, id=name, marks=[] if name in QUICK_LIMITS else [pytest.mark.full])
        for name, options, allowed in LIMITS
    ],
)
def test_an_update_within_narrow_limits_keeps_the_files_whole(enrolled, build, options, allowed):
    contract = Contract(enrolled)
    if is_sanitized(build) and options[0].startswith(("--nofile", "--stack")):
        options = ["--nofile=64"]  # the sanitizer's own checks go wrong with less
    result = enrolled.run([*WITHOUT_WAITING, "prlimit", *options, COMMAND, "-update"], env=NO_LEAK_CHECK)
    assert result.status in allowed, result.err
    take_out_cut_lines(enrolled)
    contract.check(result)
    contract.check_healed()


def take_out_cut_lines(box):
    """Entries that a limit on the size of files cut off."""
    for log in box.log_files():
        text = log.read_text()
        if text and not text.endswith("\n"):
            log.write_text(text[: text.rfind("\n") + 1])


@pytest.mark.row("F2")
@pytest.mark.full
def test_an_update_with_too_little_memory_keeps_the_files_whole(enrolled, build, figure):
    """Address space from too little to load up to enough; sanitizers need more than any of it."""
    contract = Contract(enrolled)
    mebibytes = () if is_sanitized(build) else (8, 16, 20, 22, 24, 26, 28, 32, 40, 64)
    sizes = [number << 20 for number in mebibytes]
    statuses = []
    for size in sizes:
        result = enrolled.run([*WITHOUT_WAITING, "prlimit", f"--as={size}", COMMAND, "-update", "-force"])
        statuses.append(result.status)
        contract.check(result)
    figure("sizes of memory", len(sizes))
    assert statuses[-1:] in ([], [0])
    assert set(statuses) <= {0, 11, 12, 25, 111, 114, 127, 252, -6, -11}, statuses
    contract.check_healed()


@pytest.mark.row("F2")
@pytest.mark.full
@pytest.mark.parametrize("processes", [0, 1, 2, 3])
def test_without_processes_for_its_tools_the_facts_are_missed(enrolled, processes):
    """As an ordinary user would be refused further processes; root is not, so a tracer refuses them."""
    contract = Contract(enrolled)
    when = f"inject=clone,clone3,vfork,fork:error=EAGAIN:when={processes + 1}+"
    argv = ["strace", "-o", "/dev/null", "-e", "trace=clone,clone3,vfork,fork", "-e", when]
    result = enrolled.run([*argv, COMMAND, "-localinfo"], env=NO_LEAK_CHECK)
    assert result.status == 0
    assert json.loads(result.out)["hostId"] == enrolled.identities()[0]["hostId"]
    contract.check(result)
    contract.check_healed()


@pytest.mark.row("F2")
@pytest.mark.full
@pytest.mark.process_group
@pytest.mark.parametrize("processes, allowed", [(1, {25}), (2, {0, 25}), (3, {0, 25}), (64, {0})])
def test_a_group_with_a_limit_on_processes_keeps_the_files_whole(enrolled, processes, allowed):
    """The kernel refuses root, too, in a control group that has a limit; threads count."""
    with process_group(processes) as group:
        enrolled.restart("--bind", str(group), "/tmp/group")
        enrolled.masters["master1.example"].serve()
        contract = Contract(enrolled)
        join = 'echo 0 >/tmp/group/cgroup.procs && exec "$@"'
        argv = [*WITHOUT_WAITING, "sh", "-c", join, "join", COMMAND, "-update"]
        result = enrolled.run(argv, env=NO_LEAK_CHECK)
        refused = int((group / "pids.events").read_text().split()[1])
    assert (refused > 0) == (processes < 64), "the limit was not met as meant"
    assert result.status in allowed, result.err
    assert result.status == 0 or any("master1.example" in text for text in enrolled.log_texts(16))
    contract.check(result)
    contract.check_healed()


# Standard streams


@pytest.mark.row("F3")
@pytest.mark.parametrize(
    "closed", cases({"input": [0], "output": [1], "errors": [2], "all": [0, 1, 2]}, quick=("errors", "all"))
)
def test_closed_standard_descriptors_put_no_text_into_a_file(enrolled, closed):
    contract = Contract(enrolled)
    result = enrolled.command("-update", closed=closed)
    assert result.status == 0
    assert json.loads(enrolled.cache_file().read_text())
    contract.check(result)
    contract.check_healed()


@pytest.mark.row("F3")
@pytest.mark.parametrize("closed", [[2], [0, 1, 2]])
def test_an_error_text_for_a_closed_stream_goes_nowhere(enrolled, master, closed):
    assert enrolled.command("-update").status == 0
    master.stop()
    files = {file: file.read_bytes() for file in enrolled.var("").rglob("*") if file.is_file()}
    assert enrolled.command("-read", closed=closed).status == 25
    assert {file: file.read_bytes() for file in enrolled.var("").rglob("*") if file.is_file()} == files


@pytest.mark.row("F3")
def test_output_that_nobody_reads_does_not_end_the_run_early(enrolled):
    script = f"{COMMAND} -localinfo | true; {COMMAND} -bogus 2>&1 | true; exit 0"
    assert enrolled.run(["sh", "-c", script]).status == 0
    assert RETRIEVED in enrolled.log_texts(2)


@pytest.mark.row("F3")
def test_output_to_a_full_disk_does_not_end_the_run_early(enrolled):
    result = enrolled.command("-localinfo", stdout="/dev/full", stderr="/dev/full")
    assert result.status == 0
    assert RETRIEVED in enrolled.log_texts(2)


# What is inherited

WRAPPERS = {
    "everything-blocked-and-ignored": ["/usr/bin/python3", "-I", "/faults/hostile_start.py", "/tmp"],
    "nice-19": ["nice", "-n", "19"],
    "mask-000": ["sh", "-c", 'umask 000; exec "$0" "$@"'],
    "mask-777": ["sh", "-c", 'umask 777; exec "$0" "$@"'],
    "nohup": ["nohup"],
    "no-terminal-no-session": ["setsid", "--wait"],
}


@pytest.mark.row("F4")
@pytest.mark.parametrize("wrapper", cases(WRAPPERS, quick=("everything-blocked-and-ignored", "mask-777")))
def test_what_is_inherited_changes_nothing(enrolled, wrapper):
    contract = Contract(enrolled)
    plain = json.loads(enrolled.command("-localinfo").out)
    result = enrolled.run([*wrapper, COMMAND, "-localinfo"])
    assert (result.status, json.loads(result.out)) == (0, plain)
    update = enrolled.run([*wrapper, COMMAND, "-update"])
    assert update.status == 0
    assert stat.S_IMODE(enrolled.cache_file().stat().st_mode) == 0o644
    for log in enrolled.log_files():
        assert stat.S_IMODE(log.stat().st_mode) == 0o644
    contract.check(result, update)
    contract.check_healed()


@pytest.mark.row("F4")
@pytest.mark.full
def test_an_ignored_child_signal_does_not_hide_the_tools_results(enrolled):
    plain = enrolled.command("-localinfo")
    result = enrolled.command("-localinfo", ignoreChildSignal=True)
    assert (result.status, result.out) == (0, plain.out)


# Clocks


def run_at(box, when, *arguments, **variables):
    """Runs the command while its clock shows another time; the tools keep the real one."""
    return box.command(*arguments, env=at_time(box, when) | variables)


@pytest.fixture
def clocked(enrolled):
    """A host whose clock a test can set, with a token of now."""
    prepare_clock(enrolled)
    assert enrolled.command("-update").status == 0
    enrolled.forget_log()
    return enrolled


# When, and whether the server's certificate is good then.
CLOCKS = {
    "1970": ("@1970-01-02 00:00:00", False),
    "a-year-ago": ("-365d", False),
    "an-hour-ahead": ("+1h", True),
    "a-year-ahead": ("+365d", True),
    "2038": ("@2038-01-19 03:14:20", None),
    "2106": ("@2106-02-07 06:28:30", False),
}


@pytest.mark.row("F6")
@pytest.mark.parametrize("clock", cases(CLOCKS, quick=("1970", "2106", "a-year-ahead")))
def test_a_wrong_clock_refuses_a_certificate_at_most(clocked, clock):
    when, good = clock
    contract = Contract(clocked)
    local = run_at(clocked, when, "-localinfo")
    assert (local.status, local.err) == (0, "")
    result = run_at(clocked, when, "-readallhosts")
    assert result.status in {True: (0,), False: (252,), None: (0, 252)}[good], result.err
    if result.status == 252:
        assert re.fullmatch("Requested operation failed with error: 762[12]\n", result.err)
        assert any("master1.example" in text for text in clocked.log_texts(16))
    years = {file.name.split(".")[1][:4] for file in clocked.log_files()}
    year = re.search(r"@(\d{4})", when)
    assert not year or year[1] in years
    contract.check(local, result)
    contract.check_healed()


@pytest.mark.row("F6")
def test_a_clock_that_jumps_while_a_tool_runs_changes_no_limit(clocked):
    there, back = "echo +3650d >/shared/clock", "echo '@1980-01-01 00:00:00' >/shared/clock"
    clocked.put_tool(clocked.local_sbin, "lspci", f"{there}; sleep 1; {back}")
    contract = Contract(clocked)
    result = run_at(clocked, "+0d", "-localinfo")
    assert (result.status, result.err) == (0, "")
    assert [text for text in clocked.log_texts(16) if "ended after" in text] == []
    today = datetime.date.today().strftime("%Y")
    assert {file.name.split(".")[1][:4] for file in clocked.log_files()} >= {"1980", today}
    contract.check(result)


# Three seconds before clocks change in Berlin, and what they show then and after it.
CHANGES_OF_CLOCKS = {
    "an-hour-is-left-out": ("@1774745997", "01:59", "03:00"),
    "an-hour-comes-twice": ("@1792889997", "02:59", "02:00"),
}


@pytest.mark.row("F6")
@pytest.mark.full
@pytest.mark.parametrize("change", cases(CHANGES_OF_CLOCKS, quick=()))
def test_a_change_to_or_from_summer_time_changes_no_limit(clocked, change):
    when, before, after = change
    clocked.put_tool(clocked.local_sbin, "lspci", "sleep 3.5")
    contract = Contract(clocked)
    plain = clocked.command("-localinfo").out
    clocked.forget_log()
    result = run_at(clocked, when, "-localinfo", TZ="Europe/Berlin", FAKETIME_FMT="%s")
    assert (result.status, result.out, result.err) == (0, plain, "")
    assert [text for text in clocked.log_texts(16) if "ended after" in text] == []
    (log,) = clocked.log_files()
    shown = [line[11:16] for line in log.read_text().splitlines()]
    assert (shown[0], shown[-1]) == (before, after)
    contract.check(result)


ZONES = {
    "junk": "\x01<>\xff",
    "a-path": ":/etc/passwd",
    "outside": "../../../../shared/decoys",
    "far-offset": "X+167:59:59",
    "half-a-rule": "CET-1CEST,M3.5.0,M",
    "long": "A" * 100_000,
    "summer-time": "Europe/Berlin",
    "right": "right/UTC",
}


@pytest.mark.row("F6")
@pytest.mark.parametrize("zone", cases(ZONES, quick=("junk",)))
def test_a_time_zone_changes_times_in_the_log_alone(enrolled, zone):
    contract = Contract(enrolled)
    plain = enrolled.command("-localinfo").out
    result = enrolled.command("-localinfo", env={"TZ": zone})
    assert (result.status, result.out, result.err) == (0, plain, "")
    contract.check(result)


@pytest.mark.row("F6")
@pytest.mark.full
def test_the_expiry_of_a_token_is_a_hint_alone(clocked):
    """A token that this host takes for good although the server does not, and one the other way round."""
    identity = identity_files(clocked)
    (token,) = clocked.var("identity").glob("token.host.*")
    for expires_at in (0, -(1 << 62), (1 << 62)):
        token.write_text(json.dumps(json.loads(token.read_text()) | {"expiresAt": expires_at}))
        assert clocked.command("-readallhosts").status == 0
    token.write_text(json.dumps({"token": "unknown", "expiresAt": 1 << 40}))
    assert clocked.command("-readallhosts").status == 0
    assert identity_files(clocked) == identity
