"""How a host joins and leaves a master server, and what a failed attempt leaves behind."""

import json
import os
import stat

import pytest

from clock import at_time, prepare_clock

pytestmark = pytest.mark.shipped

MASTER1, MASTER2 = "master1.example", "master2.example"


def test_an_invitation_gives_an_identity_that_works(box, master):
    result = box.enrol(master)
    assert (result.status, result.err) == (0, "")
    (identity,) = box.identities()
    assert identity["server"] == MASTER1
    assert identity["certType"] == "host"
    assert identity["hostName"] == box.host_name
    assert identity["caMode"] == "internal"
    assert box.command("-update").status == 0


def test_the_store_and_its_keys_are_the_owners_alone(enrolled):
    folder = enrolled.var("identity")
    assert stat.S_IMODE(folder.stat().st_mode) == 0o700
    modes = {file.name: oct(stat.S_IMODE(file.stat().st_mode)) for file in folder.iterdir()}
    assert set(modes.values()) == {"0o600"}, modes


def test_a_wrong_fingerprint_is_refused_and_the_invitation_is_never_sent(box, master):
    invitation = box.master(MASTER1, "other-authority").invite(box.host_name)
    good = master.invite(box.host_name)
    result = box.enrol(master, good.text, invitation.fingerprint)
    assert (result.status, result.out) == (6, "")
    assert result.err == (
        f"tqenroll: the authority of server {MASTER1} has another fingerprint than the given one, so the "
        "invitation was not sent; take both anew from tqmasterd invite, and if that changes nothing, then "
        "another machine answers under this name.\n"
    )
    assert box.identity_files() == {}
    assert box.enrol(master, good.text, good.fingerprint).status == 0


def test_an_invitation_for_another_host_is_refused_and_says_for_whom_it_was(box, master):
    box.add_config("CLIENT_NAME = h1.example")
    result = box.enrol(master, host="db7.example")
    assert (result.status, result.out) == (7, "")
    assert result.err == (
        "tqenroll: the invitation was for host db7.example, this host is h1.example, and it is spent now; "
        "ask for one for this host (tqmasterd invite --host h1.example), or set CLIENT_NAME in "
        "/usr/torqv/torquenix/kx.conf if the invited name is this host's.\n"
    )
    assert box.identity_files() == {}
    assert box.enrol(master).status == 0


def test_a_host_that_enrols_again_keeps_its_identifier_and_its_one_record(enrolled, master):
    assert enrolled.command("-update").status == 0
    (before,) = enrolled.identities()
    assert enrolled.enrol(master).status == 0
    (after,) = enrolled.identities()
    assert after["hostId"] == before["hostId"]
    assert after["certificate"] != before["certificate"]
    assert enrolled.command("-update", "-force").status == 0
    listed = json.loads(enrolled.command("-readallhosts", "-display").out)
    assert [host["hostId"] for host in listed["hosts"]] == [before["hostId"]]


def test_a_host_that_was_revoked_joins_under_a_new_identifier(enrolled, master):
    (before,) = enrolled.identities()
    master.revoke(enrolled.host_name)
    assert enrolled.enrol(master).status == 0
    assert enrolled.identities()[0]["hostId"] != before["hostId"]
    assert enrolled.command("-update").status == 0


def test_a_refused_invitation_leaves_the_identity_that_was_there(enrolled, master):
    before = enrolled.identity_files()
    assert enrolled.enrol(master, host="db7.example").status == 7
    assert enrolled.identity_files() == before


def test_the_configured_name_of_this_host_may_be_invited(box, master):
    box.add_config("CLIENT_NAME = db7.example")
    assert box.enrol(master, host="db7.example").status == 0
    assert box.identities()[0]["hostName"] == "db7.example"


def test_the_host_name_without_its_domain_may_be_invited(box, master):
    assert box.enrol(master, host=box.host_name.split(".")[0]).status == 0


# A clock that is off by a day

CLOCK_SENTENCE = (
    f"tqenroll: server {MASTER1} on port 1556 is not trusted: the server's certificate is not trusted (SSL "
    "certificate problem: certificate is not yet valid); check the clocks of this host and of the server.\n"
)


def enrol_at(box, master, when):
    invitation = master.invite(box.host_name)
    arguments = ["--server", MASTER1, "--invitation", invitation.text]
    arguments += ["--fingerprint", invitation.fingerprint]
    return box.enroll_program(*arguments, env=at_time(box, when, "tqenroll"))


def test_a_host_a_day_behind_is_told_to_look_at_the_clocks(box, master):
    prepare_clock(box)
    result = enrol_at(box, master, "-1d")
    assert (result.status, result.out, result.err) == (5, "", CLOCK_SENTENCE)
    assert box.identity_files() == {}


def test_a_host_a_day_ahead_enrols_and_updates(box, master):
    prepare_clock(box)
    assert enrol_at(box, master, "+1d").status == 0
    assert box.command("-update", env=at_time(box, "+1d")).status == 0


def test_an_update_of_a_host_a_day_behind_says_in_the_log_to_look_at_the_clocks(enrolled):
    prepare_clock(enrolled)
    result = enrolled.command("-read", env=at_time(enrolled, "-1d"))
    assert result.err == "Requested operation failed with error: 7621\n"
    assert any("check the clocks of this host and of the server" in text for text in enrolled.log_texts(16))


