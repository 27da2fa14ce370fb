"""Whom the host trusts and how it shows itself: protocols, certificates of servers and its own."""

import json
import shutil
import ssl
import subprocess

import pytest

import bad_modes
from certificates import AUTHORITY, CLIENT, EC, MASTER, SERVER, certificate_part, names
from outcomes import Fault, NotCarriedOut, NotTrusted, Works, assert_failures, cases, check, failed_with
from test_connections import OTHER_OPERATIONS

READ_AND_UPDATE = ("read", "token", "update")
ANOTHER_AUTHORITY = {"enrol_status": 6, "enrol_cause": "another fingerprint"}
REFUSED_US = NotTrusted(status=7622, cause="the server refused this host's certificate")


def not_trusted(words, **more):
    return NotTrusted(cause=rf"the server's certificate is not trusted \(.*{words}", **more)


HANDSHAKE_FAILED = NotTrusted(cause="no trusted connection could be made .*handshake failure")
WRONG_NAME = not_trusted("hostname mismatch")

FAULTS = (
    Fault("A6", "tls-1.0", NotTrusted(cause="no trusted connection could be made .*protocol version")),
    Fault("A6", "tls-1.1", NotTrusted(cause="no trusted connection could be made .*protocol version")),
    Fault("A6", "tls-1.2", Works(), ()),
    Fault("A6", "tls-1.3", Works(), ()),
    Fault("A6", "cipher-null", HANDSHAKE_FAILED),
    Fault("A6", "cipher-anonymous", HANDSHAKE_FAILED),
    Fault("A6", "key-of-1024-bits", not_trusted("key too weak")),
    Fault("A7", "certificate-expired", not_trusted("certificate has expired"), ("read", "enrol")),
    Fault("A7", "certificate-not-yet-valid", not_trusted("certificate is not yet valid")),
    Fault("A7", "certificate-self-signed", not_trusted("self-signed certificate", **ANOTHER_AUTHORITY)),
    Fault(
        "A7",
        "certificate-foreign-authority",
        not_trusted("self-signed certificate in certificate chain", **ANOTHER_AUTHORITY),
        ("read", "token", "update", "enrol"),
    ),
    Fault("A7", "certificate-issuer-is-no-authority", not_trusted("invalid CA certificate")),
    Fault("A7", "certificate-for-clients-only", not_trusted("unsuitable certificate purpose")),
    Fault("A9", "certificate-other-name", WRONG_NAME, ("read", "enrol")),
    Fault("A9", "certificate-common-name-only", WRONG_NAME),
    Fault("A9", "certificate-wildcard", WRONG_NAME),
    Fault("A9", "certificate-nul-in-name", WRONG_NAME),
    Fault("A9", "certificate-name-within-name", WRONG_NAME),
    # In TLS 1.3 the refusal arrives behind the request.
    Fault("A11", "clients-of-others-1.2", REFUSED_US, ("read", "update")),
    Fault("A11", "clients-of-others-1.3", REFUSED_US, ("read", "token", "update")),
    Fault("A12", "client-needed-1.2", Works(), (), READ_AND_UPDATE),
    Fault("A12", "client-needed-1.3", Works(), (), READ_AND_UPDATE),
    Fault("A12", "client-not-asked", Works(), ("read", "enrol")),
)


@pytest.mark.parametrize("fault, operation", cases(FAULTS))
def test_protocols_and_certificates_of_servers(wire, fault, operation):
    check(wire, fault, operation)


@pytest.mark.row("A7")
@pytest.mark.parametrize("arguments", OTHER_OPERATIONS.values(), ids=OTHER_OPERATIONS.keys())
def test_no_operation_tells_a_foreign_server_anything(wire, arguments):
    wire.use("certificate-foreign-authority")
    contract = wire.contract()
    result = wire.box.command(*arguments)
    assert (result.status, result.out, result.err) == (252, "", failed_with(7621))
    assert wire.requests() == []
    contract.check(result)


