"""The options that the programs take, asked of the programs or of the one place that lists them."""

import functools
import pathlib
import re
import subprocess

TOP = pathlib.Path(__file__).resolve().parent.parent.parent

# tqhostdbcmd prints no help; its table of options is what there is to ask.
COMMAND_OPTIONS = re.findall(
    r"(?:operation|value|flag)Option\(\"(-\w+)\"", (TOP / "cmd" / "command_line.cpp").read_text()
)
MASTER_COMMANDS = ("init", "invite", "serve", "revoke")


@functools.lru_cache
def help_text(build, program, *commands):
    """What a program prints for --help."""
    argv = [str(build / "bin" / program), *commands, "--help"]
    return subprocess.run(argv, check=True, capture_output=True, text=True, timeout=60).stdout


def help_options(build, program, *commands):
    """All options that the help lists, those of one dash too."""
    found = set()
    for line in help_text(build, program, *commands).splitlines():
        if match := re.match(r"  (-[\w-]+(?:,-[\w-]+)*)", line):
            found |= set(match[1].split(","))
    return found


def long_options(build, program, *commands):
    """The options with two dashes, in order."""
    return sorted(option for option in help_options(build, program, *commands) if option.startswith("--"))


def help_statuses(build, program):
    """The exit statuses that the help explains: number to text."""
    footer = help_text(build, program).rpartition("Exit status: ")[2]
    statuses = (entry.strip().partition(" ") for entry in footer.partition(".")[0].split(";"))
    return {int(number): text for number, _, text in statuses}
