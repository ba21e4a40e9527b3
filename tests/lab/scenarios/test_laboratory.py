"""The laboratory itself: what the other scenarios rest upon."""

import os
import signal
import statistics
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor

import network
import pytest
from lab import TRAFFIC
from support.processes import wait_until

URLS = [f"https://{name}/generate_204" for name in network.ENDPOINT_NAMES]


def ping(lab, count):
    """The one-way delays up and down in ms, of the datagrams that were not lost."""
    lines = lab.client_traffic("ping", lab.link.gateway, count).split("\n")
    return [tuple(map(float, line.split())) for line in lines if line not in ("", "lost")]


def curl(lab, *arguments):
    """What curl prints, or the number of its failure."""
    done = lab.network.client.run(["curl", "-sS", "-I", "-m", "3", "-o", "/dev/null", *arguments], check=False,
                                  capture_output=True, text=True)
    return done.returncode or done.stdout


def code(lab, url, *arguments):
    return curl(lab, "-w", "%{http_code} %{http_version}", *arguments, url)


@pytest.mark.alone
@pytest.mark.parametrize("rtt_ms", [0, 20, 150])
def test_the_link_delays_by_what_was_asked(lab, rtt_ms):
    lab.serve_traffic()
    lab.link.set(rtt_ms=rtt_ms)
    delays = ping(lab, 20)
    assert len(delays) == 20
    for one_way in zip(*delays):
        assert statistics.median(one_way) == pytest.approx(rtt_ms / 2, abs=0.2)


def test_the_link_loses_the_share_that_was_asked_and_the_same_packets_each_time(lab):
    lab.serve_traffic()
    lost = []
    for _ in range(2):
        lab.link.set(loss=0.2, way="up", seed=7)
        lost.append(50 - len(ping(lab, 50)))
    assert lost[0] == lost[1]
    assert 4 <= lost[0] <= 17


@pytest.mark.alone
def test_loss_delay_and_rate_are_each_ways_own(lab):
    lab.serve_traffic()
    lab.link.set(way="down", delay_ms=80, rate_kbit=2000)
    up, down = (statistics.median(one_way) for one_way in zip(*ping(lab, 10)))
    assert (up, down) == pytest.approx((0, 80), abs=0.5)
    assert int(lab.client_traffic("receive", lab.link.gateway, 2)) * 8 / 2 == pytest.approx(2e6, rel=0.15)
    assert int(lab.client_traffic("send", lab.link.gateway, 2)) * 8 / 2 > 20e6
    lab.link.set(way="up", loss=1)
    assert not ping(lab, 2)


@pytest.mark.alone
def test_jitter_spreads_the_delay_and_keeps_the_order(lab):
    lab.serve_traffic()
    lab.link.set(way="up", delay_ms=20, jitter_ms=60, seed=3)
    up, down = zip(*ping(lab, 40))
    assert 19 < min(up) < 30
    assert 70 < max(up) < 81
    assert max(down) < 2
    assert lab.client_traffic("burst", lab.link.gateway, 50).split() == [str(number) for number in range(50)]


def test_a_share_of_the_packets_overtakes_those_that_are_under_way(lab):
    lab.serve_traffic()
    lab.link.set(way="up", delay_ms=50, reorder=0.2, seed=3)
    order = [int(number) for number in lab.client_traffic("burst", lab.link.gateway, 50).split()]
    assert sorted(order) == list(range(50))
    overtaking = next(place for place, number in enumerate(order) if order[place + 1] < number) + 1
    assert 4 <= overtaking <= 17
    assert order[overtaking:] == sorted(order[overtaking:])


@pytest.mark.alone
def test_the_link_carries_the_rate_that_was_asked(lab):
    lab.serve_traffic()
    lab.link.set(rtt_ms=20, rate_kbit=5000)
    for verb in ("send", "receive"):
        received = int(lab.client_traffic(verb, lab.link.gateway, 3))
        assert received * 8 / 3 == pytest.approx(5e6, rel=0.1), verb


@pytest.mark.alone
def test_the_link_carries_300_megabits(lab):
    lab.serve_traffic()
    lab.link.set(rtt_ms=10, rate_kbit=350_000)
    assert int(lab.client_traffic("receive", lab.link.gateway, 3)) * 8 / 3 > 290e6


