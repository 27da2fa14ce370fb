"""The packages on fresh Debian roots that boot with systemd: what an administrator does, and what follows.

Run by tests/packaging/run, which makes the packages and the roots' template; its name keeps it out of every
other run. Each host is a root of its own; master server and host share a network.
"""

import json
import shlex

import pytest

from booted_root import TEMPLATE, BootedRoot

MASTER, HOST = "master1.example", "host1.example"
DATA = "/var/lib/tqmasterd"
IDENTITY = "/usr/torqv/var/identity"
CONFIG = "/usr/torqv/torquenix/kx.conf"
TIMERS = ("tqhostdb-update.timer", "tqhostdb-refresh.timer")


def package(release, component, kind):
    (found,) = (TEMPLATE / "packages" / release).glob(f"tqhostdb-{component}[-_]*.{kind}")
    return "/" + str(found.relative_to(TEMPLATE))


def release_of(root, component="client"):
    return root.run(f"dpkg-query --show --showformat='${{Version}}' tqhostdb-{component}").removesuffix("-1")


@pytest.fixture
def master():
    """A host without any of our packages that is to be the master server."""
    with BootedRoot(MASTER) as root:
        root.run(f"echo 127.0.0.1 localhost {MASTER} {HOST} >/etc/hosts")
        yield root


@pytest.fixture
def host(master):
    """A host without any of our packages, in the master server's network."""
    with BootedRoot(HOST, network_of=master) as root:
        root.run(f"echo 127.0.0.1 localhost {MASTER} {HOST} >/etc/hosts")
        yield root


def set_up_master(master):
    master.install(package("this", "master", "deb"))
    master.run(f"tqmasterd init --data {DATA} --name {MASTER}")
    master.run("systemctl enable --now tqmasterd")


def invitation(master):
    text = master.run(f"tqmasterd invite --data {DATA} --host {HOST}")
    return dict(line.split(": ") for line in text.splitlines())


def enrol(master, host):
    """What the guide's first five minutes say, after the installation."""
    host.run(f"printf 'SERVER = {MASTER}\\nCLIENT_NAME = {HOST}\\n' >>{CONFIG}")
    invited = invitation(master)
    host.run(
        f"tqenroll --server {MASTER} --invitation {shlex.quote(invited['invitation'])} "
        f"--fingerprint {invited['fingerprint']}"
    )


@pytest.fixture
def enrolled(master, host):
    """A host with the Debian package that a master server with its Debian package knows."""
    set_up_master(master)
    host.install(package("this", "client", "deb"))
    enrol(master, host)
    return host


# A package of the product, as a probe asks rpm for.
OTHER_PACKAGE = """Name: XRVNtest
Version: 9.1.0.1
Release: 1
Summary: Nothing
License: none
BuildArch: noarch
%description
Nothing.
%files
"""


def install_other_package(host):
    host.run(f"mkdir /root/rpm && printf %s {shlex.quote(OTHER_PACKAGE)} >/root/rpm/a.spec")
    host.run("rpmbuild --quiet -bb --define '_topdir /root/rpm' /root/rpm/a.spec")
    host.run("rpm --install --nodeps /root/rpm/RPMS/noarch/XRVNtest-9.1.0.1-1.noarch.rpm")


def record_by_hand(host):
    return json.loads(host.run("tqhostdbcmd -localinfo"))


def record_at_server(host):
    # A read by name: one by identifier leaves a key out.
    return json.loads(host.run(f"tqhostdbcmd -read -hostname {HOST} -display"))


def run_unit(host, unit):
    """Starts a service and waits for its end, which is good and which the journal can say more about."""
    host.run(f"systemctl start {unit}")
    assert host.property(unit, "Result") == "success"
    assert host.property(unit, "ConditionResult") == "yes"


# Debian packages


def test_master_servers_package_waits_for_its_authority_and_then_serves(master):
    master.install(package("this", "master", "deb"))
    assert master.facts(DATA) == "tqmasterd:tqmasterd 700"
    master.run("systemctl start tqmasterd")  # nothing to serve yet, and nothing wrong
    assert master.property("tqmasterd", "ActiveState") == "inactive"

    master.run(f"tqmasterd init --data {DATA} --name {MASTER}")
    owners = set(master.run(f"find {DATA} -printf '%u:%g %m\\n'").split("\n")) - {""}
    assert owners == {"tqmasterd:tqmasterd 700", "tqmasterd:tqmasterd 600"}
    master.run("systemctl start tqmasterd")
    assert master.property("tqmasterd", "ActiveState") == "active"
    assert master.property("tqmasterd", "UnitFileState") == "enabled"
    process = master.property("tqmasterd", "MainPID")
    assert master.run(f"ps -o user= -p {process} || stat --format=%U /proc/{process}").strip() == "tqmasterd"
    master.run("systemctl reload tqmasterd")
    master.run("systemctl stop tqmasterd")
    assert master.property("tqmasterd", "Result") == "success"


