"""Certificates that are not what they should be, and identities that have ended."""

import dataclasses
import json
import shutil
import ssl
import subprocess
import time

import pytest

from attacked_server import is_error
from contract import Contract
from master_client import HOSTS, TOKENS, MasterClient, compose, make_request, openssl

DAY = 86400
REFUSAL_CODE = 7403  # of the server's error bodies
REFUSED = None  # in the handshake


@dataclasses.dataclass(frozen=True)
class Maker:
    """How a certificate is made: extensions, who signs it, and when, in days from now."""

    extensions: str = ""
    signer: str = "authority"
    begins: int = -1
    ends: int = 1


OWN_NAMES = "URI:urn:uuid:{a},DNS:a.example"
FOR_CLIENTS = "extendedKeyUsage=clientAuth\n"


def names(text):
    return FOR_CLIENTS + f"subjectAltName={text}\n"


def raw_names(*parts):
    """Alternative names byte by byte; a part is its type (2 DNS, 6 URI) and its bytes."""
    body = b"".join(bytes([0x80 | kind, len(text)]) + text for kind, text in parts)
    return FOR_CLIENTS + "subjectAltName=DER:30" + f"{len(body):02x}" + body.hex() + "\n"


CERTIFICATES = {
    "of its own": (Maker(names(OWN_NAMES), signer="itself"), REFUSED),
    "of a foreign authority": (Maker(names(OWN_NAMES), signer="foreign"), REFUSED),
    "of an authority of the same name": (Maker(names(OWN_NAMES), signer="namesake"), REFUSED),
    "of another host": (Maker(names(OWN_NAMES), signer="host"), REFUSED),
    "expired": (Maker(names(OWN_NAMES), begins=-10, ends=-1), REFUSED),
    "not valid yet": (Maker(names(OWN_NAMES), begins=5, ends=10), REFUSED),
    "for servers": (Maker("extendedKeyUsage=serverAuth\n" + f"subjectAltName={OWN_NAMES}\n"), REFUSED),
    "for signing alone": (Maker(f"keyUsage=keyCertSign\nsubjectAltName={OWN_NAMES}\n"), REFUSED),
    "without names": (Maker(FOR_CLIENTS), 403),
    "without an identifier": (Maker(names("DNS:a.example")), 403),
    "without a host name": (Maker(names("URI:urn:uuid:{a}")), 403),
    "with two identifiers": (Maker(names("URI:urn:uuid:{b}," + OWN_NAMES)), 403),
    "with two host names": (Maker(names("DNS:b.example," + OWN_NAMES)), 403),
    "with another host's name": (Maker(names("URI:urn:uuid:{a},DNS:b.example")), 403),
    "with another host's identifier": (Maker(names("URI:urn:uuid:{b},DNS:a.example")), 403),
    "with an unknown identifier": (Maker(names("URI:urn:uuid:" + "0" * 36 + ",DNS:a.example")), 403),
    "with the identifier in capitals": (Maker(names("URI:urn:uuid:{A},DNS:a.example")), 403),
    "with another kind of identifier": (Maker(names("URI:urn:oid:{a},DNS:a.example")), 403),
    "with SQL in its identifier": (Maker(raw_names((6, b"urn:uuid:' OR 1=1 --"), (2, b"a.example"))), 403),
    "with NUL in its identifier": (Maker(raw_names((6, b"urn:uuid:{a}\0x"), (2, b"a.example"))), 403),
    "with NUL in its host name": (Maker(raw_names((6, b"urn:uuid:{a}"), (2, b"a.example\0x"))), 403),
}


