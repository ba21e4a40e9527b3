"""Clocks that jump and systems that sleep: what the user of a program that runs sees."""

import os
import re
import signal
import threading
import time

import pytest
from hostility import OVER_WITHIN
from support.processes import wait_until

DAY, HOUR = 24 * 60 * 60, 60 * 60
CYCLE, SLACK = 5, 1
RATE_KBIT, SAMPLES = 4000, 2  # seconds between two
# seconds: what counts here is whether it happens
BUSY = 10
INHIBITOR = ("sleep", "delay")


def fall_asleep(lab, logind):
    wait_until(lambda: INHIBITOR in logind.inhibitors(), 5, "the suspend is held up")
    asleep = time.monotonic()
    logind.prepare_for_sleep(True)
    lab.area.wait_for("yellow", 2, since=asleep)
    wait_until(lambda: INHIBITOR not in logind.inhibitors(), 2, "the suspend may go on")
    os.kill(lab.program.pid, signal.SIGSTOP)


def wake_up(lab, logind):
    os.kill(lab.program.pid, signal.SIGCONT)
    awake = time.monotonic()
    logind.prepare_for_sleep(False)
    return awake


def stays_green(lab, seconds):
    began = time.monotonic()
    time.sleep(seconds)
    assert [colour for _, colour in lab.area.dots(began)] == ["green"]


def is_as_before(lab, since):
    """Checks come at their pace and take no strange time, and the traffic is none."""
    shown, seconds = lab.area.since(since), time.monotonic() - since
    assert "red" not in {state.dot for state in shown}
    assert seconds / CYCLE - 1 <= len(lab.servers.requests(since)) <= 2 * (seconds / CYCLE + 2)
    assert all(state.milliseconds < 3000 for state in shown if state.milliseconds)
    assert all(rate < 1e6 for state in shown for rate in state.traffic or ())


def made_since(lab, moment):
    return [connection for endpoint in lab.servers.both for connection in endpoint.connections(moment)]


def test_after_a_minute_of_sleep_it_is_green_at_once_on_new_connections(lab):
    logind = lab.logind()
    lab.link.set(rtt_ms=20)
    lab.start()
    asleep = time.monotonic()
    fall_asleep(lab, logind)
    lab.link.set(hole=True)  # nobody tells the servers
    time.sleep(60)
    lab.link.set(hole=False)
    awake = wake_up(lab, logind)
    lab.area.wait_for("green", 2, since=awake)
    assert made_since(lab, awake)
    assert "red" not in {state.dot for state in lab.area.since(asleep)}
    stays_green(lab, CYCLE + SLACK)


def test_after_eight_hours_of_sleep_it_is_green_at_once(lab):
    """The monotonic clock stands still in a suspend; the one on the wall is put right afterwards."""
    if lab.program.sanitized:
        pytest.skip("a sanitizer has to be the first that is preloaded")
    logind, clock = lab.logind(), lab.wall_clock()
    lab.link.set(rtt_ms=20)
    lab.start()
    fall_asleep(lab, logind)
    time.sleep(1)
    for endpoint in lab.servers.both:
        endpoint.drop("reset")
    clock.move(8 * HOUR)
    awake = wake_up(lab, logind)
    lab.area.wait_for("green", 2, since=awake)
    stays_green(lab, CYCLE + SLACK)


def test_awake_without_a_network_it_is_red_and_green_as_soon_as_there_is_one(lab):
    logind = lab.logind()
    lab.start()
    fall_asleep(lab, logind)
    lab.link.remove_default_route()
    time.sleep(1)
    awake = wake_up(lab, logind)
    red = lab.area.wait_for("red", 3, since=awake)
    assert red.lines[0] == "No internet (hotspot without signal?)"
    time.sleep(CYCLE)
    assert "green" not in {state.dot for state in lab.area.since(awake)}
    lab.link.add_default_route()
    lab.area.wait_for("green", 2)


@pytest.mark.parametrize("start, jump", [(0, DAY), (DAY, 0)], ids=["forward", "back"])
def test_a_wall_clock_that_jumps_a_day_is_not_seen(lab, start, jump):
    if lab.program.sanitized:
        pytest.skip("a sanitizer has to be the first that is preloaded")
    clock = lab.wall_clock()
    clock.move(start)
    lab.link.set(rtt_ms=20)
    lab.start()
    began = time.monotonic()
    clock.move(jump)
    for endpoint in lab.servers.both:
        endpoint.drop("close")
    time.sleep(2 * CYCLE + SLACK)
    assert made_since(lab, began)
    is_as_before(lab, began)


@pytest.mark.parametrize("start, jump", [(0, DAY), (DAY, 0)], ids=["forward", "back"])
def test_traffic_is_as_much_as_it_is_while_the_wall_clock_jumps_a_day(lab, start, jump):
    if lab.program.sanitized:
        pytest.skip("a sanitizer has to be the first that is preloaded")
    clock = lab.wall_clock()
    clock.move(start)
    lab.link.set(rtt_ms=20, rate_kbit=RATE_KBIT)
    lab.serve_traffic()
    lab.start()
    transfer = threading.Thread(target=lab.client_traffic, args=("receive", lab.link.gateway, 5 * SAMPLES))
    transfer.start()
    time.sleep(2.5 * SAMPLES)
    clock.move(jump)
    jumped = time.monotonic()
    time.sleep(1.5 * SAMPLES)
    shown = [state.traffic[0] for state in lab.area.since(jumped) if state.traffic]
    transfer.join()
    assert min(shown) > RATE_KBIT * 1000 / 2
    lab.area.wait_for(lambda state: state.traffic and max(state.traffic) < RATE_KBIT * 100, BUSY)


def test_a_wall_clock_on_which_the_certificates_have_expired_is_red_until_it_is_right(lab):
    if lab.program.sanitized:
        pytest.skip("a sanitizer has to be the first that is preloaded")
    clock = lab.wall_clock()
    lab.link.set(rtt_ms=20)
    lab.start()
    clock.move(7 * DAY)
    for endpoint in lab.servers.both:
        endpoint.drop("close")
    lab.area.wait_for("red", 2 * CYCLE)
    clock.move(0)
    lab.area.wait_for("green", OVER_WITHIN)


@pytest.mark.parametrize("bits", [31, 32])
def test_an_uptime_beyond_so_many_bits_of_milliseconds_is_not_seen(lab, bits):
    lab.link.set(rtt_ms=20)
    lab.move_uptime(2**bits / 1000 - 8)
    lab.start()
    assert os.readlink(f"/proc/{lab.program.pid}/ns/time") != os.readlink("/proc/self/ns/time")
    began = time.monotonic()
    time.sleep(16)
    is_as_before(lab, began)
    assert lab.program.end()[0] == 0


@pytest.mark.parametrize("bits", [31, 32])
def test_a_speed_test_during_which_the_uptime_passes_so_many_bits_of_milliseconds_is_right(lab, bits):
    lab.serve_speed_test()
    lab.link.set(rtt_ms=20, rate_kbit=RATE_KBIT)
    lab.move_uptime(2**bits / 1000 - 7)  # in the upload
    lab.start()
    began = time.monotonic()
    lab.area.click("Run Speed Test")
    label = lab.area.wait_for(lambda state: "↓" in state.label and "Mbps" in state.label, 3 * BUSY, since=began).label
    print(label)
    down, up = (float(text) for text in re.findall(r"[↓↑] ([0-9.]+) Mbps", label))
    assert min(down, up) > RATE_KBIT / 2000
    assert max(down, up) < RATE_KBIT / 800
