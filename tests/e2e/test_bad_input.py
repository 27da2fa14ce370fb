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
