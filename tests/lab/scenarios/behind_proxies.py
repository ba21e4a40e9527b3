"""What the scenarios with proxies share."""

import time

from network import SPEEDTEST_ADDRESS
from support.processes import BARE_ENVIRONMENT, wait_until

LIMIT, RETRY, CYCLE, OFFLINE_WAIT = 3, 0.5, 5, 3
SLACK = 1
RECOVERED_WITHIN = 8
# whether the proxy is given the name, or an address that was looked up here
NAMED = {"http": True, "socks4": False, "socks4a": True, "socks5": False, "socks5h": True}
RUN = "Run Speed Test"
PHASE = 4.0


def use(lab, scheme, where="far", variable="https_proxy"):
    """The program's proxy, from its start."""
    proxy = lab.serve_proxy(where)
    lab.program.environment[variable] = proxy.url(scheme)
    return proxy


def notice(lab, proxy, mode):
    """Makes the proxy so while the dot is green, and waits for red."""
    begun = time.monotonic()
    proxy.set(*mode)
    if mode[0] in ("slow", "refuse"):
        proxy.drop()
    lab.area.click("Check Connection Now")
    yellow = lab.area.wait_for(lambda state: state.lines[:1] == ("Checking connection...",), 1, since=begun)
    red = lab.area.wait_for("red", LIMIT + RETRY + LIMIT + SLACK, since=yellow.time)
    print(f"{mode}: red after {red.time - begun:.1f} s")
    return red


def recover(lab, proxy):
    ended = time.monotonic()
    proxy.set("work")
    answer = lab.area.wait_for(lambda state: state.milliseconds, RECOVERED_WITHIN, since=ended)
    print(f"answer after {answer.time - ended:.1f} s")
    lab.area.wait_for("green", CYCLE + SLACK, since=answer.time)  # the first answer holds handshakes, slow on a busy machine
    assert lab.program.running


def check_far_away(lab, scheme):
    """A new connection takes the proxy's round trips too: no first answer comes within a probe's limit."""
    use(lab, scheme)
    lab.link.set(rtt_ms=1200)
    lab.program.start()
    first = lab.area.wait_for(lambda state: state.word == "Very high delay", 25)
    time.sleep(14)
    assert lab.program.running
    assert {state.dot for state in lab.area.since(first.time)} == {"yellow"}
    assert 1200 <= lab.area.now.milliseconds <= 1350, "over the connection that is kept by then"


def through(proxy, scheme):
    """Options with which a program is run behind the proxy."""
    return {"env": BARE_ENVIRONMENT | {"all_proxy": proxy.url(scheme)}}


def spans(result):
    """How long both phases of a speed test took."""
    return [result[way]["ended"] - result[way]["began"] for way in ("down", "up")]


def check_speed_test(lab, scheme):
    """A test through a proxy that works has both figures and ends at its deadline."""
    speed, proxy = lab.serve_speed_test(), lab.serve_proxy()
    lab.link.set(rtt_ms=20, rate_kbit=20_000)
    result = lab.run_speed_test(2, **through(proxy, scheme))
    assert {client["kind"] for client in proxy.clients()} == {scheme.removesuffix("h")}
    for way in ("down", "up"):
        assert 10 < result[way]["result"] < 20
    assert max(spans(result)) < 2.5
    late = [packet for packet in lab.link.trace()
            if packet["far"] == proxy.address and packet["time"] > result["up"]["ended"] + 0.5]
    assert not late, "what is cut off is off the wire"
    assert all(request["over"] for request in speed.requests())
    assert all(client["ended"] for client in proxy.clients())


def check_unanswered_speed_test(lab, scheme, mode):
    """Both phases fail, at their deadlines at the latest."""
    lab.serve_speed_test()
    proxy = lab.serve_proxy()
    proxy.set(*mode)
    result = lab.run_speed_test(1, **through(proxy, scheme))
    assert [result[way]["result"] for way in ("down", "up")] == [None, None]
    assert max(spans(result)) < 1.5
    assert mode[0] == "dead" or len(proxy.clients()) == 2


def check_far_away_speed_test(lab, scheme):
    """The proxy is seconds away, so that the deadline falls into the dialogue with it."""
    lab.serve_speed_test()
    proxy = lab.serve_proxy()
    lab.link.set(rtt_ms=1200)
    result = lab.run_speed_test(3, **through(proxy, scheme))
    assert max(spans(result)) < 4
    assert proxy.clients()


def fall_asleep(lab):
    lab.logind.prepare_for_sleep(True)


def quit_the_program(lab):
    lab.area.click("Quit")


def check_cancel(lab, scheme, mode, end):
    """A test whose proxy says nothing is cancelled at once."""
    lab.logind = lab.logind()
    lab.serve_speed_test()
    proxy = use(lab, scheme)
    lab.start(within=3)
    proxy.set(*mode)
    clicked = time.monotonic()
    lab.area.click(RUN)
    wait_until(lambda: proxy.clients(clicked), 2, "the test has asked the proxy")
    time.sleep(0.5)
    end(lab)
    cancelled = time.monotonic()
    if end is quit_the_program:
        assert lab.program.wait(1) == 0
        return
    lab.area.wait_for(lambda state: any("Cancelled" in entry.title for entry in state.menu), 1, since=cancelled)
    time.sleep(2)
    assert lab.program.running
    assert not [client for client in proxy.clients(cancelled + 0.2)], "nobody asks while the machine sleeps"


def check_upload_from_here(lab, scheme):
    """A proxy on this machine acknowledges what it has only buffered; what is shown is no more than has left the machine."""
    lab.serve_speed_test()
    use(lab, scheme, "here")
    lab.link.set(rtt_ms=40, rate_kbit=20_000)
    lab.start(within=3)
    lab.link.reset()
    clicked = time.monotonic()
    lab.area.click(RUN)
    result = lab.area.wait_for(lambda state: "Mbps" in state.label or "failed" in state.label, 15, since=clicked + PHASE)
    shown = float(result.label.split("↑")[1].split()[0])
    left = sum(packet["bytes"] for packet in lab.link.trace("up")
               if packet["far"] == SPEEDTEST_ADDRESS and result.time - PHASE - 0.1 <= packet["time"] <= result.time)
    print(f"shown {shown} Mbit/s; {left * 8e-6 / PHASE:.1f} Mbit/s left the machine")
    assert shown <= left * 8e-6 / PHASE + 0.05
    assert shown > 10
