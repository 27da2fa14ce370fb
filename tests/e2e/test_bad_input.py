"""Damaged and hostile files of the command's own: a clear line, the named outcome, nothing lost."""

import json
import os
import stat

import pytest

MASTER1 = "master1.example"
ELSEWHERE = "/usr/torqv/elsewhere"


def make_link(path):
    path.symlink_to(ELSEWHERE)


def make_dangling_link(path):
    path.symlink_to("/usr/torqv/nowhere")


def make_fifo(path):
    os.mkfifo(path)


def make_folder(path):
    path.mkdir()


NOT_REGULAR = [make_link, make_dangling_link, make_fifo, make_folder]


@pytest.fixture
def elsewhere(enrolled):
    """A file that a planted link leads to; nobody may change it."""
    file = enrolled.path(ELSEWHERE)
    file.write_text("untouched")
    yield file
    assert file.read_text() == "untouched"


# The product configuration


@pytest.mark.parametrize(
    "content",
    [
        b"\0\xff\xfe\nSERVER = master1.example\n",
        b"SERVER = master1.example",
        b"SERVER = master1.example\r\nCLIENT_NAME = h\r\n",
        b"no equals sign\n= value\nserver   =    master1.example   \n",
        b"SERVER = master1.example\nCLIENT_NAME = " + b"x" * 900_000 + b"\n",
        b"UNKNOWN = 1\nSERVER = master1.example\nUNKNOWN_TOO = $(id)\n",
        b"SERVER = master1.example\nWEB_CONNECT_SECONDS = 99999999999999999999\nDEBUG_LOG_DAYS = no\n",
    ],
    ids=["binary", "no-line-end", "cr-lf", "no-equals-sign", "long-line", "unknown-keys", "numbers"],
)
def test_a_damaged_configuration_keeps_what_can_be_read_of_it(enrolled, content):
    (enrolled.torqv / "torquenix" / "kx.conf").write_bytes(content)
    result = enrolled.command("-localinfo")
    assert result.status == 0, result.err
    assert json.loads(result.out)["masterServer"] == MASTER1


def test_a_configuration_of_more_than_a_mebibyte_is_none(box):
    box.add_config("#" * 1_100_000)
    assert box.command("-localinfo").status == 111
    assert any("kx.conf" in text for text in box.log_texts(16))


def test_a_line_without_an_equals_sign_is_noted(enrolled):
    enrolled.add_config("no equals sign")
    assert enrolled.command("-localinfo").status == 0
    assert any("kx.conf" in text and "3" in text for text in enrolled.log_texts(8))


@pytest.mark.parametrize("make", [make_dangling_link, make_fifo, make_folder])
def test_a_configuration_that_is_no_file_is_none(box, make):
    config = box.torqv / "torquenix" / "kx.conf"
    config.unlink()
    make(config)
    assert box.command("-localinfo").status == 111
    assert any("kx.conf" in text for text in box.log_texts(16))


def test_an_update_without_a_configuration_is_12(enrolled):
    (enrolled.torqv / "torquenix" / "kx.conf").unlink()
    result = enrolled.update_without_waiting()
    assert (result.status, result.err) == (12, "Requested operation failed with error: 12\n")
    assert "loadHostInfoFromKXConf() error : 12" in enrolled.log_texts(16)


@pytest.mark.parametrize("name", [".hidden", "a/b", "daemon", "x" * 254, "two words", "tab\there"])
def test_a_server_name_that_could_not_be_a_file_is_left_out(enrolled, name):
    enrolled.add_config(f"SERVER = {name}")
    result = enrolled.command("-localinfo")
    assert result.status == 0
    assert json.loads(result.out)["servers"] == [MASTER1]
    assert any("kx.conf" in text for text in enrolled.log_texts(16))


# The identity store


