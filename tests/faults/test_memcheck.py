"""The programs under valgrind: nothing read or written outside a block, no decision on a value that was never
set, no block lost, and no descriptor open at the end but those that the caller gave."""

import dataclasses
import re
import signal

import pytest

from sandbox import BIN_DIR, is_sanitized
from servers import raw_answer

pytestmark = [pytest.mark.row("V1"), pytest.mark.full]

ERRORS_FOUND = 97  # no program of ours ends with it
VALGRIND = [
    "valgrind",
    "--quiet",
    f"--error-exitcode={ERRORS_FOUND}",
    "--leak-check=full",
    "--show-leak-kinds=definite,indirect",
    "--errors-for-leak-kinds=definite,indirect",
    "--track-fds=yes",
    "--suppressions=/faults/valgrind.supp",
    "--log-file=/shared/output/valgrind.%p",
]
# What the caller gave, and the debug log: it takes the process's last words, so nobody closes it earlier.
OPEN_ON_PURPOSE = re.compile(
    r"<inherited from parent>|^Open file descriptor \d+: /usr/torqv/torquenix/logs/admin/"
)


@pytest.fixture(autouse=True)
def not_sanitized(build):
    """A sanitized program brings a memory checker of its own, and two do not fit into one process."""
    if is_sanitized(build):
        pytest.exit("valgrind takes a build without sanitizers: --build build/release")


def with_valgrind(box):
    box.extra_arguments += ["--ro-bind", "/usr/libexec", "/usr/libexec"]


def findings(box):
    """What valgrind wrote, descriptors that the caller gave left out."""
    found = []
    for file in sorted((box.shared / "output").glob("valgrind.*")):
        text = re.sub(r"^==\d+== ?(FILE DESCRIPTORS.*\n)?", "", file.read_text(errors="replace"), flags=re.M)
        blocks = [block.strip() for block in re.split(r"\n\s*\n", text)]
        found += [block for block in blocks if block and not OPEN_ON_PURPOSE.search(block)]
        file.unlink()
    return found


def checked(box, program, *arguments, **options):
    """One run under valgrind, its status; fails on anything that valgrind found."""
    result = box.run([*VALGRIND, f"{BIN_DIR}/{program}", *arguments], **options)
    assert findings(box) == []
    assert result.status != ERRORS_FOUND
    return result.status


@dataclasses.dataclass(frozen=True)
class Local:
    """A run that asks no server."""

    arguments: list
    status: int = 0
    image: str = "debian12"
    config: tuple = ()


LOCAL = {
    "describes a plain host": Local(["-localinfo"]),
    "describes a host with packages and hotfixes": Local(["-localinfo"], image="rhel9"),
    "describes a guest seen by its firmware": Local(["-localinfo"], image="rhel9-vmware-efi"),
    "describes a machine of metal": Local(["-localinfo"], image="rhel7-physical"),
    "describes a guest of a cloud": Local(["-localinfo"], image="aws"),
    "describes a host without tools": Local(["-localinfo"], image="no-tools"),
    "describes an active cluster node": Local(["-localinfo"], image="cluster-active"),
    "describes a host with a release file full of remarks": Local(["-localinfo"], image="sles12-remarks"),
    "refuses an unknown option": Local(["-bogus"], 20),
    "is asked for nothing": Local([]),
    "misses a value": Local(["-read", "-hostname"]),
    "finds a damaged configuration": Local(
        ["-localinfo"], 111, config=("no equals sign", "= nothing", "SERVER = ../x")
    ),
}


@pytest.mark.parametrize("case", LOCAL.values(), ids=LOCAL.keys())
def test_a_local_run(sandbox_of, case):
    box = sandbox_of(case.image, before_start=with_valgrind)
    box.give_identifier()
    if case.config:
        box.write_config(*case.config)
    assert checked(box, "tqhostdbcmd", *case.arguments) == case.status


@pytest.fixture
def box(sandbox_of):
    return sandbox_of(before_start=with_valgrind)


def test_the_checker_sees_a_block_that_is_lost(enrolled):
    """A control: without the list of what is deliberate, the converter's own lost block is found."""
    enrolled.command("-update")
    argv = [word for word in VALGRIND if not word.startswith("--suppressions")]
    result = enrolled.run([*argv, f"{BIN_DIR}/tqhostdbcmd", "-read"])
    assert result.status == ERRORS_FOUND
    assert any("JSONConverter" in block for block in findings(enrolled))


def test_first_unchanged_and_forced_update(enrolled):
    for arguments in (["-update"], ["-update"], ["-update", "-force"], ["-update", "-daemon"]):
        assert checked(enrolled, "tqhostdbcmd", *arguments) == 0


