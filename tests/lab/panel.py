"""A real panel on a virtual screen, with a home and message buses of its own, in the client's namespace: what it starts or
asks for stays in there."""

import os
import re
import shutil
import subprocess
import sys
import time
from pathlib import Path

import pytest
import settings
from desktop import ITEM, MENU, PROPERTIES, WATCHER, MenuEntry, unpack
from gi.repository import GLib
from panel_kinds import KINDS
from picture import Icon, Picture
from support import accessibility
from support.message_bus import MessageBus
from support.processes import BARE_ENVIRONMENT, Tool, wait_until
from support.virtual_screen import VirtualScreen

WIDTH, HEIGHT = 1024, 480
PANEL_HEIGHT = 40  # no panel of scale 1 is higher here; the dot is looked for in this strip at the top
PANEL = (0, 0, WIDTH, PANEL_HEIGHT)
BELOW = (0, PANEL_HEIGHT, WIDTH, HEIGHT)
SCREEN = (0, 0, WIDTH, HEIGHT)
NOBODY = ("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "--pdeathsig", "KILL")


class Panel:
    """The panel, ready for items. The program of the lab is told to use it."""

    def __init__(self, lab, stack, kind):
        self.kind, self.name = KINDS[kind], kind
        self._user = NOBODY if self.kind.as_nobody else ()
        for command in self.kind.commands:
            if not shutil.which(self._words(command)[0]):
                pytest.skip(f"{self._words(command)[0]} is not installed")
        self._lab, self._client, self._stack = lab, lab.network.client, stack
        self._home = lab.network.folder / "panel-home"
        self._lay_out_home()
        self._environment = BARE_ENVIRONMENT | {
            "HOME": str(self._home), "XDG_CONFIG_HOME": str(self._home / "config"),
            "XDG_DATA_HOME": str(self._home / "data"), "XDG_CACHE_HOME": str(self._home / "cache"),
            "XDG_RUNTIME_DIR": str(self._home / "run"), "XDG_CURRENT_DESKTOP": self.kind.desktop,
            "XDG_SESSION_TYPE": "wayland" if self.kind.wayland else "x11", "LIBGL_ALWAYS_SOFTWARE": "1", "NO_AT_BRIDGE": "1",
            "GSETTINGS_BACKEND": "keyfile", "DBUS_SYSTEM_BUS_ADDRESS": lab.system_bus.address} | self.kind.environment
        self._screen = VirtualScreen(self._client, stack, self._home, self._environment, WIDTH, HEIGHT)
        # services that the bus starts inherit its environment
        bus = MessageBus(self._home, "panel", stack, services=True, place=self._client, env=self._environment, user=self._user)
        self._environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address
        self._connection = bus.connect()
        stack.callback(self._connection.close_sync)
        self._bus_log = lab.network.folder / "panel-bus-messages"
        self._screen.start("dbus-monitor", "--profile", "--address", bus.address, f"interface='{MENU}'", f"interface='{ITEM}'",
                           f"type='method_call',interface='{PROPERTIES}',path='/StatusNotifierItem'", log=self._bus_log)
        for command in self.kind.commands:
            self._panel = self._start_part(command)
        self._wait_until_ready()
        self.wait_until_still()
        if self.kind.desktop == "GNOME":  # which shows no items before it has started, nor ever when that is interrupted
            log = self._home / "gnome-shell.log"
            wait_until(lambda: "GNOME Shell started" in log.read_text(), 120, "the shell has started")
        self.press("Escape")  # out of what some greet with
        if self.kind.desktop == "GNOME":
            wait_until(self._has_left_overview, 60, "the overview is gone")
        self.wait_until_still()
        lab.program.environment |= {"DBUS_SESSION_BUS_ADDRESS": bus.address, "DISPLAY": self._environment["DISPLAY"],
                                    "XDG_CURRENT_DESKTOP": self.kind.desktop, "QT_QPA_PLATFORM": "xcb"}
        if self.kind.wayland:
            self.use_wayland()

    def _lay_out_home(self):
        for path, text in self.kind.settings.items():
            file = self._home / "config" / path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)
        (self._home / "run").mkdir(mode=0o700, parents=True)
        if self.kind.as_nobody:
            self._lab.network.folder.chmod(0o711)
            for path in (self._home, *self._home.rglob("*")):
                os.chown(path, 65534, 65534)

    # starting and ending

    def _words(self, command):
        return command[1:] if command[0].startswith("@") else command

    def _start_part(self, command):
        if command[0] == "@wayland":
            self._environment["WAYLAND_DISPLAY"] = self.wayland_socket().name
            for sway in (self._home / "run").glob("sway-ipc.*.sock"):
                self._environment["SWAYSOCK"] = str(sway)
        words = [word.format(config=self._home / "config") for word in self._words(command)]
        return self._screen.start(*self._user, *words, log=self._home / f"{Path(words[0]).name}.log")

    def wayland_socket(self):
        """Where programs reach the compositor, as soon as there is one."""
        sockets = wait_until(lambda: [path for path in (self._home / "run").glob("wayland-?") if path.is_socket()], 20,
                             "a Wayland compositor")
        return sockets[0]

    def use_wayland(self):
        """From now on the program's windows are the compositor's own."""
        self._lab.program.environment |= {"QT_QPA_PLATFORM": "wayland", "WAYLAND_DISPLAY": str(self.wayland_socket())}

    def start_demo(self):
        """The program's status item in the hands of a test, for many changes in a short time."""
        environment = self._lab.program.environment
        return self._stack.enter_context(self._client.popen(
            [settings.DEMO, "changes"], env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL, text=True, bufsize=1))

    def start_screen_reader(self):
        """A program that reads what is on the screen (support/accessibility.py), before which nobody has asked for such a thing."""
        self._screen.start_accessibility_bus(programs_are_asked=False)
        return self._stack.enter_context(
            self._client.popen([sys.executable, accessibility.__file__], kind=Tool, env=self._environment))

    def start_another(self, kind):
        """Another panel beside this one, on the same screen; returns its process."""
        other = KINDS[kind]
        for path, text in other.settings.items():
            file = self._home / "config" / path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)
        return self._start_part(other.commands[-1])

    def kill(self):
        """The panel crashes."""
        self._panel.kill()
        self._panel.wait(20)

    def restart(self, *words):
        """With these added to its command."""
        self._panel = self._start_part((*self.kind.commands[-1], *words))
        self._wait_until_ready()

    def _wait_until_ready(self):
        if self.kind.shows == "tray":
            wait_until(self._has_tray, 20, f"{self.name} is a tray")
        elif self.kind.shows != "strip":
            wait_until(self.has_host, 60, f"{self.name} has a host for status items")

    def _has_left_overview(self):
        shell, active = "org.gnome.Shell", ("org.gnome.Shell", "OverviewActive")
        self._call(shell, "/org/gnome/Shell", PROPERTIES, "Set", GLib.Variant("(ssv)", (*active, GLib.Variant("b", False))))
        return not self._call(shell, "/org/gnome/Shell", PROPERTIES, "Get", GLib.Variant("(ss)", active))[0]

    def _has_tray(self):
        return (self.kind.window or self.kind.commands[-1][0]) in self._screen.ask("xwininfo", "-root", "-tree")

    def has_tray_icon(self):
        """Whether the program's window is inside another one: the root's own children are listed with less space before them."""
        tree = self._screen.ask("xwininfo", "-root", "-tree")
        return re.search(r"^ {8,}0x.*\"skylet\" \"skylet\"", tree, re.MULTILINE) is not None

    # the bus

    def _call(self, name, path, interface, method, arguments):
        return unpack(self._connection.call_sync(name, path, interface, method, arguments, None, 0, 3000, None))

    def _ask_bus(self, method, *arguments):
        return self._call("org.freedesktop.DBus", "/", "org.freedesktop.DBus", method,
                          GLib.Variant(f"({'s' * len(arguments)})", arguments))[0]

    def has_host(self):
        try:
            question = GLib.Variant("(ss)", (WATCHER, "IsStatusNotifierHostRegistered"))
            return self._call(WATCHER, "/StatusNotifierWatcher", PROPERTIES, "Get", question)[0]
        except GLib.Error:
            return False

    def host_pids(self):
        """The processes behind the watcher and the hosts, or the panel's own."""
        names = [name for name in self._ask_bus("ListNames")
                 if name == WATCHER or name.startswith("org.kde.StatusNotifierHost-")]
        pids = {self._ask_bus("GetConnectionUnixProcessID", name) for name in names}
        return pids | {self._panel.pid}

    def item(self, pid):
        """(connection, properties) of the item of this process, as any host can read them."""
        # GTK, where Qt loads it, has a later connection that answers nobody.
        names = (name for name in self._ask_bus("ListNames") if name.startswith(":"))
        for name in sorted(names, key=lambda name: int(name.rpartition(".")[2])):
            if self._pid_of(name) == pid:
                try:
                    return name, self._call(name, "/StatusNotifierItem", PROPERTIES, "GetAll", GLib.Variant("(s)", (ITEM,)))[0]
                except GLib.Error:
                    pass
        raise AssertionError("the program has no item on the bus")

    def _pid_of(self, name):
        try:
            return self._ask_bus("GetConnectionUnixProcessID", name)
        except GLib.Error:
            return None

    def menu(self, pid):
        """The menu's entries from top to bottom, as any host can read them."""
        name, properties = self.item(pid)
        layout = self._call(name, properties["Menu"], MENU, "GetLayout", GLib.Variant("(iias)", (0, -1, [])))
        return [MenuEntry.of(id_, entry) for id_, entry, _ in layout[1][2]]

    def choose(self, pid, title):
        """As if the host's user had chosen the entry whose title begins so."""
        name, properties = self.item(pid)
        entry = next(entry for entry in self.menu(pid) if entry.title.startswith(title))
        self._call(name, properties["Menu"], MENU, "Event", GLib.Variant("(isvu)", (entry.id, "clicked", GLib.Variant("i", 0), 0)))

    def signals(self, since):
        """[(time, name)] of each signal of items and menus since then, in seconds of the wall clock."""
        rows = [line.split("\t") for line in self._bus_log.read_text().splitlines() if line.startswith("sig\t")]
        return [(float(row[1]), row[-1]) for row in rows if float(row[1]) >= since]

    def calls(self, *members):
        """How often hosts have called one of these methods so far."""
        rows = [line.split("\t") for line in self._bus_log.read_text().splitlines() if line.startswith("mc\t")]
        return sum(row[-1] in members for row in rows)

    def reads(self):
        """How often they have read properties of the item so far."""
        return self.calls("Get", "GetAll")

    def collect_garbage(self):
        """What the panel's scripts no longer use is cleared away, which else happens only now and then."""
        if not self.kind.collects:
            return
        for _ in range(2):  # what the first time sets free may hold more
            done, said = self._call("org.gnome.Shell", "/org/gnome/Shell", "org.gnome.Shell", "Eval",
                                    GLib.Variant("(s)", ("imports.system.gc()",)))
            assert done, said
            time.sleep(1)

    # the screen

    def shot(self, name):
        """A picture of the screen, kept as PANEL-NAME.png among the build's shots."""
        settings.SHOTS.mkdir(parents=True, exist_ok=True)
        return self._picture(settings.SHOTS / f"{self.name}-{name}.png")

    def _picture(self, path):
        self._screen.take_picture(path)
        return Picture(path)

    def look(self):
        """A picture of the screen that is not kept."""
        return self._picture(self._lab.network.folder / "look.png")

    def wait_for_dot(self, colour, within, name):
        """Where the dot of this colour is, as soon as it is there; the picture that shows it is kept."""
        return wait_until(lambda: self.shot(name).dots(colour, PANEL), within, f"a {colour} dot in the panel")[0]

    def wait_until_gone(self, colour, within, name):
        wait_until(lambda: not self.shot(name).dots(colour, PANEL), within, f"no {colour} dot in the panel")

    def wait_until_still(self, area=BELOW):
        """Until nothing moves there; the picture of it."""
        before = self.look()
        deadline = time.monotonic() + 20
        while True:
            time.sleep(0.25)
            after = self.look()
            if after.difference(before, area) is None:
                return after
            assert time.monotonic() < deadline, "it never stands still"
            before = after

    def icon_distance(self, picture, dot, pixmaps):
        """(difference, height given, height drawn): how well the best of an item's pictures fits what is to be seen around the
        dot, as the mean difference of a colour, 0 to 255, and at which size."""
        heights = range(14 * self.kind.scale, 32 * self.kind.scale + 1, self.kind.scale)
        return min((self.scaled_distance(picture, dot, pixmap, height), pixmap[1], height) for pixmap in pixmaps
                   for height in heights)

    def scaled_distance(self, picture, dot, pixmap, height):
        """As above, for one picture drawn at one height."""
        best, ground = 255.0, self._ground(picture, dot)
        icon = Icon(pixmap).scaled(height)
        dot_x = round(icon.width * _dot_place(pixmap))
        for top in range(max(0, dot[1] - height + 1), dot[1] + 1):
            for left in range(max(0, dot[0] - dot_x - 3), max(0, dot[0] - dot_x) + 4):
                if left + icon.width > picture.width or top + height > picture.height:
                    continue
                # a row through the dot sorts out what is far off
                if icon.distance(picture, left, top, ground, [dot[1] - top]) < best:
                    best = min(best, icon.distance(picture, left, top, ground))
        return best

    def _ground(self, picture, dot):
        """The colour on which the item stands."""
        if self.kind.shows == "strip":  # its plate, between the dot and the number
            return picture.pixel(dot[0] + 6 * self.kind.scale, dot[1])
        return picture.pixel(2, 2) if self.kind.narrow else picture.commonest(dot[1])

    def set_dpi(self, dpi):
        """As desktops do in order to have programs drawn larger."""
        self._screen.do("xprop", "-root", "-f", "RESOURCE_MANAGER", "8s", "-set", "RESOURCE_MANAGER", f"Xft.dpi:\t{dpi}\n")

    def make_dark(self, dark=True):
        """Desktops of GTK: as their settings do it, GNOME's and Cinnamon's."""
        for schema in ("org.gnome.desktop.interface", "org.x.apps.portal"):
            self._screen.ask("gsettings", "set", schema, "color-scheme", "prefer-dark" if dark else "default")

    def click(self, place, button=1):
        self._screen.click(*place, button)

    def click_slowly(self, place):
        self._screen.click_slowly(*place)

    def click_with_unsteady_hand(self, place):
        """As someone who keeps the button down while the mouse trembles by a pixel."""
        x, y = place
        self.point(place)
        self._screen.do("xdotool", "mousedown", "1")
        for step in range(16):
            time.sleep(0.05)
            self.point((x + step % 2, y))
        self._screen.do("xdotool", "mouseup", "1")

    def drag(self, place, target):
        """Takes hold at the one place and lets go at the other, by way of some between."""
        self.point(place)
        self._screen.do("xdotool", "mousedown", "1")
        for step in range(1, 11):
            self.point([start + (end - start) * step // 10 for start, end in zip(place, target)])
            time.sleep(0.05)
        self._screen.do("xdotool", "mouseup", "1")

    def park_mouse(self):
        """Where it hides nothing and no tooltip comes up."""
        self.point((WIDTH - 2, HEIGHT - 2))

    def point(self, place):
        self._screen.point(*place)

    def press(self, *keys):
        self._screen.press(*keys)


def _dot_place(pixmap):
    """Where the middle of the dot is, as a share of the picture's width: in the middle of a square one, else at the left
    end, eleven logical pixels in."""
    width, height, _ = pixmap
    return 0.5 if width == height else 11 * max(1, height // 22) / width
