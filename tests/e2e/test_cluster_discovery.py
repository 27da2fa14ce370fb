"""The names that a host shares with its cluster, from the cluster manager's tools to record and log."""

import json

import pytest

MANAGER = "XRVNhxm/bin"
HOME = "/opt/XRVNhxm/bin/"
TRACE = "libclusterinfo::trace"
COLLECTOR = "CHostInformation::retrieveClusterSharedNames"

# What node1 of the image's cluster shares, and the parts of it.
CLUSTER = ["tqcluster"]
IPV4_NAME = ["tqmaster", "tqmaster.example"]
IPV6_NAME = ["tqmaster6", "tqmaster6.example"]

ADDRESSES = {"archip": "192.0.2.43", "clusip": "192.0.2.40", "tqip": "192.0.2.41", "tqip6": "2001:db8::41"}


class Node:
    """A node whose cluster manager a test changes."""

    def __init__(self, box):
        self.box = box

    def tool(self, name, body):
        self.box.put_tool(self.box.opt / MANAGER, name, body)

    def systems(self, *names):
        self.tool("hxsys", "\n".join(f"echo {name}" for name in names))

    def cluster(self, name, address):
        answers = f'ClusterName) echo "{name}" ;; ClusterAddress) echo "{address}" ;;'
        self.tool("hxclus", f'case "$2" in {answers} esac')

    def resources(self, addresses, owners=("node1", "node2")):
        """IP resources by name, each owned by the same systems."""
        lines = ['case "$1 $2" in', '"-list Type=IP")']
        lines += [f"echo '{name}'" for name in addresses] + [";;"]
        for name, address in addresses.items():
            lines += [f'"-value {name}") echo "{address}" ;;']
        lines += ['"-state "*)', 'echo "#Resource Attribute System Value"']
        lines += [f'echo "$2 State {owner} ONLINE"' for owner in owners] + [";;", "esac"]
        self.tool("hxres", "\n".join(lines))

    def resource(self, listed, address, state):
        """One IP resource, what hxres does for each of its three questions."""
        self.tool("hxres", f'case "$1" in -list) {listed} ;; -value) {address} ;; -state) {state} ;; esac')

    def shared_names(self):
        """Describes the host; its record must come about whatever the cluster manager says. What its tools
        say on standard error stands on the command's."""
        self.box.forget_log()
        result = self.box.command("-localinfo")
        assert result.status == 0
        record = json.loads(result.out)
        assert record["isSecureEnabled"] is True
        return record["clusterSharedNames"]

    def trace(self):
        """The trace lines less their indentation and the blanks behind them."""
        return [text.strip() for text in self.box.log_of(TRACE)]

    def manager_runs(self):
        return [line for line in self.box.stubs_run() if line.startswith("hx")]


@pytest.fixture
def node(identified):
    return Node(identified("cluster-active"))


def test_a_node_shares_the_clusters_name_and_the_names_that_it_may_own(node):
    assert node.shared_names() == CLUSTER + IPV4_NAME + IPV6_NAME
    trace = node.trace()
    assert [line for line in trace if line.startswith(("Get ", "Got "))] == [
        "Get clustername ... tqcluster.",
        "Get clusterIP ... 192.0.2.40.",
        "Got cluster system ... node1.",
        "Got cluster system ... node2.",
        "Got domain name ... example.",
    ]
    assert [line for line in trace if line.startswith("Process Resource")] == [
        f"Process Resource:{name}." for name in sorted(ADDRESSES)
    ]
    assert [line for line in trace if line.startswith("Possible owner")] == [
        'Possible owner of virtual name "tqmaster".',
        'Possible owner of virtual name "tqmaster6".',
    ]
    names = ", ".join(CLUSTER + IPV4_NAME + IPV6_NAME)
    assert node.box.log_of(COLLECTOR) == [f"GetClusterSharedNames returned = {names}"]
    assert node.box.log_of("CHostInformation::loadSharedNames") == [f"Shared Names = {names}"]


