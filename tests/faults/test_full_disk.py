"""Disks without room, folders that cannot be written: what can be done is done, the line names the file, and
the next run with room heals."""

import dataclasses
import re
import shutil

import pytest

from contract import Contract
from sandbox import BIN_DIR, PROGRAMS

COMMAND = f"{BIN_DIR}/tqhostdbcmd"
VAR = "/usr/torqv/var"
TORQUENIX = "/usr/torqv/torquenix"
LOGS = f"{TORQUENIX}/logs/admin"
PLENTY = 1000
NOT_LOCKED = "Requested operation failed with error: 0\n"
NO_ROOM = "No space left on device"


@dataclasses.dataclass(frozen=True)
class FullDisk:
    """A first update while a folder's file system has so much room left."""

    name: str
    folder: str
    pages: int
    files: int
    line: str  # a regular expression for a line of the log, or of standard error
    status: int = 0
    err: str = ""  # a regular expression
    quick: bool = False


def no_file_for(name):
    return rf"^Unable to (open|write) {VAR}/{re.escape(name)}: {NO_ROOM}"


CASES = [
    FullDisk("no-room-for-cache-and-token", VAR, 0, PLENTY, rf"cache file {VAR}/\S*: {NO_ROOM}", quick=True),
    FullDisk("room-for-one-file", VAR, 1, PLENTY, rf"cache file {VAR}/\S*: {NO_ROOM}"),
    FullDisk("room-for-two-files", VAR, 2, PLENTY, no_file_for("identity/token.host.master1.example")),
    FullDisk(
        "no-inode-for-the-update-lock",
        VAR,
        PLENTY,
        0,
        no_file_for("hostdbupdate.lock.master1.example"),
        err=re.escape(NOT_LOCKED),
        quick=True,
    ),
    FullDisk("no-inode-for-the-cache-lock", VAR, PLENTY, 1, no_file_for("hostdbcache.master1.example.lock")),
    FullDisk("no-inode-for-the-token", VAR, PLENTY, 2, no_file_for("identity/token.host.master1.example")),
    FullDisk(
        "no-inode-for-the-cache", VAR, PLENTY, 3, no_file_for("hostdb.cache.master1.example"), quick=True
    ),
    FullDisk("no-inode-for-a-new-token", VAR, PLENTY, 4, no_file_for("identity/token.host.master1.example")),
    FullDisk("tools-cannot-write", TORQUENIX, 0, PLENTY, ""),
    FullDisk(
        "tools-have-no-files",
        TORQUENIX,
        PLENTY,
        0,
        rf"^sh: 1: cannot create {TORQUENIX}/SystemCmd\S+: {NO_ROOM}",
        err=r"(sh: 1: cannot create \S+: No space left on device\n)+",
    ),
    FullDisk("no-room-for-the-log", LOGS, 0, PLENTY, "", quick=True),
    FullDisk("no-room-for-the-whole-log", LOGS, 1, PLENTY, "^INITIATING: "),
    FullDisk(
        "no-inode-for-the-log",
        LOGS,
        PLENTY,
        0,
        rf"cannot open the debug log in {LOGS}: {NO_ROOM}",
        status=12,
        err="tqhostdbcmd: cannot open the debug log in .*\n",
    ),
]


def params():
    for case in CASES:
        rows = [pytest.mark.row("E4" if case.folder == LOGS else "E1")]
        yield pytest.param(case, id=case.name, marks=rows + ([] if case.quick else [pytest.mark.full]))


def run_on_small_disk(box, folder, pages, files, *arguments):
    return box.run(["/faults/on_small_disk", folder, str(pages), str(files), *arguments])


def take_out_what_was_cut_off(box):
    """The last entry for which there was some room; what follows it must stand on lines of its own."""
    (log,) = box.log_files() or [None]
    text = log.read_text() if log else ""
    if text and not text.endswith("\n"):
        assert box.command("-display").status == 0
        cut_off = text.splitlines()[-1]
        assert f"\n{cut_off}\n" in log.read_text()
        log.write_text(log.read_text().replace(f"\n{cut_off}\n", "\n", 1))


@pytest.mark.parametrize("case", params())
def test_a_first_update_on_a_full_disk_does_what_it_can(enrolled, case):
    if case.status == 0:
        enrolled.command("-display")  # today's log is there
    contract = Contract(enrolled)
    result = run_on_small_disk(enrolled, case.folder, case.pages, case.files, COMMAND, "-update")
    assert result.status == case.status
    assert re.fullmatch(case.err, result.err), result.err
    take_out_what_was_cut_off(enrolled)
    said = enrolled.log_texts() + result.err.splitlines()
    assert not case.line or any(re.search(case.line, text) for text in said)
    contract.check(result)
    contract.check_healed()


@pytest.mark.row("E1")
@pytest.mark.parametrize(
    "pages, files",
    [(0, PLENTY), pytest.param(1, PLENTY, marks=pytest.mark.full), (PLENTY, 0)]
    + [pytest.param(PLENTY, files, marks=pytest.mark.full) for files in (1, 2, 3)],
)
def test_an_enrolment_on_a_full_disk_leaves_no_part_of_an_identity_and_says_so(box, master, pages, files):
    good = master.invite(box.host_name)
    argv = [f"{BIN_DIR}/tqenroll", "--server", master.name, "--invitation", good.text]
    argv += ["--fingerprint", good.fingerprint]
    result = run_on_small_disk(box, VAR, pages, files, *argv)
    assert result.status != 0
    assert NO_ROOM in result.err and "identity" in result.err
    assert not (box.var("identity") / "identity.json").exists()
    # What the failed one did not get to spend is good for the next.
    again = box.run(argv) if "is spent" not in result.err else box.enrol(master)
    assert again.status == 0, again.err
    assert box.command("-update").status == 0
    left = [file.name for file in box.var("identity").iterdir() if ".tq-new." in file.name]
    assert left == []
    assert len(list(box.var("identity").glob("*.key"))) == 1


