"""What all groups of rows stand on: the bench's own programs, a host in a sandbox, rows that take turns."""

import contextlib
import dataclasses
import fcntl
import json
import pathlib
import shlex
import statistics
import subprocess
import sys

TOP = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TOP / "tests" / "support"))

from sandbox import BIN_DIR, Sandbox  # noqa: E402
from verdicts import Row  # noqa: E402

COMMAND = f"{BIN_DIR}/tqhostdbcmd"
IMAGE = "rhel7-physical"  # names no hypervisor, has every tool: the longest list of external commands
RUN_SECONDS = 900
MEGABYTE = 1024 * 1024  # of a process, whose memory comes in pages

# Libraries that every program has, and those of a build with sanitizers, which no yardstick carries.
NOT_LINKED = ("libc.so", "libm.so", "libgcc_s.so", "libstdc++.so", "libasan.so", "libubsan.so", "ld-linux")


class BenchError(Exception):
    """Something that a figure needs did not work."""


@dataclasses.dataclass(frozen=True)
class Settings:
    """How a run of the bench is to be done."""

    build: pathlib.Path
    programs: pathlib.Path
    work: pathlib.Path
    rounds: int
    smoke: bool

    def scaled(self, number, smallest=1):
        """A size as the figures need it; in a smoke pass the smallest that does."""
        return smallest if self.smoke else number


# The bench's own programs


def needed_libraries(program):
    """What a program loads at its start, as linker options."""
    listed = subprocess.run(["readelf", "-d", program], check=True, capture_output=True, text=True).stdout
    names = [line.split("[")[1].rstrip("]") for line in listed.splitlines() if "(NEEDED)" in line]
    return [f"-l:{name}" for name in names if not name.startswith(NOT_LINKED)]


def build_programs(build):
    """Builds the bench's programs for a build of the system; the folder where they lie."""
    folder = TOP / "build" / "bench" / build.name
    folder.mkdir(parents=True, exist_ok=True)
    libraries = ";".join(needed_libraries(build / "bin" / "tqhostdbcmd"))
    configure = ["cmake", "-S", TOP / "bench", "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release"]
    configure += [f"-DTQ_BENCH_COMMAND_LIBRARIES={libraries}"]
    if subprocess.run(["which", "ccache"], capture_output=True, check=False).returncode == 0:
        configure += ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
    with open(folder / "lock", "w", encoding="ascii") as lock:  # tests run side by side
        fcntl.flock(lock, fcntl.LOCK_EX)
        for step in (configure, ["cmake", "--build", folder]):
            result = subprocess.run(step, capture_output=True, text=True, check=False)
            if result.returncode != 0:
                raise BenchError(f"{shlex.join(map(str, step))}\n{result.stdout}{result.stderr}")
    return folder / "bin"


# Sandboxes


@contextlib.contextmanager
def host(settings, name, *mounts):
    """A host in a sandbox of its own, with the bench's programs under /bench and further mounts."""
    box = Sandbox(settings.build, settings.work / name, IMAGE)
    simplify_tools(box)
    box.extra_arguments += ["--ro-bind", str(settings.programs), "/bench", *mounts]
    with box:
        yield box


def simplify_tools(box):
    """Takes the record of calls out of the image's tools: it would cost more than what they stand for."""
    for tool in box.local_sbin.iterdir():
        lines = [line for line in tool.read_text().splitlines(True) if ">>/shared/output/tools" not in line]
        tool.write_text("".join(lines))


def enrolled_with(box, master):
    """Enrols the host of a sandbox at a serving master server."""
    run_well(box.enrol(master), "enrolment")
    return box


def run_well(result, what):
    """A result that must be one of success."""
    if result.status != 0:
        raise BenchError(f"{what} ended with {result.status}: {result.err or result.out}")
    return result


def run_json(box, argv):
    """What a program of the bench prints."""
    return json.loads(run_well(box.run(argv, timeout=RUN_SECONDS), argv[0]).out)


# Turns


@dataclasses.dataclass(frozen=True)
class Timing:
    """What the runs of one row gave: milliseconds of each, and the largest peak of memory in bytes."""

    wall: list
    cpu: list
    peak: int

    @property
    def median(self):
        return statistics.median(self.wall)


def take_turns(box, rows, rounds, warm_up):
    """Runs rows (see turns.cpp) in turn; their timings by label."""
    request = {"rounds": rounds, "warmUp": warm_up, "rows": rows}
    (box.shared / "turns.json").write_text(json.dumps(request))
    result = box.run(["/bench/turns"], stdin="/shared/turns.json", timeout=RUN_SECONDS)
    results = json.loads(run_well(result, "turns").out)
    failed = [f"{label} ({row['status']})" for label, row in results.items() if row["status"] != 0]
    if failed:
        raise BenchError(f"these rows failed: {', '.join(failed)}")
    return {
        label: Timing(row["wall"], row["cpu"], row["peak"] * 1024) for label, row in results.items()
    }


def median_ratio(over, under):
    """The median of the ratios of runs that stood side by side."""
    return statistics.median(a / b for a, b in zip(over, under, strict=True))


def in_megabytes(size):
    return f"{size / MEGABYTE:.1f} MB"


def added(one, other):
    """Two rows as if each round had run one after the other."""
    wall = [a + b for a, b in zip(one.wall, other.wall, strict=True)]
    cpu = [a + b for a, b in zip(one.cpu, other.cpu, strict=True)]
    return Timing(wall, cpu, max(one.peak, other.peak))


def pairs_note(over, under):
    """What a ratio of two rows was computed from. CPU time tells more than wall time on a busy machine."""
    cpu = median_ratio(over.cpu, under.cpu)
    return f"{over.median:.1f} / {under.median:.1f} ms, CPU {cpu:.2f}, {len(over.wall)} pairs"


def ratio_row(goal, over, under, note=""):
    """The row of a ratio of two timings."""
    return Row(goal, median_ratio(over.wall, under.wall), note + pairs_note(over, under))
