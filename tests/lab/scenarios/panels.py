"""What every real panel has to show."""

LARGE_ENOUGH_FOR_THE_MENU = (150, 150)
# steps down to "Pause Automatic Checks" past the entries that can be chosen then: the speed test and the check only while
# the checks are not paused
PAUSE = ["Down"] * 4 + ["Return"]
RESUME = ["Down"] * 2 + ["Return"]


def check_panel(lab, panel):
    """The dot is seen, a real click on it opens the menu, and a choice in the menu is obeyed and seen."""
    before = panel.shot("before")
    assert (before.dot("green"), before.dot("gray")) == (None, None)
    lab.link.set(rtt_ms=40)
    lab.program.start()
    place = panel.wait_for_dot("green", 15, "green")
    open_menu(panel, place, "menu")
    panel.press(*PAUSE)
    place = panel.wait_for_dot("gray", 5, "paused")
    panel.wait_until_still()
    open_menu(panel, place, "menu-paused")
    panel.press(*RESUME)
    panel.wait_for_dot("green", 5, "resumed")


def open_menu(panel, place, name):
    closed, openings = panel.shot(name), panel.openings()
    panel.click(place)
    panel.wait_until_still()
    changed = panel.shot(name).difference(closed)
    assert all(size >= wanted for size, wanted in zip(changed, LARGE_ENOUGH_FOR_THE_MENU)), changed
    assert panel.openings() > openings
