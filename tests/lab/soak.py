"""soak.py [SECONDS [SEED]]: the program in the lab with a fault or a few at once every few seconds, 4500 seconds unless told
otherwise. The same seed brings the same faults.

After the last of them has ended the dot has to be green within 4 s and to stay so; where a response was slow, at the next check;
and where a check was under way whose answers the fault took, within 4 s of its failure, which the rules wait for.
Descriptors and threads are read once a minute, when all is well; memory each second, and the least of each minute counts: what a
window or a speed test needs for a while is no growth. In the first quarter of an hour fonts, caches and connections come to
what they stay at: the hour after it is judged. Ends with 1 if anything was not as it has to be.
"""

import os
import random
import re
import signal
import statistics
import sys
import tempfile
import textwrap
import threading
import time
import traceback
from contextlib import ExitStack, suppress
from dataclasses import dataclass
from pathlib import Path

TESTS = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS), str(TESTS / "lab")]

import network  # noqa: E402
import settings  # noqa: E402
from authority import Authority  # noqa: E402
from lab import Lab, sleep_until  # noqa: E402
from program import schedule  # noqa: E402
from soak_faults import World, rounds  # noqa: E402
from support.processes import processor_seconds  # noqa: E402

SKIPPED = 77
HTTPS = 443
LIMIT = 4
# A response may be on its way when its fault ends, for 3 s at most; a slow one is shown, in yellow, until the next check 5 s later.
LIMIT_AFTER_SLOW = 8.5
SLOW, FAILED = " after a slow response", " after a check that was under way had failed"
LATEST_CHECK = 9
GIVEN_UP_AFTER = 60
WARM_UP = 900
GROWTH_KB_PER_HOUR = 50
FEWEST_SAMPLES = 15
FEWEST_SPEED_TESTS = 5


@dataclass(frozen=True)
class Sample:
    minute: float
    private_kb: int
    anonymous_kb: int
    descriptors: int
    threads: int

    def __str__(self):
        return (f"{self.minute:5.1f} min: {self.private_kb} kB private, at least {self.anonymous_kb} kB anonymous; "
                f"{self.descriptors} descriptors, {self.threads} threads")


def say(*words):
    print(*words, flush=True)


def slope_per_hour(samples, of):
    times, values = [sample.minute / 60 for sample in samples], [of(sample) for sample in samples]
    return statistics.linear_regression(times, values).slope


