"""What a tool gets from the command, whatever that was started in itself, and what a tool leaves behind."""

import json

import pytest

from contract import Contract
from sandbox import BIN_DIR

COMMAND = f"{BIN_DIR}/tqhostdbcmd"
FIXED_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
EXECUTED = "/shared/output/executed"

# One tool for each way of running it: the command runner, a captured command, a cluster tool, its presence.
ONE_OF_EACH_WAY = {
    "dmidecode": ("local_sbin", "dmidecode", "exit 1"),
    "uname": ("local_sbin", "uname", "echo Linux"),
    "hxclus": ("opt", "XRVNhxm/bin/hxclus", "echo tqcluster"),
    "hxstatus": ("opt", "XRVNhxm/bin/hxstatus", "exit 0"),
}

# Signals 32 and 33, which the C library's system() and popen() leave ignored in every child.
OF_THE_C_LIBRARY = 3 << 31

WRITE_DOWN = """
to=/shared/output/$(basename "$0")
env >$to.environment
ls -l /proc/self/fd >$to.descriptors
grep '^Sig[BI]' /proc/self/status >$to.signals
umask >$to.mask
pwd >$to.folder
"""


def run_surrounded(box, *arguments, folder="/shared", **options):
    """Runs the command from the worst surroundings that a caller can leave it."""
    argv = ["/usr/bin/python3", "-I", "/faults/hostile_start.py", folder, COMMAND, *arguments]
    return box.run(argv, **options)


# What a tool gets


@pytest.fixture
def written_down(identified):
    """What one tool of each way got, while the command was started in the worst surroundings."""
    box = identified("cluster-active")
    for folder, name, then in ONE_OF_EACH_WAY.values():
        box.put_tool(getattr(box, folder), name, WRITE_DOWN + then)
    hostile = {"HOME": "/shared", "SECRET": "x", "TMPDIR": "/shared", "LC_CTYPE": "C", "TZ": "UTC"}
    assert run_surrounded(box, "-localinfo", env=hostile).status == 0
    return lambda tool, what: (box.shared / "output" / f"{tool}.{what}").read_text()


@pytest.mark.row("G7")
def test_a_tool_gets_a_fixed_environment_three_descriptors_and_plain_signals(written_down):
    for tool in ONE_OF_EACH_WAY:
        lines = written_down(tool, "environment").splitlines()
        variables = {line.split("=")[0] for line in lines} - {"PWD", "OLDPWD", "SHLVL", "_"}
        # The runner asks for plain English answers where it parses them.
        assert variables - {"LC_ALL"} == {"LANG", "LC_CTYPE", "PATH", "TZ"}, tool
        assert f"PATH={FIXED_PATH}" in lines, tool
        open_ones = [line.split()[8:] for line in written_down(tool, "descriptors").splitlines()[1:]]
        own = [words for words in open_ones if not words[2].startswith("/proc/")]  # but for the one of ls
        assert sorted(words[0] for words in own) == ["0", "1", "2"], tool
        signals = [int(line.split()[1], 16) for line in written_down(tool, "signals").splitlines()]
        assert [mask & ~OF_THE_C_LIBRARY for mask in signals] == [0, 0], tool
        assert written_down(tool, "mask") == "0022\n", tool
        assert written_down(tool, "folder") == "/\n", tool


# What a tool leaves behind


@pytest.mark.row("G6")
@pytest.mark.parametrize(
    "tool, waits",
    [
        pytest.param("dmidecode", False, id="output-to-a-file-is-not-waited-for"),
        pytest.param("uname", True, id="a-pipe-is-read-to-its-end", marks=pytest.mark.full),
        pytest.param("hxclus", True, id="a-cluster-tools-pipe-is-read-to-its-end", marks=pytest.mark.full),
        pytest.param("hxstatus", False, id="presence-is-not-waited-for", marks=pytest.mark.full),
    ],
)
def test_a_child_in_the_background_delays_only_who_reads_what_it_holds(identified, tool, waits):
    box = identified("cluster-active")
    contract = Contract(box)
    folder, name, then = ONE_OF_EACH_WAY[tool]
    seconds = 1 if waits else 600
    child = f"sh -c 'sleep {seconds}; echo late >>/shared/output/late' &"
    box.put_tool(getattr(box, folder), name, f"{child}\n{then}")
    result = box.command("-localinfo")
    assert (result.status, result.err) == (0, "")
    assert (box.shared / "output" / "late").exists() == waits
    for pid, words in box.processes().items():
        if "sleep 600" in words:
            box.run(["kill", "-KILL", str(pid)])
    contract.check(result)


# Decoys


def put_decoys(box):
    """Tools in folders of the caller's that would leave a trace."""
    decoys = box.shared / "decoys"
    names = "sh cat which dmidecode lspci hostnamectl uname rpm curl hostname"
    for name in [*names.split(), "hxstatus", "hxclus", "hxsys", "hxres", "sleep"]:
        box.put_tool(decoys, name, f"touch {EXECUTED}")
    for name in ("env", "bashrc"):
        (decoys / name).write_text(f"touch {EXECUTED}\n")
    box.run(["cp", "-r", "/shared/decoys/.", "/tmp/"])


def assert_nothing_executed(box):
    assert not (box.shared / "output" / "executed").exists()


@pytest.mark.row("G8")
def test_decoys_in_path_current_folder_and_tmp_are_never_executed(identified):
    box = identified("cluster-active")
    put_decoys(box)
    hostile = {"PATH": f"/shared/decoys:.::/tmp:{FIXED_PATH}", "TMPDIR": "/tmp", "HOME": "/shared/decoys"}
    result = run_surrounded(box, "-localinfo", folder="/shared/decoys", env=hostile)
    assert (result.status, json.loads(result.out)) == (0, box.expected_record())
    assert_nothing_executed(box)
    # Who looks where the caller says finds them.
    box.run(["/bin/sh", "-c", "dmidecode"], env=hostile)
    assert (box.shared / "output" / "executed").exists()


