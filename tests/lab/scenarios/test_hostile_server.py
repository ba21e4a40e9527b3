"""Servers that want to be remembered, to be listened to for ever, or to fill the memory."""

import time

import pytest

LIMIT = 3


def test_no_cookie_is_ever_sent_back(lab):
    for endpoint in lab.servers.both:
        endpoint.set(headers={"set-cookie": "visitor=1; Path=/; Secure"})
    lab.start()
    time.sleep(6)
    requests = lab.servers.requests()
    assert len(requests) >= 3
    names = {name.lower() for request in requests for name, _ in request["headers"]}
    assert "cookie" not in names


@pytest.mark.parametrize("protocol", ["h2", "http/1.1"])
@pytest.mark.parametrize("flood", [{"padding": 70_000}, {"answer": "endless"}], ids=["large", "endless"])
def test_a_flood_of_headers_is_a_failure_and_takes_no_memory(lab, flood, protocol):
    lab.start()
    before = lab.program.anonymous_kb()
    for endpoint in lab.servers.both:
        endpoint.set(protocols=[protocol], **flood)
        endpoint.drop("close")
    lab.area.wait_for("red", 5 + LIMIT + 0.5 + LIMIT + 0.5)
    time.sleep(8)
    assert "green" not in [colour for _, colour in lab.area.dots(time.monotonic() - 8)]
    if lab.program.sanitized:
        pytest.skip("it failed as it should; the sanitizer's memory hides whether the program's has grown")
    grown = lab.program.anonymous_kb() - before
    print(f"grown by {grown} KB")
    assert grown < 2048


@pytest.mark.parametrize("protocol", ["h2", "http/1.1"])
def test_an_answer_that_drips_is_given_up_after_three_seconds(lab, protocol):
    for endpoint in lab.servers.both:
        endpoint.set(protocols=[protocol])
    lab.start()
    time.sleep(1)  # the slower endpoint has been asked too
    dripping = time.monotonic()
    for endpoint in lab.servers.both:
        endpoint.set(protocols=[protocol], answer="drip")
    yellow = lab.area.wait_for("yellow", 5 + LIMIT + 1)
    asked = lab.servers.requests(dripping)[0]["time"]
    print(f"given up after {yellow.time - asked:.3f} s")
    assert yellow.time - asked == pytest.approx(LIMIT, abs=0.05)
