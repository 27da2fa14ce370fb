"""Killed at every system call: the programs' files are whole after it, and the next run heals."""

import pytest

from sweep_bench import SCENARIOS
from sweep_points import GROUP_NAMES, group_of, some_of

SEED = 20_261_120
QUICK_POINTS = 9

ROWS = {
    "enrolment": ("D4", "E6"),
    "second-enrolment": ("D4",),
    "certificate-renewal": ("D4",),
    "token-renewal": ("D4",),
}


def marks(scenario):
    return [pytest.mark.row(row) for row in ROWS.get(scenario, ("E6",))]


def killed(calls):
    return [{"name": f"{name} {k}", "inject": [f"{name}:signal=KILL:when={k}"]} for name, k in calls]


def sweep(bench, scenario, calls, figure):
    """Kills a run at each of these calls. A run that has fewer of them than the plain one, which the network
    makes possible, ends by itself; that is no kill."""
    results = bench.meet(scenario, killed(calls))
    kills = [result for result in results if result.get("status") == -9]
    bad = [(result["point"], result["bad"]) for result in results if result["bad"]]
    unhealed = [(result["point"], result["unhealed"]) for result in results if result.get("unhealed")]
    figure("points", len(results))
    figure("kills", len(kills))
    figure("bad states", len(bad))
    figure("healed", len(results) - len(unhealed))
    assert bad == []
    assert unhealed == []
    assert len(results) - len(kills) <= max(1, len(results) // 10), "too many points were not met"


@pytest.mark.parametrize("scenario", [pytest.param(name, marks=marks(name)) for name in SCENARIOS])
def test_killed_at_some_calls(bench, scenario, figure):
    sweep(bench, scenario, some_of(bench.calls(scenario), QUICK_POINTS, SEED), figure)


@pytest.mark.full
@pytest.mark.parametrize("group", GROUP_NAMES)
@pytest.mark.parametrize("scenario", [pytest.param(name, marks=marks(name)) for name in SCENARIOS])
def test_killed_at_every_call(bench, scenario, group, figure):
    calls = [call for call in bench.calls(scenario) if group_of(call[0]) == group]
    sweep(bench, scenario, calls, figure)