def test_the_trace_reaches_the_log_line_by_line_with_its_indentation(identified):
    node = Node(identified("debian12"))
    assert node.shared_names() == []
    assert node.box.log_of(TRACE) == [
        "[GetClusterSharedNames] ... (includeIP:false) Enter ",
        "----------------------------------------",
        "[GetClusterInfo_HXM] ... Enter ",
        "[CHxmInfo::GetClusterInfo] ... Enter ",
        "    [CHxmInfo::IsHXM] ... Enter ",
        f"        !!! Unable to access HXM HomeDirectory {HOME} ... (0xffffffff).",
        "    [CHxmInfo::IsHXM] ... Exit  ",
        "[CHxmInfo::GetClusterInfo] ... Exit  ",
        "[CHxmInfo::~CHxmInfo] ... Enter ",
        "[CHxmInfo::~CHxmInfo] ... Exit  ",
        "[GetClusterInfo_HXM] ... Exit  ",
        "----------------------------------------",
        "[GetClusterSharedNames] ... (includeIP:false) Enter ",
    ]
    assert {entry.level for entry in node.box.log() if entry.context == TRACE} == {2}
    assert node.box.log_of(COLLECTOR) == ["Host is not part of a HXM cluster."]


def test_each_tool_is_asked_once_and_in_order(node):
    node.shared_names()
    assert [line for line in node.trace() if line.startswith("[command]")] == [
        f'[command] "{HOME}hxclus" -value ClusterName',
        f'[command] "{HOME}hxclus" -value ClusterAddress',
        f'[command] "{HOME}hxsys" -list -localclus',
        "[command] hostname",
        f"[command] {HOME}hxres -list Type=IP",
        *[f'[command] "{HOME}hxres" -value {name} Address' for name in sorted(ADDRESSES)],
        *[f'[command] "{HOME}hxres" -state {name}' for name in ("archip", "tqip", "tqip6")],
    ]


def test_discovery_that_is_switched_off_asks_no_tool(node):
    node.box.add_config("DISABLE_CLUSTER_AUTO_DISCOVERY = YES")
    assert node.shared_names() == []
    assert node.manager_runs() == []
    assert node.box.log_of(TRACE) == []
    assert "Cluster auto discovery of shared host name is disabled." in node.box.log_texts(2)


# Addresses


def test_the_resource_with_the_clusters_own_address_is_no_virtual_name(node):
    node.shared_names()
    assert "hxres -value clusip Address" in node.manager_runs()
    assert "hxres -state clusip" not in node.manager_runs()


def test_a_cluster_without_an_address_shares_virtual_names_only(node):
    node.tool("hxclus", '[ "$2" = ClusterName ] && echo tqcluster')
    assert node.shared_names() == IPV4_NAME + IPV6_NAME
    # What was the cluster's own address is a virtual name now, without a name.
    assert "hxres -state clusip" in node.manager_runs()


def test_a_cluster_with_an_ipv6_address_shares_its_name(node):
    node.cluster("tqcluster", "2001:db8::40")
    node.resources({"own": "2001:db8::40", "other": "2001:db8::41"})
    assert node.shared_names() == CLUSTER + IPV6_NAME
    assert "hxres -state own" not in node.manager_runs()


def test_the_clusters_address_is_compared_as_text(node):
    node.cluster("tqcluster", "2001:DB8::41")
    node.resources({"own": "2001:db8::41"})
    assert node.shared_names() == CLUSTER + IPV6_NAME


def test_an_address_that_does_not_resolve_shares_no_name(node):
    node.resources({"known": "192.0.2.41", "unknown": "192.0.2.99", "unknown6": "2001:db8::99"})
    assert node.shared_names() == CLUSTER + IPV4_NAME
    assert 'Possible owner of virtual name "".' in node.trace()


@pytest.mark.parametrize(
    "address", ["no address", "1.2.3.4.5", "300.1.2.3", "1.2.3.x", ":::", "fe80::1%eth0", "-"]
)
def test_what_is_no_address_resolves_to_nothing(node, address):
    node.resources({"known": "192.0.2.41", "odd": address})
    assert node.shared_names() == CLUSTER + IPV4_NAME


