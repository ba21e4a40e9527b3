"""What assistive technologies are told of a program's windows, over AT-SPI. The library connects when it is first asked, with
the environment of its process; so whoever is in another place starts this file there. It obeys one line at a time:

    NAME show           answers with one JSON object for each accessible thing in the windows of the application NAME that is on
                        the screen: window, role, name, description, value, states, place (x, y, width, height on the screen)
"""

import json
import sys

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

TOLD_STATES = ("checked", "enabled", "focused", "focusable", "sensitive", "read_only", "showing")


def children(thing):
    """Those that are still there when it is their turn."""
    return filter(None, map(thing.get_child_at_index, range(thing.get_child_count())))


def windows(is_program):
    """The windows of each application for which this holds."""
    for application in children(Atspi.get_desktop(0)):
        if is_program(application):
            yield from children(application)


def shown_in(thing):
    """It and all below it, as far as they are on the screen."""
    if not thing.get_state_set().contains(Atspi.StateType.SHOWING):
        return
    yield thing
    for child in children(thing):
        yield from shown_in(child)


def role(thing):
    """Its name. Push buttons are called buttons since at-spi2 2.54."""
    return thing.get_role_name().removeprefix("push ")


def states(thing):
    held = thing.get_state_set()
    return {name for name in TOLD_STATES if held.contains(getattr(Atspi.StateType, name.upper()))}


def description(thing, window):
    place = thing.get_extents(Atspi.CoordType.SCREEN)
    value = thing.get_value_iface()
    return {"window": window.get_name(), "role": role(thing), "name": thing.get_name(),
            "description": thing.get_description(), "value": value.get_current_value() if value else None,
            "states": sorted(states(thing)), "place": [place.x, place.y, place.width, place.height]}


def main():
    Atspi.init()
    print("ready", flush=True)
    for line in sys.stdin:
        name, _ = line.split()
        try:
            print(json.dumps([description(thing, window) for window in windows(lambda program: program.get_name() == name)
                              for thing in shown_in(window)]), flush=True)
        except GLib.Error as error:
            print(f"error {error.message}", flush=True)


if __name__ == "__main__":
    main()
