"""The item on a real screen without any panel: in a strip of its own."""

from panels import check_changes, check_panel


def test_the_item_is_seen_obeys_and_never_grows(lab):
    panel = lab.start_panel("none")
    check_panel(lab, panel)
    check_changes(lab, panel)
