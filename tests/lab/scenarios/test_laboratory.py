"""The laboratory itself: what the other scenarios rest upon."""

import os
import signal
import statistics
import time

import network
import pytest

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


def test_the_link_carries_the_rate_that_was_asked(lab):
    lab.serve_traffic()
    lab.link.set(rtt_ms=20, rate_kbit=5000)
    for verb in ("send", "receive"):
        received = int(lab.client_traffic(verb, lab.link.gateway, 3))
        assert received * 8 / 3 == pytest.approx(5e6, rel=0.1), verb


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
    ({"answer": "endless"}, [56]), ({"answer": "endless", "protocols": ["http/1.1"]}, [56])])
def test_an_endpoint_misbehaves_as_it_is_told(lab, behaviour, failures):
    lab.servers.first.set(**behaviour)
    lab.link.reset()
    assert code(lab, URLS[0]) in failures
    if behaviour.get("answer") == "endless":
        assert lab.link.stats()["down"]["bytes"] > 64 * 1024
    lab.servers.first.set()
    assert code(lab, URLS[0]) == "204 2"


def test_the_name_server_answers_and_swallows(lab):
    lab.network.names_from_dns()
    assert code(lab, URLS[0]) == "204 2"
    lab.servers.answer_dns(False)
    assert code(lab, URLS[0]) == 28


def test_a_second_link_has_an_address_of_its_own(lab):
    usb0 = lab.network.add_usb0()
    usb0.add_default_route(metric=50)
    assert code(lab, URLS[0]) == "204 2"
    assert lab.servers.first.connections()[-1]["address"] == usb0.near


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
