"""The record of each host image under tests/hosts: as -localinfo prints it, by which external commands it
comes about, and as the server stores it. Then, by name, the corners that the images are there for."""

import json
import os

import pytest

from sandbox import IMAGES, NO_CLUSTER

pytestmark = pytest.mark.shipped

HOSTS = sorted(folder.name for folder in IMAGES.iterdir() if (folder / "expected.json").exists())
CLUSTER_HOST = "tqmaster.example"
VERSION_FILE = "/usr/torqv/torquenix/bin/version"

ERRORS = {
    "cluster-active": [],
    "cluster-passive": [],
    "no-tools": [
        f"Unable to open version file: [{VERSION_FILE}].",
        "Error occurred executing readUnixTorquenixBinVersionFile(), error status: [7501].",
        "Error occurred in readTorquenixVersionFile() when reading version file: "
        f"[{VERSION_FILE}], error status: [7501].",
        "The command to list the packages failed with status [127].",
        "Failed to get installed package details, errorcode : 7282",
        NO_CLUSTER,
    ],
}


@pytest.fixture
def described(identified):
    """An image after it has described itself, and its record."""

    def run(image):
        box = identified(image)
        result = box.command("-localinfo")
        assert (result.status, result.err) == (0, "")
        return box, json.loads(result.out)

    return run


def expected_lines(box, file):
    return (box.image / file).read_text().splitlines()


def put_dmidecode(box, manufacturer, product):
    answers = f'*manufacturer) echo "{manufacturer}" ;; *name) echo "{product}" ;;'
    box.put_tool(box.local_sbin, "dmidecode", f'case "$2" in {answers} esac')


@pytest.mark.parametrize("image", HOSTS)
def test_local_info_is_the_expected_record_by_the_expected_commands(described, image):
    box, record = described(image)
    assert record == box.expected_record()
    assert box.external_commands() == expected_lines(box, "expected.commands")
    assert box.stubs_run() == expected_lines(box, "expected.tools")
    assert box.log_texts(16) == ERRORS.get(image, [NO_CLUSTER])


@pytest.mark.parametrize("image", HOSTS)
def test_the_server_stores_the_expected_record(sandbox_of, image):
    box = sandbox_of(image)
    master = box.master().serve()
    assert box.enrol(master).status == 0
    if image == "cluster-active":
        assert box.enrol(master, cluster=True, host=CLUSTER_HOST).status == 0
    assert box.command("-update").status == 0
    read = json.loads(box.command("-read", "-hostname", box.host_name, "-display").out)
    assert read == box.expected_record(box.identities()[0]["hostId"])


@pytest.mark.parametrize("image", HOSTS)
def test_a_load_leaves_no_temporary_file(described, image):
    box, _record = described(image)
    assert [file.name for file in (box.torqv / "torquenix").iterdir() if "SystemCmd" in file.name] == []


# Processors


def test_hyper_threads_share_a_core_and_cores_a_socket(described):
    box, record = described("rhel7-physical")
    assert record["hwDescription"].endswith(", 8 CPUs")
    assert "processorSocketCount = 2" in box.log_texts(2)
    assert "processorCoreCount = 4" in box.log_texts(2)


def test_without_physical_ids_sockets_and_cores_are_as_many_as_processors(described):
    box, _record = described("arm64")
    assert "adjusted socket count = 0" in box.log_texts(8)
    assert "adjusted core count   = 6" in box.log_texts(8)
    assert "processorSocketCount = 6" in box.log_texts(2)
    assert "processorCoreCount = 6" in box.log_texts(2)


def test_without_vendor_and_model_the_description_begins_with_the_comma(described):
    box, record = described("arm64")
    assert record["hwDescription"] == ", 6 CPUs"
    assert "VendorName information is not available" in box.log_of("CHostInformation::loadHostConfig")
    assert "ModelName information is not available" in box.log_of("CHostInformation::loadHostConfig")
    assert f"cpuType: {os.uname().machine} (Family:<NULL> Model:<NULL> Stepping:<NULL>)" in box.log_texts(2)


# Releases


def test_a_build_number_is_cut_from_the_release(described):
    assert described("centos7-vmware")[1]["osReleaseVersion"] == "7.9"


def test_a_suse_release_file_without_the_word_release_is_of_no_known_release(described):
    box, record = described("sles12")
    assert record["osVersion"].startswith("SuSE Linux (")
    assert record["osReleaseVersion"] == "Unknown"
    assert "CHostInformation::getOSReleaseVersionFromId" not in {entry.context for entry in box.log()}


def test_a_remark_with_the_word_release_gives_the_word_after_it(described):
    # The last line that holds "release" decides, and here it is a remark about os-release.
    box, record = described("sles12-remarks")
    assert record["osReleaseVersion"] == "for"
    assert "OS Release version []" in box.log_of("CHostInformation::getOSReleaseVersionFromString")


def test_a_host_without_release_files_has_the_kernels_name_and_no_known_release(described):
    _box, record = described("no-tools")
    assert record["osVersion"] == f"Linux ({os.uname().release})"
    assert record["osReleaseVersion"] == "Unknown"


