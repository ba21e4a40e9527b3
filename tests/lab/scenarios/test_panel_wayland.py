"""The item on Wayland without any panel: in a window of its own, wherever the compositor puts that."""

from panel import SCREEN
from panel_checks import large_enough, start_without_a_bar
from support.processes import wait_until


def test_the_strip_is_seen_and_opens_its_menu(lab):
    panel, closed = start_without_a_bar(lab)
    panel.shot("green")
    panel.click(closed.dots("green", SCREEN)[0])
    wait_until(lambda: large_enough(panel.shot("menu").difference(closed, SCREEN)), 20, "the menu opens")
    panel.press(*["Down"] * 4, "Return")
    # the compositor moves it when it is drawn with the mouse, as soon as that is more than an unsteady click
    (x, y), = wait_until(lambda: panel.shot("paused").dots("gray", SCREEN), 30, "a gray dot")
    panel.drag((x, y), (x + 120, y + 90))

    def has_moved():
        (now_x, now_y), = panel.shot("drawn").dots("gray", SCREEN)
        return 100 <= now_x - x <= 120 and 70 <= now_y - y <= 90
    wait_until(has_moved, 20, "the strip in its new place")


def test_another_start_opens_the_menu_where_a_click_does(lab):
    panel, closed = start_without_a_bar(lab)

    def menu():
        area = wait_until(lambda: large_enough(panel.look().difference(closed, SCREEN)) and panel.wait_until_still(), 20,
                          "the menu opens").difference(closed, SCREEN)
        panel.press("Escape")
        wait_until(lambda: not large_enough(panel.look().difference(closed, SCREEN)), 10, "the menu closes")
        return area

    panel.click(closed.dots("green", SCREEN)[0])
    clicked = menu()
    assert lab.program.start_another().wait(5) == 0
    assert menu()[2:] == clicked[2:], "its right and lower ends, where there is no strip that changes"
