"""Invitations and certificate requests as an attacker would use them."""

import concurrent.futures
import json
import subprocess
import threading
import time

import pytest

from attacked_server import is_error
from contract import held_locks, temporary_files
from master_client import ENROLLMENTS, RENEWALS, make_request, openssl

PROGRAM = "/usr/torqv/torquenix/bin/tqenroll"
MASTER1 = "master1.example"
RACERS = 10
INVITATION_REFUSED = 7  # tqenroll's exit status


def used(box, master):
    invitation = master.invite(box.host_name)
    assert box.enrol(master, invitation.text, invitation.fingerprint).status == 0
    return invitation.text


def expired(box, master):
    invitation = master.invite(box.host_name, expires_in=1)
    time.sleep(2)
    return invitation.text


def withdrawn(box, master):
    invitation = master.invite("other.example")
    master.revoke("other.example")
    return invitation.text


def changed(box, master):
    text = master.invite(box.host_name).text
    return text[:-1] + ("0" if text[-1] != "0" else "1")


def of_another_server(box, _master):
    return box.master(MASTER1, "other").invite(box.host_name).text


INVITATIONS = {
    "used": used,
    "expired": expired,
    "withdrawn": withdrawn,
    "changed in its last digit": changed,
    "of another server": of_another_server,
    "half of one": lambda box, master: master.invite(box.host_name).text[:16],
    "no invitation": lambda box, master: "invitation",
}


@pytest.mark.row("D1")
@pytest.mark.parametrize("fault", INVITATIONS)
def test_an_invitation_that_is_not_good_gives_nothing_and_takes_nothing(box, master, fault):
    good = master.invite(box.host_name)
    invitation = INVITATIONS[fault](box, master)
    before = box.identity_files()
    result = box.enrol(master, invitation, good.fingerprint)
    assert (result.status, result.out) == (INVITATION_REFUSED, "")
    assert MASTER1 in result.err and "does not take the invitation" in result.err
    assert box.identity_files() == before
    if fault == "used":
        assert box.command("-update").status == 0
    else:
        assert box.enrol(master, good.text, good.fingerprint).status == 0


@pytest.mark.row("D1")
def test_an_invitation_for_another_host_gives_that_hosts_name_and_no_other(attacked):
    request, key = make_request(attacked.client.folder, "liar", "-subj", f"/CN={attacked.a.host_name}")
    answer = attacked.client.redeem(attacked.master.invite("other.example").text, request)
    liar = attacked.client.take_token(attacked.client.keep("liar", key, answer))
    assert attacked.client.put(liar, hostName=attacked.a.host_name).json()["hostName"] == "other.example"
    assert is_error(attacked.client.ask("PUT", attacked.a.path, liar, b"{}"), 403)
    assert attacked.client.ask("DELETE", liar.path, liar).status == 204
    attacked.check_unharmed()


@pytest.mark.row("D1")
@pytest.mark.row("S5")
def test_of_ten_enrolments_with_one_invitation_exactly_one_succeeds(box, master):
    good = master.invite(box.host_name)
    argv = [PROGRAM, "--server", MASTER1, "--invitation", good.text, "--fingerprint", good.fingerprint]
    runs = [box.start_process(argv) for _ in range(RACERS)]
    results = [run.wait() for run in runs]
    assert sorted(result.status for result in results) == [0] + [INVITATION_REFUSED] * (RACERS - 1)
    assert all(MASTER1 in result.err for result in results if result.status != 0)
    assert len(box.identities()) == 1
    assert temporary_files(box) == [] and held_locks(box) == []
    assert box.command("-update").status == 0


@pytest.mark.row("S5")
@pytest.mark.parametrize("racers", [2, RACERS])
@pytest.mark.parametrize("race", [0] + [pytest.param(n, marks=pytest.mark.full) for n in range(1, 10)])
def test_requests_that_arrive_together_share_no_invitation(attacked, racers, race, figure):
    invitation = attacked.master.invite("raced.example").text
    request, _ = make_request(attacked.client.folder, f"raced-{race}-{racers}")
    start = threading.Barrier(racers)

    def run(_number):
        start.wait()
        return attacked.client.redeem(invitation, request)

    with concurrent.futures.ThreadPoolExecutor(racers) as pool:
        answers = list(pool.map(run, range(racers)))
    assert sorted(answer.status for answer in answers) == [201] + [403] * (racers - 1)
    assert all(is_error(answer, 403) for answer in answers if answer.status != 201)
    attacked.check_unharmed()
    figure("races", 1)


def with_config(text):
    """Makes a request by an OpenSSL configuration."""

    def make(attacked):
        config = attacked.client.folder / "wish.cnf"
        beginning = "[req]\ndistinguished_name = dn\nprompt = no\nreq_extensions = ext\n"
        config.write_text(beginning + text.replace("HOST_ID_OF_A", attacked.a.host_id))
        return make_request(attacked.client.folder, "wish", "-config", config)[0]

    return make


def with_key(*algorithm):
    """Makes a request for a key of another kind."""

    def make(folder):
        key, request = folder / "bad.key", folder / "bad.csr"
        openssl("genpkey", *algorithm, "-out", key)
        openssl("req", "-new", "-key", key, "-out", request, "-subj", "/CN=x")
        return request.read_text()

    return make


