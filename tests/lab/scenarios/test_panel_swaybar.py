"""The item on a real swaybar in sway, where its menu is a window like any other."""

from panel import BELOW, SCREEN, WIDTH
from panel_checks import large_enough, start_without_a_bar
from support.processes import wait_until


def test_the_menu_is_no_larger_than_its_lines_and_closes_again(lab):
    panel = lab.start_panel("swaybar")
    panel.use_wayland()
    lab.link.set(rtt_ms=40)
    lab.program.start()
    place = panel.wait_for_dot("green", 20, "green")
    panel.park_mouse()
    closed = panel.wait_until_still()
    open_menu(panel, place, closed, BELOW)
    left, _, right, _ = panel.wait_until_still().difference(closed, BELOW)
    panel.shot("menu")
    assert right - left < 0.6 * WIDTH, "the menu fills the workspace"
    panel.click((WIDTH - 2, 300))
    wait_until(lambda: panel.look().difference(closed, BELOW) is None, 5, "the menu closes")
    open_menu(panel, place, closed, BELOW)
    panel.press(*["Down"] * 4, "Return")
    panel.wait_for_dot("gray", 5, "paused")


def test_the_menu_still_opens_when_the_bar_comes_while_the_menu_of_the_strip_is_open(lab):
    panel, closed = start_without_a_bar(lab)
    open_menu(panel, closed.dots("green", SCREEN)[0], closed, SCREEN)
    panel.start_another("swaybar")
    place = panel.wait_for_dot("green", 20, "bar")
    panel.park_mouse()
    closed = panel.wait_until_still()
    open_menu(panel, place, closed, BELOW)


def open_menu(panel, place, closed, area):
    panel.click(place)
    wait_until(lambda: large_enough(panel.look().difference(closed, area)), 20, "the menu opens")
