"""Counts the cases of each row while they run and writes the table of results."""

import collections
import dataclasses
import datetime
import os
import platform

from rows import GROUPS, ROWS


@dataclasses.dataclass
class Outcome:
    """What the cases of one row gave."""

    passed: int = 0
    failed: int = 0
    seconds: float = 0
    figures: collections.Counter = dataclasses.field(default_factory=collections.Counter)


class FaultTable:
    """A plugin of pytest: takes every report, also of other processes, and writes the table at the end."""

    def __init__(self, target):
        self.target = target
        self.outcomes = {row: Outcome() for row in ROWS}
        self.failures = []

    def pytest_runtest_logreport(self, report):
        rows = [value for name, value in report.user_properties if name == "row"]
        if not rows or (report.when != "call" and not report.failed):
            return
        if report.failed:
            self.failures.append(report.nodeid)
        for row in rows:
            outcome = self.outcomes[row]
            outcome.failed += report.failed
            outcome.passed += report.passed and report.when == "call"
            outcome.seconds += report.duration
        for name, value in report.user_properties:
            if name == "figure":
                self.outcomes[rows[0]].figures[value[0]] += value[1]

    def pytest_sessionfinish(self, session):
        self.target.parent.mkdir(parents=True, exist_ok=True)
        self.target.write_text(self.text())
        if self.unexplained():
            session.exitstatus = 1

    def unexplained(self):
        """Rows that have neither a case nor a reason for having none."""
        return [
            row
            for row, outcome in self.outcomes.items()
            if not ROWS[row].no_case and outcome.passed + outcome.failed == 0
        ]

    def result(self, row):
        outcome = self.outcomes[row]
        if ROWS[row].no_case:
            return f"no case: {ROWS[row].no_case}"
        if row in self.unexplained():
            return "**no case and no reason**"
        if outcome.failed:
            return f"**{outcome.failed} failed**"
        return f"holds; without {ROWS[row].left_out}" if ROWS[row].left_out else "holds"

    def text(self):
        passed = sum(outcome.passed for outcome in self.outcomes.values())
        failed = sum(outcome.failed for outcome in self.outcomes.values())
        lines = [
            f"{datetime.date.today().isoformat()}, {platform.system()} {platform.release()}, "
            f"{os.cpu_count()} processors: {passed} cases held, {failed} failed, "
            f"{len(self.unexplained())} rows unexplained.",
        ]
        for group, title in GROUPS.items():
            lines += ["", f"## {group}: {title}", ""]
            lines += ["| Row | Fault | Cases | Result | Figures |", "|---|---|--:|---|---|"]
            lines += [self.line(row) for row in ROWS if row[0] == group]
        if self.failures:
            lines += ["", "Failed cases:", ""] + [f"- `{name}`" for name in self.failures]
        return "\n".join(lines) + "\n"

    def line(self, row):
        outcome = self.outcomes[row]
        figures = ", ".join(f"{name} {number}" for name, number in sorted(outcome.figures.items()))
        cases = outcome.passed + outcome.failed
        return f"| {row} | {ROWS[row].fault} | {cases} | {self.result(row)} | {figures} |"
