"""A node of a cluster: two identities, two passes."""

import json

import pytest

VIRTUAL_HOST = "cluster.example"


@pytest.fixture
def node(enrolled, master):
    """The active node of a cluster, with an identity for itself and one for the cluster's virtual host."""
    assert enrolled.enrol(master, cluster=True, host=VIRTUAL_HOST).status == 0
    enrolled.write_cluster_state(True, True, True)
    return enrolled


def clients_of(server, method):
    return [request["client"] for request in server.requests() if request["method"] == method]


def test_an_active_node_updates_its_own_record_and_the_clusters(node):
    assert node.command("-update").status == 0
    names = [host["hostName"] for host in json.loads(node.command("-readallhosts", "-display").out)["hosts"]]
    assert names == [VIRTUAL_HOST, node.host_name]
    assert (
        "This command is running on active node of a cluster. "
        "It will update virtual host secure status as well."
        in node.log_texts(2)
    )


def test_both_passes_share_one_cache_file_so_both_send_in_every_run(node, scripted):
    server = scripted()
    for runs in (1, 2, 3):
        assert node.command("-update").status == 0
        assert clients_of(server, "PUT") == [[node.host_name], [VIRTUAL_HOST]] * runs
    assert json.loads(node.cache_file().read_text())["uuid"] == node.identities()[1]["hostId"]


def test_a_cluster_pass_that_updates_nothing_fails_the_update_with_its_result(node):
    node.change_identity(1, caMode="none")
    result = node.command("-update")
    assert (result.status, result.err) == (0, "Requested operation failed with error: 0\n")
    assert "Failed to update hostDB for all masters" in node.log_texts(16)


def test_an_active_node_without_a_cluster_identity_ends_with_0_and_an_unknown_error(enrolled):
    enrolled.write_cluster_state(True, True, True)
    result = enrolled.command("-update")
    assert (result.status, result.err) == (0, "Requested operation failed with unknown error\n")


@pytest.mark.parametrize("state", [(False, True, True), (True, False, True), (True, True, False)])
def test_a_node_that_is_not_active_and_clustered_makes_the_host_pass_only(node, scripted, state):
    node.write_cluster_state(*state)
    server = scripted()
    assert node.command("-update").status == 0
    assert clients_of(server, "PUT") == [[node.host_name]]


@pytest.mark.parametrize("arguments", [["-readallhosts"], ["-reloadconfig", "-host"]])
def test_read_all_and_reload_act_as_the_cluster_on_its_active_node(node, scripted, arguments):
    server = scripted()
    assert node.command(*arguments).status == 0
    assert clients_of(server, "GET") == [[VIRTUAL_HOST]]


@pytest.mark.parametrize("arguments", [["-readallhosts"], ["-reloadconfig", "-security"]])
def test_read_all_and_reload_act_as_the_host_on_a_passive_node(node, scripted, arguments):
    node.write_cluster_state(True, True, False)
    server = scripted()
    assert node.command(*arguments).status == 0
    assert clients_of(server, "GET") == [[node.host_name]]


def test_read_and_delete_always_act_as_the_host(node, scripted):
    server = scripted({"method": "GET", "answer": {"status": 200, "body": "{}"}})
    assert node.command("-read").status == 0
    assert node.command("-delete").status == 0
    assert clients_of(server, "GET") == clients_of(server, "DELETE") == [[node.host_name]]


def test_a_damaged_cluster_state_means_no_cluster(node, scripted):
    node.var("cluster.state").write_bytes(b"\0\xffNODE_CLUSTERED YES\n")
    server = scripted()
    assert node.command("-update").status == 0
    assert clients_of(server, "PUT") == [[node.host_name]]
