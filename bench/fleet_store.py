"""Writes into a master server's database what its own commands would take minutes for with a large fleet."""

import contextlib
import hashlib
import json
import secrets
import sqlite3
import time

DATABASE = "hosts.db"


@contextlib.contextmanager
def opened(database):
    with contextlib.closing(sqlite3.connect(database)) as connection, connection:
        yield connection


def add_invitations(database, names):
    """(host name, invitation) for each name: what `tqmasterd invite` prints, without a process for each."""
    made = [(name, secrets.token_hex(8), secrets.token_hex(32)) for name in names]
    expires = int(time.time()) + 86400
    with opened(database) as connection:
        connection.executemany(
            "INSERT INTO invitation (id, hash, host_name, type, expires_at) VALUES (?, ?, ?, 'host', ?)",
            (
                (number, hashlib.sha256(secret.encode()).hexdigest(), name, expires)
                for name, number, secret in made
            ),
        )
    return [(name, f"{number}.{secret}") for name, number, secret in made]


def add_hosts(database, reply):
    """Enters the hosts of a file in the form of a full read's reply, behind a server that is stopped.

    A row of identity and a row of record each is what enrolments and updates leave.
    """
    hosts = json.loads(reply.read_text())["hosts"]
    with opened(database) as connection:
        connection.executemany(
            "INSERT INTO identity (host_id, host_name, type) VALUES (?, ?, 'host')",
            ((host["uuid"], host["hostName"]) for host in hosts),
        )
        connection.executemany(
            "INSERT INTO host (host_id, host_name, record) VALUES (?, ?, ?)",
            ((host["uuid"], host["hostName"], json.dumps(host, separators=(",", ":"))) for host in hosts),
        )
