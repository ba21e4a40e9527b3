"""What a speed test counted against what its server counted of the same transfers."""

import pytest
from lab import bytes_at

# of the server's count. Uploads cost a little more: how much of the stream TLS takes is not known to the byte
TOLERANCE = {"down": 0.02, "up": 0.03}
# one end has counted them and the other has not: acknowledgements come for two packets together, or late
PACKETS = 3 * 1460


def counts(speed, result, rtt_ms):
    """For "down" and "up" what the test counted and what the server did over the same time: the server learns half a round trip
    later what the client has got (down), and the client half a round trip later what the server has got (up)."""
    both = {}
    for way, method, side in (("down", "GET", 1), ("up", "POST", -1)):
        request = [request for request in speed.requests() if request["method"] == method][-1]
        both[way] = result[way]["bytes"], bytes_at(request["series"], result[way]["ended"] + side * rtt_ms / 2000)
    return both


def assert_agreement(speed, result, rtt_ms, ways=("down", "up")):
    """The counts, for those who want to print them."""
    both = counts(speed, result, rtt_ms)
    for way in ways:
        counted, served = both[way]
        assert counted == pytest.approx(served, rel=TOLERANCE[way], abs=PACKETS), way
    return both
