"""The item on a real Waybar in sway."""

from panels import check_changes, check_panel


def test_the_item_is_seen_obeys_and_never_grows(lab):
    panel = lab.start_panel("waybar")
    check_panel(lab, panel)
    check_changes(lab, panel)