def test_a_server_takes_the_higher_of_its_two_versions(described):
    box, record = described("sles15")
    assert record["tquVersion"] == "Torquenix_9.1.0.1"
    assert "Host is not a Unix Torquenix client." in box.log_texts(2)


# Packages and hotfixes


def test_a_debian_host_without_java_has_exactly_five_packages_in_table_order(described):
    _box, record = described("debian12")
    assert record["installedPackages"].split(",") == [
        "XRVNddagt_15.0.2",
        "XRVNtqclt_9.1.0.1",
        "XRVNbrk_1.15.1.0",
        "XRVNtqcfg_9.1.0.1",
        "XRVNtqpck_9.1.0.1",
    ]


def test_the_messages_about_java_name_each_others_directory(described):
    box, record = described("debian12-java")
    assert record["installedPackages"].split(",")[5:] == ["XRVNtqjre_9.1.0.0", "XRVNtqjava_9.1.0.0"]
    assert box.log_of("CHostInformation::retrieveInstalledPackagesLinux") == [
        "Torquenix Java directory found on the host.",
        "Torquenix JRE directory found on the host.",
    ]


@pytest.mark.parametrize(
    "file, package", [("java/jre/bin/java", "XRVNtqjre_9.1.0.0"), ("java/allTQ.jar", "XRVNtqjava_9.1.0.0")]
)
def test_each_java_package_stands_for_its_own_file(identified, file, package):
    box = identified("debian12-java")
    for name in {"java/jre/bin/java", "java/allTQ.jar"} - {file}:
        (box.torqv / name).unlink()
    assert json.loads(box.command("-localinfo").out)["installedPackages"].split(",")[5:] == [package]


def test_hotfixes_are_sorted_and_kept_once_and_older_ones_dropped(described):
    box, record = described("rhel7-physical")
    kept = ["Torquenix_9.1.0.1_PET4120033_SET2", "Torquenix_9.1.0.1_PET4131977_SET1"]
    assert record["installedHFXs"].split(",") == kept
    lines = box.log_of("CHostInformation::retrieveHFXsInstalled")
    assert (
        "HFX version [Torquenix_9.0.0.1_PET4098110_SET1] is older than current installed torquenix version, "
        "not saving it"
    ) in lines
    assert lines[-2:] == [f"Stored unique HFX : {name}" for name in kept]


# Hypervisors


def test_a_faulting_port_read_does_not_lose_the_record(described):
    # Wherever this test runs, the lists of devices speak of VMware: the port is read.
    box, record = described("rhel9-vmware-efi")
    assert box.log_of("LinuxVmInfo::getVMwareType") in [[f"vmType: {code}"] for code in (0, 1, 2, 7)]
    assert box.log_of("LinuxVmInfo::getVmType") == box.log_of("LinuxVmInfo::getVMwareType")
    assert record["hypervisorType"] == "VMWARE"


def test_the_port_is_read_only_where_a_vmware_device_is_listed(described):
    box, _record = described("rocky8-rhv")
    assert box.log_of("LinuxVmInfo::isVMware") == ["isVMware: 0"] * 2
    assert box.log_of("LinuxVmInfo::getVMwareType") == []
    assert box.log_of("LinuxVmInfo::getVmType") == ["vmType: 7"]
    assert box.log_of("LinuxVmInfo::getVmID") == ["vmId: <NULL>"]


def test_only_the_first_line_of_dmidecode_counts(described):
    # An old dmidecode puts remarks before the value; the list of devices then tells.
    box, record = described("centos7-vmware")
    assert box.log_of("LinuxVmInfo::getUVmTypeUsingDmidecodeCommand") == ["uvmType: 0"]
    assert box.log_of("LinuxVmInfo::getUVmTypeUsingLspciCommand") == ["uvmType: 1"]
    assert record["hypervisorType"] == "VMWARE"


def test_red_hat_as_manufacturer_leaves_the_answer_to_the_product_and_then_to_the_devices(described):
    box, record = described("rocky8-rhv")
    assert box.log_of("LinuxVmInfo::getUVmTypeUsingDmidecodeCommand") == [
        "Red Hat string found as the manufacturer value in the output of the dmidecode, which conflicts with "
        "other hypervisor types, so finding product name instead..",
        "uvmType: 0",
    ]
    assert box.log_of("LinuxVmInfo::getUVmTypeUsingLspciCommand") == ["uvmType: 5"]
    assert record["hypervisorType"] == "RHV"


def test_red_hats_own_openstack_is_known_by_its_product(identified):
    box = identified("rhel9")
    put_dmidecode(box, "Red Hat", "OpenStack Compute")
    assert json.loads(box.command("-localinfo").out)["hypervisorType"] == "OPEN_STACK"


def test_a_product_name_that_holds_two_keywords_is_what_comes_first_in_byte_order(identified):
    box = identified("rhel9")
    put_dmidecode(box, "Red Hat", "Red Hat OpenStack")
    assert json.loads(box.command("-localinfo").out)["hypervisorType"] == "OPEN_STACK"


