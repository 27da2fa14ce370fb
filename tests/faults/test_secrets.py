"""Tokens, keys and invitations stand nowhere but in the identity store, not even in a core file."""

import json
import signal
import time

import pytest

from local_info import cases
from sandbox import BIN_DIR
from servers import ScriptedServer

COMMAND = f"{BIN_DIR}/tqhostdbcmd"
WITHOUT_RIGHTS = ["setpriv", "--bounding-set=-all", "--inh-caps=-all"]
PLANTED = "PLANTEDTOKEN0123456789abcdefghijklmnopqrstuvwxyz"
RENEWED = "RENEWEDTOKEN0123456789abcdefghijklmnopqrstuvwxyz"


def plant_token(box, text):
    """A token that has not expired, as an earlier run would have left it."""
    token = box.var("identity") / "token.host.master1.example"
    token.write_text(json.dumps({"token": text, "expiresAt": int(time.time()) + 3600}))
    token.chmod(0o600)


def key_lines(box):
    """The lines that hold a private key's bytes."""
    (key,) = box.var("identity").glob("*.key")
    return [line for line in key.read_text().splitlines() if not line.startswith("-----")]


def write_down_surroundings(box):
    """Makes tools of every way write down their environment, the arguments of every process, and the
    temporary files that there are now."""
    body = (
        "cat /proc/[0-9]*/environ >>/shared/output/environments 2>/dev/null\n"
        "cat /proc/[0-9]*/cmdline >>/shared/output/arguments 2>/dev/null\n"
        "tail -n +1 /usr/torqv/torquenix/SystemCmd* >>/shared/output/temporaries 2>/dev/null\n"
    )
    for tool in ("dmidecode", "uname", "lspci"):
        sound = (box.local_sbin / tool).read_text().split("\n", 1)[1]
        box.put_tool(box.local_sbin, tool, body + sound)


def places(box, *results):
    """Everything that anybody but the command itself may see, by name."""
    found = {f"output {number}": (run.out + run.err).encode() for number, run in enumerate(results)}
    for folder in (box.torqv, box.shared):
        for file in folder.rglob("*"):
            if file.is_file() and not {"identity", "bin", "master1.example"} & set(file.parts):
                if ".requests" not in file.name and ".script" not in file.name:  # what the server was told
                    found[str(file.relative_to(box.work))] = file.read_bytes()
    return found


def hits(texts, secrets):
    return [place for place, content in texts.items() for secret in secrets if secret.encode() in content]


# Every way of handling a token: it is taken, refused and renewed, and refused for good.
RULES = {
    "token-taken": [],
    "token-renewed": [{"method": "PUT", "times": 1, "answer": {"status": 401, "body": "{}"}}],
    "token-refused": [{"method": "PUT", "answer": {"status": 401, "body": '{"errMessage": "no"}'}}],
    "renewal-fails": [
        {"path": "tokens$", "answer": {"status": 500, "body": "down"}},
        {"method": "PUT", "answer": {"status": 401, "body": "{}"}},
    ],
    "reply-is-no-token": [
        {"path": "tokens$", "answer": {"status": 201, "body": f'{{"token": "{RENEWED}", "expiresIn": "x"}}'}},
        {"method": "PUT", "answer": {"status": 401, "body": "{}"}},
    ],
}


@pytest.mark.row("D8")
@pytest.mark.parametrize("rules", cases(RULES, quick=("token-renewed",)))
def test_no_secret_of_an_update_leaves_the_identity_store(enrolled, scripted, rules):
    token = json.dumps({"token": RENEWED, "expiresIn": 3600})
    scripted(*rules, {"path": "tokens$", "answer": {"status": 201, "body": token}})
    plant_token(enrolled, PLANTED)
    write_down_surroundings(enrolled)
    enrolled.add_config("DEBUG_LOG_LEVEL = 0")
    update = enrolled.update_without_waiting("-force")
    read = enrolled.command("-read", "-display")
    seen = places(enrolled, update, read)
    assert hits(seen, [PLANTED, RENEWED, *key_lines(enrolled)]) == []
    # The search finds what is there.
    assert COMMAND.encode() in seen["shared/output/arguments"]
    assert b"PATH=/usr/local/sbin" in seen["shared/output/environments"]
    assert b"/usr/torqv/torquenix/SystemCmd" in seen["shared/output/temporaries"]
    (enrolled.shared / "output" / "planted").write_text(f"x{PLANTED}x")
    assert hits(places(enrolled), [PLANTED]) == ["shared/output/planted"]


