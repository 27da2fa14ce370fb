"""The bench of the sweeps: one sandbox that meets thousands of faults, in one scenario after another.

A scenario is one run of a program from a known state; the bench makes that state once and keeps a copy of it,
and sweep_agent.py puts it back before each point. The host's tools are trivial: no matter what they say.
"""

import contextlib
import dataclasses
import json
import pathlib
import re
import shutil

from sandbox import BIN_DIR, Sandbox
from servers import Master
from sweep_points import calls_of_trace, closings_of_pipes

MASTER = "master1.example"
COMMAND = f"{BIN_DIR}/tqhostdbcmd"
ENROL = [f"{BIN_DIR}/tqenroll", "--server", MASTER]
ENROL += ["--invitation", "{invitation}", "--fingerprint", "{fingerprint}"]
RENEW = [f"{BIN_DIR}/tqenroll", "--renew"]


@dataclasses.dataclass(frozen=True)
class Scenario:
    """One run: the state it begins from, what it does to the identity, how it is healed."""

    state: str
    command: list[str]
    heal: list[str]
    # "kept": not a byte of the identity's files changes; "made": complete old or complete new; "renewed": the
    # same, but the token stays.
    identity: str = "kept"
    # The record in the server's store before the run; None where the run has nothing to do with it.
    row: str | None = None


UPDATE, FORCED = [COMMAND, "-update"], [COMMAND, "-update", "-force"]

SCENARIOS = {
    "enrolment": Scenario("new", ENROL, ENROL, identity="made"),
    "second-enrolment": Scenario("updated", ENROL, ENROL, identity="made"),
    "certificate-renewal": Scenario("updated", RENEW, RENEW, identity="renewed"),
    "token-renewal": Scenario("foreign-token", [COMMAND, "-readallhosts"], [COMMAND, "-readallhosts"]),
    "first-update": Scenario("enrolled", UPDATE, UPDATE, row="absent"),
    "unchanged-update": Scenario("updated", UPDATE, UPDATE, row="present"),
    "forced-update": Scenario("updated", FORCED, FORCED, row="absent"),
}


class Bench:
    """Starts the sandbox and its master server, and makes the scenarios' states."""

    faults = pathlib.Path(__file__).resolve().parent

    def __init__(self, build, work, beginnings):
        self.box = Sandbox(build, work / "sandbox")
        for tool in [*self.box.local_sbin.iterdir(), *self.box.sbin.iterdir()]:
            tool.write_text("#!/bin/sh\n:\n")
        self.box.start()
        self.master = Master(self.box, MASTER)
        shutil.copytree(beginnings / "enrolled" / "master", self.master.data_outside)
        self.states = self.box.shared / "states"
        (self.box.shared / "sweep").mkdir()
        self._untrusted = None
        self._calls = {}
        self._pipes = {}
        self._jobs = 0
        self.master.serve()
        self._make_states(beginnings)

    def _make_states(self, beginnings):
        """The folder /usr/torqv/var as each scenario finds it."""
        self._keep("new")
        shutil.copytree(beginnings / "enrolled" / "identity", self.box.var("identity"))
        self._keep("enrolled")
        result = self.box.command("-update")
        assert result.status == 0, result.err
        self._keep("updated")
        token = next(self.box.var("identity").glob("token.*"))
        text = token.read_text()
        token.write_text(re.sub(r'("token": ")([^"]{8})', lambda match: match[1] + match[2][::-1], text))
        self._keep("foreign-token")

    def _keep(self, name):
        shutil.copytree(self.box.var(""), self.states / name)

    def stop(self):
        """Ends server and sandbox; the server has to end well, whatever its clients met."""
        result = self.master.stop()
        self.box.stop()
        assert result.status == 0, result.err
        assert self.box.sanitizer_reports() == []

    @contextlib.contextmanager
    def untrusted_server(self):
        """Puts a server of another authority at the master server's place for a while."""
        if self._untrusted is None:
            self._untrusted = Master(self.box, MASTER, "untrusted")
            self._untrusted.init()
        self.master.stop()
        self._untrusted.serve()
        try:
            yield self._untrusted
        finally:
            self._untrusted.stop()
            self.master.serve()

    def meet(self, scenario, points, heal=True, seconds=60, **changes):
        """Meets a fault at each point; a list of results. A point is a dictionary with at least a name."""
        self._jobs += 1
        job = dataclasses.asdict(SCENARIOS[scenario]) | {
            "server": MASTER,
            "data": self.master.data,
            "database": "hosts.db",
            "hostName": self.box.host_name,
            "state": f"/shared/states/{SCENARIOS[scenario].state}",
            "environment": self.box.environment(traced=True),
            "afterHeal": [COMMAND, "-readallhosts"],
            "heal": SCENARIOS[scenario].heal if heal else [],
            "seconds": seconds,
            "points": points,
        }
        path = self.box.shared / "sweep" / f"{self._jobs:03}.job"
        path.write_text(json.dumps(job | changes))
        argv = ["/usr/bin/python3", "-I", "/faults/sweep_agent.py", f"/shared/sweep/{path.name}"]
        ended = self.box.run(argv, timeout=3600)
        assert ended.status == 0, ended.err
        return json.loads(path.with_suffix(".results").read_text())

    def calls(self, scenario):
        """Every point of a scenario's run, from a plain trace of it."""
        if scenario not in self._calls:
            plain = {"name": "plain", "inject": [], "trace": "/shared/sweep/plain.trace"}
            (result,) = self.meet(scenario, [plain], heal=False)
            assert result["success"], result
            trace = self.box.shared / "sweep" / "plain.trace"
            text = trace.read_text(errors="replace")
            self._calls[scenario] = calls_of_trace(text)
            self._pipes[scenario] = closings_of_pipes(text)
        return self._calls[scenario]

    def calls_that_may_fail(self, scenario):
        """Those of calls() whose failure can be injected without making something that no kernel does."""
        return [call for call in self.calls(scenario) if call not in self._pipes[scenario]]
