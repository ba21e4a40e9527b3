"""Endpoints that misbehave in the ways of tests/speedserver/behaviours.json: what each has to come to."""

import json
import re
import time
from dataclasses import dataclass
from pathlib import Path

from hostility import CYCLE, LARGEST_RISE_KB, LIMIT, LONGEST_STALL, OVER_WITHIN, RETRY, RISE_THAT_MAY_STAY_KB, watch
from program import schedule
from support.processes import wait_until

TABLE = json.loads((Path(__file__).parents[2] / "speedserver/behaviours.json").read_text())
RECKONING = re.compile(r"skylet\.connectivity: https://\S+: .* after ([\d.]+) ms")
LATE_MS = 250
# What is shown may be late on a busy machine; how long a probe took is judged by the program's own reckoning.
SLACK = 5


@dataclass(frozen=True)
class Behaved:
    """A row of the table, in one of the protocols."""

    row: dict
    protocol: str

    def __str__(self):
        return self.row["name"] + ("InHttp1" if self.protocol != protocols_of(self.row)[0] else "")

    def begin(self, server):
        server.set("head", **self.row.get("answer", {}))
        server.turn_hostile(**self.row.get("hostility", {}))
        if "certificate" in self.row:
            server.show_certificate(self.row["certificate"])
        if "clientCertificate" in self.row:
            server.want_client_certificate()
        if "tls" in self.row:
            server.speak_tls(self.row["tls"])
        server.drop("reset")


def protocols_of(row):
    answer = row.get("answer", {})
    if "raw" in answer:
        return ["http/1.1"]
    return ["h2", "http/1.1"] if "status" in answer and "frames" not in answer else ["h2"]


ALL = [Behaved(row, protocol) for row in TABLE for protocol in protocols_of(row)]


def named(*names):
    found = [behaved for behaved in ALL if str(behaved) in names]
    assert len(found) == len(names)
    return found


def behave(server):
    server.set("head")
    server.turn_hostile()
    server.show_certificate("good")
    server.drop("reset")


def start(lab):
    """The program, green by two endpoints that can misbehave. These."""
    lab.program.environment["QT_LOGGING_RULES"] = "skylet.connectivity=true"
    servers = [lab.replace_endpoint(endpoint) for endpoint in lab.servers.both]
    lab.link.set(rtt_ms=20)
    lab.start()
    return servers


def join_another_network(lab):
    """After it nothing is left of what is known of the servers."""
    left = time.monotonic()
    lab.link.remove_default_route()
    try:
        lab.area.wait_for("red", SLACK, since=left)
    finally:
        lab.link.add_default_route()
    return time.monotonic()


def reckonings(text):
    """How long each probe has taken, in milliseconds, as the program has it."""
    return [float(milliseconds) for milliseconds in RECKONING.findall(text)]


def starved(lab):
    """How long the program's main thread could have run but had no processor, in seconds."""
    return schedule(lab.program.pid)[str(lab.program.pid)][1]


def check_now(lab):
    asked = time.monotonic()
    lab.area.click("Check Connection Now")
    return asked


def goes_on(lab):
    """Two answers, the second on the same connection if that is kept."""
    for _ in range(2):
        asked, said = check_now(lab), len(lab.program.said())
        wait_until(lambda: ": status 204 from" in lab.program.said()[said:], LIMIT + SLACK, "an answer")
        lab.area.wait_for("green", SLACK, since=asked)
        time.sleep(0.1)


def goes_offline(lab):
    asked = check_now(lab)
    yellow = lab.area.wait_for("yellow", SLACK, since=asked)
    lab.area.wait_for("red", LIMIT + RETRY + LIMIT + 2 * SLACK, since=yellow.time)
    assert "green" not in {state.dot for state in lab.area.since(yellow.time)}


def goes_on_or_offline(lab):
    asked, said = check_now(lab), len(lab.program.said())
    wait_until(lambda: ": status 204 from" in lab.program.said()[said:]
               or any(state.dot == "red" for state in lab.area.since(asked)), LIMIT + RETRY + LIMIT + 3 * SLACK, "a verdict")


# "either": versions of libcurl read it differently
VERDICTS = {"good": goes_on, "bad": goes_offline, "either": goes_on_or_offline}


def check(lab, servers, behaved):
    for server in servers:
        server.speak(behaved.protocol)
    joined = join_another_network(lab)
    lab.area.wait_for("green", OVER_WITHIN, since=joined)
    calm_kb, said, waited = lab.program.anonymous_kb(), len(lab.program.said()), starved(lab)
    begun, verdict = time.monotonic(), behaved.row.get("verdict", "bad")
    for server in servers:
        behaved.begin(server)
    try:
        _, seen = watch(lab, lambda: VERDICTS[verdict](lab))
        shown = lab.area.since(begun)
    finally:
        for server in servers:
            behave(server)
        well = check_now(lab)
    lab.area.wait_for("green", OVER_WITHIN, since=well)
    took = reckonings(lab.program.said()[said:])
    waited = starved(lab) - waited
    print(f"\n{behaved}: {seen} (before: {calm_kb}), longest probe {max(took)} ms, without a processor for {waited * 1000:.0f} ms")
    assert max(took) <= LIMIT * 1000 + LATE_MS + waited * 1000
    assert max(seen.stalls) < LONGEST_STALL
    assert "red" not in {state.dot for state in shown} or verdict != "good"
    if not lab.program.sanitized:
        assert seen.most_kb - calm_kb < LARGEST_RISE_KB
        wait_until(lambda: lab.program.anonymous_kb() - calm_kb < RISE_THAT_MAY_STAY_KB, CYCLE, "the memory is given back")
