"""IPv4 and IPv6: either may be missing, dead, or unknown to the name server."""

import time

import network
import pytest
from lab import sleep_until

OBSERVED = 36


def drop_ipv6_questions(lab):
    lab.network.add_ipv6()
    drop_ipv6_questions_of_an_ipv4_machine(lab)


def drop_ipv6_questions_of_an_ipv4_machine(lab):
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


# The latest green, in seconds: the second answer, since the first, which includes the look-up, may be a slow one. Where AAAA
# questions are swallowed the C library holds the A answer back for 15 s.
CASES = dict.fromkeys((drop_ipv6_questions_of_an_ipv4_machine, kill_ipv6, kill_ipv4, have_only_ipv6, have_only_ipv4, have_both), 12)
CASES[drop_ipv6_questions] = 24


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
