"""The road of an update: what is sent when, how often, and what is left behind."""

import json

import pytest

from sandbox import NO_CLUSTER

pytestmark = pytest.mark.shipped

MASTER1, MASTER2 = "master1.example", "master2.example"
NO_NEED = "No need to update host information into host DB"
NOTHING_UPDATED = "Failed to update hostDB for all masters"
REFUSED = {"status": 503, "body": '{"errorCode": 47, "errMessage": "busy"}'}


def puts(server):
    return [request for request in server.requests() if request["method"] == "PUT"]


def attempts(box):
    """The entries of the attempts loop, in order."""
    return [entry.text for entry in box.log() if entry.context == "updateHostInMasterServer"]


def test_the_first_update_sends_the_record_and_keeps_it_in_the_cache(enrolled):
    result = enrolled.command("-update")
    assert (result.status, result.out, result.err) == (0, "", "")
    cached = enrolled.cache_file().read_text()
    assert cached.count("\n") == 1 and cached.endswith("\n")
    local = json.loads(enrolled.command("-localinfo").out)
    local["uuid"] = local.pop("hostId")
    assert json.loads(cached) == local
    assert not enrolled.status_file().exists()
    assert "Host update completed successfully" in enrolled.log_texts(2)


def test_the_body_of_an_update_carries_no_identity_and_goes_to_the_own_identifier(enrolled, scripted):
    server = scripted()
    assert enrolled.command("-update").status == 0
    (put,) = puts(server)
    body = json.loads(put["body"])
    assert {"uuid", "hostId", "hostName"} & body.keys() == set()
    assert body["masterServer"] == MASTER1
    assert put["path"] == "torquenix/config/hosts/" + enrolled.identities()[0]["hostId"]


def test_a_token_is_asked_for_before_the_first_request_and_renewed_after_a_success(enrolled, scripted):
    server = scripted()
    assert enrolled.command("-update").status == 0
    kinds = [request["method"] for request in server.requests()]
    assert kinds == ["POST", "PUT", "POST"]


def test_an_unchanged_record_sends_nothing(enrolled, scripted):
    server = scripted()
    assert enrolled.command("-update").status == 0
    before = len(server.requests())
    result = enrolled.command("-update")
    assert (result.status, result.out, result.err) == (0, "", "")
    assert len(server.requests()) == before
    assert NO_NEED in enrolled.log_texts(2)


def test_force_sends_an_unchanged_record(enrolled, scripted):
    server = scripted()
    assert enrolled.command("-update").status == 0
    assert enrolled.command("-update", "-force").status == 0
    assert len(puts(server)) == 2


def test_a_changed_record_is_sent_and_the_log_names_the_field(enrolled, scripted):
    server = scripted()
    assert enrolled.command("-update").status == 0
    enrolled.add_config("MACHINE_TQU_TYPE = APPLIANCE")
    enrolled.forget_log()
    assert enrolled.command("-update").status == 0
    assert len(puts(server)) == 2
    (line,) = [entry for entry in enrolled.log() if entry.context == "CHostInformation::operator=="]
    assert (line.level, line.text) == (2, "machineTquType  and APPLIANCE mismatched.")


def test_a_changed_release_version_alone_sends_nothing(enrolled, scripted):
    # The comparison leaves osReleaseVersion out, as the form that reads the cache does.
    server = scripted()
    release = enrolled.etc / "os-release"
    assert enrolled.command("-update").status == 0
    release.write_text(release.read_text().replace('VERSION_ID="12"', 'VERSION_ID="13"'))
    assert enrolled.command("-update").status == 0
    assert len(puts(server)) == 1


def test_five_attempts_ten_seconds_apart_and_then_the_status(enrolled, master):
    master.stop()
    result = enrolled.update_without_waiting()
    assert result.status == 25
    assert result.err == "Requested operation failed with error: 25\n"
    assert result.injected_waits(10) == 4
    texts = attempts(enrolled)
    failed = [f"Update attempt [{number}] failed with error: 25" for number in range(1, 6)]
    assert [text for text in texts if text.startswith("Update attempt")] == failed
    assert texts.count("Waiting [10] seconds before next attempt.") == 4
    assert texts[-1] == "Update failed after [5] attempts. Returning error: 25"


