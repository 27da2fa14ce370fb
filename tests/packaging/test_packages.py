"""What the packages hold: files, owners and modes, dependencies, scripts. Their installation is tried by
fresh_roots.py."""

import os
import pathlib
import re
import shlex
import subprocess

import pytest

from packages import output_of

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
COMPONENTS = ("client", "master")

FOLDER, FILE, PROGRAM = "drwxr-xr-x", "-rw-r--r--", "-rwxr-xr-x"
LINK = "lrwxrwxrwx"

# Path to mode, of both kinds of package.
FILES = {
    "client": {
        "/usr/torqv": FOLDER,
        "/usr/torqv/torquenix": FOLDER,
        "/usr/torqv/torquenix/bin": FOLDER,
        "/usr/torqv/torquenix/bin/tqhostdbcmd": PROGRAM,
        "/usr/torqv/torquenix/bin/tqenroll": PROGRAM,
        "/usr/torqv/torquenix/bin/version": FILE,
        "/usr/torqv/torquenix/kx.conf": FILE,
        "/usr/torqv/torquenix/lib": FOLDER,
        "/usr/torqv/torquenix/logs": FOLDER,
        "/usr/torqv/torquenix/logs/admin": FOLDER,
        "/usr/torqv/torquenix/share": FOLDER,
        "/usr/torqv/torquenix/share/locale": FOLDER,
        "/usr/torqv/torquenix/share/locale/de": FOLDER,
        "/usr/torqv/torquenix/share/locale/de/LC_MESSAGES": FOLDER,
        "/usr/torqv/torquenix/share/locale/de/LC_MESSAGES/tqhostdb.mo": FILE,
        "/usr/torqv/var": FOLDER,
        "/usr/torqv/var/identity": "drwx------",
        "/usr/lib/systemd/system/tqhostdb-update.service": FILE,
        "/usr/lib/systemd/system/tqhostdb-update.timer": FILE,
        "/usr/lib/systemd/system/tqhostdb-refresh.service": FILE,
        "/usr/lib/systemd/system/tqhostdb-refresh.timer": FILE,
        "/usr/lib/systemd/system/tqhostdb-renew.service": FILE,
        "/usr/sbin/tqhostdbcmd": LINK,
        "/usr/sbin/tqenroll": LINK,
        "/usr/share/doc/tqhostdb-client": FOLDER,
        "/usr/share/doc/tqhostdb-client/examples": FOLDER,
        "/usr/share/doc/tqhostdb-client/examples/kx.conf": FILE,
        "/usr/share/doc/tqhostdb-client/examples/cluster-online": PROGRAM,
        "/usr/share/doc/tqhostdb-client/examples/cluster-offline": PROGRAM,
        "/usr/share/man/man5/kx.conf.5.gz": FILE,
        "/usr/share/man/man8/tqhostdbcmd.8.gz": FILE,
        "/usr/share/man/man8/tqenroll.8.gz": FILE,
        "/usr/share/bash-completion/completions/tqhostdbcmd": FILE,
        "/usr/share/bash-completion/completions/tqenroll": FILE,
    },
    "master": {
        "/usr/torqv": FOLDER,
        "/usr/torqv/torquenix": FOLDER,
        "/usr/torqv/torquenix/bin": FOLDER,
        "/usr/torqv/torquenix/bin/tqmasterd": PROGRAM,
        "/usr/lib/systemd/system/tqmasterd.service": FILE,
        "/usr/lib/sysusers.d/tqmasterd.conf": FILE,
        "/usr/sbin/tqmasterd": LINK,
        "/usr/share/man/man8/tqmasterd.8.gz": FILE,
        "/usr/share/bash-completion/completions/tqmasterd": FILE,
    },
}
DEB_FILES = {
    "client": {
        # Debian's libraries are not executable; RPM looks for the needs of executable files alone.
        "/usr/torqv/torquenix/lib/tqhttp.so": FILE,
        "/usr/share/zsh/vendor-completions/_tqhostdbcmd": FILE,
        "/usr/share/zsh/vendor-completions/_tqenroll": FILE,
    },
    "master": {
        "/usr/share/zsh/vendor-completions/_tqmasterd": FILE,
        "/usr/share/doc/tqhostdb-master": FOLDER,
    },
}
RPM_FILES = {
    "client": {
        "/usr/torqv/torquenix/lib/tqhttp.so": PROGRAM,
        "/usr/share/zsh/site-functions/_tqhostdbcmd": FILE,
        "/usr/share/zsh/site-functions/_tqenroll": FILE,
        "/usr/lib/systemd/system-preset/80-tqhostdb-client.preset": FILE,
    },
    "master": {
        "/usr/share/zsh/site-functions/_tqmasterd": FILE,
        "/usr/lib/systemd/system-preset/80-tqhostdb-master.preset": FILE,
    },
}
# A Debian package holds the folders above its files, too.
SYSTEM_FOLDERS = {
    "/",
    "/usr",
    "/usr/lib",
    "/usr/lib/sysusers.d",
    "/usr/lib/systemd",
    "/usr/lib/systemd/system",
    "/usr/sbin",
    "/usr/share",
    "/usr/share/bash-completion",
    "/usr/share/bash-completion/completions",
    "/usr/share/doc",
    "/usr/share/lintian",
    "/usr/share/lintian/overrides",
    "/usr/share/man",
    "/usr/share/man/man5",
    "/usr/share/man/man8",
    "/usr/share/zsh",
    "/usr/share/zsh/vendor-completions",
}


