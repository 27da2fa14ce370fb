"""System tools that are missing, fail or print what they should not: the record comes about all the same, and
something says what was missed."""

import dataclasses
import json
import pathlib
import re

import pytest

from contract import Contract
from local_info import describe, errors_but_the_clusters

LIST_FAILED = [
    "The command to list the packages failed with status [{}].",
    "Failed to get installed package details, errorcode : 7282",
]


# A tool that is not to be had


@dataclasses.dataclass(frozen=True)
class Tool:
    """A tool of an image, what the record lacks without it, and what then is said, in the log or on standard
    error."""

    image: str
    places: tuple  # folder of the sandbox and name
    says: str
    lacks: dict = dataclasses.field(default_factory=dict)


def cluster_tool(name, names):
    """A tool of the cluster manager, and the shared names that remain without it."""
    return Tool(
        "cluster-active",
        (("opt", f"XRVNhxm/bin/{name}"),),
        f"^sh: 1: /opt/XRVNhxm/bin/{name}: ",
        {"clusterSharedNames": names},
    )


TOOLS = {
    # The next probe in the chain takes the devices of its virtual machine for another hypervisor.
    "dmidecode": Tool(
        "nutanix-ahv",
        (("local_sbin", "dmidecode"),),
        r"^Failed to find location of dmideocde binary\.|^dmidecode system-manufacturer failed\.",
        {"hypervisorType": "RHV"},
    ),
    "lspci": Tool(
        "rocky8-rhv",
        (("local_sbin", "lspci"), ("sbin", "lspci")),
        r"^Failed to find location of lspci binary\.|^lspci command failed",
    ),
    "hostnamectl": Tool("sles12", (("local_sbin", "hostnamectl"),), "^hostnamectl command failed"),
    "lspci-of-sbin": Tool("rhel9-vmware-efi", (("sbin", "lspci"),), "^lspci command failed"),
    "curl": Tool(
        "oracle8-azure-stack",
        (("local_sbin", "curl"),),
        "^curl command failed",
        {"hypervisorType": "HYPERV"},
    ),
    # Nobody says that this is Debian, so its packages are asked of rpm, which it has not.
    "uname": Tool(
        "debian12",
        (("local_sbin", "uname"),),
        r"^The command to list the packages failed with status \[127\]\.",
        {"installedPackages": "", "kqUpdatePlatform": "linux-rpm-x86_64"},
    ),
    "rpm": Tool(
        "rhel7-physical",
        (("local_sbin", "rpm"),),
        r"^The command to list the packages failed with status \[12[67]\]\.",
        {"installedPackages": ""},
    ),
    "hxstatus": Tool(
        "cluster-active",
        (("opt", "XRVNhxm/bin/hxstatus"),),
        "^retrieveClusterSharedNames status : 32(512|256)",
        {"clusterSharedNames": []},
    ),
    "hxclus": cluster_tool("hxclus", ["tqmaster", "tqmaster.example", "tqmaster6", "tqmaster6.example"]),
    "hxsys": cluster_tool("hxsys", []),
    "hxres": cluster_tool("hxres", ["tqcluster"]),
}


def remove(tool):
    tool.unlink()


def forbid(tool):
    tool.chmod(0o644)


def make_foreign(tool):
    """A program for a machine that nobody has."""
    program = bytearray(pathlib.Path("/usr/bin/true").read_bytes()[:4096])
    program[18:20] = b"\xf7\x00"
    tool.write_bytes(program)


def drop_first_line(tool):
    """A script without its "#!" line."""
    tool.write_text(tool.read_text().split("\n", 1)[1])


UNUSABLE = {"missing": remove, "not-executable": forbid, "of-another-machine": make_foreign}
QUICK_UNUSABLE = {"dmidecode-missing", "rpm-of-another-machine", "hxclus-not-executable", "hxstatus-missing"}


def unusable_tools():
    for tool in TOOLS:
        for trouble in UNUSABLE:
            name = f"{tool}-{trouble}"
            marks = [] if name in QUICK_UNUSABLE else [pytest.mark.full]
            yield pytest.param(TOOLS[tool], UNUSABLE[trouble], id=name, marks=marks)


