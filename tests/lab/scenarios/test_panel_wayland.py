"""The item on Wayland without any panel: in a window of its own, wherever the compositor puts that."""

from panel import SCREEN
from panel_checks import large_enough
from support.processes import wait_until


def test_the_strip_is_seen_and_opens_its_menu(lab):
    panel = lab.start_panel("sway")
    panel.use_wayland()
    lab.link.set(rtt_ms=40)
    lab.program.start()

    def dot(colour, name):
        return wait_until(lambda: panel.shot(name).dots(colour, SCREEN), 30, f"a {colour} dot")

    dot("green", "green")
    panel.park_mouse()
    closed = panel.wait_until_still()  # a title that grows moves the strip
    panel.click(closed.dots("green", SCREEN)[0])
    wait_until(lambda: large_enough(panel.shot("menu").difference(closed, SCREEN)), 20, "the menu opens")
    panel.press(*["Down"] * 4, "Return")
    # the compositor moves it when it is drawn with the mouse, as soon as that is more than an unsteady click
    (x, y), = dot("gray", "paused")
    panel.drag((x, y), (x + 120, y + 90))

    def has_moved():
        (now_x, now_y), = panel.shot("drawn").dots("gray", SCREEN)
        return 100 <= now_x - x <= 120 and 70 <= now_y - y <= 90
    wait_until(has_moved, 20, "the strip in its new place")


def test_another_start_opens_the_menu_where_a_click_does(lab):
    panel = lab.start_panel("sway")
    panel.use_wayland()
    lab.link.set(rtt_ms=40)
    lab.program.start()
    wait_until(lambda: panel.look().dots("green", SCREEN), 30, "a green dot")
    panel.park_mouse()
    closed = panel.wait_until_still()

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
