"""The item on a real xfce4-panel with the Ayatana indicators."""

from panels import check_changes, check_panel


def test_the_item_is_seen_obeys_and_never_grows(lab):
    panel = lab.start_panel("ayatana")
    check_panel(lab, panel)
    check_changes(lab, panel)
