"""What stands between the program and its servers on a hotspot, and what its user sees of it."""

import time

import network
import pytest
from hostility import OVER_WITHIN
from lab import sleep_until

CYCLE, LIMIT, RETRY, SLACK = 5, 3, 0.5, 1
RED_WITHIN = CYCLE + LIMIT + RETRY + LIMIT + 2 * SLACK
OBSERVED = 260  # each connection is renewed meanwhile
UNUSED_ADDRESSES = ["198.51.100.90", "203.0.113.90"]


def have_silent_addresses_in_front(lab):
    for endpoint, unused in zip(lab.servers.both, UNUSED_ADDRESSES):
        lab.servers.names.set(name=endpoint.name, addresses=[unused, endpoint.address])
    lab.link.mute(*UNUSED_ADDRESSES)


def lose_large_packets_of_ipv6(lab):
    """As in a tunnel whose routers tell nobody what is too large: connections open, and no certificate arrives."""
    lab.network.add_ipv6()
    lab.link.drop_larger_than(500, *network.ENDPOINT_IPV6_ADDRESSES)


def have_connections_cut_after_some_bytes(lab):
    lab.link.translate("reset", most_bytes=5000)


def have_search_domains(lab):
    lines = ["search a.example b.example corp.example", f"nameserver {network.DNS_ADDRESS}", "options ndots:5"]
    (lab.network.client.etc / "resolv.conf").write_text("\n".join(lines) + "\n")


def have_used_up_the_data_volume(lab):
    lab.link.set(rate_kbit=32, queue_ms=2000)


CASES = (have_silent_addresses_in_front, lose_large_packets_of_ipv6, have_connections_cut_after_some_bytes, have_search_domains,
         have_used_up_the_data_volume)


@pytest.fixture(scope="module")
def watched(labs):
    """A lab for each case, watched at the same time."""
    cases = {case: labs() for case in CASES}
    for prepare, lab in cases.items():
        lab.link.set(rtt_ms=40)
        lab.network.names_from_dns()
        prepare(lab)
        lab.program.start()
    sleep_until(time.monotonic() + OBSERVED)
    return cases


@pytest.mark.parametrize("case", CASES, ids=lambda case: case.__name__)
def test_where_there_is_a_way_through_the_dot_is_green_and_stays_green(watched, case):
    area, started = watched[case].area, watched[case].program.started
    green = area.wait_for("green", LIMIT + RETRY + LIMIT + CYCLE + SLACK, since=started)
    dots = area.dots(green.time)
    print(f"green after {green.time - started:.1f} s, then {[(round(when - started), colour) for when, colour in dots]}")
    assert "red" not in {colour for _, colour in area.dots(started)}
    assert [colour for _, colour in dots] == ["green"]


def be_a_box_that_accepts_everything_itself(lab):
    lab.link.gate("accept")


def be_a_router_without_an_uplink(lab):
    """It answers each packet with "network unreachable"."""
    server = lab.network.server
    server.run(["sysctl", "-qw", "net.ipv4.ip_forward=1", "net.ipv4.icmp_ratelimit=0"])
    for address in network.IPV4_ADDRESSES:
        server.ip(f"address delete {address}/32 dev lo")
    server.ip("route add unreachable default")


def be_well(lab):
    lab.link.gate("off")
    server = lab.network.server
    server.run(["ip", "route", "flush", "type", "unreachable"])
    for address in network.IPV4_ADDRESSES:
        server.ip(f"address replace {address}/32 dev lo")


@pytest.mark.parametrize("fail", [be_a_box_that_accepts_everything_itself, be_a_router_without_an_uplink],
                         ids=lambda fail: fail.__name__)
def test_where_nothing_gets_through_it_is_red_whatever_answers(lab, fail):
    lab.network.names_from_dns()
    lab.link.set(rtt_ms=20)
    lab.start()
    failed = time.monotonic()
    fail(lab)
    lab.area.wait_for("red", RED_WITHIN, since=failed)
    time.sleep(2 * CYCLE)
    assert "green" not in {colour for _, colour in lab.area.dots(failed)[1:]}
    be_well(lab)
    lab.area.wait_for("green", OVER_WITHIN)


@pytest.mark.parametrize("how", ["drop", "reset"])
def test_a_nat_that_forgets_all_connections_is_never_red(lab, how):
    lab.link.set(rtt_ms=20)
    lab.link.translate(how)
    lab.start()
    forgot = time.monotonic()
    lab.link.forget_connections()
    time.sleep(CYCLE + LIMIT + RETRY + SLACK)
    lab.area.wait_for("green", CYCLE + SLACK)
    assert "red" not in {colour for _, colour in lab.area.dots(forgot)}


def test_a_nat_that_forgets_during_a_pause_is_left_behind_by_the_confirming_check(lab):
    lab.link.set(rtt_ms=20)
    lab.link.translate("drop", idle=10)
    lab.start()
    lab.area.click("Pause Automatic Checks")
    time.sleep(12)
    resumed = time.monotonic()
    lab.area.click("Pause Automatic Checks")
    lab.area.wait_for("green", LIMIT + RETRY + 2 * SLACK, since=resumed)
