"""The way that the kernel sends packets, the moment it changes."""

import time

import pytest


def requested_within(lab, start, within):
    """The first request since then."""
    while time.monotonic() < start + within:
        if requests := lab.servers.requests(start):
            return requests[0]
        time.sleep(0.02)
    raise AssertionError(f"no request within {within} s")


def source(lab, request):
    endpoint = next(endpoint for endpoint in lab.servers.both if endpoint.name == request["endpoint"])
    return next(connection for connection in endpoint.connections() if connection["id"] == request["connection"])


def expect_check_over(lab, link, start, within):
    """The change at `start` brings a check over this link, seen as yellow and then green."""
    assert source(lab, requested_within(lab, start, within))["address"] == link.near
    yellow = lab.area.wait_for("yellow", within, since=start)
    lab.area.wait_for("green", 1, since=yellow.time)


def slow_enough_to_be_seen(*links):
    """A check over them takes longer than the status area may take to be shown that it is under way."""
    for link in links:
        link.set(rtt_ms=30)


def test_without_a_default_route_red_at_once_and_with_one_checked_at_once(lab):
    lab.start()
    removed = time.monotonic()
    lab.link.remove_default_route()
    red = lab.area.wait_for("red", 0.25, since=removed)
    assert red.lines[0] == "No internet (hotspot without signal?)"
    time.sleep(0.2)
    lab.link.reset()
    time.sleep(4)
    assert lab.area.dots(red.time)[-1][1] == "red"
    assert lab.link.stats()["up"]["packets"] == 0
    added = time.monotonic()
    lab.link.add_default_route()
    request = requested_within(lab, added, 0.5)
    assert source(lab, request)["time"] > added
    lab.area.wait_for("green", 1, since=added)


def test_a_link_that_goes_down_is_red_at_once(lab):
    lab.start()
    down = time.monotonic()
    lab.network.client.ip("link set wlan0 down")
    lab.area.wait_for("red", 0.25, since=down)
    lab.network.client.ip("link set wlan0 up")
    lab.link.add_default_route()
    lab.area.wait_for("green", 1)


def test_a_start_without_a_default_route_is_red(lab):
    lab.link.remove_default_route()
    lab.start(until="red", within=3)
    lab.link.add_default_route()
    lab.area.wait_for("green", 1)


@pytest.mark.parametrize("how", ["replaced", "preferred"])
def test_a_default_route_that_moves_is_checked_at_once_over_the_new_interface(lab, how):
    usb0 = lab.network.add_usb0()
    slow_enough_to_be_seen(usb0)
    lab.start()
    time.sleep(0.5)  # nothing is under way any more
    moved = time.monotonic()
    if how == "replaced":
        lab.network.client.ip(f"route replace default via {usb0.gateway} dev usb0 metric 100")
    else:
        usb0.add_default_route(metric=50)
    expect_check_over(lab, usb0, moved, 0.5)


def test_a_tunnel_over_a_live_path_is_checked_at_once_and_so_is_its_end(lab):
    tunnel = lab.network.add_tunnel()
    slow_enough_to_be_seen(lab.link, tunnel)
    lab.start()
    time.sleep(0.5)  # nothing is under way any more
    covered = time.monotonic()
    tunnel.cover_everything()
    expect_check_over(lab, tunnel, covered, 0.5)
    time.sleep(0.5)
    gone = time.monotonic()
    lab.network.client.ip("link delete tun0")
    expect_check_over(lab, lab.link, gone, 1)
    assert "red" not in [colour for _, colour in lab.area.dots(covered)]


def test_a_tunnel_that_covers_everything_is_a_way_out_without_a_default_route(lab):
    tunnel = lab.network.add_tunnel()
    lab.start()
    tunnel.cover_everything()
    time.sleep(0.5)
    removed = time.monotonic()
    lab.link.remove_default_route()
    time.sleep(6)
    assert [colour for _, colour in lab.area.dots(removed)] == ["green"]
    clicked = time.monotonic()
    lab.area.click("Check Connection Now")
    assert source(lab, requested_within(lab, clicked, 0.5))["address"] == tunnel.near
    uncovered = time.monotonic()
    tunnel.uncover()
    lab.area.wait_for("red", 0.25, since=uncovered)


@pytest.mark.parametrize("way", ["half routes", "policy"])
def test_a_start_without_a_default_route_of_the_main_table_is_green_where_another_way_leads_out(lab, way):
    tunnel = lab.network.add_tunnel()
    lab.link.remove_default_route()
    if way == "policy":
        tunnel.add_policy_route()
    else:
        tunnel.cover_everything()
    lab.start()
    assert source(lab, lab.servers.requests()[0])["address"] == tunnel.near


