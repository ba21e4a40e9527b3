"""Name servers that give no address or a wrong one, and those of another network."""

import time

import network
import pytest

CYCLE, OFFLINE_WAIT, LIMIT, RETRY = 5, 3, 3, 0.5
SYN, ACK = 0x02, 0x10
UNUSED_ADDRESS = "203.0.113.99"


def set_addresses(lab, *addresses):
    """Of the first endpoint and of the second."""
    for endpoint, own in zip(lab.servers.both, addresses):
        lab.servers.names.set(name=endpoint.name, addresses=own)


@pytest.mark.parametrize("answer", [
    {"answer": "nxdomain"}, {"answer": "servfail"}, {"answer": "refused"}, {"answer": "empty"},
    {"addresses": [network.PORTAL_ADDRESS]}, {"addresses": ["127.0.0.1"]}],
    ids=["NXDOMAIN", "SERVFAIL", "refused", "no addresses", "the portal's address", "an address of this machine"])
def test_without_a_usable_address_yellow_then_red_then_green_with_the_first_right_answer(lab, answer):
    lab.network.names_from_dns()
    lab.servers.names.set(**answer)
    red = lab.start(until="red")
    assert [colour for _, colour in lab.area.dots(lab.program.started)] == [None, "yellow", "red"]
    assert red.time - lab.program.started < 3
    lab.servers.names.set()
    right = time.monotonic()
    # the next probe may use the old answer once more, while it asks for a new one
    lab.area.wait_for("green", OFFLINE_WAIT + RETRY + 1, since=right)


def test_an_address_where_nobody_is_does_not_outlive_the_right_answer(lab):
    lab.network.names_from_dns()
    lab.link.mute(UNUSED_ADDRESS)
    lab.servers.names.set(addresses=[UNUSED_ADDRESS])
    lab.start(until="red")
    lab.servers.names.set()
    right = time.monotonic()
    # the next probe may use the old answer once more, and waits for it without success
    lab.area.wait_for("green", OFFLINE_WAIT + LIMIT + RETRY + 1, since=right)


def test_of_two_addresses_the_second_is_tried_when_the_first_is_silent(lab):
    lab.network.names_from_dns()
    lab.link.mute(UNUSED_ADDRESS)
    set_addresses(lab, *([UNUSED_ADDRESS, endpoint.address] for endpoint in lab.servers.both))
    lab.start(within=LIMIT + RETRY + 3)
    assert "red" not in {state.dot for state in lab.area.since(lab.program.started)}


@pytest.mark.parametrize("how", [
    {"truncated": True}, {"addresses": [f"203.0.113.{number}" for number in range(56, 255)]}], ids=["truncated", "many addresses"])
def test_an_answer_too_long_for_one_datagram_is_as_good_as_any(lab, how):
    """Of 200 addresses the first is the endpoint's; at the others there is nobody."""
    lab.network.names_from_dns()
    for endpoint in lab.servers.both:
        more = {"addresses": [endpoint.address, *how["addresses"]]} if "addresses" in how else {}
        lab.servers.names.set(name=endpoint.name, **how | more)
    lab.start()
    assert {query["over"] for query in lab.servers.names.queries()} == {"udp", "tcp"}


def test_answers_do_not_survive_a_change_of_network(lab):
    usb0 = lab.network.add_usb0()
    lab.network.names_from_dns()
    lab.start()
    time.sleep(0.5)  # nothing is under way any more
    set_addresses(lab, *([address] for address in network.OTHER_ENDPOINT_ADDRESSES))
    usb0.mute(*network.ENDPOINT_ADDRESSES)
    moved = time.monotonic()
    lab.network.client.ip(f"route replace default via {usb0.gateway} dev usb0 metric 100")
    yellow = lab.area.wait_for("yellow", 0.5, since=moved)
    lab.area.wait_for("green", 1.5, since=yellow.time)
    assert_only_asked(usb0, network.OTHER_ENDPOINT_ADDRESSES)
    assert {query["name"] for query in lab.servers.names.queries(moved)} >= set(network.ENDPOINT_NAMES)


def test_an_answer_that_is_under_way_when_the_network_changes_is_neither_waited_for_nor_used(lab):
    usb0 = lab.network.add_usb0()
    lab.network.names_from_dns()
    lab.servers.names.set(delay=4)
    usb0.mute(*network.ENDPOINT_ADDRESSES)
    lab.program.start()
    lab.area.wait_for("yellow", 5)
    time.sleep(1)
    set_addresses(lab, *([address] for address in network.OTHER_ENDPOINT_ADDRESSES))
    moved = time.monotonic()
    lab.network.client.ip(f"route replace default via {usb0.gateway} dev usb0 metric 100")
    green = lab.area.wait_for("green", 2, since=moved)
    time.sleep(6)
    assert [colour for _, colour in lab.area.dots(green.time)] == ["green"]
    assert_only_asked(usb0, network.OTHER_ENDPOINT_ADDRESSES)


def test_a_resolv_conf_that_follows_the_route_a_moment_later_is_not_waited_for(lab):
    """As network managers write it: the route first, the name servers half a second later."""
    usb0 = lab.network.add_usb0()
    usb0.mute(network.DNS_ADDRESS)
    lab.network.names_from_dns()
    lab.start()
    lab.link.remove_default_route()
    lab.area.wait_for("red", 1)
    usb0.add_default_route()
    time.sleep(0.5)
    lab.network.names_from_dns(servers=[network.SECOND_DNS_ADDRESS])
    written = time.monotonic()
    lab.area.wait_for("green", LIMIT + RETRY + 1, since=written)


def test_servers_that_move_are_found_at_the_second_probe(lab):
    lab.network.names_from_dns()
    lab.link.set(rtt_ms=20)
    lab.start()
    time.sleep(6)
    set_addresses(lab, *([address] for address in network.OTHER_ENDPOINT_ADDRESSES))
    lab.link.mute(*network.ENDPOINT_ADDRESSES)
    moved = time.monotonic()
    yellow = lab.area.wait_for("yellow", CYCLE + LIMIT + 1, since=moved)
    lab.area.wait_for("green", RETRY + 1, since=yellow.time)
    assert "red" not in {state.dot for state in lab.area.since(moved)}


def assert_only_asked(link, addresses):
    asked = {packet["far"] for packet in link.trace("up") if packet["flags"] & (SYN | ACK) == SYN}
    assert asked
    assert asked <= set(addresses)