def test_an_update_that_fails_leaves_its_status_and_one_that_succeeds_removes_it(enrolled, master):
    master.stop()
    assert enrolled.update_without_waiting().status == 25
    assert enrolled.status_file().read_text() == "25\n"
    master.serve()
    assert enrolled.command("-update").status == 0
    assert not enrolled.status_file().exists()
    assert "Deleting HostDB update status file, as update passed" in enrolled.log_texts(2)


def test_a_success_without_an_earlier_failure_logs_no_removal_error(enrolled):
    assert enrolled.command("-update").status == 0
    assert enrolled.log_texts(16) == [NO_CLUSTER]


def test_the_third_attempt_may_succeed_after_two_waits(enrolled, scripted):
    server = scripted({"method": "PUT", "times": 2, "answer": REFUSED})
    result = enrolled.update_without_waiting()
    assert (result.status, result.err) == (0, "")
    assert result.injected_waits(10) == 2
    assert attempts(enrolled)[-1] == "Update successful in [3] attempts."
    assert len(puts(server)) == 3
    assert not enrolled.status_file().exists()


def test_every_attempt_sends_the_same_record(enrolled, scripted):
    server = scripted({"method": "PUT", "times": 4, "answer": REFUSED})
    assert enrolled.update_without_waiting().status == 0
    bodies = {request["body"] for request in puts(server)}
    assert len(puts(server)) == 5
    assert len(bodies) == 1
    assert json.loads(bodies.pop())["servers"] == [MASTER1]


def test_a_refusal_by_the_web_service_is_retried_and_its_code_is_the_status(enrolled, scripted):
    scripted({"method": "PUT", "answer": REFUSED})
    result = enrolled.update_without_waiting()
    assert result.status == 47
    assert enrolled.status_file().read_text() == "47\n"
    errors = [text for text in enrolled.log_texts(16) if text.startswith("Caught WebServiceException")]
    assert errors == ["Caught WebServiceException, err = 47, err_msg = busy"] * 5


@pytest.mark.parametrize("status", [201, 204])
def test_a_put_that_is_answered_with_201_or_204_is_a_failure(enrolled, scripted, status):
    scripted({"method": "PUT", "answer": {"status": status, "body": ""}})
    assert enrolled.update_without_waiting().status == 252
    assert enrolled.status_file().read_text() == "7500\n"


def test_a_token_that_cannot_be_renewed_after_the_put_fails_the_update_but_the_cache_is_written(
    enrolled, scripted
):
    refused = {"path": "security/tokens", "answer": REFUSED}
    good = {"path": "security/tokens", "times": 1, "answer": {"status": 201, "body": json.dumps(
        {"token": "first", "expiresIn": 3600})}}
    scripted(good, refused)
    result = enrolled.update_without_waiting("-force")
    assert result.status == 252
    assert enrolled.status_file().read_text() == "7625\n"
    assert enrolled.cache_file().exists()


def test_an_authority_mode_of_none_skips_the_server_and_the_command_reports_0(enrolled, scripted):
    server = scripted()
    enrolled.change_identity(0, caMode="none")
    result = enrolled.command("-update")
    assert result.status == 0
    assert result.err == "Requested operation failed with error: 0\n"
    assert NOTHING_UPDATED in enrolled.log_texts(16)
    assert any(text.startswith("Failed to derive the CA Mode") for text in enrolled.log_texts(16))
    assert not enrolled.status_file().exists()
    assert not enrolled.var(f"hostdbupdate.lock.{MASTER1}").exists()
    assert server.requests() == []


def test_one_server_that_fails_does_not_stop_the_other_and_the_update_succeeds(enrolled, master):
    second = enrolled.master(MASTER2).serve()
    assert enrolled.enrol(second).status == 0
    master.stop()
    result = enrolled.update_without_waiting()
    assert (result.status, result.err) == (0, "")
    assert result.injected_waits(10) == 4
    assert enrolled.status_file(MASTER1).read_text() == "25\n"
    assert not enrolled.status_file(MASTER2).exists()
    assert not enrolled.cache_file(MASTER1).exists()
    assert enrolled.cache_file(MASTER2).exists()
    texts = enrolled.log_texts(8)
    assert "fetchMastersAndUpdateHostDB with certType CERT_TYPE_HOST failed with error:25" in texts


