"""Whether 500 changes of the item make its host, or the item's own process, grow.

What a process has taken grows for three reasons, and only one of them is a fault: caches that fill up to their bound, garbage
that waits for its collector, and what is never given back. So `Kind.warm_up` changes fill the caches first, and a host that can
be told to collect its garbage (`Kind.collects`) is told so before each look. All that is left counts. Where garbage and caches
cannot be told from the rest, rounds that are alike do: each makes the same number of changes and then leaves the host alone
(`Kind.pause_s`) until it has let go of what it kept. The next round fills the same space again, and needs more only by what was
never given back.

Each change has to reach the host: one that gathers signals for a while before it looks gets the changes so slowly
(`Kind.pace_ms`) that it reads the item after each of them.
"""

import re
import time
from pathlib import Path

CHANGES = 500
LIMIT_KB = 1024


def own_kb(pid):
    """Memory that a process has filled itself: what it maps from files counts as shared or not as others come and go."""
    text = Path("/proc", str(pid), "smaps_rollup").read_text()
    return int(re.search(r"^Anonymous: +(\d+)", text, re.MULTILINE)[1])


class Changes:
    """The item in the hands of the test."""

    def __init__(self, panel):
        self._panel = panel
        self._demo = panel.start_demo()

    @property
    def pid(self):
        return self._demo.pid

    def make(self, count):
        """Changes the item so often, at the panel's pace; what was signalled, and how often it was read."""
        reads, began = self._panel.reads(), time.time()
        self._demo.stdin.write(f"{count} {self._panel.kind.pace_ms}\n")
        assert self._demo.stdout.readline().startswith(f"{count} changes")
        time.sleep(1)  # what the last change has set off
        return [name for _, name in self._panel.signals(began)], self._panel.reads() - reads

    def check(self, count):
        """Each of so many is told once, and the host looks at each."""
        told, reads = self.make(count)
        counts = {name: told.count(name) for name in sorted(set(told))}
        print(f"{self._panel.name}: {counts}, {reads} reads")
        assert all(number <= count for number in counts.values()), counts
        assert "LayoutUpdated" not in counts
        if self._panel.kind.shows not in ("tray", "strip"):
            assert counts and reads >= max(counts.get("NewIcon", 0), counts.get("NewToolTip", 0)) * 0.8, (counts, reads)

    def end(self):
        self._demo.terminate()
        self._demo.wait(5)


def check_growth(panel, may_judge):
    """`may_judge`: whether the memory is the processes' own, not a sanitizer's."""
    if panel.kind.collects:
        panel.kill()
        panel.restart(*panel.kind.collects)
        panel.wait_until_still()
    changes = Changes(panel)
    panel.wait_for_dot("green", 20, "changes")
    changes.make(panel.kind.warm_up)
    pids = (*panel.host_pids(), changes.pid)
    looks = [look(panel, pids)]
    for _ in range(panel.kind.rounds):
        changes.check(panel.kind.round)
        looks.append(look(panel, pids))
    all_changes = panel.kind.rounds * panel.kind.round
    growth = {pid: (kb - looks[0][pid]) * CHANGES / all_changes for pid, kb in looks[-1].items()}
    for pid, kb in growth.items():
        name = Path("/proc", str(pid), "comm").read_text().strip()
        print(f"{panel.name}: {name} grew by {kb:.0f} kB with {CHANGES} changes: {[seen[pid] for seen in looks]}")
    if may_judge:
        assert max(growth.values()) <= LIMIT_KB, growth
    changes.end()


def look(panel, pids):
    panel.collect_garbage()
    time.sleep(panel.kind.pause_s)
    return {pid: own_kb(pid) for pid in pids}
