"""The item on a real tint2, a tray of X11 with icons of one size."""

from panels import check_changes, check_panel


def test_the_item_is_seen_obeys_and_never_grows(lab):
    panel = lab.start_panel("tint2")
    check_panel(lab, panel)
    check_changes(lab, panel)
