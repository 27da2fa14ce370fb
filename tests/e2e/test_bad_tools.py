"""System tools and product files that are missing, fail or print what they should not: the record comes about
all the same, or the command ends with the status that says why."""

import json
import os

import pytest

from sandbox import NO_CLUSTER

VERSION_FILE = "/usr/torqv/torquenix/bin/version"
def describe(box, **options):
    result = box.command("-localinfo", **options)
    assert (result.status, result.err) == (0, "")
    return json.loads(result.out)


def errors_but_the_clusters(box):
    return [text for text in box.log_texts(16) if text != NO_CLUSTER]


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
