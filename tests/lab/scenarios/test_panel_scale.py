"""On screens of scale 2 the item is drawn with the screen's own pixels, never stretched from a picture for scale 1."""

from panel_checks import check_sharp


def test_a_badge(lab):
    check_sharp(lab, lab.start_panel("xfce-2"))


def test_the_whole_title_on_a_light_bar(lab):
    check_sharp(lab, lab.start_panel("waybar-light"), wide=True)


def test_the_icon_in_a_tray_of_x11(lab):
    panel = lab.start_panel("trayer-2")
    panel.set_dpi(192)
    check_sharp(lab, panel, height=48)  # it fills the tray


def test_the_strip(lab):
    panel = lab.start_panel("none-2")
    panel.set_dpi(192)
    # so that the item on the bus, which nobody shows, holds the whole title as well
    lab.program.environment |= {"XDG_CURRENT_DESKTOP": "MATE"}
    check_sharp(lab, panel, wide=True)
