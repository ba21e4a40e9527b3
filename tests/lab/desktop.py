"""What the program needs of a desktop, on message buses of the lab's own: a status area that remembers over time what it
was shown, and a logind that goes to sleep on demand."""

import re
import threading
import time
from concurrent.futures import Future
from contextlib import contextmanager
from dataclasses import dataclass, field, replace
from pathlib import Path

import gi

gi.require_version("GdkPixbuf", "2.0")
gi.require_version("Gio", "2.0")
from gi.repository import GdkPixbuf, Gio, GLib  # noqa: E402

from support.processes import Child, wait_until  # noqa: E402

WATCHER = "org.kde.StatusNotifierWatcher"
ITEM = "org.kde.StatusNotifierItem"
MENU = "com.canonical.dbusmenu"
PROPERTIES = "org.freedesktop.DBus.Properties"
ONLINE_LABEL = re.compile(r"(?P<number>[\d.]+) (?P<unit>m?s)  (?P<word>.+?)(  ↓(?P<down>\S+) ↑(?P<up>\S+))?")
LABEL_SHOWING_PANEL = "ayatana-indicat"  # which is told of every change in the menu, open or not
STALL_INTERVAL_MS = 20
WATCHER_INTERFACE = f"""<node><interface name="{WATCHER}">
  <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
  <method name="RegisterStatusNotifierHost"><arg type="s" direction="in"/></method>
  <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
  <property name="ProtocolVersion" type="i" access="read"/>
  <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
  <signal name="StatusNotifierItemUnregistered"><arg type="s"/></signal>
  <signal name="StatusNotifierHostRegistered"/>
</interface></node>"""


class Logind:
    """logind as python3-dbusmock plays it, on a system bus of the lab's own."""

    def __init__(self, bus, stack):
        self._process = stack.enter_context(Child(
            ["/usr/bin/python3", "-m", "dbusmock", "--system", "--template", "logind"],
            env={"DBUS_SYSTEM_BUS_ADDRESS": bus.address, "PATH": "/usr/bin"}))
        self._connection = bus.connect()
        stack.callback(self._close)
        wait_until(lambda: self._has_owner("org.freedesktop.login1"), 30, "logind is there")

    def _close(self):
        if not self._connection.is_closed():  # a bus that died has taken it along
            self._connection.close_sync()

    def _has_owner(self, name):
        return self._call("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "NameHasOwner",
                          GLib.Variant("(s)", (name,)))[0]

    def _call(self, *arguments):
        return self._connection.call_sync(*arguments, None, Gio.DBusCallFlags.NONE, -1, None).unpack()

    def _manager(self, interface, method, arguments=None):
        return self._call("org.freedesktop.login1", "/org/freedesktop/login1", interface, method, arguments)

    def die(self):
        self._process.kill()
        self._process.wait()

    def prepare_for_sleep(self, start):
        """Says that a suspend is about to start, or that one is over."""
        signal = ("org.freedesktop.login1.Manager", "PrepareForSleep", "b", [GLib.Variant("b", start)])
        self._manager("org.freedesktop.DBus.Mock", "EmitSignal", GLib.Variant("(sssav)", signal))

    def inhibitors(self):
        """(what, mode) of each inhibitor held."""
        held, = self._manager("org.freedesktop.login1.Manager", "ListInhibitors")
        return [(row[0], row[3]) for row in held]


@dataclass(frozen=True)
class MenuEntry:
    """A line of the menu as its host lays it out."""

    id: int
    title: str = ""
    enabled: bool = True
    checked: bool | None = None  # None: not a check item
    separator: bool = False
    shortcut: tuple = ()
    has_icon: bool = False

    @classmethod
    def of(cls, id_, properties):
        return cls(id_, properties.get("label", "").replace("__", "_"), properties.get("enabled", True),
                   properties.get("toggle-state") == 1 if properties.get("toggle-type") else None,
                   properties.get("type") == "separator", tuple(map(tuple, properties.get("shortcut", []))),
                   bool(properties.get("icon-data") or properties.get("icon-name")))


