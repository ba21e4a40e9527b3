"""The program idle and green: bytes on the wire, the truth of its number, processor time and wake-ups. In two labs at the same
time: one has the program, the other a program whose label changes every 2 s, and a `curl` with a kept connection."""

import json
import re
import statistics
import subprocess
import sys
import time
from pathlib import Path

import settings
from lab import sleep_until
from nginx import Nginx
from programs import REFERENCE, typical
from support.processes import Tool, wait_until
from table import at_most, times

RTT_MS = 20
CYCLE, RENEWAL = 5, 115
STEADY_AFTER = 12
SYN = 2
CURL_PORTS = range(40000, 40010)
# no request follows another on the same connection so soon
QUIET = 1


class Steady:
    """Begins to watch at once; `finish` waits until it has seen enough."""

    def __init__(self, bench, stack):
        self._table, self._renewals = bench.table, 1 if bench.quick else 2
        self._lab, self._other = (bench.make_lab(stack, Nginx) for _ in range(2))
        for lab in (self._lab, self._other):
            lab.link.set(rtt_ms=RTT_MS)
        self._captures = [lab.network.client.popen([sys.executable, Path(__file__).with_name("capture.py"), "wlan0"], kind=Tool)
                          for lab in (self._lab, self._other)]
        for capture in self._captures:
            stack.enter_context(capture)
        self._other.program.starter = [REFERENCE, "label"]
        self._other.program.start()
        wait_until(lambda: self._other.area.now.label, 10, "the reference shows its label")
        self._lab.program.environment["QT_LOGGING_RULES"] = "skylet.connectivity=true"
        self._lab.start()
        sleep_until(self._lab.program.started + STEADY_AFTER)
        self._began = time.monotonic()
        self._before = [lab.program.cost() for lab in (self._lab, self._other)]
        self._until = self._began + RENEWAL * self._renewals
        self._curl_times = self._other.network.folder / "curl.txt"
        self._start_curl(stack)

    def _start_curl(self, stack):
        count = int((self._until - self._began) / CYCLE)
        command = ["curl", "-sS", "-I", "-o", "/dev/null", "-w", "%{time_starttransfer}\n", "--rate", f"{60 // CYCLE}/m",
                   "--local-port", f"{CURL_PORTS[0]}-{CURL_PORTS[-1]}", f"{settings.ENDPOINTS[0]}?[1-{count}]"]
        with self._curl_times.open("w") as output:
            stack.enter_context(self._other.network.client.popen(command, stdout=output))

    def finish(self):
        sleep_until(self._until)
        self._costs()
        self._latency()
        self._bytes()

    def _costs(self):
        pairs = list(zip(self._before, [lab.program.cost() for lab in (self._lab, self._other)]))
        minutes = (time.monotonic() - self._began) / 60
        cpu = [(after.cpu_s - before.cpu_s) * 1000 / minutes for before, after in pairs]
        wakes = [(after.wake_ups - before.wake_ups) / minutes / 60 for before, after in pairs]
        self._table.row("processor time while idle and green, ms a minute", *cpu, times(1.5))
        self._table.row("wake-ups while idle and green, a second", *wakes, at_most(2))

    def _latency(self):
        ours, theirs = map(_captured, self._captures)
        # the first exchange of each is on a new connection
        reported = [float(found) for found in re.findall(r"status 204 from .* after ([\d.]+) ms", self._lab.program.said())][1:]
        asked = [float(line) * 1000 for line in self._curl_times.read_text().split()][1:]
        reported, beside = ([answer - took * 1000 for answer, took in zip(answers, wire)] for answers, wire in (
            (reported, _first_answers(exchanges(ours))), (asked, [took for _, _, took in exchanges(theirs)])))
        self._table.row(f"reported latency less the wire's own, ms, mean of {len(reported)}", typical(reported), typical(beside),
                        times(1))

    def _bytes(self):
        packets = [packet for packet in self._lab.link.trace() if packet["time"] < self._until]
        total = sum(packet["bytes"] for packet in packets if packet["time"] >= self._began)
        renewal = min((packet["time"] for packet in packets if packet["flags"] & SYN and packet["time"] > self._began),
                      default=self._until)
        steady = [packet for packet in packets if self._began <= packet["time"] < renewal - CYCLE / 2]
        cycles = [sum(packet["bytes"] for packet in cycle) for cycle in _bursts(steady, lambda packet: packet["time"])]
        self._other.link.reset()
        for url in settings.ENDPOINTS:
            self._other.network.client.run(["curl", "-sS", "-I", "-o", "/dev/null", url], stdout=subprocess.DEVNULL)
        time.sleep(0.3)
        reference = self._other.link.bytes()
        self._table.row("bytes on the wire in a steady cycle of two probes", statistics.median(cycles), reference, at_most(540))
        self._table.row("MB on the wire in an hour, with the renewals", total / (self._until - self._began) * 3600 / 1e6,
                        reference * 3600 / CYCLE / 1e6, at_most(0.45))


def _captured(capture):
    return json.loads(capture.ask("all"))


def exchanges(packets):
    """[(began, port, seconds from the request to the first packet of its answer)] on connections that were kept for it."""
    found, last, waiting = [], {}, {}
    for moment, sent, port, _, size in packets:
        if not size:
            continue
        if sent and moment - last.get(port, moment) > QUIET:
            waiting[port] = moment
        elif not sent and port in waiting:
            found.append((waiting[port], port, moment - waiting.pop(port)))
        last[port] = moment
    return sorted(found)


def _first_answers(found):
    """Of each cycle, how long its two exchanges took until the first of their answers came."""
    for cycle in _bursts(found, lambda exchange: exchange[0]):
        yield min(began + took for began, _, took in cycle) - cycle[0][0]


def _bursts(items, moment):
    """Lists of those that follow each other without a pause."""
    burst = []
    for item in items:
        if burst and moment(item) - moment(burst[-1]) > QUIET:
            yield burst
            burst = []
        burst.append(item)
    if burst:
        yield burst