@pytest.mark.row("D8")
def test_an_invitation_stands_in_no_file_and_in_no_output(box, master):
    good = master.invite(box.host_name)
    refused = box.enrol(master, good.text, "00" * 32)
    taken = box.enrol(master, good.text, good.fingerprint)
    spent = box.enrol(master, good.text, good.fingerprint)
    assert (refused.status == 0, taken.status, spent.status == 0) == (False, 0, False)
    # The one who makes it prints it; the server's own data hold a digest of it.
    shown = places(box, refused, taken, spent)
    shown = {place: text for place, text in shown.items() if "tqmasterd" not in place}
    shown |= {str(file): file.read_bytes() for file in master.data_outside.rglob("*") if file.is_file()}
    assert hits(shown, [good.text, *key_lines(box)]) == []


@pytest.mark.row("D8")
def test_an_invitation_is_blotted_out_in_the_arguments_of_the_process(box, master):
    """Whoever lists processes while the server is asked sees that there was one, and no more."""
    good = master.invite(box.host_name)
    master.stop()
    silence = {"path": "enrollments$", "answer": {"behaviour": "silence"}}
    with ScriptedServer(box, master, [silence]) as server:
        words = ["--server", master.name, "--invitation", good.text, "--fingerprint", good.fingerprint]
        run = box.start_process([f"{BIN_DIR}/tqenroll", *words])
        wait_for(server.seen)
        arguments = box.processes()[run.pid]
        run.signal(signal.SIGTERM)
        ended = run.wait(20)
    assert arguments.split() == [f"{BIN_DIR}/tqenroll", *words[:3], "x" * len(good.text), *words[4:]]
    assert hits({"output": (ended.out + ended.err).encode()}, [good.text]) == []


def wait_for(condition):
    deadline = time.monotonic() + 20
    while not condition():
        assert time.monotonic() < deadline, "it never came"
        time.sleep(0.01)


@pytest.fixture
def updating(enrolled, scripted):
    """A run that holds a token while it waits for its server, and may not do more than its user:
    updating(...) takes what stands before the command."""
    server = scripted({"method": "PUT", "answer": {"behaviour": "silence"}})
    plant_token(enrolled, PLANTED)

    def start(*before):
        run = enrolled.start_process([*before, COMMAND, "-update", "-force"])
        wait_for(server.seen)
        return run

    return start


@pytest.mark.row("D8")
def test_nobody_without_rights_looks_into_a_process_that_holds_a_token(enrolled, updating):
    """The mark that says so also keeps the kernel from leaving a core file, wherever those go."""
    look = ["sh", "-c", "cat /proc/$0/environ"]
    run = updating(*WITHOUT_RIGHTS)
    assert "Permission denied" in enrolled.run([*look, str(run.pid)], capabilities=False).err
    run.signal(signal.SIGTERM)
    run.wait(20)
    plain = enrolled.start_process([*WITHOUT_RIGHTS, "sleep", "600"])
    assert enrolled.run([*look, str(plain.pid)], capabilities=False).err == ""
    plain.stop()


@pytest.mark.row("D8")
@pytest.mark.core_files
def test_a_crash_leaves_no_core_file_with_a_token(enrolled, updating):
    run = updating("prlimit", "--core=unlimited")
    run.signal(signal.SIGABRT)
    run.wait(20)
    find = ["find", "/", "-xdev", "-name", "core*", "-type", "f", "-newer", "/shared/lsan.supp"]
    assert enrolled.run(find).out == ""
    # A program that has not asked for it does leave one there.
    enrolled.run(["prlimit", "--core=unlimited", "sh", "-c", f"planted={PLANTED}; kill -ABRT $$"])
    (core,) = enrolled.run(find).out.split()
    assert enrolled.run(["grep", "-c", "--binary-files=text", PLANTED, core]).status == 0
