"""New connections are stopped while those that are open pass. What becomes of a dot that could stay green on kept connections
alone takes minutes to see: test_fresh_proof.py."""

import time

import pytest

LIMIT, RETRY = 3, 0.5
SLACK = 1
OVER_WITHIN = 8


def check_now(lab):
    lab.area.click("Check Connection Now")
    return time.monotonic()


@pytest.mark.parametrize("how", ["drop", "reset"])
def test_connections_that_are_lost_behind_a_closed_gate_are_missed_and_found_again_when_it_opens(lab, how):
    lab.link.set(rtt_ms=20)
    lab.start()
    time.sleep(1)  # the slower endpoint's connection is there too
    lab.link.gate(how)
    asked = check_now(lab)
    lab.area.wait_for(lambda state: state.milliseconds and state.milliseconds < 40 and state.time > asked, 2)
    time.sleep(0.5)
    for endpoint in lab.servers.both:
        endpoint.drop("reset")
    lost = check_now(lab)
    red = lab.area.wait_for("red", LIMIT + RETRY + LIMIT + SLACK, since=lost)
    print(f"red after {red.time - lost:.1f} s")
    time.sleep(4)  # another probe
    assert "green" not in {state.dot for state in lab.area.since(red.time)}
    opened = time.monotonic()
    lab.link.gate("off")
    green = lab.area.wait_for("green", OVER_WITHIN, since=opened)
    print(f"green after {green.time - opened:.1f} s")


def test_a_start_behind_a_closed_gate_is_red_until_it_opens(lab):
    lab.link.gate("drop")
    lab.start(until="red", within=LIMIT + RETRY + LIMIT + SLACK)
    lab.link.gate("off")
    lab.area.wait_for("green", OVER_WITHIN)
