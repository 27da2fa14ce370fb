"""A system call fails: no crash, no hang, no success that the server's store does not bear out, no broken
file, and the next run heals."""

import pytest

from sandbox import NO_CLUSTER
from sweep_bench import SCENARIOS
from sweep_points import some_of, spread

SEED = 20_261_120
QUICK_POINTS = 8
POINTS_OF_A_CALL = 10

ERRORS = ("ENOSPC", "EIO", "EACCES", "EMFILE", "ENOMEM", "EINTR")

# Whatever can fail outside the process: files and folders, locks, children, the network. Left out are calls
# that cannot fail (getpid), that only ask (uname), and those of memory, which row F1 has.
CALLS = ("openat", "read", "write", "close", "fsync", "rename", "unlink", "mkdir", "newfstatat", "getdents64",
         "ftruncate", "flock", "pipe2", "clone3", "socket", "connect", "sendto", "recvfrom", "poll")

# A failed update waits before it tries again; here that wait takes no time.
NO_WAIT = "clock_nanosleep:retval=0"

# A sanitizer makes calls of its own, and would have to bear their errors too.
pytestmark = pytest.mark.unsanitized

# The shell that the programs start cannot run the tool: its second execve, counted in each process.
TOOL_CANNOT_RUN = "execve"


def failing(call, error):
    name, k = call
    point = {"name": f"{name} {k} {error}", "inject": [f"{name}:error={error}:when={k}", NO_WAIT]}
    return point | ({"children": True} if name == TOOL_CANNOT_RUN else {})


# What makes a file or lets it grow; a quota refuses that and nothing else.
REFUSED_BY_A_QUOTA = ("openat", "write", "mkdir", "rename", "fsync")


def is_crash(result):
    return result.get("status", 0) < 0


def is_silent_failure(result):
    """Neither standard error nor the debug log has a word about it."""
    return not result["success"] and not result["err"] and set(result["log"]) <= {NO_CLUSTER}


def sweep(bench, scenario, points, figure):
    results = bench.meet(scenario, points)
    bad = [(result["point"], result["bad"]) for result in results if result["bad"]]
    crashes = [(result["point"], result["status"]) for result in results if is_crash(result)]
    silent = [result["point"] for result in results if not result["bad"] and is_silent_failure(result)]
    unhealed = [(result["point"], result["unhealed"]) for result in results if result.get("unhealed")]
    figure("points", len(results))
    figure("errors met", sum(result.get("injected", 0) > 0 for result in results))
    figure("bad states", len(bad) + len(crashes))
    figure("healed", len(results) - len(unhealed))
    assert bad == []
    assert crashes == []
    assert silent == []
    assert unhealed == []


def calls_of(bench, scenario, name):
    """The calls of a name that main() makes, evenly thinned out: neighbours of a loop meet the same code."""
    if name == TOOL_CANNOT_RUN:
        return [(name, 2)]
    calls = [call for call in bench.calls_that_may_fail(scenario)[1:] if call[0] == name]
    return spread(calls, POINTS_OF_A_CALL)


@pytest.mark.row("E2")
@pytest.mark.parametrize("scenario", SCENARIOS)
def test_some_calls_fail(bench, scenario, figure):
    calls = [call for name in CALLS for call in calls_of(bench, scenario, name)]
    chosen = some_of(calls, QUICK_POINTS, SEED)
    points = [failing(call, ERRORS[place % len(ERRORS)]) for place, call in enumerate(chosen)]
    sweep(bench, scenario, points, figure)


@pytest.mark.full
@pytest.mark.row("E2")
@pytest.mark.parametrize("name", [*CALLS, TOOL_CANNOT_RUN])
@pytest.mark.parametrize("scenario", SCENARIOS)
def test_a_call_fails(bench, scenario, name, figure):
    calls = calls_of(bench, scenario, name)
    sweep(bench, scenario, [failing(call, error) for call in calls for error in ERRORS], figure)


@pytest.mark.full
@pytest.mark.row("E1")
@pytest.mark.parametrize("scenario", SCENARIOS)
def test_a_quota_is_used_up(bench, scenario, figure):
    calls = [call for name in REFUSED_BY_A_QUOTA for call in calls_of(bench, scenario, name)]
    sweep(bench, scenario, [failing(call, "EDQUOT") for call in calls], figure)
