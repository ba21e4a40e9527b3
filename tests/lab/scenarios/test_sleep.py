"""Suspend and resume, as logind tells of them."""

import time

from support.processes import wait_until

INHIBITOR = ("sleep", "delay")


def fall_asleep(lab, logind):
    asleep = time.monotonic()
    logind.prepare_for_sleep(True)
    state = lab.area.wait_for("yellow", 0.5, since=asleep)
    assert state.word == "Checking…"


def wake_up(lab, logind):
    awake = time.monotonic()
    logind.prepare_for_sleep(False)
    lab.area.wait_for("green", 1, since=awake)
    request = lab.servers.requests(awake)[0]
    assert request["time"] - awake < 0.3
    connections = {connection["id"]: connection for endpoint in lab.servers.both for connection in endpoint.connections()}
    assert connections[request["connection"]]["time"] > awake


def test_asleep_it_says_nothing_and_awake_it_probes_at_once_on_new_connections(lab):
    logind = lab.logind()
    lab.start()
    wait_until(lambda: INHIBITOR in logind.inhibitors(), 2, "the suspend is held up")
    fall_asleep(lab, logind)
    wait_until(lambda: INHIBITOR not in logind.inhibitors(), 1, "the suspend may go on")
    time.sleep(0.2)
    lab.link.reset()
    time.sleep(6)
    assert lab.link.bytes() == 0
    wake_up(lab, logind)
    wait_until(lambda: INHIBITOR in logind.inhibitors(), 2, "the next suspend is held up")


def test_a_logind_that_comes_late_is_heard(lab):
    lab.start()
    logind = lab.logind()
    wait_until(lambda: INHIBITOR in logind.inhibitors(), 2, "the suspend is held up")
    fall_asleep(lab, logind)
    wake_up(lab, logind)
