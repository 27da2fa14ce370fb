"""Completion of the three programs, in real interactive shells."""

import re

import pytest
from program_options import COMMAND_OPTIONS, MASTER_COMMANDS, help_options, long_options
from sandbox import Sandbox
from shells import COMPLETIONS, InteractiveShell

# What has to stand on the line before an option makes sense.
CONTEXTS = {
    ("tqenroll", "--json"): "--status ",
    ("tqenroll", "--metrics"): "--status ",
    ("tqenroll", "--if-needed"): "--renew ",
}


@pytest.fixture(scope="module", params=["bash", "zsh"])
def shell(request, build, tmp_path_factory):
    """A shell on a host with the master servers of its kx.conf, one by a name that a shell might run."""
    folder = tmp_path_factory.mktemp(request.param)
    box = Sandbox(build, folder / "sandbox")
    box.write_config("SERVER = master1.example", "server=master2.example", "SERVER = $(id).example")
    home = folder / "home"
    home.mkdir()
    mounts = ["--ro-bind", str(COMPLETIONS), str(COMPLETIONS), "--bind", str(home), str(home)]
    with InteractiveShell(request.param, home, box.arguments() + mounts) as started:
        yield started


@pytest.mark.parametrize("typed", ["-upd", "-UPD", "-Update"])
def test_an_option_of_the_command_is_completed_in_any_case(shell, typed):
    assert shell.complete(f"tqhostdbcmd {typed}") == "tqhostdbcmd -update "


def test_every_option_of_the_command_is_offered(shell):
    assert shell.completions("tqhostdbcmd -") == sorted(COMMAND_OPTIONS)


@pytest.mark.parametrize(
    ("given", "offered"),
    [
        ("-update", {"-force", "-daemon"}),
        ("-UPDATE -Force", {"-daemon"}),
        ("-read", {"-hostname", "-hostid", "-display"}),
        ("-ReadAllHosts", {"-display"}),
        ("-reloadconfig", {"-host", "-security"}),
        ("-reloadconfig -host", set()),
        ("-localinfo", set()),
        ("-delete", set()),
    ],
)
def test_an_operation_leaves_its_own_options(shell, given, offered):
    assert shell.completions(f"tqhostdbcmd {given} -") == sorted(offered)


def test_a_value_is_no_option(shell):
    assert shell.completions("tqhostdbcmd -read -hostid -") == []


@pytest.mark.parametrize(
    ("given", "offered"),
    [
        ("tqenroll --status", {"--json", "--metrics"}),
        ("tqenroll --status --json", set()),
        ("tqenroll --renew", {"--if-needed", "--server", "--cluster"}),
        ("tqenroll --invitation x", {"--server", "--fingerprint", "--cluster"}),
        ("tqmasterd serve --request-log x", {"--data", "--listen"}),
        ("tqmasterd invite --data /tmp", {"--host", "--cluster", "--expires-in"}),
    ],
)
def test_what_was_asked_for_leaves_its_own_options(shell, given, offered):
    found = set(shell.completions(f"{given} --")) - {"--help", "--no-request-log"}
    assert found == offered


def test_a_server_is_one_of_the_configuration(shell):
    assert shell.completions("tqenroll --server ") == ["master1.example", "master2.example"]
    line = "tqenroll --remove --server master2"
    assert shell.complete(line) == f"{line}.example "


def test_a_folder_is_completed_as_a_path(shell):
    assert shell.complete("tqmasterd serve --data /usr/tor") == "tqmasterd serve --data /usr/torqv/"


def test_every_option_of_the_enrolment_program_is_completed(shell, build):
    for option in long_options(build, "tqenroll"):
        context = CONTEXTS.get(("tqenroll", option), "")
        assert shell.complete(f"tqenroll {context}{option[:-1]}") == f"tqenroll {context}{option} "


def test_every_command_and_option_of_the_master_server_is_completed(shell, build):
    for command in MASTER_COMMANDS:
        assert shell.complete(f"tqmasterd {command[:-1]}") == f"tqmasterd {command} "
        for option in long_options(build, "tqmasterd", command):
            line = f"tqmasterd {command} {option}"
            assert shell.complete(line[:-1]) == f"{line} "
    for option in long_options(build, "tqmasterd"):
        assert shell.complete(f"tqmasterd {option[:-1]}") == f"tqmasterd {option} "


@pytest.mark.parametrize("program", ["tqenroll", "tqmasterd"])
def test_nothing_is_offered_that_the_program_does_not_know(build, program):
    known = help_options(build, program)
    for command in MASTER_COMMANDS if program == "tqmasterd" else ():
        known |= help_options(build, program, command)
    for file in (COMPLETIONS / "bash" / program, COMPLETIONS / "zsh" / f"_{program}"):
        assert options_in(file.read_text()) <= known


def options_in(text):
    """The options with two dashes that a completion's text holds, remarks left out."""
    lines = (line.partition("# ")[0] for line in text.splitlines())
    return {option for line in lines for option in re.findall(r"(?<![\w-])--[a-z][a-z-]+", line)}
