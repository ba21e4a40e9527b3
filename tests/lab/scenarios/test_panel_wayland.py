"""The item on Wayland without any panel: in a window of its own, wherever the compositor puts that."""

from panel import SCREEN
from panels import large_enough
from support.processes import wait_until


def test_the_strip_is_seen_and_opens_its_menu(lab):
    panel = lab.start_panel("sway")
    panel.use_wayland()
    lab.link.set(rtt_ms=40)
    lab.program.start()

    def dot(colour, name):
        return wait_until(lambda: panel.shot(name).dots(colour, SCREEN), 15, f"a {colour} dot")

    place, = dot("green", "green")
    closed = panel.look()
    panel.click(place)
    wait_until(lambda: large_enough(panel.shot("menu").difference(closed, SCREEN)), 5, "the menu opens")
    panel.press(*["Down"] * 4, "Return")
    dot("gray", "paused")
