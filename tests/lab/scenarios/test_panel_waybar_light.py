"""The whole title on a light bar, on a screen of scale 2."""

from panels import check_sharp


def test_the_title_is_drawn_with_the_pixels_of_the_screen(lab):
    check_sharp(lab, lab.start_panel("waybar-light"), wide=True)
