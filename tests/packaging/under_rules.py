"""under_rules.py RULES PROGRAM [ARGUMENT...]: runs a program under the rules of a service, without systemd.

RULES is the JSON text that unit_file.Rules makes of a unit. The caller gives this process mounts of its own.
What systemd does by control groups (processors, memory, tasks) is not done here.
"""

import ctypes
import errno
import json
import os
import socket
import stat
import sys

import seccomp

libc = ctypes.CDLL(None, use_errno=True)

AT_FDCWD = -100
AT_RECURSIVE = 0x8000
SYS_MOUNT_SETATTR = 442
MOUNT_ATTR_RDONLY = 1
MS_BIND, MS_REC, MS_PRIVATE = 0x1000, 0x4000, 0x40000
PR_CAPBSET_DROP, PR_SET_NO_NEW_PRIVS = 24, 38

# Always writable in a service's world, and the folder where this test bed's tools write down that they ran.
OUTSIDE_OF_STRICT = ("/dev", "/proc", "/sys", "/shared")

CAPABILITIES = (
    "CHOWN DAC_OVERRIDE DAC_READ_SEARCH FOWNER FSETID KILL SETGID SETUID SETPCAP LINUX_IMMUTABLE "
    "NET_BIND_SERVICE NET_BROADCAST NET_ADMIN NET_RAW IPC_LOCK IPC_OWNER SYS_MODULE SYS_RAWIO SYS_CHROOT "
    "SYS_PTRACE SYS_PACCT SYS_ADMIN SYS_BOOT SYS_NICE SYS_RESOURCE SYS_TIME SYS_TTY_CONFIG MKNOD LEASE "
    "AUDIT_WRITE AUDIT_CONTROL SETFCAP MAC_OVERRIDE MAC_ADMIN SYSLOG WAKE_ALARM BLOCK_SUSPEND AUDIT_READ "
    "PERFMON BPF CHECKPOINT_RESTORE"
).split()

# CLONE_NEW*: time, mount, control group, host name, ipc, user, pid, network.
NAMESPACE_FLAGS = (0x80, 0x20000, 0x2000000, 0x4000000, 0x8000000, 0x10000000, 0x20000000, 0x40000000)
SCHED_FIFO, SCHED_RR, SCHED_DEADLINE = 1, 2, 6


def called(result, what):
    if result != 0:
        number = ctypes.get_errno()
        raise OSError(number, f"{what}: {os.strerror(number)}")


class MountAttributes(ctypes.Structure):
    _fields_ = [(name, ctypes.c_uint64) for name in ("set", "clear", "propagation", "users")]


def set_read_only(path, recursive, on):
    attributes = MountAttributes(set=MOUNT_ATTR_RDONLY if on else 0, clear=0 if on else MOUNT_ATTR_RDONLY)
    flags = AT_RECURSIVE if recursive else 0
    size = ctypes.sizeof(attributes)
    result = libc.syscall(SYS_MOUNT_SETATTR, AT_FDCWD, path.encode(), flags, ctypes.byref(attributes), size)
    called(result, f"read-only mark of {path}")


def mount(source, target, kind, flags):
    called(libc.mount(source, target.encode(), kind, flags, None), f"mount on {target}")


def existing(paths):
    """The paths as a unit names them: a "-" before one that may be missing."""
    found = []
    for path in paths:
        plain = path.removeprefix("-")
        if os.path.exists(plain):
            found.append(plain)
        elif plain == path:
            raise FileNotFoundError(path)
    return found


def bind_to_itself(path):
    mount(path.encode(), path, None, MS_BIND | MS_REC)


def hide(path):
    if os.path.isdir(path):
        mount(b"tmpfs", path, b"tmpfs", 0)
        set_read_only(path, False, True)
    else:
        mount(b"/dev/null", path, None, MS_BIND)


