"""Tokens that are refused and cannot be renewed, and which identity is shown to which server."""

import pytest

import bad_modes
from certificates import MASTER
from outcomes import Fault, NotCarriedOut, NotRenewed, TextDecides, Works, cases, check
from wire_host import FIVE_MASTERS, PLANTED_TOKEN

READ_AND_UPDATE = ("read", "update")
UNUSABLE_TOKEN = TextDecides()
TOO_LARGE = NotCarriedOut(7623, "the reply is larger than allowed")

FAULTS = (
    Fault("D3", "401-renewal-500", NotRenewed(cause="HTTP status 500"), ("read", "update"), READ_AND_UPDATE),
    Fault("D3", "401-renewal-403", NotRenewed(cause="HTTP status 403"), ("read",), READ_AND_UPDATE),
    Fault("D3", "401-renewal-reset", NotRenewed(cause="connection was lost"), ("read",), READ_AND_UPDATE),
    Fault("D3", "401-renewal-silence", NotRenewed(cause="did not answer in time"), (), READ_AND_UPDATE),
    Fault("D3", "401-renewal-no-json", NotRenewed(cause="that can be used"), ("read",), READ_AND_UPDATE),
    *(
        Fault(
            "D3",
            f"token-{name}",
            TOO_LARGE if len(text) > bad_modes.MEGABYTE else UNUSABLE_TOKEN,
            ("token",),
            ("token",),
        )
        for name, text in bad_modes.TOKEN_TEXTS.items()
    ),
)


@pytest.mark.parametrize("fault, operation", cases(FAULTS))
def test_tokens_that_cannot_be_had(wire, fault, operation):
    check(wire, fault, operation)


class RenewedOnce(Works):
    """After a 401 the request is repeated once, with the new token."""

    def check_repeats(self, wire, operation):
        method = "PUT" if operation == "update" else "GET"
        more = ["POST"] if operation == "update" else []  # an update renews its token once more, at its end
        assert [seen for seen, _ in wire.requests()] == [method, "POST", method, *more]
        first, second = [e["authorization"] for e in wire.seen("request") if e["method"] == method]
        assert first == f"Bearer {PLANTED_TOKEN}"
        assert second.startswith("Bearer token-")
        assert wire.stored_token() != PLANTED_TOKEN


@pytest.mark.row("D3")
@pytest.mark.parametrize("operation", READ_AND_UPDATE)
def test_a_401_renews_the_token_once_and_repeats_the_request_once(wire, operation):
    check(wire, Fault("D3", "401-once", RenewedOnce()), operation)


@pytest.mark.row("D3")
@pytest.mark.parametrize("mode", ["status-403-json", "status-401-json", "status-503-empty"])
def test_no_answer_of_a_server_removes_a_token(wire, mode):
    wire.use(mode)
    contract = wire.contract()
    result = wire.read()
    assert result.status != 0
    assert (wire.stored_token() == PLANTED_TOKEN) == (mode != "status-401-json")
    contract.check(result)


@pytest.mark.row("D7")
def test_each_server_sees_the_certificate_the_identifier_and_the_token_that_belong_to_it(wire):
    servers = {MASTER: "good", FIVE_MASTERS[1]: "good-too"}
    wire.give_identities(servers)
    wire.point(**{server: bad_modes.address_of(mode) for server, mode in servers.items()})
    contract = wire.contract()
    result = wire.box.command("-update")
    assert (result.status, result.err) == (0, "")
    for identity in wire.box.identities():
        seen = wire.seen("request", servers[identity["server"]])
        assert [entry["method"] for entry in seen] == ["PUT", "POST"]
        assert [entry["client"] for entry in seen] == [[identity["hostName"]]] * 2
        assert seen[0]["path"].endswith(identity["hostId"])
        assert seen[0]["authorization"] == f"Bearer {wire.token_for(identity['server'])}"
    contract.check(result)
