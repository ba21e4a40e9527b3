"""The response time, its word and its colour follow the link and the servers."""

import time

import pytest
from lab import sleep_until

# what the program and the lab's servers may add to the link's round trip
OWN_TIME_MS = 10
CYCLE = 5


def warm_state(lab, rtt_ms, server_ms=0):
    """What is shown once an answer came over a connection that was there already."""
    lab.link.set(rtt_ms=rtt_ms)
    lab.program.start()
    first = lab.area.wait_for(lambda state: state.milliseconds, 6)
    sleep_until(first.time + CYCLE + (rtt_ms + server_ms) / 1000 + 0.5)
    return lab.area.now


@pytest.mark.parametrize("rtt_ms, colour, word", [
    (20, "green", "Quick response"), (200, "green", "Moderate delay"), (600, "yellow", "High delay")])
def test_the_number_is_the_round_trip_time_of_the_link(lab, rtt_ms, colour, word):
    state = warm_state(lab, rtt_ms)
    assert (state.dot, state.word) == (colour, word)
    assert rtt_ms <= state.milliseconds <= rtt_ms + OWN_TIME_MS
    assert state.lines[0] == f"Online — {state.milliseconds:.0f} ms ({word})"


def test_a_server_that_takes_its_time_counts_as_delay(lab):
    for endpoint in lab.servers.both:
        endpoint.set(delay=1.2)
    state = warm_state(lab, 20, server_ms=1200)
    assert (state.dot, state.word, state.milliseconds) == ("yellow", "Very high delay", 1200)
    assert state.lines[0].startswith("Online — 12")


def test_a_link_on_which_no_new_connection_answers_in_time_is_slow_and_not_offline(lab):
    lab.link.set(rtt_ms=1200)
    lab.program.start()
    state = lab.area.wait_for(lambda state: state.word == "Very high delay", 12)
    assert state.dot == "yellow"
    time.sleep(15)
    assert {state.dot for state in lab.area.since(state.time)} == {"yellow"}
    assert all(1200 <= state.milliseconds <= 1300 for state in lab.area.since(state.time))
