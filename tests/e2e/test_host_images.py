"""The record of each host image under tests/hosts, as -localinfo prints it and as the server stores it."""

import json
import os
import string

import pytest

from sandbox import IMAGES

HOSTS = sorted(folder.name for folder in IMAGES.iterdir() if (folder / "expected.json").exists())


@pytest.fixture(params=HOSTS)
def image(request, sandbox_of):
    box = sandbox_of(request.param)
    assert box.enrol(box.master().serve()).status == 0
    return box


def expected_record(box):
    """expected.json, with what no image can change put in."""
    uname = os.uname()
    text = string.Template((box.image / "expected.json").read_text()).substitute(
        kernel=uname.release, machine=uname.machine, hostId=box.identities()[0]["hostId"]
    )
    return json.loads(text)


def test_local_info_prints_the_expected_record(image):
    assert json.loads(image.command("-localinfo").out) == expected_record(image)


def test_the_server_stores_the_expected_record(image):
    assert image.command("-update").status == 0
    read = json.loads(image.command("-read", "-hostname", image.host_name, "-display").out)
    assert read == expected_record(image)


def test_a_load_of_a_good_host_says_nothing_at_error_level(image):
    assert image.command("-localinfo").status == 0
    assert image.log_texts(16) == []
