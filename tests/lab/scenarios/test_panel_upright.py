"""The item on a panel that stands upright."""

from panel_checks import FITS
from support.processes import wait_until


def test_an_upright_panel_shows_the_number_too(lab):
    panel = lab.start_panel("mate-left")
    lab.link.set(rtt_ms=40)
    lab.program.start()
    panel.park_mouse()

    def fits():
        picture = panel.shot("green")
        dots = picture.dots("green", (0, 0, 40, 200))
        if len(dots) != 1:
            return False
        _, item = panel.item(lab.program.pid)
        badges = [pixmap for pixmap in item["IconPixmap"] if pixmap[0] == pixmap[1]]
        return panel.icon_distance(picture, dots[0], badges)[0] < FITS
    wait_until(fits, 20, "the dot with the number")
