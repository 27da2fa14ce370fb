"""What the bench makes of its figures: verdicts, tables, lists of commands, schedules."""

import importlib.machinery
import importlib.util
import pathlib
import subprocess
import sys

import pytest

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(TOP / "bench"))

import bed  # noqa: E402
import local_rows  # noqa: E402
import machine  # noqa: E402
import schedule  # noqa: E402
import verdicts  # noqa: E402
from verdicts import Goal, Row  # noqa: E402

MOST = Goal("local", "time / floor", 1.10)
LEAST = Goal("server", "pushes / bare pushes", 0.95, at_least=True)


@pytest.fixture
def run_with(monkeypatch):
    """Runs bench/run with rows that somebody else measured; its exit status."""
    loader = importlib.machinery.SourceFileLoader("bench_run", str(TOP / "bench" / "run"))
    program = importlib.util.module_from_spec(importlib.util.spec_from_loader("bench_run", loader))
    loader.exec_module(program)

    def run(rows, *arguments):
        def measured(_arguments):
            if isinstance(rows, Exception):
                raise rows
            return rows

        monkeypatch.setattr(program, "measure", measured)
        monkeypatch.setattr(sys, "argv", ["run", *arguments])
        return program.main()

    return run


@pytest.mark.parametrize(
    ("goal", "figure", "is_met"),
    [
        (MOST, 1.10, True),
        (MOST, 1.11, False),
        (LEAST, 0.95, True),
        (LEAST, 0.94, False),
        (MOST, float("nan"), False),
    ],
)
def test_a_goal_is_met_up_to_its_limit(goal, figure, is_met):
    assert Row(goal, figure).is_met == is_met


def test_a_missed_row_ends_the_run_with_1(run_with, capsys):
    assert run_with([Row(MOST, 1.0), Row(LEAST, 0.5)]) == 1
    out = capsys.readouterr().out
    assert "met" in out.splitlines()[1] and "MISSED" in out.splitlines()[2]


def test_a_run_whose_rows_all_hold_ends_with_0(run_with, capsys):
    assert run_with([Row(MOST, 1.0), Row(LEAST, 1.5)]) == 0
    assert "MISSED" not in capsys.readouterr().out


def test_a_smoke_pass_judges_nothing(run_with, capsys):
    assert run_with([Row(MOST, 9.9)], "--smoke") == 0
    row = capsys.readouterr().out.splitlines()[1]
    assert row.split() == ["time", "/", "floor", "≤", "1.10", "9.90", "-"]


def test_a_figure_that_cannot_be_had_ends_the_run_with_2(run_with, capsys):
    assert run_with(bed.BenchError("no server")) == 2
    assert capsys.readouterr().err == "bench: no server\n"


def test_a_table_replaces_the_earlier_one_and_nothing_else(tmp_path):
    document = tmp_path / "performance.md"
    document.write_text(f"before\n{machine.BEGIN}\nold\n{machine.END}\nafter\n")
    table = verdicts.markdown_table([Row(MOST, 1.0)])
    text = machine.replaced(document.read_text(), table, "a machine")
    assert text.startswith(f"before\n{machine.BEGIN}\na machine\n\n| what |")
    assert text.endswith(f"| time / floor | ≤ 1.10 | 1.00 | met |  |\n{machine.END}\nafter\n")
    assert machine.replaced(text, table, "a machine") == text


def test_sources_that_differ_from_their_commit_are_told_of(tmp_path):
    assert machine.commit(tmp_path) == "unknown"
    git = ["git", "-C", tmp_path, "-c", "user.name=a", "-c", "user.email=a@example"]
    (tmp_path / "file").write_text("one")
    for step in (["init", "-q"], ["add", "file"], ["commit", "-q", "-m", "one"]):
        subprocess.run([*git, *step], check=True)
    known = machine.commit(tmp_path)
    assert len(known) >= 7 and known.isalnum()
    (tmp_path / "file").write_text("two")
    assert machine.commit(tmp_path) == f"{known} and changes on top of it"


TRACE = r"""10 execve("/usr/torqv/torquenix/bin/tqhostdbcmd", ["tqhostdbcmd"], 0x0 /* 3 vars */) = 0
10 clone3({flags=CLONE_VM|CLONE_VFORK}, 88 <unfinished ...>
11 execve("/bin/sh", ["sh", "-c", "LC_ALL=C /bin/cat \"a\" >/x/o1 2>/x/e1"], 0x0 /* 3 vars */) = 0
11 vfork() = 12
11 wait4(-1, [{WIFEXITED(s) && WEXITSTATUS(s) == 0}], 0, NULL) = 12
10 <... clone3 resumed>) = 11
10 wait4(11, [{WIFEXITED(s) && WEXITSTATUS(s) == 0}], 0, NULL) = 11
10 clone(child_stack=NULL, flags=SIGCHLD) = 13
13 execve("/bin/sh", ["sh", "-c", "--", "uname -a"], 0x0 /* 3 vars */) = 0
10 +++ exited with 0 +++
"""


def test_the_lines_of_a_trace_become_the_floors():
    lines = local_rows.shell_lines(TRACE)
    assert lines == ['system LC_ALL=C /bin/cat "a" >{out} 2>{err}', "popen uname -a"]
    assert [local_rows.command_of(line) for line in lines] == ['/bin/cat "a"', "uname -a"]


def test_every_process_of_a_trace_counts_and_one_that_nobody_awaits_is_a_zombie():
    assert local_rows.started(TRACE) == {"11", "12", "13"}
    assert local_rows.zombies(TRACE) == {"13"}


@pytest.mark.parametrize("shape", schedule.SHAPES)
def test_a_schedule_names_each_changed_host_once_within_its_time(shape):
    times = schedule.make_schedule({"shape": shape, "seconds": 10, "changed": 0.25}, hosts=400)
    assert len(times) == len({host for _, host in times}) == 100
    assert times == sorted(times)
    assert 0 <= times[0][0] <= times[-1][0] <= 10_000


def test_a_schedule_is_the_same_in_every_run():
    scenario = {"shape": "peak", "seconds": 10, "changed": 0.5}
    assert schedule.make_schedule(scenario, 50) == schedule.make_schedule(scenario, 50)
