"""Status areas, buses and a logind that fail while the program runs: what its user sees."""

import os
import signal
import time

import pytest
from desktop import WATCHER
from hostility import LONGEST_STALL, OVER_WITHIN
from lab import green_with_its_label
from support.processes import BARE_ENVIRONMENT, Tool, wait_until

CYCLE, SLACK = 5, 1
# seconds: what counts here is whether it happens
BUSY = 10
INHIBITOR = ("sleep", "delay")
# within which the program wakes by itself where logind does not come back, and looks for a bus that has gone
ABSENCE, RETRY = 5, 10
# within which it gives memory back that it needed for a while
TRIM = 60

# has the name that it is told, and answers nobody
MUTE = """
import sys, time, dbus
dbus.SessionBus().request_name(sys.argv[1])
print("ready", flush=True)
time.sleep(600)
"""


def stays_green(lab, seconds):
    began = time.monotonic()
    time.sleep(seconds)
    assert [colour for _, colour in lab.area.dots(began)] == ["green"]


def test_of_two_status_areas_the_second_has_the_item_once_the_first_has_gone(lab):
    lab.start()
    second = lab.start_second_area()
    time.sleep(1)
    assert second.now.dot is None
    lab.area.stop()
    second.wait_for(green_with_its_label, BUSY)
    lab.area.start()
    time.sleep(1)
    assert second.now.dot == "green"
    second.click("Pause Automatic Checks")
    second.wait_for("gray", BUSY)


def test_a_status_area_that_flaps_has_the_item_in_the_end_and_costs_nothing(lab):
    lab.start()
    time.sleep(1)
    descriptors, kb = lab.program.descriptors(), lab.program.anonymous_kb()
    for number in range(30):
        lab.area.stop()
        time.sleep(0.01 * (number % 5))
        lab.area.start()
        time.sleep(0.02 * (number % 4))
    lab.area.wait_for(green_with_its_label, BUSY)
    assert "Quit" in lab.area.menu()
    stays_green(lab, CYCLE + SLACK)
    assert lab.program.descriptors() <= descriptors + 4
    assert lab.program.sanitized or lab.program.anonymous_kb() - kb < 1024


def test_a_status_area_that_says_nothing_is_not_waited_for(lab):
    lab.area.stop()
    mute = Tool(["/usr/bin/python3", "-c", MUTE, WATCHER], env=BARE_ENVIRONMENT | {"DBUS_SESSION_BUS_ADDRESS": lab.session_bus.address})
    with mute:
        lab.program.start()
        time.sleep(CYCLE)
        assert lab.servers.requests()
    lab.area.start()
    lab.area.wait_for(green_with_its_label, BUSY)
    lab.area.click("Pause Automatic Checks")
    lab.area.wait_for("gray", BUSY)


@pytest.mark.parametrize("how", [signal.SIGKILL, signal.SIGSTOP], ids=["ends", "falls mute"])
def test_an_accessibility_bus_that_fails_is_no_matter(lab, how):
    screen = lab.start_screen()
    lab.start()
    lab.area.click("About Skylet")
    wait_until(lambda: screen.things("About Skylet"), BUSY, "About is there")
    screen.signal_accessibility_bus(how)
    stays_green(lab, CYCLE)
    screen.press("Escape")
    lab.area.click("About Skylet")
    lab.area.click("Pause Automatic Checks")
    lab.area.wait_for("gray", BUSY)
    assert lab.program.end()[0] == 0


def test_a_mute_accessibility_bus_is_waited_for_at_the_start_and_that_is_said(lab):
    screen = lab.start_screen()
    screen.signal_accessibility_bus(signal.SIGSTOP)
    lab.program.start()
    wait_until(lambda: "the accessibility bus" in lab.program.said(), 3 * BUSY, "it says so")
    screen.signal_accessibility_bus(signal.SIGCONT)
    lab.area.wait_for(green_with_its_label, BUSY)


def test_it_ends_with_its_display(lab):
    screen = lab.start_screen()
    lab.start()
    screen.kill()
    assert lab.program.wait(BUSY) == 1
    lab.area.wait_for(lambda state: state.dot is None, BUSY)