def test_the_first_server_at_its_third_attempt_and_the_second_failing_count_as_success(
    enrolled, scripted
):
    second = enrolled.master(MASTER2).serve()
    assert enrolled.enrol(second).status == 0
    second.stop()
    scripted({"method": "PUT", "times": 2, "answer": REFUSED})
    result = enrolled.update_without_waiting()
    assert result.status == 0
    assert result.injected_waits(10) == 2 + 4
    assert enrolled.status_file(MASTER2).read_text() == "25\n"


def test_a_daemon_update_that_finds_another_one_running_is_dropped_quietly(enrolled, scripted):
    server = scripted()
    lock = "/usr/torqv/var/hostdbupdate.lock.daemon"
    holder = enrolled.hold_lock(lock)
    result = enrolled.command("-update", "-daemon")
    assert (result.status, result.out, result.err) == (0, "", "")
    assert enrolled.log_texts(16) == [
        f"Failed to acquire the daemon lock for hostdb update : {lock}",
        "Not processing this update request from the daemon, as one update from the daemon is already in "
        "proress.",
    ]
    assert server.requests() == []
    enrolled.let_go(holder)
    assert enrolled.command("-update", "-daemon").status == 0
    assert len(puts(server)) == 1


def test_an_update_by_hand_does_not_ask_for_the_daemon_lock(enrolled, scripted):
    server = scripted()
    holder = enrolled.hold_lock("/usr/torqv/var/hostdbupdate.lock.daemon")
    assert enrolled.command("-update").status == 0
    assert len(puts(server)) == 1
    enrolled.let_go(holder)


def test_a_daemon_update_says_when_it_takes_and_releases_its_lock(enrolled):
    assert enrolled.command("-update", "-daemon").status == 0
    texts = [entry.text for entry in enrolled.log() if entry.context == "updateHostInDB"]
    assert texts == [
        "Successfully acquired the daemon lock for hostdb update : /usr/torqv/var/hostdbupdate.lock.daemon",
        "Releasing daemon lock for hostdb update. ",
    ]


def test_a_server_whose_update_lock_is_held_is_left_out_and_its_status_stays(enrolled, scripted):
    server = scripted()
    lock = f"/usr/torqv/var/hostdbupdate.lock.{MASTER1}"
    enrolled.status_file().write_text("25\n")
    holder = enrolled.hold_lock(lock)
    result = enrolled.command("-update")
    assert (result.status, result.err) == (0, "Requested operation failed with error: 0\n")
    assert (
        f"Failed to acquire lock on hostDB update status file for server [{MASTER1}], lockfile : {lock}"
        in enrolled.log_texts(16)
    )
    assert server.requests() == []
    assert enrolled.status_file().read_text() == "25\n"
    enrolled.let_go(holder)


def test_the_update_does_not_ask_the_configuration_for_its_servers(enrolled):
    enrolled.write_config("SERVER = other.example", f"CLIENT_NAME = {enrolled.host_name}")
    assert enrolled.command("-update").status == 0
    assert enrolled.cache_file(MASTER1).exists()


def test_an_update_without_an_identity_store_is_7610(box):
    result = box.command("-update")
    assert result.status == 252
    assert result.err == "Requested operation failed with error: 7610\n"
    assert "getServersFromMapInfo with certType 1 failed with error: 7610" in box.log_texts(16)


def test_a_store_without_a_host_identity_ends_with_0_and_an_unknown_error(box, master):
    assert box.enrol(master, cluster=True).status == 0
    result = box.command("-update")
    assert (result.status, result.err) == (0, "Requested operation failed with unknown error\n")
    assert "getServersFromMapInfo with certType 1 returned erroneous server count: 0" in box.log_texts(16)
