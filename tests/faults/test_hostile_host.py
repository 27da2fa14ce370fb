"""Configuration, release files, names and kernel files that say what they should not: text is text,
never run, and a damaged source costs its own fact alone."""

import contextlib
import json
import os
import re
import sqlite3

import pytest

from contract import Contract
from local_info import cases, describe, errors_but_the_clusters
from sandbox import BIN_DIR, HOST_ID, OWN_MOUNTS
from servers import ScriptedServer
from test_tool_limits import TIME_LIMIT, with_short_limits

MASTER1 = "master1.example"
COMMAND = f"{BIN_DIR}/tqhostdbcmd"
VERSION_FILE = f"{BIN_DIR}/version"
EXECUTED = "/shared/output/executed"
COMMANDS_IN_TEXT = f"$(touch {EXECUTED})`touch {EXECUTED}`;touch {EXECUTED}|touch {EXECUTED}&"


def make_dangling_link(path):
    path.symlink_to("/usr/torqv/nowhere")


def make_fifo(path):
    os.mkfifo(path)


def make_folder(path):
    path.mkdir()


def assert_nothing_executed(box):
    assert not (box.shared / "output" / "executed").exists()


# The product configuration


# What stands in the file, the client's name that counts where one is set, and what the log says of lines.
CONFIGURATIONS = {
    "binary": (
        b"\0\xff\xfe\nSERVER = master1.example\n",
        None,
        ["line 1 holds a NUL character and is skipped"],
    ),
    "no-line-end": (b"SERVER = master1.example", None, []),
    "cr-lf": (b"SERVER = master1.example\r\nCLIENT_NAME = h\r\n", "h", []),
    "no-equals-sign": (
        b"no equals sign\n= value\nserver   =    master1.example   \n",
        None,
        ["line 1 has no '=' and is skipped", "line 2 has no key before the '=' and is skipped"],
    ),
    "long-line": (b"SERVER = master1.example\nUNKNOWN = " + b"x" * 900_000 + b"\n", None, []),
    "unknown-keys": (b"UNKNOWN = 1\nSERVER = master1.example\nUNKNOWN_TOO = $(id)\n", None, []),
    "bom": (b"\xef\xbb\xbfSERVER = master1.example\n", None, []),
    # Of a key the last counts; the client's name is looked for from the top.
    "twice": (
        b"CLIENT_NAME = ../../a\nWEB_CONNECT_SECONDS = 5\nSERVER = master1.example\n"
        b"CLIENT_NAME = b\nWEB_CONNECT_SECONDS = 0\n",
        "../../a",
        ["line 5: WEB_CONNECT_SECONDS = [0] is not a number from 1 to 3600; 30 is used"],
    ),
    "numbers": (
        b"SERVER = master1.example\nWEB_CONNECT_SECONDS = 99999999999999999999\nDEBUG_LOG_DAYS = no\n",
        None,
        [
            "line 2: WEB_CONNECT_SECONDS = [99999999999999999999] is not a number from 1 to 3600; 30 is used",
            "line 3: DEBUG_LOG_DAYS = [no] is not a number from 0 to 36500; 28 is used",
        ],
    ),
}


@pytest.mark.row("H3")
@pytest.mark.full
@pytest.mark.parametrize("configuration", cases(CONFIGURATIONS, quick=()))
def test_a_damaged_configuration_keeps_what_can_be_read_of_it(enrolled, configuration):
    content, name, said = configuration
    (enrolled.torqv / "torquenix" / "kx.conf").write_bytes(content)
    record = describe(enrolled)
    assert record["masterServer"] == MASTER1
    assert record["hostName"] == (name or "<NULL>")
    config = "/usr/torqv/torquenix/kx.conf: "
    noted = {text for text in enrolled.log_texts(8) if text.startswith(config)}
    assert noted == {config + text for text in said}


@pytest.mark.row("H3")
def test_a_configuration_of_more_than_a_mebibyte_is_none(box):
    box.add_config("#" * 1_100_000)
    assert box.command("-localinfo").status == 111
    assert any("kx.conf" in text for text in box.log_texts(16))


