"""What all Python tests share: which build they test, a sandbox with a host and its master server, and what a
failed test leaves to look at."""

import functools
import pathlib
import shutil
import time

import pytest

from sandbox import Sandbox, is_sanitized
from servers import Master, ScriptedServer

TOP = pathlib.Path(__file__).resolve().parent.parent


def pytest_addoption(parser):
    parser.addoption(
        "--build",
        action="append",
        metavar="FOLDER",
        help="build folder whose programs are tested (default: build/asan). With several, end-to-end tests "
        "take the sanitized ones, faults, bench and packaging the others, and what is marked `shipped` takes "
        "all",
    )
    parser.addoption(
        "--faults",
        choices=("quick", "full"),
        default="quick",
        help="how much of tests/faults runs: the share of every test run, or everything",
    )
    parser.addoption(
        "--fault-table", metavar="FILE", help="where the table of the faults' results is written"
    )


def pytest_generate_tests(metafunc):
    if "build" in metafunc.fixturenames:
        paths = build_paths(tuple(metafunc.config.getoption("--build") or ["build/asan"]))
        names = [path.name for path in paths]
        metafunc.parametrize("build", paths, ids=names, indirect=True, scope="session")


@pytest.fixture(scope="session")
def build(request):
    """The build folder. A fixture, since pytest numbers plain parameters anew for each case of a test, would
    sort all tests by these numbers, and so set up what a module shares again and again."""
    return request.param


@functools.lru_cache
def build_paths(folders):
    """The same objects every time: pytest makes a wide fixture anew when its parameter is another object."""
    return [TOP / folder for folder in folders]


def pytest_configure(config):
    config.addinivalue_line("markers", "shipped: on every build, where others are satisfied with one kind")


def pytest_collection_modifyitems(config, items):
    if len(config.getoption("--build") or []) < 2:
        return
    left_out = [item for item in items if is_satisfied_elsewhere(item)]
    items[:] = [item for item in items if item not in set(left_out)]
    config.hook.pytest_deselected(items=left_out)


def is_satisfied_elsewhere(item):
    """Whether another of several builds tells as much: sanitizers see more of a plain road and are in the way
    of most faults, whose tracers and limits they do not bear, and of all figures."""
    build = getattr(item, "callspec", None) and item.callspec.params.get("build")
    if build is None or item.get_closest_marker("shipped"):
        return False
    return is_sanitized(build) == bool({"faults", "bench", "packaging"} & set(item.path.parts))


@pytest.hookimpl(hookwrapper=True, tryfirst=True)
def pytest_runtest_makereport(item, call):
    outcome = yield
    report = outcome.get_result()
    setattr(item, f"report_{report.when}", report)
    box = getattr(item, "sandbox", None)
    if report.when == "call" and report.failed and box is not None:
        report.sections.append(("sandbox, kept", str(box.work)))
        for file in filter(pathlib.Path.is_file, box.log_files()):  # a test may have put a folder there
            report.sections.append((f"debug log {file.name}", file.read_text(errors="replace")[-20000:]))
        for file in sorted((box.shared / "output").glob("*.err")):
            if file.stat().st_size:
                report.sections.append((f"errors of {file.name}", file.read_text(errors="replace")[-4000:]))


@pytest.fixture
def sandbox_of(build, tmp_path, request):
    """Makes the test's sandbox from a host image. What it leaves running or reports from a sanitizer fails
    the test; its files are kept when the test failed."""
    made = []

    def make(image="debian12", before_start=lambda box: None):
        box = Sandbox(build, tmp_path / "sandbox", image)
        made.append(box)
        request.node.sandbox = box
        before_start(box)
        box.start()
        return box

    yield make
    for box in made:
        check_end(box)
        report = getattr(request.node, "report_call", None)
        if report is not None and report.passed:
            shutil.rmtree(box.work)


def check_end(box):
    """Ends the servers and the sandbox and looks at what they leave."""
    for master in box.masters.values():
        if master.process is not None:
            assert master.stop().status == 0, f"{master.name} did not end cleanly"
    left = box.running()
    deadline = time.monotonic() + 5
    while left and time.monotonic() < deadline:  # what was killed a moment ago takes its time to go
        time.sleep(0.05)
        left = box.running()
    box.stop()
    assert left == [], "processes left running"
    assert box.sanitizer_reports() == []


@pytest.fixture(scope="module")
def shared_master(build, tmp_path_factory, request):
    """A serving master server for all cases of a module that leave it as it was."""
    box = Sandbox(build, tmp_path_factory.mktemp("shared") / "sandbox")
    box.start()
    yield box.master().serve()
    check_end(box)
    if request.session.testsfailed == 0:
        shutil.rmtree(box.work)


@pytest.fixture
def box(sandbox_of):
    """A host that belongs to no master server yet."""
    return sandbox_of()


@pytest.fixture
def identified(sandbox_of):
    """Starts an image as a host that has an identifier: enough to describe it, no server is asked."""

    def start(image, **options):
        box = sandbox_of(image, **options)
        box.give_identifier()
        return box

    return start


@pytest.fixture(scope="session")
def beginnings(build, tmp_path_factory):
    """A master server's data and a host's identity, made once by the real programs: they are the beginning of
    most tests, and making keys anew for each would only take time."""
    folder = tmp_path_factory.mktemp("beginnings")
    with Sandbox(build, folder / "sandbox") as box:
        master = box.master()
        shutil.copytree(master.data_outside, folder / "new" / "master")
        result = box.enrol(master.serve())
        assert result.status == 0, result.err
        assert master.stop().status == 0
        shutil.copytree(master.data_outside, folder / "enrolled" / "master")
        shutil.copytree(box.var("identity"), folder / "enrolled" / "identity")
        assert box.sanitizer_reports() == []
    return folder


@pytest.fixture
def master(box, beginnings, request):
    """The host's master server, serving."""
    beginning = "enrolled" if "enrolled" in request.fixturenames else "new"
    master = Master(box, "master1.example")
    shutil.copytree(beginnings / beginning / "master", master.data_outside)
    box.masters[master.name] = master
    return master.serve()


@pytest.fixture
def enrolled(box, master, beginnings):
    """The host with an identity towards its serving master server."""
    assert master.process is not None
    shutil.copytree(beginnings / "enrolled" / "identity", box.var("identity"))
    return box


@pytest.fixture
def scripted(enrolled, master):
    """Replaces the master server by one that answers as a script says: scripted([rule, ...])."""
    servers = []

    def start(*rules, at=None):
        place: Master = at or master
        if place.process is not None:
            place.stop()
        server = ScriptedServer(enrolled, place, list(rules))
        servers.append(server.__enter__())
        return server

    yield start
    for server in servers:
        server.__exit__()
