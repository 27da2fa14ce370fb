"""The files of a package, and what its tools say of it: Debian's and RPM's in the same words."""

import dataclasses
import pathlib
import stat
import subprocess
import tarfile


def output_of(*argv):
    return subprocess.run(argv, check=True, capture_output=True, text=True).stdout


@dataclasses.dataclass(frozen=True)
class Entry:
    """One file, folder or link of a package."""

    mode: str  # as `ls -l` writes it
    owner: str
    link: str = ""


class DebPackage:
    """A .deb file."""

    def __init__(self, path):
        self.path = path

    def field(self, name):
        return output_of("dpkg-deb", "--field", self.path, name).strip()

    def depends(self):
        """Names of the packages that it depends on; of a choice, all."""
        words = self.field("Depends").replace("|", ",").split(",")
        return {word.split("(")[0].strip() for word in words}

    def entries(self):
        """Path to entry."""
        with subprocess.Popen(["dpkg-deb", "--fsys-tarfile", self.path], stdout=subprocess.PIPE) as tar:
            with tarfile.open(fileobj=tar.stdout, mode="r|") as members:
                return {"/" + member.name.removeprefix("./"): entry_of_member(member) for member in members}

    def unpack(self, folder):
        subprocess.run(["dpkg-deb", "--extract", self.path, folder], check=True)

    def control(self, folder):
        """Unpacks the control files."""
        subprocess.run(["dpkg-deb", "--control", self.path, folder], check=True)
        return folder


def entry_of_member(member):
    kind = {tarfile.DIRTYPE: stat.S_IFDIR, tarfile.SYMTYPE: stat.S_IFLNK}.get(member.type, stat.S_IFREG)
    owner = f"{member.uname or member.uid}:{member.gname or member.gid}"
    return Entry(stat.filemode(kind | member.mode), owner, member.linkname)


class RpmPackage:
    """An .rpm file."""

    def __init__(self, path):
        self.path = path

    def query(self, *what):
        return output_of("rpm", "--query", "--package", self.path, *what).splitlines()

    def entries(self):
        """Path to entry."""
        columns = "[%{FILENAMES}\t%{FILEMODES:perms}\t%{FILEUSERNAME}:%{FILEGROUPNAME}\t%{FILELINKTOS}\n]"
        rows = [line.split("\t") for line in self.query("--queryformat", columns)]
        return {path: Entry(mode, owner, link) for path, mode, owner, link in rows}

    def scripts(self):
        """Scriptlet to its text."""
        tags = {"post": "POSTIN", "preun": "PREUN", "postun": "POSTUN"}
        return {name: "\n".join(self.query("--queryformat", f"%{{{tag}}}")) for name, tag in tags.items()}

    def unpack(self, folder):
        folder.mkdir(parents=True, exist_ok=True)
        with subprocess.Popen(["rpm2cpio", self.path], stdout=subprocess.PIPE) as archive:
            argv = ["cpio", "--extract", "--make-directories", "--quiet"]
            subprocess.run(argv, stdin=archive.stdout, cwd=folder, check=True)


class Packages:
    """The packages that cpack has laid into a folder."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)

    def _only(self, pattern):
        (found,) = self.folder.glob(pattern)
        return found

    def deb(self, component):
        return DebPackage(self._only(f"tqhostdb-{component}_*.deb"))

    def rpm(self, component):
        return RpmPackage(self._only(f"tqhostdb-{component}-*.rpm"))