# The caller's environment

COMMANDS_IN_TEXT = f"$(touch {EXECUTED})`touch {EXECUTED}`;touch {EXECUTED}"

SHELL_VARIABLES = {
    "LD_LIBRARY_PATH": "/shared/decoys",
    "LD_BIND_NOW": "1",
    "IFS": "/",
    "BASH_FUNC_uname%%": f"() {{ touch {EXECUTED}; }}",
    "BASH_FUNC_cat%%": f"() {{ touch {EXECUTED}; }}",
    "ENV": "/shared/decoys/env",
    "BASH_ENV": "/shared/decoys/env",
    "SHELLOPTS": "xtrace",
    "PS4": COMMANDS_IN_TEXT,
    "PATH": "/shared/decoys",
    "TMPDIR": "/shared/decoys",
    "CDPATH": "/shared",
    "LC_ALL": COMMANDS_IN_TEXT,
    "LC_MESSAGES": "../../../../shared/decoys",
    "LANG": "x" * 100_000,
    "LANGUAGE": "../../../shared/decoys:de",
    "LOCPATH": "/shared/decoys",
    "NLSPATH": "/shared/decoys/%N",
    "GCONV_PATH": "/shared/decoys",
    "GLIBC_TUNABLES": "glibc.malloc.check=3:glibc.malloc.perturb=165",
    "MALLOC_PERTURB_": "165",
    "TZ": f"/shared/decoys/{COMMANDS_IN_TEXT}",
}


def with_bash(box):
    """Bash is the system's shell, the one that takes functions from the environment."""
    box.extra_arguments += ["--ro-bind", "/usr/bin/bash", "/usr/bin/dash"]


def assert_described(box, environment):
    """The record as ever; bash itself complains about locales that there are not."""
    result = box.command("-localinfo", env=environment)
    assert (result.status, json.loads(result.out)) == (0, box.expected_record())
    assert_nothing_executed(box)


@pytest.mark.row("H1")
@pytest.mark.parametrize("shell", [None, with_bash], ids=["dash", "bash"])
def test_the_callers_shell_variables_change_nothing(identified, shell):
    box = identified("cluster-active", **({"before_start": shell} if shell else {}))
    put_decoys(box)
    assert_described(box, SHELL_VARIABLES)


@pytest.mark.row("H1")
@pytest.mark.full
@pytest.mark.parametrize("name", SHELL_VARIABLES)
def test_each_of_the_callers_shell_variables_changes_nothing(identified, name):
    box = identified("debian12", before_start=with_bash)
    put_decoys(box)
    assert_described(box, {name: SHELL_VARIABLES[name]})


@pytest.mark.row("H1")
def test_the_shell_of_this_test_would_run_an_exported_function(identified):
    box = identified("debian12", before_start=with_bash)
    box.run(["/bin/sh", "-c", "uname -a"], env={"BASH_FUNC_uname%%": SHELL_VARIABLES["BASH_FUNC_uname%%"]})
    assert (box.shared / "output" / "executed").exists()


NETWORK_VARIABLES = {
    "http_proxy": "http://127.0.0.9:1",
    "https_proxy": "http://127.0.0.9:1",
    "HTTPS_PROXY": "http://127.0.0.9:1",
    "ALL_PROXY": "socks5h://127.0.0.9:1",
    "all_proxy": "socks5h://127.0.0.9:1",
    "NO_PROXY": "",
    "SSLKEYLOGFILE": "/shared/output/keys",
    "OPENSSL_CONF": "/shared/decoys/openssl.cnf",
    "OPENSSL_MODULES": "/shared/decoys",
    "OPENSSL_ENGINES": "/shared/decoys",
    "RES_OPTIONS": "timeout:30 attempts:5 debug",
    "LOCALDOMAIN": "decoy.example",
    "HOSTALIASES": "/shared/decoys/aliases",
    "CURL_CA_BUNDLE": "/dev/null",
    "SSL_CERT_FILE": "/dev/null",
    "SSL_CERT_DIR": "/shared/decoys",
    "CURL_HOME": "/shared/decoys",
    "CURL_SSL_BACKEND": "none",
    "NETRC": "/shared/decoys/netrc",
    "HOME": "/shared/decoys",
}


def put_network_decoys(box):
    decoys = box.shared / "decoys"
    decoys.mkdir()
    (decoys / "openssl.cnf").write_text(
        "openssl_conf = start\n[start]\nssl_conf = ssl\n[ssl]\nsystem_default = all\n"
        "[all]\nMaxProtocol = TLSv1.1\nCipherString = NULL\n"
    )
    (decoys / "aliases").write_text("master1.example 127.0.0.9\nmaster1 127.0.0.9\n")
    (decoys / ".curlrc").write_text("proxy = 127.0.0.9:1\n")
    (decoys / "netrc").write_text("default login x password y\n")


@pytest.mark.row("H2")
@pytest.mark.parametrize(
    "names", [pytest.param([name], id=name, marks=pytest.mark.full) for name in NETWORK_VARIABLES]
    + [pytest.param(list(NETWORK_VARIABLES), id="all")],
)
def test_the_callers_network_variables_have_no_effect(enrolled, names):
    put_network_decoys(enrolled)
    contract = Contract(enrolled)
    result = enrolled.command("-update", env={name: NETWORK_VARIABLES[name] for name in names})
    assert (result.status, result.err) == (0, "")
    assert enrolled.cache_file().exists()
    assert not (enrolled.shared / "output" / "keys").exists()
    contract.check(result)