def test_a_rule_decides_whether_a_table_is_a_way_out(lab):
    lab.link.remove_default_route()
    lab.link.add_policy_route()
    lab.start()
    removed = time.monotonic()
    lab.link.remove_policy_rule()
    lab.area.wait_for("red", 0.25, since=removed)
    lab.network.client.ip("rule add from all lookup 100")
    lab.area.wait_for("green", 1)


def test_a_rule_that_sends_packets_another_way_makes_new_connections(lab):
    usb0 = lab.network.add_usb0()
    slow_enough_to_be_seen(usb0)
    lab.start()
    time.sleep(0.5)
    moved = time.monotonic()
    usb0.add_policy_route()
    expect_check_over(lab, usb0, moved, 0.5)


def test_a_rule_for_https_alone_is_a_way_out(lab):
    lab.link.remove_default_route()
    lab.network.client.ip(f"route add default via {lab.link.gateway} dev wlan0 table 100")
    lab.network.client.ip("rule add ipproto tcp dport 443 lookup 100")
    lab.start(within=3)


def test_rules_as_wireguard_sets_them_lead_into_the_tunnel_and_out_again(lab):
    tunnel = lab.network.add_tunnel()
    slow_enough_to_be_seen(lab.link, tunnel)
    lab.start()
    time.sleep(0.5)
    begun = time.monotonic()
    lab.network.client.ip(f"route add default via {tunnel.gateway} dev tun0 table 51820")
    lab.network.client.ip("rule add not fwmark 51820 table 51820")
    lab.network.client.ip("rule add table main suppress_prefixlength 0")
    expect_check_over(lab, tunnel, begun, 1)
    time.sleep(0.5)
    ended = time.monotonic()
    lab.network.client.ip("rule delete not fwmark 51820 table 51820")
    expect_check_over(lab, lab.link, ended, 1)
    assert "red" not in [colour for _, colour in lab.area.dots(begun)]


def test_a_lease_that_is_renewed_is_not_seen(lab):
    lab.start()
    time.sleep(0.5)
    began = time.monotonic()
    for _ in range(10):
        lab.network.client.ip(f"address change {lab.link.near}/29 dev wlan0 valid_lft 3600 preferred_lft 3600")
        lab.network.client.ip(f"route replace default via {lab.link.gateway} dev wlan0 metric 100")
        time.sleep(0.2)
    assert [colour for _, colour in lab.area.dots(began)] == ["green"]
    assert not [connection for endpoint in lab.servers.both for connection in endpoint.connections(began)]


@pytest.mark.parametrize("kind", ["unreachable", "blackhole", "prohibit"])
def test_a_default_route_that_refuses_is_red_at_once(lab, kind):
    lab.start()
    refused = time.monotonic()
    lab.network.client.ip(f"route add {kind} default metric 50")
    lab.area.wait_for("red", 0.25, since=refused)
    time.sleep(1)
    assert lab.area.dots(refused)[-1][1] == "red"
    lab.network.client.ip(f"route delete {kind} default metric 50")
    lab.area.wait_for("green", 1)


def test_a_new_address_behind_the_same_gateway_makes_new_connections(lab):
    slow_enough_to_be_seen(lab.link)
    lab.start()
    time.sleep(0.5)
    changed = time.monotonic()
    lab.network.client.ip("address add 192.0.2.3/28 dev wlan0")
    lab.network.client.ip(f"address delete {lab.link.near}/29 dev wlan0")
    connection = source(lab, requested_within(lab, changed, 0.5))
    assert connection["address"] == "192.0.2.3"
    assert connection["time"] > changed
    lab.area.wait_for("green", 1, since=lab.area.wait_for("yellow", 0.5, since=changed).time)
    assert "red" not in [colour for _, colour in lab.area.dots(changed)]


def test_a_dead_ipv6_route_does_not_stand_in_the_way_of_ipv4(lab):
    lab.network.add_dead_ipv6()
    green = lab.start()
    assert green.time - lab.program.started < 2
    assert any(":" in packet["far"] for packet in lab.link.trace("up") if packet["far_port"] == 443)
    time.sleep(6)
    assert [colour for _, colour in lab.area.dots(green.time)] == ["green"]


def test_routes_to_other_places_are_none_of_its_business(lab):
    lab.start()
    began = time.monotonic()
    for number in range(50):
        lab.network.client.ip(f"route add 10.0.{number}.0/24 via {lab.link.gateway} dev wlan0")
    time.sleep(0.5)
    assert [colour for _, colour in lab.area.dots(began)] == ["green"]
