"""Signals at every system call: TERM, HUP and INT end the run within two seconds, PIPE ends nothing, and
files, locks and children are as after any other fault."""

import signal
import time

import pytest

from contract import Contract

from sweep_points import group_of, some_of

SEED = 20_261_121
QUICK_POINTS = 4

ENDING = {"TERM": -signal.SIGTERM, "HUP": -signal.SIGHUP, "INT": -signal.SIGINT}
SIGNALS = (*ENDING, "PIPE")

# Between them these make every call that the other scenarios make.
SCENARIOS = ("enrolment", "token-renewal", "forced-update")

GONE_WITHIN_SECONDS = 2
BUSY_MACHINE_SECONDS = 8

# What these calls do stays within the process; a signal meets the same there as at the call that follows.
WITHIN_THE_PROCESS = ("signals", "rest")


def sent(calls, number):
    return [
        {"name": f"{name} {k} {number}", "inject": [f"{name}:signal={number}:when={k}"]} for name, k in calls
    ]


def is_wrong_end(result, number):
    """INT while system() waits ends the tool alone; then the run goes on to its end."""
    if number == "PIPE":
        return not result["success"]
    goes_on = number == "INT" and result["success"]
    return result["status"] != ENDING[number] and not goes_on


def sweep(bench, scenario, calls, number, figure):
    results = bench.meet(scenario, sent(calls, number), seconds=GONE_WITHIN_SECONDS + BUSY_MACHINE_SECONDS)
    bad = [(result["point"], result["bad"]) for result in results if result["bad"]]
    met = [result for result in results if result.get("injected")]
    wrong = [
        (result["point"], result["status"], result["err"]) for result in met if is_wrong_end(result, number)
    ]
    unhealed = [(result["point"], result["unhealed"]) for result in results if result.get("unhealed")]
    figure("points", len(results))
    figure("signals met", len(met))
    figure("bad states", len(bad))
    figure("healed", len(results) - len(unhealed))
    assert bad == []
    assert wrong == []
    assert unhealed == []
    assert len(met) >= len(results) * 0.9, "too many points were not met"


def calls_of(bench, scenario):
    """The calls of main() that reach out of the process, but for the last one, which ends it."""
    return [call for call in bench.calls(scenario)[1:] if group_of(call[0]) not in WITHIN_THE_PROCESS]


@pytest.mark.row("F5")
@pytest.mark.parametrize("number", SIGNALS)
@pytest.mark.parametrize("scenario", SCENARIOS)
def test_a_signal_at_some_calls(bench, scenario, number, figure):
    chosen = some_of(calls_of(bench, scenario), QUICK_POINTS, SEED)
    sweep(bench, scenario, chosen, number, figure)


@pytest.mark.full
@pytest.mark.row("F5")
@pytest.mark.parametrize("number", SIGNALS)
@pytest.mark.parametrize("scenario", SCENARIOS)
def test_a_signal_at_every_call(bench, scenario, number, figure):
    sweep(bench, scenario, calls_of(bench, scenario), number, figure)


# Hangs the first time.
# No other program is started between mark and hanging: the shell loses an interrupt that meets it there.
HANGING = "test -e /shared/output/tool-runs || { : >/shared/output/tool-runs; exec sleep 600; }"


@pytest.mark.row("F5")
@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP])
def test_a_run_that_is_ended_takes_the_tool_it_waits_for_with_it(enrolled_host, number):
    box = enrolled_host(lambda made: made.put_tool(made.local_sbin, "uname", HANGING))
    contract = Contract(box)
    run = start_until_the_tool_runs(box)
    begun = time.monotonic()
    run.signal(number)
    ended = run.wait(20)
    assert ended.status == -number
    assert time.monotonic() - begun < GONE_WITHIN_SECONDS
    contract.check(ended)


@pytest.mark.row("F5")
def test_an_interrupt_from_the_keyboard_ends_the_tool_and_the_run_goes_on(enrolled_host):
    box = enrolled_host(lambda made: made.put_tool(made.local_sbin, "hostnamectl", HANGING))
    contract = Contract(box)
    run = start_until_the_tool_runs(box)
    sent = box.run(["kill", "-INT", "--", f"-{run.pid}"])  # the terminal sends it to the whole group
    assert (sent.status, sent.err) == (0, "")
    ended = run.wait(60)
    assert (ended.status, ended.err) == (0, "")
    contract.check(ended)
    contract.check_healed()


def start_until_the_tool_runs(box):
    run = box.start_command("-update")
    while not (box.shared / "output" / "tool-runs").exists():
        assert run.is_running()
        time.sleep(0.01)
    return run
