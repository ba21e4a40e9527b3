"""bench.py [--quick] [steady|start|memory|moments|accuracy|transfers|gauge]...: what Skylet costs, each figure beside a reference
that is measured in the same run. Asserts nothing: the last lines say which aims were missed."""

import os
import sys
import tempfile
import time
from contextlib import ExitStack
from pathlib import Path

TESTS = Path(__file__).resolve().parents[1] / "tests"
sys.path[:0] = [str(TESTS), str(TESTS / "lab"), str(TESTS / "ui")]

import desktop_costs  # noqa: E402
import gauge  # noqa: E402
import moments  # noqa: E402
import network  # noqa: E402
import settings  # noqa: E402
import speed  # noqa: E402
from authority import Authority  # noqa: E402
from lab import Lab  # noqa: E402
from steady import Steady  # noqa: E402
from table import Table  # noqa: E402

PARTS = {"start": desktop_costs.measure_start, "memory": desktop_costs.measure_memory, "moments": moments.measure,
         "accuracy": speed.measure_accuracy, "transfers": speed.measure_transfers, "gauge": gauge.measure}


class Bench:
    """What the parts need."""

    def __init__(self, authority, quick):
        self.authority, self.quick, self.table = authority, quick, Table()

    def make_lab(self, stack, servers):
        return Lab(self.authority, stack, servers)


def machine():
    return (f"{time.strftime('%F %R %Z')}, {os.cpu_count()} processors, load {os.getloadavg()[0]:.1f}, "
            f"Linux {os.uname().release}")


def main(*arguments):
    quick = "--quick" in arguments
    names = [name for name in arguments if name != "--quick"] or ["steady", *PARTS]
    if unknown := set(names) - {"steady", *PARTS}:
        sys.exit("bench: nothing is called " + ", ".join(sorted(unknown)))
    print(machine())
    began = time.monotonic()
    network.sweep()
    with tempfile.TemporaryDirectory(prefix=f"{network.PREFIX}-{os.getpid()}-", dir=network.RUN) as folder, ExitStack() as stack:
        bench = Bench(Authority(folder, [*network.ENDPOINT_NAMES, settings.SPEEDTEST_HOST]), quick)
        steady = Steady(bench, stack) if "steady" in names else None
        if steady and not quick:
            steady.finish()
        for name in names:
            if name in PARTS:
                PARTS[name](bench)
        if steady and quick:
            steady.finish()
    print(f"{machine()}; {time.monotonic() - began:.0f} s")
    print(f"{len(bench.table.missed)} aims missed" + "".join(f"\n  {figure}" for figure in bench.table.missed))


if __name__ == "__main__":
    main(*sys.argv[1:])
