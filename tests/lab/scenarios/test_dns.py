"""Names that nobody answers for must block neither the menu nor the timers, and must not pile up threads."""

import time

import pytest

OBSERVED = 60
LONGEST_STALL = 0.1
# each thread of the resolver waits for one name; a probe is refused rather than one more begun
MOST_LOOK_UPS = 8
OWN_THREADS = 4  # the main one, the one for D-Bus and two of Qt's pool


def die(lab, options=""):
    lab.network.names_from_dns(options)
    lab.servers.answer_dns(False)


def test_dead_dns_is_a_failure_and_nothing_more(lab):
    die(lab, options="timeout:30 attempts:5")  # the patience of a system with several name servers
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


def test_dead_dns_follows_the_schedule_and_is_over_when_it_is_over(lab):
    die(lab)
    first = lab.start(until="red")
    second = lab.area.wait_for("red", 11, since=lab.area.wait_for("yellow", 7, since=first.time).time)
    # 3 s of waiting, 3 s of probing, 0.5 s, 3 s of probing
    assert second.time - first.time == pytest.approx(9.5, abs=0.5)
    lab.servers.answer_dns(True)
    lab.area.wait_for("green", 3 + 3 + 1)


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
