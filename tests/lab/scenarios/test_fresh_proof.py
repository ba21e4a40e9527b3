"""A connection that is kept proves nothing about new ones: the dot must not stay green on the strength of old connections
alone, nor may the renewals be seen or cost much. These take five minutes each."""

import statistics
import time
from collections import Counter

import network
import pytest
from lab import sleep_until

NOTICED_WITHIN = 300
OVER_WITHIN = 8
RENEWED_WITHIN = 240
MOST_BYTES_AN_HOUR = 75_000  # 2.3 kB each: a name, a resumed handshake, one question and answer
SYN, ACK = 0x02, 0x10


def stop_by_gate(how):
    return lambda lab: lab.link.gate(how)


def stop_the_resolver(lab):
    lab.servers.answer_dns(False)


def stop_by_portal(lab):
    """As a captive portal whose session has ended: old connections pass, new ones are answered by the portal itself."""
    for endpoint in lab.servers.both:
        endpoint.set(certificate="self-signed")


def be_well(lab):
    lab.link.gate("off")
    lab.servers.answer_dns(True)
    for endpoint in lab.servers.both:
        endpoint.set()


@pytest.mark.parametrize("stop", [
    pytest.param(stop_by_gate("drop"), id="swallowed"), pytest.param(stop_by_gate("reset"), id="refused"),
    pytest.param(stop_the_resolver, id="no-names"), pytest.param(stop_by_portal, id="portal")])
def test_kept_connections_do_not_hide_for_long_that_there_are_no_new_ones(lab, stop):
    lab.network.names_from_dns()
    lab.link.set(rtt_ms=20)
    lab.start()
    time.sleep(11)
    kept = {record["id"] for endpoint in lab.servers.both for record in endpoint.connections() if not record["ended"]}
    begun = time.monotonic()
    stop(lab)
    yellow = lab.area.wait_for("yellow", NOTICED_WITHIN, since=begun)
    red = lab.area.wait_for("red", NOTICED_WITHIN, since=begun)
    answered = [request for request in lab.servers.requests(begun) if request["answered"]]
    print(f"yellow after {yellow.time - begun:.1f} s, red after {red.time - begun:.1f} s; "
          f"{len(answered)} answers, the last after {max((r['answered'] for r in answered), default=begun) - begun:.1f} s")
    assert [colour for _, colour in lab.area.dots(begun)][:3] == ["green", "yellow", "red"]
    assert answered and {request["connection"] for request in answered} <= kept, "only old connections had passed"
    time.sleep(20)
    assert "green" not in {state.dot for state in lab.area.since(red.time)}
    ended = time.monotonic()
    be_well(lab)
    green = lab.area.wait_for("green", OVER_WITHIN, since=ended)
    print(f"green after {green.time - ended:.1f} s")
    time.sleep(12)
    assert {state.dot for state in lab.area.since(green.time)} == {"green"}


def openings(lab, endpoint):
    """The link's SYNs to this endpoint: [(when, port)]."""
    return [(packet["time"], packet["near_port"]) for packet in lab.link.trace("up")
            if packet["far"] == endpoint.address and packet["flags"] & (SYN | ACK) == SYN]


def cost(lab, opened, port, old_ports):
    """IP bytes that one renewal put on the link: names, handshake and one answer, and the old connection's end."""
    asked, done = opened - 1, opened + 4
    return sum(packet["bytes"] for packet in lab.link.trace() if asked <= packet["time"] <= done
               and (packet["far"] == network.DNS_ADDRESS or packet["near_port"] == port
                    or packet["near_port"] in old_ports and packet["flags"] & 0x05))


def test_connections_are_renewed_in_turn_unseen_and_at_little_cost(lab):
    rtt_ms = 200
    lab.network.names_from_dns()
    lab.link.set(rtt_ms=rtt_ms)
    lab.start()
    time.sleep(11)
    watched = time.monotonic()
    lab.link.reset()
    began = lab.program.started
    sleep_until(watched + NOTICED_WITHIN)
    ended = time.monotonic()
    assert {state.dot for state in lab.area.since(watched)} == {"green"}
    shown = [state.milliseconds for state in lab.area.since(watched) if state.milliseconds]
    print(f"shown: {min(shown):.0f} to {max(shown):.0f} ms")
    assert rtt_ms <= min(shown) and max(shown) < 1.5 * rtt_ms, "a handshake would add a round trip at least"
    renewals = []
    for endpoint in lab.servers.both:
        connections = endpoint.connections(began)
        times = [record["time"] for record in connections]
        gaps = [later - earlier for earlier, later in zip(times, [*times[1:], ended])]
        print(endpoint.name, "connections at", [f"{moment - began:.1f}" for moment in times], "resumed",
              [record["resumed"] for record in connections], "ended",
              [record["ended"] and f"{record['ended'] - began:.1f}" for record in connections])
        assert max(gaps) <= RENEWED_WITHIN, "replaced at least every four minutes"
        assert len([record for record in connections if not record["ended"]]) == 1, "one is kept"
        for old, new in zip(connections, connections[1:]):
            assert old["ended"] and old["ended"] - new["time"] < 30, "the old one goes when the new one has come"
        asked = [packet["time"] for packet in lab.link.trace("up") if packet["far"] == network.DNS_ADDRESS]
        opened = openings(lab, endpoint)
        ports = {port for _, port in opened} | {record["port"] for record in connections}
        assert opened
        for moment, port in opened:
            assert any(moment - 5 < question <= moment for question in asked), "its name is looked up anew"
            renewals.append((moment, endpoint.name, cost(lab, moment, port, ports - {port})))
    renewals.sort()
    for (earlier, one, _), (later, other, _) in zip(renewals, renewals[1:]):
        assert later - earlier > 10 and one != other, "in turn, not at the same moment"
    prices = [price for *_, price in renewals]
    interval = (renewals[-1][0] - renewals[0][0]) / (len(renewals) - 1)
    an_hour = statistics.mean(prices) * 3600 / interval
    requests = Counter(request["endpoint"] for request in lab.servers.requests(watched))
    print(f"renewals of {prices} bytes each {interval:.0f} s, {an_hour:.0f} bytes an hour; "
          f"{lab.link.bytes()} bytes in all, {dict(requests)} requests")
    assert an_hour <= MOST_BYTES_AN_HOUR


def test_servers_that_take_one_connection_at_a_time_are_not_asked_ever_more_often(lab):
    lab.link.set(rtt_ms=20)
    for endpoint in lab.servers.both:
        endpoint.set(accept="one")
    green = lab.start()
    sleep_until(lab.program.started + 140)  # each endpoint has refused a renewal
    watched = time.monotonic()
    time.sleep(60)
    assert {state.dot for state in lab.area.since(green.time)} == {"green"}
    connections = [record for endpoint in lab.servers.both for record in endpoint.connections(watched)]
    print(f"{len(connections)} new connections in a minute")
    assert len(connections) <= 4