@pytest.mark.row("A8")
@pytest.mark.parametrize("operation", ["read", pytest.param("update", marks=pytest.mark.full), "enrol"])
def test_a_foreign_authority_that_the_machine_trusts_is_refused_all_the_same(wire, operation):
    folder = wire.box.etc / "ssl" / "certs"
    folder.mkdir(parents=True)
    foreign = wire.box.shared / "certificates" / "foreign.crt"
    shutil.copy(foreign, folder / "ca-certificates.crt")
    shutil.copy(foreign, folder / "foreign.pem")
    subprocess.run(["openssl", "rehash", str(folder)], check=True)
    verify = ["openssl", "verify", "-CApath", "/etc/ssl/certs", "/shared/certificates/foreign.crt"]
    trusted = wire.box.run(verify)
    assert trusted.status == 0, "the machine does not trust it, so nothing is shown here"
    outcome = not_trusted("self-signed certificate", **ANOTHER_AUTHORITY)
    check(wire, Fault("A8", "certificate-foreign-authority", outcome), operation)


@pytest.mark.row("A9")
@pytest.mark.parametrize(
    "mode, outcome",
    [
        ("certificate-no-address", not_trusted("IP address mismatch")),
        ("certificate-with-address", Works()),
        ("good", not_trusted("IP address mismatch")),
    ],
)
def test_a_server_that_is_known_by_its_address_must_carry_it_in_its_certificate(wire, mode, outcome):
    address = bad_modes.address_of(mode)
    wire.set_limits(f"SERVER = {address}")
    first, *others = wire.config.splitlines()
    assert first.startswith("SERVER"), "the master server's line comes first"
    wire.box.write_config(f"SERVER = {address}", *others)
    wire.box.change_identity(0, server=address)
    wire.plant_token(address)
    contract = wire.contract()
    result = wire.read()
    assert result.status == (0 if isinstance(outcome, Works) else 252), result.err
    assert len(wire.requests()) == (1 if isinstance(outcome, Works) else 0)
    if not isinstance(outcome, Works):
        assert result.err == failed_with(7621)
        named = f"failed, server {address}, port 1556: "
        (line,) = [text for text in wire.box.log_texts(16) if named in text]
        assert "IP address mismatch" in line
    contract.check(result)


# What may be wrong with our own certificate and key: each changes the files of the identity.


def replace(which, text):
    def change(wire, folder, identity):
        (folder / identity[which]).write_text(text(wire) if callable(text) else text)

    return change


def remove(which):
    return lambda wire, folder, identity: (folder / identity[which]).unlink()


def issue(*extensions, **more):
    """A certificate for the host's own key."""

    def change(wire, folder, identity):
        own = folder / identity["privateKey"]
        extension = names(identity["hostName"])
        pem = wire.maker.issue("own", extension, *extensions, key=own, **more)
        (folder / identity["certificate"]).write_text(pem)

    return change


def of_a_foreign_authority(wire, folder, identity):
    issue(CLIENT, issuer=wire.maker.folder / "foreign.both")(wire, folder, identity)


def another_key(wire):
    return wire.maker.make_key("another", *EC).read_text()


def with_password(wire, folder, identity):
    key, protected = folder / identity["privateKey"], wire.maker.folder / "protected.key"
    wire.maker.openssl("pkey", "-in", key, "-out", protected, "-aes256", "-passout", "pass:secret")
    key.write_text(protected.read_text())


CANNOT_BE_READ = "cannot be read: No such file or directory"
CANNOT_BE_USED = "this host's certificate or key cannot be used"
# The library's own words depend on whether the server's alert or the end of its connection was met first.
REFUSED_BY_SERVER = "the server refused this host's certificate"
OWN_CERTIFICATES = {
    "certificate-missing": (remove("certificate"), "this host's certificate /.* " + CANNOT_BE_READ),
    "key-missing": (remove("privateKey"), "this host's key /.* " + CANNOT_BE_READ),
    "certificate-empty": (replace("certificate", ""), CANNOT_BE_USED),
    "certificate-no-pem": (replace("certificate", "-----BEGIN CERTIFICATE-----\nx\n"), CANNOT_BE_USED),
    "key-no-pem": (replace("privateKey", "neither a key\nnor PEM\n"), CANNOT_BE_USED),
    "key-of-another": (replace("privateKey", another_key), CANNOT_BE_USED),
    "key-with-password": (with_password, CANNOT_BE_USED),
    "expired": (issue(CLIENT, days=(-3, -1)), REFUSED_BY_SERVER),
    "not-yet-valid": (issue(CLIENT, days=(1, 3)), REFUSED_BY_SERVER),
    "for-servers-only": (issue(SERVER), REFUSED_BY_SERVER),
    "of-a-foreign-authority": (of_a_foreign_authority, REFUSED_BY_SERVER),
}
QUICK_OWN = ("certificate-missing-read", "key-of-another-read", "expired-read", "for-servers-only-update")


