"""The item on a real panel, the one that --panel names."""

from panel_checks import check_changes, check_panel


def test_the_item_is_seen_and_obeys(lab, panel):
    check_panel(lab, panel)
    check_changes(lab, panel)
