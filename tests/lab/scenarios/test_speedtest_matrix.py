"""What the speed test counts and what its server counts, over many links. Takes minutes: only with the label `long`."""

import pytest
from agreement import assert_agreement


def run(lab, what, rtt_ms, **link):
    speed = lab.serve_speed_test()
    lab.link.set(rtt_ms=rtt_ms, **link)
    if what == "small buffers":
        speed.limit_receive_buffers(32 * 1024)
    result = lab.run_speed_test()
    for way, (counted, served) in assert_agreement(speed, result, rtt_ms).items():
        print(f"{what:14}{rtt_ms:4} ms  {way:5}{result[way]['result'] or 0:8.2f} Mbit/s {counted / max(served, 1):8.4f} of {served:9.0f}")


@pytest.mark.parametrize("rtt_ms", (20, 60, 250, 600))
@pytest.mark.parametrize("kbit", (64, 2000, 20_000, 100_000, 300_000))
def test_the_counts_agree(lab, kbit, rtt_ms):
    # of a slow link's queue, which is long in time; with less of it there is little but lost packets to count
    run(lab, f"{kbit} kbit/s", rtt_ms, rate_kbit=kbit, queue_ms=2000 if kbit == 64 else 200)


@pytest.mark.parametrize("rtt_ms", (20, 60, 250))
@pytest.mark.parametrize("kbit", (2000, 20_000, 100_000))
def test_the_counts_agree_where_one_packet_in_a_hundred_is_lost(lab, kbit, rtt_ms):
    run(lab, f"{kbit}, loss", rtt_ms, rate_kbit=kbit, loss=0.01)


@pytest.mark.parametrize("rtt_ms", (20, 60, 250, 600))
def test_the_counts_agree_with_a_server_of_small_buffers(lab, rtt_ms):
    run(lab, "small buffers", rtt_ms, rate_kbit=20_000)
