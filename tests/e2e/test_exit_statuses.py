"""Each row of the table of exit statuses, and what the command prints with it."""

import json

import pytest

pytestmark = pytest.mark.shipped

PROGRAM = "/usr/torqv/torquenix/bin/tqhostdbcmd"
LOG_FOLDER = "/usr/torqv/torquenix/logs/admin"
OTHER_LANGUAGE = {"LC_ALL": "de_DE.UTF-8"}


def exit_lines(box):
    return [entry for entry in box.log() if entry.text.startswith("EXIT STATUS")]


def block_log(box):
    """Puts a folder where today's log belongs."""
    box.command("-display")
    (log,) = box.log_files()
    log.unlink()
    log.mkdir()


def test_an_operation_that_is_done_ends_with_0_and_logs_no_exit_status(enrolled):
    assert enrolled.command("-localinfo").status == 0
    assert exit_lines(enrolled) == []


def test_no_operation_ends_with_0(enrolled):
    assert enrolled.command().status == 0
    assert exit_lines(enrolled) == []


@pytest.mark.parametrize("name", ["", "folder/"])
def test_a_program_path_without_a_base_name_ends_with_36(enrolled, name):
    result = enrolled.run([name, "-localinfo"], executable=PROGRAM)
    assert (result.status, result.out, result.err) == (36, "", "")


def test_a_log_that_cannot_be_opened_ends_an_administrators_run_with_12(enrolled):
    block_log(enrolled)
    result = enrolled.command("-localinfo")
    assert (result.status, result.out) == (12, "")


def test_a_log_that_cannot_be_opened_does_not_stop_anyone_else(enrolled):
    block_log(enrolled)
    result = enrolled.command("-display", administrator=False)
    assert (result.status, result.err) == (0, "")


def test_without_a_log_folder_nobody_is_refused(enrolled):
    enrolled.path(LOG_FOLDER).rmdir()
    result = enrolled.command("-localinfo")
    assert result.status == 0
    assert not enrolled.path(LOG_FOLDER).exists()


def test_an_unknown_option_ends_with_20(enrolled):
    result = enrolled.command("-read", "-bogus", "-upd")
    assert (result.status, result.out, result.err) == (20, "unknown option\n", "")
    assert "tqhostdbcmd: unknown option '-bogus'." in enrolled.log_texts(16)
    assert "tqhostdbcmd: unknown option '-upd'." in enrolled.log_texts(16)


@pytest.mark.parametrize(
    "arguments",
    [["-read", "-hostname"], ["-read", "-hostid"], ["-read", "-hostname", "-display"]],
)
def test_a_missing_value_alone_ends_with_0(enrolled, arguments):
    result = enrolled.command(*arguments)
    assert (result.status, result.out, result.err) == (0, "unknown option\n", "")


def test_a_missing_value_beside_an_unknown_option_ends_with_20(enrolled):
    result = enrolled.command("-bogus", "-read", "-hostname")
    assert (result.status, result.out) == (20, "unknown option\n")


@pytest.mark.parametrize("arguments", [["-localinfo"], ["-read"], ["-delete"], ["-readallhosts"], []])
@pytest.mark.parametrize(
    "config", [None, ["CLIENT_NAME = h"], ["SERVER = "], ["SERVER = .hidden", "SERVER = b"]]
)
def test_without_a_master_server_every_operation_but_update_ends_with_111(box, arguments, config):
    if config is None:
        (box.torqv / "torquenix" / "kx.conf").unlink()
    else:
        box.write_config(*config)
    result = box.command(*arguments)
    assert (result.status, result.out) == (111, "")


def test_a_status_up_to_255_is_the_exit_status(enrolled, master):
    master.stop()
    result = enrolled.command("-read")
    assert (result.status, result.err) == (25, "Requested operation failed with error: 25\n")
    assert [entry.level for entry in exit_lines(enrolled)] == [2, 16]


