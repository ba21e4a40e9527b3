"""The item moves: from its own strip to a tray of X11, from there to a panel, and back, without a restart."""

from panel import PANEL, WIDTH
from support.processes import wait_until


def test_the_item_goes_wherever_it_can_be_shown_best(lab):
    panel = lab.start_panel("none")
    lab.link.set(rtt_ms=40)
    lab.program.start()

    def stands(name, where):
        """One dot, and in the right place: the strip is on the right, trays and panels here on the left."""
        def there():
            dots = panel.shot(name).dots("green", PANEL)
            assert len(dots) <= 1, f"two items at once: {dots}"
            return len(dots) == 1 and where(dots[0][0])
        wait_until(there, 30, f"the item in its place: {name}")

    on_the_right, on_the_left = (lambda x: x > WIDTH // 2), (lambda x: x < WIDTH // 2)
    stands("1-strip", on_the_right)
    tray = panel.start_another("trayer")
    stands("2-tray", on_the_left)
    panel.wait_until_still(PANEL)
    bar = panel.start_another("lxqt")
    wait_until(panel.has_host, 20, "the panel has a host")
    # the tray is empty now, and the panel covers its place
    stands("3-panel", on_the_left)
    wait_until(lambda: not panel.has_tray_icon(), 5, "the icon has left the tray")
    bar.kill()
    wait_until(panel.has_tray_icon, 10, "the icon is in the tray again")
    stands("4-tray", on_the_left)
    tray.kill()
    stands("5-strip", on_the_right)