@pytest.mark.row("G1")
@pytest.mark.parametrize("tool, spoil", unusable_tools())
def test_a_tool_that_cannot_be_run_is_missed_by_its_own_fact_alone(identified, tool, spoil):
    def spoil_all(box):
        for folder, name in tool.places:
            spoil(getattr(box, folder) / name)

    box = identified(tool.image, before_start=spoil_all)
    contract = Contract(box)
    result = box.command("-localinfo")
    assert result.status == 0
    assert json.loads(result.out) == box.expected_record() | tool.lacks
    said = result.err.splitlines() + box.log_texts()
    assert any(re.search(tool.says, text) for text in said)
    contract.check(result)


@pytest.mark.row("G1")
@pytest.mark.parametrize(
    "tool", [pytest.param(TOOLS[name], id=name, marks=[pytest.mark.full] * (name != "rpm")) for name in TOOLS]
)
def test_a_script_without_its_first_line_is_run_by_the_shell(identified, tool):
    folder, name = tool.places[0]
    box = identified(tool.image, before_start=lambda box: drop_first_line(getattr(box, folder) / name))
    assert describe(box) == box.expected_record()


@pytest.mark.row("G1")
@pytest.mark.full
def test_without_cat_the_facts_of_files_are_missed(identified):
    box = identified("debian12", before_start=lambda box: box.remove_tool("cat"))
    lacks = {"hostName": "<NULL>", "hwDescription": ", 4 CPUs"}
    assert describe(box) == box.expected_record() | lacks
    assert "cat command failed" in box.log_of("LinuxHardwareInfo::getModelName")


@pytest.mark.row("G1")
@pytest.mark.full
def test_without_which_no_tool_is_found(identified):
    box = identified("nutanix-ahv", before_start=lambda box: (box.etc / "alternatives" / "which").unlink())
    assert describe(box) == box.expected_record() | {"hypervisorType": "NONE"}
    assert "Failed to find location of dmideocde binary." in box.log_texts(2)


# A tool that says nothing of use

# Row and what the tool does.
USELESS = {
    "nothing": ("G4", "exit 0"),
    "fails": ("G5", "echo nothing of use >&2; exit 3"),
    "killed": ("G5", "kill -9 $$"),
    "binary": ("G4", "head -c 100000 /dev/urandom | tr 'A-Za-z' '\\000-\\063'"),
    "nuls": ("G4", "head -c 100000 /dev/zero"),
    "not-utf-8": ("G4", "printf '\\377\\376\\300\\200\\355\\240\\200\\n'"),
    "10-megabytes-on-one-line": ("G4", "head -c 10000000 /dev/zero | tr '\\0' x"),
    "empty-lines": ("G4", "yes '' | head -n 100000"),
    "no-line-end": ("G4", "printf 'nothing of use'"),
}


def useless(*names, quick=()):
    """Each of the named ways, or all, those outside `quick` in the full run alone."""
    params = []
    for name in names or USELESS:
        row, body = USELESS[name]
        marks = [pytest.mark.row(row)] + ([] if name in quick else [pytest.mark.full])
        params.append(pytest.param(body, id=name, marks=marks))
    return pytest.mark.parametrize("body", params)


# Hypervisor


QUICK_OF_TOOL = {
    "dmidecode": "killed",
    "lspci": "10-megabytes-on-one-line",
    "hostnamectl": "nuls",
    "uname": "binary",
}


def useless_answers():
    for tool, quick in QUICK_OF_TOOL.items():
        for name, (row, body) in USELESS.items():
            marks = [pytest.mark.row(row)] + ([] if name == quick else [pytest.mark.full])
            yield pytest.param(tool, body, id=f"{tool}-{name}", marks=marks)


@pytest.mark.parametrize("tool, body", useless_answers())
def test_a_useless_tool_changes_nothing_else_of_the_record(identified, tool, body):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, tool, body)
    result = box.command("-localinfo")  # what uname says on standard error stands on the command's
    assert (result.status, json.loads(result.out)) == (0, box.expected_record())
    assert errors_but_the_clusters(box) == []


