"""Runs inside a sandbox: meets one scenario with one fault after another and looks at what each leaves.

    sweep_agent.py JOB

The job and its results are JSON beside each other. A point says what is injected, by strace's expressions or
by the environment; its result says how the run ended and names everything that is wrong. It all happens in
here because a sweep has thousands of runs, and each question from outside would cost as much as one.
"""

import contextlib
import fcntl
import hashlib
import json
import os
import pathlib
import re
import shutil
import signal
import sqlite3
import subprocess
import sys
import time

sys.path.insert(0, "/tests")

from debug_log import parse_log

TORQV = pathlib.Path("/usr/torqv")
VAR = TORQV / "var"
IDENTITY = VAR / "identity"
PRODUCT = TORQV / "torquenix"
LOGS = PRODUCT / "logs" / "admin"
MASTERD = "/usr/torqv/torquenix/bin/tqmasterd"

TRACE = "/tmp/trace"
OLD_SECONDS = 120  # temporary files of dead processes are swept up when they are over a minute old
INVITATION_USED = 7
ERROR_LEVEL = 16


class Host:
    """The host and its master server in one scenario."""

    def __init__(self, job):
        self.job = job
        self.server = job["server"]
        self.cache = VAR / f"hostdb.cache.{self.server}"
        self.status = VAR / f"hostdbupdate.status.{self.server}"
        self.own_processes = set(processes())
        self.known_pairs = set()
        self.invitation = None
        self.identity_before = {}
        self.tokens_before = set()

    def reset(self):
        """The state before the fault, on the host and in the server's store."""
        for left in [*LOGS.iterdir(), *temporary_files()]:
            left.unlink()
        for left in VAR.iterdir():
            shutil.rmtree(left) if left.is_dir() else left.unlink()
        shutil.copytree(self.job["state"], VAR, dirs_exist_ok=True, symlinks=True)
        if self.job.get("row") == "absent":
            self.forget_row()
        if "{invitation}" in self.job["command"]:
            self.invite()
        self.identity_before = identity_files()
        self.tokens_before = token_files()

    def arguments(self, which):
        known = self.invitation or {}
        return [known[word[1:-1]] if word.startswith("{") else word for word in self.job[which]]

    def invite(self):
        argv = [MASTERD, "invite", "--data", self.job["data"], "--host", self.job["hostName"]]
        made = subprocess.run(argv, capture_output=True, text=True, check=True)
        self.invitation = dict(line.split(": ") for line in made.stdout.splitlines())

    # The server's store

    def store(self):
        connection = sqlite3.connect(f"{self.job['data']}/{self.job['database']}", timeout=20)
        return contextlib.closing(connection)

    def forget_row(self):
        with self.store() as connection, connection:
            connection.execute("DELETE FROM host")

    def rows(self):
        with self.store() as connection:
            return [record for (record,) in connection.execute("SELECT record FROM host")]

    # What holds after every fault

    def faults(self):
        """Everything that the contract of a row forbids."""
        found = self.identity_faults() + self.token_faults() + self.log_faults() + held_locks()
        if self.status.exists() and not re.fullmatch(r"(-?\d+\n)?", self.status.read_text(errors="replace")):
            found.append(f"status file holds {self.status.read_bytes()[:40]!r}")
        return found + self.processes_left()

    def identity_faults(self):
        now = identity_files()
        if self.job["identity"] == "kept":
            return [] if now == self.identity_before else ["identity files changed"]
        if "identity.json" not in now:
            return ["the former identity is lost"] if "identity.json" in self.identity_before else []
        return self.store_faults()

    def store_faults(self):
        """The store names whole files, the certificate and the key of each entry belong together."""
        found = []
        try:
            entries = json.loads((IDENTITY / "identity.json").read_text())["identities"]
        except (ValueError, KeyError) as fault:
            return [f"identity.json is not whole: {fault}"]
        for entry in entries:
            files = [IDENTITY / entry[key] for key in ("certificate", "privateKey", "caCertificates")]
            missing = [file.name for file in files if not file.is_file()]
            if missing:
                found.append(f"identity.json names {missing}, which are not there")
            elif not self.belong_together(files[0], files[1]):
                found.append(f"{files[0].name} and {files[1].name} do not belong together")
        return found

    def belong_together(self, certificate, key):
        pair = digest(certificate) + digest(key)
        if pair in self.known_pairs:
            return True
        of_certificate = output(["openssl", "x509", "-in", str(certificate), "-noout", "-pubkey"])
        of_key = output(["openssl", "pkey", "-in", str(key), "-pubout"])
        if not of_key or of_certificate != of_key:
            return False
        self.known_pairs.add(pair)
        return True

    def token_faults(self):
        """A token file is the complete old or the complete new one. Only a new identity makes the old one's
        token go."""
        kept = self.tokens_before if self.job["identity"] != "made" else set()
        found = [f"{name} is lost" for name in sorted(kept - token_files())]
        for file in IDENTITY.glob("token.*"):
            try:
                whole = bool(json.loads(file.read_text())["token"])
            except (ValueError, KeyError):
                whole = False
            if not whole:
                found.append(f"{file.name} is not whole: {file.read_bytes()[:20]!r}")
        return found

    def log_faults(self):
        try:
            log_entries()
        except ValueError as fault:
            return [f"debug log: {fault}"]
        return []

    def processes_left(self):
        deadline = time.monotonic() + 10
        while left := {pid: name for pid, name in processes().items() if pid not in self.own_processes}:
            if time.monotonic() > deadline:
                return [f"still running: {left}"]
            time.sleep(0.002)
        return []

    def end_what_is_left(self):
        for pid in processes().keys() - self.own_processes:
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)

    # Success and healing

    def claims_success(self, status, err):
        """Some failures end with 0 on purpose, but they say so on standard error."""
        return status == 0 and not err

    def false_success(self, status, err):
        """A success that the server's store, the cache or the identity store does not bear out."""
        if not self.claims_success(status, err):
            return []
        if self.job["identity"] == "made":
            return [] if (IDENTITY / "identity.json").is_file() else ["success without an identity"]
        if self.job["identity"] == "renewed" and identity_files() == self.identity_before:
            return ["success without a renewal"]
        if self.job.get("row") and not self.rows():
            return ["success without a record in the server's store"]
        return []

    def heal(self):
        """The next healthy run, with nobody's help; everything that is wrong with it."""
        for file in temporary_files():
            old = time.time() - OLD_SECONDS
            os.utime(file, (old, old))
        status, out, err = self.run_healthy("heal")
        if self.job["identity"] == "made" and status == INVITATION_USED:
            if "ask for a new one" not in err:
                return [f"a used invitation, and no word about a new one: {err}"]
            self.invite()
            status, out, err = self.run_healthy("heal")
        if status != 0 or err:
            return [f"not healed: status {status}, {err or out}"]
        return self.faults_of_healed()

    def run_healthy(self, which):
        argv = self.arguments(which)
        done = subprocess.run(argv, env=self.job["environment"], capture_output=True, timeout=60, check=False)
        return done.returncode, done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace")

    def faults_of_healed(self):
        found = [f"stray temporary file {file}" for file in temporary_files()] + held_locks()
        found += self.store_faults() + self.token_faults()
        known = {"identity.json", "identity.lock"}
        for entry in json.loads((IDENTITY / "identity.json").read_text())["identities"]:
            known |= {entry[key] for key in ("certificate", "privateKey", "caCertificates")}
            known.add(f"token.{entry['certType']}.{entry['server']}")
        found += [f"stray file {file.name}" for file in IDENTITY.iterdir() if file.name not in known]
        if self.job["identity"] != "kept":
            status, _, err = self.run_healthy("afterHeal")
            return found + ([f"the identity does not work: {status} {err}"] if status != 0 or err else [])
        if self.job.get("row"):
            found += [] if self.rows() else ["no record in the server's store after healing"]
            found += [] if whole_line(self.cache) else ["no whole cache after healing"]
            found += ["a status file after healing"] if self.status.exists() else []
        return found