@pytest.mark.row("H3")
def test_a_line_without_an_equals_sign_is_noted(enrolled):
    enrolled.add_config("no equals sign")
    assert enrolled.command("-localinfo").status == 0
    said = "/usr/torqv/torquenix/kx.conf: line 3 has no '=' and is skipped"
    assert said in enrolled.log_texts(8)


@pytest.mark.row("H3")
@pytest.mark.parametrize("make", [make_dangling_link, make_fifo, make_folder])
def test_a_configuration_that_is_no_file_is_none(box, make):
    config = box.torqv / "torquenix" / "kx.conf"
    config.unlink()
    make(config)
    assert box.command("-localinfo").status == 111
    assert any("kx.conf" in text for text in box.log_texts(16))


@pytest.mark.row("H3")
def test_an_update_without_a_configuration_is_12(enrolled):
    (enrolled.torqv / "torquenix" / "kx.conf").unlink()
    result = enrolled.update_without_waiting()
    assert (result.status, result.err) == (12, "Requested operation failed with error: 12\n")
    assert "loadHostInfoFromKXConf() error : 12" in enrolled.log_texts(16)


@pytest.mark.row("H3")
def test_a_gigabyte_of_configuration_is_none(box):
    with open(box.torqv / "torquenix" / "kx.conf", "ab") as file:
        file.truncate(1 << 30)
    result = box.command("-localinfo")
    assert (result.status, result.out) == (111, "")
    assert any("kx.conf" in text and "too large" in text for text in box.log_texts(16))


@pytest.mark.row("H3")
@pytest.mark.parametrize("owner, mode", [(12345, 0o644), (0, 0o666)])
def test_whoever_owns_the_configuration_it_is_read(enrolled, owner, mode):
    config = enrolled.torqv / "torquenix" / "kx.conf"
    os.chown(config, owner, owner)
    config.chmod(mode)
    assert enrolled.command("-localinfo").status == 0


# Names of servers

SERVER_NAMES = {
    "path": "a/b",
    "lock": "daemon",
    "hidden": ".hidden",
    "long": "x" * 254,
    "blank": "two words",
    "tab": "tab\there",
}


@pytest.mark.row("H6")
@pytest.mark.parametrize("name", cases(SERVER_NAMES, quick=("path", "lock")))
def test_a_server_name_that_could_not_be_a_file_is_left_out(enrolled, name):
    enrolled.add_config(f"SERVER = {name}")
    result = enrolled.command("-localinfo")
    assert result.status == 0
    assert json.loads(result.out)["servers"] == [MASTER1]
    assert any("kx.conf" in text for text in enrolled.log_texts(16))


# A server that enrols hosts under names of its own choice

REPLIES = {
    "path-for-identifier": ({"hostId": "../../../../etc/x"}, '"hostId" is not a UUID'),
    "no-plain-identifier": ({"hostId": HOST_ID + "/../x"}, '"hostId" is not a UUID'),
    "identifier-with-nul": ({"hostId": HOST_ID + "\0x"}, "it is not a JSON object"),
    "certificate-of-another": ({"hostId": HOST_ID}, "its certificate is for another key"),
}


def assert_refused_enrolment(box, result, fault, before):
    """It says why on one line, and no file has come but the log and the lock of the identity store."""
    assert (result.status, result.out) == (8, "")
    spent = "the invitation is spent, so ask for a new one"
    assert result.err == f"tqenroll: the answer of server {MASTER1} cannot be used: {fault}; {spent}.\n"
    assert files_but_log_and_lock(box) == before


def files_but_log_and_lock(box):
    left_out = (".log", ".lock")
    return sorted(file for file in box.torqv.rglob("*") if file.is_file() and file.suffix not in left_out)


