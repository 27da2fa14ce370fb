"""The manual pages and the guide say what the code does: options, statuses, settings, files."""

import pathlib
import re
import subprocess

import pytest
from manuals import GUIDE, MANUALS, entries, guide_table, items, options
from program_options import COMMAND_OPTIONS, MASTER_COMMANDS, help_options, help_statuses

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
PAGES = sorted(path.name for path in MANUALS.iterdir())
DOCUMENTS = sorted(TOP.glob("*.md")) + sorted((TOP / "docs").glob("*.md"))
RENDERERS = {
    "man": ["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z"],
    "groff": ["groff", "-mandoc", "-Tutf8", "-ww", "-z"],
    "mandoc": ["mandoc", "-T", "lint", "-W", "warning"],
}
SOURCES = ("clusterinfo", "cmd", "enroll", "fileutils", "hostdb", "hostinfo", "platform", "sysinfo", "utils")


def source(path):
    return (TOP / path).read_text()


def code_statuses():
    """The table of statuses: number to text."""
    numbers = dict(re.findall(r"(EC_\w+) = (-?\d+)", source("platform/status.h")))
    table = source("platform/status.cpp").partition("STATUS_TEXTS[] = {")[2].partition("\n};")[0]
    rows = re.findall(r"\{(EC_\w+), \"\w+\",\s*\"([^\"]*)\"\}", table)
    assert len(rows) == table.count("{EC_")
    return {numbers[name]: text for name, text in rows}


def web_refusals():
    """HTTP statuses that the master server refuses with."""
    text = source("masterd/web_service.cpp") + source("masterd/request_body.cpp")
    return set(re.findall(r"(?:Refusal(?: \w+)?\{|refused\(|errorReply\()(\d{3})\b", text))


# Manual pages


def test_there_are_pages_for_every_program_and_the_configuration():
    assert PAGES == ["kx.conf.5", "tqenroll.8", "tqhostdbcmd.8", "tqmasterd.8"]


@pytest.mark.parametrize("renderer", RENDERERS)
@pytest.mark.parametrize("page", PAGES)
def test_a_page_is_rendered_without_a_warning(page, renderer):
    command = [*RENDERERS[renderer], str(MANUALS / page)]
    environment = {"PATH": "/usr/bin:/bin"}
    result = subprocess.run(command, capture_output=True, text=True, timeout=60, env=environment)
    told = result.stderr + (result.stdout if renderer == "mandoc" else "")
    assert (result.returncode, told) == (0, "")


# Statuses


def test_every_status_stands_in_the_manual_page_with_its_text_and_what_to_do():
    found = {}
    for number, text in entries("tqhostdbcmd.8", "STATUSES").items():
        found[number], _, advice = text.partition(". ")
        assert advice, f"what to do with {number}"
    assert found == code_statuses()


def test_every_refusal_of_the_master_server_stands_in_the_manual_page():
    found = {number.removeprefix("7") for number in entries("tqhostdbcmd.8", "Refusals by a master server")}
    assert found | {"500"} == web_refusals()  # 7500 stands among the command's own


@pytest.mark.parametrize(
    ("section", "column"), [("STATUSES", "status"), ("Refusals by a master server", "refusal")]
)
def test_the_guide_says_of_each_status_what_the_manual_page_says(section, column):
    in_page = entries("tqhostdbcmd.8", section)
    in_guide = {number: ". ".join(cells) for number, cells in guide_table(column).items()}
    assert in_guide == in_page


@pytest.mark.parametrize("program", ["tqmasterd", "tqenroll"])
def test_every_exit_status_of_the_help_stands_in_the_manual_page(program, build):
    explained = [item.head for item in items(f"{program}.8") if item.section == "EXIT STATUS"]
    assert {int(head) for head in explained} == set(help_statuses(build, program))


def test_what_the_guide_quotes_of_the_programs_is_what_they_say():
    sources = [path.read_text() for folder in ("cmd", "enroll") for path in (TOP / folder).glob("*.cpp")]
    texts = "".join(re.sub(r"\"\s+\"", "", text) for text in sources)
    quoted = [cell.strip(". ") for cell in guide_table("it says")]
    assert quoted and [text for text in quoted if text not in texts] == []


# Options


def test_every_option_of_the_command_stands_in_the_manual_page_and_in_the_guide():
    assert options("tqhostdbcmd.8") == set(COMMAND_OPTIONS)
    guide = GUIDE.read_text()
    assert [option for option in COMMAND_OPTIONS if not re.search(rf"(?<!\S|-)`?{option}\b", guide)] == []