def digest(file):
    return hashlib.sha256(file.read_bytes()).hexdigest()


def output(argv):
    return subprocess.run(argv, capture_output=True, check=False).stdout


def log_entries():
    entries = []
    for file in LOGS.iterdir():
        entries += parse_log(file.read_bytes().decode(errors="replace"))
    return entries


def errors_logged():
    """Texts at error level, of a log that is whole."""
    with contextlib.suppress(ValueError):
        return [entry.text for entry in log_entries() if entry.level == ERROR_LEVEL]
    return []


def identity_files():
    """Digest of every file of the identity store but tokens, lock and temporary files."""
    if not IDENTITY.is_dir():
        return {}
    left_out = ("token.", ".", "identity.lock")
    return {file.name: digest(file) for file in IDENTITY.iterdir() if not file.name.startswith(left_out)}


def token_files():
    """Names of the token files."""
    return {file.name for file in IDENTITY.glob("token.*")}


def temporary_files():
    """Files that a run may leave only when it is killed."""
    found = list(PRODUCT.glob("SystemCmd*"))
    return found + (list(IDENTITY.glob(".tq-new.*")) if IDENTITY.is_dir() else [])


def whole_line(file):
    return file.is_file() and file.read_bytes().endswith(b"\n")


def held_locks():
    """Lock files that somebody still holds."""
    found = []
    for file in VAR.rglob("*lock*"):
        with open(file, "rb") as lock:
            try:
                fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError:
                found.append(f"{file.name} is still locked")
    return found