def debian_papers(component):
    package = f"tqhostdb-{component}"
    return {
        f"/usr/share/doc/{package}/copyright": FILE,
        f"/usr/share/doc/{package}/changelog.Debian.gz": FILE,
        f"/usr/share/lintian/overrides/{package}": FILE,
    }


def modes(entries):
    return {path.rstrip("/") or "/": entry.mode for path, entry in entries.items()}


@pytest.mark.parametrize("component", COMPONENTS)
def test_debian_package_holds_its_files_with_their_modes(packages, component):
    found = modes(packages.deb(component).entries())
    above = {path: mode for path, mode in found.items() if path in SYSTEM_FOLDERS}
    own = {path: mode for path, mode in found.items() if path not in SYSTEM_FOLDERS}
    assert own == FILES[component] | DEB_FILES[component] | debian_papers(component)
    assert set(above.values()) == {FOLDER}


@pytest.mark.parametrize("component", COMPONENTS)
def test_rpm_package_holds_its_files_with_their_modes_and_no_folder_of_the_system(packages, component):
    assert modes(packages.rpm(component).entries()) == FILES[component] | RPM_FILES[component]


@pytest.mark.parametrize("component", COMPONENTS)
@pytest.mark.parametrize("kind", ["deb", "rpm"])
def test_everything_is_roots(packages, kind, component):
    entries = getattr(packages, kind)(component).entries()
    assert {entry.owner for entry in entries.values()} == {"root:root"}


@pytest.mark.parametrize("component", COMPONENTS)
@pytest.mark.parametrize("kind", ["deb", "rpm"])
def test_links_on_the_search_path_lead_to_the_programs(packages, kind, component):
    entries = getattr(packages, kind)(component).entries()
    links = {path: entry.link for path, entry in entries.items() if entry.mode == LINK}
    assert {os.path.normpath(f"/usr/sbin/{target}") for target in links.values()} <= entries.keys()
    assert {pathlib.PurePath(target).name for target in links.values()} == {
        pathlib.PurePath(path).name for path in links
    }


@pytest.mark.parametrize("component", COMPONENTS)
def test_rpm_package_unpacks_to_what_it_lists(packages, component, tmp_path):
    packages.rpm(component).unpack(tmp_path)
    missing = [path for path in FILES[component] if not os.path.lexists(tmp_path / path.lstrip("/"))]
    assert missing == []


# Dependencies


def needed_libraries(files):
    """The sonames that ELF files need."""
    text = output_of("readelf", "--dynamic", "--wide", *files)
    return set(re.findall(r"\(NEEDED\).*\[(.*)\]", text))


def programs_and_module(unpacked, component):
    paths = [path for path, mode in FILES[component].items() if mode == PROGRAM and "/bin/" in path]
    paths += [path for path in DEB_FILES[component] if path.endswith(".so")]
    return [unpacked / path.lstrip("/") for path in paths]


def packages_of(soname):
    """The Debian packages of this machine that hold a library, and what these provide."""
    owners = {line.split(":")[0] for line in output_of("dpkg-query", "--search", f"*/{soname}").splitlines()}
    provided = output_of("dpkg-query", "--show", "--showformat=${Provides},", *owners)
    return owners | {word.split("(")[0].strip() for word in provided.split(",")}


@pytest.mark.parametrize("component", COMPONENTS)
def test_debian_package_depends_on_every_library_that_programs_and_module_need(packages, unpacked, component):
    needed = needed_libraries(programs_and_module(unpacked, component))
    assert "libssl.so.3" in needed
    depends = packages.deb(component).depends()
    assert [soname for soname in needed if not packages_of(soname) & depends] == []


