"""A message bus of a test's own."""

import subprocess

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio  # noqa: E402

from support.processes import BARE_ENVIRONMENT, HERE  # noqa: E402

CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path={socket}</listen>{services}
  <policy context="default">
    <allow user="*"/><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/>
  </policy>
</busconfig>
"""


def configuration(socket, services=False):
    """The daemon's configuration file: everybody may do everything."""
    return CONFIGURATION.format(socket=socket, services="<standard_session_servicedirs/>" if services else "")


def connect(address):
    flags = Gio.DBusConnectionFlags
    connection = Gio.DBusConnection.new_for_address_sync(
        address, flags.AUTHENTICATION_CLIENT | flags.MESSAGE_BUS_CONNECTION, None, None)
    connection.set_exit_on_close(False)
    return connection


class MessageBus:
    """A bus whose files are in the folder. With `services` it starts those of the system's session services that are asked
    for, in its `place` and with `env` as their environment; without, none. `user`: the command that makes it another user's."""

    def __init__(self, folder, name, stack, services=False, place=HERE, env=BARE_ENVIRONMENT, user=()):
        path = folder / f"{name}-bus"
        file = folder / f"{name}-bus.conf"
        file.write_text(configuration(path, services))
        self.address = f"unix:path={path}"
        command = [*user, "dbus-daemon", "--nofork", f"--config-file={file}", "--print-address"]
        with (folder / f"{name}-bus.log").open("w") as log:
            self._daemon = stack.enter_context(place.popen(command, stderr=log, env=env, stdout=subprocess.PIPE))
        assert self._daemon.stdout.readline(), f"the {name} bus did not start"

    @property
    def pid(self):
        return self._daemon.pid

    def connect(self):
        return connect(self.address)
