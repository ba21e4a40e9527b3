"""The program under test, in the client's namespace, with a home of its own."""

import signal
import subprocess
import time
from contextlib import suppress
from dataclasses import dataclass
from pathlib import Path

import settings
from support.processes import BARE_ENVIRONMENT

LEAKS_OF_OTHERS = Path(__file__).with_name("leaks_of_others.txt")


def schedule(pid):
    """{thread: (seconds it has run, seconds it could have but had no processor)} of a process."""
    rows = {task.name: _schedstat(task) for task in Path("/proc", str(pid), "task").iterdir()}
    return {thread: row for thread, row in rows.items() if row}


def _schedstat(task):
    try:
        ran, waited, _ = (task / "schedstat").read_text().split()
        return int(ran) / 1e9, int(waited) / 1e9
    except (FileNotFoundError, ProcessLookupError):
        return None  # the thread has ended meanwhile


@dataclass(frozen=True)
class Cost:
    time: float
    cpu_s: float
    wake_ups: int


class Program:
    """One run of the program. It starts with everything at its default, but with the welcome window already seen."""

    def __init__(self, network, stack, **environment):
        self._network, self._stack = network, stack
        self.home = network.folder / "home"
        self.settings_file = self.home / "config/skylet/skylet.ini"
        self.settings_file.parent.mkdir(parents=True)
        self.settings_file.write_text("[General]\ndidOnboard=true\n")
        (self.home / "run").mkdir(mode=0o700)
        (self.home / "tmp").mkdir()
        self.output = network.folder / "program.log"
        self.environment = BARE_ENVIRONMENT | {
            "HOME": str(self.home), "XDG_CONFIG_HOME": str(self.home / "config"), "XDG_DATA_HOME": str(self.home / "data"),
            "XDG_CACHE_HOME": str(self.home / "cache"), "XDG_RUNTIME_DIR": str(self.home / "run"),
            "TMPDIR": str(self.home / "tmp"), "LANG": "en_US.UTF-8", "LANGUAGE": "en", "LC_ALL": "C.UTF-8",
            "XDG_CURRENT_DESKTOP": "GNOME", "QT_QPA_PLATFORM": "offscreen",
            "LSAN_OPTIONS": f"suppressions={LEAKS_OF_OTHERS}:print_suppressions=0"} | environment
        # what it is started by, when not directly: a command line before its own; and what stands behind that
        self.starter, self.arguments = [], []
        self._process = self.started = None

    def start(self):
        """Starts it and returns at once; `started` is the moment."""
        self.started = time.monotonic()
        self._process = self._launch(self.output)

    def start_another(self):
        """A second start by the same user, as a process of its own."""
        return self._launch(self.output.with_suffix(".second.log"))

    def _launch(self, log):
        with log.open("w") as output:
            return self._stack.enter_context(self._network.client.popen(
                [*self.starter, settings.PROGRAM, *self.arguments], env=self.environment, stdout=output, stderr=subprocess.STDOUT))

    @property
    def file(self):
        return settings.PROGRAM

    @property
    def sanitized(self):
        """Whether it was built with a sanitizer, whose memory hides its own."""
        return b"__asan_init" in settings.PROGRAM.read_bytes()

    @property
    def pid(self):
        return self._process.pid

    @property
    def running(self):
        return self._process.poll() is None

    def end(self, how=signal.SIGTERM):
        """Sends the signal; the exit code and how long it took, in seconds."""
        began = time.monotonic()
        self._process.send_signal(how)
        return self._process.wait(10), time.monotonic() - began

    def wait(self, within):
        return self._process.wait(within)

    def said(self):
        return self.output.read_text()

    # what the kernel says of it

    def _status(self, key, file="status"):
        for line in Path("/proc", str(self.pid), file).read_text().splitlines():
            if line.startswith(f"{key}:"):
                return int(line.split()[1])
        raise KeyError(key)

    def cost(self):
        """What it has cost the processor so far, all threads together."""
        wake_ups = 0
        for task in Path("/proc", str(self.pid), "task").iterdir():
            with suppress(FileNotFoundError):  # a thread that has ended meanwhile
                wake_ups += self._status("voluntary_ctxt_switches", f"task/{task.name}/status")
        return Cost(time.monotonic(), sum(ran for ran, _ in schedule(self.pid).values()), wake_ups)

    def threads(self):
        return self._status("Threads")

    def descriptors(self):
        """How many files, sockets and the like it has open."""
        return len(list(Path("/proc", str(self.pid), "fd").iterdir()))

    def private_kb(self):
        """Memory that no other process shares."""
        return self._status("Private_Dirty", "smaps_rollup") + self._status("Private_Clean", "smaps_rollup")

    def anonymous_kb(self):
        """Memory that comes from no file, whoever else maps the same files."""
        return self._status("Anonymous", "smaps_rollup")

    def proportional_kb(self):
        return self._status("Pss", "smaps_rollup")
