"""A window on a desktop that is made dark while it is open, the one that --panel names."""

from collections import Counter
from pathlib import Path

import pytest
from panel import BELOW
from support.processes import wait_until
from test_desktop_windows import has_window

BLACK_OR_WHITE = 64  # how far from either a colour may be


def follows_the_portal():
    """Whether the Qt that is installed hears of a dark desktop."""
    return any(b"org.freedesktop.appearance" in theme.read_bytes() for theme in Path("/usr/lib").rglob("platformthemes/libqgtk3.so"))


def ground_and_text(picture, area):
    """How bright most of the lower half of the window is, and what differs most from that: 0 to 255."""
    left, top, right, bottom = area
    rows = b"".join(picture.row(y, left + 20, right - 20) for y in range((top + bottom) // 2, bottom - 20))
    shades = Counter(sum(rows[at:at + 3]) // 3 for at in range(0, len(rows), 3))
    ground = shades.most_common(1)[0][0]
    return ground, max(shades, key=lambda shade: abs(shade - ground))


def is_dark(picture, area):
    ground, text = ground_and_text(picture, area)
    return ground <= BLACK_OR_WHITE and text >= 255 - BLACK_OR_WHITE


def is_light(picture, area):
    ground, text = ground_and_text(picture, area)
    return ground >= 255 - BLACK_OR_WHITE and text <= BLACK_OR_WHITE


def test_an_open_window_becomes_as_dark_as_the_desktop(lab, panel):
    if not follows_the_portal():
        pytest.skip("Qt's GTK theme is not installed or does not ask whether the desktop is dark (before Qt 6.8)")
    lab.link.set(rtt_ms=40)
    lab.program.start()
    panel.wait_for_dot("green", 60, "dark-before")
    panel.park_mouse()
    closed = panel.wait_until_still()
    panel.choose(lab.program.pid, "About")
    wait_until(lambda: has_window(panel, closed), 10, "the window")
    panel.park_mouse()
    area = panel.wait_until_still().difference(closed, BELOW)
    assert is_light(panel.shot("dark-light"), area)
    panel.make_dark()
    wait_until(lambda: is_dark(panel.shot("dark"), area), 20, "the window is dark")
    panel.make_dark(False)
    wait_until(lambda: is_light(panel.shot("dark-light-again"), area), 20, "the window is light again")
    panel.make_dark()
    wait_until(lambda: is_dark(panel.shot("dark-again"), area), 20, "the window is dark again")
    lab.program.end()
    lab.program.start()
    panel.wait_for_dot("green", 60, "dark-start")
    panel.choose(lab.program.pid, "About")
    wait_until(lambda: is_dark(panel.shot("dark-start"), area), 20, "the window of a new start is dark")