def test_a_renamed_manufacturer_is_found_through_the_later_probes(described):
    box, record = described("ubuntu2204-openstack-renamed")
    assert box.log_of("LinuxVmInfo::getUVmType") == [
        "Failed to get UVMType using dmidecode command, trying with lspci command.",
        "Failed to get UVMType using lspci command, trying with hostnamectl command.",
    ]
    assert box.log_of("LinuxVmInfo::getUVmTypeUsingHostnameCtlCommand") == ["uvmType: 5"]
    assert record["hypervisorType"] == "RHV"


def test_hyper_v_without_a_metadata_answer_stays_hyper_v(described):
    box, record = described("oracle8-hyperv")
    assert box.log_of("LinuxVmInfo::isAzureStackVm") == ["curl command failed", "isAzureStackVm: 0"]
    assert record["hypervisorType"] == "HYPERV"


def test_a_subscription_in_the_metadata_makes_it_azure_stack(described):
    box, record = described("oracle8-azure-stack")
    assert box.log_of("LinuxVmInfo::isAzureStackVm") == [
        "subscriptionId found in the output.",
        "isAzureStackVm: 1",
    ]
    assert record["hypervisorType"] == "AZURE_STACK"


def test_a_metadata_answer_without_a_subscription_stays_hyper_v(identified):
    box = identified("oracle8-azure-stack")
    box.put_tool(box.local_sbin, "curl", 'echo \'{"error": "no such resource"}\'')
    assert json.loads(box.command("-localinfo").out)["hypervisorType"] == "HYPERV"
    assert box.log_of("LinuxVmInfo::isAzureStackVm") == ["isAzureStackVm: 0"]


def test_a_physical_node_of_nutanix_is_physical_and_named_nutanix_all_the_same(described):
    # The manufacturer's name decides, and it is Nutanix for the guest and for the node below it.
    _box, node = described("nutanix-node")
    assert (node["machineType"], node["hypervisorType"]) == ("PHYSICAL", "NUTANIX_AHV")


def test_a_guest_of_nutanix_is_virtual(described):
    _box, guest = described("nutanix-ahv")
    assert (guest["machineType"], guest["hypervisorType"]) == ("VIRTUAL", "NUTANIX_AHV")


def test_a_guest_of_no_known_family_is_virtual_on_no_hypervisor(described):
    _box, record = described("aws")
    assert (record["machineType"], record["hypervisorType"]) == ("VIRTUAL", "NONE")


def test_a_physical_host_asks_all_three_tools_and_says_so(described):
    box, record = described("rhel7-physical")
    assert box.log_of("LinuxVmInfo::getUVmType") == [
        "Failed to get UVMType using dmidecode command, trying with lspci command.",
        "Failed to get UVMType using lspci command, trying with hostnamectl command.",
    ]
    assert (record["machineType"], record["hypervisorType"]) == ("PHYSICAL", "NONE")


def test_tools_that_are_missing_are_named_and_passed_over(described):
    box, record = described("no-tools")
    assert [entry.text for entry in box.log() if entry.context.startswith("LinuxVmInfo::")] == [
        "isVm: 1",
        "lspci command failed",
        "isVMware: 0",
        "vmType: 7",
        "lspci command failed",
        "isVMware: 0",
        "vmId: <NULL>",
        "Failed to find location of dmideocde binary.",
        "uvmType: 0",
        "Failed to get UVMType using dmidecode command, trying with lspci command.",
        "Failed to find location of lspci binary.",
        "uvmType: 0",
        "Failed to get UVMType using lspci command, trying with hostnamectl command.",
        "Failed to find location of hostnamectl binary.",
        "uvmType: 0",
    ]
    assert (record["machineType"], record["hypervisorType"]) == ("VIRTUAL", "NONE")


def test_a_version_that_no_file_tells_is_the_programs_own(described):
    assert described("no-tools")[1]["tquVersion"] == "Torquenix_9.1.0.1"


# Clusters


def test_the_active_node_gives_the_record_of_the_cluster_the_same_names(sandbox_of):
    box = sandbox_of("cluster-active")
    master = box.master().serve()
    assert box.enrol(master).status == 0
    assert box.enrol(master, cluster=True, host=CLUSTER_HOST).status == 0
    assert box.command("-update").status == 0
    hosts = json.loads(box.command("-readallhosts", "-display").out)["hosts"]
    shared = ["tqcluster", "tqmaster", "tqmaster.example", "tqmaster6", "tqmaster6.example"]
    assert {host["hostName"]: host["clusterSharedNames"] for host in hosts} == {
        "node1.example": shared,
        CLUSTER_HOST: shared,
    }


def test_a_passive_node_sends_its_own_record_only(sandbox_of):
    box = sandbox_of("cluster-passive")
    master = box.master().serve()
    assert box.enrol(master).status == 0
    assert box.command("-update").status == 0
    hosts = json.loads(box.command("-readallhosts", "-display").out)["hosts"]
    assert [host["hostName"] for host in hosts] == ["node2.example"]
