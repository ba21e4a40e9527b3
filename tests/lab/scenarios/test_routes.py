"""The default routes of the kernel, the moment they change."""

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
    lab.start()
    time.sleep(0.5)  # nothing is under way any more
    moved = time.monotonic()
    if how == "replaced":
        lab.network.client.ip(f"route replace default via {usb0.gateway} dev usb0 metric 100")
    else:
        usb0.add_default_route(metric=50)
    request = requested_within(lab, moved, 0.5)
    assert source(lab, request)["address"] == usb0.near
    yellow = lab.area.wait_for("yellow", 0.5, since=moved)
    lab.area.wait_for("green", 1, since=yellow.time)


def test_a_dead_ipv6_route_does_not_stand_in_the_way_of_ipv4(lab):
    lab.network.add_dead_ipv6()
    green = lab.start()
    assert green.time - lab.program.started < 2
    assert any(":" in packet["far"] for packet in lab.link.trace("up") if packet["far_port"] == 443)
    time.sleep(6)
    assert [colour for _, colour in lab.area.dots(green.time)] == ["green"]


def test_routes_other_than_the_default_are_none_of_its_business(lab):
    lab.start()
    began = time.monotonic()
    for number in range(50):
        lab.network.client.ip(f"route add 10.0.{number}.0/24 via {lab.link.gateway} dev wlan0")
    time.sleep(0.5)
    assert [colour for _, colour in lab.area.dots(began)] == ["green"]
