"""A virtual screen with a window manager, in the client's namespace, on which the program opens real windows, and the
accessibility bus over which a screen reader reads them."""

import json
import subprocess
import sys
from pathlib import Path

import settings
from desktop import wait_until
from network import Tool

AT_SPI = "/usr/libexec/at-spi-bus-launcher"
DISPLAY = ":0"
WINDOWS = Path(__file__).with_name("windows.py")


class Screen:
    """The screen, ready for windows. The program of the lab is told to use it, beside the lab's own status area."""

    def __init__(self, lab, stack, width=1024, height=768):
        self._client, self._folder = lab.network.client, lab.network.folder / "screen"
        self._stack = stack
        (self._folder / "run").mkdir(parents=True, mode=0o700)
        self._environment = settings.BARE_ENVIRONMENT | {
            "HOME": str(self._folder), "XDG_RUNTIME_DIR": str(self._folder / "run"), "DISPLAY": DISPLAY,
            "DBUS_SESSION_BUS_ADDRESS": lab.session_bus.address, "LC_ALL": "C.UTF-8"}
        xvfb = stack.enter_context(self._client.popen(
            # it would start anew whenever its last client leaves, and turn away who comes meanwhile
            ["Xvfb", DISPLAY, "-screen", "0", f"{width}x{height}x24", "-nolisten", "tcp", "-noreset", "-displayfd", "1"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL))
        assert xvfb.stdout.readline(), "the screen did not start"
        self._start("openbox", "--sm-disable")
        self._start(AT_SPI, "--launch-immediately", "--a11y=1")
        wait_until(lambda: "WINDOW" in self._ask("xprop", "-root", "_NET_SUPPORTING_WM_CHECK"), 10, "there is a window manager")
        wait_until(lambda: "unix:" in self._ask("xprop", "-root", "AT_SPI_BUS"), 10, "there is an accessibility bus")
        self._reader = stack.enter_context(self._client.popen([sys.executable, WINDOWS], kind=Tool, env=self._environment))
        lab.program.environment |= {"DISPLAY": DISPLAY, "QT_QPA_PLATFORM": "xcb", "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"}

    def _start(self, *command):
        with (self._folder / f"{Path(command[0]).name}.log").open("w") as output:
            self._stack.enter_context(self._client.popen(command, env=self._environment, stdout=output,
                                                         stderr=subprocess.STDOUT))

    def _ask(self, *command):
        return self._client.run(command, env=self._environment, check=False, capture_output=True, text=True).stdout

    def things(self, window=""):
        """What a screen reader finds in the windows whose title begins so: dictionaries, see windows.py."""
        found = json.loads(self._reader.ask("skylet show"))
        return [thing for thing in found if thing["window"].startswith(window)]

    def texts(self, window):
        """The names of all labels of the window, in their order."""
        return [thing["name"] for thing in self.things(window) if thing["role"] == "label"]

    def click(self, thing):
        """Presses the left mouse button in the middle of the thing."""
        x, y, width, height = thing["place"]
        self._ask("xdotool", "mousemove", str(x + width // 2), str(y + height // 2), "click", "1")

    def press(self, *keys):
        self._ask("xdotool", "key", "--delay", "60", *keys)

    def open_another_program(self):
        """A window of a program that has nothing to do with ours, with the keyboard."""
        self._start("xmessage", "another program")
        wait_until(lambda: self.focused() == "xmessage", 5, "the other program has the keyboard")

    def focused(self):
        """The title of the window that has the keyboard."""
        return self._ask("xdotool", "getactivewindow", "getwindowname").strip()

    def shot(self, name):
        """A picture of the screen, kept as NAME.png among the build's shots."""
        settings.SHOTS.mkdir(parents=True, exist_ok=True)
        self._ask("import", "-window", "root", str(settings.SHOTS / f"{name}.png"))
