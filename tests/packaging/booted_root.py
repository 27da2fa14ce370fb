"""A minimal Debian that boots with systemd, in namespaces of its own: to install packages on, as an
administrator does."""

import pathlib
import shlex
import shutil
import signal
import subprocess
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
TEMPLATE = pathlib.Path("/var/tmp/tqhostdb-template")
BOOT_SECONDS = 120
RUN_SECONDS = 300

ENVIRONMENT = ["env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LANG=C.UTF-8", "HOME=/root"]
ENVIRONMENT += ["DEBIAN_FRONTEND=noninteractive"]


# Of what was killed a moment ago they are busy for a while.
REMOVE_GROUPS = """
mount -t cgroup2 cgroup2 "$1"
for turn in $(seq 50); do
    find "$1/$2" -depth -type d -exec rmdir {} + 2>/dev/null
    [ -d "$1/$2" ] || exit 0
    sleep 0.1
done
exit 1
"""


class BootedRoot:
    """Use as a context manager."""

    def __init__(self, name, network_of=None):
        self.name = name
        self.network_of = network_of
        self.work = pathlib.Path(tempfile.mkdtemp(prefix="tqhostdb-root.", dir="/var/tmp"))
        self.log = self.work / "boot.log"
        self._boot = None
        self.pid = None

    def __enter__(self):
        argv = [HERE / "boot", TEMPLATE, self.work, self.name]
        argv += [str(self.network_of.pid)] if self.network_of else []
        with open(self.log, "wb") as log:
            self._boot = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        try:
            self.pid = self._await_systemd()
            self._await_end_of_boot()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_exception):
        self._boot.send_signal(signal.SIGKILL)
        self._boot.wait()
        self._remove_groups()
        shutil.rmtree(self.work)

    def _remove_groups(self):
        argv = ["unshare", "--mount", "sh", "-c", REMOVE_GROUPS, "sh", self.work / "groups", self.work.name]
        subprocess.run(argv, check=True)

    def _await_systemd(self):
        """The process id, as this machine has it, of the child that has become systemd."""
        deadline = time.monotonic() + BOOT_SECONDS
        while time.monotonic() < deadline and self._boot.poll() is None:
            children = pathlib.Path(f"/proc/{self._boot.pid}/task/{self._boot.pid}/children")
            for child in children.read_text().split():
                if pathlib.Path(f"/proc/{child}/comm").read_text().strip() == "systemd":
                    return int(child)
            time.sleep(0.05)
        raise RuntimeError(f"systemd did not start:\n{self.log.read_text()}")

    def _await_end_of_boot(self):
        deadline = time.monotonic() + BOOT_SECONDS
        while time.monotonic() < deadline:
            state = self.try_run("systemctl is-system-running").stdout.strip()
            if state in ("running", "degraded"):
                return
            time.sleep(0.1)
        raise RuntimeError(f"the boot came to no end: {state}\n{self.log.read_text()}")

    def try_run(self, command, **options):
        """Runs a shell command as root on the host; it may fail."""
        argv = ["nsenter", f"--target={self.pid}", "--mount", "--uts", "--ipc", "--net", "--pid", "--cgroup"]
        argv += ["--wd", *ENVIRONMENT, "sh", "-c", command]
        options = {"capture_output": True, "text": True, "timeout": RUN_SECONDS} | options
        return subprocess.run(argv, check=False, **options)

    def run(self, command):
        """Runs a shell command as root on the host, and returns what it prints."""
        done = self.try_run(command)
        journal = self.try_run("journalctl --no-pager --lines=30").stdout if done.returncode else ""
        assert done.returncode == 0, f"{command}\n{done.returncode}\n{done.stdout}{done.stderr}\n{journal}"
        return done.stdout

    def install(self, *packages):
        """Installs package files, and what they depend on, with apt. Its questions are answered with the old
        file."""
        files = " ".join(shlex.quote(str(package)) for package in packages)
        options = "-q -y -o Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold"
        return self.run(f"apt-get {options} install {files}")

    def exists(self, path):
        return self.try_run(f"test -e {shlex.quote(path)}").returncode == 0

    def facts(self, path):
        """Owner, group and mode."""
        return self.run(f"stat --format='%U:%G %a' {shlex.quote(path)}").strip()

    def property(self, unit, name):
        return self.run(f"systemctl show --value --property={name} {unit}").strip()
