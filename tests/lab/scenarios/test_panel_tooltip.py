"""The tooltip on a real xfce4-panel, which shows nothing but the program's name where the item has none."""

from panel import BELOW
from support.processes import wait_until

WIDER_THAN_THE_NAME = 200  # pixels; the tooltip's text needs 290


def test_the_tooltip_has_the_items_text(lab):
    panel = lab.start_panel("xfce")
    lab.link.set(rtt_ms=40)
    lab.program.start()
    place = panel.wait_for_dot("green", 20, "green")
    panel.park_mouse()
    before = panel.wait_until_still()
    panel.point(place)

    def is_shown():
        area = panel.shot("tooltip").difference(before, BELOW)
        return area and area[2] - area[0] > WIDER_THAN_THE_NAME
    wait_until(is_shown, 20, "the tooltip")
