"""Rows of the table: what was measured, against which goal, and whether it holds."""

import dataclasses


@dataclasses.dataclass(frozen=True)
class Goal:
    """What a row has to reach. `shown` is how its figure and its limit are written."""

    group: str
    what: str
    limit: float
    at_least: bool = False
    shown: str = "{:.2f}"

    def text(self):
        return ("≥ " if self.at_least else "≤ ") + self.shown.format(self.limit)

    def is_met_by(self, figure):
        return figure >= self.limit if self.at_least else figure <= self.limit


@dataclasses.dataclass(frozen=True)
class Row:
    """A goal with the figure that a run gave, and in `note` what it was computed from."""

    goal: Goal
    figure: float
    note: str = ""

    @property
    def is_met(self):
        return self.goal.is_met_by(self.figure)

    def cells(self, judged):
        verdict = ("met" if self.is_met else "MISSED") if judged else "-"
        return [self.goal.what, self.goal.text(), self.goal.shown.format(self.figure), verdict, self.note]


HEADINGS = ["what", "goal", "figure", "verdict", "from"]


def plain_table(rows, judged=True):
    """The rows for a terminal."""
    lines = [HEADINGS] + [row.cells(judged) for row in rows]
    widths = [max(len(line[column]) for line in lines) for column in range(len(HEADINGS) - 1)]
    return "".join(
        "  ".join([*(cell.ljust(width) for cell, width in zip(line, widths)), line[-1]]).rstrip() + "\n"
        for line in lines
    )


def markdown_table(rows):
    """The rows for a document."""
    lines = [HEADINGS, ["---"] * len(HEADINGS)] + [row.cells(judged=True) for row in rows]
    return "".join("| " + " | ".join(line) + " |\n" for line in lines)


def exit_status(rows):
    """1 when a row misses its goal."""
    return 0 if all(row.is_met for row in rows) else 1
