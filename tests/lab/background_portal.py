"""The desktop's Background portal (org.freedesktop.portal.Background) on the session bus of the environment. It obeys one line at a
time:

    grant, refuse   how it will answer from now on; answers with "ok"
    asked           answers with a JSON list: the options of each request so far
"""

import json
import os
import sys

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

from support.message_bus import connect  # noqa: E402

NAME, PATH, REQUEST = "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop", "org.freedesktop.portal.Request"
INTERFACE = """<node><interface name="org.freedesktop.portal.Background"><method name="RequestBackground">
  <arg type="s" direction="in"/><arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method></interface></node>"""
SUCCESS, CANCELLED = 0, 1


class Portal:
    def __init__(self):
        self.asked, self.grants = [], True
        bus = connect(os.environ["DBUS_SESSION_BUS_ADDRESS"])
        bus.register_object(PATH, Gio.DBusNodeInfo.new_for_xml(INTERFACE).interfaces[0], self._request, None, None)
        Gio.bus_own_name_on_connection(bus, NAME, Gio.BusNameOwnerFlags.NONE, self._ready, None)

    def _ready(self, *_):
        print("ready", flush=True)

    def _request(self, bus, sender, _path, _interface, _method, parameters, invocation):
        _, options = parameters.unpack()
        self.asked.append(options)
        handle = f"{PATH}/request/{sender[1:].replace('.', '_')}/{options['handle_token']}"
        invocation.return_value(GLib.Variant("(o)", (handle,)))
        results = {"background": GLib.Variant("b", self.grants), "autostart": GLib.Variant("b", self.grants and options["autostart"])}
        answer = (SUCCESS if self.grants else CANCELLED, results)
        bus.emit_signal(sender, handle, REQUEST, "Response", GLib.Variant("(ua{sv})", answer))

    def obey(self, channel, _condition):
        order = channel.readline().strip()
        if order in ("grant", "refuse"):
            self.grants = order == "grant"
        print(json.dumps(self.asked) if order == "asked" else "ok", flush=True)
        return True


if __name__ == "__main__":
    GLib.io_add_watch(GLib.IOChannel.unix_new(sys.stdin.fileno()), GLib.PRIORITY_DEFAULT, GLib.IOCondition.IN, Portal().obey)
    GLib.MainLoop().run()
