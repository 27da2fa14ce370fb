"""Whom a master server trusts, and that no secret is told. Servers not to be trusted are among the faults."""

import json


def secret_texts(box):
    """The token and the key of the first identity."""
    token = json.loads(next(box.var("identity").glob("token.host.*")).read_text())["token"]
    return [token, (box.var("identity") / box.identities()[0]["privateKey"]).read_text()]


def test_a_revoked_host_is_refused(enrolled, master):
    assert enrolled.command("-update").status == 0
    master.revoke(enrolled.host_name)
    result = enrolled.command("-read")
    assert result.status != 0
    assert "hostName" not in result.out


def test_no_secret_stands_in_log_output_or_cache(enrolled, master):
    assert enrolled.command("-update").status == 0
    master.stop()
    assert enrolled.command("-read").status == 25
    places = [*enrolled.log_files(), enrolled.cache_file(), *(enrolled.shared / "output").iterdir()]
    for place in places:
        content = place.read_text(errors="replace")
        assert [secret for secret in secret_texts(enrolled) if secret in content] == [], place
