"""The n-th allocation fails, once or from then on: no broken file, no success that did not happen, least of
all towards a server that is not trusted. A crash is allowed inside a library of somebody else's, nowhere
else.

The status tells little here: what an exception does not say ends with 0. So success is what the server's
store says.
"""

import os
import pathlib
import random
import re
import subprocess

import pytest

from sandbox import PROGRAMS

SEED = 20_261_122
QUICK_POINTS = 6
# FAULT_ALLOCATIONS=0 tries each of the 30,000 allocations of an update, which takes hours.
FULL_POINTS = int(os.environ.get("FAULT_ALLOCATIONS", "60"))
NUMBERS = pytest.mark.parametrize("number", [QUICK_POINTS, pytest.param(FULL_POINTS, marks=pytest.mark.full)])

# Modules that are on the stack of every crash and that did not begin it.
RUNTIME = ("failing_allocation", "libc.so", "libstdc++", "libgcc_s", "ld-linux", "[vdso]")

SCENARIOS = ("enrolment", "token-renewal", "forced-update", "first-update")

pytestmark = [pytest.mark.row("F1"), pytest.mark.unsanitized]


@pytest.fixture(scope="session")
def shim(bench):
    """The library that lets an allocation fail, as the sandbox sees it."""
    source = bench.faults / "failing_allocation.c"
    target = bench.box.shared / "failing_allocation.so"
    flags = ["-shared", "-fPIC", "-O1", "-Wall", "-Wextra", "-Werror"]
    subprocess.run(["cc", *flags, "-o", target, source], check=True)
    return f"/shared/{target.name}"


def failing(shim, number, from_then_on):
    report = f"/shared/sweep/allocation.{number}.{'on' if from_then_on else 'once'}"
    environment = {
        "LD_PRELOAD": shim,
        "FAIL_ALLOCATION": str(number),
        "FAIL_ALLOCATION_ON": "yes" if from_then_on else "no",
        "FAIL_ALLOCATION_REPORT": report,
    }
    name = f"allocation {number}{' and all that follow' if from_then_on else ''}"
    return {"name": name, "environment": environment}


def report_of(bench, point):
    inside = pathlib.PurePosixPath(point["environment"]["FAIL_ALLOCATION_REPORT"])
    return (bench.box.shared / inside.relative_to("/shared")).read_text()


def allocations(bench, shim, scenario):
    """How many allocations a healthy run makes."""
    point = failing(shim, 0, False)
    (result,) = bench.meet(scenario, [point], heal=False)
    assert result["success"], result
    return int(re.search(r"allocations (\d+)", report_of(bench, point))[1])


def crashed_in(report):
    """The module that a crash began in: the innermost on the stack but for the C and C++ runtime."""
    frames = report.partition("crash\n")[2].splitlines()
    return next((frame for frame in frames if not any(name in frame for name in RUNTIME)), "nowhere")


def own_crashes(bench, points, results):
    """Crashes that began in a program of ours, and the number of all crashes."""
    crashed = [point for point, result in zip(points, results) if result.get("status", 0) < 0]
    places = [(point["name"], crashed_in(report_of(bench, point))) for point in crashed]
    own = [place for place in places if any(name in place[1] for name in (*PROGRAMS, "nowhere"))]
    return own, len(crashed)


def sweep(bench, scenario, points, figure, **options):
    results = bench.meet(scenario, points, **options)
    bad = [(result["point"], result["bad"]) for result in results if result["bad"]]
    unhealed = [(result["point"], result["unhealed"]) for result in results if result.get("unhealed")]
    own, crashes = own_crashes(bench, points, results)
    figure("allocations failed", len(results))
    figure("crashes inside libraries", crashes - len(own))
    figure("bad states", len(bad) + len(own))
    assert bad == []
    assert own == []
    assert unhealed == []
    return results


def points_of(bench, shim, scenario, number):
    """So many allocations of a run, every second one with all that follow it; 0: each of them twice."""
    total = allocations(bench, shim, scenario)
    if number == 0:
        return [failing(shim, n, on) for n in range(1, total + 1) for on in (False, True)]
    chosen = random.Random(SEED).sample(range(1, total + 1), min(number, total))
    return [failing(shim, n, place % 2 == 1) for place, n in enumerate(chosen)]


@NUMBERS
@pytest.mark.parametrize("scenario", SCENARIOS)
def test_allocations_fail(bench, shim, scenario, number, figure):
    sweep(bench, scenario, points_of(bench, shim, scenario, number), figure)


@NUMBERS
def test_allocations_fail_towards_a_server_that_is_not_trusted(bench, shim, number, figure):
    """The server has the right name, and an authority that the host does not know."""
    points = points_of(bench, shim, "first-update", number)
    with bench.untrusted_server() as server:
        results = sweep(bench, "first-update", points, figure, heal=False, data=server.data, row=None)
        false = [
            result["point"] for result in results if result["success"] or result["cache"] or result["rows"]
        ]
    figure("false successes", len(false))
    assert false == []