class Forge:
    """Makes the certificates that an attacker shows."""

    def __init__(self, attacked):
        self.attacked = attacked
        self.folder = attacked.client.folder

    def show(self, maker):
        """The host `a` with a certificate of this making, and its true token."""
        request, key = make_request(self.folder, "forged")
        texts = {"{a}": self.attacked.a.host_id, "{b}": self.attacked.b.host_id}
        texts["{A}"] = self.attacked.a.host_id.upper()
        extensions = maker.extensions
        for word, text in texts.items():
            if word.encode().hex() in extensions:  # inside a text that is given byte by byte
                extensions = self._put_in(extensions, word.encode(), text.encode())
            extensions = extensions.replace(word, text)
        (self.folder / "forged.ext").write_text(extensions)
        certificate = self._sign(maker, key, self.folder / "forged.csr")
        pem = self.folder / "forged.pem"
        pem.write_text(key.read_text() + certificate)
        return dataclasses.replace(self.attacked.a, pem=pem)

    @staticmethod
    def _put_in(extensions, word, text):
        """Puts a text into hexadecimal names and mends the two lengths around it."""
        beginning, _, digits = extensions.strip().rpartition("DER:30")
        body = bytes.fromhex(digits[2:])
        at = body.index(word)
        begin = body.rindex(b"\x86", 0, at)
        body = body[:at] + text + body[at + len(word) :]
        grown = body[begin + 1] + len(text) - len(word)
        body = body[: begin + 1] + bytes([grown]) + body[begin + 2 :]
        return beginning + "DER:30" + f"{len(body):02x}" + body.hex() + "\n"

    def _sign(self, maker, key, request):
        signed, extensions = self.folder / "forged.crt", self.folder / "forged.ext"
        arguments = ["x509", "-req", "-in", request, "-set_serial", "7", "-out", signed]
        arguments += ["-extfile", extensions]
        if maker.signer == "itself":
            arguments += ["-signkey", key]
        else:
            signer = self._signer(maker.signer)
            arguments += ["-CA", signer, "-CAkey", signer]
        faked = f"@{time.strftime('%Y-%m-%d %H:%M:%S', time.localtime(time.time() + maker.begins * DAY))}"
        command = ["faketime", "-f", faked, "openssl", *arguments, "-days", maker.ends - maker.begins]
        subprocess.run([str(word) for word in command], check=True, capture_output=True)
        return signed.read_text()

    def _signer(self, name):
        own = self.attacked.master.data_outside / "authority.pem"
        if name == "authority":
            return own
        if name == "host":
            return self.attacked.b.pem
        other = self.folder / f"{name}.pem"
        shown = subprocess.run(["openssl", "x509", "-in", own, "-noout", "-subject", "-nameopt", "compat"],
                               check=True, capture_output=True, text=True).stdout  # fmt: skip
        subject = "/CN=foreign" if name == "foreign" else shown.strip().removeprefix("subject=").strip()
        openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                "-keyout", other, "-out", f"{other}.crt", "-subj", subject)  # fmt: skip
        other.write_text(other.read_text() + other.with_suffix(".pem.crt").read_text())
        return other


def check_refused(attacked, identity, status):
    for method, target, body in [
        ("POST", TOKENS, b"{}"),
        ("GET", HOSTS, b""),
        ("GET", identity.path, b""),
        ("PUT", identity.path, b'{"osType":"forged"}'),
        ("DELETE", identity.path, b""),
        ("GET", f"{HOSTS}/reloadconfig", b""),
    ]:
        answer = attacked.client.ask(method, target, identity, body)
        assert answer is None if status is REFUSED else is_error(answer, status), (method, target)
    attacked.check_unharmed()


@pytest.mark.row("S3")
@pytest.mark.parametrize("fault", CERTIFICATES)
def test_a_certificate_that_is_not_the_hosts_own_opens_nothing(attacked, fault):
    maker, status = CERTIFICATES[fault]
    check_refused(attacked, Forge(attacked).show(maker), status)


@pytest.mark.row("S3")
def test_a_good_certificate_of_the_same_making_is_accepted(attacked):
    # So that the refusals above are known to come from what each of them changed.
    for extensions in (names(OWN_NAMES), raw_names((6, b"urn:uuid:{a}"), (2, b"a.example"))):
        good = Forge(attacked).show(Maker(extensions))
        assert attacked.client.put(good, osType="before").status == 200
    attacked.check_unharmed()


@pytest.mark.row("S3")
@pytest.mark.parametrize("file", ["authority.pem", "server.pem"])
def test_the_servers_own_certificates_are_no_hosts(attacked, file):
    check_refused(attacked, dataclasses.replace(attacked.a, pem=attacked.master.data_outside / file), REFUSED)


@pytest.mark.row("S3")
def test_no_certificate_opens_nothing(attacked):
    for request in (compose("GET", HOSTS, attacked.a), compose("PUT", attacked.a.path, attacked.a, b"{}")):
        (answer,) = attacked.client.send(request)
        assert is_error(answer, 403)
    attacked.check_unharmed()