def processes():
    """Process id to name of everything that runs in the sandbox."""
    found = {}
    for name in filter(str.isdigit, os.listdir("/proc")):
        with contextlib.suppress(OSError):
            with open(f"/proc/{name}/stat", encoding="utf-8", errors="replace") as file:
                text = file.read()
            if text.rsplit(")", 1)[1].split()[0] not in "ZX":
                found[int(name)] = text[text.index("(") + 1 : text.rindex(")")]
    return found


def strace(point):
    """The tracer's own command line; a killed tracee kills it with the same signal."""
    if "trace" in point:
        return ["strace", "-o", point["trace"]]
    expressions = point.get("inject", [])
    if not expressions:
        return []
    calls = ",".join(expression.split(":")[0] for expression in expressions)
    options = ["-f"] if point.get("children") else []
    words = ["strace", *options, "-o", TRACE, "-e", f"trace={calls}"]
    for expression in expressions:
        words += ["-e", f"inject={expression}"]
    return words


def times_injected():
    """How often the tracer did as it was told: an error is marked at its call, a signal has its own line."""
    with open(TRACE, encoding="utf-8", errors="replace") as trace:
        return len(re.findall(r"\(INJECTED\)|^--- SIG(?!CHLD)", trace.read(), re.MULTILINE))


def meet(host, point, job):
    """One run that meets one fault, and the run after it."""
    host.reset()
    argv = strace(point) + host.arguments("command")
    environment = job["environment"] | point.get("environment", {})
    begun = time.monotonic()
    try:
        limit = job["seconds"]
        done = subprocess.run(argv, env=environment, capture_output=True, timeout=limit, check=False)
    except subprocess.TimeoutExpired:
        host.end_what_is_left()
        return {"point": point["name"], "bad": [f"it hangs: still running after {job['seconds']} s"]}
    seconds = time.monotonic() - begun
    err = done.stderr.decode(errors="replace")
    result = {"point": point["name"], "status": done.returncode, "seconds": seconds, "err": err[-2000:]}
    result["injected"] = times_injected() if point.get("inject") else 0
    result["success"] = host.claims_success(done.returncode, err)
    result["log"] = errors_logged()
    result["cache"] = host.cache.exists()
    result["rows"] = len(host.rows())
    result["bad"] = host.faults() + host.false_success(done.returncode, err)
    if job.get("heal"):
        result["unhealed"] = host.heal()
    return result


def main():
    path = pathlib.Path(sys.argv[1])
    job = json.loads(path.read_text())
    host = Host(job)
    results = [meet(host, point, job) for point in job["points"]]
    path.with_suffix(".results").write_text(json.dumps(results))


if __name__ == "__main__":
    main()