def test_the_link_counts_bytes_and_traces_packets(lab):
    lab.serve_traffic()
    lab.link.reset()
    ping(lab, 10)
    stats = lab.link.stats()
    datagram = 20 + 8 + 16
    assert stats["up"]["far"][lab.link.gateway] == {"packets": 10, "bytes": 10 * datagram}
    assert lab.link.bytes() == 20 * datagram
    assert [packet["bytes"] for packet in lab.link.trace("down")] == [datagram] * 10
    assert {packet["far_port"] for packet in lab.link.trace()} == {7}


def test_a_hole_swallows_everything_and_a_muted_address_only_its_own_packets(lab):
    lab.link.set(hole=True)
    assert [code(lab, url) for url in URLS] == [28, 28]
    lab.link.set(hole=False)
    lab.link.mute(network.ENDPOINT_ADDRESSES[0])
    assert [code(lab, url) for url in URLS] == [28, "204 2"]
    lab.link.unmute(network.ENDPOINT_ADDRESSES[0])
    assert code(lab, URLS[0]) == "204 2"


def test_the_endpoints_answer_204_over_http_2_and_http_1(lab):
    for endpoint, url in zip(lab.servers.both, URLS):
        assert code(lab, url) == "204 2"
        assert code(lab, url, "--http1.1") == "204 1.1"
        first, second = endpoint.requests()
        assert (first["method"], first["path"]) == ("HEAD", "/generate_204")
        assert first["connection"] != second["connection"]
        assert [connection["protocol"] for connection in endpoint.connections()] == ["h2", "http/1.1"]
        assert all(connection["address"] == lab.link.near for connection in endpoint.connections())


@pytest.mark.parametrize("status, headers", [(302, {"location": "https://portal.example/"}), (200, {}), (511, {})])
def test_an_endpoint_answers_as_it_is_told(lab, status, headers):
    lab.servers.first.set(status=status, headers=headers)
    assert code(lab, URLS[0]) == f"{status} 2"
    if status == 302:
        assert not lab.servers.portal.requests()
        assert code(lab, URLS[0], "--location") == "204 2"
        assert lab.servers.portal.requests()


@pytest.mark.parametrize("certificate", ["self-signed", "other-name", "expired"])
def test_a_wrong_certificate_is_not_accepted(lab, certificate):
    lab.servers.first.set(certificate=certificate)
    assert code(lab, URLS[0]) == 60
    assert not lab.servers.first.requests()


@pytest.mark.parametrize("behaviour, failures", [
    ({"accept": "refuse"}, [7]), ({"accept": "silent"}, [28]), ({"accept": "reset"}, [7, 35]), ({"answer": "never"}, [28]),
    ({"answer": "drip"}, [28]), ({"answer": "drip", "protocols": ["http/1.1"]}, [28]), ({"delay": 4}, [28]),
    ({"answer": "endless"}, [16, 56]), ({"answer": "endless", "protocols": ["http/1.1"]}, [56])])
def test_an_endpoint_misbehaves_as_it_is_told(lab, behaviour, failures):
    lab.servers.first.set(**behaviour)
    lab.link.reset()
    assert code(lab, URLS[0]) in failures
    if behaviour.get("answer") == "endless":
        assert lab.link.stats()["down"]["bytes"] > 64 * 1024
    lab.servers.first.set()
    assert code(lab, URLS[0]) == "204 2"


def look_up(lab, name, family="unspec"):
    """The addresses that the C library finds, or its reason why not, and after how many seconds."""
    began = time.monotonic()
    answer = lab.client_traffic("resolve", name, family).split()
    return answer, time.monotonic() - began


def test_the_name_server_gives_the_addresses_of_both_families(lab):
    lab.network.names_from_dns()
    for number, name in enumerate(network.ENDPOINT_NAMES):
        assert look_up(lab, name, "inet")[0] == [network.ENDPOINT_ADDRESSES[number]]
        assert look_up(lab, name, "inet6")[0] == [network.ENDPOINT_IPV6_ADDRESSES[number]]
    assert code(lab, URLS[0]) == "204 2"


