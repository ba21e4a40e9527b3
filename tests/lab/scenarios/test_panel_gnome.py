"""The item on a real GNOME Shell with its AppIndicator extension."""

from panels import check_changes, check_panel, check_sharp


def test_the_item_is_seen_obeys_and_never_grows(lab):
    panel = lab.start_panel("gnome")
    check_panel(lab, panel)
    check_changes(lab, panel)


def test_the_dot_is_drawn_with_the_pixels_of_a_screen_of_scale_2(lab):
    check_sharp(lab, lab.start_panel("gnome-2"), height=32)
