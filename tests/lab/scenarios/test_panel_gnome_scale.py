"""On a screen of scale 2 a real GNOME Shell shows the item with the screen's own pixels."""

from panel_checks import check_sharp


def test_the_dot_is_drawn_with_the_pixels_of_a_screen_of_scale_2(lab):
    check_sharp(lab, lab.start_panel("gnome-2"), height=32)
