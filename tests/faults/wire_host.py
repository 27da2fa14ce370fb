"""A host whose master server misbehaves: the bed of all cases about connections, replies and trust.

One sandbox serves all cases of a process. In it run a real master server and one that misbehaves
(bad_server.py); which of them, and in which mode, the master server's name leads to is decided by /etc/hosts.
"""

import json
import re
import shutil
import time

import bad_modes
from certificates import CLIENT, MASTER, make_server_certificates, names
from contract import Contract
from sandbox import Sandbox
from servers import Master

REAL = "127.0.0.2"
PLANTED_TOKEN = "planted-token-0123456789abcdef"
FAR_FUTURE = 4_000_000_000
CONNECT_SECONDS, TOTAL_SECONDS = 2, 6
LIMITS = (
    f"WEB_CONNECT_SECONDS = {CONNECT_SECONDS}",
    f"WEB_TRANSFER_SECONDS = {TOTAL_SECONDS}",
    "WEB_MAX_REPLY_MB = 1",
)
MORE_MASTERS = tuple(f"master{number}.example" for number in range(4, 8))
FIVE_MASTERS = (MASTER, *MORE_MASTERS)

# Where no server is, beside the modes of the misbehaving one: nobody listens; no route at all; a route that
# says so; packets that are dropped; a name that nobody knows.
REFUSED, UNREACHABLE, NO_NAME = "port-refused", "host-unreachable", "name-unknown"
NO_ROUTE, DROPPED = "no-route", "packets-dropped"
PLACES = {REFUSED: "127.9.9.9", NO_ROUTE: "192.0.2.99", UNREACHABLE: "198.51.100.1", DROPPED: "203.0.113.1"}
ROUTES = "ip route add unreachable 198.51.100.1 && ip route add 203.0.113.0/24 dev lo"

# The read that most cases use: one request, and the reply's text decides.
READ = ("-read", "-hostid", "1", "-display")


