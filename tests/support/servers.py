"""The master servers of a test: real ones, and one in Python that answers as a test tells it to."""

import base64
import dataclasses
import json
import shlex
import signal

PROGRAM = "/usr/torqv/torquenix/bin/tqmasterd"
ADDRESSES = {
    "master1.example": "127.0.0.2",
    "master2.example": "127.0.0.3",
    "master3.example": "127.0.0.4",
}


class ServerError(Exception):
    """A server that a test needs could not be had."""


@dataclasses.dataclass(frozen=True)
class Invitation:
    text: str
    fingerprint: str


class Master:
    """A real tqmasterd on an address of its own."""

    def __init__(self, sandbox, name, folder=None):
        folder = folder or name
        self.sandbox = sandbox
        self.name = name
        self.address = ADDRESSES[name]
        self.data = f"/shared/{folder}"
        self.data_outside = sandbox.shared / folder
        self.process = None

    def _run(self, *arguments):
        result = self.sandbox.run([PROGRAM, *arguments])
        if result.status != 0:
            raise ServerError(f"tqmasterd {shlex.join(arguments)}: {result.status}\n{result.out}{result.err}")
        return result

    def init(self):
        return self._run("init", "--data", self.data, "--name", self.name)

    def serve(self, **options):
        """Starts serving, with options of start_process(), and waits until it listens."""
        argv = [PROGRAM, "serve", "--data", self.data, "--listen", self.address]
        self.process = self.sandbox.start_process(argv, **options)
        if not self.sandbox.wait_until_listening(self.address):
            raise ServerError(f"{self.name} does not listen:\n{self.process.errors()}")
        return self

    def stop(self):
        result = self.process.stop()
        self.process = None
        return result

    def invite(self, host, cluster=False, expires_in=None):
        arguments = ["invite", "--data", self.data, "--host", host] + (["--cluster"] if cluster else [])
        if expires_in is not None:
            arguments += ["--expires-in", str(expires_in)]
        fields = dict(line.split(": ") for line in self._run(*arguments).out.splitlines())
        return Invitation(fields["invitation"], fields["fingerprint"])

    def revoke(self, host):
        return self._run("revoke", "--data", self.data, "--host", host)


class ScriptedServer:
    """A TLS server in Python at a master server's address that answers as a test tells it to.

    It shows the certificate of a master server's data, and keeps every request that it was sent.
    """

    def __init__(self, sandbox, master, script):
        self.sandbox = sandbox
        self.master = master
        self.files = f"scripted.{master.name}"
        self.process = None
        (sandbox.shared / f"{self.files}.script").write_text(json.dumps(script))
        (sandbox.shared / f"{self.files}.requests").touch()

    def __enter__(self):
        argv = ["/usr/bin/python3", "-I", "/tests/scripted_server.py", "--listen", self.master.address]
        argv += ["--script", f"/shared/{self.files}.script", "--requests", f"/shared/{self.files}.requests"]
        argv += ["--certificate", f"{self.master.data}/server.pem"]
        argv += ["--authority", f"{self.master.data}/authority.pem"]
        self.process = self.sandbox.start_process(argv)
        if not self.sandbox.wait_until_listening(self.master.address):
            raise ServerError(f"the scripted server does not listen:\n{self.process.errors()}")
        return self

    def __exit__(self, *_exception):
        self.process.signal(signal.SIGKILL)
        self.process.wait(10)

    def requests(self):
        """What arrived: dictionaries of method, path, headers, body and the client's host name."""
        text = (self.sandbox.shared / f"{self.files}.requests").read_text()
        return [json.loads(line) for line in text.splitlines()]

    def seen(self):
        """Method and path of each request, those for tokens left out."""
        return [
            (request["method"], request["path"])
            for request in self.requests()
            if not request["path"].endswith("/security/tokens")
        ]


def raw_answer(data):
    """An answer of exactly these bytes for a scripted server."""
    return {"raw": base64.b64encode(data).decode()}
