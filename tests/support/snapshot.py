"""Everything below a folder, for tests of what must not change."""


def snapshot(folder):
    """Path to kind, mode, time of writing and content of all that lies below a folder."""
    found = {}
    for path in sorted(folder.rglob("*")):
        status = path.lstat()
        content = path.read_bytes() if path.is_file() and not path.is_symlink() else None
        found[str(path.relative_to(folder))] = (status.st_mode, status.st_mtime_ns, content)
    return found
