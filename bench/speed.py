"""The speed test: what it counts beside what its server counted, and what its transfers cost beside `curl`."""

import os
import statistics
import time
from contextlib import ExitStack

import network
import settings
from agreement import counts
from lab import SpeedServer
from network import Network
from nginx import Nginx
from programs import TRANSFER
from table import at_least, times, within

RTT_MS = 20
TOLERANCE = {"down": 0.02, "up": 0.03}
HOST = f"https://{settings.SPEEDTEST_HOST}"


def measure_accuracy(bench):
    for mbit in (2, 20, 100, 1000) if bench.quick else (2, 10, 20, 50, 100, 300, 1000):
        with ExitStack() as stack:
            lab = bench.make_lab(stack, Nginx)
            server = lab.serve_speed_test()
            lab.link.set(rtt_ms=RTT_MS, rate_kbit=1000 * mbit, queue_ms=100)
            result = lab.run_speed_test()
            for way, (ours, theirs) in counts(server, result, RTT_MS).items():
                seconds = result[way]["ended"] - result[way]["began"]
                bench.table.row(f"speed test of {mbit} Mbit/s, {way}, Mbit/s", ours * 8e-6 / seconds, theirs * 8e-6 / seconds,
                                within(TOLERANCE[way]))


class Loopback:
    """The service and its clients in one namespace: no link between them."""

    def __init__(self, authority, stack, size):
        self.network = Network(authority, stack)
        self.network.server = self.network.client
        self.network.client.ip(f"address add {network.SPEEDTEST_ADDRESS}/32 dev lo")
        self.server = SpeedServer(self.network, authority, stack)
        self.size = size
        # it holds nothing and takes no room
        self.body = self.network.folder / "body"
        with self.body.open("wb") as file:
            file.truncate(size)

    def commands(self, way):
        """The same transfer by the program's code and by curl."""
        curl = ["curl", "-sS", "-o", "/dev/null", "--http1.1"]
        if way == "down":
            url = f"{HOST}/__down?bytes={self.size}"
            return [TRANSFER, way, url], [*curl, url]
        url = f"{HOST}/__up"
        return [TRANSFER, way, url, str(self.size)], [*curl, "-X", "POST", "-H", "Expect:", "-T", self.body, url]

    def run(self, command):
        """(seconds, processor seconds) of it."""
        began = time.monotonic()
        child = self.network.client.popen(command, stdout=-3)
        _, status, usage = os.wait4(child.pid, 0)
        taken = time.monotonic() - began
        child.returncode = os.waitstatus_to_exitcode(status)
        assert child.returncode == 0, command
        return taken, usage.ru_utime + usage.ru_stime


def measure_transfers(bench):
    """Rounds of both by turns, so that both meet the same machine."""
    rounds, size = (3, 300_000_000) if bench.quick else (7, 1_000_000_000)
    with ExitStack() as stack:
        loopback = Loopback(bench.authority, stack, size)
        idle_time, idle_cpu = map(statistics.median, zip(*(loopback.run(["true"]) for _ in range(rounds))))
        for way in ("down", "up"):
            commands = loopback.commands(way)
            runs = [[loopback.run(command) for command in commands] for _ in range(rounds)]
            taken, cpu = zip(*([statistics.median(column) for column in zip(*side)] for side in zip(*runs)))
            bench.table.row(f"processor time of a transfer {way}, s per GB", *((seconds - idle_cpu) * 1e9 / size for seconds in cpu),
                            times(1.1))
            bench.table.row(f"throughput {way}, Gbit/s", *(size * 8e-9 / (seconds - idle_time) for seconds in taken), at_least(0.95))
