"""A real panel on a virtual screen, with a home and message buses of its own, in the client's namespace: what it starts or
asks for stays in there."""

import shutil
import subprocess
import time
from dataclasses import dataclass
from pathlib import Path

import pytest
import settings
from desktop import WATCHER, PROPERTIES, Bus, colour_class, wait_until
from gi.repository import GLib

WIDTH, HEIGHT = 1024, 480
DISPLAY = ":0"
PANEL_HEIGHT = 40  # no panel here is higher; the dot is looked for in this strip at the top
SMALLEST_DOT = 8  # pixels inside its edge

XFCE_PANEL = """<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="length" type="uint" value="100"/>
      <property name="size" type="uint" value="28"/>
      <property name="plugin-ids" type="array">
        <value type="int" value="1"/><value type="int" value="2"/>
      </property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="clock"/>
    <property name="plugin-2" type="string" value="systray"/>
  </property>
</channel>
"""

GNOME_SETTINGS = """[org/gnome/shell]
enabled-extensions=['ubuntu-appindicators@ubuntu.com']
welcome-dialog-last-shown-version='100'
[org/gnome/desktop/interface]
enable-animations=false
[org/gnome/desktop/lockdown]
disable-lock-screen=true
"""


@dataclass(frozen=True)
class Kind:
    """How to start one sort of panel. `settings`: where its settings go below the configuration folder, and what they are."""

    desktop: str
    commands: tuple
    settings: tuple


KINDS = {
    "xfce": Kind("XFCE", (("openbox",), ("xfce4-panel", "--disable-wm-check")),
                 ("xfce4/xfconf/xfce-perchannel-xml/xfce4-panel.xml", XFCE_PANEL)),
    "gnome": Kind("GNOME", (("gnome-shell", "--x11", "--sm-disable"),), ("glib-2.0/settings/keyfile", GNOME_SETTINGS)),
}