@pytest.mark.row("H6")
@pytest.mark.parametrize("reply", cases(REPLIES, quick=("path-for-identifier",)))
def test_an_enrolment_reply_with_a_hostile_identifier_makes_no_file(box, master, reply):
    fields, fault = reply
    invitation = master.invite(box.host_name)
    authority = (master.data_outside / "authority.pem").read_text()
    authority = authority[authority.index("-----BEGIN CERTIFICATE") :]
    body = json.dumps({"certificate": authority, "caCertificates": authority, "trustVersion": "1"} | fields)
    master.stop()
    before = files_but_log_and_lock(box)
    rule = {"path": "enrollments$", "answer": {"status": 201, "body": body}}
    with ScriptedServer(box, master, [rule]):
        result = box.enrol(master, invitation.text, invitation.fingerprint)
    assert_refused_enrolment(box, result, fault, before)


SIGNED_NAMES = {
    "path": ("x/../../../tmp/x", "it holds a slash"),
    "hidden": (".x", "it begins with a dot"),
    "escape": ("a\x1b[2Jb", "it holds a control character"),
    "lock": ("daemon", "it is the name of the daemon's lock"),
    "blank": ("a b", "it holds white space"),
}


@pytest.mark.row("H6")
@pytest.mark.parametrize("name", cases(SIGNED_NAMES, quick=("path",)))
def test_a_certificate_with_a_hostile_host_name_makes_no_file(box, master, name):
    """The real server signs it: somebody wrote the name into its database."""
    text, fault = name
    invitation = master.invite(box.host_name)
    with contextlib.closing(sqlite3.connect(master.data_outside / "hosts.db")) as database, database:
        database.execute("UPDATE invitation SET host_name = ?", (text,))
    before = files_but_log_and_lock(box)
    result = box.enrol(master, invitation.text, invitation.fingerprint)
    unusable = f"its certificate has a host name that cannot be used: {fault}"
    assert_refused_enrolment(box, result, unusable, before)


# Hotfixes


@pytest.fixture
def summary(identified):
    """A host and its pack summary, not there yet."""
    box = identified("debian12")
    file = box.torqv / "pack" / "pack.summary"
    file.parent.mkdir()
    return box, file


@pytest.mark.row("H4")
@pytest.mark.full
@pytest.mark.parametrize(
    "line, name",
    [
        (b"HFX_Torquenix_9.1_PET1_SET1", b"Torquenix_9.1_PET1_SET1"),
        (b"HFX_Torquenix_9.1.0.1_PET1_SET1 and more", b"Torquenix_9.1.0.1_PET1_SET1"),
        (b"HFX_Torquenix_10.0_PET1_SET1", b"Torquenix_10.0_PET1_SET1"),
        (b"Torquenix_9.2_PET2 HFX_Torquenix_9.1_PET1_SET1", b"Torquenix_9.2_PET2"),
        (b"HFX_Torquenix_9.0.0.5_PET1_SET1", None),
        (b"HFX_Torquenix_9.1_PET1", None),
        (b"HFX_Torquenix _SET", None),
        (b"HFX_Torquenix__PET1_SET1", None),
        (b"HFX_Torquenix_9.1_SET1", None),
        (b"Torquenix_9.1_PET1_SET1", None),
        (b"HFX_Torquenix_x_PET1_SET1", None),
        (b"HFX_Torquenix_99999999999999999999_PET1_SET1", b"Torquenix_99999999999999999999_PET1_SET1"),
        (b"HFX_Torquenix_-1.-1.-1.-1_PET1_SET1", None),
        (b"HFX_Torquenix_9.0.0.99999999_PET1_SET1", b"Torquenix_9.0.0.99999999_PET1_SET1"),
    ],
)
def test_a_line_of_the_summary_names_a_bundle_or_none(summary, line, name):
    box, file = summary
    file.write_bytes(b"header\n" + line + b"\n")
    assert describe(box)["installedHFXs"].encode() == (name or b"")
    assert box.log_of("CHostInformation::retrieveHFXsInstalled")[-1] == (
        f"Stored unique HFX : {name.decode()}" if name else "No HFXs found on this host "
    )