def test_clients_package_does_nothing_until_the_host_is_enrolled(host):
    host.install(package("this", "client", "deb"))
    assert host.facts("/usr/torqv/var") == "root:root 755"
    assert host.facts(IDENTITY) == "root:root 700"
    assert host.facts("/usr/torqv/torquenix/logs/admin") == "root:root 755"
    for timer in TIMERS:
        assert host.property(timer, "ActiveState") == "active"
        assert host.property(timer, "UnitFileState") == "enabled"
    for service in ("update", "refresh", "renew"):
        host.run(f"systemctl start tqhostdb-{service}.service")
        assert host.property(f"tqhostdb-{service}.service", "ConditionResult") == "no"
    assert host.run("ls -A /usr/torqv/torquenix/logs/admin /usr/torqv/var/identity").split() == [
        "/usr/torqv/torquenix/logs/admin:",
        "/usr/torqv/var/identity:",
    ]


def test_record_that_the_unit_sends_is_the_record_by_hand(enrolled):
    install_other_package(enrolled)
    by_hand = record_by_hand(enrolled)
    assert "XRVNtest" in json.dumps(by_hand)
    run_unit(enrolled, "tqhostdb-update.service")
    assert record_at_server(enrolled) == by_hand
    assert not enrolled.exists(f"/usr/torqv/var/hostdbupdate.status.{MASTER}")


# In the place of the command: what the sandbox has to refuse, and what it has to let through.
PROBE = """
refused() {
    if "$@" 2>/dev/null; then
        echo "let through: $*"
        exit 1
    fi
}
set -e
for folder in /etc /root /var/lib /usr/torqv/torquenix/lib; do
    refused touch $folder/x
done
refused unshare --uts true
refused chmod u+s /usr/torqv/var
refused mount -t tmpfs tmpfs /mnt
refused hostname other.example
touch /usr/torqv/torquenix/x /usr/torqv/var/x /tmp/x
grep -q "^NoNewPrivs:.*1" /proc/self/status
"""


def replace_command(host, service, command):
    """Lets a service run something else in its sandbox, whether the host is enrolled or not."""
    change = f"[Unit]\nConditionPathExists=\n[Service]\nExecStart=\nExecStart={command}\n"
    host.run(f"mkdir /run/systemd/system/{service}.d")
    host.run(f"printf %s {shlex.quote(change)} >/run/systemd/system/{service}.d/other.conf")
    host.run("systemctl daemon-reload")


@pytest.mark.parametrize("service", ["tqhostdb-update.service", "tqhostdb-refresh.service"])
def test_sandbox_of_the_unit_is_in_force(host, service):
    host.install(package("this", "client", "deb"))
    host.run(f"printf %s {shlex.quote(PROBE)} >/root/probe")
    replace_command(host, service, "/bin/sh /root/probe")
    run_unit(host, service)
    assert host.exists("/usr/torqv/var/x")


def test_weekly_unit_sends_an_unchanged_record_once_more_and_looks_at_the_certificate(enrolled, master):
    run_unit(enrolled, "tqhostdb-update.service")
    identifier = json.loads(enrolled.run(f"cat {IDENTITY}/identity.json"))["identities"][0]["hostId"]
    enrolled.run("tqhostdbcmd -delete")
    run_unit(enrolled, "tqhostdb-update.service")  # nothing has changed here: the record stays deleted
    assert enrolled.try_run("tqhostdbcmd -read").returncode != 0
    run_unit(enrolled, "tqhostdb-refresh.service")
    assert record_at_server(enrolled)["hostId"] == identifier
    assert enrolled.property("tqhostdb-renew.service", "Result") == "success"
    assert enrolled.property("tqhostdb-renew.service", "ExecMainStartTimestampMonotonic") != "0"


def test_sandbox_of_the_renewal_lets_a_certificate_be_renewed(enrolled):
    certificate = f"sha256sum {IDENTITY}/*.crt"
    before = enrolled.run(certificate)
    run_unit(enrolled, "tqhostdb-renew.service")  # too early: it stays
    assert enrolled.run(certificate) == before
    replace_command(enrolled, "tqhostdb-renew.service", "/usr/sbin/tqenroll --renew")
    run_unit(enrolled, "tqhostdb-renew.service")
    assert enrolled.run(certificate) != before
    run_unit(enrolled, "tqhostdb-update.service")


