"""The HTTP client is a module that the command loads when it connects, and only then."""

import pytest

RELEASE = b"9.1.0.1"
LOAD_FAILED = 7626
BEYOND_A_BYTE = 252

CONNECTING = "Connecting failed, server master1.example, port 1556: the HTTP client cannot be loaded: "
MODULE = "/usr/torqv/torquenix/lib/tqhttp.so"


def remove(module):
    module.unlink()


def empty(module):
    module.write_bytes(b"")


def spoil(module):
    module.write_bytes(b"this is no library\n" * 100)


def cut_off(module):
    """The loader takes it, and reading its later pages would end the process."""
    module.write_bytes(module.read_bytes()[:4096])


def put_in_another_library(module):
    module.write_bytes(open("/usr/lib/x86_64-linux-gnu/libz.so.1", "rb").read())


def make_another_release(module):
    """As an upgrade does that comes between a program's start and its first request."""
    content = module.read_bytes()
    assert RELEASE in content
    module.write_bytes(content.replace(RELEASE, b"9.1.0.7"))


FAULTS = {
    "missing": (remove, f"{MODULE}: cannot open shared object file: No such file or directory"),
    "empty": (empty, f"{MODULE}: file too short"),
    "not-a-library": (spoil, f"{MODULE}: invalid ELF header"),
    "cut-off": (cut_off, f"{MODULE} is cut off"),
    "another-library": (put_in_another_library, f"{MODULE}: undefined symbol: tq_http_module"),
    "another-release": (
        make_another_release,
        f"{MODULE} belongs to another release than this program (9.1.0.1)",
    ),
}


@pytest.mark.parametrize("fault", FAULTS)
def test_a_module_that_cannot_be_loaded_is_named_with_its_cause(enrolled, fault):
    harm, cause = FAULTS[fault]
    harm(enrolled.http_module)
    result = enrolled.command("-read")
    assert result.status == BEYOND_A_BYTE
    assert result.err == f"Requested operation failed with error: {LOAD_FAILED}\n"
    [entry] = [each for each in enrolled.log() if each.text.startswith("Connecting failed")]
    assert entry.level == 16
    assert entry.context == "TQClientCURL::Get"
    assert entry.text.startswith(CONNECTING + cause)
    assert entry.text.endswith(f", status {LOAD_FAILED}")


def test_an_update_without_the_module_is_behind_and_heals_with_it(enrolled):
    whole = enrolled.http_module.read_bytes()
    enrolled.http_module.unlink()
    assert enrolled.command("-update").status == BEYOND_A_BYTE
    status = enrolled.torqv / "var" / "hostdbupdate.status.master1.example"
    assert str(LOAD_FAILED) in status.read_text()
    enrolled.http_module.write_bytes(whole)
    assert enrolled.command("-update").status == 0
    assert not status.exists()


def test_what_sends_nothing_needs_no_module(enrolled):
    assert enrolled.command("-update").status == 0
    enrolled.http_module.unlink()
    assert enrolled.command("-localinfo").status == 0
    assert enrolled.command("-update").status == 0
    assert enrolled.command("-update", "-force").status == BEYOND_A_BYTE


def test_a_run_that_sends_nothing_maps_neither_libcurl_nor_openssl(enrolled):
    libraries = enrolled.run(["/usr/bin/ldd", "/usr/torqv/torquenix/bin/tqhostdbcmd"])
    assert libraries.status == 0
    assert "libjansson" in libraries.out
    assert not [name for name in ("libcurl", "libssl", "libcrypto") if name in libraries.out]


def test_loading_it_leaves_no_mark_in_the_environment_of_tools(sandbox_of):
    """The second server's record is made after the module was loaded for the first."""

    def write_down_environment(box):
        box.put_tool(box.local_sbin, "uname", 'env >>/shared/output/environments; exec /usr/bin/uname "$@"')

    box = sandbox_of(before_start=write_down_environment)
    for name in ("master1.example", "master2.example"):
        assert box.enrol(box.master(name).serve()).status == 0
    assert box.command("-update").status == 0
    environments = (box.shared / "output" / "environments").read_text()
    assert environments.count("PATH=/usr/local/sbin") >= 4
    assert "GNUTLS" not in environments