class WireHost:
    """Use as a context manager; begin() before each case."""

    def __init__(self, build, work, beginnings):
        self.box = Sandbox(build, work)
        # Routes are the test's own to make, also when it is not root who runs it.
        self.box.extra_arguments += ["--cap-add", "CAP_NET_ADMIN"]
        self.beginnings = beginnings
        self.hosts = (self.box.etc / "hosts").read_text()
        self.config = (self.box.torqv / "torquenix" / "kx.conf").read_text()
        self.record = self.box.shared / "requests"
        self.master = Master(self.box, MASTER)
        self.maker = None
        self.kept_output = set()

    # Life

    def __enter__(self):
        shutil.copytree(self.beginnings / "enrolled" / "master", self.master.data_outside)
        certificates = self.box.shared / "certificates"
        certificates.mkdir()
        authority = self.master.data_outside / "authority.pem"
        self.maker = make_server_certificates(certificates, authority, MORE_MASTERS)
        self.box.start()
        result = self.box.run(["sh", "-c", ROUTES])
        assert result.status == 0, result.err
        self.master.serve()
        self._start_bad_server()
        self.kept_output = set((self.box.shared / "output").iterdir())
        return self

    def _start_bad_server(self):
        ready = self.box.shared / "ready"
        # Its own old protocols are worth a warning to the library, not to us.
        argv = ["/usr/bin/python3", "-W", "ignore::DeprecationWarning", "/faults/bad_server.py"]
        argv += ["--certificates", "/shared/certificates", "--record", "/shared/requests"]
        server = self.box.start_process(argv + ["--ready", "/shared/ready"])
        deadline = time.monotonic() + 60
        while not ready.exists():
            assert server.is_running() and time.monotonic() < deadline, server.errors()
            time.sleep(0.02)

    def __exit__(self, *_exception):
        try:
            assert self.master.stop().status == 0
        finally:
            self.box.stop()

    # A case

    def begin(self):
        """The host as it is once it is enrolled, with a token, and nothing asked of any server yet."""
        for folder in (self.box.torqv / "var", self.box.torqv / "torquenix" / "logs" / "admin"):
            shutil.rmtree(folder)
            folder.mkdir()
        shutil.copytree(self.beginnings / "enrolled" / "identity", self.box.var("identity"))
        for file in set((self.box.shared / "output").iterdir()) - self.kept_output:
            file.unlink()
        self.plant_token()
        (self.box.etc / "resolv.conf").unlink(missing_ok=True)
        shutil.rmtree(self.box.torqv / "pack", ignore_errors=True)
        shutil.rmtree(self.box.etc / "ssl", ignore_errors=True)
        self.set_limits(*LIMITS)
        self.use_real_master()

    def set_limits(self, *lines):
        """The configuration, with these lines behind it."""
        (self.box.torqv / "torquenix" / "kx.conf").write_text(self.config)
        self.box.add_config(*lines)

    @staticmethod
    def token_name(server=MASTER):
        return f"token.host.{server}"

    def plant_token(self, server=MASTER, token=PLANTED_TOKEN):
        """A token that has not expired. The real master server does not know it: there it is renewed."""
        file = self.box.var("identity") / self.token_name(server)
        file.write_text(json.dumps({"token": token, "expiresAt": FAR_FUTURE}))
        file.chmod(0o600)

    @staticmethod
    def token_for(server):
        """The token that give_identities() plants."""
        return f"{PLANTED_TOKEN}-for-{server}"

    def drop_token(self):
        (self.box.var("identity") / self.token_name()).unlink()

    def give_identities(self, servers):
        """An identity towards each of some servers: a certificate, an identifier and a token of its own."""
        folder = self.box.var("identity")
        store = self.box.identity_store()
        (first,) = store["identities"]
        store["identities"] = []
        for number, server in enumerate(servers):
            host, certificate = f"as-seen-by-{server}", f"host.{server}.crt"
            pem = self.maker.issue("own", names(host), CLIENT, key=folder / first["privateKey"])
            (folder / certificate).write_text(pem)
            (folder / certificate).chmod(0o600)
            identity = {"server": server, "hostName": host, "certificate": certificate}
            identity["hostId"] = f"{number:08}-0000-4000-8000-000000000000"
            store["identities"].append(first | identity)
            self.plant_token(server, self.token_for(server))
        (folder / "identity.json").write_text(json.dumps(store))

    def stored_token(self):
        return json.loads((self.box.var("identity") / self.token_name()).read_text())["token"]

    def use_dead_name_servers(self):
        """Names that /etc/hosts does not hold are asked of servers that never answer."""
        lines = [f"nameserver {address}\n" for address in bad_modes.DEAD_NAME_SERVERS]
        (self.box.etc / "resolv.conf").write_text("".join(lines))

    def point(self, **addresses):
        """Lets names lead to addresses, or nowhere; forgets what servers have seen."""
        known = [line for line in self.hosts.splitlines() if line.split()[1] not in addresses]
        mine = [f"{address} {name}" for name, address in addresses.items() if address]
        mine.append(f"{bad_modes.address_of(bad_modes.TARGET)} target.example")
        (self.box.etc / "hosts").write_text("\n".join(known + mine) + "\n")
        self.record.write_text("")

    def use(self, mode, face=bad_modes.REQUESTS):
        """Makes the master server misbehave, or go away; forgets what was seen and logged."""
        known = bad_modes.address_of(mode, face) if mode in bad_modes.MODES else PLACES.get(mode)
        self.point(**{MASTER: known})
        self.box.forget_log()

    def contract(self):
        return Contract(self.box)

    def use_real_master(self):
        """Lets the name lead to the real master server."""
        self.point(**{MASTER: REAL})

    def heal(self, contract):
        """The next update of a server that is well again ends well."""
        self.use_real_master()
        contract.check_healed()

    # What servers saw

    def seen(self, event, mode=None):
        """Entries of the misbehaving server's record."""
        entries = [json.loads(line) for line in self.record.read_text().splitlines()]
        return [entry for entry in entries if entry["event"] == event and mode in (None, entry["mode"])]

    def requests(self):
        """Method and path of each request."""
        return [(entry["method"], entry["path"]) for entry in self.seen("request")]

    # Runs

    def read(self, **options):
        return self.box.command(*READ, **options)

    def update(self, **options):
        """An update whose waits between attempts take no time."""
        return self.box.update_without_waiting(**options)

    def forget_identity(self):
        """An empty identity store."""
        shutil.rmtree(self.box.var("identity"))
        self.box.var("identity").mkdir(mode=0o700)

    def enrol(self):
        """tqenroll with an invitation and the fingerprint of the real master server."""
        return self.box.enrol(self.master)

    # The log

    def failures(self):
        """What the client says of each request that failed: what it was, the cause and the status."""
        pattern = rf"(.+) failed, server {re.escape(MASTER)}, port 1556: (.+), status (\d+)"
        matches = [re.fullmatch(pattern, text, re.DOTALL) for text in self.box.log_texts(16)]
        return [(match[1], match[2], int(match[3])) for match in matches if match]
