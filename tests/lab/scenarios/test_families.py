"""IPv4 and IPv6: either may be missing, dead, or unknown to the name server."""

import time

import network
import pytest
from lab import sleep_until

OBSERVED = 60


def drop_ipv6_questions(lab):
    lab.network.names_from_dns()
    lab.servers.names.set(family="AAAA", answer="silent")


def kill_ipv6(lab):
    lab.network.add_ipv6()
    lab.network.names_from_dns()
    lab.link.mute(*network.IPV6_ADDRESSES)


def kill_ipv4(lab):
    lab.network.add_ipv6()
    lab.network.names_from_dns(servers=[network.DNS_IPV6_ADDRESS])
    lab.link.mute(*network.IPV4_ADDRESSES)


def have_only_ipv6(lab):
    lab.network.add_ipv6()
    lab.network.remove_ipv4()


def have_only_ipv4(lab):
    lab.network.names_from_dns()


def have_both(lab):
    lab.network.add_ipv6()
    lab.network.names_from_dns()


# the latest green, in seconds. Where AAAA questions are swallowed the C library gives them up after 15 s; elsewhere the first
# answer is enough, or on a busy machine, where it may be a slow one, the second.
CASES = {drop_ipv6_questions: 20, kill_ipv6: 12, kill_ipv4: 12, have_only_ipv6: 12, have_only_ipv4: 12, have_both: 12}


@pytest.fixture(scope="module")
def watched(labs):
    """A lab for each case, watched at the same time."""
    cases = {case: labs() for case in CASES}
    for prepare, lab in cases.items():
        lab.link.set(rtt_ms=20)
        prepare(lab)
        lab.program.start()
    sleep_until(time.monotonic() + OBSERVED)
    return cases


@pytest.fixture(params=CASES, ids=lambda case: case.__name__)
def case(request):
    return request.param


@pytest.fixture
def lab(watched, case):
    return watched[case]


def test_the_dot_is_green_soon_and_stays_green(lab, case):
    green = lab.area.wait_for("green", CASES[case], since=lab.program.started)
    print(f"green after {green.time - lab.program.started:.2f} s")
    assert [colour for _, colour in lab.area.dots(green.time)] == ["green"]