@pytest.mark.row("H4")
@pytest.mark.full
@pytest.mark.parametrize(
    "content",
    [b"", b"\0" * 10_000, bytes(range(256)) * 40, b"\n" * 10_000, b"HFX_Torquenix_SET" * 600_000],
    ids=["empty", "nuls", "binary", "empty-lines", "10-megabytes-on-one-line"],
)
def test_a_summary_that_names_no_bundle_means_none(summary, content):
    box, file = summary
    file.write_bytes(content)
    assert describe(box) == box.expected_record()
    assert "No HFXs found on this host " in box.log_texts(2)


@pytest.mark.row("H4")
def test_a_summary_that_is_cut_off_and_damaged_keeps_the_bundles_that_can_be_read(summary):
    box, file = summary
    lines = [b"\xff\0 HFX_Torquenix_9.1_PET9_SET1\r", b"\0", b"HFX_Torquenix_9.1_PET1_SET1 x"]
    file.write_bytes(b"\n".join([*lines, b"HFX_Torquenix_9.2_PET5_SET"]))
    assert describe(box)["installedHFXs"].split(",") == [
        "Torquenix_9.1_PET1_SET1",
        "Torquenix_9.1_PET9_SET1\r",
        "Torquenix_9.2_PET5_SET",
    ]


@pytest.mark.row("H4")
@pytest.mark.parametrize("make", [lambda file: file.mkdir(), os.mkfifo], ids=["folder", "fifo"])
def test_a_summary_that_cannot_be_read_ends_the_load_with_7501(summary, make):
    box, file = summary
    make(file)
    check_that_the_summary_ends_the_load(box)


@pytest.mark.row("H4")
@pytest.mark.full
def test_a_summary_without_permission_to_read_ends_the_load_with_7501(summary):
    box, file = summary
    file.write_text("")
    file.chmod(0)
    check_that_the_summary_ends_the_load(box, capabilities=False)


def check_that_the_summary_ends_the_load(box, **options):
    result = box.command("-localinfo", timeout=60, **options)
    assert (result.status, result.out) == (252, "")
    assert result.err == "Requested operation failed with error: 7501\n"
    errors = box.log_texts(16)
    assert "Unable to open pack.summary/history.log file" in errors
    assert "Failed to get HFX details, errorcode : 7501" in errors


@pytest.mark.row("H4")
@pytest.mark.full
def test_a_summary_that_is_a_link_to_nowhere_means_none(summary):
    box, file = summary
    file.symlink_to("/nowhere")
    assert describe(box) == box.expected_record()
    assert (
        "pack.summary file does not exist, considering no HFX's installed on machine" in box.log_texts(2)
    )


# Version files


@pytest.mark.row("H4")
@pytest.mark.full
@pytest.mark.parametrize(
    "content, said",
    [
        (b"", "[]; does not begin with: [Torquenix-]."),
        (b"\0\xff", None),
        (b"Torquenix-Linux\n", "[Torquenix-Linux]; no blank separator found."),
        (b"Torquenix-Linux x\n", "[Torquenix-Linux x]; no version number found."),
        (b"x" * 10_000_000, None),
    ],
    ids=["empty", "binary", "no-blank", "no-number", "10-megabytes-on-one-line"],
)
def test_a_damaged_version_file_gives_the_programs_own_version(identified, content, said):
    box = identified("rhel7-physical")
    (box.torqv / "torquenix" / "bin" / "version").write_bytes(content)
    assert describe(box) == box.expected_record()
    errors = errors_but_the_clusters(box)
    if said:
        assert errors[0] == f"Invalid format for the Torquenix version: {said}"
    assert errors[-1] == (
        "Error occurred in readTorquenixVersionFile() when reading version file: "
        f"[{VERSION_FILE}], error status: [13]."
    )


@pytest.mark.row("H4")
@pytest.mark.full
def test_empty_version_files_of_a_server_give_the_programs_own_version(identified):
    box = identified("sles15")
    for file in ("torquenix/version", "torquenix/bin/version"):
        (box.torqv / file).write_text("")
    assert describe(box) == box.expected_record()
    assert "Torquenix version not found in version file: [/usr/torqv/torquenix/version]." in box.log_texts(16)