@pytest.mark.parametrize("component", COMPONENTS)
def test_rpm_package_requires_every_library_that_programs_and_module_need(packages, unpacked, component):
    needed = needed_libraries(programs_and_module(unpacked, component))
    required = {line.split("(")[0] for line in packages.rpm(component).query("--requires")}
    assert needed - required == set()


def test_only_the_module_needs_the_http_library(unpacked):
    command = unpacked / "usr/torqv/torquenix/bin/tqhostdbcmd"
    module = unpacked / "usr/torqv/torquenix/lib/tqhttp.so"
    assert "libcurl.so.4" in needed_libraries([module]) - needed_libraries([command])


# Version and configuration


def release():
    return re.search(r'TQ_RELEASE_NUMBER "(.*)"', (TOP / "platform/release.h").read_text())[1]


def test_packages_and_version_file_carry_the_release(packages, unpacked):
    assert {packages.deb(component).field("Version") for component in COMPONENTS} == {f"{release()}-1"}
    versions = [packages.rpm(component).query("--queryformat", "%{VERSION}") for component in COMPONENTS]
    assert versions == [[release()]] * 2
    version = (unpacked / "usr/torqv/torquenix/bin/version").read_text()
    assert version == f"Torquenix-Linux_{os.uname().machine} {release()}\n"


def test_record_carries_the_version_of_the_shipped_version_file(box, unpacked):
    box.give_identifier()
    shipped = (unpacked / "usr/torqv/torquenix/bin/version").read_text()
    box.path("/usr/torqv/torquenix/bin/version").write_text(shipped.replace(release(), "9.9.9.9"))
    assert '"Torquenix_9.9.9.9"' in box.command("-localinfo").out


def test_configuration_is_the_administrators(packages, tmp_path):
    control = packages.deb("client").control(tmp_path / "control")
    assert (control / "conffiles").read_text() == "/usr/torqv/torquenix/kx.conf\n"
    assert packages.rpm("client").query("--configfiles") == ["/usr/torqv/torquenix/kx.conf"]
    flags = packages.rpm("client").query("--queryformat", "[%{FILENAMES} %{FILEFLAGS:fflags}\n]")
    assert "/usr/torqv/torquenix/kx.conf cn" in flags


def test_shipped_configuration_names_no_server_and_no_host(unpacked):
    lines = (unpacked / "usr/torqv/torquenix/kx.conf").read_text().splitlines()
    assert [line for line in lines if line and not line.startswith("#")] == []
    # The host probe reads any line that holds one of these, comments too.
    assert [line for line in lines if re.search("client_name|cluster_name", line, re.IGNORECASE)] == []


def test_shipped_configuration_shows_every_other_key_of_the_sample(unpacked):
    def keys(text):
        return set(re.findall(r"^#?([A-Z_]+) = ", text, re.MULTILINE))

    sample = keys((TOP / "packaging/kx.conf").read_text())
    shipped = keys((unpacked / "usr/torqv/torquenix/kx.conf").read_text())
    assert shipped == sample - {"CLIENT_NAME", "CLUSTER_NAME"}


# Scripts, and what the packages' own judges say


@pytest.mark.parametrize("component", COMPONENTS)
def test_debian_scripts_are_shell_that_any_sh_reads(packages, component, tmp_path):
    control = packages.deb(component).control(tmp_path / "control")
    for name in ("postinst", "prerm", "postrm"):
        assert (control / name).stat().st_mode & 0o777 == 0o755
        subprocess.run(["dash", "-n", control / name], check=True)


@pytest.mark.parametrize("component", COMPONENTS)
def test_rpm_scripts_are_shell_that_any_sh_reads(packages, component):
    for name, text in packages.rpm(component).scripts().items():
        assert "systemctl" in text, name
        subprocess.run(["dash", "-n"], input=text, text=True, check=True)


def test_lintian_has_nothing_to_say(packages):
    argv = ["lintian", "--allow-root", "--tag-display-limit", "0", "--fail-on", "error,warning"]
    argv += [packages.deb(component).path for component in COMPONENTS]
    judged = subprocess.run(argv, capture_output=True, text=True, check=False)
    assert (judged.returncode, judged.stdout) == (0, ""), shlex.join(map(str, argv))


def test_rpmlint_has_nothing_to_say(packages):
    argv = ["rpmlint", "--config", TOP / "packaging/rpm/rpmlint.toml"]
    argv += [packages.rpm(component).path for component in COMPONENTS]
    judged = subprocess.run(argv, capture_output=True, text=True, check=False)
    assert judged.returncode == 0, judged.stdout
    assert " 0 errors, 0 warnings" in judged.stdout
