"""Damaged and hostile files of the command's own, and who may touch them: a clear line, the named outcome,
nothing lost."""

import json
import os
import stat

import pytest

from contract import Contract
from local_info import run_measured

MASTER1 = "master1.example"
ELSEWHERE = "/usr/torqv/elsewhere"


def make_link(path):
    path.symlink_to(ELSEWHERE)


def make_dangling_link(path):
    path.symlink_to("/usr/torqv/nowhere")


def make_hard_link(path):
    torqv = next(folder for folder in path.parents if folder.name == "torqv")
    path.hardlink_to(torqv / "elsewhere")


def make_fifo(path):
    os.mkfifo(path)


def make_folder(path):
    path.mkdir()


def make_device(path):
    """The zero device: endless to read, and it takes whatever is written."""
    os.mknod(path, 0o666 | stat.S_IFCHR, os.makedev(1, 5))


NOT_REGULAR = [
    make_link,
    pytest.param(make_dangling_link, marks=pytest.mark.full),
    make_hard_link,
    pytest.param(make_fifo, marks=pytest.mark.full),
    pytest.param(make_folder, marks=pytest.mark.full),
    pytest.param(make_device, marks=pytest.mark.full),
]


@pytest.fixture
def elsewhere(enrolled):
    """A file that a planted link leads to; nobody may change it."""
    file = enrolled.path(ELSEWHERE)
    file.write_text("untouched")
    yield file
    assert file.read_text() == "untouched"


# The identity store


def contents(quick, **more):
    """Parameters of damaged contents: those of `quick`, and those that only the full run has."""
    return pytest.mark.parametrize(
        "content",
        [pytest.param(content, id=name) for name, content in quick.items()]
        + [pytest.param(content, id=name, marks=pytest.mark.full) for name, content in more.items()],
    )


@pytest.mark.row("E5")
@contents(
    {"empty": b"", "of-another-version": b'{"version": 2, "identities": []}'},
    cut=b"{",
    array=b"[]",
    text=b'"text"',
    nul=b"\0",
    not_utf_8=b"\xff\xfe{}",
    no_list=b'{"version": 1}',
    no_array=b'{"version": 1, "identities": {}}',
    deep=b"[" * 100_000,
)
def test_a_damaged_identity_store_is_7611_and_stays_as_it_is(enrolled, content):
    store = enrolled.var("identity") / "identity.json"
    store.write_bytes(content)
    result = enrolled.command("-read")
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7611\n")
    assert any("identity" in text and "7611" not in text for text in enrolled.log_texts(16))
    result = enrolled.command("-update")
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7611\n")
    assert store.read_bytes() == content


@pytest.mark.row("E3")
@pytest.mark.parametrize("mode", [0o777, 0o755, 0o770])
def test_an_identity_folder_that_others_may_enter_is_7611(enrolled, mode):
    enrolled.var("identity").chmod(mode)
    result = enrolled.command("-read")
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7611\n")
    assert any("/usr/torqv/var/identity" in text for text in enrolled.log_texts(16))


@pytest.mark.row("H6")
def test_an_entry_whose_file_names_lead_outside_is_refused(enrolled):
    enrolled.change_identity(0, privateKey="../../etc/shadow")
    result = enrolled.command("-read")
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7611\n")
    assert any("/usr/torqv/var/identity" in text for text in enrolled.log_texts(16))


@pytest.mark.row("A11")
@pytest.mark.full
@pytest.mark.parametrize("field", ["certificate", "privateKey", "caCertificates"])
@pytest.mark.parametrize("content", [None, b"", b"no certificate\n"], ids=["missing", "empty", "damaged"])
def test_a_key_or_certificate_that_cannot_be_used_is_7622_and_an_authority_7626(enrolled, field, content):
    file = enrolled.var("identity") / enrolled.identities()[0][field]
    file.unlink()
    if content is not None:
        file.write_bytes(content)
    result = enrolled.command("-read")
    assert result.status == 252
    expected = "7626" if field == "caCertificates" else "7622"
    assert result.err == f"Requested operation failed with error: {expected}\n"
    assert any(MASTER1 in text for text in enrolled.log_texts(16))