def test_while_the_session_bus_is_mute_checks_go_on_and_afterwards_the_item_is_right(lab):
    lab.link.set(rtt_ms=20)
    lab.start()
    time.sleep(1)
    os.kill(lab.session_bus.pid, signal.SIGSTOP)
    mute = time.monotonic()
    time.sleep(CYCLE)
    lab.link.remove_default_route()
    time.sleep(2 * CYCLE)
    os.kill(lab.session_bus.pid, signal.SIGCONT)
    speaks = time.monotonic()
    assert lab.servers.requests(mute)
    lab.area.wait_for("red", BUSY, since=speaks)
    lab.link.add_default_route()
    lab.area.wait_for("green", OVER_WITHIN)
    lab.area.click("Pause Automatic Checks")
    lab.area.wait_for("gray", BUSY)


@pytest.mark.parametrize("how", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
def test_it_ends_also_while_the_session_bus_is_mute(lab, how):
    lab.start()
    os.kill(lab.session_bus.pid, signal.SIGSTOP)
    try:
        assert lab.program.end(how)[0] == 0
    finally:
        os.kill(lab.session_bus.pid, signal.SIGCONT)


def test_a_system_bus_that_ends_is_not_missed_and_a_new_one_is_found(lab):
    logind = lab.logind()
    lab.start()
    wait_until(lambda: INHIBITOR in logind.inhibitors(), BUSY, "the suspend is held up")
    os.kill(lab.system_bus.pid, signal.SIGKILL)
    stays_green(lab, CYCLE + SLACK)
    lab.start_system_bus()
    logind = lab.logind()
    wait_until(lambda: INHIBITOR in logind.inhibitors(), RETRY + BUSY, "the suspend is held up again")
    stays_green(lab, SLACK)


def test_a_system_bus_that_falls_mute_holds_nothing_up(lab):
    logind = lab.logind()
    lab.start()
    wait_until(lambda: INHIBITOR in logind.inhibitors(), BUSY, "the suspend is held up")
    os.kill(lab.system_bus.pid, signal.SIGSTOP)
    try:
        with lab.stalls() as stalls:
            stays_green(lab, 2 * CYCLE)
        assert max(stalls) < LONGEST_STALL
        assert lab.program.end()[0] == 0
    finally:
        os.kill(lab.system_bus.pid, signal.SIGCONT)


@pytest.mark.parametrize("comes_back", [True, False], ids=["comes back", "stays away"])
def test_a_logind_that_ends_in_mid_sleep_does_not_leave_it_asleep(lab, comes_back):
    logind = lab.logind()
    lab.link.set(rtt_ms=20)
    lab.start()
    wait_until(lambda: INHIBITOR in logind.inhibitors(), BUSY, "the suspend is held up")
    asleep = time.monotonic()
    logind.prepare_for_sleep(True)
    lab.area.wait_for("yellow", BUSY, since=asleep)
    logind.die()
    ended = time.monotonic()
    if comes_back:
        logind = lab.logind()  # which says that no suspend is under way
    green = lab.area.wait_for("green", ABSENCE + BUSY, since=ended)
    assert lab.servers.requests(ended)
    if comes_back:
        wait_until(lambda: INHIBITOR in logind.inhibitors(), BUSY, "the next suspend is held up")
    else:
        assert green.time - ended > ABSENCE - SLACK
    stays_green(lab, SLACK)


def test_memory_that_a_speed_test_needed_is_given_back(lab):
    lab.serve_speed_test()
    screen = lab.start_screen()
    lab.start()
    began = time.monotonic()
    lab.area.click("Run Speed Test")
    lab.area.wait_for(lambda state: "Mbps" in state.label, 30, since=began)
    screen.press("Escape")
    wait_until(lambda: not screen.things(), BUSY, "the window is closed")
    time.sleep(SLACK)
    kb = lab.program.anonymous_kb()
    wait_until(lambda: lab.program.anonymous_kb() < kb - 100, TRIM + BUSY, "memory is given back")
    print(f"{kb} kB, {lab.program.anonymous_kb()} later")