def with_bad_signature(folder):
    """A good request whose last bytes, which are its signature's, are others."""
    request, der = folder / "bad.csr", folder / "bad.der"
    make_request(folder, "bad")
    openssl("req", "-in", request, "-outform", "DER", "-out", der)
    data = der.read_bytes()
    der.write_bytes(data[:-4] + bytes(byte ^ 0x55 for byte in data[-4:]))
    openssl("req", "-inform", "DER", "-in", der, "-out", request)
    return request.read_text()


def text(content):
    return lambda _folder: content


GREEDY_REQUESTS = {
    "subject of another host": with_config("[dn]\nCN = a.example\n[ext]\nkeyUsage = digitalSignature\n"),
    "name of another host": with_config(
        "[dn]\nCN = x\n[ext]\nsubjectAltName = DNS:a.example,DNS:master1.example\n"
    ),
    "identifier of another host": with_config(
        "[dn]\nCN = x\n[ext]\nsubjectAltName = URI:urn:uuid:HOST_ID_OF_A\n"
    ),
    "power of an authority": with_config(
        "[dn]\nCN = x\n[ext]\nbasicConstraints = critical,CA:TRUE\nkeyUsage = keyCertSign,cRLSign\n"
    ),
    "purpose of a server": with_config(
        "[dn]\nCN = x\n[ext]\nextendedKeyUsage = serverAuth,anyExtendedKeyUsage\n"
    ),
}


def describe(pem):
    """What stands in a certificate's subject and extensions, as the openssl program shows it."""
    shown = ["-subject", "-ext", "subjectAltName,basicConstraints,keyUsage,extendedKeyUsage"]
    argv = ["openssl", "x509", "-noout", *shown]
    run = subprocess.run(argv, input=pem.encode(), capture_output=True, check=True)
    return " ".join(run.stdout.decode().split())


def public_key(kind, pem):
    """The public key of a certificate (x509) or of a request (req)."""
    words = ["openssl", kind, "-noout", "-pubkey"]
    return subprocess.run(words, input=pem.encode(), capture_output=True, check=True).stdout


def granted(host_id, host_name):
    """What every host's certificate says, whatever was asked for."""
    return (
        f"subject=CN = {host_id} X509v3 Basic Constraints: critical CA:FALSE "
        "X509v3 Key Usage: critical Digital Signature "
        "X509v3 Extended Key Usage: TLS Web Client Authentication "
        f"X509v3 Subject Alternative Name: URI:urn:uuid:{host_id}, DNS:{host_name}"
    )


@pytest.mark.row("D2")
@pytest.mark.parametrize("wish", GREEDY_REQUESTS)
def test_a_certificate_holds_the_requests_key_and_none_of_its_wishes(attacked, wish):
    request = GREEDY_REQUESTS[wish](attacked)
    answer = attacked.client.redeem(attacked.master.invite("greedy.example").text, request)
    assert answer.status == 201
    assert describe(answer.json()["certificate"]) == granted(answer.json()["hostId"], "greedy.example")
    body = json.dumps({"certificateRequest": request}).encode()
    renewed = attacked.client.ask("POST", RENEWALS, attacked.b, body)
    assert renewed.status == 200
    assert describe(renewed.json()["certificate"]) == granted(attacked.b.host_id, attacked.b.host_name)
    for given in (answer, renewed):
        assert public_key("x509", given.json()["certificate"]) == public_key("req", request)
    attacked.check_unharmed()


BAD_REQUESTS = {
    "RSA of 512 bits": with_key("-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:512"),
    "RSA of 1024 bits": with_key("-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:1024"),
    "Ed25519": with_key("-algorithm", "ED25519"),
    "curve P-224": with_key("-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:secp224r1"),
    "curve secp256k1": with_key("-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:secp256k1"),
    "bad self-signature": with_bad_signature,
    "empty": text(""),
    "no PEM": text("request"),
    "PEM of nothing": text("-----BEGIN CERTIFICATE REQUEST-----\n-----END CERTIFICATE REQUEST-----\n"),
    "PEM of noise": text("-----BEGIN CERTIFICATE REQUEST-----\nMIIB\n-----END CERTIFICATE REQUEST-----\n"),
    "a number": text(7),
    "absent": text(None),
}


@pytest.mark.row("D2")
@pytest.mark.parametrize("fault", BAD_REQUESTS)
def test_a_request_that_is_refused_leaves_the_invitation_good(attacked, fault):
    folder = attacked.client.folder
    request = BAD_REQUESTS[fault](folder)
    invitation = attacked.master.invite("bad.example").text
    body = json.dumps({"invitation": invitation, "certificateRequest": request}).encode()
    assert is_error(attacked.client.ask("POST", ENROLLMENTS, body=body), 400)
    assert is_error(attacked.client.ask("POST", RENEWALS, attacked.a, body), 400)
    assert attacked.client.redeem(invitation, make_request(folder, "good")[0]).status == 201
    attacked.check_unharmed()
