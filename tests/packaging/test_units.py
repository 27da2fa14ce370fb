"""The units: what systemd says of them, when they run, and that their sandbox keeps nothing from the probes.

systemd itself runs them in fresh_roots.py. Here their rules are read from the unit and applied by
under_rules.py, so that every host image can be described with and without them.
"""

import json
import os
import pathlib
import re
import subprocess

import pytest

from sandbox import BIN_DIR, IMAGES
from unit_file import Rules, UnitFile

HERE = pathlib.Path(__file__).resolve().parent
HOSTS = sorted(folder.name for folder in IMAGES.iterdir() if (folder / "expected.json").exists())
COMMAND = f"{BIN_DIR}/tqhostdbcmd"
PROBING = ("tqhostdb-update.service", "tqhostdb-refresh.service")

# Tenths of what `systemd-analyze security` calls the exposure. A service that may hide nothing keeps half.
MOST_EXPOSED = {
    "tqhostdb-update.service": 50,
    "tqhostdb-refresh.service": 50,
    "tqhostdb-renew.service": 17,
    "tqmasterd.service": 12,
}


@pytest.fixture
def unit(unpacked):
    return lambda name: UnitFile(unpacked / "usr/lib/systemd/system" / name)


@pytest.fixture
def analyze(unpacked):
    """Runs systemd-analyze where the packages' files lie in their places."""

    def run(*arguments):
        argv = ["bwrap", "--die-with-parent", "--unshare-net", "--ro-bind", "/", "/", "--tmpfs", "/usr"]
        for entry in pathlib.Path("/usr").iterdir():
            if entry.is_symlink():
                argv += ["--symlink", os.readlink(entry), str(entry)]
            elif entry.name != "torqv":
                argv += ["--ro-bind", str(entry), str(entry)]
        argv += ["--ro-bind", str(unpacked / "usr/torqv"), "/usr/torqv", "--tmpfs", "/run", "--tmpfs", "/tmp"]
        argv += ["--ro-bind", str(unpacked / "usr/lib/systemd/system"), "/run/units"]
        argv += ["--dev", "/dev", "--proc", "/proc", "--chdir", "/run/units"]
        argv += ["systemd-analyze", "--no-pager", *arguments]
        done = subprocess.run(argv, capture_output=True, text=True, check=False)
        return done.returncode, done.stdout + done.stderr

    return run


# What systemd says of them


def test_verify_is_clean(analyze, unpacked):
    names = sorted(file.name for file in (unpacked / "usr/lib/systemd/system").iterdir())
    assert len(names) == 6
    # Whether the manual pages are there is looked at below: not every machine has a program to read them.
    assert analyze("verify", "--man=no", *names) == (0, "")


@pytest.mark.parametrize("name", MOST_EXPOSED)
def test_exposure_does_not_grow(analyze, name):
    status, text = analyze("security", "--offline=true", f"--threshold={MOST_EXPOSED[name]}", name)
    assert status == 0, text


def test_documentation_is_in_the_packages(unpacked):
    for file in (unpacked / "usr/lib/systemd/system").iterdir():
        for word in UnitFile(file).words("Unit", "Documentation"):
            name, section = re.fullmatch(r"man:(.*)\((\d)\)", word).groups()
            assert (unpacked / f"usr/share/man/man{section}/{name}.{section}.gz").exists(), word


# When they run


def test_update_runs_every_hour_and_soon_after_boot_at_times_that_spare_the_servers(unit):
    timer = unit("tqhostdb-update.timer")
    assert timer.value("Timer", "OnCalendar") == "hourly"
    assert timer.value("Timer", "OnBootSec") == "1min"
    assert timer.value("Timer", "RandomizedDelaySec") == "30min"
    assert timer.value("Timer", "Persistent") == "true"


def test_forced_update_and_renewal_run_every_week(unit):
    timer = unit("tqhostdb-refresh.timer")
    assert (timer.value("Timer", "OnCalendar"), timer.value("Timer", "Persistent")) == ("weekly", "true")
    service = unit("tqhostdb-refresh.service")
    assert service.value("Service", "ExecStart") == f"{COMMAND} -update -daemon -force"
    assert "tqhostdb-renew.service" in service.words("Unit", "Wants")
    # It waits for the hourly run, whose daemon lock would turn it away.
    assert {"tqhostdb-renew.service", "tqhostdb-update.service"} <= set(service.words("Unit", "After"))
    renewal = unit("tqhostdb-renew.service").value("Service", "ExecStart")
    assert renewal == f"{BIN_DIR}/tqenroll --renew --if-needed"


@pytest.mark.parametrize("name", PROBING)
def test_update_has_all_the_time_that_slow_servers_take(unit, name):
    assert unit(name).value("Service", "TimeoutStartSec") == "infinity"


@pytest.mark.parametrize("name", PROBING)
def test_run_that_met_its_memory_limit_sends_nothing(unit, name):
    # Else a record would go out without the answer of the tool that was killed.
    service = unit(name)
    assert service.value("Service", "OOMPolicy") == "kill"
    assert service.values("Service", "MemoryMax") and service.values("Service", "CPUQuota")


# Their sandbox


@pytest.fixture
def under_unit(unit):
    """Runs a program of a sandbox under the rules of a unit."""

    def run(box, name, *argv, **options):
        rules = json.dumps(Rules(unit(name)).as_json())
        applied = ["/usr/bin/python3", "-I", "/packaging/under_rules.py", rules]
        return box.run(["unshare", "--mount", *applied, *argv], **options)

    return run


