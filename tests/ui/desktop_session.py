"""A desktop for the windows: a virtual screen with a window manager and, on demand, a session bus with its accessibility
services. It shares nothing with whoever runs the tests."""

import json
import os
import select
import subprocess
import tempfile
from pathlib import Path

from support.message_bus import MessageBus
from support.processes import BARE_ENVIRONMENT, HERE, wait_until
from support.virtual_screen import VirtualScreen

WIDTH, HEIGHT = 1280, 900


class Session:
    def __init__(self, stack, accessible=False, size=(WIDTH, HEIGHT)):
        self._stack = stack
        folder = stack.enter_context(tempfile.TemporaryDirectory(prefix="skylet-desktop-"))
        self.environment = BARE_ENVIRONMENT | {
            "HOME": folder, "XDG_RUNTIME_DIR": folder, "LC_ALL": "C.UTF-8", "LANGUAGE": "en", "QT_QPA_PLATFORM": "xcb",
            "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent"}
        self.screen = VirtualScreen(HERE, stack, Path(folder), self.environment, *size)
        if accessible:
            bus = MessageBus(Path(folder), "session", stack)
            self.environment |= {"DBUS_SESSION_BUS_ADDRESS": bus.address, "GSETTINGS_BACKEND": "memory"}
            self.screen.start_accessibility_bus()
        self.screen.start_window_manager()

    def talk_to(self, command, environment):
        """A program that is told what to do and answers, line by line."""
        return self._stack.enter_context(HERE.popen(command, env=environment, text=True, bufsize=1, stdin=subprocess.PIPE,
                                                    stdout=subprocess.PIPE, stderr=subprocess.DEVNULL))


class Demo:
    """The program `windows_demo`, told what to do line by line."""

    def __init__(self, session, language="en", scale=1):
        self.screen = session.screen
        environment = session.environment | {"LANGUAGE": language, "QT_SCALE_FACTOR": str(scale)}
        self._process = session.talk_to([os.environ["SKYLET_WINDOWS_DEMO"]], environment)
        self.pid = self._process.pid

    def tell(self, command):
        self._process.stdin.write(command + "\n")
        assert select.select([self._process.stdout], [], [], 10)[0], f"no answer to: {command}"
        return json.loads(self._process.stdout.readline())

    @property
    def state(self):
        return self.tell("state")

    def window(self, name):
        return self.state["windows"].get(name)

    @property
    def reports(self):
        return self.state["reports"]

    def show(self, what, name):
        self.tell(f"show {what}")
        wait_until(lambda: self.window(name)["active"], 10, f"{name} is active")
        return self.window(name)

    def click(self, widget):
        place = self.tell(f"where {widget}")
        self.screen.click(place["x"], place["y"])

    def properties(self, name, *which):
        return self.screen.ask("xprop", "-id", str(self.window(name)["id"]), *which)

    def end(self):
        self._process.terminate()
        self._process.wait(5)
