"""What the program costs a desktop, beside programs of Qt Widgets that do next to nothing: its start, and its memory."""

import statistics
import time
from contextlib import ExitStack

from nginx import Nginx
from programs import REFERENCE
from support.processes import wait_until
from table import plus, times

# until a program that has come to rest has given back what it needed for that
SETTLED_AFTER = 4
SPEED_TEST = "Run Speed Test"


def measure_start(bench):
    """From the start of the process to the item at its watcher; the reference, to the first turn of its event loop."""
    with ExitStack() as stack:
        lab = bench.make_lab(stack, Nginx)
        lab.start_screen()
        program, entering, ours, theirs = lab.program, [], [], []
        for _ in range(5 if bench.quick else 15):
            began = time.monotonic()
            lab.network.client.run(["true"])
            entering.append(time.monotonic() - began)
            program.starter = [REFERENCE]
            program.start()
            theirs.append(float(wait_until(lambda: program.said().endswith("\n") and program.said(), 20, "it runs")) - program.started)
            program.end()
            program.starter = []
            program.start()
            lab.area.wait_for(lambda state: state.dot, 20, since=program.started)
            ours.append(lab.area.registered - program.started)
            program.end()
        before = statistics.median(entering)
        bench.table.row("start to registered item, ms", *(1000 * (statistics.median(taken) - before) for taken in (ours, theirs)),
                        times(1.3))


def measure_memory(bench):
    """Private, which is what comes from no file, and proportional, of both at the same time: what they share counts for both alike."""
    with ExitStack() as stack:
        lab, other = (bench.make_lab(stack, Nginx) for _ in range(2))
        lab.serve_speed_test()
        screen = lab.start_screen()
        other.start_screen()
        other.program.starter = [REFERENCE, "windows"]

        def look():
            time.sleep(SETTLED_AFTER)
            return [[each.program.anonymous_kb() / 1024, each.program.proportional_kb() / 1024] for each in (lab, other)]

        def close_windows():
            wait_until(lambda: screen.press("Escape") or not screen.things(), 20, "all windows are closed")

        def click(title):
            lab.area.click(title)
            wait_until(screen.things, 10, f"{title} opens a window")

        other.program.start()
        lab.start()
        idle = look()
        for title in ("About Skylet", SPEED_TEST):
            click(title)
            time.sleep(1)
            close_windows()
        wait_until(lambda: "closed" in other.program.said(), 20, "the reference has closed its windows")
        windows = look()
        click(SPEED_TEST)
        lab.area.wait_for(lambda state: "Mbps" in state.label, 20)
        close_windows()
        test = look()
        for index, kind in enumerate(("private", "proportional")):
            of = [[both[0][index], both[1][index]] for both in (idle, windows, test)]
            bench.table.row(f"{kind} memory, idle, MB", *of[0], plus(3))
            bench.table.row(f"{kind} memory, more after all windows, MB", *(after - before for after, before in zip(of[1], of[0])),
                            plus(1))
            bench.table.row(f"{kind} memory, more after a speed test, MB", *(after - before for after, before in zip(of[2], of[1])),
                            plus(1))