def test_the_manual_page_of_the_enrolment_program_has_the_options_of_its_help(build):
    assert options("tqenroll.8") == help_options(build, "tqenroll")


def test_the_manual_page_of_the_master_server_has_the_commands_and_options_of_its_help(build):
    known = help_options(build, "tqmasterd")
    for command in MASTER_COMMANDS:
        known |= help_options(build, "tqmasterd", command)
    assert options("tqmasterd.8") == known
    commands = [head for head in entries("tqmasterd.8", "DESCRIPTION") if head.startswith("Cm ")]
    assert commands == [f"Cm {command}" for command in MASTER_COMMANDS]


# Configuration

# What stands around a key where kx.conf is read; a word without quotes is a constant of the same source.
KEY_PATTERNS = (
    r"get_master_config_ptr\(\), (\"?\w+\"?)",
    r"readConfiguredName\((\"\w+\")",
    r"\{(\"\w+\"), &PlatformSettings::",
    r"\.key [!=]= (SERVER_KEY)",
)


def configuration_keys():
    """All keys of kx.conf that some source reads."""
    keys = set()
    for path in (path for folder in SOURCES for path in (TOP / folder).rglob("*.cpp")):
        text = path.read_text()
        for word in (word for pattern in KEY_PATTERNS for word in re.findall(pattern, text)):
            constant = re.search(rf"\b{word} = (\"\w+\")", text)
            keys.add((constant[1] if constant else word).strip('"').upper())
    return keys


def documented_settings():
    heads = {item.head: item.text for item in items("kx.conf.5") if item.head.startswith("Cm ")}
    return {head.removeprefix("Cm "): text for head, text in heads.items()}


def test_every_key_of_the_configuration_that_the_code_reads_stands_in_its_page():
    assert set(documented_settings()) == configuration_keys()


def test_ranges_and_defaults_of_numbers_are_those_of_the_code():
    settings = documented_settings()
    table = source("platform/platform_settings.cpp")
    rows = re.findall(r"\{\"(\w+)\", &PlatformSettings::(\w+), (\d+), (\d+)\}", table)
    assert rows
    for key, member, least, most in rows:
        (default,) = re.findall(rf"int {member} = (\d+);", source("platform/config.h"))
        assert f"from {least} to {most}" in settings[key]
        assert f"Default: {default}." in settings[key]


def test_every_key_of_the_samples_stands_in_the_page():
    known = configuration_keys()
    for sample in sorted((TOP / "packaging").glob("kx.conf*")):
        found = set(re.findall(r"^#?(\w+) = ", sample.read_text(), re.MULTILINE))
        assert found and found <= known, sample


def test_the_settings_of_the_master_server_stand_in_its_page():
    keys = re.findall(r"_KEY = \"(\w+)\"", source("masterd/settings.cpp"))
    page = entries("tqmasterd.8", "FILES")
    assert keys and [key for key in keys if f"Cm {key}" not in page] == []
    for number in re.findall(r"_MAX = (\d+);", source("masterd/settings.cpp")):
        assert any(f"to {number}" in text for text in page.values())


# Files and records


def test_every_path_of_the_build_stands_in_a_manual_page():
    """Folders count as told where something in them is."""
    pages = "".join((MANUALS / page).read_text() for page in PAGES)
    paths = re.findall(r"TQ_\w+ = TQ_INSTALL_ROOT \"(/[^\"]+)\"", source("platform/paths.h"))
    assert len(paths) > 10
    assert [path for path in paths if f"/usr/torqv{path.rstrip('/')}" not in pages] == []


def test_every_key_of_a_record_stands_in_the_manual_page():
    page = (MANUALS / "tqhostdbcmd.8").read_text().partition(".Sh OUTPUT")[2].partition(".Sh")[0]
    words = set(re.findall(r"\w+", page))
    keys = set(re.findall(r"\{\"(\w+)\", ValueType::", source("masterd/host_record.cpp")))
    assert keys and keys - {"uuid"} <= words


def test_every_metric_of_the_status_stands_in_the_manual_page():
    told = {item.head.split()[1] for item in items("tqenroll.8") if item.section == "Metrics"}
    assert told == set(re.findall(r"\"(tqhostdb_\w+)\"", source("enroll/status_report.cpp")))


@pytest.mark.parametrize("document", DOCUMENTS, ids=[path.name for path in DOCUMENTS])
def test_every_link_of_a_document_leads_somewhere(document):
    links = re.findall(r"\]\((?!https?:)([^)#\s]+)", document.read_text())
    assert [link for link in links if not (document.parent / link).exists()] == []