OPERATIONS = [
    ["-read", "-display"],
    ["-read", "-hostname", "no-such-host", "-display"],
    ["-readallhosts", "-display"],
    ["-reloadconfig", "-host"],
    ["-reloadconfig", "-security"],
    ["-delete"],
]


def test_every_operation_on_a_stored_record(enrolled):
    enrolled.command("-update")
    statuses = [checked(enrolled, "tqhostdbcmd", *arguments) for arguments in OPERATIONS]
    assert statuses == [0, 114, 0, 0, 0, 0]


# What a server answers, and how a read of all hosts ends then.
ANSWERS = {
    "no JSON": ({"status": 200, "body": "<html>"}, 0),
    "deep nesting": ({"status": 200, "body": "[" * 5000 + "]" * 5000}, 0),
    "hosts of wrong types": ({"status": 200, "body": '{"hosts":[7,{"uuid":7,"clusterSharedNames":{}}]}'}, 0),
    "a failure": ({"status": 500, "body": '{"errorCode":7500,"errMessage":"no"}'}, None),
    "not HTTP": (raw_answer(b"SSH-2.0-x\r\n"), None),
    "cut off": (raw_answer(b"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{"), None),
    "a reset": ({"behaviour": "reset"}, None),
}


@pytest.mark.parametrize("answer, status", ANSWERS.values(), ids=ANSWERS.keys())
def test_a_bad_answer(enrolled, scripted, answer, status):
    scripted({"method": "GET", "answer": answer})
    ended = checked(enrolled, "tqhostdbcmd", "-readallhosts", "-display")
    assert ended == status or (status is None and ended > 0)


def test_a_token_that_is_refused_once(enrolled, scripted):
    scripted({"method": "PUT", "times": 1, "answer": {"status": 401, "body": "{}"}})
    assert checked(enrolled, "tqhostdbcmd", "-update") == 0


def test_a_server_that_is_gone(enrolled, master):
    master.stop()
    assert checked(enrolled, "tqhostdbcmd", "-read") == 25


def test_an_update_that_fails_five_times(enrolled, scripted):
    scripted({"method": "PUT", "answer": {"status": 503, "body": "{}"}})
    assert checked(enrolled, "tqhostdbcmd", "-update", timeout=300) != 0
    assert enrolled.status_file().exists()


DAMAGED = {
    "cache": lambda box: box.cache_file().write_text("{"),
    "token": lambda box: next(box.var("identity").glob("token.*")).write_text("{"),
    "status file": lambda box: box.status_file().write_bytes(b"\0" * 100),
}


@pytest.mark.parametrize("damage", DAMAGED.values(), ids=DAMAGED.keys())
def test_a_damaged_state_file(enrolled, damage):
    assert enrolled.command("-update").status == 0
    damage(enrolled)
    assert checked(enrolled, "tqhostdbcmd", "-update") == 0


def test_a_damaged_identity_store(enrolled):
    (enrolled.var("identity") / "identity.json").write_text('{"version": 1, "identities": [{}]}')
    assert checked(enrolled, "tqhostdbcmd", "-update") != 0


def test_enrolment_list_and_removal(box, master):
    invitation = master.invite(box.host_name)
    given = ["--server", master.name, "--invitation", invitation.text, "--fingerprint"]
    assert checked(box, "tqenroll", *given, "0" * 64) != 0
    assert checked(box, "tqenroll", *given, invitation.fingerprint) == 0
    assert checked(box, "tqenroll", *given, invitation.fingerprint) != 0
    assert checked(box, "tqenroll", "--list") == 0
    assert checked(box, "tqenroll", "--remove", "--server", master.name) == 0


def test_the_master_servers_commands(box):
    data = ["--data", "/shared/data"]
    assert checked(box, "tqmasterd", "init", *data, "--name", "master1.example") == 0
    assert checked(box, "tqmasterd", "init", *data, "--name", "master1.example") != 0
    assert checked(box, "tqmasterd", "invite", *data, "--host", box.host_name) == 0
    assert checked(box, "tqmasterd", "revoke", *data, "--host", box.host_name) == 0
    assert checked(box, "tqmasterd", "bogus") == 2


def test_a_serving_master_server(enrolled, master):
    master.stop()
    argv = [*VALGRIND, f"{BIN_DIR}/tqmasterd", "serve", "--data", master.data, "--listen", master.address]
    server = enrolled.start_process(argv)
    assert enrolled.wait_until_listening(master.address)
    for arguments in (["-update"], ["-read", "-display"], ["-readallhosts"], ["-delete"], ["-read"]):
        enrolled.command(*arguments)
    server.signal(signal.SIGTERM)
    assert server.wait(60).status == 0
    assert findings(enrolled) == []
