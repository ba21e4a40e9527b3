"""What the scenarios with hostile endpoints share: how an endpoint may be hostile, and what must hold meanwhile."""

import time
from dataclasses import dataclass, field
from threading import Event, Thread

from support.processes import wait_until

LIMIT, RETRY, CYCLE, OFFLINE_WAIT = 3, 0.5, 5, 3
SLACK = 1
OVER_WITHIN = 8
LONGEST_STALL = 0.1
LARGEST_SHARE = 0.2  # of a processor, beyond what peace costs
LARGEST_RISE_KB = 8192
RISE_THAT_MAY_STAY_KB = 3072


@dataclass(frozen=True)
class Hostile:
    """Fields of Hostility.h; and whether an answer comes through all the same."""

    what: dict
    answers: bool = False
    protocol: str = "h2"

    def __str__(self):
        return "-".join(map(str, [*self.what.values(), *([self.protocol] if self.protocol != "h2" else [])]))


def floods(stage, *names, answers=False, protocol="h2", **more):
    return [Hostile({"stage": stage, "flood": name} | more, answers, protocol) for name in names]


def deeds(deed, *stages, answers=False):
    return [Hostile({"stage": stage, "deed": deed}, answers) for stage in stages]


# on a connection that is kept: the answer had come
IDLE = floods("answer", "ping", "pingAnswer", "settings", "settingsAnswer", "windowUpdate", "unknown", "goAway", "goAwayFromAll",
              "priority", "closedHeaders", "closedReset", "closedData", "idleReset", "ticket", "largeTicket", "keyUpdate",
              "keyUpdateRequest", answers=True)
# in place of an answer
INSTEAD = [*floods("request", "ping", "settings", "windowUpdate", "streamWindowUpdate", "unknown", "goAway", "goAwayFromAll",
                   "priority", "reset", "interim", "continuation", "fields", "emptyData", "push", "bombs", "ticket"),
           *floods("request", "bomb", count=1, answers=True), *floods("request", "unknown", size=16000)]
# once, and then nothing more, or else the answer
ONCE = [*(hostile for code in (0, 7, 13) for hostile in floods("request", "reset", count=1, code=code)),
        *floods("request", "goAwayFromAll", "goAway", count=1), *floods("request", "goAway", count=1, thenServe=True, answers=True),
        *floods("answer", "goAway", count=1, thenServe=True, answers=True)]
HTTP1 = [*floods("request", "interim", "fields", "shortFields", "foldedField", "field", "emptyLines", protocol="http/1.1"),
         *floods("request", "bodyAfter204", answers=True, protocol="http/1.1"),
         *floods("answer", "answers", "ticket", answers=True, protocol="http/1.1")]
EARLY = [*floods("open", "ping", "unknown", "settings", "ticket", "goAway"), *floods("settings", "ping", "windowUpdate")]
STALLS = [*deeds("stall", "accept", "handshake", "open", "settings", "request", "head"), *deeds("stall", "answer", answers=True)]
DRIPS = [*deeds("drip", "accept", "handshake", "open"), *deeds("drip", "request", "answer", answers=True)]
ENDS = [*deeds("reset", "accept", "handshake", "open", "request", "head"), *deeds("fin", "handshake", "request"),
        *deeds("alert", "handshake", "request"), *deeds("noise", "request"), *deeds("garbage", "open", "request"),
        *deeds("close", "answer", answers=True), *deeds("reset", "answer", answers=True)]


@dataclass
class Watch:
    """What the program was like over some seconds."""

    seconds: float = 0
    stalls: list = field(default_factory=list)
    cpu_share: float = 0
    most_kb: int = 0

    def __str__(self):
        return (f"longest stall {max(self.stalls) * 1000:.0f} ms, processor {self.cpu_share * 100:.1f} %, "
                f"at most {self.most_kb} KB of its own")


def watch(lab, until):
    """Calls `until`, watching the program; what that gave, and what was seen."""
    seen, done = Watch(), Event()

    def look():
        while not done.wait(0.25):
            seen.most_kb = max(seen.most_kb, lab.program.anonymous_kb())

    looker = Thread(target=look, daemon=True)
    looker.start()
    before = lab.program.cost()
    try:
        with lab.stalls() as seen.stalls:
            result = until()
        after = lab.program.cost()
    finally:
        done.set()
        looker.join()
    seen.seconds = after.time - before.time
    seen.cpu_share = (after.cpu_s - before.cpu_s) / seen.seconds
    return result, seen


