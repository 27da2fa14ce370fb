"""The bench can produce every row, and its fleet gets every update through, on the build at hand."""

import pathlib
import re
import subprocess

TOP = pathlib.Path(__file__).resolve().parent.parent.parent

# Every row of the whole table, by the beginning of what it says.
ROWS = [
    "`-localinfo` wall / the same lines",
    "`-localinfo` wall / the bare floor",
    "processes beyond the prescribed lines",
    "peak memory of `-localinfo`",
    "unchanged `-update`",
    "first `-update`",
    "peak memory of `-update`",
    "connections of one first `-update`",
    "`-readallhosts -display`, 100,000 hosts",
    "the same / (curl piped to jq), 1,000",
    "the same / (curl piped to jq), 100,000",
    "peak memory / size of the reply",
    "time at 1,000,000 hosts",
    "`tqmasterd`: synced PUTs/s",
    "`tqmasterd`: server CPU",
    "`tqmasterd`: p99",
    "`tqmasterd`: synced writes of 16 writers",
    "`tqmasterd`: GET of 100,000 hosts",
    "`tqmasterd`: peak memory",
]


def run_bench(program, build, *arguments):
    argv = [TOP / "bench" / program, "--build", build, *arguments]
    result = subprocess.run(argv, capture_output=True, text=True, timeout=300, check=False)
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


def test_every_row_of_the_table_can_be_produced(build):
    lines = run_bench("run", build, "--smoke").splitlines()[1:]
    assert len(lines) == len(ROWS)
    for line, row in zip(lines, ROWS, strict=True):
        assert line.startswith(row)
        assert re.search(r"  \d+(\.\d+)?( MB)? +-", line), line
    # What does not depend on the machine holds at any size.
    assert "0 processes, 0 zombies, 0 files" in lines[2]
    assert re.search(r"≤ 2 +2 ", lines[7])


def test_a_fleet_of_five_hosts_gets_every_update_through(build):
    out = run_bench("fleet", build, "--hosts", "5", "--seconds", "0.5", "--changed", "1", "--processes", "2")
    assert re.findall(r"hosts 5, changed 5\b", out) == ["hosts 5, changed 5"] * 3
    assert re.findall(r"failed (\d+)", out) == ["0"] * 3
    synced = [int(count) for count in re.findall(r"disk syncs (\d+)", out)]
    assert len(synced) == 3 and all(count >= 1 for count in synced)


def test_unchanged_hosts_send_nothing(build):
    out = run_bench("fleet", build, "--hosts", "5", "--scenario", "hourly-spread", "--changed", "0")
    assert "changed 0" in out and "disk syncs 0," in out
