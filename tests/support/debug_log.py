"""Reading the debug log."""

import dataclasses
import re


@dataclasses.dataclass(frozen=True)
class LogEntry:
    """One entry of a debug log, lines that follow its first joined with line ends."""

    level: int
    context: str
    text: str
    pid: int


ENTRY = re.compile(
    r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[(?P<pid>\d+)\] "
    r"<(?P<level>\d+)> (?P<context>.*?): (?P<text>.*)$"
)


def parse_log(text):
    """Entries of a debug log. A line that is neither an entry nor the continuation of one is refused."""
    entries = []
    for line in text.splitlines():
        match = ENTRY.match(line)
        if match:
            entries.append(
                LogEntry(int(match["level"]), match["context"], match["text"], int(match["pid"]))
            )
        elif line.startswith("\t") and entries:
            last = entries[-1]
            entries[-1] = dataclasses.replace(last, text=last.text + "\n" + line[1:])
        else:
            raise ValueError(f"neither an entry nor a continuation: {line!r}")
    return entries
