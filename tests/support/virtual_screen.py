"""A virtual X screen of a test's own: programs are started on it, mouse and keyboard work them, pictures are taken of it."""

import itertools
import os
import signal
import subprocess
import time
from pathlib import Path

from support.processes import wait_until

ACCESSIBILITY = "/usr/libexec/at-spi-bus-launcher"


class VirtualScreen:
    """A screen in a place. Everything on it starts with `environment`, as that is by then; DISPLAY is added to it here. What
    programs say is kept in the folder."""

    _numbers = itertools.count()

    def __init__(self, place, stack, folder, environment, width, height):
        self._place, self._stack, self._folder, self._environment = place, stack, folder, environment
        # A number of its own, for up to two screens in a process: the first free one looks free to servers in several network
        # namespaces at once.
        environment["DISPLAY"] = f":{1000 + os.getpid() % 25000 + next(self._numbers) % 2 * 25000}"
        self._server = stack.enter_context(place.popen(
            # It would start anew whenever its last client leaves, and turn away who comes meanwhile. Any user may draw.
            ["Xvfb", environment["DISPLAY"], "-screen", "0", f"{width}x{height}x24", "-nolisten", "tcp", "-noreset", "-ac",
             "-displayfd", "1"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL))
        assert self._server.stdout.readline(), "the screen did not start"

    @property
    def pid(self):
        return self._server.pid

    def start(self, *command, log=None):
        """A process that ends with the screen at the latest; `log`: where to keep what it says, if not under its own name."""
        with (log or self._folder / f"{Path(command[0]).name}.log").open("a") as output:
            return self._stack.enter_context(self._place.popen(command, env=self._environment, stdout=output,
                                                               stderr=subprocess.STDOUT))

    def ask(self, *command):
        """What the command prints, whether or not it succeeds."""
        return self._place.run(command, env=self._environment, check=False, capture_output=True, text=True, timeout=20).stdout

    def do(self, *command):
        self._place.run(command, env=self._environment)

    def start_window_manager(self):
        self.start("openbox", "--sm-disable")
        wait_until(lambda: "WINDOW" in self.ask("xprop", "-root", "_NET_SUPPORTING_WM_CHECK"), 10, "there is a window manager")

    def start_accessibility_bus(self, programs_are_asked=True):
        """What assistive technologies ask; the environment has a session bus by now. `programs_are_asked`: to connect to it."""
        self._accessibility = self.start(ACCESSIBILITY, "--launch-immediately", f"--a11y={programs_are_asked:d}")
        wait_until(lambda: "unix:" in self.ask("xprop", "-root", "AT_SPI_BUS"), 10, "there is an accessibility bus")

    def signal_accessibility_bus(self, how):
        if how == signal.SIGSTOP:
            # One that stands still would outlive everything else.
            self._stack.callback(self.signal_accessibility_bus, signal.SIGCONT)
        for process in Path(f"/proc/{self._accessibility.pid}/task/{self._accessibility.pid}/children").read_text().split():
            os.kill(int(process), how)

    def point(self, x, y):
        self.do("xdotool", "mousemove", str(round(x)), str(round(y)))

    def click(self, x, y, button=1):
        self.do("xdotool", "mousemove", str(round(x)), str(round(y)), "click", str(button))

    def click_slowly(self, x, y):
        """As someone who keeps the button down for a while."""
        self.point(x, y)
        self.do("xdotool", "mousedown", "1")
        time.sleep(0.4)
        self.do("xdotool", "mouseup", "1")

    def press(self, *keys):
        self.do("xdotool", "key", "--delay", "60", *keys)

    def take_picture(self, path):
        self.do("import", "-silent", "-window", "root", f"png24:{path}")

    def take_picture_of_window(self, path, window):
        """With its frame."""
        self.do("import", "-silent", "-frame", "-window", str(window), f"png24:{path}")
