"""One endpoint is enough; without both the state follows the schedule of retries."""

import time

import pytest
from lab import sleep_until
from support.processes import wait_until

LIMIT, RETRY, OFFLINE_WAIT, CYCLE = 3, 0.5, 3, 5
NO_DATA = 60  # bytes of a packet of TCP over IPv4
TOLERANCE = 0.3


def kill(lab, endpoint, how):
    if how == "refused":
        endpoint.die()
    else:
        lab.link.mute(endpoint.address)


def colours(lab, start):
    return {state.dot for state in lab.area.since(start)}


@pytest.mark.parametrize("dead, how", [(0, "refused"), (0, "silent"), (1, "refused"), (1, "silent")])
def test_one_dead_endpoint_leaves_the_dot_green(lab, dead, how):
    lab.start()
    died = time.monotonic()
    kill(lab, lab.servers.both[dead], how)
    time.sleep(2 * CYCLE + 1)
    assert colours(lab, died) == {"green"}
    assert len(lab.servers.both[1 - dead].requests(died)) >= 2


def test_an_endpoint_that_answers_wrongly_beside_a_good_one_costs_no_connection_each_time(lab):
    lab.start()
    time.sleep(1)  # the slower endpoint's connection is there too
    blocked = time.monotonic()
    lab.servers.first.set(status=403)
    time.sleep(2 * CYCLE + 1)
    assert colours(lab, blocked) == {"green"}
    assert len(lab.servers.first.requests(blocked)) >= 2
    assert not lab.servers.first.connections(blocked)
    lab.servers.second.die()
    lab.area.wait_for("yellow", CYCLE + 1)
    failed = time.monotonic()
    lab.area.wait_for("red", RETRY + 1)
    assert lab.servers.first.connections(failed), "now a new one may have another answer"


def test_a_new_connection_costs_little(lab):
    lab.link.set(rtt_ms=20)
    lab.start()
    time.sleep(1)
    assert max(packet["bytes"] for packet in lab.link.trace("up")) < 1000, "a packet of keys"
    lab.link.reset()
    lab.servers.first.drop("reset")
    wait_until(lambda: lab.servers.first.connections(lab.program.started)[1:], CYCLE + 1, "a new connection")
    time.sleep(1)
    port = lab.servers.first.connections()[-1]["port"]
    sizes = [packet["bytes"] for packet in lab.link.trace("up") if packet["near_port"] == port and packet["bytes"] > NO_DATA]
    print(sizes)
    _, request, *_ = sizes
    assert 200 < request < 300, "the end of the handshake, the first frames and the request"


@pytest.mark.parametrize("how", ["refused", "silent"])
def test_a_start_with_one_dead_endpoint_turns_green(lab, how):
    kill(lab, lab.servers.first, how)
    lab.start(within=2)


def test_both_silent_turns_yellow_then_red_then_alternates_until_they_are_back(lab):
    lab.link.set(rtt_ms=20)
    lab.start()
    time.sleep(1)  # the slower endpoint's connection is there too, and nothing is under way
    lab.link.reset()
    for endpoint in lab.servers.both:
        kill(lab, endpoint, "silent")
    yellow = lab.area.wait_for("yellow", CYCLE + LIMIT + 1)
    first_probe = next(packet["time"] for packet in lab.link.trace("up") if packet["bytes"] > 60)
    red = lab.area.wait_for("red", RETRY + LIMIT + 1, since=yellow.time)
    assert yellow.time - first_probe == pytest.approx(LIMIT, abs=TOLERANCE)
    assert red.time - first_probe <= LIMIT + RETRY + LIMIT + 0.5
    assert (yellow.word, red.word) == ("Checking…", "Offline")
    assert (yellow.lines[0], red.lines[0]) == ("Checking connection...", "No internet (hotspot without signal?)")
    again_yellow = lab.area.wait_for("yellow", OFFLINE_WAIT + LIMIT + 1, since=red.time)
    again_red = lab.area.wait_for("red", RETRY + LIMIT + 1, since=again_yellow.time)
    assert again_yellow.time - red.time == pytest.approx(OFFLINE_WAIT + LIMIT, abs=TOLERANCE)
    assert again_red.time - again_yellow.time == pytest.approx(RETRY + LIMIT, abs=TOLERANCE)
    for endpoint in lab.servers.both:
        lab.link.unmute(endpoint.address)
    green = lab.area.wait_for("green", OFFLINE_WAIT + 1, since=again_red.time)
    assert [colour for _, colour in lab.area.dots(again_red.time)] == ["red", "green"]
    assert green.time - again_red.time == pytest.approx(OFFLINE_WAIT, abs=TOLERANCE)


def test_both_refusing_alternates_by_the_retry_delays_alone(lab):
    lab.start()
    died = time.monotonic()
    for endpoint in lab.servers.both:
        endpoint.die()
    yellow = lab.area.wait_for("yellow", CYCLE + 1, since=died)
    sleep_until(yellow.time + 2 * (RETRY + OFFLINE_WAIT) + 0.2)
    changes = lab.area.dots(yellow.time)
    assert [colour for _, colour in changes] == ["yellow", "red", "yellow", "red", "yellow"]
    gaps = [later - earlier for (earlier, _), (later, _) in zip(changes, changes[1:])]
    assert gaps == pytest.approx([RETRY, OFFLINE_WAIT] * 2, abs=TOLERANCE)
    for endpoint in lab.servers.both:
        endpoint.set()
    lab.area.wait_for("green", RETRY + 1)


@pytest.mark.parametrize("how", ["goaway", "close", "reset"])
def test_a_kept_connection_that_the_servers_end_while_idle_costs_no_failure(lab, how):
    lab.start()
    ended = time.monotonic()
    for endpoint in lab.servers.both:
        endpoint.drop(how)
    time.sleep(CYCLE + 1)
    assert colours(lab, ended) == {"green"}
    assert lab.servers.requests(ended)


def test_a_connection_that_was_accepted_and_then_stalls_is_not_waited_for_again(lab):
    for endpoint in lab.servers.both:
        endpoint.set(accept="silent")
    begun = lab.start(until="yellow").time
    sleep_until(begun + LIMIT + 0.6 * RETRY)  # between the first failure and the confirming probe
    for endpoint in lab.servers.both:
        endpoint.set()
    lab.area.wait_for("green", RETRY + 1)
    assert "red" not in colours(lab, lab.program.started)
