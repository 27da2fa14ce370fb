"""System tools and product files that are missing, fail or print what they should not: the record comes about
all the same, or the command ends with the status that says why."""

import json
import os

import pytest

from sandbox import NO_CLUSTER

VERSION_FILE = "/usr/torqv/torquenix/bin/version"
LIST_FAILED = [
    "The command to list the packages failed with status [{}].",
    "Failed to get installed package details, errorcode : 7282",
]

# What a tool may do that is of no use.
USELESS = {
    "nothing": "exit 0",
    "fails": "echo nothing of use >&2; exit 3",
    "killed": "kill -9 $$",
    "binary": "head -c 100000 /dev/urandom | tr 'A-Za-z' '\\000-\\063'",
    "nuls": "head -c 100000 /dev/zero",
    "10-megabytes-on-one-line": "head -c 10000000 /dev/zero | tr '\\0' x",
    "empty-lines": "yes '' | head -n 100000",
}


def useless(*names):
    names = names or tuple(USELESS)
    return pytest.mark.parametrize("body", [USELESS[name] for name in names], ids=names)


def describe(box, **options):
    result = box.command("-localinfo", **options)
    assert (result.status, result.err) == (0, "")
    return json.loads(result.out)


def errors_but_the_clusters(box):
    return [text for text in box.log_texts(16) if text != NO_CLUSTER]


# Hypervisor


@pytest.mark.parametrize("tool", ["dmidecode", "lspci", "hostnamectl", "uname"])
@useless()
def test_a_useless_tool_changes_nothing_else_of_the_record(identified, tool, body):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, tool, body)
    result = box.command("-localinfo")  # what uname says on standard error stands on the command's
    assert (result.status, json.loads(result.out)) == (0, box.expected_record())
    assert errors_but_the_clusters(box) == []


@useless()
def test_a_useless_list_of_devices_is_no_vmware(identified, body):
    box = identified("rhel9-vmware-efi")
    box.put_tool(box.sbin, "lspci", body)
    assert describe(box) == box.expected_record()
    assert box.log_of("LinuxVmInfo::getVMwareType") == []
    assert box.log_of("LinuxVmInfo::getVmID") == ["vmId: <NULL>"]


@useless()
def test_a_useless_metadata_answer_is_no_azure_stack(identified, body):
    box = identified("oracle8-azure-stack")
    box.put_tool(box.local_sbin, "curl", body)
    assert describe(box) == box.expected_record() | {"hypervisorType": "HYPERV"}
    assert box.log_of("LinuxVmInfo::isAzureStackVm")[-1] == "isAzureStackVm: 0"


def test_an_answer_of_a_metadata_request_that_failed_does_not_count(identified):
    box = identified("oracle8-azure-stack")
    box.put_tool(box.local_sbin, "curl", "echo subscriptionId; exit 22")
    assert describe(box)["hypervisorType"] == "HYPERV"


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


def test_a_silent_dmidecode_is_said_to_be_empty(identified):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "dmidecode", "exit 0")
    describe(box)
    assert box.log_of("LinuxVmInfo::getUVmTypeUsingDmidecodeCommand") == [
        "dmidecode command output buffer is empty."
    ]


@pytest.mark.parametrize("body, said", [("exit 1", ["dmidecode product name command failed"]), ("exit 0", [])])
def test_a_product_name_that_cannot_be_had_leaves_the_answer_to_the_devices(identified, body, said):
    box = identified("rhel9")
    answers = f'*manufacturer) echo "Red Hat" ;; *) {body} ;;'
    box.put_tool(box.local_sbin, "dmidecode", f'case "$2" in {answers} esac')
    assert describe(box)["hypervisorType"] == "RHV"
    assert box.log_of("LinuxVmInfo::getUVmTypeUsingDmidecodeCommand")[1:] == [*said, "uvmType: 0"]


def test_a_keyword_far_behind_on_a_long_line_is_found_and_one_across_two_pieces_is_not(identified):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "lspci", "head -c 100000 /dev/zero | tr '\\0' x; echo VMware")
    assert describe(box)["hypervisorType"] == "VMWARE"
    box.put_tool(box.local_sbin, "lspci", "head -c 2044 /dev/zero | tr '\\0' x; echo VMware")
    assert describe(box)["hypervisorType"] == "NONE"


def test_a_keyword_behind_a_nul_is_not_seen(identified):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "lspci", "printf 'Host bridge\\0VMware\\n'")
    assert describe(box)["hypervisorType"] == "NONE"


@pytest.mark.parametrize("tool", ["dmidecode", "lspci", "hostnamectl"])
def test_a_missing_tool_is_named_and_the_next_one_asked(identified, tool):
    box = identified("rhel7-physical", before_start=lambda box: box.remove_tool(tool))
    assert describe(box) == box.expected_record()
    name = {"dmidecode": "dmideocde"}.get(tool, tool)
    assert f"Failed to find location of {name} binary." in box.log_texts(2)


