"""A desktop of a test's own: a virtual screen with a window manager and, on demand, a session bus with its accessibility
services. Everything is started here, ends with the session, and shares nothing with whoever runs the tests."""

import json
import os
import select
import shutil
import signal
import subprocess
import tempfile
import time
from pathlib import Path

SCREEN = "1280x900x24"
BUS_CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type><listen>unix:path={socket}</listen><auth>EXTERNAL</auth><standard_session_servicedirs/>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/>
  </policy>
</busconfig>
"""


def wait_until(condition, what, within=10):
    deadline = time.monotonic() + within
    while not (result := condition()):
        assert time.monotonic() < deadline, f"not within {within} s: {what}"
        time.sleep(0.02)
    return result


class Session:
    def __init__(self, accessible=False):
        self._folder = tempfile.mkdtemp(prefix="skylet-desktop-")
        self._children = []
        try:
            self._begin(accessible)
        except BaseException:
            self.end()
            raise

    def _begin(self, accessible):
        self.environment = {"PATH": "/usr/bin:/bin", "HOME": self._folder, "XDG_RUNTIME_DIR": self._folder,
                            "LC_ALL": "C.UTF-8", "LANGUAGE": "en", "QT_QPA_PLATFORM": "xcb",
                            "DISPLAY": self._start_screen(), "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent"}
        if accessible:
            self.environment |= {"DBUS_SESSION_BUS_ADDRESS": self._start_bus(), "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"}
        self.start(["openbox"])
        wait_until(lambda: "_NET_SUPPORTING_WM_CHECK(WINDOW)" in self.run("xprop", "-root", "_NET_SUPPORTING_WM_CHECK"),
                   "there is a window manager")

    def _start_screen(self):
        reader, writer = os.pipe()
        # A number of its own: the first free one looks free to servers in several network namespaces at once. No reset
        # when the last client goes, which would turn away the next one.
        display = f":{1000 + os.getpid() % 50000}"
        self.screen = self.start(["Xvfb", display, "-displayfd", str(writer), "-screen", "0", SCREEN, "-nolisten", "tcp",
                                  "-noreset"], env=os.environ, pass_fds=[writer])
        os.close(writer)
        with os.fdopen(reader) as answer:
            assert answer.readline().strip() == display[1:]
        return display

    def _start_bus(self):
        configuration = Path(self._folder, "bus.conf")
        configuration.write_text(BUS_CONFIGURATION.format(socket=f"{self._folder}/bus"))
        daemon = self.start(["dbus-daemon", "--nofork", "--print-address", f"--config-file={configuration}"],
                            env={"PATH": "/usr/bin:/bin", "XDG_RUNTIME_DIR": self._folder}, stdout=subprocess.PIPE)
        assert daemon.stdout.readline()
        return f"unix:path={self._folder}/bus"

    def start(self, command, env=None, **options):
        """A child in a process group of its own, which ends with the session."""
        options = {"stderr": subprocess.DEVNULL} | options
        child = subprocess.Popen(command, env=env or self.environment, start_new_session=True, **options)
        self._children.append(child)
        return child

    def run(self, *command):
        return subprocess.run(command, env=self.environment, capture_output=True, text=True, check=False, timeout=20).stdout

    def press(self, *keys):
        self.run("xdotool", "key", "--delay", "40", *keys)

    def click(self, x, y):
        self.run("xdotool", "mousemove", str(round(x)), str(round(y)), "click", "1")

    def end(self):
        for child in reversed(self._children):
            # With all that it has started in turn, such as the services of a bus.
            try:
                os.killpg(child.pid, signal.SIGTERM)
            except ProcessLookupError:
                pass
            try:
                child.wait(5)
            except subprocess.TimeoutExpired:
                os.killpg(child.pid, signal.SIGKILL)
                child.wait()
            for pipe in (child.stdin, child.stdout):
                if pipe:
                    pipe.close()
        shutil.rmtree(self._folder, ignore_errors=True)


class Demo:
    """The program `windows_demo`, told what to do line by line."""

    def __init__(self, session, language="en", scale=1):
        self.session = session
        environment = session.environment | {"LANGUAGE": language, "QT_SCALE_FACTOR": str(scale)}
        self._process = session.start([os.environ["SKYLET_WINDOWS_DEMO"]], env=environment, text=True, bufsize=1,
                                      stdin=subprocess.PIPE, stdout=subprocess.PIPE)
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
        wait_until(lambda: self.window(name)["active"], f"{name} is active")
        return self.window(name)

    def click(self, widget):
        place = self.tell(f"where {widget}")
        self.session.click(place["x"], place["y"])

    def properties(self, name, *which):
        return self.session.run("xprop", "-id", str(self.window(name)["id"]), *which)

    def end(self):
        self._process.terminate()
        self._process.wait(5)
