"""The packages of the build under test, made once for all workers, and their files unpacked."""

import fcntl
import subprocess

import pytest

from packages import Packages
from sandbox import is_sanitized


def made_once(folder, make):
    """Calls make(folder) in the first worker that comes here; the others wait for it."""
    folder.parent.mkdir(parents=True, exist_ok=True)
    with open(folder.with_suffix(".lock"), "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not folder.exists():
            unfinished = folder.with_suffix(".unfinished")
            make(unfinished)
            unfinished.rename(folder)
    return folder


@pytest.fixture(scope="session")
def of_all_workers(tmp_path_factory, worker_id):
    """A folder of this test run that its workers share."""
    own = tmp_path_factory.getbasetemp()
    return (own if worker_id == "master" else own.parent) / "packaging"


@pytest.fixture(scope="session")
def packages(build, of_all_workers):
    """What cpack makes of the build."""
    assert not is_sanitized(build), "packages are made of what is shipped: --build build/release"

    def make(folder):
        argv = ["cpack", "--config", build / "CPackConfig.cmake", "-B", folder]
        done = subprocess.run(argv, capture_output=True, text=True, check=False)
        assert done.returncode == 0, done.stdout + done.stderr
        assert "warning" not in (done.stdout + done.stderr).lower(), done.stdout + done.stderr

    return Packages(made_once(of_all_workers / f"packages-{build.name}", make))


@pytest.fixture(scope="session")
def unpacked(packages, of_all_workers):
    """The files of both Debian packages, as they lie after their installation."""

    def make(folder):
        for component in ("client", "master"):
            packages.deb(component).unpack(folder)

    return made_once(of_all_workers / f"unpacked-{packages.folder.name}", make)