@pytest.mark.row("E5")
@contents(
    {"cut": b'{"token": "'},
    empty=b"",
    number=b'{"token": 1}',
    binary=b"\0\xff" * 100,
    array=b"[]",
    control_character=b'{"token": "a\\r\\nb", "expiresAt": 4000000000}',
)
def test_a_damaged_token_file_is_replaced_by_a_new_token(enrolled, content):
    assert enrolled.command("-update").status == 0
    (token,) = enrolled.var("identity").glob("token.host.*")
    token.write_bytes(content)
    enrolled.forget_log()
    assert enrolled.command("-readallhosts").status == 0
    assert json.loads(token.read_text())["token"]
    damaged = f"Token file /usr/torqv/var/identity/{token.name} is damaged and counts as absent"
    assert enrolled.log_texts(8).count(damaged) == 1


@pytest.mark.row("E5")
@pytest.mark.parametrize(
    "make",
    [make_link]
    + [pytest.param(make, marks=pytest.mark.full) for make in (make_dangling_link, make_fifo, make_device)],
)
def test_a_token_file_that_is_no_file_is_replaced_and_what_it_leads_to_is_not(enrolled, elsewhere, make):
    assert enrolled.command("-update").status == 0
    (token,) = enrolled.var("identity").glob("token.host.*")
    token.unlink()
    make(token)
    assert enrolled.command("-update", "-force").status == 0
    assert not token.is_symlink()
    assert json.loads(token.read_text())["token"]


@pytest.mark.row("E5")
@pytest.mark.full
def test_a_folder_in_the_place_of_the_token_is_named_and_every_run_asks_for_a_token(enrolled):
    assert enrolled.command("-update").status == 0
    (token,) = enrolled.var("identity").glob("token.host.*")
    token.unlink()
    token.mkdir()
    assert enrolled.command("-update", "-force").status == 0
    assert any(token.name in text for text in enrolled.log_texts(16))
    token.rmdir()
    Contract(enrolled).check_healed()


@pytest.mark.row("E5")
@pytest.mark.parametrize(
    "name",
    [
        f"hostdb.cache.{MASTER1}",
        pytest.param(f"hostdbupdate.status.{MASTER1}", marks=pytest.mark.full),
        pytest.param(f"identity/token.host.{MASTER1}", marks=pytest.mark.full),
    ],
)
def test_a_gigabyte_is_not_read_and_the_next_good_update_replaces_it(enrolled, name):
    assert enrolled.command("-update").status == 0
    contract = Contract(enrolled)
    with open(enrolled.var(name), "wb") as file:
        file.truncate(1 << 30)
    result, peak = run_measured(enrolled, "-update", "-force")
    assert (result.status, result.err) == (0, "")
    assert peak < 400 * 1024
    contract.check(result)
    contract.check_healed()
    assert not enrolled.var(name).exists() or enrolled.var(name).stat().st_size < 10_000


# Cache, status and locks


@pytest.mark.row("E5")
@contents(
    {"cut": b'{"uuid":"', "empty": b""},
    empty_line=b"\n{}\n",
    null=b"null\n",
    array=b"[]\n",
    binary=b"\0\xff\n",
    number_in_list=b'{"servers":[1]}\n',
    of_another_version=b'{"version":99,"record":{"uuid":"1"}}\n',
    deep=b"[" * 100_000,
    too_big=b"x" * 17_000_000,
)
def test_a_damaged_cache_is_as_good_as_none_and_named_in_the_log(enrolled, content):
    assert enrolled.command("-update").status == 0
    good = enrolled.cache_file().read_bytes()
    enrolled.cache_file().write_bytes(content)
    enrolled.forget_log()
    assert enrolled.command("-update").status == 0
    assert enrolled.cache_file().read_bytes() == good
    faults = enrolled.log_texts(8) + enrolled.log_texts(16)
    assert any(enrolled.cache_file().name in text for text in faults)


