"""Name servers that answer later than a probe waits: the answer serves the next one, and the dot is green and stays so."""

import itertools
import time

import network
import pytest
from lab import sleep_until

LATEST_GREEN, OBSERVED = 14, 90
NAMES = {
    "each look-up takes 2.9 s": lambda lab: lab.servers.names.set(delay=2.9),
    "each look-up takes 4 s": lambda lab: lab.servers.names.set(delay=4),
    "the first name server is dead": lambda lab: lab.servers.names.set(server=network.DNS_ADDRESS, answer="silent"),
}
# where connections end after each answer, names are needed again and again
CONNECTIONS = {"connections are kept": "keep", "connections end after each answer": "close"}


@pytest.fixture(scope="module")
def watched(labs):
    """A lab for each case, watched at the same time for as long as any of them needs."""
    cases = {case: labs() for case in itertools.product(NAMES, CONNECTIONS)}
    for (names, connections), lab in cases.items():
        lab.network.names_from_dns(servers=network.DNS_ADDRESSES)
        NAMES[names](lab)
        lab.link.set(rtt_ms=60)
        for endpoint in lab.servers.both:
            endpoint.set(afterwards=CONNECTIONS[connections])
        lab.program.start()
    sleep_until(time.monotonic() + LATEST_GREEN + OBSERVED)
    return cases


@pytest.fixture(params=CONNECTIONS)
def connections(request):
    return request.param


@pytest.fixture(params=NAMES)
def lab(watched, connections, request):
    return watched[request.param, connections]


def test_the_dot_is_green_soon_and_stays_green(lab):
    green = lab.area.wait_for("green", LATEST_GREEN, since=lab.program.started)
    print(f"green after {green.time - lab.program.started:.1f} s, {len(lab.servers.requests())} requests, "
          f"{len(lab.servers.names.queries())} queries")
    dots = [dot for dot in lab.area.dots(green.time) if dot[0] <= green.time + OBSERVED]
    assert [colour for _, colour in dots] == ["green"], [(round(when - lab.program.started, 1), colour) for when, colour in dots]