def test_a_renewal_of_a_host_a_day_behind_says_so_and_changes_nothing(enrolled):
    prepare_clock(enrolled)
    before = enrolled.identity_files()
    result = enrolled.enroll_program("--renew", env=at_time(enrolled, "-1d", "tqenroll"))
    assert (result.status, result.out, result.err) == (5, "", CLOCK_SENTENCE)
    assert enrolled.identity_files() == before


@pytest.mark.parametrize("fingerprint", ["", "00", "zz" * 32, "0" * 63, "0" * 128])
def test_a_text_that_is_no_fingerprint_is_refused(box, master, fingerprint):
    good = master.invite(box.host_name)
    result = box.enrol(master, good.text, fingerprint or " ")
    assert result.status != 0 and result.err
    assert box.identity_files() == {}


def test_a_fingerprint_may_be_written_in_capitals(box, master):
    good = master.invite(box.host_name)
    assert box.enrol(master, good.text, good.fingerprint.upper()).status == 0


def test_a_server_that_cannot_be_reached_is_named(box):
    master = box.master()
    good = master.invite(box.host_name)
    result = box.enrol(master, good.text, good.fingerprint)
    assert result.status != 0
    assert MASTER1 in result.err
    assert box.identity_files() == {}


def test_a_server_under_another_name_is_refused(box, master):
    good = master.invite(box.host_name)
    box.write_hosts(f"{master.address} alias.example\n")
    result = box.enroll_program(
        "--server", "alias.example", "--invitation", good.text, "--fingerprint", good.fingerprint
    )
    assert result.status != 0
    assert box.identity_files() == {}


def test_a_second_server_leaves_the_first_identity_alone(enrolled):
    second = enrolled.master(MASTER2).serve()
    before = enrolled.identity_files()
    assert enrolled.enrol(second).status == 0
    after = enrolled.identity_files()
    assert [identity["server"] for identity in enrolled.identities()] == [MASTER1, MASTER2]
    kept = {name: content for name, content in before.items() if name != "identity.json"}
    assert kept.items() <= after.items()


def test_the_list_shows_each_identity_and_when_it_ends(enrolled):
    result = enrolled.enroll_program("--list")
    assert result.status == 0
    assert MASTER1 in result.out
    assert enrolled.host_name in result.out
    assert "20" in result.out


def test_removing_the_last_identity_deletes_the_store(enrolled):
    assert enrolled.enroll_program("--remove", "--server", MASTER1).status == 0
    assert enrolled.identity_files() == {}
    assert enrolled.command("-read").err == "Requested operation failed with error: 7610\n"


def test_removing_one_identity_keeps_the_others(enrolled):
    second = enrolled.master(MASTER2).serve()
    assert enrolled.enrol(second).status == 0
    assert enrolled.enroll_program("--remove", "--server", MASTER1).status == 0
    assert [identity["server"] for identity in enrolled.identities()] == [MASTER2]
    assert not [name for name in enrolled.identity_files() if MASTER1 in name]


def test_removing_what_is_not_there_is_an_error(enrolled):
    result = enrolled.enroll_program("--remove", "--server", "nobody.example")
    assert result.status != 0
    assert "nobody.example" in result.err


@pytest.mark.parametrize("arguments", [[], ["--server", MASTER1], ["--bogus"], ["--list", "--remove"]])
def test_a_command_line_that_makes_no_sense_is_refused(box, arguments):
    result = box.enroll_program(*arguments)
    assert result.status != 0
    assert result.err
    assert box.identity_files() == {}


@pytest.mark.parametrize("name", ["../x", "a/b", ".hidden", "daemon", "a b", "x" * 254])
def test_a_server_name_that_could_not_be_a_file_is_refused(box, master, name):
    good = master.invite(box.host_name)
    result = box.enroll_program(
        "--server", name, "--invitation", good.text, "--fingerprint", good.fingerprint
    )
    assert result.status != 0
    assert box.identity_files() == {}
    assert not os.path.lexists(box.var("x"))


def test_a_store_that_is_damaged_is_not_overwritten(enrolled, master):
    store = enrolled.var("identity") / "identity.json"
    store.write_text("{")
    result = enrolled.enrol(master)
    assert result.status != 0
    assert "identity" in result.err
    assert store.read_text() == "{"


def test_secrets_stand_nowhere_but_in_the_store(box, master):
    invitation = master.invite(box.host_name)
    assert box.enrol(master, invitation.text, invitation.fingerprint).status == 0
    assert box.command("-update").status == 0
    key = next(file for file in box.var("identity").glob("*.key")).read_text().splitlines()[1]
    (token_file,) = box.var("identity").glob("token.host.*")
    token = token_file.read_text().split('"token":')[1].split('"')[1]
    secrets = [invitation.text, key, token]
    places = [file for file in box.torqv.rglob("*") if file.is_file() and file.parent.name != "identity"]
    places += [file for file in master.data_outside.rglob("*") if file.is_file()]
    places += [file for file in (box.shared / "output").iterdir() if "tqmasterd" not in file.name]
    for place in places:
        content = place.read_bytes()
        assert [secret for secret in secrets if secret.encode() in content] == [], place
