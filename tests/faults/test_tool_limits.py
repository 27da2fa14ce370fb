"""Tools that never end or print without end: each way of running them has its limits and its own outcome.

The program tested is the command with limits of 2 s and 256 KiB; it differs from the one that is installed in
these two numbers alone. The limits that are installed are met once, in the full run.
"""

import dataclasses
import json
import time

import pytest

from contract import Contract
from local_info import describe, run_measured
from sandbox import BIN_DIR

SECONDS, BYTES = 2, 262144
SHIPPED_BYTES = 67108864
GROWTH_KIB = 16384  # what a sanitizer keeps aside included
LONG_LINE = "0123456789" * 100

TIME_LIMIT = f"external command ended after {SECONDS} s: "
SIZE_LIMIT = f"output of external command cut at {BYTES} bytes: "

# Ways of never ending.
HANGS = {
    "hangs": "sleep 600",
    "ignores-signals": "trap '' TERM INT HUP; while :; do sleep 600; done",
    "is-stopped": "kill -STOP $$",
    "leaves-a-daemon-at-the-pipe": "setsid sh -c 'setsid sleep 600 &'",
    "ends-its-output-and-hangs": "exec >/dev/null 2>&1; sleep 600",
}
# Ways of printing without end.
FLOODS = {
    "prints-for-ever": f"exec yes {LONG_LINE}",
    "prints-one-line-for-ever": "exec tr '\\0' x </dev/zero",
    "prints-by-a-child": f"yes {LONG_LINE}; sleep 600",
}


@dataclasses.dataclass(frozen=True)
class Way:
    """One of the ways in which a command is run, and what a command that met a limit leaves of the record."""

    image: str
    folder: str  # of the sandbox
    tool: str
    command: str  # as the log names it
    prints: str  # before it goes wrong
    changes: dict = dataclasses.field(default_factory=dict)
    says: tuple = ()


WAYS = {
    # What was printed before counts.
    "runner": Way(
        "centos7-vmware",
        "local_sbin",
        "dmidecode",
        "/usr/local/sbin/dmidecode -s system-manufacturer ",
        "echo VMware, Inc.",
    ),
    # Reading stopped before the end: nothing counts.
    "captured": Way(
        "rhel7-physical",
        "local_sbin",
        "rpm",
        "rpm -qa XRVN* 2>&1",
        "echo XRVNtqclt-9.1.0.1-0025.x86_64",
        changes={"installedPackages": ""},
        says=(
            "Unable to successfully finish command execution.",
            "The command failed to execute.  run_command_and_capture_output() returned [7250]",
            "Failed to get installed package details, errorcode : 7250",
        ),
    ),
    # As if the tool had ended there.
    "cluster": Way(
        "cluster-active",
        "opt",
        "XRVNhxm/bin/hxsys",
        '"/opt/XRVNhxm/bin/hxsys" -list -localclus',
        "echo node1; echo node2",
    ),
    # The raw result is the status: 9, a death by SIGKILL.
    "presence": Way(
        "cluster-active",
        "opt",
        "XRVNhxm/bin/hxstatus",
        "/opt/XRVNhxm/bin/hxstatus -summary >/dev/null 2>&1",
        "echo RUNNING",
        changes={"clusterSharedNames": []},
        says=(
            "GetClusterSharedNames status : 9",
            "retrieveClusterSharedNames status : 9. Check getclusterinfo::trace for more details. ",
        ),
    ),
}


@dataclasses.dataclass(frozen=True)
class Case:
    way: str
    trouble: str
    limit: str
    quick: bool = False

    def param(self):
        marks = [pytest.mark.row("G2" if self.trouble in HANGS else "G3")]
        marks += [] if self.quick else [pytest.mark.full]
        return pytest.param(self, marks=marks, id=f"{self.way}-{self.trouble}")


CASES = [
    Case("runner", "hangs", TIME_LIMIT),
    Case("runner", "ignores-signals", TIME_LIMIT, quick=True),
    Case("runner", "is-stopped", TIME_LIMIT),
    Case("runner", "ends-its-output-and-hangs", TIME_LIMIT),
    Case("runner", "prints-for-ever", SIZE_LIMIT, quick=True),
    Case("runner", "prints-one-line-for-ever", SIZE_LIMIT),
    Case("runner", "prints-by-a-child", TIME_LIMIT),  # the child is cut, its parent hangs on
    Case("captured", "hangs", TIME_LIMIT),
    Case("captured", "ignores-signals", TIME_LIMIT),
    Case("captured", "is-stopped", TIME_LIMIT, quick=True),
    Case("captured", "leaves-a-daemon-at-the-pipe", TIME_LIMIT, quick=True),
    Case("captured", "ends-its-output-and-hangs", TIME_LIMIT),
    Case("captured", "prints-for-ever", SIZE_LIMIT, quick=True),
    Case("captured", "prints-one-line-for-ever", SIZE_LIMIT),
    Case("captured", "prints-by-a-child", SIZE_LIMIT),
    Case("cluster", "hangs", TIME_LIMIT, quick=True),
    Case("cluster", "ignores-signals", TIME_LIMIT),
    Case("cluster", "is-stopped", TIME_LIMIT),
    Case("cluster", "leaves-a-daemon-at-the-pipe", TIME_LIMIT),
    Case("cluster", "ends-its-output-and-hangs", TIME_LIMIT),
    Case("cluster", "prints-for-ever", SIZE_LIMIT, quick=True),
    Case("cluster", "prints-one-line-for-ever", SIZE_LIMIT),
    Case("cluster", "prints-by-a-child", SIZE_LIMIT),
    Case("presence", "hangs", TIME_LIMIT, quick=True),
    Case("presence", "ignores-signals", TIME_LIMIT),
    Case("presence", "is-stopped", TIME_LIMIT),
    Case("presence", "prints-for-ever", TIME_LIMIT),  # into /dev/null, which no size ends
]