@pytest.mark.row("S3")
@pytest.mark.filterwarnings("ignore::DeprecationWarning")  # of the versions that are tried
@pytest.mark.parametrize(
    "settings, ciphers",
    [
        ({"maximum_version": ssl.TLSVersion.TLSv1_1}, "ALL:@SECLEVEL=0"),
        ({"maximum_version": ssl.TLSVersion.TLSv1}, "ALL:@SECLEVEL=0"),
        ({"maximum_version": ssl.TLSVersion.TLSv1_2}, "AES128-SHA:@SECLEVEL=0"),
        ({"maximum_version": ssl.TLSVersion.TLSv1_2}, "AES256-GCM-SHA384:@SECLEVEL=0"),
        ({"maximum_version": ssl.TLSVersion.TLSv1_2}, "ECDHE-ECDSA-AES128-SHA:@SECLEVEL=0"),
        ({"maximum_version": ssl.TLSVersion.TLSv1_2}, "aNULL:@SECLEVEL=0"),
    ],
    ids=["TLS 1.1", "TLS 1.0", "RSA key exchange", "no forward secrecy", "CBC and SHA-1", "anonymous"],
)
def test_old_tls_and_weak_ciphers_are_refused(attacked, settings, ciphers):
    context = attacked.client.context(attacked.a)
    context.minimum_version = ssl.TLSVersion.TLSv1
    for name, value in settings.items():
        setattr(context, name, value)
    context.set_ciphers(ciphers)
    with pytest.raises((ssl.SSLError, ConnectionError)):
        attacked.client.connect(context=context)
    attacked.check_unharmed()


@pytest.mark.row("S3")
@pytest.mark.parametrize("version", [ssl.TLSVersion.TLSv1_2, ssl.TLSVersion.TLSv1_3])
def test_the_session_of_another_identity_is_not_resumed(attacked, version):
    context = attacked.client.context(attacked.a, maximum_version=version)
    with attacked.client.connect(context=context) as first:
        first.sendall(compose("GET", HOSTS, attacked.a, close=True))
        while first.recv(4096):
            pass
        session = first.session
    context.load_cert_chain(attacked.b.pem)
    with attacked.client.connect(context=context, session=session) as second:
        assert not second.session_reused
        # The new certificate counts, and the first host's token is not the second one's.
        second.sendall(compose("GET", HOSTS, attacked.a, close=True))
        assert second.recv(12) == b"HTTP/1.1 401"
    attacked.check_unharmed()


@pytest.mark.row("S3")
def test_renegotiation_is_refused(attacked):
    words = attacked.box.shared / "renegotiate"
    words.write_text("R\n")
    argv = ["openssl", "s_client", "-connect", f"{attacked.master.address}:1556", "-tls1_2"]
    result = attacked.box.run(argv, stdin="/shared/renegotiate", timeout=60)
    assert "no renegotiation" in result.err
    attacked.check_unharmed()


@pytest.mark.row("D5")
@pytest.mark.parametrize("method", ["PUT", "DELETE"])
def test_a_host_may_not_write_on_the_path_of_another(attacked, method):
    body = b"{}" if method == "PUT" else b""
    assert is_error(attacked.client.ask(method, attacked.b.path, attacked.a, body), 403)
    attacked.check_unharmed()


@pytest.mark.row("D5")
def test_a_token_is_good_with_its_own_certificate_alone(attacked):
    stolen = dataclasses.replace(attacked.a, token=attacked.b.token)
    for method, body in [("GET", b""), ("PUT", b"{}"), ("DELETE", b"")]:
        assert is_error(attacked.client.ask(method, attacked.a.path, stolen, body), 401)
    attacked.check_unharmed()


@pytest.mark.row("D5")
@pytest.mark.row("D6")
def test_a_revoked_host_is_refused_at_once_and_its_record_is_gone(attacked):
    revoked = attacked.client.enrol("revoked.example")
    assert attacked.client.put(revoked, osType="x").status == 200
    with attacked.client.connect(revoked) as connection, connection.makefile("rb") as stream:
        attacked.master.revoke("revoked.example")
        connection.sendall(compose("GET", HOSTS, revoked))  # on a connection that was made while it was good
        assert stream.readline().startswith(b"HTTP/1.1 403")
    check_refused(attacked, revoked, 403)


