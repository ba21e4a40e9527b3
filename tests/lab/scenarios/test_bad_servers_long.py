"""All named ways in which servers misbehave, and answers that are changed at random."""

import os
import random
import time

import bad_servers
import pytest
from hostility import LARGEST_RISE_KB, LIMIT, LONGEST_STALL, OVER_WITHIN, watch

FUZZ_SECONDS = int(os.environ.get("SKYLET_FUZZ_SECONDS", 60))


@pytest.fixture(name="lab", scope="module")
def _lab(labs):
    return labs()


@pytest.fixture(name="all_servers", scope="module")
def _all_servers(lab):
    return bad_servers.start(lab)


@pytest.fixture(name="servers")
def _servers(lab, all_servers):
    """Well, whatever the test before has left."""
    for server in all_servers:
        bad_servers.behave(server)
    if not lab.program.running:
        lab.program.start()
    bad_servers.check_now(lab)
    lab.area.wait_for("green", OVER_WITHIN)
    return all_servers


@pytest.mark.parametrize("behaved", bad_servers.ALL, ids=str)
def test_it_is_judged_rightly_and_forgiven(lab, servers, behaved):
    bad_servers.check(lab, servers, behaved)


def test_whatever_servers_send_ends_in_time_and_the_next_good_answer_is_green(lab, servers):
    seed = int(os.environ.get("SKYLET_SEED", random.randrange(1, 2**31)))
    print(f"SKYLET_SEED={seed} SKYLET_FUZZ_SECONDS={FUZZ_SECONDS}")
    choose = random.Random(seed)
    calm_kb, said, waited = lab.program.anonymous_kb(), len(lab.program.said()), bad_servers.starved(lab)

    def send_anything():
        end = time.monotonic() + FUZZ_SECONDS
        while time.monotonic() < end:
            for server in servers:
                server.speak(choose.choice(("h2", "http/1.1")))
                server.turn_hostile(mutate=choose.randrange(1, 2**31), mutateFrom=choose.choice(("handshake", "open", "request")))
                server.drop("reset")
            if choose.random() < 0.2:
                bad_servers.join_another_network(lab)
            lab.area.click("Check Connection Now")
            time.sleep(choose.uniform(0.2, LIMIT + 1))

    _, seen = watch(lab, send_anything)
    took = bad_servers.reckonings(lab.program.said()[said:])
    waited = bad_servers.starved(lab) - waited
    print(f"{seen} (before: {calm_kb}), {len(took)} probes, the longest {max(took)} ms")
    for server in servers:
        bad_servers.behave(server)
    bad_servers.join_another_network(lab)
    lab.area.wait_for("green", OVER_WITHIN)
    assert max(took) <= LIMIT * 1000 + bad_servers.LATE_MS + waited * 1000, f"SKYLET_SEED={seed}"
    assert max(seen.stalls) < LONGEST_STALL, f"SKYLET_SEED={seed}"
    assert lab.program.sanitized or seen.most_kb - calm_kb < LARGEST_RISE_KB, f"SKYLET_SEED={seed}"