def with_short_limits(box):
    """The command with limits that a test can wait for takes the place of the installed one."""
    program = box.build / "bin" / "tqhostdbcmd-short-limits"
    box.extra_arguments += ["--ro-bind", str(program), f"{BIN_DIR}/tqhostdbcmd"]


def spoil(box, way, trouble):
    """Puts a tool in place that prints something good and then goes wrong."""
    box.put_tool(getattr(box, way.folder), way.tool, f"{way.prints}\n{(HANGS | FLOODS)[trouble]}")


@pytest.mark.parametrize("case", [case.param() for case in CASES])
def test_a_tool_that_meets_a_limit_is_ended_with_all_it_started(identified, case):
    way = WAYS[case.way]
    box = identified(way.image, before_start=with_short_limits)
    contract = Contract(box)
    healthy, healthy_peak = run_measured(box, "-localinfo")
    assert json.loads(healthy.out) == box.expected_record()
    box.forget_log()

    spoil(box, way, case.trouble)
    begun = time.monotonic()
    result, peak = run_measured(box, "-localinfo")
    assert (result.status, result.err) == (0, "")
    assert time.monotonic() - begun < 60
    contract.check(result)
    assert json.loads(result.out) == box.expected_record() | way.changes
    errors = box.log_texts(16)
    met = [text for text in errors if text.startswith((TIME_LIMIT, SIZE_LIMIT))]
    assert met == [case.limit + way.command]
    assert set(way.says) <= set(errors)
    assert peak < healthy_peak + GROWTH_KIB, "memory grew with what the tool printed"


@pytest.mark.row("G2")
def test_an_update_outlives_a_hanging_tool_and_the_next_one_heals(sandbox_of):
    box = sandbox_of("debian12", with_short_limits)
    assert box.enrol(box.master().serve()).status == 0
    contract = Contract(box)
    sound = (box.local_sbin / "lspci").read_text()
    box.put_tool(box.local_sbin, "lspci", HANGS["hangs"])
    result = box.command("-update")
    assert (result.status, result.err) == (0, "")
    assert TIME_LIMIT + "/usr/local/sbin/lspci " in box.log_texts(16)
    contract.check(result)
    (box.local_sbin / "lspci").write_text(sound)
    contract.check_healed()


@pytest.mark.row("G2")
@pytest.mark.full
def test_every_tool_hangs_at_once(identified):
    box = identified("cluster-active", before_start=with_short_limits)
    contract = Contract(box)
    folders = [box.local_sbin, box.sbin, box.opt / "XRVNhxm" / "bin"]
    tools = [(folder, tool.name) for folder in folders for tool in folder.iterdir()]
    for folder, name in tools:
        box.put_tool(folder, name, HANGS["ignores-signals"])
    record = describe(box)
    changes = {"installedPackages": "", "clusterSharedNames": []}
    assert record == box.expected_record() | changes
    assert len([text for text in box.log_texts(16) if text.startswith(TIME_LIMIT)]) >= len(tools) - 3
    contract.check()


@pytest.mark.row("G3")
@pytest.mark.full
@pytest.mark.parametrize("way, growth", [("runner", 16), ("captured", 3 * 64 + 16)])
def test_two_gigabytes_are_cut_at_the_limit_that_is_installed(identified, way, growth):
    way = WAYS[way]
    box = identified(way.image)
    healthy, healthy_peak = run_measured(box, "-localinfo")
    assert healthy.status == 0
    box.put_tool(
        getattr(box, way.folder), way.tool, f"{way.prints}\nyes {LONG_LINE} | head -c 2147483648"
    )
    result, peak = run_measured(box, "-localinfo")
    assert json.loads(result.out) == box.expected_record() | way.changes
    assert f"output of external command cut at {SHIPPED_BYTES} bytes: {way.command}" in box.log_texts(16)
    assert peak < healthy_peak + growth * 1024
    assert [file for file in (box.torqv / "torquenix").iterdir() if file.name.startswith("SystemCmd")] == []
