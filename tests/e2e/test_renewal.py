"""How a host's certificate is renewed, and what a renewal that fails leaves behind."""

import json
import os
import re
import threading
import time

import pytest

from clock import at_time, prepare_clock
from sandbox import BIN_DIR
from snapshot import snapshot

MASTER1, MASTER2 = "master1.example", "master2.example"
DONE, USAGE, NOT_REACHABLE, NOT_TRUSTED, REPLY_UNUSABLE, STORE_FAILED, NO_SUCH_IDENTITY, INVITATION_NEEDED = (
    0, 2, 4, 5, 8, 9, 10, 11,
)  # fmt: skip

CERTIFICATE_DAYS = 730  # of a master server's usual settings
RENEWALS = "security/renewals$"
RENEWED = re.compile(
    r"Renewed the (host|cluster) identity towards (\S+); the certificate ends 20\d\d-\d\d-\d\d [\d:]+ UTC\n"
)


def renew(box, *arguments, **options):
    return box.enroll_program("--renew", *arguments, **options)


def expected_names(box):
    """The files that the store's identities need, and no other."""
    names = {"identity.json", "identity.lock"}
    for identity in box.identities():
        names |= {identity["certificate"], identity["privateKey"], identity["caCertificates"]}
        names.add(f"token.{identity['certType']}.{identity['server']}")
    return names


def public_key(box, *arguments):
    """The public key of a certificate or private key of the identity store."""
    result = box.run(["openssl", *arguments])
    assert result.status == 0, result.err
    return result.out


def assert_one_pair(box, number=0):
    """Key and certificate of an identity belong together."""
    identity, folder = box.identities()[number], "/usr/torqv/var/identity"
    certified = public_key(box, "x509", "-in", f"{folder}/{identity['certificate']}", "-noout", "-pubkey")
    assert certified == public_key(box, "pkey", "-in", f"{folder}/{identity['privateKey']}", "-pubout")


@pytest.fixture
def updated(enrolled):
    """A host that has sent its record, so it has a token too; its clock can be set."""
    prepare_clock(enrolled)
    assert enrolled.command("-update").status == 0
    return enrolled


@pytest.fixture
def two_servers(updated):
    assert updated.enrol(updated.master(MASTER2).serve()).status == 0
    return updated


def test_a_renewal_brings_a_new_key_and_certificate_and_keeps_all_else(updated):
    (old,), before = updated.identities(), updated.identity_files()
    result = renew(updated)
    assert (result.status, result.err) == (DONE, "")
    assert RENEWED.fullmatch(result.out)
    (new,), after = updated.identities(), updated.identity_files()
    for key in ("certificate", "privateKey"):
        assert before[old[key]] != after[new[key]]
    names = {key: new[key] for key in ("certificate", "privateKey", "caCertificates")}
    assert old | names == new
    token = f"token.host.{MASTER1}"
    assert before[token] == after[token]
    assert {file.name for file in updated.var("identity").iterdir()} == expected_names(updated)
    assert {oct(file.stat().st_mode & 0o7777) for file in updated.var("identity").iterdir()} == {"0o600"}
    assert_one_pair(updated)


def test_a_renewed_host_goes_on_as_the_same_host(updated):
    assert renew(updated).status == DONE
    assert updated.command("-update", "-force").status == 0
    (record,) = json.loads(updated.command("-readallhosts", "-display").out)["hosts"]
    assert record["hostName"] == updated.host_name
    assert json.loads(updated.cache_file().read_text())["uuid"] == updated.identities()[0]["hostId"]


def test_before_its_time_a_renewal_if_needed_is_quiet_and_changes_nothing(updated):
    before = snapshot(updated.torqv)
    result = renew(updated, "--if-needed")
    assert (result.status, result.out, result.err) == (DONE, "", "")
    assert snapshot(updated.torqv) == before


def test_on_a_host_without_identities_nothing_is_needed(box):
    before = snapshot(box.torqv)
    result = renew(box, "--if-needed")
    assert (result.status, result.out, result.err) == (DONE, "", "")
    assert snapshot(box.torqv) == before
    assert renew(box).status == NO_SUCH_IDENTITY


@pytest.mark.parametrize("days, due", [(486, False), (487, True)])
def test_a_renewal_is_needed_from_two_thirds_of_a_certificates_life_on(updated, days, due):
    before = updated.identity_files()
    result = renew(updated, "--if-needed", env=at_time(updated, f"+{days}d", "tqenroll"))
    assert (result.status, result.err) == (DONE, "")
    assert bool(RENEWED.fullmatch(result.out)) == due
    assert (updated.identity_files() != before) == due


