"""The live traffic is what the interface really carries."""

import threading
import time

import pytest

RATE_KBIT = 8000
SAMPLES = 2  # seconds between two


@pytest.mark.parametrize("verb, way", [("receive", 0), ("send", 1)])
def test_a_transfer_of_known_rate_is_shown(lab, verb, way):
    lab.serve_traffic()
    lab.link.set(rtt_ms=10, rate_kbit=RATE_KBIT)
    lab.start()
    transfer = threading.Thread(target=lab.client_traffic, args=(verb, lab.link.gateway, 4 * SAMPLES))
    transfer.start()
    time.sleep(3.2 * SAMPLES)
    state = lab.area.now
    transfer.join()
    assert state.traffic[way] == pytest.approx(RATE_KBIT * 1000, rel=0.1)
    assert state.traffic[1 - way] < state.traffic[way] / 10
    arrow = "↓↑"[way]
    assert f"{arrow} {state.traffic[way] / 1e6:.1f}Mb/s" in state.lines[1]
    # what the sender's kernel still holds has to drain first
    lab.area.wait_for(lambda state: state.traffic and max(state.traffic) < 100_000, 10)
