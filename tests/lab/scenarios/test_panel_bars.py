"""The item in the trays of other bars of X11."""

import pytest
from panel_checks import check_click_and_keys


@pytest.mark.parametrize("bar", ["i3bar", "polybar"])
def test_the_icon_is_seen_and_opens_its_menu(lab, bar):
    panel = lab.start_panel(bar)
    lab.link.set(rtt_ms=40)
    lab.program.start()
    check_click_and_keys(lab, panel, panel.wait_for_dot("green", 20, "green"))
    assert panel.has_tray_icon()