@pytest.mark.parametrize(
    "content",
    [
        b"",
        b"{",
        b"[]",
        b'"text"',
        b"\0",
        b"\xff\xfe{}",
        b'{"version": 2, "identities": []}',
        b'{"version": 1}',
        b'{"version": 1, "identities": {}}',
        b"[" * 100_000,
    ],
    ids=["empty", "cut", "array", "text", "nul", "not-utf-8", "version", "no-list", "no-array", "deep"],
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


@pytest.mark.parametrize("mode", [0o777, 0o755, 0o770])
def test_an_identity_folder_that_others_may_enter_is_7611(enrolled, mode):
    enrolled.var("identity").chmod(mode)
    result = enrolled.command("-read")
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7611\n")
    assert any("/usr/torqv/var/identity" in text for text in enrolled.log_texts(16))


def test_an_entry_whose_file_names_lead_outside_is_refused(enrolled):
    enrolled.change_identity(0, privateKey="../../etc/shadow")
    assert enrolled.command("-read").status == 252


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


@pytest.mark.parametrize("content", [b"", b"{", b'{"token": 1}', b"\0" * 100, b"[]"])
def test_a_damaged_token_file_is_replaced_by_a_new_token(enrolled, content):
    assert enrolled.command("-update").status == 0
    (token,) = enrolled.var("identity").glob("token.host.*")
    token.write_bytes(content)
    assert enrolled.command("-readallhosts").status == 0
    assert json.loads(token.read_text())["token"]


# Cache, status and locks


@pytest.mark.parametrize(
    "content",
    [b"", b"\n{}\n", b"{", b"null\n", b"[]\n", b"\0\xff\n", b'{"servers":[1]}\n', b"[" * 100_000, b"x" * 17_000_000],
    ids=["empty", "empty-line", "cut", "null", "array", "binary", "number-in-list", "deep", "too-big"],
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


@pytest.mark.parametrize("make", NOT_REGULAR)
def test_a_cache_that_is_no_file_is_neither_read_nor_written_and_the_update_succeeds(enrolled, elsewhere, make):
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


@pytest.mark.parametrize("make", NOT_REGULAR)
def test_a_status_file_that_is_no_file_is_not_written(enrolled, master, elsewhere, make):
    make(enrolled.status_file())
    before = stat.S_IFMT(enrolled.status_file().lstat().st_mode)
    master.stop()
    assert enrolled.update_without_waiting().status == 25
    assert f"Unable to open file: /usr/torqv/var/hostdbupdate.status.{MASTER1}" in enrolled.log_texts(16)
    assert stat.S_IFMT(enrolled.status_file().lstat().st_mode) == before


def test_a_status_file_that_cannot_be_removed_is_reported_and_the_update_succeeds(enrolled):
    enrolled.status_file().mkdir()
    (enrolled.status_file() / "inside").touch()
    assert enrolled.command("-update").status == 0
    assert any(text.startswith("Failed to remove the file. retval: [-1] and errno: [") for text in
               enrolled.log_texts(16))


def test_a_damaged_status_file_is_replaced_by_the_next_failure(enrolled, master):
    enrolled.status_file().write_bytes(b"\0" * 5000)
    master.stop()
    assert enrolled.update_without_waiting().status == 25
    assert enrolled.status_file().read_text() == "25\n"


@pytest.mark.parametrize("make", NOT_REGULAR)
def test_an_update_lock_that_is_no_file_is_not_taken_and_the_server_is_left_out(enrolled, elsewhere, make):
    lock = enrolled.var(f"hostdbupdate.lock.{MASTER1}")
    make(lock)
    result = enrolled.command("-update")
    assert (result.status, result.err) == (0, "Requested operation failed with error: 0\n")
    assert any(text.startswith("Failed to acquire lock on hostDB update status file") for text in
               enrolled.log_texts(16))
    assert not enrolled.cache_file().exists()


@pytest.mark.parametrize("make", NOT_REGULAR)
def test_a_daemon_lock_that_is_no_file_drops_the_request(enrolled, elsewhere, make):
    make(enrolled.var("hostdbupdate.lock.daemon"))
    result = enrolled.command("-update", "-daemon")
    assert (result.status, result.err) == (0, "")
    assert any("in proress" in text for text in enrolled.log_texts(16))


@pytest.mark.parametrize("make", NOT_REGULAR)
def test_a_cache_lock_that_is_no_file_does_not_stop_the_update(enrolled, elsewhere, make):
    make(enrolled.var(f"hostdbcache.{MASTER1}.lock"))
    assert enrolled.command("-update").status == 0
    assert enrolled.cache_file().exists()


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


def test_cache_and_log_can_be_read_but_not_written_by_others(enrolled, master):
    assert enrolled.command("-update", umask=0).status == 0
    master.stop()
    assert enrolled.update_without_waiting("-force", umask=0).status == 25
    for file in [enrolled.cache_file(), enrolled.status_file(), *enrolled.log_files()]:
        assert stat.S_IMODE(file.stat().st_mode) == 0o644, file


@pytest.mark.parametrize("make", NOT_REGULAR)
def test_a_debug_log_that_is_no_file_is_refused(enrolled, elsewhere, make):
    enrolled.command("-display")
    (log,) = enrolled.log_files()
    log.unlink()
    make(log)
    assert enrolled.command("-localinfo").status == 12
    assert enrolled.command("-display", administrator=False).status == 0


# The state folder


def test_a_missing_state_folder_is_not_made_and_the_server_is_left_out(enrolled):
    identity = enrolled.var("identity")
    identity.rename(enrolled.torqv / "identity")
    for file in list(enrolled.var("").iterdir()):
        file.unlink()
    enrolled.var("").rmdir()
    result = enrolled.command("-update")
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7610\n")
    assert not enrolled.var("").exists()


def test_a_state_folder_that_cannot_be_written_fails_the_update_and_names_the_lock(enrolled, master):
    master.stop()
    enrolled.restart("--ro-bind", str(enrolled.var("")), "/usr/torqv/var")
    master.serve()
    result = enrolled.command("-update")
    assert (result.status, result.err) == (0, "Requested operation failed with error: 0\n")
    assert any(text.startswith("Failed to acquire lock on hostDB update") for text in enrolled.log_texts(16))


# The process's surroundings


@pytest.mark.parametrize("closed", [[0], [1], [2], [0, 1, 2]])
def test_closed_standard_descriptors_put_no_text_into_a_file(enrolled, closed):
    result = enrolled.command("-update", closed=closed)
    assert result.status == 0
    assert enrolled.cache_file().read_text().startswith("{")
    assert json.loads(enrolled.cache_file().read_text())


def test_an_ignored_child_signal_does_not_hide_the_tools_results(enrolled):
    plain = enrolled.command("-localinfo")
    result = enrolled.command("-localinfo", ignoreChildSignal=True)
    assert (result.status, result.out) == (0, plain.out)


def test_the_callers_environment_reaches_no_tool_and_no_library(enrolled):
    tools = enrolled.local_sbin / "uname"
    tools.write_text("#!/bin/sh\nenv | sort >/shared/output/environment\necho Debian\n")
    hostile = {
        "PATH": "/shared/decoys",
        "LD_LIBRARY_PATH": "/shared/decoys",
        "https_proxy": "http://127.0.0.9:1",
        "ALL_PROXY": "http://127.0.0.9:1",
        "SSLKEYLOGFILE": "/shared/output/keys",
        "TMPDIR": "/shared/decoys",
        "BASH_ENV": "/shared/decoys/env",
        "TZ": "UTC",
    }
    assert enrolled.command("-update", env=hostile).status == 0
    seen = (enrolled.shared / "output" / "environment").read_text().splitlines()
    names = {line.split("=")[0] for line in seen} - {"PWD", "OLDPWD", "SHLVL", "_"}
    assert names == {"LANG", "PATH", "TZ"}
    assert "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin" in seen
    assert not (enrolled.shared / "output" / "keys").exists()


def test_missing_tools_leave_the_record_whole(sandbox_of):
    def remove(box):
        for tool in ("dmidecode", "lspci", "hostnamectl", "rpm", "uname"):
            box.remove_tool(tool)

    box = sandbox_of("debian12", remove)
    assert box.enrol(box.master().serve()).status == 0
    result = box.command("-localinfo")
    assert result.status == 0
    # Without uname nobody says that this is Debian.
    assert json.loads(result.out)["kqUpdatePlatform"] == "linux-rpm-x86_64"
    assert json.loads(result.out)["hwDescription"].endswith("4 CPUs")


@pytest.mark.parametrize(
    "release",
    [b"", b"\0\xff", b'PRETTY_NAME="$(touch /shared/output/executed)`id`"\nVERSION_ID="a\\"b"\n', b"x" * 2_000_000],
    ids=["empty", "binary", "hostile", "long-line"],
)
def test_a_release_file_is_text_and_never_run(enrolled, release):
    (enrolled.etc / "os-release").write_bytes(release)
    result = enrolled.command("-localinfo")
    assert result.status == 0
    assert isinstance(json.loads(result.out), dict)
    assert not (enrolled.shared / "output" / "executed").exists()


def test_a_text_cannot_forge_an_entry_of_the_debug_log(enrolled):
    forged = "2026-01-01 00:00:00.000 [1] <2> forger: all is well"
    enrolled.command("-read", "-hostname", f"a\n{forged}\x1b[31m", "-bogus")
    log = enrolled.log_files()[0].read_bytes()
    assert b"\x1b" not in log
    assert not any(line.startswith(forged.encode()) for line in log.splitlines())
    assert all(entry.context != "forger" for entry in enrolled.log())