@pytest.mark.parametrize("answer, reason", [("silent", "EAI_AGAIN"), ("servfail", "EAI_AGAIN"), ("refused", "EAI_AGAIN"),
                                            ("nxdomain", "EAI_NONAME"), ("empty", "EAI_NODATA")])
def test_a_name_server_misbehaves_as_it_is_told(lab, answer, reason):
    lab.network.names_from_dns("timeout:1 attempts:1")
    lab.servers.names.set(answer=answer)
    assert look_up(lab, network.ENDPOINT_NAMES[0])[0] == [reason]
    lab.servers.names.set()
    assert look_up(lab, network.ENDPOINT_NAMES[0], "inet")[0] == [network.ENDPOINT_ADDRESSES[0]]


def test_a_name_server_treats_names_and_families_apart(lab):
    first, second = network.ENDPOINT_NAMES
    lab.network.names_from_dns("timeout:1 attempts:1")
    lab.servers.names.set(name=first, family="AAAA", answer="silent")
    lab.servers.names.set(name=second, answer="nxdomain")
    assert look_up(lab, first, "inet")[0] == [network.ENDPOINT_ADDRESSES[0]]
    assert look_up(lab, first, "inet6")[0] == ["EAI_AGAIN"]
    assert look_up(lab, second)[0] == ["EAI_NONAME"]
    names = lab.servers.names
    assert [len(names.queries(name=first, family=family)) for family in ("A", "AAAA")] == [1, 1]
    assert names.queries(name=first, family="A")[0]["answered"]
    assert names.queries(name=first, family="AAAA")[0]["answered"] is None


def test_a_name_server_can_take_its_time_and_answers_others_meanwhile(lab):
    first, second = network.ENDPOINT_NAMES
    lab.network.names_from_dns()
    lab.servers.names.set(name=first, delay=2)
    with ThreadPoolExecutor() as pool:
        slow = pool.submit(look_up, lab, first)
        assert look_up(lab, second)[1] < 1.5
        assert 2 <= slow.result()[1] < 3.5
    asked = lab.servers.names.queries(name=first)
    assert [query["family"] for query in asked] == ["A", "AAAA"]
    assert all(2 <= query["answered"] - query["time"] < 2.5 for query in asked)


def test_a_dead_first_name_server_costs_the_c_librarys_timeout(lab):
    lab.network.names_from_dns(servers=network.DNS_ADDRESSES)
    lab.servers.names.set(server=network.DNS_ADDRESS, answer="silent")
    addresses, seconds = look_up(lab, network.ENDPOINT_NAMES[0], "inet")
    assert addresses == [network.ENDPOINT_ADDRESSES[0]]
    assert 5 <= seconds < 6.5
    assert [query["server"] for query in lab.servers.names.queries()] == network.DNS_ADDRESSES


@pytest.mark.parametrize("how", [{"truncated": True}, {"addresses": [f"203.0.113.{number}" for number in range(1, 201)]}])
def test_an_answer_that_is_cut_off_over_udp_is_whole_over_tcp(lab, how):
    lab.network.names_from_dns()
    lab.servers.names.set(name=network.ENDPOINT_NAMES[0], **how)
    addresses, _ = look_up(lab, network.ENDPOINT_NAMES[0], "inet")
    assert sorted(addresses) == sorted(how.get("addresses", network.ENDPOINT_ADDRESSES[:1]))
    # the C library asks again with more room when an answer is larger than it thought
    assert [query["over"] for query in lab.servers.names.queries()][:2] == ["udp", "tcp"]


def test_a_name_server_gives_wrong_addresses_when_told(lab):
    lab.network.names_from_dns()
    lab.servers.names.set(name=network.ENDPOINT_NAMES[0], addresses=[network.PORTAL_ADDRESS])
    assert code(lab, URLS[0]) == 60


@pytest.mark.parametrize("dead, alive", [(network.IPV4_ADDRESSES, "-6"), (network.IPV6_ADDRESSES, "-4")])
def test_either_family_of_a_dual_stack_can_be_dead(lab, dead, alive):
    lab.network.add_ipv6()
    assert [code(lab, URLS[0], family) for family in ("-4", "-6")] == ["204 2", "204 2"]
    lab.link.mute(*dead)
    assert {family: code(lab, URLS[0], family) for family in ("-4", "-6")} == {
        "-4": 28, "-6": 28, alive: "204 2"}


