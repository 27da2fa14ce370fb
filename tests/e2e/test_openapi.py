"""docs/openapi.yaml against a real master server: operations answer what stands there, and nothing else."""

import dataclasses
import json
import pathlib
import re
import sqlite3
import urllib.parse
import uuid

import jsonschema
import pytest
import yaml
from master_client import MasterClient, compose, make_request

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
DOCUMENT = yaml.safe_load((TOP / "docs" / "openapi.yaml").read_text())
RESOLVER = jsonschema.RefResolver("", DOCUMENT)
METHODS = ("get", "post", "put", "delete", "patch", "options")
TOO_LARGE = b'{"a":"' + b"x" * (256 * 1024) + b'"}'

ENROLLMENTS = "/torquenix/security/enrollments"
TOKENS = "/torquenix/security/tokens"
RENEWALS = "/torquenix/security/renewals"
HOST = "/torquenix/config/hosts/{hostId}"


def resolved(node):
    """What a reference leads to; anything else as it is."""
    return RESOLVER.resolve(node["$ref"])[1] if "$ref" in node else node


def operations():
    """All that the document describes: (method, path) to the operation."""
    found = {}
    for path, item in DOCUMENT["paths"].items():
        for method, operation in resolved(item).items():
            if method in METHODS:
                found[method, path] = operation
    return found


OPERATIONS = operations()
OPERATION_IDS = [f"{method} {path}" for method, path in OPERATIONS]


def check_value(value, schema):
    validator = jsonschema.Draft202012Validator(schema, resolver=RESOLVER)
    validator.validate(value)


def needed(operation):
    """The security schemes that an operation needs."""
    return {name for scheme in operation.get("security", DOCUMENT["security"]) for name in scheme}


def check_answer(operation, answer):
    """The answer has the body, and says the type of it, that the document gives its status."""
    assert str(answer.status) in operation["responses"], answer
    content = resolved(operation["responses"][str(answer.status)]).get("content")
    if content is None:
        assert (answer.body, answer.headers.get("content-type")) == (b"", None)
        return
    (media_type,) = content
    assert answer.headers["content-type"] == media_type
    check_value(answer.json(), content[media_type]["schema"])
    if answer.status >= 400:
        assert answer.json()["errorCode"] == 7000 + answer.status


class Fleet:
    """Two hosts of a master server, and what can be asked of it."""

    def __init__(self, master, names=("host.example", "other.example")):
        self.client = MasterClient(master.sandbox, master)
        self.host, self.other = map(self.client.enrol, names)
        self.request, _ = make_request(self.client.folder, "again")
        self.invitation = master.invite("new.example").text

    def target(self, path, identity=None):
        return path.format(hostId=(identity or self.host).host_id)

    def ask(self, method, target, identity, body=None):
        """`body` is bytes, or a value that becomes JSON."""
        data = body if isinstance(body, bytes) else b"" if body is None else json.dumps(body).encode()
        return self.client.ask(method.upper(), target, identity, data)

    def without_record(self):
        assert self.ask("delete", self.target(HOST), self.host).status in (204, 404)

    def with_record(self):
        assert self.ask("put", self.target(HOST), self.host, {}).status == 200


@pytest.fixture(scope="module")
def fleet(shared_master):
    return Fleet(shared_master)


@pytest.fixture(scope="module")
def broken_fleet(shared_master):
    """A master server whose database has lost its tables while it serves."""
    master = shared_master.sandbox.master("master2.example").serve()
    fleet = Fleet(master, ("lost.example", "gone.example"))  # keys of all clients lie in one folder
    with sqlite3.connect(master.data_outside / "hosts.db") as database:
        for (table,) in database.execute("SELECT name FROM sqlite_master WHERE type = 'table'").fetchall():
            database.execute(f"ALTER TABLE {table} RENAME TO lost_{table}")
    database.close()
    return fleet


# What an operation is asked: good requests first.

RECORD = {"osType": "UNIX", "servers": ["master1.example"], "isSecureEnabled": True, "unknownKey": 1}


