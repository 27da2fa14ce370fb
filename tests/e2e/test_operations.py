"""Every operation of tqhostdbcmd against a real master server."""

import json

import pytest

pytestmark = pytest.mark.shipped

PROGRAM = "tqhostdbcmd"
USAGE = "Use '-reloadconfig' options with either the '-security' or the '-host' option.\n"


def host_id(box):
    return box.identities()[0]["hostId"]


@pytest.fixture
def updated(enrolled):
    """A host whose record is on its master server."""
    result = enrolled.command("-update")
    assert result.status == 0, result.err
    enrolled.forget_log()
    return enrolled


def test_local_info_prints_the_record_and_asks_no_server(enrolled, master):
    master.stop()
    result = enrolled.command("-localinfo")
    assert (result.status, result.err) == (0, "")
    assert result.out.endswith("}\n")
    record = json.loads(result.out)
    assert record["hostName"] == enrolled.host_name
    assert record["hostId"] == host_id(enrolled)


def test_local_info_logs_what_it_printed(enrolled):
    result = enrolled.command("-localinfo")
    entries = [entry for entry in enrolled.log() if entry.context == "getLocalHostInfo"]
    assert [(entry.level, entry.text) for entry in entries] == [
        (2, f"Got localinfo JSON = [ {result.out.strip()} ]")
    ]


def test_every_run_logs_its_release_and_its_arguments_first(enrolled):
    enrolled.command("-LocalInfo", "word")
    first, second = enrolled.log()[:2]
    assert (first.level, first.context) == (2, PROGRAM)
    assert first.text == "INITIATING: Torquenix 9.1.0.1 created: 0"
    assert second.text.rstrip() == f"/usr/torqv/torquenix/bin/{PROGRAM} -LocalInfo word"


def test_a_read_of_the_own_host_gives_what_was_sent_but_for_the_release_version(updated):
    local = json.loads(updated.command("-localinfo").out)
    result = updated.command("-read", "-display")
    assert (result.status, result.err) == (0, "")
    # The form that a single host is read in never looks at osReleaseVersion.
    assert json.loads(result.out) == local | {"osReleaseVersion": ""}


def test_a_read_by_name_gives_the_whole_record(updated):
    local = json.loads(updated.command("-localinfo").out)
    result = updated.command("-READ", "-HostName", updated.host_name, "-display")
    assert (result.status, result.err) == (0, "")
    assert json.loads(result.out) == local


def test_a_read_by_identifier_wins_over_the_name(updated):
    result = updated.command("-read", "-hostname", "nobody", "-hostid", host_id(updated), "-display")
    assert result.status == 0
    assert json.loads(result.out)["hostName"] == updated.host_name


def test_a_read_without_display_prints_nothing(updated):
    result = updated.command("-read")
    assert (result.status, result.out, result.err) == (0, "", "")
    assert "Host read completed successfully" in updated.log_texts(2)


def test_a_read_of_a_name_that_the_server_does_not_have_is_114(updated):
    result = updated.command("-read", "-hostname", "nobody.example", "-display")
    assert (result.status, result.out) == (114, "")
    assert "Unable to get host information from server response." in updated.log_texts(16)
    assert f"{PROGRAM}Host read failed with error : 114" in updated.log_texts(16)


def test_a_read_of_an_identifier_that_the_server_does_not_have_shows_the_servers_answer(updated):
    result = updated.command("-read", "-hostid", "00000000-0000-4000-8000-000000000000")
    answer = json.loads(result.err)
    assert answer["errorCode"] != 0
    assert result.status == (answer["errorCode"] if answer["errorCode"] <= 255 else 252)
    assert any("HTTP status = 404" in text for text in updated.log_texts(2))


def test_all_hosts_of_a_server_without_any_are_an_empty_list(enrolled):
    result = enrolled.command("-readallhosts", "-display")
    assert (result.status, result.out, result.err) == (0, '{"hosts":[]}\n', "")


def test_all_hosts_are_printed_as_one_document(updated):
    result = updated.command("-readallhosts", "-display")
    assert (result.status, result.err) == (0, "")
    assert json.loads(result.out) == {"hosts": [json.loads(updated.command("-localinfo").out)]}


def test_the_list_of_all_hosts_separates_its_records_by_a_line_end_a_comma_and_a_blank(enrolled, scripted):
    hosts = [{"uuid": "1", "hostName": "a"}, {"uuid": "2", "hostName": "b"}]
    scripted({"method": "GET", "answer": {"status": 200, "body": json.dumps({"hosts": hosts})}})
    result = enrolled.command("-readallhosts", "-display")
    first, second, last = result.out.splitlines()
    assert first.startswith('{"hosts":[{') and first.endswith("}")
    assert second.startswith(", {") and second.endswith("}")
    assert last == "]}"
    assert [host["hostName"] for host in json.loads(result.out)["hosts"]] == ["a", "b"]