# Packages


@useless("nothing", "empty-lines")
def test_an_rpm_that_lists_nothing_gives_no_packages(identified, body):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "rpm", body)
    assert describe(box) == box.expected_record() | {"installedPackages": ""}


@pytest.mark.parametrize("body, status", [("echo XRVNtqclt-9.1-1; exit 3", 3), ("exit 255", 255)])
def test_an_rpm_that_fails_gives_no_packages_even_if_it_listed_some(identified, body, status):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "rpm", body)
    assert describe(box) == box.expected_record() | {"installedPackages": ""}
    assert errors_but_the_clusters(box) == [text.format(status) for text in LIST_FAILED]


def test_a_missing_rpm_gives_no_packages(identified):
    box = identified("rhel7-physical", before_start=lambda box: box.remove_tool("rpm"))
    assert describe(box) == box.expected_record() | {"installedPackages": ""}
    assert errors_but_the_clusters(box) == [text.format(127) for text in LIST_FAILED]


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


def test_a_list_that_is_no_text_is_left_out_of_the_record_and_the_rest_stays(identified):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "rpm", "printf 'XRVN\\377\\376-1-1\\nXRVNb-2-1\\n'")
    record = describe(box)
    assert record.pop("installedPackages", None) is None
    assert record.items() < box.expected_record().items()


def test_control_characters_of_the_list_stay_in_the_record(identified):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "rpm", "printf 'XRVN\\001b-2-1\\nXRVN\\033[2J-3-1\\n'")
    assert describe(box)["installedPackages"] == "XRVN\x01b_2,XRVN\x1b[2J_3"


def test_a_nul_in_the_list_does_not_lose_the_record(identified):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "rpm", "printf 'XRVNa-1-1\\nXRVN\\0b-2-1\\nXRVNc-3-1\\n'")
    record = describe(box)
    assert record["installedPackages"].startswith("XRVNa_1,XRVN")
    assert record | {"installedPackages": ""} == box.expected_record() | {"installedPackages": ""}


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


def test_ten_megabytes_on_one_line_are_no_package_or_too_long_a_list(identified):
    box = identified("rhel7-physical")
    box.put_tool(box.local_sbin, "rpm", USELESS["10-megabytes-on-one-line"])
    assert describe(box)["installedPackages"] == ""
    assert errors_but_the_clusters(box) == ["No version delimiter found in the current line."]
    box.forget_log()
    box.put_tool(box.local_sbin, "rpm", "printf 'XRVN-'; " + USELESS["10-megabytes-on-one-line"])
    assert describe(box)["installedPackages"] == ""
    assert "Failed to get installed package details, errorcode : 7289" in box.log_texts(16)


# Hotfixes


@pytest.fixture
def summary(identified):
    """A host and its pack summary, not there yet."""
    box = identified("debian12")
    file = box.torqv / "pack" / "pack.summary"
    file.parent.mkdir()
    return box, file


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


def test_a_summary_that_is_cut_off_and_damaged_keeps_the_bundles_that_can_be_read(summary):
    box, file = summary
    lines = [b"\xff\0 HFX_Torquenix_9.1_PET9_SET1\r", b"\0", b"HFX_Torquenix_9.1_PET1_SET1 x"]
    file.write_bytes(b"\n".join([*lines, b"HFX_Torquenix_9.2_PET5_SET"]))
    assert describe(box)["installedHFXs"].split(",") == [
        "Torquenix_9.1_PET1_SET1",
        "Torquenix_9.1_PET9_SET1\r",
        "Torquenix_9.2_PET5_SET",
    ]


@pytest.mark.parametrize("make", [lambda file: file.mkdir(), os.mkfifo], ids=["folder", "fifo"])
def test_a_summary_that_cannot_be_read_ends_the_load_with_7501(summary, make):
    box, file = summary
    make(file)
    check_that_the_summary_ends_the_load(box)


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


def test_a_summary_that_is_a_link_to_nowhere_means_none(summary):
    box, file = summary
    file.symlink_to("/nowhere")
    assert describe(box) == box.expected_record()
    assert (
        "pack.summary file does not exist, considering no HFX's installed on machine" in box.log_texts(2)
    )


# Version files


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


def test_empty_version_files_of_a_server_give_the_programs_own_version(identified):
    box = identified("sles15")
    for file in ("torquenix/version", "torquenix/bin/version"):
        (box.torqv / file).write_text("")
    assert describe(box) == box.expected_record()
    assert "Torquenix version not found in version file: [/usr/torqv/torquenix/version]." in box.log_texts(16)


# Release files


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