@pytest.mark.row("E1")
def test_a_status_file_on_a_full_disk_is_left_empty_and_named(enrolled, master):
    assert enrolled.command("-update").status == 0
    master.stop()
    contract = Contract(enrolled)
    argv = ["strace", "-f", "--seccomp-bpf", "-o", "/dev/null", "-e", "trace=clock_nanosleep"]
    argv += ["-e", "inject=clock_nanosleep:retval=0", COMMAND, "-update", "-force"]
    result = enrolled.run(
        ["/faults/on_small_disk", VAR, "0", str(PLENTY), *argv], env={"ASAN_OPTIONS": "detect_leaks=0"}
    )
    assert (result.status, result.err) == (25, "Requested operation failed with error: 25\n")
    named = f"Unable to write file: {VAR}/hostdbupdate.status.master1.example: {NO_ROOM}"
    assert named in [text.strip() for text in enrolled.log_texts(16)]
    assert enrolled.status_file().read_bytes() == b""
    contract.check(result)
    master.serve()
    assert enrolled.command("-update", "-force").status == 0
    assert not enrolled.status_file().exists()


# Places that cannot be written


def make_read_only(inside):
    def change(box):
        box.restart("--ro-bind", str(box.path(inside)), inside)

    return change


def make_all_read_only(box):
    programs = [f"{box.build}/bin/{name}" for name in PROGRAMS]
    binds = [["--ro-bind", program, f"{BIN_DIR}/{name}"] for program, name in zip(programs, PROGRAMS)]
    box.restart("--ro-bind", str(box.torqv), "/usr/torqv", *sum(binds, []))


def make_a_file(box):
    box.var("").rename(box.shared / "var")
    box.torqv.joinpath("var").write_text("")


def remove_log_folder(box):
    box.path(LOGS).rmdir()


def give_away(box):
    shutil.chown(box.var("identity"), 12345, 12345)


def open_to_all(box):
    box.var("").chmod(0o777)


@dataclasses.dataclass(frozen=True)
class Place:
    """A place that is not as it should be, and how an update ends then."""

    name: str
    row: str
    change: object
    status: int
    err: str
    line: str


UNSAFE = "Requested operation failed with error: 7611\n"

PLACES = [
    Place("state-folder-read-only", "E3", make_read_only(VAR), 0, NOT_LOCKED, "Read-only file system"),
    Place("state-folder-is-a-file", "E3", make_a_file, 252, UNSAFE, "identity"),
    Place("identity-of-another-owner", "E3", give_away, 252, UNSAFE, "/usr/torqv/var/identity"),
    Place("state-folder-open-to-all", "E3", open_to_all, 0, "", "Update successful"),
    Place(
        "identity-read-only",
        "E3",
        make_read_only(f"{VAR}/identity"),
        0,
        "",
        "Unable to write /usr/torqv/var/identity/token.host.master1.example: Read-only file system",
    ),
    Place(
        "everything-read-only",
        "E3",
        make_all_read_only,
        12,
        f"tqhostdbcmd: cannot open the debug log in {LOGS}: Read-only file system\n",
        "",
    ),
    Place("log-folder-missing", "E4", remove_log_folder, 0, "", ""),
    Place(
        "log-folder-read-only",
        "E4",
        make_read_only(LOGS),
        12,
        f"tqhostdbcmd: cannot open the debug log in {LOGS}: Read-only file system\n",
        "",
    ),
]


@pytest.mark.parametrize(
    "place", [pytest.param(place, id=place.name, marks=pytest.mark.row(place.row)) for place in PLACES]
)
def test_an_update_where_it_cannot_write_or_trust_a_folder(enrolled, master, place):
    master.stop()
    place.change(enrolled)
    master.serve()
    result = enrolled.command("-update")
    assert (result.status, result.err) == (place.status, place.err)
    assert not place.line or any(place.line in text for text in enrolled.log_texts())
    assert not list(enrolled.torqv.rglob("SystemCmd*"))
    assert enrolled.cache_file().exists() == ((result.status, result.err) == (0, ""))


@pytest.mark.row("E4")
def test_a_log_that_is_rotated_away_meanwhile_stops_nothing(enrolled):
    moved = "mv /usr/torqv/torquenix/logs/admin/tqhostdbcmd.*.log /shared/output/rotated"
    sound = (enrolled.local_sbin / "lspci").read_text()
    enrolled.put_tool(enrolled.local_sbin, "lspci", f"{moved}; exit 1")
    contract = Contract(enrolled)
    result = enrolled.command("-update")
    assert (result.status, result.err) == (0, "")
    contract.check(result)
    assert "INITIATING" in (enrolled.shared / "output" / "rotated").read_text()
    (enrolled.local_sbin / "lspci").write_text(sound)
    contract.check_healed()
    assert "Host update completed successfully" in [text.strip() for text in enrolled.log_texts()]


@pytest.mark.row("E4")
def test_a_log_folder_that_cannot_be_written_does_not_stop_an_ordinary_user(enrolled):
    enrolled.restart("--ro-bind", str(enrolled.path(LOGS)), LOGS)
    result = enrolled.command("-display", administrator=False)
    assert result.status == 0