def test_upgrade_keeps_identity_configuration_logs_and_what_was_disabled(enrolled, master):
    run_unit(enrolled, "tqhostdb-update.service")
    enrolled.run("systemctl disable --now tqhostdb-refresh.timer")
    identity = enrolled.run(f"sha256sum {IDENTITY}/*")
    config = enrolled.run(f"cat {CONFIG}")
    before = release_of(enrolled)

    enrolled.install(package("next", "client", "deb"))
    master.install(package("next", "master", "deb"))
    after = release_of(enrolled)
    assert after != before and release_of(master, "master") == after
    assert enrolled.run(f"sha256sum {IDENTITY}/*") == identity
    assert enrolled.run(f"cat {CONFIG}") == config
    assert enrolled.property("tqhostdb-update.timer", "ActiveState") == "active"
    assert enrolled.property("tqhostdb-refresh.timer", "UnitFileState") == "disabled"
    assert enrolled.property("tqhostdb-refresh.timer", "ActiveState") == "inactive"
    assert master.property("tqmasterd", "ActiveState") == "active"
    served = master.run(f"readlink /proc/{master.property('tqmasterd', 'MainPID')}/exe")
    assert "(deleted)" not in served

    run_unit(enrolled, "tqhostdb-update.service")
    assert after in json.dumps(record_at_server(enrolled))


def test_removal_keeps_what_a_new_installation_goes_on_with(enrolled):
    run_unit(enrolled, "tqhostdb-update.service")
    enrolled.run("apt-get -q -y remove tqhostdb-client")
    assert not enrolled.exists("/usr/torqv/torquenix/bin/tqhostdbcmd")
    assert not enrolled.exists("/usr/sbin/tqhostdbcmd")
    assert enrolled.try_run("systemctl is-active tqhostdb-update.timer").stdout.strip() == "inactive"
    assert enrolled.exists(f"{IDENTITY}/identity.json") and enrolled.exists(CONFIG)
    assert enrolled.facts(IDENTITY) == "root:root 700"
    assert enrolled.run("ls /usr/torqv/torquenix/logs/admin").startswith("tqenroll.")

    enrolled.install(package("this", "client", "deb"))
    run_unit(enrolled, "tqhostdb-refresh.service")
    assert record_at_server(enrolled) == record_by_hand(enrolled)


def left_behind(root, name):
    """Files below the install root, and others with a name, wherever they are."""
    found = root.run(f"find / -xdev -path '*torqv*' -o -xdev -name '*{name}*'").splitlines()
    return [path for path in found if not path.startswith("/packages/")]


def test_purge_leaves_nothing(enrolled, master):
    run_unit(enrolled, "tqhostdb-update.service")
    enrolled.run("sh /usr/share/doc/tqhostdb-client/examples/cluster-online")
    enrolled.run("apt-get -q -y purge tqhostdb-client")
    assert left_behind(enrolled, "tqhost") == []
    master.run("apt-get -q -y purge tqhostdb-master")
    assert left_behind(master, "tqmaster") == []


# RPM packages, by rpm itself. Its database knows nothing of Debian's libraries, hence --nodeps.


@pytest.fixture
def with_libraries(master, host):
    """Both hosts with what the packages depend on, but without the packages."""
    for root, component in ((master, "master"), (host, "client")):
        root.install(package("this", component, "deb"))
        root.run(f"apt-get -q -y purge tqhostdb-{component}")
    return master, host


def test_rpm_packages_live_through_installation_upgrade_and_removal(with_libraries):
    master, host = with_libraries
    master.run(f"rpm --install --nodeps {package('this', 'master', 'rpm')}")
    assert master.facts(DATA) == "tqmasterd:tqmasterd 700"
    master.run(f"tqmasterd init --data {DATA} --name {MASTER}")
    master.run("systemctl enable --now tqmasterd")
    host.run(f"rpm --install --nodeps {package('this', 'client', 'rpm')}")
    assert [host.property(timer, "UnitFileState") for timer in TIMERS] == ["enabled"] * 2
    assert [host.property(timer, "ActiveState") for timer in TIMERS] == ["active"] * 2
    assert host.facts(IDENTITY) == "root:root 700"
    assert host.run("rpm --verify --nodeps tqhostdb-client") == ""
    enrol(master, host)
    run_unit(host, "tqhostdb-update.service")
    assert record_at_server(host) == record_by_hand(host)

    config = host.run(f"cat {CONFIG}")
    host.run(f"rpm --upgrade --nodeps {package('next', 'client', 'rpm')}")
    master.run(f"rpm --upgrade --nodeps {package('next', 'master', 'rpm')}")
    assert host.run(f"cat {CONFIG}") == config
    assert [host.property(timer, "ActiveState") for timer in TIMERS] == ["active"] * 2
    assert master.property("tqmasterd", "ActiveState") == "active"
    run_unit(host, "tqhostdb-update.service")
    assert host.run("cat /usr/torqv/torquenix/bin/version").split()[1] in json.dumps(record_at_server(host))

    host.run("rpm --erase tqhostdb-client")
    assert not host.exists("/usr/torqv/torquenix/bin/tqhostdbcmd")
    assert host.exists(f"{IDENTITY}/identity.json") and host.exists(f"{CONFIG}.rpmsave")
    assert host.try_run("systemctl is-active tqhostdb-update.timer").stdout.strip() == "inactive"
    master.run("rpm --erase tqhostdb-master")
    assert master.exists(f"{DATA}/authority.pem")
    assert master.try_run("systemctl is-active tqmasterd").stdout.strip() == "inactive"
