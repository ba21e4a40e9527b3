"""Name servers whose answers are none: what has to come of them, and of the first right one."""

import time

import pytest
from hostility import LIMIT, LONGEST_STALL, RETRY, SLACK

OFFLINE_WAIT = 3
# as long as the C library waits for what never comes, so that its next question is the first that is answered rightly
RESOLVER = "timeout:1 attempts:1"


@pytest.mark.parametrize("answer", [
    "formerr", "servfail", "nxdomain", "notimp", "refused", "empty", "silent", "otherId", "otherName", "half", "garbage", "aliasOfItself",
    "aliasOfNothing"])
def test_an_answer_that_is_none_is_no_connection_and_the_next_right_one_is_green(lab, answer):
    lab.network.names_from_dns(RESOLVER)
    lab.servers.names.set(answer=answer)
    lab.program.start()
    lab.area.wait_for("red", LIMIT + RETRY + LIMIT + 2 * SLACK, since=lab.program.started)
    with lab.stalls() as stalls:
        time.sleep(1)
    assert max(stalls) < LONGEST_STALL
    assert "green" not in {state.dot for state in lab.area.since(lab.program.started)}
    lab.servers.names.set()
    right = time.monotonic()
    # the next probe may wait for the old question once more
    lab.area.wait_for("green", OFFLINE_WAIT + LIMIT + RETRY + LIMIT + SLACK, since=right)
    assert lab.servers.names.queries(right)


@pytest.mark.parametrize("addresses", [
    ["0.0.0.0"], ["255.255.255.255"], ["224.0.0.1"], ["::1"], ["::"], ["::ffff:127.0.0.1"], ["fe80::1"], []], ids=str)
def test_an_address_that_is_nobodys_is_no_connection_and_the_next_right_one_is_green(lab, addresses):
    lab.network.add_ipv6()
    lab.network.names_from_dns(RESOLVER)
    lab.servers.names.set(addresses=addresses)
    lab.start(until="red", within=LIMIT + RETRY + LIMIT + 2 * SLACK)
    lab.servers.names.set()
    lab.area.wait_for("green", OFFLINE_WAIT + LIMIT + RETRY + LIMIT + SLACK)