def with_packaging(box):
    # Rights within the sandbox, whoever runs the test: the rules are mounts, and limits of just these rights.
    box.extra_arguments += ["--ro-bind", str(HERE), "/packaging", "--cap-add", "ALL"]


@pytest.mark.parametrize("image", HOSTS)
def test_record_under_the_units_rules_is_the_record_by_hand(sandbox_of, under_unit, image):
    box = sandbox_of(image, with_packaging)
    box.give_identifier()
    by_hand = box.command("-localinfo")
    tools_by_hand, errors_by_hand = box.stubs_run(), box.log_texts(16)
    (box.shared / "output" / "tools").unlink(missing_ok=True)
    box.forget_log()

    ruled = under_unit(box, "tqhostdb-update.service", COMMAND, "-localinfo")
    assert (ruled.status, ruled.out, ruled.err) == (0, by_hand.out, "")
    assert (box.stubs_run(), box.log_texts(16)) == (tools_by_hand, errors_by_hand)
    assert json.loads(ruled.out) == box.expected_record()


@pytest.mark.parametrize("name", PROBING)
def test_update_under_the_units_rules_sends_the_record_by_hand(sandbox_of, under_unit, unit, name):
    box = sandbox_of("cluster-active", with_packaging)
    master = box.master().serve()
    assert box.enrol(master).status == 0
    assert box.enrol(master, cluster=True, host="tqmaster.example").status == 0
    command = unit(name).value("Service", "ExecStart").split()
    for _turn in range(2):  # the second finds its own cache, locks and log
        result = under_unit(box, name, *command)
        assert (result.status, result.err) == (0, "")
    assert not box.status_file().exists()
    assert box.cache_file().exists()
    read = json.loads(box.command("-read", "-hostname", box.host_name, "-display").out)
    assert read == box.expected_record(box.identities()[0]["hostId"])


PROBE = """
import ctypes, json, os, socket, time

def outcome(work):
    try:
        work()
    except OSError as fault:
        return fault.strerror
    return "done"

def write(path):
    return lambda: open(path, "w").close()

libc = ctypes.CDLL(None, use_errno=True)

def call(name, *arguments):
    def work():
        if getattr(libc, name)(*arguments) != 0:
            number = ctypes.get_errno()
            raise OSError(number, os.strerror(number))
    return work

status = dict(line.split()[:2] for line in open("/proc/self/status") if len(line.split()) > 1)
open("/usr/torqv/var/of-the-probe", "w").close()
print(json.dumps({
    "write in /etc": outcome(write("/etc/x")),
    "write in the product's folder": outcome(write("/usr/torqv/torquenix/x")),
    "write beside the module": outcome(write("/usr/torqv/torquenix/lib/x")),
    "write the configuration": outcome(write("/usr/torqv/torquenix/kx.conf")),
    "write a setting of the kernel": outcome(write("/proc/sys/kernel/domainname")),
    "packet socket": outcome(lambda: socket.socket(socket.AF_PACKET, socket.SOCK_RAW)),
    "netlink socket": outcome(lambda: socket.socket(socket.AF_NETLINK, socket.SOCK_RAW)),
    "own namespace": outcome(call("unshare", 0x04000000)),
    "set-user-id mode": outcome(lambda: os.chmod("/usr/torqv/var/of-the-probe", 0o4755)),
    "host name": outcome(call("sethostname", b"x", 1)),
    # No such clock: a call that were let through would fail in another way.
    "clock": outcome(lambda: time.clock_settime(99, 0)),
    "real time": outcome(lambda: os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(1))),
    "capabilities": status["CapBnd:"],
    "no new privileges": status["NoNewPrivs:"],
}))
"""


def test_rules_that_are_applied_here_bite(sandbox_of, under_unit):
    """Else the tests above would compare a record by hand with another one."""
    box = sandbox_of("debian12", with_packaging)
    result = under_unit(box, "tqhostdb-update.service", "/usr/bin/python3", "-I", "-c", PROBE)
    assert (result.status, result.err) == (0, "")
    found = json.loads(result.out)
    capabilities = int(found.pop("capabilities"), 16)
    cap_sys_module, cap_sys_time, cap_dac_read_search = 16, 25, 2
    assert not capabilities & (1 << cap_sys_module | 1 << cap_sys_time)
    assert capabilities & 1 << cap_dac_read_search
    read_only, forbidden = "Read-only file system", "Operation not permitted"
    assert found == {
        "write in /etc": read_only,
        "write in the product's folder": "done",
        "write beside the module": read_only,
        "write the configuration": read_only,
        "write a setting of the kernel": read_only,
        "packet socket": "Address family not supported by protocol",
        "netlink socket": "done",
        "own namespace": forbidden,
        "set-user-id mode": forbidden,
        "host name": forbidden,
        "clock": forbidden,
        "real time": forbidden,
        "no new privileges": "1",
    }


@pytest.mark.parametrize(
    "line", ["ProcSubset=pid", "ProtectProc=invisible", "PrivateTmp=yes", "PrivateNetwork=yes"]
)
def test_rule_that_hides_something_is_not_taken_unseen(unit, tmp_path, line):
    text = unit("tqhostdb-update.service").path.read_text()
    changed = tmp_path / "changed.service"
    changed.write_text(text.replace("NoNewPrivileges=yes", f"NoNewPrivileges=yes\n{line}"))
    with pytest.raises(AssertionError, match=line.split("=", maxsplit=1)[0]):
        Rules(UnitFile(changed))