def own_certificate_cases():
    for name, (change, cause) in OWN_CERTIFICATES.items():
        for operation in ("read", "update"):
            quick = f"{name}-{operation}" in QUICK_OWN
            marks = [pytest.mark.row("A11")] + ([] if quick else [pytest.mark.full])
            yield pytest.param(change, cause, operation, marks=marks, id=f"{name}-{operation}")


@pytest.mark.parametrize("change, cause, operation", own_certificate_cases())
def test_an_own_certificate_that_is_no_good(wire, change, cause, operation):
    folder = wire.box.var("identity")
    change(wire, folder, wire.box.identities()[0])
    contract = wire.contract()
    result = wire.read() if operation == "read" else wire.update()
    getattr(NotCarriedOut(7622, cause), f"check_{operation}")(wire, result)
    contract.check(result)
    shutil.rmtree(folder)
    shutil.copytree(wire.beginnings / "enrolled" / "identity", folder)
    wire.contract().check_healed()


@pytest.mark.row("A11")
@pytest.mark.parametrize("which, words", [("certificate", "certificate"), ("privateKey", "key")])
def test_a_file_of_the_identity_that_may_not_be_read_is_named(wire, which, words):
    (wire.box.var("identity") / wire.box.identities()[0][which]).chmod(0)
    contract = wire.contract()
    result = wire.read(capabilities=False)
    assert (result.status, result.err) == (252, failed_with(7622))
    cause = rf"this host's {words} /usr/torqv/var/identity/\S+ cannot be read: Permission denied"
    assert_failures(wire, "GET torquenix/config/hosts/1", cause, 7622)
    contract.check(result)


def many_authorities(wire, number):
    """PEM certificates of as many subjects; nobody looks at the signatures of authorities."""
    first = wire.maker.self_signed("authority-000", AUTHORITY)
    der = ssl.PEM_cert_to_DER_cert(certificate_part(first.read_text()))
    others = (der.replace(b"authority-000", b"authority-%03d" % other) for other in range(number))
    return [ssl.DER_cert_to_PEM_cert(other) for other in others]


@pytest.fixture
def naming_200_authorities(wire):
    """A server of the openssl program that asks for a certificate of one of 200 authorities."""
    root = (wire.maker.folder / "authority.crt").read_text()
    (wire.box.shared / "200-authorities.pem").write_text(root + "".join(many_authorities(wire, 199)))
    answers = wire.box.shared / "answers" / "torquenix" / "config" / "hosts"
    answers.mkdir(parents=True, exist_ok=True)
    (answers / "1").write_bytes(bad_modes.answer(200, json.dumps(bad_modes.HOST).encode()))
    address = "127.77.0.1"
    words = ["openssl", "s_server", "-accept", f"{address}:1556", "-HTTP"]
    words += ["-CAfile", "/shared/200-authorities.pem", "-Verify", "1", "-verify_return_error"]
    words += ["-cert", "/shared/certificates/good.pem", "-key", "/shared/certificates/good.pem"]
    server = wire.box.start_process(words, cwd="/shared/answers")
    assert wire.box.wait_until_listening(address), server.errors()
    yield address
    server.stop()


@pytest.mark.row("A12")
def test_a_server_that_names_200_authorities_is_served(wire, naming_200_authorities):
    names_of = ["openssl", "s_client", "-connect", f"{naming_200_authorities}:1556"]
    told = wire.box.run(names_of).out
    assert told.count("CN = authority-") == 199
    wire.point(**{MASTER: naming_200_authorities})
    contract = wire.contract()
    result = wire.read()
    assert (result.status, result.err) == (0, ""), result.err
    assert json.loads(result.out)["hostName"] == bad_modes.HOST["hostName"]
    contract.check(result)
