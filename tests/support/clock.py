"""Another time for one program of a sandbox: in a file, since the programs clear their environment."""

FAKETIME = "/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1"


def prepare_clock(box):
    """Makes ready what at_time() needs."""
    (box.etc / "faketimerc").symlink_to("/shared/clock")


def at_time(box, when, program="tqhostdbcmd"):
    """The environment of a program whose clock shows `when` ("+1d", "@2038-01-19 03:14:20"). Limits keep the
    real clock, and so do the programs that this one starts."""
    (box.shared / "clock").write_text(f"{when}\n")
    environment = {"LD_PRELOAD": FAKETIME, "FAKETIME_DONT_FAKE_MONOTONIC": "1", "FAKETIME_NO_CACHE": "1"}
    options = box.environment(program=program)["ASAN_OPTIONS"]
    return environment | {"ASAN_OPTIONS": options + ":verify_asan_link_order=0"}
