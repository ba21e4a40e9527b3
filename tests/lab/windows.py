"""Reads and works the windows of a program as a screen reader does, over AT-SPI. Obeys one line at a time:

    NAME show           answers with one JSON object for each accessible thing in the windows of the application NAME that is on
                        the screen: window, role, name, description, value, states, place (x, y, width, height on the screen)
"""

import json
import sys

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

TOLD_STATES = ("checked", "enabled", "focused", "focusable")


def things(application):
    """All that is on the screen, each with the title of its window."""
    desktop = Atspi.get_desktop(0)
    for index in range(desktop.get_child_count()):
        program = desktop.get_child_at_index(index)
        if program and program.get_name() == application:
            for number in range(program.get_child_count()):
                window = program.get_child_at_index(number)
                yield from below(window, window.get_name())


def below(thing, window):
    states = thing.get_state_set()
    if not states.contains(Atspi.StateType.SHOWING):
        return
    yield describe(thing, window, states)
    for index in range(thing.get_child_count()):
        yield from below(thing.get_child_at_index(index), window)


def describe(thing, window, states):
    place = thing.get_extents(Atspi.CoordType.SCREEN)
    value = thing.get_value_iface()
    return {"window": window, "role": thing.get_role_name(), "name": thing.get_name(), "description": thing.get_description(),
            "value": value.get_current_value() if value else None,
            "states": [name for name in TOLD_STATES if states.contains(getattr(Atspi.StateType, name.upper()))],
            "place": [place.x, place.y, place.width, place.height]}


def main():
    Atspi.init()
    print("ready", flush=True)
    for line in sys.stdin:
        application, _ = line.split()
        try:
            print(json.dumps(list(things(application))), flush=True)
        except GLib.Error as error:
            print(f"error {error.message}", flush=True)


main()