@useless(quick=["not-utf-8"])
def test_a_useless_list_of_devices_is_no_vmware(identified, body):
    box = identified("rhel9-vmware-efi")
    box.put_tool(box.sbin, "lspci", body)
    assert describe(box) == box.expected_record()
    assert box.log_of("LinuxVmInfo::getVMwareType") == []
    assert box.log_of("LinuxVmInfo::getVmID") == ["vmId: <NULL>"]


@useless(quick=["binary"])
def test_a_useless_metadata_answer_is_no_azure_stack(identified, body):
    box = identified("oracle8-azure-stack")
    box.put_tool(box.local_sbin, "curl", body)
    assert describe(box) == box.expected_record() | {"hypervisorType": "HYPERV"}
    assert box.log_of("LinuxVmInfo::isAzureStackVm")[-1] == "isAzureStackVm: 0"


@pytest.mark.row("G5")
@pytest.mark.full
def test_an_answer_of_a_metadata_request_that_failed_does_not_count(identified):
    box = identified("oracle8-azure-stack")
    box.put_tool(box.local_sbin, "curl", "echo subscriptionId; exit 22")
    assert describe(box)["hypervisorType"] == "HYPERV"


@pytest.mark.row("G5")
def test_an_answer_of_a_tool_that_failed_does_not_count(identified):
    box = identified("rhel7-physical")
    for tool in ("dmidecode", "lspci", "hostnamectl"):
        box.put_tool(box.local_sbin, tool, "echo Virtualization: vmware; exit 1")
    assert describe(box)["hypervisorType"] == "NONE"
    assert box.log_of("LinuxVmInfo::getUVmTypeUsingDmidecodeCommand") == [
        "dmidecode system-manufacturer failed."
    ]
    assert box.log_of("LinuxVmInfo::getUVmTypeUsingLspciCommand") == ["lspci command failed", "uvmType: 0"]
    assert box.log_of("LinuxVmInfo::getUVmTypeUsingHostnameCtlCommand") == [
        "hostnamectl command failed",
        "uvmType: 0",
    ]


@pytest.mark.row("G4")
@pytest.mark.full
def test_a_silent_dmidecode_is_said_to_be_empty(identified):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "dmidecode", "exit 0")
    describe(box)
    assert box.log_of("LinuxVmInfo::getUVmTypeUsingDmidecodeCommand") == [
        "dmidecode command output buffer is empty."
    ]


@pytest.mark.row("G5")
@pytest.mark.full
@pytest.mark.parametrize(
    "body, said", [("exit 1", ["dmidecode product name command failed"]), ("exit 0", [])]
)
def test_a_product_name_that_cannot_be_had_leaves_the_answer_to_the_devices(identified, body, said):
    box = identified("rhel9")
    answers = f'*manufacturer) echo "Red Hat" ;; *) {body} ;;'
    box.put_tool(box.local_sbin, "dmidecode", f'case "$2" in {answers} esac')
    assert describe(box)["hypervisorType"] == "RHV"
    assert box.log_of("LinuxVmInfo::getUVmTypeUsingDmidecodeCommand")[1:] == [*said, "uvmType: 0"]


@pytest.mark.row("G4")
@pytest.mark.full
def test_a_keyword_far_behind_on_a_long_line_is_found_and_one_across_two_pieces_is_not(identified):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "lspci", "head -c 100000 /dev/zero | tr '\\0' x; echo VMware")
    assert describe(box)["hypervisorType"] == "VMWARE"
    box.put_tool(box.local_sbin, "lspci", "head -c 2044 /dev/zero | tr '\\0' x; echo VMware")
    assert describe(box)["hypervisorType"] == "NONE"


@pytest.mark.row("G4")
def test_a_keyword_behind_a_nul_is_not_seen(identified):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "lspci", "printf 'Host bridge\\0VMware\\n'")
    assert describe(box)["hypervisorType"] == "NONE"


# Packages


@useless("nothing", "empty-lines", quick=["nothing"])
def test_an_rpm_that_lists_nothing_gives_no_packages(identified, body):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "rpm", body)
    assert describe(box) == box.expected_record() | {"installedPackages": ""}


