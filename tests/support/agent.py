"""The process inside a sandbox: starts, awaits and signals processes for the test outside.

Requests and replies are one JSON object a line, on standard input and output. The end of input ends the
agent, and with it the sandbox and everything that still runs in it. Connections are handed out over a socket,
whose descriptor is the only argument.
"""

import json
import os
import select
import signal
import socket
import subprocess
import sys
import time

processes = {}


def prepare(request):
    """What happens in the child between fork and exec."""

    def run():
        # A runner in the background of a shell hands these on ignored.
        for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT):
            signal.signal(number, signal.SIG_DFL)
        if request.get("ignoreChildSignal"):
            signal.signal(signal.SIGCHLD, signal.SIG_IGN)
        os.umask(request.get("umask", 0o022))
        for descriptor in request.get("closed", []):
            os.close(descriptor)

    return run


def start(request):
    stdin = open(request["stdin"] or "/dev/null", "rb")
    with stdin, open(request["stdout"], "wb") as stdout, open(request["stderr"], "wb") as stderr:
        process = subprocess.Popen(
            request["argv"],
            executable=request.get("executable"),
            env=request["env"],
            cwd=request.get("cwd", "/"),
            stdin=stdin,
            stdout=stdout,
            stderr=stderr,
            preexec_fn=prepare(request),
            start_new_session=True,
        )
    processes[process.pid] = process
    return {"pid": process.pid}


def wait(request):
    """Waits for the end of a process, for at most a number of seconds; null when it still runs."""
    process = processes[request["pid"]]
    if process.returncode is None and process.poll() is None:
        descriptor = os.pidfd_open(process.pid)
        try:
            select.select([descriptor], [], [], request["timeout"])
        finally:
            os.close(descriptor)
    return {"status": process.poll()}


def send_signal(request):
    os.kill(request["pid"], request["signal"])
    return {}


def is_listening(address, port):
    packed = socket.inet_aton(address)[::-1].hex().upper()
    local = f"{packed}:{port:04X}"
    with open("/proc/net/tcp", encoding="ascii") as table:
        rows = [line.split() for line in table]
    return any(row[1] in (local, f"00000000:{port:04X}") and row[3] == "0A" for row in rows)


def listening(request):
    """Waits until somebody listens on an address, without connecting to it."""
    deadline = time.monotonic() + request["timeout"]
    while time.monotonic() < deadline:
        if is_listening(request["address"], request["port"]):
            return {"listening": True}
        time.sleep(0.01)
    return {"listening": False}


def running(_request):
    """Every process of the sandbox but its first one and this agent."""
    found = []
    for name in os.listdir("/proc"):
        if not name.isdigit() or int(name) in (1, os.getpid()):
            continue
        try:
            with open(f"/proc/{name}/cmdline", "rb") as file:
                command = file.read().replace(b"\0", b" ").decode(errors="replace").strip()
            with open(f"/proc/{name}/stat", encoding="utf-8", errors="replace") as file:
                state = file.read().rsplit(")", 1)[1].split()[0]
        except OSError:
            continue
        if state != "Z":
            found.append({"pid": int(name), "command": command})
    return {"processes": found}


def connect(request):
    """Opens a connection in the sandbox's network and hands it to the test, which can use it as its own."""
    with socket.socket() as connection:
        if request["receiveBuffer"]:  # counts only when it is set before the connection is made
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, request["receiveBuffer"])
        connection.settimeout(request["timeout"])
        try:
            connection.connect((request["address"], request["port"]))
        except ConnectionRefusedError:
            return {"refused": True}
        with socket.socket(fileno=os.dup(int(sys.argv[1]))) as handover:
            socket.send_fds(handover, [b"c"], [connection.fileno()])
    return {"refused": False}


OPERATIONS = {
    "connect": connect,
    "start": start,
    "wait": wait,
    "signal": send_signal,
    "listening": listening,
    "running": running,
}


def main():
    for line in sys.stdin:
        request = json.loads(line)
        try:
            reply = OPERATIONS[request["operation"]](request)
        except Exception as error:  # the test outside reports it
            reply = {"error": f"{type(error).__name__}: {error}"}
        print(json.dumps(reply), flush=True)


if __name__ == "__main__":
    main()