def test_an_address_with_a_name_without_a_domain_shares_that_name_alone(node):
    node.resources({"archip": "192.0.2.43"})
    assert node.shared_names() == [*CLUSTER, "archive"]


def test_a_resource_without_an_address_is_left_out(node):
    node.tool("hxres", 'case "$1 $2" in "-list Type=IP") echo bare ;; esac')
    assert node.shared_names() == CLUSTER
    assert "hxres -state bare" not in node.manager_runs()


def test_only_the_first_line_of_an_address_counts(node):
    node.resource("echo a", "echo 192.0.2.41; echo 192.0.2.43", "echo a State node1 ONLINE")
    assert node.shared_names() == CLUSTER + IPV4_NAME


def test_a_resource_that_is_listed_twice_is_asked_once(node):
    listed = 'echo a; echo "a node2"; printf "a\\tnode1\\n"'
    node.resource(listed, "echo 192.0.2.41", "echo a State node1 ONLINE")
    assert node.shared_names() == CLUSTER + IPV4_NAME
    assert node.manager_runs().count("hxres -value a Address") == 1


# Nodes


def test_a_node_is_found_by_the_beginning_of_a_systems_name(node):
    # node10 comes first and begins with node1: this host takes itself for it.
    node.systems("node10", "node1")
    node.resources({"mine": "192.0.2.41"}, owners=["node1"])
    assert node.shared_names() == CLUSTER
    node.resources({"its": "192.0.2.41"}, owners=["node10"])
    assert node.shared_names() == CLUSTER + IPV4_NAME


def test_a_name_with_two_owners_that_begin_alike_is_shared_twice(node):
    node.systems("node1", "node10")
    node.resources({"both": "192.0.2.41"}, owners=["node1", "node10"])
    assert node.shared_names() == CLUSTER + IPV4_NAME + IPV4_NAME


def test_node_names_are_compared_without_regard_to_case(node):
    node.systems("NODE1.example", "NODE2.example")
    node.resources({"tqip": "192.0.2.41"}, owners=["Node1.EXAMPLE"])
    assert node.shared_names() == CLUSTER + IPV4_NAME


def test_a_host_that_is_no_member_shares_nothing_and_is_no_failure(node):
    node.systems("node2", "node3")
    assert node.shared_names() == []
    assert '"node1" is NOT part of the cluster.' in node.trace()
    assert "[GetClusterNodeInfo] ... Exit" not in node.trace()
    assert node.box.log_of(COLLECTOR) == ["GetClusterSharedNames returned = "]
    assert node.box.log_texts(16) == []


def test_a_host_name_without_a_domain_is_its_own_domain(node):
    node.box.put_tool(node.box.local_sbin, "hostname", "echo node1")
    assert node.shared_names() == CLUSTER + IPV4_NAME + IPV6_NAME
    assert "Got domain name ... node1." in node.trace()


@pytest.mark.parametrize("body", ["exit 1", "echo .example"], ids=["no-output", "leading-dot"])
def test_without_a_host_name_there_is_no_domain(node, body):
    node.box.put_tool(node.box.local_sbin, "hostname", body)
    assert node.shared_names() == CLUSTER + IPV4_NAME + IPV6_NAME
    assert "Got domain name ... ." in node.trace()


def test_every_line_of_a_resources_state_names_an_owner_whatever_its_other_words_say(node):
    state = 'echo "#a State node2 ONLINE"; echo "two words"; echo; echo "x y node1 z # node3"'
    node.resource("echo a", "echo 192.0.2.41", state)
    assert node.shared_names() == CLUSTER + IPV4_NAME


# Tools that fail


