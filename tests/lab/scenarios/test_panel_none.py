"""The item on a real screen without any panel: in a strip of its own."""

from panels import check_changes, check_panel, check_second_start


def test_the_item_is_seen_obeys_and_never_grows(lab):
    panel = lab.start_panel("none")
    check_panel(lab, panel)
    check_changes(lab, panel)


def test_a_second_start_opens_the_menu(lab):
    check_second_start(lab, lab.start_panel("none"))
