"""Names that nobody answers for must block neither the menu nor the timers, and must not pile up threads."""

import itertools
import time
from pathlib import Path

import network
import pytest
from lab import sleep_until

OBSERVED = 60
LONGEST_STALL = 0.1
# each thread of the resolver waits for one name, and for no name do two of them on one network
MOST_LOOK_UPS = len(network.ENDPOINT_NAMES)
MOST_LOOK_UPS_IN_ALL = 24
OWN_THREADS = 4  # the main one, the one for D-Bus and two of Qt's pool
# the C library asks again after its time-out, and by then the answer may have to wait for the next probe; both in seconds
DNS_TIMEOUT, OFFLINE_WAIT = 5, 3
PATIENT = "timeout:30 attempts:5"  # as a system with several name servers is


def die(lab, options=""):
    lab.network.names_from_dns(options)
    lab.servers.answer_dns(False)


def look_ups(lab, name, since=0.0):
    """How many there were: each has a port of its own and repeats its questions from there."""
    return len({query["port"] for query in lab.servers.names.queries(since, name=name)})


def test_dead_dns_is_a_failure_and_nothing_more(lab):
    die(lab, PATIENT)
    lab.start(until="yellow")
    threads = []
    with lab.stalls() as stalls:
        end = time.monotonic() + OBSERVED
        while time.monotonic() < end:
            threads.append(lab.program.threads())
            time.sleep(1)
    print(f"longest stall {max(stalls) * 1000:.1f} ms, threads {max(threads)}")
    assert len(stalls) > OBSERVED / 0.02 * 0.5
    assert max(stalls) < LONGEST_STALL
    assert max(threads) <= OWN_THREADS + MOST_LOOK_UPS
    dots = lab.area.dots(lab.program.started)
    assert {colour for _, colour in dots} <= {None, "yellow", "red"}
    assert [colour for _, colour in dots].count("red") >= 5


def test_while_a_look_up_is_under_way_no_second_one_for_its_name_begins(lab):
    die(lab, PATIENT)
    lab.start(until="red")
    time.sleep(4)  # another probe has begun
    assert [look_ups(lab, endpoint.name) for endpoint in lab.servers.both] == [1, 1]


def change_network(lab, usb0, times, interval):
    """Moves the default route to and fro. The number of threads after each time."""
    threads = []
    for _, link in zip(range(times), itertools.cycle((usb0, lab.link))):
        lab.network.client.ip(f"route replace default via {link.gateway} dev {link.device} metric 100")
        time.sleep(interval)
        threads.append(lab.program.threads())
    return threads


def test_changes_of_the_network_while_dns_is_dead_pile_up_no_threads(lab):
    usb0 = lab.network.add_usb0()
    die(lab, PATIENT)
    lab.start(until="yellow")
    threads = change_network(lab, usb0, times=30, interval=0.3)
    print(f"threads {threads}")
    assert look_ups(lab, lab.servers.first.name) > 2  # another network's names are another question
    assert max(threads) <= OWN_THREADS + MOST_LOOK_UPS_IN_ALL


def test_a_network_with_living_dns_is_green_at_once_after_several_with_dead_dns(lab):
    usb0 = lab.network.add_usb0()
    die(lab)
    lab.start(until="yellow")
    change_network(lab, usb0, times=8, interval=1)
    lab.servers.answer_dns(True)
    moved = time.monotonic()
    change_network(lab, usb0, times=1, interval=0)
    lab.area.wait_for("green", 2, since=moved)


def test_dead_dns_follows_the_schedule(lab):
    die(lab, PATIENT)
    first = lab.start(until="red")
    second = lab.area.wait_for("red", 11, since=lab.area.wait_for("yellow", 7, since=first.time).time)
    # 3 s of waiting, 3 s of probing, 0.5 s, 3 s of probing
    assert second.time - first.time == pytest.approx(9.5, abs=0.5)


def test_living_dns_is_green(lab):
    lab.network.names_from_dns()
    lab.start()


def test_a_signal_during_a_dead_look_up_ends_the_program_at_once(lab):
    die(lab)
    lab.start(until="yellow")
    time.sleep(1)
    code, seconds = lab.program.end()
    assert code == 0
    assert seconds < 1


@pytest.fixture(scope="module")
def recoveries(labs):
    """Seconds from the return of the name server to green, for returns at several moments of the client's timeout."""
    running = {after: labs() for after in (8, 9.3, 10.6, 11.9)}
    for lab in running.values():
        die(lab)
        lab.program.start()
    returned = {}
    for after, lab in running.items():
        sleep_until(lab.program.started + after)
        lab.servers.answer_dns(True)
        returned[lab] = time.monotonic()
    return [lab.area.wait_for("green", 20, since=since).time - since for lab, since in returned.items()]


def test_when_the_name_server_is_back_its_first_answer_turns_the_dot_green(recoveries):
    print(f"green after {[round(seconds, 2) for seconds in recoveries]} s")
    assert max(recoveries) <= DNS_TIMEOUT + OFFLINE_WAIT + 0.5


def heaps_of_threads(lab):
    """What the C library has reserved for them, 64 MB of addresses each."""
    lines = Path("/proc", str(lab.program.pid), "maps").read_text().splitlines()
    ranges = (line.split()[0].split("-") for line in lines if " ---p " in line)
    return [(start, end) for start, end in ranges if int(end, 16) - int(start, 16) > 60 << 20]


def test_threads_that_wait_for_names_get_no_heaps_of_their_own(lab):
    lab.network.names_from_dns("timeout:1")
    lab.start()
    lab.servers.names.set(answer="silent")
    for _ in range(4):
        lab.link.remove_default_route()
        time.sleep(0.3)
        lab.link.add_default_route()
        time.sleep(0.3)
    assert lab.program.threads() > 5
    assert heaps_of_threads(lab) == []