# Release files


@pytest.mark.row("H4")
@pytest.mark.full
@pytest.mark.parametrize(
    "content, release",
    [
        (b"", "Unknown"),
        (b"\0" * 1000, "Unknown"),
        (bytes(range(256)) * 40, "Unknown"),
        (b"release", "Unknown"),
        (b"x" * 10_000_000, "Unknown"),
        (b"a release 1.2.3.4567 x", "1.2.3"),
        (b"a release 123456789", "12345678"),
        (b"a release 1\nanother release 2", "2"),
    ],
    ids=["empty", "nuls", "binary", "one-word", "long-line", "build-number", "nine-digits", "two-lines"],
)
def test_a_damaged_release_file_gives_a_release_or_unknown(identified, content, release):
    box = identified("rhel7-physical")
    (box.etc / "redhat-release").write_bytes(content)
    assert describe(box) == box.expected_record() | {"osReleaseVersion": release}


# Names of the host


NAMES = {
    "quotes-and-semicolons": 'a";x',
    "commands": f"$(touch {EXECUTED})`id`;id",
    "64-bytes-of-no-text": os.fsdecode(b"\xff" * 64),
    "line-end": "a\nb",
    "path": "../../etc",
}


@pytest.mark.row("H4")
@pytest.mark.parametrize("name", cases(NAMES, quick=("quotes-and-semicolons", "64-bytes-of-no-text")))
def test_a_hostile_host_name_is_text(sandbox_of, name):
    def rename(box):
        box.host_name = name

    box = sandbox_of("cluster-active", rename)
    box.host_name = "node1.example"
    box.give_identifier()
    box.put_tool(box.local_sbin, "hostname", "cat /proc/sys/kernel/hostname")
    contract = Contract(box)
    result = box.command("-localinfo")
    assert result.status == 0
    no_member = {"clusterSharedNames": []}  # no system of the cluster has that name
    assert json.loads(result.out) == box.expected_record() | no_member
    assert_nothing_executed(box)
    contract.check(result)


@pytest.mark.row("H4")
def test_a_hostile_answer_of_uname_is_text(identified):
    box = identified("debian12")
    box.put_tool(box.local_sbin, "uname", f"cat <<'END'\nLinux \"'{COMMANDS_IN_TEXT}\nDebian\nEND")
    assert describe(box) == box.expected_record()
    assert_nothing_executed(box)


@pytest.mark.row("H4")
def test_a_million_lines_of_summary_are_read(summary):
    box, file = summary
    lines = [f"HFX_Torquenix_9.1_PET{number % 3}_SET1" for number in range(100_000)]
    file.write_text("\n".join(["x"] * 900_000 + lines))
    box.add_config("DEBUG_LOG_LEVEL = 16")
    names = [f"Torquenix_9.1_PET{number}_SET1" for number in range(3)]
    assert describe(box)["installedHFXs"].split(",") == names


@pytest.mark.row("H4")
@pytest.mark.parametrize(
    "content, system, release",
    [
        (None, "Linux", "Unknown"),
        (b"", "", "Unknown"),
        (b"\0\xff", "", "Unknown"),
        (f'PRETTY_NAME="{COMMANDS_IN_TEXT}"\nVERSION_ID="a\\"b"\n'.encode(), COMMANDS_IN_TEXT, 'a\\"b'),
        (b"x" * 2_000_000, "", "Unknown"),
    ],
    ids=["missing", "empty", "binary", "hostile", "long-line"],
)
def test_a_release_file_is_text_and_never_run(identified, content, system, release):
    box = identified("debian12")
    (box.etc / "os-release").unlink()
    if content is not None:
        (box.etc / "os-release").write_bytes(content)
    names = {"osVersion": f"{system} ({os.uname().release})", "osReleaseVersion": release}
    assert describe(box) == box.expected_record() | names
    assert_nothing_executed(box)