@dataclass(frozen=True)
class Shown:
    """All that the status area shows, from `time` on."""

    time: float
    dot: str | None = None  # green, yellow, red, gray; None: no item
    label: str = ""
    tooltip: str = ""
    menu: tuple = field(default=(), repr=False)

    @property
    def lines(self):
        return tuple(entry.title for entry in self.menu[:3])

    @property
    def _online(self):
        """The parts of the label while there is a response time in it."""
        return ONLINE_LABEL.fullmatch(self.label.strip())

    @property
    def milliseconds(self):
        """The response time in the label, or None."""
        return self._online and float(self._online["number"]) * (1000 if self._online["unit"] == "s" else 1)

    @property
    def word(self):
        """What follows the response time, or what stands in its place."""
        return self._online["word"] if self._online else self.label.strip()

    @property
    def traffic(self):
        """(down, up) in bit/s as in the label, or None."""
        if not self._online or not self._online["down"]:
            return None
        return tuple(float(text.rstrip("KM")) * {"K": 1e3, "M": 1e6}.get(text[-1], 1)
                     for text in (self._online["down"], self._online["up"]))


class StatusArea:
    """A status area with a watcher and a host in one. It asks for everything an item has whenever the item says that
    something changed, and keeps all that it was ever shown. Runs in a thread of its own; `stop` and `start` are a panel
    that crashes and comes back."""

    def __init__(self, bus, stack, root=Path("/")):
        """`root`: of the program, whose icon is a file."""
        _call_this_process(LABEL_SHOWING_PANEL)
        self._bus, self._root, self._connection, self._item = bus, root, None, None
        self._context, self._changed = GLib.MainContext(), threading.Condition()
        self._shown = [Shown(time.monotonic())]
        self._properties, self._entries, self._subscriptions = {}, {}, []
        self.signals = []  # (time, name) of each signal of the item and its menu
        self.registered = None  # when an item was last registered
        self._loop = GLib.MainLoop(self._context)
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()
        stack.callback(self._quit)
        self.start()

    # what a test asks

    @property
    def now(self):
        return self._shown[-1]

    def since(self, start):
        """What was shown from `start` on, first what was shown at that moment."""
        shown = list(self._shown)
        first = max((i for i, state in enumerate(shown) if state.time <= start), default=0)
        return shown[first:]

    def dots(self, start):
        """[(time, colour)]: each change of the dot's colour since `start`, after the colour it had then."""
        changes = []
        for state in self.since(start):
            if not changes or state.dot != changes[-1][1]:
                changes.append((state.time, state.dot))
        return changes

    def wait_for(self, wanted, within, since=None):
        """The first state since `since` (default: now) that `wanted`, a colour or a predicate, accepts. Fails when there is
        none `within` seconds of `since`."""
        since = time.monotonic() if since is None else since
        accepts = wanted if callable(wanted) else lambda state: state.dot == wanted
        deadline = since + within
        with self._changed:
            while True:
                for state in self.since(since):
                    if accepts(state) and state.time <= deadline:
                        return state
                remaining = deadline - time.monotonic()
                assert remaining > 0, f"not within {within} s; shown: " + self.describe(since)
                self._changed.wait(remaining)

    def describe(self, since):
        return "".join(f"\n  {state.time - since:+8.3f} {state.dot} {state.label!r} {state.lines[:1]}"
                       for state in self.since(since))

    def menu(self):
        """The menu as it is now, asked for anew: {title: MenuEntry}, without the separators."""
        layout = self._in_thread(lambda: self._call(MENU, "GetLayout", GLib.Variant("(iias)", (0, -1, []))))
        entries = (MenuEntry.of(id_, properties) for id_, properties, _ in layout[1][2])
        return {entry.title: entry for entry in entries if not entry.separator}

    def click(self, title):
        """Chooses the entry whose title begins so."""
        entry = next(entry for text, entry in self.menu().items() if text.startswith(title))
        assert entry.enabled, f"{entry.title} is disabled"
        event = GLib.Variant("(isvu)", (entry.id, "clicked", GLib.Variant("i", 0), 0))
        self._in_thread(lambda: self._call(MENU, "Event", event))

    @contextmanager
    def stalls(self, starved):
        """Asks the item for a property every 20 ms; gives the list of how long each answer took, in seconds, less the time
        for which those who take part could run but had no processor. `starved`: {thread: how long so far}."""
        stalls, waiting = [], {}

        def ask():
            question = object()
            waiting[question] = (time.monotonic(), starved())
            self._call_async(*self._item, PROPERTIES, "Get", GLib.Variant("(ss)", (ITEM, "Id")), lambda _: take(question))
            return GLib.SOURCE_CONTINUE

        def take(question):
            if question not in waiting:
                return  # answered when all was over
            asked, before = waiting.pop(question)
            lacked = sum(seconds - before.get(thread, 0.0) for thread, seconds in starved().items())
            stalls.append(max(0.0, time.monotonic() - asked - lacked))

        source = GLib.Timeout(STALL_INTERVAL_MS)
        source.set_callback(lambda *_: ask())
        source.attach(self._context)
        try:
            yield stalls
        finally:
            source.destroy()
            self._in_thread(lambda: [take(question) for question in list(waiting)])

    def stop(self):
        self._in_thread(self._close)

    def start(self):
        self._in_thread(self._open)

    # in the thread

    def _run(self):
        self._context.push_thread_default()
        self._loop.run()

    def _quit(self):
        self.stop()
        self._in_thread(self._loop.quit)
        self._thread.join(5)

    def _in_thread(self, action):
        future = Future()

        def run():
            try:
                future.set_result(action())
            except BaseException as error:  # pylint: disable=broad-except
                future.set_exception(error)
            return GLib.SOURCE_REMOVE

        source = GLib.Idle()
        source.set_callback(lambda *_: run())
        source.attach(self._context)
        return future.result(10)

    def _open(self):
        self._connection = self._bus.connect()
        interface = Gio.DBusNodeInfo.new_for_xml(WATCHER_INTERFACE).interfaces[0]
        self._connection.register_object("/StatusNotifierWatcher", interface, self._watcher_called, self._watcher_get, None)
        self._connection.call_sync("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "RequestName",
                                   GLib.Variant("(su)", (WATCHER, 0)), None, Gio.DBusCallFlags.NONE, -1, None)

    def _close(self):
        if self._connection:
            self._lose_item()
            if not self._connection.is_closed():  # a bus that died has taken it along
                self._connection.close_sync()
            self._connection = None

    def _watcher_get(self, _connection, _sender, _path, _interface, name):
        items = ["".join(self._item)] if self._item else []
        return {"RegisteredStatusNotifierItems": GLib.Variant("as", items), "ProtocolVersion": GLib.Variant("i", 0),
                "IsStatusNotifierHostRegistered": GLib.Variant("b", True)}[name]

    def _watcher_called(self, connection, sender, _path, _interface, method, arguments, invocation):
        invocation.return_value(None)
        if method == "RegisterStatusNotifierItem":
            name, = arguments.unpack()
            self._take_item(*((sender, name) if name.startswith("/") else (name, "/StatusNotifierItem")))
            connection.emit_signal(None, "/StatusNotifierWatcher", WATCHER, "StatusNotifierItemRegistered",
                                   GLib.Variant("(s)", ("".join(self._item),)))

    def _take_item(self, service, path):
        self.registered = time.monotonic()
        self._lose_item()
        self._item = (service, path)
        owner = self._connection.call_sync(
            "org.freedesktop.DBus", "/", "org.freedesktop.DBus", "GetNameOwner", GLib.Variant("(s)", (service,)), None,
            Gio.DBusCallFlags.NONE, -1, None).unpack()[0]
        for sender, interface, handler in ((service, ITEM, self._item_changed), (service, MENU, self._menu_changed),
                                           ("org.freedesktop.DBus", "org.freedesktop.DBus", self._owner_changed)):
            first = owner if sender == "org.freedesktop.DBus" else None
            self._subscriptions.append(self._connection.signal_subscribe(
                sender, interface, None, None, first, Gio.DBusSignalFlags.NONE, handler))
        self._read_item()
        self._read_menu()

    def _lose_item(self):
        for subscription in self._subscriptions:
            self._connection.signal_unsubscribe(subscription)
        self._item, self._subscriptions, self._properties, self._entries = None, [], {}, {}
        self._show()

    def _owner_changed(self, _connection, _sender, _path, _interface, signal, arguments):
        if signal == "NameOwnerChanged" and not arguments.unpack()[2]:
            self._lose_item()

    def _item_changed(self, _connection, _sender, _path, _interface, signal, _arguments):
        self.signals.append((time.monotonic(), signal))
        self._read_item()

    def _menu_changed(self, _connection, _sender, _path, _interface, signal, arguments):
        self.signals.append((time.monotonic(), signal))
        if signal == "LayoutUpdated":
            self._read_menu()
        elif signal == "ItemsPropertiesUpdated":
            updated, removed = arguments.unpack()
            for id_, properties in updated:
                self._entries.setdefault(id_, {}).update(properties)
            for id_, names in removed:
                for name in names:
                    self._entries[id_].pop(name, None)
            self._show()

    def _read_item(self):
        self._call_async(*self._item, PROPERTIES, "GetAll", GLib.Variant("(s)", (ITEM,)), self._item_read)

    def _item_read(self, reply):
        first_time, (self._properties,) = not self._properties, reply
        self._show()
        if first_time:
            self._read_menu()

    def _read_menu(self):
        if "Menu" in self._properties:
            self._call_async(self._item[0], self._properties["Menu"], MENU, "GetLayout", GLib.Variant("(iias)", (0, -1, [])),
                             self._menu_read)

    def _menu_read(self, reply):
        self._entries = {id_: properties for id_, properties, _ in reply[1][2]}
        self._show()

    def _call(self, interface, method, arguments):
        return unpack(self._connection.call_sync(self._item[0], self._properties["Menu"], interface, method, arguments,
                                                 None, Gio.DBusCallFlags.NONE, 5000, None))

    def _call_async(self, name, path, interface, method, arguments, then):
        item = self._item

        def done(connection, result):
            try:
                reply = unpack(connection.call_finish(result))
            except GLib.Error:
                return  # the item went away, which is told separately
            if self._item == item:
                then(reply)

        self._connection.call(name, path, interface, method, arguments, None, Gio.DBusCallFlags.NONE, -1, None, done)

    def _show(self):
        state = Shown(time.monotonic())
        if self._properties:
            tooltip = self._properties.get("ToolTip", ("", [], "", ""))
            state = replace(state, dot=self._dot(),
                            label=self._properties.get("XAyatanaLabel", ""),
                            tooltip="\n".join(text for text in tooltip[2:] if text),
                            menu=tuple(MenuEntry.of(*entry) for entry in self._entries.items()))
        with self._changed:
            if replace(state, time=0) != replace(self._shown[-1], time=0):
                self._shown.append(state)
                self._changed.notify_all()

    def _dot(self):
        if not self._properties["IconName"]:  # there was no room for the file
            return dot_colour(max(self._properties["IconPixmap"]))
        try:
            return dot_colour(pixmap_of(self._root / self._properties["IconName"].lstrip("/")))
        except GLib.Error:
            return None  # the file goes with the program


