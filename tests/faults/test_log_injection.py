"""Texts that would forge an entry of the debug log, through every field that reaches it."""

import dataclasses
import json
import re

import pytest

from contract import Contract
from local_info import cases
from servers import ScriptedServer

FORGED = "2026-01-01 00:00:00.000 [1] <2> forger: all is well"
# Line ends of every kind before it, and what terminals obey behind it.
POISON = "".join(f"{end}{FORGED}" for end in ("\r", "\r\r", "\x0b", "\x0c", "\x85", "\u2028", "\u2029"))
POISON += "\x1b[2J\x1b]0;title\x07\x08\x7f\x9b31m\u202e\u2066\ufeff"
ON_ONE_LINE = f"{FORGED}\x1b[2J\x85{FORGED}\u2028{FORGED}"  # where a carriage return ends the value
MANY_LINES = f"{POISON}\n{FORGED}\n\t{FORGED}\n\n{FORGED}"
RAW_CONTROL = re.compile(rb"[\x00-\x08\x0b-\x1f\x7f]")
DISGUISES = re.compile("[\x80-\x9f\u2028-\u202e\u2066-\u2069]")


def put(folder, name, text):
    """Makes a tool print a text."""

    def change(box):
        file = box.shared / f"text-of-{name.rsplit('/', 1)[-1]}"
        file.write_bytes(text.encode(errors="surrogateescape"))
        box.put_tool(getattr(box, folder), name, f"cat /shared/{file.name}")

    return change


def write(path, text):
    """Writes a file of the sandbox, `path` as seen from its work folder."""

    def change(box):
        file = box.work / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(text.encode(errors="surrogateescape"))

    return change


def configure(*lines):
    return lambda box: box.add_config(*lines)


def change_identity(**fields):
    return lambda box: box.change_identity(0, **fields)


@dataclasses.dataclass(frozen=True)
class Field:
    """A field that reaches the log: how its text is planted, and the run that logs it."""

    plant: object
    arguments: tuple = ("-localinfo",)
    image: str = "rhel7-physical"


NOTHING = ()
SERVER_LINE = "SERVER = master1.example"
FIELDS = {
    "option": Field(NOTHING, ("-read", f"-{MANY_LINES}")),
    "value": Field(NOTHING, ("-read", "-hostname", MANY_LINES)),
    "word": Field(NOTHING, (MANY_LINES, "-localinfo")),
    "server": Field(configure(f"SERVER = {POISON}")),
    "client-name": Field(lambda box: box.write_config(SERVER_LINE, f"CLIENT_NAME = {ON_ONE_LINE}")),
    "cluster-name": Field(configure(f"CLUSTER_NAME = {ON_ONE_LINE}")),
    "machine-type": Field(configure(f"MACHINE_TQU_TYPE = {POISON}")),
    "version-file": Field(write("torqv/torquenix/bin/version", f"Torquenix-Linux 9.1{POISON}\n")),
    "pack-summary": Field(write("torqv/pack/pack.summary", f"HFX_Torquenix_9.1_PET1_SET1{MANY_LINES}\n")),
    "release-file": Field(write("etc/redhat-release", f"a release {POISON}\n")),
    "os-release": Field(
        write("etc/os-release", f'PRETTY_NAME="{POISON}"\nVERSION_ID="{POISON}"\n'), image="debian12"
    ),
    "rpm": Field(put("local_sbin", "rpm", f"XRVN-{POISON}-1\n{MANY_LINES}\n")),
    "hxclus": Field(put("opt", "XRVNhxm/bin/hxclus", MANY_LINES), image="cluster-active"),
    "hxsys": Field(put("opt", "XRVNhxm/bin/hxsys", MANY_LINES), image="cluster-active"),
    "hxres": Field(put("opt", "XRVNhxm/bin/hxres", MANY_LINES), image="cluster-active"),
    "hostname": Field(put("local_sbin", "hostname", f"a.{POISON}\n"), image="cluster-active"),
    "host-identifier": Field(change_identity(hostId=POISON[:40])),
    "trust-version": Field(change_identity(trustVersion=POISON[:40])),
    "identity-server": Field(change_identity(server=POISON), ("-update",)),
}
QUICK = {"option", "pack-summary", "rpm", "hxclus", "identity-server"}


def assert_no_forged_entry(box, reached="all is well"):
    """Nobody forged an entry, no byte that a terminal obeys stands raw, and the text did reach the log."""
    (log,) = box.log_files()
    raw = log.read_bytes()
    assert not RAW_CONTROL.search(raw)
    assert not DISGUISES.search(raw.decode(errors="replace"))
    assert [entry for entry in box.log() if entry.context == "forger"] == []
    assert reached in raw.decode(errors="replace"), "the text never reached the log: the case shows nothing"


