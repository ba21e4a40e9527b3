"""A virtual screen with a window manager, in the client's namespace, on which the program opens real windows, and the
accessibility bus over which a screen reader reads them."""

import json
import os
import signal
import sys

import settings
from support import accessibility
from support.processes import BARE_ENVIRONMENT, Tool, wait_until
from support.virtual_screen import VirtualScreen


class WindowScreen:
    """The screen, ready for windows. The program of the lab is told to use it, beside the lab's own status area."""

    def __init__(self, lab, stack, width=1024, height=768):
        client, folder = lab.network.client, lab.network.folder / "screen"
        (folder / "run").mkdir(parents=True, mode=0o700)
        environment = BARE_ENVIRONMENT | {
            "HOME": str(folder), "XDG_RUNTIME_DIR": str(folder / "run"),
            "DBUS_SESSION_BUS_ADDRESS": lab.session_bus.address, "LC_ALL": "C.UTF-8"}
        self._screen = VirtualScreen(client, stack, folder, environment, width, height)
        self._screen.start_window_manager()
        self._screen.start_accessibility_bus()
        self._reader = stack.enter_context(client.popen([sys.executable, accessibility.__file__], kind=Tool, env=environment))
        lab.program.environment |= {"DISPLAY": environment["DISPLAY"], "QT_QPA_PLATFORM": "xcb"}

    def things(self, window=""):
        """What a screen reader finds in the windows whose title begins so: dictionaries, see support/accessibility.py."""
        found = json.loads(self._reader.ask("skylet show"))
        return [thing for thing in found if thing["window"].startswith(window)]

    def texts(self, window):
        """The names of all labels of the window, in their order."""
        return [thing["name"] for thing in self.things(window) if thing["role"] == "label"]

    def click(self, thing):
        """Presses the left mouse button in the middle of the thing."""
        x, y, width, height = thing["place"]
        self._screen.click(x + width // 2, y + height // 2)

    def press(self, *keys):
        self._screen.press(*keys)

    def open_another_program(self):
        """A window of a program that has nothing to do with ours, with the keyboard."""
        self._screen.start("xmessage", "another program")
        wait_until(lambda: self.focused() == "xmessage", 5, "the other program has the keyboard")

    def focused(self):
        """The title of the window that has the keyboard."""
        return self._screen.ask("xdotool", "getactivewindow", "getwindowname").strip()

    def signal_accessibility_bus(self, how):
        """Sends the signal to the bus itself."""
        self._screen.signal_accessibility_bus(how)

    def kill(self):
        os.kill(self._screen.pid, signal.SIGKILL)

    def shot(self, name):
        """A picture of the screen, kept as NAME.png among the build's shots."""
        settings.SHOTS.mkdir(parents=True, exist_ok=True)
        self._screen.take_picture(settings.SHOTS / f"{name}.png")