@pytest.mark.row("E10")
@pytest.mark.parametrize("make", NOT_REGULAR)
def test_a_cache_that_is_no_file_is_left_alone_and_the_update_succeeds(enrolled, elsewhere, make):
    make(enrolled.cache_file())
    before = stat.S_IFMT(enrolled.cache_file().lstat().st_mode)
    for _ in range(2):
        result = enrolled.command("-update")
        assert (result.status, result.err) == (0, "")
    assert "Unable to write host information in cache file:" in [
        text.strip() for text in enrolled.log_texts(16)
    ]
    assert any(str(enrolled.cache_file().name) in text for text in enrolled.log_texts(16))
    assert stat.S_IFMT(enrolled.cache_file().lstat().st_mode) == before


@pytest.mark.row("E10")
@pytest.mark.parametrize("make", NOT_REGULAR)
def test_a_status_file_that_is_no_file_is_not_written(enrolled, master, elsewhere, make):
    make(enrolled.status_file())
    before = stat.S_IFMT(enrolled.status_file().lstat().st_mode)
    master.stop()
    assert enrolled.update_without_waiting().status == 25
    assert f"Unable to open file: /usr/torqv/var/hostdbupdate.status.{MASTER1}" in enrolled.log_texts(16)
    assert stat.S_IFMT(enrolled.status_file().lstat().st_mode) == before


@pytest.mark.row("E3")
def test_a_status_file_that_cannot_be_removed_is_reported_and_the_update_succeeds(enrolled):
    enrolled.status_file().mkdir()
    (enrolled.status_file() / "inside").touch()
    assert enrolled.command("-update").status == 0
    assert any(text.startswith("Failed to remove the file. retval: [-1] and errno: [") for text in
               enrolled.log_texts(16))


@pytest.mark.row("E5")
def test_a_damaged_status_file_is_replaced_by_the_next_failure(enrolled, master):
    enrolled.status_file().write_bytes(b"\0" * 5000)
    master.stop()
    assert enrolled.update_without_waiting().status == 25
    assert enrolled.status_file().read_text() == "25\n"


@pytest.mark.row("E10")
@pytest.mark.parametrize("make", NOT_REGULAR)
def test_an_update_lock_that_is_no_file_is_not_taken_and_the_server_is_left_out(enrolled, elsewhere, make):
    lock = enrolled.var(f"hostdbupdate.lock.{MASTER1}")
    make(lock)
    result = enrolled.command("-update")
    assert (result.status, result.err) == (0, "Requested operation failed with error: 0\n")
    assert any(text.startswith("Failed to acquire lock on hostDB update status file") for text in
               enrolled.log_texts(16))
    assert not enrolled.cache_file().exists()


@pytest.mark.row("E10")
@pytest.mark.parametrize("make", NOT_REGULAR)
def test_a_daemon_lock_that_is_no_file_drops_the_request(enrolled, elsewhere, make):
    make(enrolled.var("hostdbupdate.lock.daemon"))
    result = enrolled.command("-update", "-daemon")
    assert (result.status, result.err) == (0, "")
    assert any("in proress" in text for text in enrolled.log_texts(16))


@pytest.mark.row("E10")
@pytest.mark.parametrize("make", NOT_REGULAR)
def test_a_cache_lock_that_is_no_file_does_not_stop_the_update(enrolled, elsewhere, make):
    make(enrolled.var(f"hostdbcache.{MASTER1}.lock"))
    assert enrolled.command("-update").status == 0
    assert enrolled.cache_file().exists()


@pytest.mark.row("E9")
def test_lock_files_are_the_owners_alone_and_stay(enrolled):
    assert enrolled.command("-update", "-daemon").status == 0
    locks = sorted(file.name for file in enrolled.var("").iterdir() if "lock" in file.name)
    assert locks == [
        f"hostdbcache.{MASTER1}.lock",
        "hostdbupdate.lock.daemon",
        f"hostdbupdate.lock.{MASTER1}",
    ]
    for name in locks:
        assert stat.S_IMODE(enrolled.var(name).stat().st_mode) == 0o600


@pytest.mark.row("E9")
def test_cache_and_log_can_be_read_but_not_written_by_others(enrolled, master):
    assert enrolled.command("-update", umask=0).status == 0
    master.stop()
    assert enrolled.update_without_waiting("-force", umask=0).status == 25
    for file in [enrolled.cache_file(), enrolled.status_file(), *enrolled.log_files()]:
        assert stat.S_IMODE(file.stat().st_mode) == 0o644, file