@pytest.mark.row("H7")
@pytest.mark.parametrize("field", cases(FIELDS, QUICK))
def test_a_text_cannot_forge_an_entry(identified, field):
    box = identified(field.image)
    if field.plant:
        field.plant(box)
    box.command(*field.arguments)
    reached = "2026-01-01" if field.arguments == ("-localinfo",) else "all is well"
    assert_no_forged_entry(box, reached)


ERROR = {"errorCode": 47, "errMessage": MANY_LINES}
BODIES = {
    "json": json.dumps(ERROR),
    "text": MANY_LINES,
    "json-of-raw-characters": json.dumps(ERROR, ensure_ascii=False),
}


@pytest.mark.row("H7")
@pytest.mark.parametrize("body", cases(BODIES, quick=("json",)))
@pytest.mark.parametrize("arguments", [["-read"], ["-update"]], ids=["read", "update"])
def test_an_error_body_cannot_forge_an_entry(enrolled, scripted, arguments, body):
    scripted({"path": "hosts", "answer": {"status": 500, "body": body}})
    contract = Contract(enrolled)
    result = enrolled.command(*arguments, inject=["clock_nanosleep:retval=0"])
    assert result.status != 0
    # An update tells of a body only what it says of the error.
    told = arguments == ["-read"] or body.startswith("{")
    assert_no_forged_entry(enrolled, "all is well" if told else "Error parsing response body")
    contract.check(result)


@pytest.mark.row("H7")
@pytest.mark.full
@pytest.mark.parametrize("body", BODIES.values(), ids=BODIES)
def test_an_answer_to_an_enrolment_stays_on_one_line_of_the_terminal(box, master, body):
    invitation = master.invite(box.host_name)
    master.stop()
    with ScriptedServer(box, master, [{"path": "enrollments$", "answer": {"status": 500, "body": body}}]):
        result = box.enrol(master, invitation.text, invitation.fingerprint)
    assert (result.status, result.out, result.err.count("\n")) == (8, "", 1)
    assert "master1.example" in result.err
    assert (FORGED in result.err) == body.startswith("{"), "what is told is what it says of the error"
    assert not RAW_CONTROL.search(result.err.encode()) and not DISGUISES.search(result.err)


@pytest.mark.row("H7")
def test_a_cached_record_cannot_forge_an_entry(enrolled):
    assert enrolled.command("-update").status == 0
    cached = json.loads(enrolled.cache_file().read_text())
    texts = [name for name, value in cached.items() if isinstance(value, str) and name != "uuid"]
    cached |= dict.fromkeys(texts, MANY_LINES)
    enrolled.cache_file().write_text(json.dumps(cached) + "\n")
    assert enrolled.command("-update").status == 0
    assert_no_forged_entry(enrolled)


@pytest.mark.row("H7")
def test_the_programs_name_cannot_forge_an_entry(enrolled):
    program = "/usr/torqv/torquenix/bin/tqhostdbcmd"
    enrolled.run([f"x\n{FORGED}\x1b[2J", "-bogus"], executable=program)
    for log in (enrolled.torqv / "torquenix" / "logs" / "admin").iterdir():
        assert not RAW_CONTROL.search(log.read_bytes())
        assert not any(line.startswith(FORGED.encode()) for line in log.read_bytes().splitlines())


@pytest.mark.row("H6")
def test_names_from_a_server_name_no_files(enrolled, scripted):
    hostile = {"uuid": "../../../tmp/x", "hostName": "../../etc/x", "masterServer": "../x"}
    scripted(
        {"method": "GET", "answer": {"status": 200, "body": json.dumps({"hosts": [hostile]})}},
        {"method": "PUT", "answer": {"status": 200, "body": json.dumps(hostile)}},
    )
    contract = Contract(enrolled)
    before = {file for file in enrolled.torqv.rglob("*")}
    runs = (["-update"], ["-readallhosts"], ["-read", "-hostname", "../x"])
    results = [enrolled.command(*arguments) for arguments in runs]
    assert [result.status for result in results] == [0, 0, 0]
    made = {file.name for file in enrolled.torqv.rglob("*")} - {file.name for file in before}
    server = "master1.example"
    assert {name for name in made if ".log" not in name} == {
        f"hostdb.cache.{server}",
        f"hostdbcache.{server}.lock",
        f"hostdbupdate.lock.{server}",
        f"token.host.{server}",
    }
    contract.check(*results)
