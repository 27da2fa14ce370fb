"""One look at a host: in step with its master servers or behind, since when, and when certificates end."""

import datetime
import json
import os
import re
import time

import pytest

from clock import at_time, prepare_clock
from snapshot import snapshot

MASTER1, MASTER2 = "master1.example", "master2.example"
ALL_WELL, NEEDS_ATTENTION, NO_IDENTITY, NOT_ROOT, STORE_DAMAGED, NOT_TOLD = 0, 1, 2, 3, 9, 12

DAY = 86400
CERTIFICATE_DAYS = 730  # of a master server's usual settings


def status(box, *arguments, **options):
    return box.enroll_program("--status", *arguments, **options)


def status_json(box, expected=ALL_WELL, **options):
    """The servers of the JSON form, by name."""
    result = status(box, "--json", **options)
    assert (result.status, result.err) == (expected, "")
    return {server["server"]: server for server in json.loads(result.out)["servers"]}


def metrics(box, expected=ALL_WELL):
    """Sample ("name{labels}") to value of the text that a Prometheus collector reads; no line is skipped."""
    result = status(box, "--metrics")
    assert (result.status, result.err) == (expected, "")
    samples, named = {}, []
    for line in result.out.splitlines():
        if head := re.fullmatch(r"# (HELP|TYPE) (\w+) (.+)", line):
            named.append((head[1], head[2]))
            assert head[1] == "HELP" or head[3] == "gauge"
            continue
        sample = re.fullmatch(r'((\w+)\{\w+="[^"]*"(?:,\w+="[^"]*")*\}) (-?\d+)', line)
        assert sample, line
        assert named[-2:] == [("HELP", sample[2]), ("TYPE", sample[2])]
        samples[sample[1]] = int(sample[3])
    return samples


def whole_seconds(file):
    return file.stat().st_mtime_ns // 1_000_000_000


def shown_time(seconds):
    return datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc).strftime("%Y-%m-%d %H:%M:%S UTC")


def lock_file(box, server=MASTER1):
    return box.var(f"hostdbupdate.lock.{server}")


@pytest.fixture
def clocked(enrolled):
    """A host whose clock a test can set."""
    prepare_clock(enrolled)
    return enrolled


def test_a_host_without_an_identity_is_2_in_every_form(box):
    plain = status(box)
    assert (plain.status, plain.err) == (NO_IDENTITY, "")
    assert plain.out.startswith("This host has no identity; ") and "tqmasterd invite" in plain.out
    assert status_json(box, expected=NO_IDENTITY) == {}
    assert metrics(box, expected=NO_IDENTITY) == {}


def test_a_host_that_never_updated_says_never(enrolled):
    result = status(enrolled)
    assert (result.status, result.err) == (ALL_WELL, "")
    (line,) = result.out.splitlines()
    beginning = f"{MASTER1}: in step; last record sent never; last attempt never; host "
    assert line.startswith(beginning + enrolled.identities()[0]["hostId"] + ", certificate ends 20")
    assert line.endswith(" UTC, token none")
    server = status_json(enrolled)[MASTER1]
    assert (server["lastAttempt"], server["lastRecordSent"]) == (None, None)
    assert set(metrics(enrolled)) == {
        f'tqhostdb_last_status{{server="{MASTER1}"}}',
        f'tqhostdb_certificate_end_seconds{{server="{MASTER1}",type="host"}}',
    }


def test_after_an_update_the_times_are_those_of_cache_and_lock(enrolled):
    assert enrolled.command("-update").status == 0
    sent, attempt = whole_seconds(enrolled.cache_file()), whole_seconds(lock_file(enrolled))
    result = status(enrolled)
    (line,) = result.out.splitlines()
    assert f"; last record sent {shown_time(sent)}; last attempt {shown_time(attempt)}; host " in line
    assert line.endswith(", token valid")
    (identity,) = enrolled.identities()
    server = status_json(enrolled)[MASTER1]
    (shown,) = server.pop("identities")
    assert server == {
        "server": MASTER1,
        "state": "inStep",
        "status": None,
        "statusText": None,
        "lastAttempt": attempt,
        "lastRecordSent": sent,
        "problems": [],
    }
    end = shown.pop("certificateEnd")
    assert abs(end - time.time() - CERTIFICATE_DAYS * DAY) < DAY
    assert shown == {
        "type": "host",
        "hostId": identity["hostId"],
        "hostName": enrolled.host_name,
        "token": "valid",
    }


def test_an_unchanged_update_is_an_attempt_and_sends_no_record(enrolled):
    assert enrolled.command("-update").status == 0
    for file in (enrolled.cache_file(), lock_file(enrolled)):
        enrolled.run(["touch", "--date=2020-01-01", f"/usr/torqv/var/{file.name}"])
    assert enrolled.command("-update").status == 0
    server = status_json(enrolled)[MASTER1]
    assert time.time() - server["lastAttempt"] < 600
    assert server["lastRecordSent"] == whole_seconds(enrolled.cache_file()) < time.time() - 365 * DAY