def _call_this_process(name):
    """The program chooses how to show its title by the name of the process behind the status area."""
    Path("/proc/self/comm").write_text(name)


def unpack(value):
    """As Variant.unpack, but bytes stay together: a picture taken apart byte by byte takes longer than what is measured."""
    kind = value.get_type_string()
    if kind == "ay":
        return value.get_data_as_bytes().get_data()
    if kind == "v":
        return unpack(value.get_variant())
    if kind[0] not in "a(":
        return value.unpack()
    children = [value.get_child_value(index) for index in range(value.n_children())]
    if kind.startswith("a{"):
        return {unpack(child.get_child_value(0)): unpack(child.get_child_value(1)) for child in children}
    return tuple(map(unpack, children)) if kind[0] == "(" else list(map(unpack, children))


def pixmap_of(file):
    """The picture in a file as items give it over the bus: (width, height, ARGB in network byte order)."""
    picture = GdkPixbuf.Pixbuf.new_from_file(str(file))
    width, height, pitch, rgba = picture.get_width(), picture.get_height(), picture.get_rowstride(), picture.get_pixels()
    places = (row * pitch + column * 4 for row in range(height) for column in range(width))
    return width, height, b"".join(rgba[at + 3:at + 4] + rgba[at:at + 3] for at in places)


def dot_colour(pixmap):
    """The class of the colour in its middle."""
    width, height, data = pixmap
    at = 4 * (height // 2 * width + width // 2)
    return colour_class(*data[at + 1:at + 4]) if data[at] > 128 else None


def colour_class(red, green, blue):
    """green, yellow, red or gray for the shades that desktops call so, None for others."""
    strongest, weakest = max(red, green, blue), min(red, green, blue)
    if strongest - weakest < 40:
        return "gray"
    if blue == strongest or blue - weakest > (strongest - weakest) / 2:
        return None
    if red > 0.75 * green and green > 0.6 * red:
        return "yellow"
    return "green" if green > red else "red"
