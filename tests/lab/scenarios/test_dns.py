"""Names that nobody answers for must block neither the menu nor the timers, and must not pile up threads."""

import time

import pytest

OBSERVED = 60
LONGEST_STALL = 0.1
# two names to look up, and as many again that were given up but have not come back from the system yet
MOST_THREADS = 16


def test_dead_dns_is_a_failure_and_nothing_more(lab):
    lab.network.names_from_dns()
    lab.servers.answer_dns(False)
    lab.start(until="yellow")
    threads = []
    with lab.area.stalls() as stalls:
        end = time.monotonic() + OBSERVED
        while time.monotonic() < end:
            threads.append(lab.program.threads())
            time.sleep(1)
    print(f"longest stall {max(stalls) * 1000:.1f} ms, threads {max(threads)}")
    assert len(stalls) > OBSERVED / 0.02 * 0.8
    assert max(stalls) < LONGEST_STALL
    assert max(threads) <= MOST_THREADS
    assert max(threads[len(threads) // 2:]) <= max(threads[:len(threads) // 2])
    changes = lab.area.dots(lab.program.started)
    reds = [moment for moment, colour in changes if colour == "red"]
    # 3 s of waiting, 3 s of probing, 0.5 s, 3 s of probing
    gaps = [later - earlier for earlier, later in zip(reds, reds[1:])]
    assert gaps == pytest.approx([9.5] * len(gaps), abs=0.5)
    assert len(reds) >= 5
    lab.servers.answer_dns(True)
    lab.area.wait_for("green", 3 + 3 + 1)


def test_living_dns_is_green(lab):
    lab.network.names_from_dns()
    lab.start()


def test_a_signal_during_a_dead_look_up_ends_the_program_at_once(lab):
    lab.network.names_from_dns()
    lab.servers.answer_dns(False)
    lab.start(until="yellow")
    time.sleep(1)
    code, seconds = lab.program.end()
    assert code == 0
    assert seconds < 1