def good_answers(fleet, method, path):
    """The answers to requests that are as they should be, in each state that makes a difference."""
    target, host = fleet.target(path), fleet.host
    if path == ENROLLMENTS:
        unknown = {"invitation": "unknown", "certificateRequest": fleet.request}
        known = unknown | {"invitation": fleet.invitation}
        return [ask_good(fleet, method, path, target, None, body) for body in (known, unknown)]
    if path == RENEWALS:
        return [ask_good(fleet, method, path, target, host, {"certificateRequest": fleet.request})]
    if path == TOKENS:
        return [ask_good(fleet, method, path, target, host, body) for body in (None, {})]
    if method == "post":
        fleet.without_record()
        return [ask_good(fleet, method, path, target, host, RECORD) for _ in range(2)]
    if method == "put":
        return [ask_good(fleet, method, path, target, host, RECORD)]
    fleet.with_record()
    answers = [ask_good(fleet, method, path, target, host)]
    if path == HOST:
        unknown = path.format(hostId=uuid.uuid4())
        answers.append(ask_good(fleet, method, path, target if method == "delete" else unknown, host))
    elif "hosts" in path and "reloadconfig" not in path:
        name = urllib.parse.quote("hostName eq 'host.example'")
        answers.append(ask_good(fleet, method, path, f"{target}?filter={name}", host))
    return answers


def ask_good(fleet, method, path, target, identity, body=None):
    """Asks, after a look whether the request itself is as the document says."""
    described = OPERATIONS[method, path].get("requestBody")
    assert body is None or described is not None
    if body is not None:
        check_value(body, resolved(described)["content"]["application/json"]["schema"])
    return fleet.ask(method, target, identity, body)


def refused_answers(fleet, method, path):
    """The answers to what anybody may get wrong."""
    target, host = fleet.target(path), fleet.host
    body = {} if "requestBody" in OPERATIONS[method, path] else None
    yield fleet.ask(method, target, None, body)
    yield fleet.ask(method, target, dataclasses.replace(host, token=""), body)
    yield fleet.ask(method, target, dataclasses.replace(host, token=fleet.other.token), body)
    yield fleet.ask(method, f"{target}?x=1", host, body)
    yield fleet.ask(method, f"{target}%zz", host, body)
    if body is not None:
        yield fleet.ask(method, target, host, b"[1]")
        yield fleet.ask(method, target, host, b"{")
        yield fleet.ask(method, target, host, TOO_LARGE)
    if path == HOST and method != "get":
        yield fleet.ask(method, fleet.target(path, fleet.other), host, body)


def answers_of_broken(fleet, method, path):
    body = {"invitation": fleet.invitation, "certificateRequest": fleet.request} if "security" in path else {}
    wants_body = "requestBody" in OPERATIONS[method, path]
    return [fleet.ask(method, fleet.target(path), fleet.host, body if wants_body else None)]


# Tests


def test_every_schema_is_one():
    for schema in DOCUMENT["components"]["schemas"].values():
        jsonschema.Draft202012Validator.check_schema(schema)


def test_the_description_is_of_this_release():
    (release,) = re.findall(r"TQ_RELEASE_NUMBER \"(.*)\"", (TOP / "platform" / "release.h").read_text())
    assert DOCUMENT["info"]["version"] == release


def test_every_route_of_the_server_is_described_and_no_other():
    source = (TOP / "masterd" / "web_service.cpp").read_text()
    routes = re.findall(r"\{\"([A-Z]+)\", \"([^\"]+)\", Access::", source)
    assert len(routes) == source.count(", Access::")
    known = {(method.lower(), "/" + path.replace("*", "{hostId}")) for method, path in routes}
    assert known == set(OPERATIONS)


@pytest.mark.parametrize(("method", "path"), OPERATIONS, ids=OPERATION_IDS)
def test_an_operation_answers_what_is_described_and_nothing_else(fleet, broken_fleet, method, path):
    operation = OPERATIONS[method, path]
    answers = good_answers(fleet, method, path)
    assert answers[0].status < 300
    answers += refused_answers(fleet, method, path)
    answers += answers_of_broken(broken_fleet, method, path)
    for answer in answers:
        check_answer(operation, answer)
    assert {str(answer.status) for answer in answers} == set(operation["responses"])


