"""Clicks that are slow or unsteady, and a second start instead of one, where no panel shows the item: in a tray of X11, and in
the strip."""

import pytest
from panel import BELOW, SCREEN
from panel_checks import check_second_start, large_enough
from support.processes import wait_until


def test_a_click_elsewhere_closes_the_menu_that_a_slow_click_has_opened(lab):
    panel = lab.start_panel("trayer")
    lab.program.start()
    place = panel.wait_for_dot("green", 20, "slow")
    panel.park_mouse()
    closed = panel.wait_until_still()
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


@pytest.mark.parametrize("kind", ["trayer", "none"])
def test_a_second_start_opens_the_menu(lab, kind):
    check_second_start(lab, lab.start_panel(kind))