@pytest.mark.row("E10")
@pytest.mark.parametrize("make", NOT_REGULAR)
def test_a_debug_log_that_is_no_file_is_refused(enrolled, elsewhere, make):
    enrolled.command("-display")
    (log,) = enrolled.log_files()
    log.unlink()
    make(log)
    assert enrolled.command("-localinfo").status == 12
    assert enrolled.command("-display", administrator=False).status == 0


TEMPORARY = ["torquenix/SystemCmd", "var/identity/.tq-new."]


@pytest.mark.row("E10")
@pytest.mark.full
@pytest.mark.parametrize("prefix", TEMPORARY)
@pytest.mark.parametrize("make", NOT_REGULAR)
def test_what_bears_the_name_of_a_dead_processs_temporary_file_is_never_followed(
    enrolled, elsewhere, prefix, make
):
    """A name more for a file goes, as that of a temporary file would; what is no file stays as it is."""
    planted = enrolled.torqv / f"{prefix}999999.{'0' * 32}"
    make(planted)
    os.utime(planted, (0, 0), follow_symlinks=False)
    before = planted.lstat()
    result = enrolled.command("-update", "-force")
    assert (result.status, result.err) == (0, "")
    if make is make_hard_link:
        assert not planted.exists()
    else:
        assert (planted.lstat().st_ino, planted.lstat().st_mode) == (before.st_ino, before.st_mode)


# The state folder


@pytest.mark.row("E3")
def test_a_missing_state_folder_is_not_made_and_the_server_is_left_out(enrolled):
    identity = enrolled.var("identity")
    identity.rename(enrolled.torqv / "identity")
    for file in list(enrolled.var("").iterdir()):
        file.unlink()
    enrolled.var("").rmdir()
    result = enrolled.command("-update")
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7610\n")
    assert not enrolled.var("").exists()


@pytest.mark.row("E3")
def test_a_state_folder_that_cannot_be_written_fails_the_update_and_names_the_lock(enrolled, master):
    master.stop()
    enrolled.restart("--ro-bind", str(enrolled.var("")), "/usr/torqv/var")
    master.serve()
    result = enrolled.command("-update")
    assert (result.status, result.err) == (0, "Requested operation failed with error: 0\n")
    assert any(text.startswith("Failed to acquire lock on hostDB update") for text in enrolled.log_texts(16))


# Other users


@pytest.mark.row("E9")
def test_an_ordinary_user_can_read_the_log_cache_and_status_and_nothing_else(enrolled, master):
    second = enrolled.master("master2.example").serve()
    assert enrolled.enrol(second).status == 0
    second.stop()
    assert enrolled.update_without_waiting("-daemon").status == 0
    assert enrolled.status_file("master2.example").exists()
    contract = Contract(enrolled)
    installed = {"bin", "lib"}
    files = [file for file in enrolled.torqv.rglob("*") if file.is_file()]
    files = [file for file in files if installed.isdisjoint(file.parts)]
    inside = {f"/usr/torqv/{file.relative_to(enrolled.torqv)}": file for file in files}
    result = enrolled.run(["/usr/bin/python3", "-I", "/faults/try_files.py", *inside])
    assert result.status == 0, result.err
    public = ("hostdb.cache.", "hostdbupdate.status.", "tqhostdbcmd.", "tqenroll.", "kx.conf", "version")
    for path, can in json.loads(result.out).items():
        is_public = inside[path].name.startswith(public)
        assert can == {"read": is_public, "write": False, "lock": is_public, "replace": False}, path
    contract.check()


@pytest.mark.row("E9")
@pytest.mark.parametrize("arguments", [["-update"], ["-read"], ["-delete"]])
def test_an_ordinary_users_run_is_refused_and_changes_nothing(enrolled, arguments):
    assert enrolled.command("-update").status == 0
    contract = Contract(enrolled)
    before = {file: file.read_bytes() for file in enrolled.torqv.rglob("*") if file.is_file()}
    user = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
    result = enrolled.run([*user, "/usr/torqv/torquenix/bin/tqhostdbcmd", *arguments])
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7611\n")
    assert {file: file.read_bytes() for file in enrolled.torqv.rglob("*") if file.is_file()} == before
    contract.check(result)