def test_a_certificate_that_has_ended_asks_for_a_new_invitation(updated):
    before = updated.identity_files()
    for more in ([], ["--if-needed"]):
        result = renew(updated, *more, env=at_time(updated, f"+{CERTIFICATE_DAYS + 1}d", "tqenroll"))
        assert (result.status, result.out) == (INVITATION_NEEDED, "")
        sentence = (
            rf"tqenroll: the certificate of the host identity towards {MASTER1} has ended at \S+ \S+ UTC and "
            r"it is \S+ \S+ UTC by this host's clock, so it cannot be renewed; enrol again with a new "
            rf"invitation of that server \(tqmasterd invite --host {updated.host_name}\)\.\n"
        )
        assert re.fullmatch(sentence, result.err), result.err
        assert updated.identity_files() == before


def test_a_host_whose_certificate_has_ended_joins_again_with_a_new_invitation(updated, master):
    env = at_time(updated, f"+{CERTIFICATE_DAYS + 1}d", "tqenroll")
    assert renew(updated, env=env).status == INVITATION_NEEDED
    assert updated.enrol(master).status == 0
    assert updated.command("-update").status == 0


def test_a_certificate_that_the_server_refuses_points_at_clocks_before_an_invitation(updated, master):
    master.stop()
    master.serve(env=at_time(updated, f"+{CERTIFICATE_DAYS + 1}d", "tqmasterd"))
    before = updated.identity_files()
    result = renew(updated)
    assert (result.status, result.out) == (INVITATION_NEEDED, "")
    assert f"server {MASTER1} does not renew the host identity" in result.err
    assert "; if the clocks of both machines are right, enrol again with a new invitation" in result.err
    assert updated.identity_files() == before


def test_an_identity_that_was_revoked_asks_for_a_new_invitation(updated, master):
    master.revoke(updated.host_name)
    before = updated.identity_files()
    result = renew(updated)
    assert (result.status, result.out) == (INVITATION_NEEDED, "")
    assert f"server {MASTER1} does not renew the host identity" in result.err
    assert "HTTP status 403" in result.err
    assert f"(tqmasterd invite --host {updated.host_name})" in result.err
    assert updated.identity_files() == before


def test_without_a_token_one_is_asked_for(updated):
    token = updated.var("identity") / f"token.host.{MASTER1}"
    token.unlink()
    assert renew(updated).status == DONE
    assert token.exists()


def test_a_token_that_the_server_does_not_know_is_renewed_once(updated):
    token = updated.var("identity") / f"token.host.{MASTER1}"
    token.write_text(json.dumps({"token": "0" * 64, "expiresAt": int(time.time()) + 1000}))
    result = renew(updated)
    assert (result.status, result.err) == (DONE, "")


def test_a_server_that_is_away_does_not_keep_the_others_from_it(two_servers, master):
    master.stop()
    before = two_servers.identity_files()
    first, second = two_servers.identities()
    result = renew(two_servers)
    assert result.status == NOT_REACHABLE
    assert re.fullmatch(rf"tqenroll: server {MASTER1} on port 1556 is not reachable: .*\.\n", result.err)
    assert RENEWED.fullmatch(result.out)[2] == MASTER2
    after = two_servers.identity_files()
    assert after[first["privateKey"]] == before[first["privateKey"]]
    assert second["privateKey"] not in after


def test_server_and_cluster_name_one_identity(two_servers, master):
    assert two_servers.enrol(master, cluster=True, host="cluster.example").status == 0
    host, other, cluster = two_servers.identities()
    result = renew(two_servers, "--server", MASTER1, "--cluster")
    assert RENEWED.fullmatch(result.out).groups() == ("cluster", MASTER1)
    assert two_servers.identities()[:2] == [host, other]
    result = renew(two_servers, "--server", MASTER1)
    assert RENEWED.fullmatch(result.out).groups() == ("host", MASTER1)
    assert two_servers.identities()[1] == other
    assert two_servers.identities()[0] != host and two_servers.identities()[2] != cluster
    assert renew(two_servers, "--server", MASTER2, "--cluster").status == NO_SUCH_IDENTITY


@pytest.mark.parametrize(
    "arguments",
    [
        ["--cluster"],
        ["--list"],
        ["--invitation", "x"],
        ["--fingerprint", "0" * 64],
        ["--json"],
        ["--server", "a/b"],
    ],
)
def test_what_does_not_belong_to_a_renewal_is_refused(updated, arguments):
    before = snapshot(updated.torqv)
    result = renew(updated, *arguments)
    assert (result.status, result.out) == (USAGE, "")
    assert re.fullmatch(r"tqenroll: .*\.\n", result.err)
    assert snapshot(updated.torqv) == before


