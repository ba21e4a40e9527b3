"""The item on a real GNOME Shell with its AppIndicator extension."""

from panels import check_panel


def test_the_dot_is_seen_and_opens_its_menu(lab):
    check_panel(lab, lab.start_panel("gnome"))
