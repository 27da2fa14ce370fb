"""Where and when figures were measured, and the place of a table in a document."""

import datetime
import os
import pathlib
import re
import shutil
import subprocess

BEGIN = "<!-- bench/run --write: begin -->"
END = "<!-- bench/run --write: end -->"


def processor():
    text = pathlib.Path("/proc/cpuinfo").read_text()
    model = re.search(r"^model name\s*: (.*)$", text, re.M)
    return model[1] if model else os.uname().machine


def git(top, *arguments):
    """What git says of the sources; nothing where there is none."""
    if not shutil.which("git"):
        return ""
    result = subprocess.run(["git", "-C", top, *arguments], capture_output=True, text=True, check=False)
    return result.stdout.strip()


def commit(top):
    """The commit of the sources, and whether they are still those of the commit."""
    known = git(top, "rev-parse", "--short", "HEAD") or "unknown"
    is_changed = git(top, "status", "--porcelain", "--untracked-files=no")
    return f"{known} and changes on top of it" if is_changed else known


def description(top):
    """One line: day, kernel, processors, how busy they were with all there is to do, and commit."""
    day = datetime.date.today().isoformat()
    processors = f"{os.cpu_count()} processors ({processor()})"
    load = f"load {os.getloadavg()[2]:.0f}"
    return f"{day}, Linux {os.uname().release}, {processors}, {load}, commit {commit(top)}"


def replaced(text, table, description_line):
    """A document with a table between its two marks in the place of an earlier one."""
    before, rest = text.split(BEGIN)
    _, after = rest.split(END)
    return f"{before}{BEGIN}\n{description_line}\n\n{table}{END}{after}"


def write_table(document, table, description_line):
    document.write_text(replaced(document.read_text(), table, description_line))
