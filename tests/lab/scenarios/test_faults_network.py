"""What links, addresses and routes do to a program that runs: what its user sees meanwhile and afterwards."""

import itertools
import os
import signal
import subprocess
import time

import pytest
from hostility import LONGEST_STALL, OVER_WITHIN

CYCLE, LIMIT, RETRY, SLACK = 5, 3, 0.5, 1
# the kernel itself takes a second to take a device away, and more where it has much to do
GONE_WITHIN = 10


def check_now(lab):
    asked = time.monotonic()
    lab.area.click("Check Connection Now")
    return asked


def stays_green(lab, seconds):
    began = time.monotonic()
    time.sleep(seconds)
    assert [colour for _, colour in lab.area.dots(began)] == ["green"]


def test_a_link_that_loses_half_of_all_packets_is_left_behind_once_it_loses_none(lab):
    lab.link.set(rtt_ms=60)
    lab.start()
    lab.link.set(loss=0.5, seed=15)
    lossy = time.monotonic()
    with lab.stalls() as stalls:
        time.sleep(30)
    assert max(stalls) < LONGEST_STALL
    assert {state.dot for state in lab.area.since(lossy)} <= {"green", "yellow", "red"}
    lab.link.set(loss=0)
    lab.area.wait_for("green", OVER_WITHIN)
    stays_green(lab, CYCLE + SLACK)


def test_a_latency_that_jumps_is_named_as_it_is_and_forgotten_when_it_falls(lab):
    lab.link.set(rtt_ms=20)
    lab.start()
    for rtt_ms, word, colour in ((700, "High delay", "yellow"), (20, "Quick response", "green"), (1500, "Very high delay", "yellow"),
                                 (20, "Quick response", "green")):
        lab.link.set(rtt_ms=rtt_ms)
        jumped = check_now(lab)
        state = lab.area.wait_for(lambda state, shown=(word, colour): (state.word, state.dot) == shown, 2 * CYCLE, since=jumped)
        assert state.milliseconds >= rtt_ms
    lab.link.set(rtt_ms=8000)
    check_now(lab)
    lab.area.wait_for("red", LIMIT + RETRY + LIMIT + 2 * SLACK)
    lab.link.set(rtt_ms=20)
    lab.area.wait_for("green", OVER_WITHIN + LIMIT)


def test_an_interface_that_vanishes_is_red_at_once_and_green_on_another_one(lab):
    usb0 = lab.network.add_usb0()
    usb0.add_default_route(metric=50)
    lab.start()
    vanished = time.monotonic()
    lab.network.client.ip("link delete usb0")
    lab.area.wait_for("green", OVER_WITHIN, since=lab.area.wait_for("yellow", GONE_WITHIN, since=vanished).time)
    assert "red" not in {state.dot for state in lab.area.since(vanished)}
    vanished = time.monotonic()
    lab.network.client.ip("link delete wlan0")
    lab.area.wait_for("red", GONE_WITHIN, since=vanished)


def test_an_interface_that_is_renamed_is_used_and_counted_under_its_new_name(lab):
    lab.link.set(rtt_ms=20)
    lab.serve_traffic()
    lab.start()
    for order in ("link set wlan0 down", "link set wlan0 name wlp3s0", "link set wlp3s0 up",
                  f"route add default via {lab.link.gateway} dev wlp3s0 metric 100"):
        lab.network.client.ip(order)
    lab.area.wait_for("green", OVER_WITHIN)
    lab.link.set(rate_kbit=8000)
    began = time.monotonic()
    lab.client_traffic("receive", lab.link.gateway, 6)
    assert max(state.traffic[0] for state in lab.area.since(began) if state.traffic) > 6e6


def test_counters_that_begin_anew_are_no_traffic(lab):
    """Those of an interface over which nothing else goes: a change of route would begin the traffic anew."""
    usb0 = lab.network.add_usb0()
    lab.serve_traffic()
    usb0.set(rate_kbit=8000)
    lab.start()
    lab.client_traffic("receive", usb0.gateway, 4)
    began = time.monotonic()
    for namespace in (lab.network.client, lab.network.server):
        namespace.ip("link delete usb0")
    lab.network.add_usb0()
    time.sleep(2 * CYCLE)
    assert "yellow" not in {state.dot for state in lab.area.since(began)}
    shown = [rate for state in lab.area.since(began) for rate in state.traffic or ()]
    print(f"at most {max(shown):.0f} bit/s")
    assert max(shown) < 16e6
    assert max(lab.area.now.traffic) < 1e5


def flood_of_routes(lab, count):
    """Adds and removes routes as fast as the kernel takes them, and moves the default route to and fro."""
    usb0 = lab.network.add_usb0()
    places = [f"10.{number // 250}.{number % 250}.0/24 via {lab.link.gateway} dev wlan0" for number in range(count)]
    moves = itertools.cycle(f"route replace default via {link.gateway} dev {link.device} metric 100" for link in (usb0, lab.link))
    lines = []
    for verb in ("add", "delete"):
        for place in places:
            lines += [f"route {verb} {place}", next(moves)]
    subprocess.run(["ip", "-n", lab.network.client.name, "-batch", "-"], input="\n".join(lines), text=True, check=True)


def test_a_flood_of_routes_neither_holds_it_up_nor_leaves_anything_behind(lab):
    lab.link.set(rtt_ms=20)
    lab.start()
    threads, descriptors, kb = lab.program.threads(), lab.program.descriptors(), lab.program.anonymous_kb()
    with lab.stalls() as stalls:
        flood_of_routes(lab, 4000)
        flooded = time.monotonic()
        time.sleep(SLACK)  # it is told of the last route
        lab.area.wait_for("green", OVER_WITHIN, since=flooded + SLACK)
        stays_green(lab, CYCLE + SLACK)
    print(f"longest stall {max(stalls) * 1000:.0f} ms")
    assert max(stalls) < LONGEST_STALL
    assert lab.program.threads() <= threads + 2
    assert lab.program.descriptors() <= descriptors + 4
    assert lab.program.sanitized or lab.program.anonymous_kb() - kb < 2048


def test_after_more_news_than_the_kernel_keeps_for_it_the_next_is_heard(lab):
    lab.start()
    os.kill(lab.program.pid, signal.SIGSTOP)
    flood_of_routes(lab, 4000)
    os.kill(lab.program.pid, signal.SIGCONT)
    lab.area.wait_for("green", OVER_WITHIN)
    time.sleep(SLACK)
    lab.link.remove_default_route()
    lab.area.wait_for("red", SLACK)


@pytest.mark.parametrize("how", ["down and up", "address"])
def test_a_link_that_flaps_ends_as_it_is(lab, how):
    lab.link.set(rtt_ms=20)
    lab.start()
    with lab.stalls() as stalls:
        for _ in range(20):
            if how == "address":
                lab.network.client.ip(f"address delete {lab.link.near}/29 dev wlan0")
                time.sleep(0.05)
                lab.network.client.ip(f"address add {lab.link.near}/29 dev wlan0")
            else:
                lab.network.client.ip("link set wlan0 down")
                time.sleep(0.05)
                lab.network.client.ip("link set wlan0 up")
            lab.link.add_default_route()
            time.sleep(0.05)
        time.sleep(SLACK)
        lab.area.wait_for("green", OVER_WITHIN)
        stays_green(lab, SLACK)
    assert max(stalls) < LONGEST_STALL