@pytest.mark.row("D5")
def test_a_host_cannot_claim_the_record_of_another(enrolled, master):
    assert enrolled.command("-update").status == 0
    own = enrolled.identities()[0]["hostId"]
    invited = master.invite("other.example", cluster=True)
    assert enrolled.enrol(master, invited.text, invited.fingerprint, cluster=True).status == 0
    # The store now claims the first host's identifier for the second one's certificate.
    other = enrolled.identities()[1]
    enrolled.change_identity(0, hostId=own, certificate=other["certificate"], privateKey=other["privateKey"])
    next(enrolled.var("identity").glob("token.host.*")).unlink()
    before = enrolled.command("-readallhosts", "-display").out
    for refused in (enrolled.command("-delete"), enrolled.update_without_waiting("-force")):
        assert refused.status == 252
    assert enrolled.command("-readallhosts", "-display").out == before
    assert any(text.startswith("HTTP status = 403") for text in enrolled.log_texts(2))
    assert enrolled.status_file().read_text() == f"{REFUSAL_CODE}\n"


@pytest.mark.row("D5")
@pytest.mark.row("D6")
def test_a_revocation_ends_the_identity_and_its_record(enrolled, master):
    assert enrolled.command("-update").status == 0
    contract = Contract(enrolled)
    master.revoke(enrolled.host_name)
    refused = enrolled.command("-readallhosts", "-display")
    assert json.loads(refused.err)["errorCode"] == REFUSAL_CODE
    assert any(text.startswith("HTTP status = 403") for text in enrolled.log_texts(2))
    without_token = next(enrolled.var("identity").glob("token.host.*"))
    contract.check(refused)
    without_token.unlink()
    contract = Contract(enrolled)
    asked = enrolled.command("-readallhosts", "-display")
    assert (asked.status, asked.err) == (252, "Requested operation failed with error: 7625\n")
    told = enrolled.log_texts(16)
    (cause,) = [text for text in told if text.startswith("Asking for an access token failed")]
    assert "server master1.example" in cause and "HTTP status 403" in cause
    contract.check(asked)
    assert not without_token.exists()
    invitation = master.invite(enrolled.host_name)
    assert enrolled.enrol(master, invitation.text, invitation.fingerprint).status == 0
    assert json.loads(enrolled.command("-readallhosts", "-display").out) == {"hosts": []}


@pytest.mark.row("D5")
def test_a_deleted_host_comes_back_with_its_next_forced_or_changed_update(enrolled, master):
    assert enrolled.command("-update").status == 0
    client = MasterClient(enrolled, master)
    watcher = client.enrol("watcher.example")
    for change, arguments in (
        (lambda: None, ["-force"]),
        (lambda: enrolled.add_config("MACHINE_TQU_TYPE = x"), []),
    ):
        assert enrolled.command("-delete").status == 0
        assert client.stored(watcher) == []
        assert enrolled.command("-update").status == 0
        assert client.stored(watcher) == []  # the cache knows nothing of a deletion
        change()
        assert enrolled.command("-update", *arguments).status == 0
        assert [host["hostName"] for host in client.stored(watcher)] == [enrolled.host_name]


@pytest.mark.row("D6")
@pytest.mark.parametrize("records", ["without the record", "with an older record"])
def test_hosts_heal_when_the_servers_data_comes_from_an_older_copy(enrolled, master, records):
    if records == "with an older record":
        enrolled.add_config("MACHINE_TQU_TYPE = older")
        assert enrolled.command("-update").status == 0
    copy = enrolled.work / "older-copy"
    master.stop()
    shutil.copytree(master.data_outside, copy)
    master.serve()
    enrolled.add_config("MACHINE_TQU_TYPE = newer")
    assert enrolled.command("-update", "-force").status == 0
    master.stop()
    shutil.rmtree(master.data_outside)
    shutil.copytree(copy, master.data_outside)
    master.serve()
    contract = Contract(enrolled)
    # The host's token is one that the restored server never gave.
    result = enrolled.command("-update", "-force")
    assert (result.status, result.err) == (0, "")
    contract.check(result)
    (host,) = json.loads(enrolled.command("-readallhosts", "-display").out)["hosts"]
    assert host["machineTquType"] == "newer"


@pytest.mark.row("D6")
def test_a_host_that_the_restored_server_never_knew_enrols_again(enrolled, master):
    copy = enrolled.work / "older-copy"
    master.stop()
    shutil.copytree(master.data_outside, copy)
    master.serve()
    late = MasterClient(enrolled, master).enrol("late.example")
    master.stop()
    shutil.rmtree(master.data_outside)
    shutil.copytree(copy, master.data_outside)
    master.serve()
    client = MasterClient(enrolled, master)
    assert is_error(client.ask("POST", TOKENS, late, b"{}"), 403)
    assert client.put(client.enrol("late.example")).status == 200