def apply_paths(rules):
    mount(None, "/", None, MS_REC | MS_PRIVATE)
    writable, read_only = existing(rules["writable"]), existing(rules["readOnly"])
    for path in writable + [path for path in read_only if path != "/"]:
        bind_to_itself(path)
    if "/" in read_only:
        set_read_only("/", True, True)
        for path in OUTSIDE_OF_STRICT:
            set_read_only(path, False, False)
    for path in writable:
        set_read_only(path, False, False)
    for path in read_only:
        if path != "/":
            set_read_only(path, True, True)
    for path in existing(rules["hidden"]):
        hide(path)


def drop_capabilities(names):
    for name in names:
        number = CAPABILITIES.index(name.removeprefix("CAP_"))
        called(libc.prctl(PR_CAPBSET_DROP, number, 0, 0, 0), name)


def deny(calls, call, *arguments, error=errno.EPERM):
    calls.add_rule(seccomp.ERRNO(error), call, *arguments)


def has_flag(number, flag):
    return seccomp.Arg(number, seccomp.MASKED_EQ, flag, flag)


def deny_families(calls, names):
    allowed = {getattr(socket, name) for name in names}
    for family in range(socket.AF_UNSPEC, 64):
        if family not in allowed:
            deny(calls, "socket", seccomp.Arg(0, seccomp.EQ, family), error=errno.EAFNOSUPPORT)


def deny_namespaces(calls):
    for flag in NAMESPACE_FLAGS:
        deny(calls, "unshare", has_flag(0, flag))
        deny(calls, "setns", has_flag(1, flag))
        if flag != NAMESPACE_FLAGS[0]:  # in clone() the bit belongs to the signal's number
            deny(calls, "clone", has_flag(0, flag))
    deny(calls, "setns", seccomp.Arg(1, seccomp.EQ, 0))
    deny(calls, "clone3", error=errno.ENOSYS)  # its flags cannot be seen


def deny_realtime(calls):
    for policy in (SCHED_FIFO, SCHED_RR, SCHED_DEADLINE):
        deny(calls, "sched_setscheduler", seccomp.Arg(1, seccomp.EQ, policy))


def deny_suid(calls):
    for bit in (stat.S_ISUID, stat.S_ISGID):
        for call, number in (("chmod", 1), ("fchmod", 1), ("fchmodat", 2), ("mkdir", 1), ("mkdirat", 2)):
            deny(calls, call, has_flag(number, bit))
        for call, number in (("mknod", 1), ("mknodat", 2), ("creat", 1)):
            deny(calls, call, has_flag(number, bit))
        for call, number in (("open", 1), ("openat", 2)):
            deny(calls, call, has_flag(number, os.O_CREAT), has_flag(number + 1, bit))


def deny_personality(calls):
    for bit in range(32):  # asking for the present one sets all of them
        deny(calls, "personality", seccomp.Arg(0, seccomp.EQ, 1 << bit))


RESTRICTIONS = {
    "namespaces": deny_namespaces,
    "realtime": deny_realtime,
    "suid": deny_suid,
    "personality": deny_personality,
}


def filter_calls(rules):
    calls = seccomp.SyscallFilter(seccomp.ALLOW)
    calls.set_attr(seccomp.Attr.CTL_NNP, rules["noNewPrivileges"])
    for name in rules["callsDenied"]:
        try:
            deny(calls, name)
        except (RuntimeError, ValueError):  # no call of this machine's
            continue
    if rules["families"] is not None:
        deny_families(calls, rules["families"])
    for name in rules["restricted"]:
        RESTRICTIONS[name](calls)
    calls.load()


def main():
    rules = json.loads(sys.argv[1])
    apply_paths(rules)
    drop_capabilities(rules["capabilitiesDropped"])
    if rules["noNewPrivileges"]:
        called(libc.prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "no new privileges")
    filter_calls(rules)
    os.execv(sys.argv[2], sys.argv[2:])


if __name__ == "__main__":
    main()