@pytest.mark.row("G5")
@pytest.mark.parametrize("body, status", [("echo XRVNtqclt-9.1-1; exit 3", 3), ("exit 255", 255)])
def test_an_rpm_that_fails_gives_no_packages_even_if_it_listed_some(identified, body, status):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "rpm", body)
    assert describe(box) == box.expected_record() | {"installedPackages": ""}
    assert errors_but_the_clusters(box) == [text.format(status) for text in LIST_FAILED]


@pytest.mark.row("G4")
@pytest.mark.full
@pytest.mark.parametrize(
    "line, entry",
    [
        ("XRVNtqclt-9.1.0.1-0025.x86_64", "XRVNtqclt_9.1.0.1"),
        ("XRVNtqclt-9.1", "XRVNtqclt_9.1"),
        ("XRVNtqclt-", "XRVNtqclt_"),
        ("-", "_"),
        ("--", "_"),
        ("a-b-c-d-e", "a_b"),
        ("XRVNtqclt-9.1\\r", "XRVNtqclt_9.1\\r"),
        ("XRVNtqclt 9.1", None),
        ("", None),
        ("error: damaged header 5 retrieved -- skipping.", "error: damaged header 5 retrieved _"),
        ("one,two-3-4", "one,two_3"),
    ],
)
def test_a_damaged_line_of_the_list_is_cut_like_any_other(identified, line, entry):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "rpm", f"printf 'XRVNa-1-1\\n{line}\\nXRVNz-1-1\\n'")
    entries = ["XRVNa_1", *([entry.replace("\\r", "\r")] if entry else []), "XRVNz_1"]
    assert describe(box)["installedPackages"] == ",".join(entries)
    skipped = ["No version delimiter found in the current line."] if entry is None else []
    assert errors_but_the_clusters(box) == skipped


@pytest.mark.row("G4")
def test_a_list_that_is_no_text_is_left_out_of_the_record_and_the_rest_stays(identified):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "rpm", "printf 'XRVN\\377\\376-1-1\\nXRVNb-2-1\\n'")
    record = describe(box)
    assert record.pop("installedPackages", None) is None
    assert record.items() < box.expected_record().items()


@pytest.mark.row("G4")
@pytest.mark.full
def test_control_characters_of_the_list_stay_in_the_record(identified):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "rpm", "printf 'XRVN\\001b-2-1\\nXRVN\\033[2J-3-1\\n'")
    assert describe(box)["installedPackages"] == "XRVN\x01b_2,XRVN\x1b[2J_3"


@pytest.mark.row("G4")
def test_a_nul_in_the_list_does_not_lose_the_record(identified):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "rpm", "printf 'XRVNa-1-1\\nXRVN\\0b-2-1\\nXRVNc-3-1\\n'")
    record = describe(box)
    assert record["installedPackages"].startswith("XRVNa_1,XRVN")
    assert record | {"installedPackages": ""} == box.expected_record() | {"installedPackages": ""}


@pytest.mark.row("G4")
@pytest.mark.full
@pytest.mark.parametrize("length, kept", [(2048, True), (2049, False)])
def test_a_list_of_2048_characters_is_kept_and_one_more_empties_it(identified, length, kept):
    box = identified("rhel7-physical")
    name = "x" * (length - len("XRVNa_1,_1"))
    box.put_tool(box.local_sbin, "rpm", f"printf 'XRVNa-1-1\\n{name}-1-1\\n'")
    assert describe(box)["installedPackages"] == (f"XRVNa_1,{name}_1" if kept else "")
    too_long = [
        "Installed packages value exceeds the max allowed length of 2048. Setting to empty value.",
        "Failed to get installed package details, errorcode : 7289",
    ]
    assert errors_but_the_clusters(box) == ([] if kept else too_long)


@pytest.mark.row("G4")
@pytest.mark.full
def test_ten_megabytes_on_one_line_are_no_package_or_too_long_a_list(identified):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "rpm", USELESS["10-megabytes-on-one-line"][1])
    assert describe(box)["installedPackages"] == ""
    assert errors_but_the_clusters(box) == ["No version delimiter found in the current line."]
    box.forget_log()
    box.put_tool(box.local_sbin, "rpm", "printf 'XRVN-'; " + USELESS["10-megabytes-on-one-line"][1])
    assert describe(box)["installedPackages"] == ""
    assert "Failed to get installed package details, errorcode : 7289" in box.log_texts(16)