def assault(servers, hostile):
    """From now on all their connections are so, the kept ones too or else new ones."""
    for server in servers:
        server.turn_hostile(**hostile.what)
        if hostile.what["stage"] not in ("answer", "request", "head", "body"):
            server.drop("close")


def peace(servers):
    for server in servers:
        server.turn_hostile()
        server.drop("reset")


def check_watch(lab, name, calm, seen):
    print(f"\n{name}: {seen}; in peace: {calm}")
    assert max(seen.stalls) < LONGEST_STALL + max(calm.stalls)
    assert seen.cpu_share < LARGEST_SHARE + calm.cpu_share
    if not lab.program.sanitized:
        assert seen.most_kb - calm.most_kb < LARGEST_RISE_KB


def check_aftermath(lab, calm):
    if not lab.program.sanitized:
        wait_until(lambda: lab.program.anonymous_kb() - calm.most_kb < RISE_THAT_MAY_STAY_KB, CYCLE, "the memory is given back")


def probe_twice(lab):
    lab.area.click("Check Connection Now")
    time.sleep(CYCLE + SLACK)


def begin(lab, endpoints, protocol):
    """The program is green by endpoints that can turn hostile; these, and what peace is like."""
    servers = [lab.replace_endpoint(endpoint) for endpoint in endpoints]
    for server in servers:
        server.speak(protocol)
    lab.link.set(rtt_ms=20)
    lab.start()
    time.sleep(1)
    _, calm = watch(lab, lambda: probe_twice(lab))
    return servers, calm


def check_one_hostile_endpoint(lab, hostile):
    """The dot stays green by the other, and nobody notices."""
    [server], calm = begin(lab, lab.servers.both[:1], hostile.protocol)
    begun = time.monotonic()
    assault([server], hostile)
    _, seen = watch(lab, lambda: probe_twice(lab))
    shown = lab.area.since(begun)
    flooded = server.flooded()
    check_watch(lab, f"{hostile}, {flooded / 1e6:.1f} MB of flood", calm, seen)
    assert "flood" not in hostile.what or flooded > 0, "there has been a flood"
    assert {state.dot for state in shown if state.milliseconds} == {"green"}
    assert "red" not in {state.dot for state in shown}
    assert max(state.milliseconds for state in shown if state.milliseconds) < 200
    ended = time.monotonic()
    peace([server])
    answered = len(server.requests())
    wait_until(lambda: len(server.requests()) > answered, OVER_WITHIN, "it is asked again")
    assert "red" not in {state.dot for state in lab.area.since(ended)}
    check_aftermath(lab, calm)


def offline(lab, begun):
    """Waits for yellow and red, as when nobody answers."""
    lab.area.click("Check Connection Now")
    yellow = lab.area.wait_for(lambda state: "Checking connection" in state.lines[0], SLACK, since=begun)
    red = lab.area.wait_for("red", LIMIT + RETRY + LIMIT + SLACK, since=yellow.time)
    time.sleep(OFFLINE_WAIT)
    assert "green" not in {state.dot for state in lab.area.since(red.time)}


def check_both_hostile(lab, hostile):
    """The dot says so, and goes on being drawn, clicked and ended."""
    servers, calm = begin(lab, lab.servers.both, hostile.protocol)
    begun = time.monotonic()
    assault(servers, hostile)
    if hostile.answers:
        _, seen = watch(lab, lambda: probe_twice(lab))
    else:
        _, seen = watch(lab, lambda: offline(lab, begun))
    flooded = sum(server.flooded() for server in servers)
    check_watch(lab, f"{hostile}, {flooded / 1e6:.1f} MB of flood", calm, seen)
    assert "flood" not in hostile.what or flooded > 0, "there has been a flood"
    ended = time.monotonic()
    peace(servers)
    lab.area.wait_for("green", OVER_WITHIN, since=ended)
    check_aftermath(lab, calm)
    assault(servers, hostile)
    lab.area.click("Check Connection Now")
    time.sleep(1)
    code, seconds = lab.program.end()
    assert code == 0
    assert seconds < 1
