"""The sample triggers of the cluster manager, as a cluster's node runs them: what the next update then does.
That the state they leave is whole and readable, tests/unit/platform/samples_test.cpp shows."""

import json
import pathlib

import pytest

PACKAGING = pathlib.Path(__file__).resolve().parent.parent.parent / "packaging"
VIRTUAL_HOST = "cluster.example"


@pytest.fixture
def node(sandbox_of):
    """A host with identities for itself and a cluster's virtual host, whose manager has said nothing yet."""

    def with_triggers(box):
        box.extra_arguments += ["--ro-bind", str(PACKAGING), "/packaging"]

    box = sandbox_of("debian12", with_triggers)
    master = box.master().serve()
    assert box.enrol(master).status == 0
    assert box.enrol(master, cluster=True, host=VIRTUAL_HOST).status == 0
    return box


def passes_of_an_update(node):
    """How many identities a forced update sends a record for."""
    node.forget_log()
    assert node.command("-update", "-force").status == 0
    return node.log_texts(2).count("Server count [ 1 ]")


def trigger(node, name):
    result = node.run([f"/packaging/{name}"])
    assert (result.status, result.out, result.err) == (0, "", "")


def test_service_that_comes_online_and_goes_offline_again(node):
    assert passes_of_an_update(node) == 1
    trigger(node, "cluster-online")
    assert passes_of_an_update(node) == 2
    hosts = json.loads(node.command("-readallhosts", "-display").out)["hosts"]
    assert [host["hostName"] for host in hosts] == [VIRTUAL_HOST, node.host_name]
    trigger(node, "cluster-offline")
    assert passes_of_an_update(node) == 1
