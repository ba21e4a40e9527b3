"""Clicks that are slow, unsteady or repeated, and a second start instead of one, where no panel shows the item: in a tray of X11,
and in the strip. And how a title that we draw takes and gives up its room."""

import json
import time

import pytest
from panel import BELOW, PANEL, SCREEN, WIDTH
from panel_checks import check_second_start, large_enough
from support.processes import wait_until


def shown_green(lab, kind, within, picture):
    """The panel with the program's green dot, the dot's place, and the screen at rest with the menu closed."""
    panel = lab.start_panel(kind)
    lab.program.start()
    place = panel.wait_for_dot("green", within, picture)
    panel.park_mouse()
    return panel, place, panel.wait_until_still()


def test_a_click_elsewhere_closes_the_menu_that_a_slow_click_has_opened(lab):
    panel, place, closed = shown_green(lab, "trayer", 20, "slow")
    panel.click_slowly(place)
    wait_until(lambda: large_enough(panel.look().difference(closed, BELOW)), 3, "the menu opens")
    panel.click((900, 400))
    wait_until(lambda: panel.look().difference(closed, BELOW) is None, 3, "the menu closes")


def test_an_unsteady_click_at_the_bottom_of_the_screen_chooses_nothing(lab):
    panel = lab.start_panel("trayer-bottom")
    lab.program.start()
    place, = wait_until(lambda: panel.shot("green").dots("green", SCREEN), 20, "a green dot")
    panel.park_mouse()
    closed = panel.wait_until_still()
    panel.click_with_unsteady_hand(place)
    wait_until(lambda: large_enough(panel.look().difference(closed, SCREEN)), 3, "the menu opens")
    assert place in panel.shot("menu").dots("green", SCREEN), "the menu lies over the icon"
    assert lab.program.running


def test_a_second_click_on_the_strip_closes_its_menu(lab):
    panel, place, closed = shown_green(lab, "none", 25, "strip")
    for _ in range(2):
        panel.click(place)
        wait_until(lambda: large_enough(panel.look().difference(closed, BELOW)), 3, "the menu opens")
        panel.click(place)
        wait_until(lambda: panel.look().difference(closed, BELOW) is None, 3, "the menu closes")
        assert panel.wait_until_still().difference(closed, BELOW) is None, "it has opened again"


@pytest.mark.parametrize("kind", ["mate", "none"])
def test_a_shorter_title_keeps_its_room_for_ten_seconds(lab, kind):
    panel = lab.start_panel(kind)
    lab.program.start()
    panel.wait_for_dot("green", 25, "long-title")

    def room():
        """What the title takes: the width of its picture, or from the strip's dot, at its left end, to the screen's right end."""
        if kind == "mate":
            return panel.item(lab.program.pid)[1]["IconPixmap"][0][0]
        dots = panel.look().dots("gray", PANEL) or panel.look().dots("green", PANEL)
        return WIDTH - dots[0][0]
    panel.choose(lab.program.pid, "Show Live Traffic")
    before = room()
    panel.choose(lab.program.pid, "Pause")
    since = time.monotonic()
    panel.wait_for_dot("gray", 3, "kept-room")
    assert room() >= before - 2
    wait_until(lambda: room() < before - 40, 20, "the room is given up")
    assert time.monotonic() - since > 8
    panel.shot("less-room")


def test_a_screen_reader_that_is_switched_on_later_finds_the_strip(lab):
    panel = lab.start_panel("none")
    lab.program.start()
    panel.wait_for_dot("green", 25, "before-the-reader")
    reader = panel.start_screen_reader()

    def finds_the_strip():
        return any(thing["role"] == "button" and " ms " in thing["name"] for thing in json.loads(reader.ask("skylet show")))
    wait_until(finds_the_strip, 10, "the reader finds a button with the title")


@pytest.mark.parametrize("kind", ["trayer", "none"])
def test_a_second_start_opens_the_menu(lab, kind):
    check_second_start(lab, lab.start_panel(kind))
