"""The speed test's transfers, without the window: what they count is what moved, and what is cut off is off the wire."""

import json
import statistics
import subprocess

import network
import pytest
import settings
from lab import bytes_at
from support.processes import BARE_ENVIRONMENT, wait_until

QUIET_AFTER = 0.3  # seconds from a cut-off


def agreement(lab, speed, result, way, rtt_ms):
    """What the test counted, relative to what the server did over the same time. The server learns half a round trip later
    what the client has got (down), and the client half a round trip later what the server has got (up)."""
    [request] = [request for request in speed.requests() if request["method"] == {"down": "GET", "up": "POST"}[way]]
    moment = result[way]["ended"] + {"down": 1, "up": -1}[way] * rtt_ms / 2000
    return result[way]["bytes"] / bytes_at(request["series"], moment)


# with the program itself, and at more rates: test_speedtest_window.py
@pytest.mark.parametrize("mbit,rtt_ms", [(20, 60), (300, 20)])
def test_both_results_are_the_bytes_that_the_server_counted(lab, mbit, rtt_ms):
    speed = lab.serve_speed_test()
    lab.link.set(rtt_ms=rtt_ms, rate_kbit=mbit * 1000)
    result = lab.run_speed_test()
    assert agreement(lab, speed, result, "down", rtt_ms) == pytest.approx(1, abs=0.02)
    assert agreement(lab, speed, result, "up", rtt_ms) == pytest.approx(1, abs=0.03)
    for phase in (result["down"], result["up"]):
        assert phase["result"] == pytest.approx(phase["bytes"] * 8e-6 / (phase["ended"] - phase["began"]), rel=0.005)
        assert 0.5 * mbit < phase["result"] < mbit, "no more than the link carries, and no less than a slow start leaves of it"


def test_a_slow_upload_is_smooth_and_never_ahead_of_the_network(lab):
    speed = lab.serve_speed_test()
    lab.link.set(rtt_ms=20, rate_kbit=2000)
    result = lab.run_speed_test()
    series = [(moment, count) for moment, count in result["up"]["series"] if moment > result["up"]["began"] + 1]
    rates = [(later[1] - earlier[1]) * 8e-6 / (later[0] - earlier[0]) for earlier, later in zip(series, series[25:])]
    assert max(rates) < 2.3 and statistics.median(rates) > 1.7, "Mbit/s over half a second"
    assert agreement(lab, speed, result, "up", 20) == pytest.approx(1, abs=0.03)


@pytest.mark.parametrize("mbit", [2, 20])
def test_what_the_deadline_cut_off_is_soon_off_the_wire(lab, mbit):
    speed = lab.serve_speed_test()
    lab.link.set(rtt_ms=60, rate_kbit=mbit * 1000)
    result = lab.run_speed_test(1)
    packets = [packet for packet in lab.link.trace() if packet["far"] == network.SPEEDTEST_ADDRESS]
    for way, until in (("down", result["up"]["began"]), ("up", float("inf"))):
        ended = result[way]["ended"]
        assert any(packet["time"] < ended for packet in packets)
        late = [packet for packet in packets if ended + QUIET_AFTER < packet["time"] < until]
        assert not late, f"after the {way}load: {late[:5]}"
    assert speed.connections() == 2, "a cut-off connection carries nothing more"


def test_a_download_that_came_whole_leaves_its_connection_to_the_upload(lab):
    speed = lab.serve_speed_test()
    result = lab.run_speed_test()
    assert result["down"]["bytes"] == 40_000_000
    assert result["up"]["bytes"] == 20_000_000
    assert speed.connections() == 1


def test_dead_names_fail_both_phases_and_nobody_waits_for_them(lab):
    lab.network.names_from_dns("timeout:30 attempts:1")
    lab.servers.answer_dns(False)
    result = lab.run_speed_test(1)
    for way in ("down", "up"):
        assert result[way]["result"] is None
        assert 0.9 < result[way]["ended"] - result[way]["began"] < 1.2


def test_a_black_hole_in_mid_transfer_is_cut_off_like_any_other(lab):
    speed = lab.serve_speed_test()
    speed.set("down", rate=500_000)
    with subprocess.Popen(lab.network.client.inside([settings.SPEEDTEST, "2"]), stdout=subprocess.PIPE, text=True,
                          stderr=subprocess.DEVNULL, env=BARE_ENVIRONMENT) as driver:
        wait_until(lambda: any(count > 300_000 for request in speed.requests() for _, count in request["series"]), 2, "bytes")
        lab.link.set(hole=True)
        result = json.loads(driver.communicate()[0])
    assert result["down"]["result"] > 1, "what had come counts, over the whole time"
    assert result["down"]["ended"] - result["down"]["began"] == pytest.approx(2, abs=0.1)
    assert result["up"]["result"] is None
    assert result["up"]["ended"] - result["up"]["began"] == pytest.approx(2, abs=0.1)
