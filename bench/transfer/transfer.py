"""Prints what moving a gigabyte costs the speed test's transfers, and how fast they are, beside curl. See README.md."""

import os
import statistics
import sys
import tempfile
import time
from contextlib import ExitStack
from pathlib import Path

TESTS = Path(__file__).resolve().parents[2] / "tests"
sys.path[:0] = [str(TESTS), str(TESTS / "lab")]

import network  # noqa: E402
import settings  # noqa: E402
from authority import Authority  # noqa: E402
from lab import SpeedServer  # noqa: E402
from network import Network  # noqa: E402

GIGABYTE = 1_000_000_000
ROUNDS = 7
HOST = f"https://{settings.SPEEDTEST_HOST}"
BENCH = Path(sys.argv[1] if len(sys.argv) > 1 else "build/bench/bench/transfer/transfer_bench").resolve()
WAYS = sys.argv[2:] or ["down", "up"]


class Loopback:
    """The service and its clients in one namespace: no link between them."""

    def __init__(self, authority, stack):
        self.network = Network(authority, stack)
        self.network.server = self.network.client
        self.network.client.ip(f"address add {network.SPEEDTEST_ADDRESS}/32 dev lo")
        self.server = SpeedServer(self.network, authority, stack)
        # it holds nothing and takes no room
        self.body = self.network.folder / "body"
        with self.body.open("wb") as file:
            file.truncate(GIGABYTE)

    def commands(self, way):
        """The same transfer by the program's code and by curl."""
        curl = ["curl", "-sS", "-o", "/dev/null", "--http1.1"]
        if way == "down":
            url = f"{HOST}/__down?bytes={GIGABYTE}"
            return [BENCH, way, url], [*curl, url]
        url = f"{HOST}/__up"
        return [BENCH, way, url, str(GIGABYTE)], [*curl, "-X", "POST", "-H", "Expect:", "-T", self.body, url]

    def run(self, command):
        """(seconds, processor seconds) of it."""
        began = time.monotonic()
        child = self.network.client.popen(command, stdout=-3)
        _, status, usage = os.wait4(child.pid, 0)
        taken = time.monotonic() - began
        child.returncode = os.waitstatus_to_exitcode(status)
        assert child.returncode == 0, command
        return taken, usage.ru_utime + usage.ru_stime


def measure(loopback, way):
    """Rounds of both by turns, so that both meet the same machine."""
    commands = loopback.commands(way)
    idle = statistics.median(loopback.run(["true"])[0] for _ in range(ROUNDS))
    runs = [[loopback.run(command) for command in commands] for _ in range(ROUNDS)]
    (ours, our_cpu), (theirs, their_cpu) = ([statistics.median(column) for column in zip(*side)] for side in zip(*runs))
    gbit = [GIGABYTE * 8e-9 / (taken - idle) for taken in (ours, theirs)]
    print(f"{way:6}{our_cpu:12.3f}{their_cpu:10.3f}{our_cpu / their_cpu:8.2f}"
          f"{gbit[0]:16.2f}{gbit[1]:10.2f}{gbit[0] / gbit[1]:8.2f}", flush=True)


def main():
    print(f"{'':6}{'CPU s per GB':>12}{'curl':>10}{'ratio':>8}{'Gbit/s':>16}{'curl':>10}{'ratio':>8}")
    with tempfile.TemporaryDirectory(prefix=f"{network.PREFIX}-{os.getpid()}-", dir=network.RUN) as folder, ExitStack() as stack:
        loopback = Loopback(Authority(folder, [settings.SPEEDTEST_HOST]), stack)
        for way in WAYS:
            measure(loopback, way)


if __name__ == "__main__":
    main()
