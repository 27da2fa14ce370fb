"""What a difference between the record and the one that was sent last brings about."""

import json

import pytest

COMPARISON = "CHostInformation::operator=="


@pytest.fixture
def updated(enrolled, scripted):
    """A host whose record was sent once, and the server that it was sent to."""
    server = scripted()
    assert enrolled.command("-update").status == 0
    assert sent(server) == 1
    enrolled.forget_log()
    return enrolled, server


def sent(server):
    return len([request for request in server.requests() if request["method"] == "PUT"])


def change_cache(box, key, value):
    """The record that was sent last had another value; the value that it has is returned."""
    record = json.loads(box.cache_file().read_text())
    now = record.get(key, "")
    record[key] = value
    box.cache_file().write_text(json.dumps(record) + "\n")
    return now


# Key, value that was sent last, and the line of the log, where {} is the value that this host has.
COMPARED = [
    ("installedHFXs", "A,B", "Installed HFX A, B and {} mismatched "),
    ("installedPackages", "P_1", "Installed packages P_1 and {} mismatched "),
    ("kqUpdatePlatform", "solaris", "KqUpdate platform solaris and {} mismatched "),
    ("uuid", "11111111-2222", "UUID 11111111-2222 and {} mismatched."),
    ("hostName", "Debian12.example", "host name Debian12.example and {} mismatched."),
    ("masterServer", "other.example", "master server other.example and {} mismatched."),
    ("osType", "Unix", "OS type Unix and {} mismatched "),
    ("osVersion", "RedHat Linux (5)", "OS version RedHat Linux (5) and {} mismatched "),
    ("hwDescription", "none, 1 CPUs", "Hardware description none, 1 CPUs and {} mismatched "),
    ("cpuArchitecture", "sparc", "CPU architecture sparc and {} mismatched "),
    ("tquVersion", "Torquenix_9.0", "TQU version Torquenix_9.0 and {} mismatched "),
    ("servers", ["b.example", "a.example"], "Servers b.example, a.example and {} mismatched "),
    ("isSecureEnabled", False, "isSecureEnabled [0] and [1] mismatched "),
    ("trustVersion", "2", "Trust version 2 and {} mismatched."),
    ("machineType", "VIRTUAL", "machineType VIRTUAL and {} mismatched "),
    ("hypervisorType", "RHV", "hypervisorType RHV and {} mismatched "),
    ("machineTquType", "APPLIANCE", "machineTquType APPLIANCE and {} mismatched."),
]


def shown(key, value):
    if isinstance(value, list):
        return ", ".join(value)
    return value.replace(",", ", ") if key in ("installedHFXs", "installedPackages") else value


@pytest.mark.parametrize("key, last, line", COMPARED, ids=[key for key, _last, _line in COMPARED])
def test_a_difference_is_sent_once_and_the_log_names_it(updated, key, last, line):
    box, server = updated
    now = change_cache(box, key, last)
    assert box.command("-update").status == 0
    assert sent(server) == 2
    (entry,) = [entry for entry in box.log() if entry.context == COMPARISON]
    expected = line if key == "isSecureEnabled" else line.format(shown(key, now))
    assert (entry.level, entry.text) == (2, expected)
    assert box.command("-update").status == 0
    assert sent(server) == 2


@pytest.mark.parametrize(
    "key, last", [("clusterSharedNames", ["old", "old.example"]), ("osReleaseVersion", "11")]
)
def test_a_difference_in_what_is_not_compared_sends_nothing_and_logs_nothing(updated, key, last):
    box, server = updated
    change_cache(box, key, last)
    before = box.cache_file().read_text()
    assert box.command("-update").status == 0
    assert sent(server) == 1
    assert box.log_of(COMPARISON) == []
    assert "Cached host information and local host information are same" in box.log_texts(2)
    assert box.cache_file().read_text() == before


def test_only_the_first_difference_is_named(updated):
    box, server = updated
    change_cache(box, "machineType", "VIRTUAL")
    change_cache(box, "clusterSharedNames", ["old"])
    change_cache(box, "tquVersion", "Torquenix_9.0")
    assert box.command("-update").status == 0
    assert sent(server) == 2
    assert box.log_of(COMPARISON) == ["TQU version Torquenix_9.0 and Torquenix_9.1.0.1 mismatched "]


def test_lists_in_another_order_are_different(updated):
    box, server = updated
    box.add_config("SERVER = b.example")
    assert box.command("-update").status == 0
    change_cache(box, "servers", ["b.example", "master1.example"])
    box.forget_log()
    assert box.command("-update").status == 0
    assert sent(server) == 3
    assert box.log_of(COMPARISON) == [
        "Servers b.example, master1.example and master1.example, b.example mismatched "
    ]


# The same on the host itself


def test_names_that_the_host_begins_to_share_send_nothing(updated):
    box, server = updated
    manager = box.opt / "XRVNhxm" / "bin"
    box.put_tool(manager, "hxstatus", "exit 0")
    box.put_tool(manager, "hxclus", 'case "$2" in *Name) echo tqcluster ;; *) echo 192.0.2.40 ;; esac')
    box.put_tool(manager, "hxsys", f"echo {box.host_name}")
    box.put_tool(manager, "hxres", "exit 0")
    assert box.command("-update").status == 0
    assert box.log_of("CHostInformation::loadSharedNames") == ["Shared Names = tqcluster"]
    assert sent(server) == 1
    assert box.log_of(COMPARISON) == []


def install_java(box):
    (box.torqv / "java").mkdir()
    (box.torqv / "java" / "allTQ.jar").write_text("")


def install_hotfix(box):
    (box.torqv / "pack").mkdir()
    (box.torqv / "pack" / "pack.summary").write_text("HFX_Torquenix_9.1.0.1_PET1_SET1 installed\n")


def move_to_kvm(box):
    box.put_tool(box.local_sbin, "dmidecode", "echo KVM")


def upgrade(box):
    (box.torqv / "torquenix" / "bin" / "version").write_text("Torquenix-Linux_x86_64 9.1.0.2\n")


PACKAGES = "XRVNddagt_15.0.2, XRVNtqclt_{0}, XRVNbrk_1.15.1.0, XRVNtqcfg_{0}, XRVNtqpck_{0}"


@pytest.mark.parametrize(
    "change, line",
    [
        (install_hotfix, "Installed HFX  and Torquenix_9.1.0.1_PET1_SET1 mismatched "),
        (
            install_java,
            f"Installed packages {PACKAGES} and {PACKAGES}, XRVNtqjava_{{0}} mismatched ".format("9.1.0.1"),
        ),
        (
            upgrade,
            f"Installed packages {PACKAGES.format('9.1.0.1')} and {PACKAGES.format('9.1.0.2')} mismatched ",
        ),
        (move_to_kvm, "hypervisorType NONE and RHV mismatched "),
    ],
    ids=["hotfix", "java", "upgrade", "hypervisor"],
)
def test_what_changes_on_the_host_is_sent_once(updated, change, line):
    box, server = updated
    change(box)
    for _ in range(2):
        assert box.command("-update").status == 0
    assert sent(server) == 2
    assert box.log_of(COMPARISON) == [line]
