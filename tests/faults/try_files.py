"""Inside a sandbox: becomes an ordinary user and tells as JSON what it can do with each of the files."""

import fcntl
import json
import os
import sys

NOBODY = 65534


def can_open(path, flags):
    try:
        os.close(os.open(path, flags))
    except PermissionError:
        return False
    return True


def can_lock(path):
    try:
        with open(path, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except PermissionError:
        return False
    return True


def can_replace(path):
    try:
        os.rename(path, path + ".moved")
    except PermissionError:
        return False
    return True


os.setgroups([])
os.setgid(NOBODY)
os.setuid(NOBODY)
print(
    json.dumps(
        {
            path: {
                "read": can_open(path, os.O_RDONLY),
                "write": can_open(path, os.O_WRONLY | os.O_APPEND),
                "lock": can_lock(path),
                "replace": can_replace(path),
            }
            for path in sys.argv[1:]
        }
    )
)
