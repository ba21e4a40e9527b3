"""The whole title on a light bar, on a screen of scale 2."""

from panel import HEIGHT, PANEL, WIDTH
from panels import check_number


def test_the_title_is_drawn_with_the_pixels_of_the_screen(lab):
    panel = lab.start_panel("waybar-light")
    lab.link.set(rtt_ms=40)
    lab.program.start()
    place = panel.wait_for_dot("green", 20, "green")
    check_number(lab, panel, place)
    # twice as large, and sharp: where a letter meets its ground the brightness jumps, as it would not had it been stretched
    picture = panel.shot("green")
    left, _, right, _ = PANEL
    line = [sum(picture.pixel(x, place[1])) // 3 for x in range(left, right)]
    assert max(abs(one - next_one) for one, next_one in zip(line[60:], line[61:400])) > 120
    assert (picture.width, picture.height) == (WIDTH, HEIGHT)