def test_a_status_above_255_ends_with_252(box):
    result = box.command("-read")
    assert (result.status, result.err) == (252, "Requested operation failed with error: 7610\n")
    first, second = exit_lines(box)
    assert first.level == 2 and first.text.startswith("EXIT STATUS 7610: ")
    # The stream is not emptied between the two lines.
    assert second.level == 16 and second.text.count("EXIT STATUS 7610: ") == 2


def test_a_status_below_0_ends_with_252(enrolled, scripted):
    scripted({"method": "GET", "answer": {"status": 500, "body": '{"errorCode": -5, "errMessage": "x"}'}})
    assert enrolled.command("-read").status == 252


def test_a_web_service_failure_with_an_empty_body_ends_with_252(enrolled, scripted):
    scripted({"method": "GET", "answer": {"status": 500, "body": ""}})
    result = enrolled.command("-read")
    assert (result.status, result.err) == (252, "Unknown webservice exception encountered\n")
    assert exit_lines(enrolled)[0].text.startswith("EXIT STATUS 7500: ")


@pytest.mark.parametrize(
    "body, status, code, message",
    [
        ('{"errorCode":47,"errMessage":"no"}', 47, 47, "no"),
        ('{"errorCode":8600,"errMessage":"x"}', 252, 8600, "x"),
        ('{"errMessage":"only words"}', 252, 7500, "only words"),
        ('{"errorCode":"47","errMessage":1}', 252, 7500, "Error parsing response body"),
        ("<html>down</html>", 252, 7500, "Error parsing response body"),
        ('{"errorCode":0,"errMessage":"zero"}', 0, 0, "zero"),
        ('{"errorCode":4294967301,"errMessage":"low 32 bits"}', 5, 5, "low 32 bits"),
    ],
)
def test_a_web_service_failure_ends_with_its_code(enrolled, scripted, body, status, code, message):
    scripted({"method": "GET", "answer": {"status": 500, "body": body}})
    result = enrolled.command("-read")
    assert (result.status, result.out, result.err) == (status, "", body + "\n")
    assert (
        f"HTTP status = 500, HTTP response body = {body}, TQU Error code = {code}, TQU Error Msg = {message}"
        in enrolled.log_texts(2)
    )


def test_an_enumerated_status_is_an_unknown_error_and_ends_with_0(enrolled):
    result = enrolled.command("-reloadconfig")
    assert result.status == 0
    assert result.err.endswith("Requested operation failed with unknown error\n")


def test_a_line_that_ends_at_its_key_is_an_unknown_error_of_local_info_and_ends_with_0(enrolled):
    (enrolled.etc / "os-release").write_text("VERSION_ID\n")
    result = enrolled.command("-localinfo")
    assert (result.status, result.out) == (0, "")
    assert result.err == "Requested operation failed with unknown error\n"


def test_a_line_that_ends_at_its_key_is_114_in_an_update(enrolled):
    (enrolled.etc / "os-release").write_text("VERSION_ID\n")
    result = enrolled.update_without_waiting()
    assert (result.status, result.err) == (114, "Requested operation failed with error: 114\n")
    assert enrolled.status_file().read_text() == "114\n"


def test_local_info_of_a_host_without_identity_prints_nothing_and_ends_with_the_loaders_status(box):
    result = box.command("-localinfo")
    assert (result.status, result.out) == (252, "")
    assert result.err == "Requested operation failed with error: 7610\n"


def test_the_last_line_of_the_log_is_in_the_callers_language(box):
    box.command("-bogus")
    english = exit_lines(box)[-1].text
    box.forget_log()
    box.command("-bogus", env=OTHER_LANGUAGE)
    first, last = exit_lines(box)
    assert first.text == english.split("\n")[0][: len(first.text)]
    assert last.text != english


def test_the_record_is_plain_json_in_utf_8(enrolled):
    assert json.loads(enrolled.command("-localinfo").out)["osType"] == "UNIX"
