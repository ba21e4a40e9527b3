"""The item on a real trayer, a tray of X11."""

from panel import BELOW
from panels import check_changes, check_panel, large_enough
from support.processes import wait_until


def test_the_item_is_seen_obeys_and_never_grows(lab):
    panel = lab.start_panel("trayer")
    check_panel(lab, panel)
    check_changes(lab, panel)


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
