"""The item on a real trayer, a tray of X11."""

from panels import check_changes, check_panel


def test_the_item_is_seen_obeys_and_never_grows(lab):
    panel = lab.start_panel("trayer")
    check_panel(lab, panel)
    check_changes(lab, panel)
