"""What every real panel has to show."""

LARGE_ENOUGH_FOR_THE_MENU = (150, 150)


def check_panel(lab, panel):
    """The dot is seen, a real click on it opens the menu, and a choice in the menu is obeyed and seen."""
    assert panel.shot("before").dot("green") is None
    lab.program.start()
    place = panel.dot("green", 15, "green")
    panel.settle()
    closed = panel.shot("green")
    panel.click(place)
    panel.settle()
    opened = panel.shot("menu")
    assert all(size >= wanted for size, wanted in zip(opened.difference(closed), LARGE_ENOUGH_FOR_THE_MENU))
    assert panel.menu_was_opened()
    panel.press("Down", "Down", "Down", "Down", "Return")  # speed test, check now, live traffic, pause
    panel.dot("gray", 5, "paused")
