"""Certificates of every good and bad kind, made with the openssl program under an authority that the host
trusts, and under one that it does not."""

import datetime
import pathlib
import subprocess

import bad_modes

MASTER = "master1.example"
EC = ("ec", "-pkeyopt", "ec_paramgen_curve:prime256v1")
CA_CONFIG = """\
[ca]
default_ca = here
[here]
new_certs_dir = {folder}
database = {folder}/index.txt
serial = {folder}/serial
default_md = sha256
policy = any
unique_subject = no
[any]
commonName = supplied
"""
SERVER = "extendedKeyUsage = serverAuth"
CLIENT = "extendedKeyUsage = clientAuth"
AUTHORITY = "basicConstraints = critical, CA:TRUE"
NO_AUTHORITY = "basicConstraints = critical, CA:FALSE"


def names(*texts):
    entries = (f"IP:{text}" if text[0].isdigit() else f"DNS:{text}" for text in texts)
    return "subjectAltName = " + ", ".join(entries)


def name_of_bytes(raw):
    """The extension of alternative names with one DNS name of any bytes."""
    entry = b"\x82" + bytes([len(raw)]) + raw
    return "subjectAltName = DER:" + (b"\x30" + bytes([len(entry)]) + entry).hex(":")


class CertificateMaker:
    """Signs with an authority's PEM file, which holds its key and its certificate."""

    def __init__(self, folder, authority):
        self.folder = pathlib.Path(folder)
        self.authority = pathlib.Path(authority)
        (self.folder / "index.txt").touch()
        (self.folder / "serial").write_text("1000")
        self.config = self.folder / "ca.config"
        self.config.write_text(CA_CONFIG.format(folder=self.folder))
        self.key = self.make_key("shared", *EC)

    def openssl(self, *words):
        subprocess.run(["openssl", *map(str, words)], check=True, capture_output=True, cwd=self.folder)

    def make_key(self, name, algorithm, *options):
        key = self.folder / f"{name}.key"
        self.openssl("genpkey", "-algorithm", algorithm, *options, "-out", key)
        return key

    def issue(self, name, *extensions, subject="x", days=(-1, 1), key=None, issuer=None):
        """A certificate for some days from now; gives its PEM text. The issuer is the authority, unless a
        file with another's key and certificate is given."""
        key = key or self.key
        issuer = issuer or self.authority
        request, signed = self.folder / "request", self.folder / f"{name}.crt"
        now = datetime.datetime.utcnow()
        begin, end = ((now + datetime.timedelta(days=day)).strftime("%y%m%d%H%M%SZ") for day in days)
        (self.folder / "extensions").write_text("\n".join(extensions))
        self.openssl("req", "-new", "-key", key, "-subj", f"/CN={subject}", "-out", request)
        self.openssl(
            *("ca", "-batch", "-notext", "-config", self.config, "-in", request, "-out", signed),
            *("-cert", issuer, "-keyfile", issuer, "-startdate", begin, "-enddate", end),
            *("-extfile", self.folder / "extensions"),
        )
        return signed.read_text()

    def self_signed(self, name, *extensions):
        """A certificate that is its own issuer, with its key in one file."""
        key, signed = self.make_key(name, *EC), self.folder / name
        added = [word for extension in extensions for word in ("-addext", extension.replace(" = ", "="))]
        self.openssl("req", "-x509", "-key", key, "-subj", f"/CN={name}", "-days", 2, "-out", signed, *added)
        both = self.folder / f"{name}.both"
        both.write_text(key.read_text() + signed.read_text())
        return both


def certificate_part(pem):
    return pem[pem.index("-----BEGIN CERTIFICATE") :]


def make_server_certificates(folder, authority, other_names=()):
    """What a misbehaving server needs: for each certificate of bad_modes a file of key and chain."""
    maker = CertificateMaker(folder, authority)
    root = certificate_part(maker.authority.read_text())
    (maker.folder / "authority.crt").write_text(root)
    foreign = maker.self_signed("foreign", AUTHORITY)
    (maker.folder / "foreign.crt").write_text(certificate_part(foreign.read_text()))
    good = (names(MASTER, *other_names), SERVER)

    def put(name, pem, chain=root, key=maker.key):
        (maker.folder / f"{name}.pem").write_text(key.read_text() + pem + chain)

    put("good", maker.issue("good", *good))
    put("expired", maker.issue("expired", *good, days=(-3, -1)))
    put("not-yet-valid", maker.issue("not-yet-valid", *good, days=(1, 3)))
    put("foreign-authority", maker.issue("foreign-authority", *good, issuer=foreign), foreign.read_text())
    put("for-clients-only", maker.issue("for-clients-only", names(MASTER), CLIENT))
    put("other-name", maker.issue("other-name", names("other.example"), SERVER, subject=MASTER))
    put("no-address", maker.issue("no-address", *good))
    address = bad_modes.address_of("certificate-with-address")
    put("with-address", maker.issue("with-address", names(MASTER, address), SERVER))
    put("common-name-only", maker.issue("common-name-only", SERVER, subject=MASTER))
    put("wildcard", maker.issue("wildcard", names("*.example"), SERVER))
    hidden = name_of_bytes(MASTER.encode() + b"\0.evil.example")
    put("nul-in-name", maker.issue("nul-in-name", hidden, SERVER))
    within = names(f"x{MASTER}", f"{MASTER}.evil.example")
    put("name-within-name", maker.issue("name-within-name", within, SERVER))
    self_signed = maker.self_signed("self-signed", *good)
    (maker.folder / "self-signed.pem").write_text(self_signed.read_text())
    middle = maker.issue("middle", NO_AUTHORITY, subject="middle")
    issuer = maker.folder / "middle.both"
    issuer.write_text(maker.key.read_text() + middle)
    put("issuer-is-no-authority", maker.issue("below", *good, issuer=issuer), middle + root)
    small = maker.make_key("small", "rsa", "-pkeyopt", "rsa_keygen_bits:1024")
    put("key-of-1024-bits", maker.issue("small", *good, key=small), key=small)
    rsa = maker.make_key("rsa", "rsa", "-pkeyopt", "rsa_keygen_bits:2048")
    put("rsa", maker.issue("rsa", *good, key=rsa), key=rsa)
    return maker
