"""Whom the command trusts, and who trusts the command."""

import json
import subprocess

import pytest

from servers import raw_answer

MASTER1 = "master1.example"
NOT_TRUSTED = "Requested operation failed with error: 7621\n"
REFUSED = "Requested operation failed with error: 7622\n"


def secret_texts(box):
    """The token and the key of the first identity."""
    token = json.loads(next(box.var("identity").glob("token.host.*")).read_text())["token"]
    return [token, (box.var("identity") / box.identities()[0]["privateKey"]).read_text()]


def certificate(folder, authority, *arguments):
    """A key and a certificate made with the openssl program, signed by an authority's PEM."""
    key, request, signed = folder / "x.key", folder / "x.csr", folder / "x.crt"
    subprocess.run(
        ["openssl", "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]
        + ["-keyout", key, "-out", request, "-subj", "/CN=x"],
        check=True,
        capture_output=True,
    )
    extensions = folder / "x.ext"
    extensions.write_text("\n".join(arguments[1:]))
    subprocess.run(
        ["openssl", "x509", "-req", "-in", request, "-CA", authority, "-CAkey", authority]
        + ["-set_serial", "7", "-out", signed, "-extfile", extensions, *arguments[0]],
        check=True,
        capture_output=True,
    )
    return key.read_text() + signed.read_text()


def serve_with(box, master, scripted, pem):
    """A scripted server at the master server's address that shows a certificate of the test's own."""
    folder = box.shared / "own-certificate"
    folder.mkdir()
    (folder / "server.pem").write_text(pem)
    (folder / "authority.pem").write_text((master.data_outside / "authority.pem").read_text())

    class Place:
        data = "/shared/own-certificate"

    return scripted(certificate_of=Place)


def test_a_server_of_a_foreign_authority_is_refused_and_gets_no_token(enrolled, scripted):
    assert enrolled.command("-readallhosts").status == 0
    foreign = enrolled.master(MASTER1, "foreign")
    server = scripted(certificate_of=foreign)
    for arguments in (["-read"], ["-readallhosts"], ["-delete"], ["-reloadconfig", "-host"]):
        result = enrolled.command(*arguments)
        assert (result.status, result.out, result.err) == (252, "", NOT_TRUSTED)
    assert server.requests() == []
    assert any(MASTER1 in text and "certificate" in text for text in enrolled.log_texts(16))


def test_a_foreign_authority_that_the_machine_trusts_is_refused_all_the_same(enrolled, scripted):
    foreign = enrolled.master(MASTER1, "foreign")
    folder = enrolled.etc / "ssl" / "certs"
    folder.mkdir(parents=True)
    text = (foreign.data_outside / "authority.pem").read_text()
    pem = text[text.index("-----BEGIN CERTIFICATE") :]
    (folder / "ca-certificates.crt").write_text(pem)
    (folder / "foreign.pem").write_text(pem)
    subprocess.run(["openssl", "rehash", str(folder)], check=True)
    server = scripted(certificate_of=foreign)
    assert enrolled.command("-read").err == NOT_TRUSTED
    assert server.requests() == []


def test_an_update_towards_a_server_that_is_not_trusted_fails_after_its_attempts(enrolled, scripted):
    foreign = enrolled.master(MASTER1, "foreign")
    server = scripted(certificate_of=foreign)
    result = enrolled.update_without_waiting()
    assert (result.status, result.err) == (252, NOT_TRUSTED)
    assert result.injected_waits(10) == 4
    assert enrolled.status_file().read_text() == "7621\n"
    assert server.requests() == []


def test_a_server_of_the_right_authority_under_another_name_is_refused(enrolled, master, scripted):
    authority = master.data_outside / "authority.pem"
    pem = certificate(
        enrolled.work, authority, ["-days", "1"], "subjectAltName=DNS:other.example", "extendedKeyUsage=serverAuth"
    )
    server = serve_with(enrolled, master, scripted, pem)
    assert enrolled.command("-read").err == NOT_TRUSTED
    assert server.requests() == []


def test_a_server_certificate_that_has_ended_is_refused(enrolled, master, scripted):
    authority = master.data_outside / "authority.pem"
    pem = certificate(
        enrolled.work, authority, ["-days", "-1"], f"subjectAltName=DNS:{MASTER1}", "extendedKeyUsage=serverAuth"
    )
    server = serve_with(enrolled, master, scripted, pem)
    assert enrolled.command("-read").err == NOT_TRUSTED
    assert any("expired" in text for text in enrolled.log_texts(16))
    assert server.requests() == []


def test_a_hosts_certificate_does_not_pass_for_a_servers(enrolled, master, scripted):
    authority = master.data_outside / "authority.pem"
    pem = certificate(
        enrolled.work, authority, ["-days", "1"], f"subjectAltName=DNS:{MASTER1}", "extendedKeyUsage=clientAuth"
    )
    server = serve_with(enrolled, master, scripted, pem)
    assert enrolled.command("-read").err == NOT_TRUSTED
    assert server.requests() == []


def test_a_good_certificate_of_the_same_making_is_accepted(enrolled, master, scripted):
    # So that the refusals above are known to come from what each of them changed.
    authority = master.data_outside / "authority.pem"
    pem = certificate(
        enrolled.work, authority, ["-days", "1"], f"subjectAltName=DNS:{MASTER1}", "extendedKeyUsage=serverAuth"
    )
    serve_with(enrolled, master, scripted, pem)
    assert enrolled.command("-readallhosts").status == 0


@pytest.mark.parametrize("words", [b"HTTP/1.1 400 Bad Request\r\n\r\n", b"\0" * 4000, b"SSH-2.0-x\r\n"])
def test_a_server_that_does_not_speak_tls_is_not_trusted(enrolled, scripted, words):
    scripted({"connection": raw_answer(words)})
    result = enrolled.command("-read")
    assert (result.status, result.err) == (252, NOT_TRUSTED)
    assert any(MASTER1 in text for text in enrolled.log_texts(16))


def test_a_revoked_host_is_refused(enrolled, master):
    assert enrolled.command("-update").status == 0
    master.revoke(enrolled.host_name)
    result = enrolled.command("-read")
    assert result.status != 0
    assert "hostName" not in result.out


def test_a_certificate_of_another_authority_is_refused_by_the_server(enrolled, master):
    other = enrolled.master(MASTER1, "foreign")
    master.stop()
    other.serve()
    identity = enrolled.identities()[0]
    authority = (other.data_outside / "authority.pem").read_text()
    (enrolled.var("identity") / identity["caCertificates"]).write_text(
        authority[authority.index("-----BEGIN CERTIFICATE") :]
    )
    result = enrolled.command("-read")
    assert result.status == 252
    assert result.err in (REFUSED, "Requested operation failed with error: 7625\n")


def test_no_secret_stands_in_log_output_or_cache(enrolled, master):
    assert enrolled.command("-update").status == 0
    master.stop()
    assert enrolled.command("-read").status == 25
    places = [*enrolled.log_files(), enrolled.cache_file(), *(enrolled.shared / "output").iterdir()]
    for place in places:
        content = place.read_text(errors="replace")
        assert [secret for secret in secret_texts(enrolled) if secret in content] == [], place