@pytest.mark.parametrize(
    "body, status, shown",
    [("exit 3", 768, "0x300"), ("kill -9 $$", 35072, "0x8900"), (None, 32512, "0x7f00")],
)
def test_a_manager_that_does_not_run_is_reported_with_its_status(node, body, status, shown):
    if body is None:
        (node.box.opt / MANAGER / "hxstatus").unlink()
    else:
        node.tool("hxstatus", body)
    assert node.shared_names() == []
    command = f"{HOME}hxstatus -summary >/dev/null 2>&1"
    assert f"!!! Failed to run m_command {command} ... ({shown})." in node.trace()
    assert node.box.log_texts(16) == [
        f"GetClusterSharedNames status : {status}",
        f"retrieveClusterSharedNames status : {status}. Check getclusterinfo::trace for more details. ",
    ]
    assert {line.split()[0] for line in node.manager_runs()} <= {"hxstatus"}


def test_a_file_in_the_place_of_the_tool_folder_is_reported(identified):
    def put_file(box):
        (box.opt / "XRVNhxm").mkdir()
        (box.opt / MANAGER).write_text("")

    node = Node(identified("debian12", before_start=put_file))
    assert node.shared_names() == []
    assert "GetClusterSharedNames status : -1" in node.box.log_texts(16)


@pytest.mark.parametrize("name", ["hxclus", "hxsys", "hxres"])
@pytest.mark.parametrize("body", ["exit 1", "exit 0", "kill -9 $$", "echo; echo", None])
def test_a_tool_that_fails_or_says_nothing_leaves_its_part_empty(node, name, body):
    if body is None:
        (node.box.opt / MANAGER / name).unlink()
    else:
        node.tool(name, body)
    expected = {"hxclus": IPV4_NAME + IPV6_NAME, "hxsys": [], "hxres": CLUSTER}
    assert node.shared_names() == expected[name]
    assert node.box.log_texts(16) == []


@pytest.mark.parametrize("name", ["hxclus", "hxsys", "hxres"])
@pytest.mark.parametrize(
    "body",
    [
        "head -c 100000 /dev/zero | tr '\\0' x; echo",
        "head -c 100000 /dev/zero",
        "head -c 5000 /dev/zero | tr '\\0' ' '; echo",
        "printf '\\377\\376\\200\\n\\001\\033[2J\\n%%s%%n%%d\\n'",
        "for i in 1 2 3 4 5 6 7 8 9; do printf 'node1\\0x\\n'; done",
    ],
    ids=["long-line", "nuls", "blanks", "binary", "cut-by-nul"],
)
def test_hostile_output_is_survived(node, name, body):
    node.tool(name, body)
    node.shared_names()
    assert all(len(text) < 1024 + 100 for text in node.box.log_of(TRACE))


def test_a_name_longer_than_a_line_buffer_is_read_in_pieces(node):
    node.cluster("c" * 5000, "192.0.2.40")
    node.resources({})
    assert node.shared_names() == ["c" * 5000]


@pytest.mark.parametrize(
    "name",
    [
        "$(touch${IFS}/shared/harm)",
        "`touch\\t/shared/harm`",
        ";>/shared/harm;",
        "a|b",
        "a&b",
        "*",
        "-all",
        "'",
        '"',
        "\\",
        "a\x01b",
        "ä",
    ],
)
def test_a_resource_whose_name_is_no_plain_word_is_not_put_into_a_command(node, name):
    (node.box.shared / "names").write_text(f"{name}\ntqip\n")
    node.resource("cat /shared/names", "echo 192.0.2.41", "echo a State node1 ONLINE")
    assert node.shared_names() == CLUSTER + IPV4_NAME
    assert not (node.box.shared / "harm").exists()
    assert [line for line in node.manager_runs() if line.startswith("hxres")] == [
        "hxres -list Type=IP",
        "hxres -value tqip Address",
        "hxres -state tqip",
    ]
    assert "!!! Skipped resource with a name that cannot stand in a command line." in node.trace()


@pytest.mark.parametrize("name", ["tq.ip", "tq:1", "t_q@site", "a%b+c,d/e=f-g"])
def test_a_plain_word_is_asked_for(node, name):
    node.resources({name: "192.0.2.41"})
    assert node.shared_names() == CLUSTER + IPV4_NAME