def test_without_ipv4_everything_goes_over_ipv6(lab):
    lab.network.add_ipv6()
    lab.network.remove_ipv4()
    assert code(lab, URLS[0], "-4") == 7
    assert code(lab, URLS[0]) == "204 2"
    assert lab.servers.first.connections()[-1]["to"] == network.ENDPOINT_IPV6_ADDRESSES[0]
    assert {query["server"] for query in lab.servers.names.queries()} == {network.DNS_IPV6_ADDRESS}


@pytest.mark.parametrize("how", ["goaway", "close"])
def test_an_endpoint_ends_the_connection_after_each_answer_when_told(lab, how):
    lab.servers.first.set(afterwards=how)
    assert code(lab, URLS[0]) == "204 2"
    connection, = lab.servers.first.connections()
    assert connection["ended"] - lab.servers.first.requests()[0]["answered"] < 0.5


@pytest.mark.parametrize("how, failure", [("drop", 28), ("reset", 7)])
def test_a_gate_stops_new_connections_and_lets_those_pass_that_are_open(lab, how, failure):
    lab.serve_traffic()
    lab.link.set(rate_kbit=50_000)
    with lab.network.client.popen([sys.executable, TRAFFIC, "receive", lab.link.gateway, "5"],
                                  stdout=subprocess.PIPE, text=True) as kept:
        wait_until(lambda: lab.link.stats()["down"]["bytes"] > 1_000_000, 3, "bytes")
        lab.link.gate(how)
        assert code(lab, URLS[0]) == failure
        assert kept.poll() is None
        before = lab.link.stats()["down"]["bytes"]
        wait_until(lambda: lab.link.stats()["down"]["bytes"] > before + 1_000_000, 3, "more of what is open")
    lab.link.gate("off")
    assert code(lab, URLS[0]) == "204 2"


def test_a_gate_refuses_over_ipv6_too(lab):
    lab.network.add_dead_ipv6()
    lab.link.gate("reset")
    assert code(lab, URLS[0], "-6") == 7


@pytest.mark.parametrize("where", ["far", "here"])
@pytest.mark.parametrize("scheme, named", [("http", True), ("socks4", False), ("socks4a", True), ("socks5", False),
                                           ("socks5h", True)])
def test_a_proxy_carries_and_tells_what_it_was_asked_for(lab, scheme, named, where):
    proxy = lab.serve_proxy(where)
    assert code(lab, URLS[0], "--proxy", proxy.url(scheme)) == "204 2"
    [client] = proxy.clients()
    assert client["kind"] == scheme.removesuffix("h")
    assert client["named"] == named
    assert (client["host"], client["port"]) == (network.ENDPOINT_NAMES[0] if named else network.ENDPOINT_ADDRESSES[0], 443)


@pytest.mark.parametrize("scheme", ["http", "socks5h"])
@pytest.mark.parametrize("mode, failures", [(("dead",), [7]), (("silent",), [28]), (("slow", 4), [28]), (("refuse",), [56, 97])])
def test_a_proxy_misbehaves_as_it_is_told_and_recovers(lab, scheme, mode, failures):
    proxy = lab.serve_proxy()
    proxy.set(*mode)
    assert code(lab, URLS[0], "--proxy", proxy.url(scheme)) in failures
    proxy.set("work")
    assert code(lab, URLS[0], "--proxy", proxy.url(scheme)) == "204 2"


def test_a_second_link_has_an_address_of_its_own(lab):
    usb0 = lab.network.add_usb0()
    usb0.add_default_route(metric=50)
    assert code(lab, URLS[0]) == "204 2"
    assert lab.servers.first.connections()[-1]["address"] == usb0.near


@pytest.mark.alone
def test_the_stall_meter_sees_a_program_that_stands_still(lab):
    lab.start()
    with lab.stalls() as stalls:
        time.sleep(0.5)
        os.kill(lab.program.pid, signal.SIGSTOP)
        time.sleep(0.3)
        os.kill(lab.program.pid, signal.SIGCONT)
        time.sleep(0.5)
    assert 0.25 < max(stalls) < 0.35
    assert sorted(stalls)[len(stalls) // 2] < 0.01
