"""A host of its own for one test: the real binaries inside another host's files, processes and network.

A sandbox is one bubblewrap process with private mount, network, process and host-name namespaces. Inside it
/usr/torqv and port 1556 belong to the test; the distribution's tools are this machine's, what describes the
host (/etc, /proc/cpuinfo, /proc/meminfo, /sbin, the host name) comes from a host image under tests/hosts.
"""

import contextlib
import dataclasses
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import socket
import string
import subprocess
import threading
import time

from debug_log import parse_log
from servers import ADDRESSES, Master

HERE = pathlib.Path(__file__).resolve().parent
TOP = HERE.parent.parent
IMAGES = TOP / "tests" / "hosts"

WEB_SERVICE_PORT = 1556
INSTALL_ROOT = "/usr/torqv"
BIN_DIR = f"{INSTALL_ROOT}/torquenix/bin"
PROGRAMS = ("tqhostdbcmd", "tqenroll", "tqmasterd")

# The identifier that give_identifier() gives.
HOST_ID = "0b4d6a5e-3d2c-4f1b-9a70-5f1e2d3c4b5a"

# What a host outside any cluster says at error level in every load.
NO_CLUSTER = "retrieveClusterSharedNames status : 30036. Check getclusterinfo::trace for more details. "

# Programs of a host's record that a machine for tests may or may not have.
CHANCE_TOOLS = ("rpm",)

# Files of this machine that the distribution's own tools need and that say nothing about the host.
MACHINE_ETC = ("passwd", "group", "nsswitch.conf", "ld.so.cache", "alternatives")

RUN_SECONDS = 120

# Beginnings of command lines that run as an ordinary user, and with mounts of their own. Who is root needs no
# namespace of users for either, and could make none from within a chroot.
if os.geteuid() == 0:
    ORDINARY_USER = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
    OWN_MOUNTS = ["unshare", "--mount"]
else:
    ORDINARY_USER = ["unshare", "--user", "--map-user=65534", "--map-group=65534"]
    OWN_MOUNTS = ["unshare", "--user", "--map-root-user", "--mount"]


def is_sanitized(build):
    """Whether a build folder's programs carry the sanitizers."""
    return "TQ_SANITIZE:BOOL=ON" in (build / "CMakeCache.txt").read_text(errors="replace")


class SandboxError(Exception):
    """The sandbox itself, and not what is tested in it, did not work."""


@dataclasses.dataclass(frozen=True)
class Result:
    """How a process ended and what it printed."""

    status: int
    out: str
    err: str
    trace: str = ""

    def injected_waits(self, seconds):
        """How many waits of so many seconds there were, all of which the tracer made no wait at all."""
        return len(re.findall(rf"nanosleep\(.*\{{tv_sec={seconds}, tv_nsec=0\}}", self.trace))


class Process:
    """A process that was started in a sandbox."""

    def __init__(self, sandbox, pid, argv, out_file, err_file):
        self.sandbox = sandbox
        self.pid = pid
        self.argv = argv
        self.out_file = out_file
        self.err_file = err_file

    def is_running(self):
        return self.sandbox.ask(operation="wait", pid=self.pid, timeout=0)["status"] is None

    def signal(self, number):
        self.sandbox.ask(operation="signal", pid=self.pid, signal=int(number))

    def wait(self, timeout=RUN_SECONDS):
        status = self.sandbox.ask(operation="wait", pid=self.pid, timeout=timeout)["status"]
        if status is None:
            self.signal(signal.SIGKILL)
            raise SandboxError(f"still running after {timeout} s: {shlex.join(self.argv)}")
        return Result(status, self.output(), self.errors())

    def stop(self):
        if self.is_running():
            self.signal(signal.SIGTERM)
        return self.wait(20)

    def output(self):
        return self.out_file.read_bytes().decode(errors="surrogateescape")

    def errors(self):
        return self.err_file.read_bytes().decode(errors="surrogateescape")