@pytest.mark.parametrize(("method", "path"), OPERATIONS, ids=OPERATION_IDS)
def test_an_operation_needs_the_security_that_is_described(fleet, method, path):
    body = {} if "requestBody" in OPERATIONS[method, path] else None
    needs = needed(OPERATIONS[method, path])
    stranger = fleet.ask(method, fleet.target(path), None, body)
    assert (stranger.status == 403) == ("clientCertificate" in needs)
    tokenless = fleet.ask(method, fleet.target(path), dataclasses.replace(fleet.host, token=""), body)
    assert (tokenless.status == 401) == ("accessToken" in needs)


@pytest.mark.parametrize("path", [path for method, path in OPERATIONS if method == "get"])
def test_head_is_answered_as_get_without_the_body(fleet, path):
    fleet.with_record()
    got = fleet.ask("get", fleet.target(path), fleet.host)
    head = fleet.ask("head", fleet.target(path), fleet.host)
    assert (head.status, head.body) == (got.status, b"")
    assert head.headers["content-type"] == got.headers["content-type"]


def methods_of(path):
    """The methods of all descriptions that a path matches: the last segment of one may be a variable."""
    folder, _, name = path.rpartition("/")
    matching = {path, HOST} if name and folder == HOST.rpartition("/")[0] else {path}
    return {method for method, described in OPERATIONS if described in matching}


@pytest.mark.parametrize("path", DOCUMENT["paths"])
def test_a_method_that_is_not_described_is_405(fleet, path):
    for method in set(METHODS) - methods_of(path):
        answer = fleet.ask(method, fleet.target(path), fleet.host)
        assert answer.status == 405, method
        check_value(answer.json(), DOCUMENT["components"]["schemas"]["Error"])


@pytest.mark.parametrize(
    "target", ["/", "/torquenix", "/torquenix/config/hosts/a/b", "/TORQUENIX/config/hosts"]
)
def test_a_path_that_is_not_described_is_404(fleet, target):
    answer = fleet.ask("get", target, fleet.host)
    assert answer.status == 404
    check_value(answer.json(), DOCUMENT["components"]["schemas"]["Error"])


def test_a_body_with_a_method_that_has_none_is_400(fleet):
    answers = fleet.client.send(
        compose("GET", fleet.target(HOST), fleet.host, b"{}", ["Content-Type: application/json"], close=True),
        fleet.host,
    )
    assert answers[0].status == 400
    check_value(answers[0].json(), DOCUMENT["components"]["schemas"]["Error"])


def value_for(schema):
    return {"string": "text", "boolean": True, "array": ["text"]}[schema["type"]]


def test_a_record_has_the_keys_that_are_described(fleet):
    """Every described key is stored, with its type; one that is not described is left out."""
    properties = DOCUMENT["components"]["schemas"]["Record"]["properties"]
    record = {key: value_for(schema) for key, schema in properties.items()}
    stored = fleet.ask("put", fleet.target(HOST), fleet.host, record | {"unknownKey": 1}).json()
    assert set(stored) == set(properties) - {"hostId"}
    for key in properties:
        answer = fleet.ask("put", fleet.target(HOST), fleet.host, {key: 1})
        assert answer.status == 400, key


def test_the_record_of_a_real_host_is_as_described(fleet):
    box = fleet.client.box
    assert box.enrol(fleet.client.master).status == 0
    assert box.command("-update").status == 0
    name = urllib.parse.quote(f"hostName eq '{box.host_name}'")
    (record,) = fleet.ask("get", f"/torquenix/config/hosts?filter={name}", fleet.host).json()["hosts"]
    schemas = DOCUMENT["components"]["schemas"]
    check_value(record, schemas["Host"])
    assert set(schemas["Record"]["properties"]) - set(record) == {"hostId", "machineTquType"}