@pytest.mark.row("H5")
def test_hostile_names_of_devices_users_and_processes_are_text(identified):
    box = identified("rhel7-physical")
    hostile = f"{COMMANDS_IN_TEXT} ) R 1 1 \\\\n"
    (box.etc / "passwd").write_text(f"{hostile}:x:0:0::/:/bin/sh\n")
    box.put_tool(box.local_sbin, "lspci", f"cat <<'END'\n00:00.0 {hostile}\nEND")
    # A tool whose process is named so that a careless reader of /proc would see another state and parent.
    rename = "import ctypes; ctypes.CDLL(None).prctl(15, b') Z 1 1 (\\n', 0, 0, 0)"
    body = f'/usr/bin/python3 -I -c "{rename}; import time; time.sleep(0.2)"'
    box.put_tool(box.local_sbin, "hostnamectl", body)
    contract = Contract(box)
    result = box.command("-localinfo")
    assert (result.status, json.loads(result.out)) == (0, box.expected_record())
    assert_nothing_executed(box)
    contract.check(result)


# Renames the loopback interface of a network of its own, brings it up and goes on as another program.
RENAMED_INTERFACE = """
import fcntl, os, socket, struct, sys
name = sys.argv[1].encode()
with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
    fcntl.ioctl(any_socket, 0x8923, struct.pack("16s16s8x", b"lo", name))  # SIOCSIFNAME
    fcntl.ioctl(any_socket, 0x8914, struct.pack("16sh22x", name, 1))  # SIOCSIFFLAGS, IFF_UP
assert name in [entry[1].encode() for entry in socket.if_nameindex()]
os.execv(sys.argv[2], sys.argv[2:])
"""


@pytest.mark.row("H5")
@pytest.mark.full
def test_hostile_names_of_mounts_disks_and_interfaces_are_text(identified):
    hostile = f"{COMMANDS_IN_TEXT}\n\"' \\040 rw 0 0\n"

    def add(box):
        partitions = box.work / "partitions"
        partitions.write_text(f"major minor  #blocks  name\n\n   8        0    1 {hostile}\n")
        box.extra_arguments += ["--tmpfs", f"/mnt/{hostile}", "--dir", f"/sys/block/{hostile}"]
        box.extra_arguments += ["--ro-bind", str(partitions), "/proc/partitions"]

    box = identified("debian12", before_start=add)
    contract = Contract(box)
    # A name of an interface holds neither blanks nor slashes, and no more than 15 bytes.
    argv = ["unshare", "--net", "/usr/bin/python3", "-I", "-c", RENAMED_INTERFACE, "`id`;$(id)\"'*"]
    result = box.run([*argv, COMMAND, "-localinfo"])
    assert (result.status, result.err) == (0, "")
    assert json.loads(result.out) == box.expected_record()
    assert "touch" in box.run(["cat", "/proc/mounts"]).out
    assert_nothing_executed(box)
    contract.check(result)


@pytest.mark.row("H5")
@pytest.mark.parametrize(
    "resource",
    [COMMANDS_IN_TEXT.replace(" ", "${IFS}"), "-x;id"]
    + [pytest.param(name, marks=pytest.mark.full) for name in ("../x", "a'b", 'a"b', "a\\b", "*")],
)
def test_a_hostile_name_of_a_cluster_resource_is_never_run(identified, resource):
    box = identified("cluster-active")
    tool = box.opt / "XRVNhxm" / "bin" / "hxres"
    sound = tool.read_text().split("\n", 1)[1]
    listed = f"[ \"$1\" != -list ] || cat <<'END'\n{resource}\tnode1\nEND"
    box.put_tool(tool.parent, "hxres", f"{listed}\n{sound}")
    assert describe(box) == box.expected_record()
    assert_nothing_executed(box)


# /proc and /sys


def without_proc(box, *arguments):
    """Runs the command where /proc holds nothing but what a sanitizer reads its options from."""
    options = "mkdir /proc/self && printf 'ASAN_OPTIONS=detect_leaks=0\\0' >/proc/self/environ"
    script = f'mount -t tmpfs none /proc && {options} && exec "$0" "$@"'
    argv = [*OWN_MOUNTS, "sh", "-c", script, COMMAND, *arguments]
    return box.run(argv)


