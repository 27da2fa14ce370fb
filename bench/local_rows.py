"""-localinfo: its time against the same external commands alone, what it leaves, and its memory."""

import re

import bed
from verdicts import Goal, Row

OF_LIBRARIES = Goal(
    "local", "`-localinfo` wall / the same lines by a program linked with the same libraries", 1.10
)
OF_BARE = Goal("local", "`-localinfo` wall / the bare floor (no libraries), full list of lines", 1.12)
LEFT = Goal(
    "local", "processes beyond the prescribed lines, zombies, temporary files left", 0, shown="{:.0f}"
)
PEAK = Goal("local", "peak memory of `-localinfo`", 16, shown="{:.1f} MB")

TRACE = "/shared/output/trace"
STRACE = ["strace", "-f", "--seccomp-bpf", "-s", "4096", "-o", TRACE]
PROCESS_CALLS = "trace=execve,clone,clone3,fork,vfork,wait4,waitid"

SHELL_LINE = re.compile(r'execve\("/bin/sh", \["sh", "-c", (?:"--", )?"(?P<text>(?:[^"\\]|\\.)*)"\]')
REDIRECTED = re.compile(r">\S+ 2>\S+$")
STARTED = re.compile(r"^(\d+) +(?:<\.\.\. )?(?:clone3?|v?fork)\b.*= (\d+)$")
REAPED = re.compile(r"^\d+ +(?:<\.\.\. )?wait4\b.*= (\d+)$")

# What a run captures through a pipe, after the commands that the image's list names.
PIPED = ["uname -a", "rpm -qa XRVN* 2>&1", "uname -a"]


def traced(box, argv):
    """A program's run with every process that it starts."""
    bed.run_well(box.run([*STRACE, "-e", PROCESS_CALLS, *argv], traced=True), argv[0])
    return (box.shared / "output" / "trace").read_text()


def shell_lines(trace):
    """The shell lines of a traced run in order, as the floor program takes them."""
    lines = []
    for match in SHELL_LINE.finditer(trace):
        text = match["text"].encode().decode("unicode_escape")
        if REDIRECTED.search(text):
            lines.append("system " + REDIRECTED.sub(">{out} 2>{err}", text))
        else:
            lines.append("popen " + text)
    return lines


def command_of(line):
    """The command of a floor's line, as the lists of the host images give it."""
    way, text = line.split(" ", 1)
    if way == "popen":
        return text
    return re.sub(r"^LC_ALL=C ", "", text).split(" </dev/null")[0].split(" >{out}")[0].rstrip()


def prescribed(box):
    listed = (box.image / "expected.commands").read_text().splitlines()
    return [line.rstrip() for line in listed] + PIPED


def split_lines(box, lines):
    """A run's lines as prescribed, and those that nobody asked for."""
    left = prescribed(box)
    asked, beyond = [], []
    for line in lines:
        if command_of(line) in left:
            left.remove(command_of(line))
            asked.append(line)
        else:
            beyond.append(line)
    if left:
        raise bed.BenchError(f"-localinfo does not run these: {left}")
    return asked, beyond


def started(trace):
    return {match[2] for line in trace.splitlines() if (match := STARTED.match(line))}


def zombies(trace):
    """Processes that the traced program itself started and never waited for."""
    lines = trace.splitlines()
    first = lines[0].split()[0]
    own = {match[2] for line in lines if (match := STARTED.match(line)) and match[1] == first}
    return own - {match[1] for line in lines if (match := REAPED.match(line))}


def files(box):
    """Every file that a run could leave something beside."""
    found = box.run(["find", "/tmp", "/var/tmp", bed.BIN_DIR + "/../..", "!", "-type", "d"])
    return set(bed.run_well(found, "find").out.splitlines())


def what_is_left(box):
    """What a run does and leaves beyond its purpose; writes the list of the floor's lines."""
    bed.run_well(box.command("-localinfo"), "-localinfo")
    before = files(box)
    run = traced(box, [bed.COMMAND, "-localinfo"])
    left = files(box) - before
    asked, _ = split_lines(box, shell_lines(run))
    (box.shared / "commands").write_text("".join(line + "\n" for line in asked))
    floor = traced(box, FLOOR)
    beyond = len(started(run)) - len(started(floor))
    return len(asked), [beyond, len(zombies(run)), len(left)]


FLOOR = ["/bench/floor", "/shared/commands", "/usr/torqv/torquenix"]


def measure(settings):
    with bed.host(settings, "local") as box:
        box.give_identifier()
        lines, beyond = what_is_left(box)
        rows = [
            {"label": "bare", "argv": FLOOR},
            {"label": "libraries", "argv": ["/bench/floor-with-libraries", *FLOOR[1:]]},
            {"label": "-localinfo", "argv": [bed.COMMAND, "-localinfo"]},
        ]
        timings = bed.take_turns(box, rows, settings.rounds * settings.scaled(2), settings.scaled(3, 0))
    local, bare, libraries = (timings[label] for label in ("-localinfo", "bare", "libraries"))
    note = f"{lines} lines: "
    return [
        bed.ratio_row(OF_LIBRARIES, local, libraries, note),
        bed.ratio_row(OF_BARE, local, bare, note),
        Row(LEFT, sum(map(abs, beyond)), "{} processes, {} zombies, {} files".format(*beyond)),
        Row(PEAK, local.peak / bed.MEGABYTE, f"the libraries alone {bed.in_megabytes(libraries.peak)}"),
    ]
