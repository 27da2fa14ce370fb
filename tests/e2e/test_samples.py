"""The readers of texts of real hosts, over every text of ../shared/samples where that folder is there.

No reader may crash or hang, whatever text it gets; what release files and processors say is computed here a
second time, in a few lines of another language.
"""

import csv
import os
import pathlib
import subprocess
import warnings

import pytest

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
SAMPLES = TOP.parent / "shared" / "samples"
IN_SANDBOX = TOP / "tests" / "unit" / "in-sandbox"
SECONDS = 300
VMWARE, HYPER_V, RED_HAT = b"1", b"2", b"5"


@pytest.fixture(scope="session")
def values(build):
    """Reader and file (its path below the samples) to value; None, said aloud, when there is nothing to read
    or nothing to read it with."""
    program = build / "bin" / "sample_readers"
    for needed in (SAMPLES, program):
        if not needed.exists():
            warnings.warn(f"{needed} is not there: no texts of real hosts were read")
            return None
    files = sorted(str(file) for file in SAMPLES.rglob("*") if file.is_file())
    # No reader keeps a block, so a sanitized one need not unwind the slow way.
    environment = {**os.environ, "ASAN_OPTIONS": "fast_unwind_on_malloc=1"}
    run = subprocess.run(
        [IN_SANDBOX, program, *files], env=environment, capture_output=True, timeout=SECONDS, check=False
    )
    assert (run.returncode, run.stderr) == (0, b"")
    found = {}
    for line in run.stdout.decode(errors="surrogateescape").splitlines():
        file, reader, value = line.split("\t")
        name = str(pathlib.Path(file).relative_to(SAMPLES))
        found[reader, name] = None if value == "throws" else bytes.fromhex(value)
    names = {str(pathlib.Path(file).relative_to(SAMPLES)) for file in files}
    assert {name for _reader, name in found} == names
    return found


def of_reader(values, reader):
    return {name: value for (found, name), value in (values or {}).items() if found == reader}


# The rules once more. A reader throws where a line ends right at its key: None stands for that here.


def lines_of(text):
    return text.split(b"\n") if not text.endswith(b"\n") else text.split(b"\n")[:-1]


def unquoted(value):
    return value.strip(b'" ') or value


def without_build_number(version):
    return version[:-5] if version.count(b".") >= 2 else version


def after(key, line):
    rest = line.partition(key)[2]
    return rest[1:] if rest else None


def display_name(text):
    for line in lines_of(text):
        if b"PRETTY_NAME" in line:
            value = after(b"PRETTY_NAME", line)
            return None if value is None else unquoted(value)
    return b""


def version_id(text):
    release = b"Unknown"
    for line in lines_of(text):
        if b"VERSION_ID" in line:
            value = after(b"VERSION_ID", line)
            if value is None:
                return None
            release = without_build_number(unquoted(value))
    return release


def release_word(text):
    release = b"Unknown"
    for line in lines_of(text):
        if b"release" in line and b" " in line:
            value = after(b"release", line)
            if value is None:
                return None
            release = without_build_number(value.partition(b" ")[0])
    return release


@pytest.mark.parametrize(
    "reader, rule", [("displayName", display_name), ("versionId", version_id), ("releaseWord", release_word)]
)
def test_every_text_gives_the_release_that_the_rule_gives(values, reader, rule):
    given = of_reader(values, reader)
    assert given == {name: rule((SAMPLES / name).read_bytes()) for name in given}


def test_the_rules_know_the_releases_that_we_know():
    # Against a rule that is wrong in both places in the same way.
    assert display_name(b'NAME=x\nPRETTY_NAME="A Linux 1.2"\nPRETTY_NAME=B') == b"A Linux 1.2"
    assert version_id(b'VERSION_ID="8.4"\n') == b"8.4"
    assert release_word(b"CentOS Linux release 7.9.2009 (Core)\n") == b"7.9"
    assert release_word(b"Red Hat Enterprise Linux Server release 7.9 (Maipo)") == b"7.9"
    assert release_word(b"SUSE Linux Enterprise Server 12 (x86_64)\nVERSION = 12\n") == b"Unknown"
    assert release_word(b"a release") is None


def test_sockets_are_the_different_physical_ids_or_else_the_processors(values):
    given = of_reader(values, "sockets")
    with open(SAMPLES / "cpuinfo-counts.tsv" if given else os.devnull, encoding="utf-8") as table:
        rows = {row["file"]: row for row in csv.DictReader(table, delimiter="\t", quoting=csv.QUOTE_NONE)}
    told = {name: row for name, row in rows.items() if name in given}
    sockets = {name: row["distinct physical id"] for name, row in told.items()}
    expected = {
        name: told[name]['"processor" lines'] if count == "none" else count for name, count in sockets.items()
    }
    assert {name: given[name].decode() for name in expected} == expected


def test_a_guest_is_told_from_a_physical_host_by_its_processors_flags(values):
    given = of_reader(values, "isVm")
    expected = {name: b"%d" % (b"hypervisor" in (SAMPLES / name).read_bytes().lower()) for name in given}
    assert given == expected


@pytest.mark.parametrize(
    "name, reader, family",
    [
        ("lspci/vmware-short", "lspci", VMWARE),
        ("lspci/vmware-bios-nn", "isVMware", b"1"),
        ("lspci/hyperv-gen1-azure", "lspci", HYPER_V),
        ("lspci/kvm-i440fx", "lspci", RED_HAT),
        ("lspci/aws-nitro", "lspci", b"0"),
        ("hostnamectl/rhel9.0-vmware", "hostnamectl", VMWARE),
        ("hostnamectl/rhel8.7-azure", "hostnamectl", HYPER_V),
        ("hostnamectl/ubuntu22.04-openstack", "hostnamectl", RED_HAT),
        ("hostnamectl/amazon2023-nitro", "hostnamectl", b"0"),
        ("hostnamectl/ubuntu18.04-baremetal", "hostnamectl", b"0"),
    ],
)
def test_devices_and_systemd_name_the_family(values, name, reader, family):
    if values is not None:
        assert values[reader, name] == family