class Soak:
    """One run."""

    def __init__(self, world, seconds, seed):
        self._world, self._lab, self._program = world, world.lab, world.lab.program
        self._seconds, self._rounds = seconds, rounds(seed)
        self._recoveries, self._samples, self._memory, self._misses, self._kinds = [], [], [], 0, {}

    def run(self):
        self._program.environment |= {"QT_LOGGING_RULES": "skylet.*=true",
                                      "QT_MESSAGE_PATTERN": "%{time process} %{category}: %{message}"}
        self._lab.start()
        self._began, before = time.monotonic(), processor_seconds(self._program.pid)
        threading.Thread(target=self._watch_memory, daemon=True).start()
        while time.monotonic() < self._began + self._seconds and self._program.running:
            faults, rest = next(self._rounds)
            self._round(faults)
            time.sleep(rest)
            if self._program.running and time.monotonic() >= self._began + 60 * (len(self._samples) + 1):
                self._take_sample()
        if not self._program.running:
            self._miss("the program has ended", 0)
        else:
            took = processor_seconds(self._program.pid) - before
            say(f"processor: {took / (time.monotonic() - self._began):.2%} of one")
            code, took = self._program.end()
            say(f"ended with {code} after {took:.2f} s")
            self._misses += code != 0
        return self._summary()

    def _round(self, faults):
        self._log_start = self._program.output.stat().st_size
        began = time.monotonic()
        say(f"{(began - self._began) / 60:6.2f} min: {'; '.join(map(str, faults))}")
        for fault in faults:
            self._kinds[fault.kind.name] = self._kinds.get(fault.kind.name, 0) + 1
        events = sorted([(fault.begin, number, "begin") for number, fault in enumerate(faults)]
                        + [(fault.end, number, "end") for number, fault in enumerate(faults)])
        with ExitStack() as running:
            contexts = [running.enter_context(ExitStack()) for _ in faults]
            for moment, number, what in events:
                sleep_until(began + moment)
                try:
                    if what == "begin":
                        contexts[number].enter_context(faults[number].kind.run(self._world, **faults[number].arguments))
                    else:
                        contexts[number].close()
                except Exception:  # pylint: disable=broad-except
                    self._miss(f"the lab failed:\n{traceback.format_exc()}", began)
        self._judge(began)

    def _judge(self, began):
        ended, starved = time.monotonic(), self._starved()
        self._lab.link.reset()
        sleep_until(ended + LIMIT)
        area = self._lab.area
        while not self._has_checked() and time.monotonic() < ended + LATEST_CHECK:
            time.sleep(0.1)
        while self._program.running and area.now.dot != "green" and time.monotonic() < ended + GIVEN_UP_AFTER:
            time.sleep(0.01)
        shown = area.since(ended)
        took = max(0.0, (area.dots(ended)[-1][0] if area.now.dot == "green" else time.monotonic()) - ended)
        slow = any(state.dot == "yellow" and state.milliseconds for state in shown)
        starved = self._starved() - starved if took > LIMIT else 0
        limit = (LIMIT_AFTER_SLOW if slow else LIMIT) + starved
        after = SLOW if slow else ""
        if took > limit and (failure := self._failed_check(ended)):
            limit += failure
            after = FAILED
        self._recoveries.append((took, after))
        if took > limit:
            self._miss(f"green after {took:.2f} s, {starved:.2f} s of them without a processor", began, ended)
        elif not self._has_checked():
            self._miss(f"no check within {LATEST_CHECK} s", began, ended)

    def _has_checked(self):
        """Whether anything was sent to an endpoint since the last fault ended: a green dot says little if nobody looks."""
        return any(packet["far_port"] == HTTPS for packet in self._lab.link.trace("up"))

    def _failed_check(self, ended):
        """When after `ended` a check failed that had begun before it; 0 if none did."""
        found = re.finditer(r"after ([\d.]+) ms\n *([\d.]+) .*: offline: every endpoint failed", self._said())
        checks = [(float(check[2]) - (ended - self._program.started), float(check[1]) / 1000) for check in found]
        return max((failure for failure, took in checks if failure - took < 0 < failure), default=0)

    def _said(self):
        """The program's log of this round."""
        with self._program.output.open() as log:
            log.seek(self._log_start)
            return log.read()

    def _starved(self):
        """Seconds for which the program, the servers and the link could have run but had no processor."""
        pids = (self._program.pid, self._lab.servers.pid, self._lab.link.pid)
        return sum(waited for pid in pids for _, waited in schedule(pid).values()) if self._program.running else 0

    def _miss(self, what, began, ended=None):
        self._misses += 1
        say(f"MISS: {what}")
        say(f"  the round began {began - self._program.started:.3f} s after the program" +
            (f", its last fault ended {ended - self._program.started:.3f} s after it" if ended else ""))
        say("  shown since then:" + self._lab.area.describe(began))
        say("  the program's log:\n" + textwrap.indent(self._said(), "    "))

    def _watch_memory(self):
        with suppress(OSError):  # the program has ended
            while self._program.running:
                self._memory.append(self._program.anonymous_kb())
                time.sleep(1)

    def _take_sample(self):
        memory, self._memory = self._memory, []
        program = self._program
        self._samples.append(Sample((time.monotonic() - self._began) / 60, program.private_kb(), min(memory),
                                    program.descriptors(), program.threads()))
        say(self._samples[-1])

    def _summary(self):
        say(f"{len(self._recoveries)} rounds of {sum(self._kinds.values())} faults: " +
            ", ".join(f"{count} {name}" for name, count in sorted(self._kinds.items())))
        for after in ("", SLOW, FAILED):
            times = sorted(took for took, what in self._recoveries if what == after)
            if times:
                shares = ", ".join(f"{limit:g} s: {sum(took <= limit for took in times)}" for limit in (0, 0.25, 0.5, 1, 2, 3, 4, 8))
                say(f"green again{after}: {len(times)} times, longest {times[-1]:.2f} s, median {statistics.median(times):.2f} s; "
                    f"within {shares}")
        self._judge_speed_tests()
        self._judge_growth()
        say(f"{self._misses} misses")
        return 1 if self._misses else 0

    def _judge_speed_tests(self):
        transfers = [request["series"][-1][1] for request in self._world.speed_server.requests() if request["series"]]
        say(f"speed tests: {len(transfers)} transfers of {sum(transfers) / 1e6:.0f} MB in all")
        # Many are cancelled, cannot begin or meet other faults.
        self._misses += not transfers and self._kinds.get("whole_speed_test", 0) >= FEWEST_SPEED_TESTS

    def _judge_growth(self):
        samples = [sample for sample in self._samples if sample.minute * 60 >= WARM_UP]
        if len(samples) < FEWEST_SAMPLES:
            return say(f"growth: not judged, {len(samples)} samples after the first {WARM_UP} s")
        # A library's pages count as private or not as other programs come and go, so they are not judged.
        growth = slope_per_hour(samples, lambda sample: sample.anonymous_kb)
        say(f"memory: {growth:+.0f} kB an hour of its own, {slope_per_hour(samples, lambda sample: sample.private_kb):+.0f} private")
        self._misses += growth > GROWTH_KB_PER_HOUR
        for name in ("descriptors", "threads"):
            halves = [[getattr(sample, name) for sample in half]
                      for half in (samples[:len(samples) // 2], samples[len(samples) // 2:])]
            say(f"{name}: {halves[0]}, {halves[1]}")
            # More than at rest are there again and again.
            self._misses += min(halves[1]) > min(halves[0]) + 1
        return None


def main(seconds="4500", seed=None):
    if reason := settings.why_outdated():
        say(reason)
        return 1
    if reason := network.why_impossible():
        say(f"Skipped: {reason}")
        return SKIPPED
    sys.stdout = os.fdopen(os.dup(1), "w")
    os.dup2(os.open(os.devnull, os.O_WRONLY), 1)  # what the lab's own processes say
    seed = int(seed) if seed else random.randrange(10**6)
    say(f"soak of {seconds} s with seed {seed}")
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    network.sweep()
    names = [*network.ENDPOINT_NAMES, network.PORTAL_NAME, settings.SPEEDTEST_HOST]
    with tempfile.TemporaryDirectory(prefix=f"{network.PREFIX}-{os.getpid()}-", dir=network.RUN) as folder, ExitStack() as stack:
        lab = Lab(Authority(folder, names), stack)
        return Soak(World(lab, stack), float(seconds), seed).run()


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