@pytest.mark.row("H8")
def test_without_proc_the_facts_of_the_processor_are_missed(enrolled):
    result = without_proc(enrolled, "-localinfo")
    assert result.status == 0
    record = json.loads(result.out)
    assert record["machineType"] == "PHYSICAL"
    assert record["hwDescription"].startswith(", ")
    assert record["hostId"] == enrolled.identities()[0]["hostId"]
    assert "cat command failed" in enrolled.log_of("LinuxHardwareInfo::getModelName")
    assert without_proc(enrolled, "-update").status == 0
    Contract(enrolled).check_healed()


BAD_FACTS = {
    "empty": b"",
    "binary": bytes(range(256)) * 40,
    "no-line-end": b"model name",
    "one-long-line": b"model name : " + b"x" * 5_000_000,
    "huge-numbers": b"processor : 1\nphysical id : 999999999999999999\ncore id : -7\nMemTotal: 1e999 kB\n",
}


@pytest.mark.row("H8")
@pytest.mark.parametrize("file", ["cpuinfo", "meminfo"])
@pytest.mark.parametrize("content", cases(BAD_FACTS, quick=("binary",)))
def test_damaged_facts_of_the_kernel_cost_themselves_alone(identified, file, content):
    def replace(box):
        bad = box.work / "bad"
        bad.write_bytes(content)
        box.extra_arguments += ["--ro-bind", str(bad), f"/proc/{file}"]

    box = identified("rhel7-physical", before_start=replace)
    record, expected = describe(box), box.expected_record()
    if file == "cpuinfo":  # the model's name is its alone
        assert re.fullmatch("( x+)?, 8 CPUs", record["hwDescription"])
        expected["hwDescription"] = record["hwDescription"]
    assert record == expected


@pytest.mark.row("H8")
@pytest.mark.parametrize("file", ["cpuinfo", "meminfo"])
def test_facts_of_the_kernel_without_permission_to_read_cost_themselves_alone(identified, file):
    def forbid(box):
        unreadable = box.work / "unreadable"
        unreadable.write_text("")
        unreadable.chmod(0)
        box.extra_arguments += ["--ro-bind", str(unreadable), f"/proc/{file}"]

    box = identified("debian12", before_start=forbid)
    result = box.command("-localinfo", capabilities=False)
    assert result.status == 0
    lost = {"hwDescription": ", 4 CPUs", "machineType": "PHYSICAL"} if file == "cpuinfo" else {}
    assert json.loads(result.out) == box.expected_record() | lost


@pytest.mark.row("H8")
@pytest.mark.full
def test_without_sys_the_record_comes_about(identified):
    box = identified("debian12", before_start=lambda box: box.extra_arguments.extend(["--tmpfs", "/sys"]))
    record, expected = describe(box), box.expected_record()
    # Only how many processors there are is told otherwise, for this machine's own are seen then.
    model = expected.pop("hwDescription").split(", ")[0]
    assert re.fullmatch(rf"{re.escape(model)}, [1-9]\d* CPUs", record.pop("hwDescription"))
    assert record == expected


@pytest.mark.row("H8")
@pytest.mark.full
def test_hidden_processes_of_others_hide_neither_facts_nor_the_own_tools(identified):
    """A tool that hangs is found below the command and ended, though /proc shows the own processes alone."""
    box = identified("debian12", before_start=with_short_limits)
    contract = Contract(box)
    assert box.run(["mount", "-o", "remount,hidepid=2", "/proc"]).status == 0
    ordinary = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
    assert box.run([*ordinary, "test", "-e", "/proc/1/stat"]).status == 1, "nothing is hidden"
    assert describe(box, capabilities=False) == box.expected_record()  # which lets it look at its own alone
    box.put_tool(box.local_sbin, "lspci", "setsid sleep 600 & sleep 600")
    assert describe(box, capabilities=False) == box.expected_record()
    assert f"{TIME_LIMIT}/usr/local/sbin/lspci " in box.log_texts(16)
    contract.check()
