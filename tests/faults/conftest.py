"""How cases of faults are marked, chosen and counted.

    @pytest.mark.row("B3")   the row of rows.py that a case belongs to; required
    @pytest.mark.full        only in a full run, not in the quick share
    @pytest.mark.unsanitized only on builds without sanitizers, whose own allocator or slowness is in the way
    @pytest.mark.process_group only where the tests may make control groups that limit processes
    @pytest.mark.core_files  only where the kernel puts core files into the folder of the process

Marks may stand on a test, or on a parameter set of it.
"""

import pathlib
import shutil

import pytest

pytest.register_assert_rewrite("contract", "outcomes")  # they tell what differs, like a test's own

from attacked_server import AttackedServer
from fault_table import FaultTable
from process_group import may_make_groups
from sandbox import is_sanitized
from servers import Master
from wire_host import WireHost
from sweep_bench import Bench

HERE = pathlib.Path(__file__).resolve().parent


def pytest_configure(config):
    config.addinivalue_line("markers", "row(id): the row of the table of faults that a case belongs to")
    config.addinivalue_line("markers", "full: only in a full run of the faults")
    config.addinivalue_line("markers", "unsanitized: only on builds without sanitizers")
    config.addinivalue_line("markers", "process_group: only where control groups of processes can be made")
    config.addinivalue_line("markers", "core_files: only where core files go into the current folder")
    target = config.getoption("--fault-table")
    if target is not None and not hasattr(config, "workerinput"):
        config.pluginmanager.register(FaultTable(pathlib.Path(target)))


def pytest_collection_modifyitems(config, items):
    own = [item for item in items if HERE in item.path.parents]
    for item in own:
        marks = list(item.iter_markers("row"))
        if not marks:
            raise pytest.UsageError(f"{item.nodeid}: a case without a row")
        for mark in marks:
            item.user_properties.append(("row", mark.args[0]))
    quick = config.getoption("--faults") == "quick"
    left_out = {
        item
        for item in own
        if (quick and item.get_closest_marker("full"))
        or any(item.get_closest_marker(mark) and not can(item) for mark, can in CONDITIONS.items())
    }
    items[:] = [item for item in items if item not in left_out]
    config.hook.pytest_deselected(items=list(left_out))


def leaves_core_files(_item):
    pattern = pathlib.Path("/proc/sys/kernel/core_pattern").read_text()
    return pattern.startswith("core")


# Cases that hold only under a condition of the build or of the machine.
CONDITIONS = {
    "unsanitized": lambda item: not is_sanitized(item.callspec.params["build"]),
    "process_group": lambda item: may_make_groups(),
    "core_files": leaves_core_files,
}


@pytest.fixture
def figure(record_property):
    """Puts a number into the row of the table: figure("kills", 60). Numbers of the same name add up."""

    def record(name, number):
        record_property("figure", [name, number])

    return record


@pytest.fixture(scope="session")
def bench(build, tmp_path_factory, beginnings):
    """The sandbox of the sweeps, one for each process of pytest."""
    made = Bench(build, tmp_path_factory.mktemp("bench"), beginnings)
    yield made
    made.stop()


@pytest.fixture(scope="module")
def attacked(shared_master):
    """A master server with two hosts, shared by all cases of a module."""
    return AttackedServer(shared_master)


@pytest.fixture(scope="session")
def wire_bed(build, beginnings, tmp_path_factory):
    """The sandbox that all cases about the wire share in one process."""
    with WireHost(build, tmp_path_factory.mktemp("wire") / "sandbox", beginnings) as bed:
        yield bed


@pytest.fixture
def wire(wire_bed, request):
    """A host that is enrolled, whose master server a case can make misbehave."""
    request.node.sandbox = wire_bed.box
    wire_bed.begin()
    yield wire_bed
    assert wire_bed.box.sanitizer_reports() == []


@pytest.fixture
def enrolled_host(sandbox_of, beginnings):
    """A host with an identity towards its serving master server, whose box a case may change before the
    start: enrolled_host(lambda box: ...)."""

    def start(before_start):
        box = sandbox_of(before_start=before_start)
        server = Master(box, "master1.example")
        shutil.copytree(beginnings / "enrolled" / "master", server.data_outside)
        box.masters[server.name] = server
        shutil.copytree(beginnings / "enrolled" / "identity", box.var("identity"))
        server.serve()
        return box

    return start