def test_all_hosts_without_display_print_nothing(updated):
    result = updated.command("-readallhosts")
    assert (result.status, result.out, result.err) == (0, "", "")


def test_a_delete_removes_the_own_record_from_the_server(updated):
    result = updated.command("-delete")
    assert (result.status, result.out, result.err) == (0, "", "")
    assert "Host deletion completed successfully" in updated.log_texts(2)
    assert updated.command("-readallhosts", "-display").out == '{"hosts":[]}\n'


def test_a_delete_of_a_record_that_is_not_there_shows_the_servers_answer(enrolled):
    result = enrolled.command("-delete")
    assert json.loads(result.err)["errMessage"]
    assert result.status != 0


def test_the_cache_knows_nothing_of_a_deletion_so_only_a_forced_update_sends_again(updated):
    updated.command("-delete")
    assert updated.command("-update").status == 0
    assert updated.command("-readallhosts", "-display").out == '{"hosts":[]}\n'
    assert updated.command("-update", "-force").status == 0
    assert len(json.loads(updated.command("-readallhosts", "-display").out)["hosts"]) == 1


@pytest.mark.parametrize(
    "flag, path",
    [
        ("-host", "torquenix/config/hosts/reloadconfig"),
        ("-security", "torquenix/security/settings/reloadconfig"),
    ],
)
def test_a_reload_asks_for_the_named_settings(enrolled, scripted, flag, path):
    server = scripted()
    result = enrolled.command("-reloadconfig", flag)
    assert (result.status, result.out, result.err) == (0, "", "")
    assert server.seen() == [("GET", path)]


@pytest.mark.parametrize("flag", ["-host", "-security"])
def test_a_real_server_reloads_its_settings(enrolled, flag):
    result = enrolled.command("-reloadconfig", flag)
    assert (result.status, result.out, result.err) == (0, "", "")
    assert "Reloaded configuration successfully" in enrolled.log_texts(2)


@pytest.mark.parametrize("flags", [[], ["-host", "-security"]])
def test_a_reload_needs_exactly_one_flag_and_else_asks_nothing_and_ends_with_0(enrolled, scripted, flags):
    server = scripted()
    result = enrolled.command("-reloadconfig", *flags)
    assert (result.status, result.out) == (0, "")
    assert result.err == USAGE + "Requested operation failed with unknown error\n"
    assert server.requests() == []


def test_the_last_operation_on_the_line_wins(updated):
    assert updated.command("-read", "-delete").status == 0
    assert updated.command("-readallhosts", "-display").out == '{"hosts":[]}\n'


def test_bare_words_are_ignored(updated):
    assert updated.command("word", "-read", "another").status == 0


@pytest.mark.parametrize("arguments", [[], ["-display"]])
def test_no_operation_resolves_the_master_server_and_does_nothing_else(enrolled, scripted, arguments):
    server = scripted()
    result = enrolled.command(*arguments)
    assert (result.status, result.out, result.err) == (0, "", "")
    assert "tqhostdbcmd: MasterServer = master1.example" in enrolled.log_texts(2)
    assert server.requests() == []


def test_every_request_carries_token_type_and_program(enrolled, scripted):
    server = scripted()
    assert enrolled.command("-update").status == 0
    (put,) = [request for request in server.requests() if request["method"] == "PUT"]
    assert put["headers"]["authorization"].startswith("Bearer ")
    assert put["headers"]["accept"] == "application/json"
    assert put["headers"]["content-type"] == "application/json"
    assert put["headers"]["user-agent"] == "tqhostdbcmd/9.1.0.1"
    assert put["client"] == [enrolled.host_name]


def test_files_that_earlier_releases_left_are_shredded_in_every_run(box):
    folder = box.path("/usr/torqv/torquenix/bin")
    gone = ["hostdb.cache.master1.example", "hostdbcache.master1.example.lock"]
    kept = ["hostdbcache.master1.example", "myhostdb.cache"]
    for name in gone + kept:
        (folder / name).write_text("old")
    box.command("-display")
    assert not any((folder / name).exists() for name in gone)
    assert all((folder / name).read_text() == "old" for name in kept)


def test_nothing_is_left_of_the_commands_that_a_run_starts(enrolled):
    assert enrolled.command("-localinfo").status == 0
    assert list(enrolled.path("/usr/torqv/torquenix").glob("SystemCmd*")) == []