def test_a_failed_update_is_behind_with_its_status_and_the_next_good_one_is_in_step(enrolled, master):
    assert enrolled.command("-update").status == 0
    master.stop()
    enrolled.update_without_waiting("-force")
    result = status(enrolled)
    assert (result.status, result.err) == (NEEDS_ATTENTION, "")
    words = "The server could not be reached because "
    assert result.out.startswith(f"{MASTER1}: behind with status 25 ({words}")
    server = status_json(enrolled, expected=NEEDS_ATTENTION)[MASTER1]
    assert (server["state"], server["status"]) == ("behind", 25)
    assert server["statusText"].startswith(words)
    samples = metrics(enrolled, expected=NEEDS_ATTENTION)
    assert samples[f'tqhostdb_last_status{{server="{MASTER1}"}}'] == 25
    assert 0 <= samples[f'tqhostdb_last_attempt_seconds{{server="{MASTER1}"}}'] < 600
    assert 0 <= samples[f'tqhostdb_last_record_sent_seconds{{server="{MASTER1}"}}'] < 600
    master.serve()
    assert enrolled.command("-update").status == 0
    assert status(enrolled).status == ALL_WELL


@pytest.mark.parametrize(
    "days, verdict, words",
    [
        (CERTIFICATE_DAYS - 31, ALL_WELL, r"UTC, token"),
        (CERTIFICATE_DAYS - 29, NEEDS_ATTENTION, r"UTC \(in 28 days\), token"),
        (CERTIFICATE_DAYS + 1, NEEDS_ATTENTION, r"UTC \(ended\), token"),
    ],
)
def test_a_certificate_is_worth_a_warning_30_days_before_its_end(clocked, days, verdict, words):
    result = status(clocked, env=at_time(clocked, f"+{days}d", "tqenroll"))
    assert (result.status, result.err) == (verdict, "")
    assert re.search(words, result.out), result.out


def test_the_seconds_to_the_end_fall_below_0(clocked):
    options = {"env": at_time(clocked, f"+{CERTIFICATE_DAYS + 2}d", "tqenroll")}
    result = status(clocked, "--metrics", **options)
    value = re.search(r"tqhostdb_certificate_end_seconds\{.*\} (-?\d+)", result.out)[1]
    assert -3 * DAY < int(value) < -1 * DAY


def test_a_token_that_has_ended_is_called_expired(clocked):
    assert clocked.command("-update").status == 0
    result = status(clocked, env=at_time(clocked, "+2d", "tqenroll"))
    assert result.status == ALL_WELL
    assert result.out.endswith(", token expired\n")


def test_each_server_has_a_line_with_all_its_identities(enrolled, master):
    second = enrolled.master(MASTER2).serve()
    assert enrolled.enrol(second).status == 0
    assert enrolled.enrol(master, cluster=True, host="cluster.example").status == 0
    first_line, second_line = status(enrolled).out.splitlines()
    host, other, cluster = enrolled.identities()
    assert first_line.startswith(f"{MASTER1}: ") and second_line.startswith(f"{MASTER2}: ")
    assert f"; host {host['hostId']}, " in first_line
    assert f"; cluster {cluster['hostId']}, " in first_line
    assert f"; host {other['hostId']}, " in second_line
    servers = status_json(enrolled)
    assert [identity["type"] for identity in servers[MASTER1]["identities"]] == ["host", "cluster"]
    ends = {sample for sample in metrics(enrolled) if sample.startswith("tqhostdb_certificate_end_seconds")}
    assert ends == {
        f'tqhostdb_certificate_end_seconds{{server="{MASTER1}",type="host"}}',
        f'tqhostdb_certificate_end_seconds{{server="{MASTER1}",type="cluster"}}',
        f'tqhostdb_certificate_end_seconds{{server="{MASTER2}",type="host"}}',
    }


# What is put in the place of a file: the file's name, its content (None for a folder), the verdict, and the
# sentence that is then said about the file.
NO_CERTIFICATE = "-----BEGIN CERTIFICATE-----\nAA\n"
DAMAGED = {
    "status-empty": (f"hostdbupdate.status.{MASTER1}", "", "holds no status"),
    "status-text": (f"hostdbupdate.status.{MASTER1}", "25 or so\n", "holds no status"),
    "status-binary": (f"hostdbupdate.status.{MASTER1}", "\0\1\2" * 100, "holds no status"),
    "status-large": (f"hostdbupdate.status.{MASTER1}", "7" * 2_000_000, "cannot be read"),
    "status-folder": (f"hostdbupdate.status.{MASTER1}", None, "cannot be read"),
    "cache-folder": (f"hostdb.cache.{MASTER1}", None, "is not a regular file"),
    "lock-folder": (f"hostdbupdate.lock.{MASTER1}", None, "is not a regular file"),
    "token-damaged": (f"identity/token.host.{MASTER1}", '{"token": 1', "is damaged"),
    "token-folder": (f"identity/token.host.{MASTER1}", None, "cannot be read"),
    "certificate-damaged": ("certificate", NO_CERTIFICATE, "holds no usable certificate"),
    "certificate-folder": ("certificate", None, "cannot be read"),
}