BAD_ANSWERS = {
    "server-error": {"status": 500, "body": '{"errorCode": 7500, "errMessage": "internal failure"}'},
    "wrong-status": {"status": 201, "body": "{}"},
    "not-found": {"status": 404, "body": '{"errorCode": 7404, "errMessage": "there is no such resource"}'},
    "empty": {"status": 200, "body": ""},
    "not-json": {"status": 200, "body": "<html>"},
    "without-a-certificate": {"status": 200, "body": "{}"},
    "lost": {"behaviour": "close"},
}


@pytest.mark.parametrize("answer", BAD_ANSWERS)
def test_an_answer_that_cannot_be_used_leaves_the_old_pair(updated, scripted, answer):
    before = updated.identity_files()
    scripted({"path": RENEWALS, "answer": BAD_ANSWERS[answer]})
    result = renew(updated)
    assert (result.status, result.out) == (REPLY_UNUSABLE, "")
    assert re.fullmatch(rf"tqenroll: .*server {MASTER1}.*\.\n", result.err)
    assert updated.identity_files() == before


def test_a_certificate_for_another_key_is_not_taken(updated, scripted):
    (identity,), before = updated.identities(), updated.identity_files()
    body = {
        "hostId": identity["hostId"],
        "certificate": before[identity["certificate"]].decode(),
        "caCertificates": before[identity["caCertificates"]].decode(),
    }
    scripted({"path": RENEWALS, "answer": {"status": 200, "body": json.dumps(body)}})
    result = renew(updated)
    assert result.status == REPLY_UNUSABLE
    assert "its certificate is for another key" in result.err
    assert updated.identity_files() == before


def test_a_server_of_another_authority_sees_neither_request_nor_token(updated, master):
    master.stop()
    before = updated.identity_files()
    updated.master(MASTER1, "other-authority").serve()
    result = renew(updated)
    assert result.status == NOT_TRUSTED
    assert updated.identity_files() == before


KILLS = {"rename": (1, 2, 3, 4), "fsync": (1, 5, 8), "unlink": (1, 3)}


@pytest.mark.parametrize("call, k", [(call, k) for call, numbers in KILLS.items() for k in numbers])
def test_killed_at_any_point_the_pair_is_the_old_or_the_new_one(updated, call, k):
    # Without the options of a run with `inject`: among them a tracer does not kill.
    strace = ["strace", "-o", "/dev/null", "-e", f"trace={call}", "-e", f"inject={call}:signal=KILL:when={k}"]
    killed = updated.run([*strace, f"{BIN_DIR}/tqenroll", "--renew"], traced=True)
    assert killed.status == -9
    assert_one_pair(updated)
    assert updated.command("-readallhosts").status == 0
    minutes_ago = time.time() - 120  # leftovers of the last minute may be somebody's who still writes
    for file in updated.var("identity").iterdir():
        os.utime(file, (minutes_ago, minutes_ago))
    assert renew(updated).status == DONE
    assert {file.name for file in updated.var("identity").iterdir()} == expected_names(updated)
    assert_one_pair(updated)


@pytest.mark.parametrize("failure", ["fsync:error=EIO", "rename:error=ENOSPC", "flock:error=ENOLCK"])
def test_a_disk_that_fails_leaves_the_old_pair(updated, failure):
    before = updated.identity_files()
    result = renew(updated, inject=[failure])
    assert (result.status, result.out) == (STORE_FAILED, "")
    assert re.fullmatch(r"tqenroll: .*/usr/torqv/var/identity.*\.\n", result.err)
    assert updated.identity_files() == before


def test_runs_beside_renewals_find_one_pair_or_the_other(updated):
    """Reads go on while the identity is renewed again and again, and none meets half of it."""
    results = []

    def read():
        for _ in range(12):
            results.append(updated.command("-readallhosts"))

    reader = threading.Thread(target=read)
    reader.start()
    renewals = 0
    while reader.is_alive() or renewals == 0:
        assert renew(updated).status == DONE
        renewals += 1
    reader.join()
    assert [result.err for result in results if result.status != 0] == []
    assert_one_pair(updated)


def test_two_renewals_at_once_leave_one_whole_pair(updated):
    runs = [updated.start_process([f"{BIN_DIR}/tqenroll", "--renew"]) for _ in range(4)]
    results = [run.wait() for run in runs]
    assert DONE in {result.status for result in results}
    for result in results:
        assert result.status == DONE or "was removed or replaced by another run meanwhile" in result.err
    assert {file.name for file in updated.var("identity").iterdir()} == expected_names(updated)
    assert_one_pair(updated)


def test_no_secret_is_said_or_logged(updated):
    result = renew(updated)
    (identity,), files = updated.identities(), updated.identity_files()
    key = files[identity["privateKey"]].decode().splitlines()[1]
    token = json.loads(files[f"token.host.{MASTER1}"])["token"]
    logs = "".join(file.read_text() for file in updated.log_files("tqenroll"))
    assert "Renewed the host identity" in logs
    for secret in (key, token):
        assert secret not in result.out + result.err + logs
