"""What holds after every fault, whatever it was: files whole, locks free, nothing left running, no secret
told, and the next healthy run heals."""

import hashlib
import json
import os
import time

# The system sweeps up temporary files of dead processes that are older than a minute.
TEMPORARY_AGE_SECONDS = 120


def identity_files(box):
    """Digest of every file of the identity store but the tokens and the lock."""
    folder = box.var("identity")
    return {
        file.name: hashlib.sha256(file.read_bytes()).hexdigest()
        for file in sorted(folder.iterdir())
        if not file.name.startswith(("token.", ".")) and not file.name.endswith(".lock")
    }


def token_files(box):
    """Names of the token files."""
    return {file.name for file in box.var("identity").glob("token.*")}


def secrets(box):
    """Texts that may stand nowhere but in the identity store."""
    found = []
    for file in box.var("identity").iterdir():
        text = file.read_text(errors="replace")
        if file.name.endswith(".key"):
            found.append(text.splitlines()[1])
        elif file.name.startswith("token."):
            found.append(json.loads(text)["token"])
    return found


def temporary_files(box):
    """Files that a run may leave only when it is killed."""
    return sorted(
        file
        for file in box.torqv.rglob("*")
        if file.is_file() and (".tq-new." in file.name or file.name.startswith("SystemCmd"))
    )


def held_locks(box):
    """Lock files that some process still holds."""
    locks = [f"/usr/torqv/{file.relative_to(box.torqv)}" for file in box.torqv.glob("var/**/*lock*")]
    if not locks:
        return []
    words = 'for lock; do flock --nonblock "$lock" true || echo "$lock"; done'
    return box.run(["sh", "-c", words, "sh", *locks]).out.splitlines()


class Contract:
    """Remembers a host before a fault and looks at it after."""

    def __init__(self, box):
        self.box = box
        self.identity = identity_files(box)
        self.tokens = token_files(box)
        self.processes = set(box.processes())

    def check(self, *results):
        """After the fault: `results` are the runs that met it."""
        assert identity_files(self.box) == self.identity, "identity files changed"
        assert self.tokens <= token_files(self.box), "a token file is lost"
        for file in self.box.var("identity").glob("token.*"):
            assert json.loads(file.read_text())["token"], f"{file.name} is not whole"
        self.check_no_secret(results)
        self.box.log()  # refuses what is no entry
        assert held_locks(self.box) == [], "locks still held"
        self.check_processes()

    def check_no_secret(self, results):
        places = {file.name: file.read_bytes() for file in self.box.torqv.rglob("*") if self._is_public(file)}
        for number, result in enumerate(results):
            places[f"output {number}"] = (result.out + result.err).encode(errors="surrogateescape")
        for secret in secrets(self.box):
            for place, content in places.items():
                assert secret.encode() not in content, f"a secret stands in {place}"

    def _is_public(self, file):
        return file.is_file() and not file.is_symlink() and file.parent.name not in ("identity", "bin")

    def check_processes(self):
        deadline = time.monotonic() + 5
        while time.monotonic() < deadline:
            left = {pid: words for pid, words in self.box.processes().items() if pid not in self.processes}
            if not left:
                return
            time.sleep(0.05)
        raise AssertionError(f"still running: {left}")

    def check_healed(self, server="master1.example"):
        """The next healthy update ends well with nobody's help, and sweeps up what a killed run left."""
        for file in temporary_files(self.box):
            old = time.time() - TEMPORARY_AGE_SECONDS
            os.utime(file, (old, old))
        result = self.box.command("-update")
        assert result.status == 0, f"not healed: {result.err}"
        assert self.box.cache_file(server).stat().st_size > 0
        assert not self.box.status_file(server).exists()
        assert temporary_files(self.box) == []