@pytest.mark.parametrize("damage", DAMAGED)
def test_a_damaged_file_is_a_sentence_of_its_server(enrolled, damage):
    name, content, words = DAMAGED[damage]
    if name == "certificate":
        name = f"identity/{enrolled.identities()[0]['certificate']}"
    file = enrolled.var(name)
    file.unlink(missing_ok=True)
    if content is None:
        file.mkdir()
    else:
        file.write_text(content)
    result = status(enrolled)
    assert (result.status, result.err) == (NEEDS_ATTENTION, "")
    (line,) = result.out.splitlines()
    assert f"; /usr/torqv/var/{name} {words}" in line
    (problem,) = status_json(enrolled, expected=NEEDS_ATTENTION)[MASTER1]["problems"]
    assert problem.startswith(f"/usr/torqv/var/{name} {words}")
    metrics(enrolled, expected=NEEDS_ATTENTION)


def test_a_missing_certificate_is_said_and_needs_attention(enrolled):
    name = enrolled.identities()[0]["certificate"]
    (enrolled.var("identity") / name).unlink()
    result = status(enrolled)
    assert result.status == NEEDS_ATTENTION
    assert f"; the certificate /usr/torqv/var/identity/{name} is missing" in result.out
    assert "certificate ends unknown" in result.out


@pytest.mark.parametrize("form", [[], ["--json"], ["--metrics"]])
def test_a_look_changes_nothing(enrolled, form):
    assert enrolled.command("-update").status == 0
    left_over = enrolled.var("identity") / (".tq-new.4194303." + "0" * 32)
    left_over.touch()
    os.utime(left_over, (0, 0))
    before = snapshot(enrolled.torqv)
    assert status(enrolled, *form).status == ALL_WELL
    assert snapshot(enrolled.torqv) == before
    assert enrolled.command("-update").status == 0
    assert not left_over.exists(), "what an update clears away is no test of a look"


def test_a_look_waits_for_no_lock(enrolled):
    assert enrolled.command("-update").status == 0
    for lock in (f"hostdbupdate.lock.{MASTER1}", f"hostdbcache.{MASTER1}.lock", "identity/identity.lock"):
        holder = enrolled.hold_lock(f"/usr/torqv/var/{lock}")
        assert status(enrolled, timeout=20).status == ALL_WELL
        enrolled.let_go(holder)


def test_who_is_not_root_gets_3(enrolled):
    result = status(enrolled, administrator=False)
    assert (result.status, result.out) == (NOT_ROOT, "")
    assert result.err == "tqenroll: only root may read or change this host's identities.\n"


def test_a_store_of_a_newer_version_says_what_to_do(enrolled):
    store = enrolled.var("identity") / "identity.json"
    newer = store.read_text().replace('"version": 1', '"version": 2')
    store.write_text(newer)
    result = status(enrolled)
    assert (result.status, result.out) == (STORE_DAMAGED, "")
    assert result.err == (
        "tqenroll: the identity store cannot be used: /usr/torqv/var/identity/identity.json: it is of "
        "version 2, made by a newer release, and this one knows version 1; install that release again.\n"
    )
    assert enrolled.enroll_program("--list").err == result.err
    assert enrolled.enroll_program("--renew").err == result.err
    assert store.read_text() == newer


def test_a_status_that_cannot_be_shown_is_not_mistaken_for_one(enrolled):
    result = status(enrolled, stdout="/dev/full")
    assert result.status == NOT_TOLD
    cause = "No space left on device"
    assert result.err == f"tqenroll: the status could not be written to standard output: {cause}.\n"


@pytest.mark.parametrize(
    "arguments",
    [
        ["--json", "--metrics"],
        ["--server", MASTER1],
        ["--cluster"],
        ["--list"],
        ["--renew"],
        ["--invitation", "x"],
        ["--jsn"],
    ],
)
def test_what_does_not_belong_to_a_look_is_refused(enrolled, arguments):
    result = status(enrolled, *arguments)
    assert (result.status, result.out) == (NOT_TOLD, "")  # 2 would say that there is no identity
    assert re.fullmatch(r"tqenroll: .*\.\n", result.err)
