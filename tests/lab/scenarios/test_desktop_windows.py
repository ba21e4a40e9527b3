"""The windows on a real desktop, the one that --panel names: opened from its menu, they have the keyboard, and a key closes them."""

from panel import BELOW, WIDTH
from panel_checks import TITLES, open_menu
from support.processes import wait_until

WINDOW_HEIGHT = 300  # at least


def has_window(panel, closed):
    """Whether something large stands in the middle of the screen, where no menu of a panel reaches."""
    area = panel.look().difference(closed, BELOW)
    return bool(area) and area[0] < WIDTH // 2 - 50 and area[2] > WIDTH // 2 + 50 and area[3] - area[1] >= WINDOW_HEIGHT


def open_from_menu(panel, place, title, name):
    """The screen as it was without the window."""
    panel.park_mouse()
    closed = panel.wait_until_still()
    open_menu(panel, place, f"{name}-menu")
    panel.press(*["Down"] * (TITLES.index(title) + 1), "Return")
    wait_until(lambda: has_window(panel, closed), 10, f"the window of {title}")
    panel.shot(name)
    panel.wait_until_still()
    panel.shot(name)
    return closed


def test_a_key_closes_a_window_from_the_menu(lab, panel):
    lab.link.set(rtt_ms=40)
    lab.program.start()
    place = panel.wait_for_dot("green", 60, "windows")
    for key in ("Escape", "alt+F4"):
        closed = open_from_menu(panel, place, "About", "about")
        panel.press(key)
        wait_until(lambda: not has_window(panel, closed), 5, f"{key} closes it")
    lab.serve_speed_test()
    closed = open_from_menu(panel, place, "Run Speed Test", "speed-test")
    panel.press("Escape")
    wait_until(lambda: not has_window(panel, closed), 5, "Escape closes it")


def test_return_ends_the_welcome(lab, panel):
    lab.program.settings_file.unlink()
    closed = panel.wait_until_still()
    lab.program.start()
    wait_until(lambda: has_window(panel, closed), 60, "the welcome")
    panel.wait_until_still()
    panel.shot("welcome")
    panel.press("Return")
    wait_until(lambda: "didOnboard=true" in lab.program.settings_file.read_text() if lab.program.settings_file.exists() else False,
               5, "Return ends it")
    wait_until(lambda: not has_window(panel, closed), 5, "the window is gone")