class Sandbox:
    """Use as a context manager. Every path given to its methods is one inside, unless it says otherwise."""

    def __init__(self, build, work, image="debian12"):
        self.build = pathlib.Path(build).resolve()
        self.work = pathlib.Path(work).resolve()
        self.image = IMAGES / image
        self.host_name = (self.image / "hostname").read_text().strip()
        self.torqv = self.work / "torqv"  # /usr/torqv, seen from outside
        self.etc = self.work / "etc"
        self.local_sbin = self.work / "local-sbin"
        self.sbin = self.work / "sbin"
        self.opt = self.work / "opt"
        self.shared = self.work / "shared"  # /shared inside
        self.extra_arguments = []
        self.masters = {}
        self._agent = None
        self._handover = None
        self._asking = threading.RLock()
        self._count = 0
        self._lay_out()

    # Layout

    def _lay_out(self):
        self._copy(self.image / "etc", self.etc)
        for name in MACHINE_ETC:
            source = pathlib.Path("/etc") / name
            if source.is_dir():
                shutil.copytree(source, self.etc / name, symlinks=True, dirs_exist_ok=True)
            elif source.exists():
                shutil.copy(source, self.etc / name)
        self.write_hosts()
        self._copy(self.image / "sbin", self.local_sbin)
        self._copy(self.image / "usr-sbin", self.sbin)
        self._copy(self.image / "opt", self.opt)
        self._copy(self.image / "usr" / "torqv", self.torqv)
        folders = [f"torquenix/{name}" for name in ("bin", "lib", "logs/admin", "share/locale")]
        for folder in (*folders, "var"):
            (self.torqv / folder).mkdir(parents=True, exist_ok=True)
        for program in PROGRAMS:
            (self.torqv / "torquenix" / "bin" / program).touch()
        shutil.copy(self.build / "lib" / "tqhttp.so", self.http_module)
        (self.shared / "output").mkdir(parents=True)
        (self.shared / "reports").mkdir()
        suppressions = TOP / "tests" / "lsan.supp"
        shutil.copy(suppressions, self.shared / "lsan.supp")
        self._hide_machine_tools()
        missing = self.image / "missing"
        for tool in missing.read_text().split() if missing.exists() else []:
            self.remove_tool(tool)

    def _hide_machine_tools(self):
        """A tool that some machines have and others have not is missing, unless the image brings it: to the
        shell a program without its interpreter is one that does not exist."""
        hidden = self.work / "no-such-tool"
        hidden.write_text("#!/no/such/interpreter\n")
        hidden.chmod(0o755)
        for name in CHANCE_TOOLS:
            if pathlib.Path("/usr/bin", name).exists():
                self.extra_arguments += ["--ro-bind", str(hidden), f"/usr/bin/{name}"]

    @staticmethod
    def _copy(source, target):
        if source.is_dir():
            shutil.copytree(source, target)
        else:
            target.mkdir(parents=True)

    def write_hosts(self, extra=""):
        """/etc/hosts: this host, the master servers, what the image knows and what a test adds."""
        short = self.host_name.split(".", maxsplit=1)[0]
        lines = ["127.0.0.1 localhost", f"192.0.2.10 {self.host_name} {short}"]
        lines += [f"{address} {name}" for name, address in ADDRESSES.items()]
        known = self.image / "etc" / "hosts"
        lines += known.read_text().splitlines() if known.exists() else []
        (self.etc / "hosts").write_text("\n".join(lines) + "\n" + extra)

    def arguments(self):
        """The command line of the sandbox, without the program that runs in it."""
        arguments = ["bwrap", "--die-with-parent", "--unshare-net", "--unshare-pid", "--unshare-uts"]
        arguments += ["--unshare-ipc", "--hostname", self.host_name, "--tmpfs", "/", "--tmpfs", "/usr"]
        if os.geteuid() != 0:
            arguments += ["--unshare-user", "--uid", "0", "--gid", "0"]
        for folder in ("bin", "lib", "lib64", "share"):
            arguments += ["--ro-bind-try", f"/usr/{folder}", f"/usr/{folder}"]
        for link in ("bin", "lib", "lib64", "sbin"):
            arguments += ["--symlink", f"usr/{link}", f"/{link}"]
        arguments += ["--tmpfs", "/usr/local", "--ro-bind", str(self.local_sbin), "/usr/local/sbin"]
        arguments += ["--ro-bind", str(self.sbin), "/usr/sbin", "--ro-bind", str(self.etc), "/etc"]
        arguments += ["--ro-bind", str(self.opt), "/opt"]
        arguments += ["--dev", "/dev", "--proc", "/proc", "--tmpfs", "/tmp", "--tmpfs", "/var/tmp"]
        arguments += self._host_facts() + self._build_folder()
        arguments += ["--bind", str(self.torqv), INSTALL_ROOT, "--bind", str(self.shared), "/shared"]
        for program in PROGRAMS:
            arguments += ["--ro-bind", str(self.build / "bin" / program), f"{BIN_DIR}/{program}"]
        catalogues = self.build / "share" / "locale"
        arguments += ["--ro-bind-try", str(catalogues), f"{INSTALL_ROOT}/torquenix/share/locale"]
        arguments += ["--ro-bind", str(HERE), "/tests", "--ro-bind", str(TOP / "tests" / "faults"), "/faults"]
        return arguments + self.extra_arguments

    def _host_facts(self):
        arguments = ["--dir", "/sys/devices/system/cpu"]
        for inside in ("proc/cpuinfo", "proc/meminfo", "sys/devices/system/cpu/online"):
            if (self.image / inside).exists():
                arguments += ["--ro-bind", str(self.image / inside), f"/{inside}"]
        return arguments

    def _build_folder(self):
        """The build at its own path: catalogues lie there, and coverage counters are written there."""
        cache = (self.build / "CMakeCache.txt").read_text(errors="replace")
        bind = "--bind" if "TQ_COVERAGE:BOOL=ON" in cache else "--ro-bind"
        return [bind, str(self.build), str(self.build)]

    # Life

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_exception):
        self.stop()

    def start(self):
        self._handover, inside = socket.socketpair()
        command = self.arguments() + ["/usr/bin/python3", "-I", "/tests/agent.py", str(inside.fileno())]
        errors = open(self.work / "sandbox.errors", "wb")
        with errors, inside:
            self._agent = subprocess.Popen(
                command,
                stdin=subprocess.PIPE,
                stdout=subprocess.PIPE,
                stderr=errors,
                text=True,
                pass_fds=[inside.fileno()],
            )

    def stop(self):
        """Ends the sandbox and everything in it."""
        if self._agent is not None:
            self._agent.stdin.close()
            with contextlib.suppress(subprocess.TimeoutExpired):
                self._agent.wait(10)
            self._agent.kill()
            self._agent.wait()
            self._agent.stdout.close()
            self._agent = None
            self._handover.close()

    def restart(self, *more_arguments):
        """Begins again with further arguments of bubblewrap; the files stay."""
        self.stop()
        self.extra_arguments += more_arguments
        self.start()

    def ask(self, **request):
        """One request to the agent and its reply. May be called by several threads."""
        with self._asking:
            self._agent.stdin.write(json.dumps(request) + "\n")
            self._agent.stdin.flush()
            line = self._agent.stdout.readline()
        if not line:
            raise SandboxError("the sandbox is gone: " + (self.work / "sandbox.errors").read_text())
        reply = json.loads(line)
        if "error" in reply:
            raise SandboxError(f"{reply['error']} for {request}")
        return reply

    # Processes

    def environment(self, traced=False, program="tqhostdbcmd"):
        """The environment of a run: nothing but what the sanitizers read.

        The command keeps a few blocks on purpose, which tests/lsan.supp names by functions that only the slow
        way of unwinding sees. It costs ten times the run, so nobody else goes it.
        """
        leaks = "" if not traced else ":detect_leaks=0"
        fast = int(traced or program in ("tqmasterd", "tqenroll"))
        return {
            "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
            "LANG": "C",
            "ASAN_OPTIONS": f"log_path=/shared/reports/address:fast_unwind_on_malloc={fast}{leaks}",
            "LSAN_OPTIONS": "suppressions=/shared/lsan.supp:print_suppressions=0",
            "UBSAN_OPTIONS": "log_path=/shared/reports/undefined:print_stacktrace=1",
        }

    def start_process(self, argv, env=None, stdin=None, traced=False, stdout=None, stderr=None, **options):
        """Starts a program and returns at once. `stdout` and `stderr` name files inside to write to."""
        self._count += 1
        program = pathlib.PurePath(argv[0] or "no-name").name
        name = f"{self._count:02}.{program}"
        out_file = self.shared / "output" / f"{name}.out"
        err_file = self.shared / "output" / f"{name}.err"
        out_file.touch()
        err_file.touch()
        environment = self.environment(traced, program) | (env or {})
        reply = self.ask(
            operation="start",
            argv=list(argv),
            env={key: value for key, value in environment.items() if value is not None},
            stdin=stdin,
            stdout=stdout or f"/shared/output/{name}.out",
            stderr=stderr or f"/shared/output/{name}.err",
            **options,
        )
        return Process(self, reply["pid"], list(argv), out_file, err_file)

    def run(self, argv, timeout=RUN_SECONDS, inject=None, administrator=True, capabilities=True, **options):
        """Runs a program to its end.

        `inject` is a list of strace expressions ("clock_nanosleep:retval=0"); the result then holds the trace
        of the named calls. Without `administrator` the program's user id is not 0; without `capabilities` it
        is, but mode bits and read-only marks bind it as they bind anyone.
        """
        argv = list(argv)
        if not administrator:
            argv = ORDINARY_USER + argv
        if not capabilities:
            argv = ["setpriv", "--bounding-set=-all", "--inh-caps=-all"] + argv
        if inject is None:
            return self.start_process(argv, **options).wait(timeout)
        self._count += 1
        trace = f"{self._count:02}.trace"
        calls = ",".join(expression.split(":")[0] for expression in inject)
        strace = ["strace", "-f", "--seccomp-bpf", "-o", f"/shared/output/{trace}", "-e", f"trace={calls}"]
        for expression in inject:
            strace += ["-e", f"inject={expression}"]
        result = self.start_process(strace + argv, traced=True, **options).wait(timeout)
        text = (self.shared / "output" / trace).read_text(errors="replace")
        return dataclasses.replace(result, trace=text)

    def command(self, *arguments, **options):
        """Runs tqhostdbcmd."""
        return self.run([f"{BIN_DIR}/tqhostdbcmd", *arguments], **options)

    def start_command(self, *arguments, **options):
        """Starts tqhostdbcmd and returns at once."""
        return self.start_process([f"{BIN_DIR}/tqhostdbcmd", *arguments], **options)

    def update_without_waiting(self, *arguments, **options):
        """Runs an update whose waits between attempts take no time; the trace tells how many there were."""
        return self.command("-update", *arguments, inject=["clock_nanosleep:retval=0"], **options)

    def wait_until_listening(self, address, port=WEB_SERVICE_PORT, timeout=20):
        return self.ask(operation="listening", address=address, port=port, timeout=timeout)["listening"]

    def connect(self, address, port=WEB_SERVICE_PORT, receive_buffer=None, timeout=20):
        """A connection inside the sandbox's network, as a socket of the test's own process."""
        request = {"address": address, "port": port, "receiveBuffer": receive_buffer, "timeout": timeout}
        with self._asking:
            if self.ask(operation="connect", **request)["refused"]:
                raise ConnectionRefusedError(f"nobody listens on {address}")
            _, (descriptor,), _, _ = socket.recv_fds(self._handover, 1, 1)
        connection = socket.socket(fileno=descriptor)
        connection.settimeout(timeout)
        return connection

    def processes(self):
        """Process id to command line of everything that runs in the sandbox now."""
        return {entry["pid"]: entry["command"] for entry in self.ask(operation="running")["processes"]}

    def running(self):
        """Command lines of everything that runs in the sandbox now."""
        return list(self.processes().values())

    # Files

    def path(self, inside):
        """Where a path under /usr/torqv lies outside."""
        return self.torqv / pathlib.PurePosixPath(inside).relative_to(INSTALL_ROOT)

    def var(self, name):
        """A file of /usr/torqv/var, seen from outside."""
        return self.torqv / "var" / name

    def cache_file(self, server="master1.example"):
        return self.var(f"hostdb.cache.{server}")

    def status_file(self, server="master1.example"):
        return self.var(f"hostdbupdate.status.{server}")

    def write_config(self, *lines):
        """Replaces kx.conf."""
        (self.torqv / "torquenix" / "kx.conf").write_text("".join(line + "\n" for line in lines))

    def add_config(self, *lines):
        """Adds lines to kx.conf."""
        with open(self.torqv / "torquenix" / "kx.conf", "a", encoding="utf-8") as file:
            file.writelines(line + "\n" for line in lines)

    def write_cluster_state(self, node_clustered, clustered, active):
        """The state that the cluster manager's triggers leave."""
        words = {True: "YES", False: "NO"}
        self.var("cluster.state").write_text(
            f"NODE_CLUSTERED = {words[node_clustered]}\n"
            f"CLUSTERED = {words[clustered]}\nACTIVE = {words[active]}\n"
        )

    def identity_store(self):
        """The store's document."""
        return json.loads((self.var("identity") / "identity.json").read_text())

    def identities(self):
        """The entries of the identity store."""
        return self.identity_store()["identities"]

    def change_identity(self, number, **fields):
        """Changes fields of one entry of the identity store."""
        store = self.identity_store()
        store["identities"][number].update(fields)
        (self.var("identity") / "identity.json").write_text(json.dumps(store))

    def identity_files(self):
        """Name and content of every file of the identity store but its lock; nothing when there is none."""
        folder = self.var("identity")
        files = folder.iterdir() if folder.exists() else ()
        return {file.name: file.read_bytes() for file in files if not file.name.endswith(".lock")}

    def give_identifier(self):
        """An identity store as after an enrolment, but without key and certificate: good for what asks no
        server."""
        folder = self.var("identity")
        folder.mkdir(mode=0o700)
        files = {"certificate": "none.crt", "privateKey": "none.key", "caCertificates": "none.ca"}
        identity = {"server": "master1.example", "certType": "host", "hostId": HOST_ID}
        identity |= {"hostName": self.host_name, "trustVersion": "1", "caMode": "internal"} | files
        store = folder / "identity.json"
        store.write_text(json.dumps({"version": 1, "identities": [identity]}))
        store.chmod(0o600)

    def hold_lock(self, path):
        """Another process takes a lock file and keeps it; let_go() ends it."""
        held = "/shared/lock-is-held"
        keep = f"touch {held}; exec sleep 600"
        holder = self.start_process(["flock", "--exclusive", path, "sh", "-c", keep])
        marker = self.shared / "lock-is-held"
        while not marker.exists():
            time.sleep(0.01)
        marker.unlink()
        return holder

    def let_go(self, holder):
        """Ends what hold_lock() started."""
        self.run(["kill", "-KILL", "--", f"-{holder.pid}"])
        holder.wait(10)

    def log_files(self, program="tqhostdbcmd"):
        return sorted((self.torqv / "torquenix" / "logs" / "admin").glob(f"{program}.*.log"))

    def log(self, program="tqhostdbcmd"):
        """All entries of a program's debug log."""
        entries = []
        for file in self.log_files(program):
            entries += parse_log(file.read_bytes().decode(errors="replace"))
        return entries

    def log_texts(self, level=None, program="tqhostdbcmd"):
        return [entry.text for entry in self.log(program) if level in (None, entry.level)]

    def log_of(self, context, program="tqhostdbcmd"):
        """What one function wrote to the log."""
        return [entry.text for entry in self.log(program) if entry.context == context]

    def forget_log(self, program="tqhostdbcmd"):
        """Removes a program's log, so that the next look sees only what came after."""
        for file in self.log_files(program):
            file.unlink()

    def expected_record(self, host_id=HOST_ID):
        """The image's expected.json, with what no image can change put in."""
        uname = os.uname()
        text = string.Template((self.image / "expected.json").read_text()).substitute(
            kernel=uname.release, machine=uname.machine, hostId=host_id
        )
        return json.loads(text)

    def external_commands(self):
        """What the command runner ran, in order, as the debug log names it."""
        commands = [re.fullmatch(r"Executing cmd \((.*)\)", text, re.DOTALL) for text in self.log_texts(2)]
        return [match[1] for match in commands if match]

    def stubs_run(self):
        """What the image's tools were started with, in order, by their own record."""
        record = self.shared / "output" / "tools"
        return [line.rstrip() for line in record.read_text().splitlines()] if record.exists() else []

    def put_tool(self, folder, name, body):
        """Puts a shell script in the place of a tool; it records its name and arguments, then does `body`."""
        tool = folder / name
        tool.parent.mkdir(parents=True, exist_ok=True)
        tool.unlink(missing_ok=True)
        record = 'echo "$(basename "$0") $*" >>/shared/output/tools'
        tool.write_text(f"#!/bin/sh\n{record}\n{body}\n")
        tool.chmod(0o755)

    def remove_tool(self, name):
        """Makes a tool missing, before the start: what stands in its place cannot be executed."""
        blank = self.work / f"no-{name}"
        blank.write_text("")
        blank.chmod(0o644)
        for folder in (self.local_sbin, self.sbin):
            (folder / name).unlink(missing_ok=True)
        if pathlib.Path("/usr/bin", name).exists():
            self.extra_arguments += ["--ro-bind", str(blank), f"/usr/bin/{name}"]

    def sanitizer_reports(self):
        return [file.read_text(errors="replace") for file in sorted((self.shared / "reports").iterdir())]

    @property
    def http_module(self):
        """The command's HTTP client, which it loads when it connects: a copy, that a test may spoil."""
        return self.torqv / "torquenix" / "lib" / "tqhttp.so"

    # Servers and identities

    def master(self, name="master1.example", folder=None):
        """A master server with its data made, not serving yet."""
        master = Master(self, name, folder)
        master.init()
        self.masters[folder or name] = master
        return master

    def enroll_program(self, *arguments, **options):
        """Runs tqenroll."""
        return self.run([f"{BIN_DIR}/tqenroll", *arguments], **options)

    def enrol(self, master, invitation=None, fingerprint=None, cluster=False, host=None):
        """Runs tqenroll; invitation and fingerprint are asked of the server unless they are given."""
        if invitation is None:
            made = master.invite(host or self.host_name, cluster)
            invitation, fingerprint = made.text, fingerprint or made.fingerprint
        argv = [f"{BIN_DIR}/tqenroll", "--server", master.name, "--invitation", invitation]
        argv += ["--fingerprint", fingerprint] + (["--cluster"] if cluster else [])
        return self.run(argv)