class Picture:
    """A screenshot."""

    def __init__(self, path):
        self._data = subprocess.run(["convert", str(path), "-depth", "8", "rgb:-"], check=True, capture_output=True,
                                    env=settings.BARE_ENVIRONMENT).stdout

    def pixel(self, x, y):
        at = 3 * (y * WIDTH + x)
        return self._data[at:at + 3]

    def dot(self, colour):
        """The middle of a solid spot of this colour in the panel's strip, or None."""
        strip = {(x, y) for y in range(PANEL_HEIGHT) for x in range(WIDTH) if _is_dot_colour(colour, *self.pixel(x, y))}
        # the smooth edges of letters have every shade, but never beside their like on all sides
        solid = [(x, y) for x, y in strip if strip.issuperset(((x - 1, y), (x + 1, y), (x, y - 1), (x, y + 1)))]
        if len(solid) < SMALLEST_DOT:
            return None
        return tuple(sum(axis) // len(solid) for axis in zip(*solid))

    def difference(self, other):
        """(width, height) of the smallest rectangle below the panel that holds all pixels that differ."""
        changed = [(x, y) for y in range(PANEL_HEIGHT, HEIGHT) for x in range(WIDTH) if self.pixel(x, y) != other.pixel(x, y)]
        return tuple(max(axis) - min(axis) + 1 for axis in zip(*changed)) if changed else (0, 0)


def _is_dot_colour(colour, red, green, blue):
    """More than a hint of the colour; for gray neither black nor white, as panels and their text are."""
    strongest, weakest = max(red, green, blue), min(red, green, blue)
    telling = 110 < strongest < 190 if colour == "gray" else strongest - weakest > 90
    return telling and colour_class(red, green, blue) == colour


class Panel:
    """The panel, ready for items. The program of the lab is told to use it."""

    def __init__(self, lab, stack, kind):
        self._kind, self._name = KINDS[kind], kind
        for command, *_ in self._kind.commands:
            if not shutil.which(command):
                pytest.skip(f"{command} is not installed")
        self._client, self._stack = lab.network.client, stack
        self._home = lab.network.folder / "panel-home"
        configuration = self._home / "config" / self._kind.settings[0]
        configuration.parent.mkdir(parents=True)
        configuration.write_text(self._kind.settings[1])
        (self._home / "run").mkdir(mode=0o700)
        self._environment = settings.BARE_ENVIRONMENT | {
            "HOME": str(self._home), "XDG_CONFIG_HOME": str(self._home / "config"),
            "XDG_DATA_HOME": str(self._home / "data"), "XDG_CACHE_HOME": str(self._home / "cache"),
            "XDG_RUNTIME_DIR": str(self._home / "run"), "XDG_CURRENT_DESKTOP": self._kind.desktop,
            "XDG_SESSION_TYPE": "x11", "DISPLAY": DISPLAY, "LIBGL_ALWAYS_SOFTWARE": "1", "NO_AT_BRIDGE": "1",
            "GSETTINGS_BACKEND": "keyfile", "DBUS_SYSTEM_BUS_ADDRESS": lab.system_bus.address}
        screen = stack.enter_context(self._client.popen(
            ["Xvfb", DISPLAY, "-screen", "0", f"{WIDTH}x{HEIGHT}x24", "-nolisten", "tcp", "-displayfd", "1"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL))
        assert screen.stdout.readline(), "the screen did not start"
        # services that the bus starts inherit its environment
        bus = Bus(lab.network.folder, "panel", stack, services=True, inside=self._client, env=self._environment)
        self._environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address
        self._connection = bus.connect()
        stack.callback(self._connection.close_sync)
        self._bus_log = lab.network.folder / "panel-bus-messages"
        self._start("dbus-monitor", "--address", bus.address, "interface='com.canonical.dbusmenu'", log=self._bus_log)
        for command in self._kind.commands:
            self._start(*command)
        wait_until(self._has_host, 60, f"{kind} has a host for status items")
        self.wait_until_still()
        self.press("Escape")  # out of the overview with which some greet
        self.wait_until_still()
        lab.program.environment |= {"DBUS_SESSION_BUS_ADDRESS": bus.address, "DISPLAY": DISPLAY,
                                    "XDG_CURRENT_DESKTOP": self._kind.desktop, "QT_QPA_PLATFORM": "xcb"}

    def _start(self, *command, log=None):
        with (log or self._home / f"{Path(command[0]).name}.log").open("w") as output:
            self._stack.enter_context(self._client.popen(command, env=self._environment, stdout=output,
                                                         stderr=subprocess.STDOUT))

    def _has_host(self):
        try:
            question = GLib.Variant("(ss)", (WATCHER, "IsStatusNotifierHostRegistered"))
            return self._connection.call_sync(WATCHER, "/StatusNotifierWatcher", PROPERTIES, "Get", question, None, 0, 2000,
                                              None).unpack()[0]
        except GLib.Error:
            return False

    def _run(self, *command):
        self._client.run(command, env=self._environment)

    def shot(self, name):
        """A picture of the screen, kept as PANEL-NAME.png among the build's shots."""
        settings.SHOTS.mkdir(parents=True, exist_ok=True)
        return self._picture(settings.SHOTS / f"{self._name}-{name}.png")

    def _picture(self, path):
        self._run("import", "-window", "root", str(path))
        return Picture(path)

    def wait_for_dot(self, colour, within, name):
        """Where the dot of this colour is, as soon as it is there; the picture that shows it is kept."""
        return wait_until(lambda: self.shot(name).dot(colour), within, f"a {colour} dot in the panel")

    def wait_until_still(self):
        """Until nothing moves below the panel."""
        def still():
            before = self._picture(self._home / "before.png")
            time.sleep(0.5)
            return self._picture(self._home / "after.png").difference(before) == (0, 0)

        wait_until(still, 20, "nothing moves any more")

    def click(self, place):
        self._run("xdotool", "mousemove", *map(str, place), "click", "1")

    def press(self, *keys):
        self._run("xdotool", "key", "--delay", "60", *keys)

    def openings(self):
        """How often the panel has told the item so far that it opens its menu."""
        return self._bus_log.read_text().count("member=AboutToShow")
