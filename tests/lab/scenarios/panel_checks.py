"""What every real panel has to show."""

import time

from desktop import pixmap_of
from memory import Changes
from panel import BELOW, HEIGHT, PANEL, PANEL_HEIGHT, SCREEN, WIDTH
from picture import Icon
from support.processes import wait_until

LARGE_ENOUGH_FOR_THE_MENU = (150, 150)
TITLES = ("Run Speed Test", "Check Connection", "Show Live Traffic", "Pause Automatic", "Launch at Login", "About", "Quit")
# rows that can be chosen while online, and where a separator stands before the next one
ROWS = len(TITLES)
SEPARATED_AFTER = (1, 4)
LINES_ABOVE = 3
# mean difference of a colour by which a panel's own way of scaling may differ from ours
FITS = 8
# the area that holds any panel of scale 2, and a strip beneath a panel of scale 1
TALL_PANEL = (0, 0, WIDTH, 72)
# of a screen of scale 2: the usual height of icons, and a picture that is scaled down at most
ICON_OF_SCALE_2 = 44
FITS_WELL = 5
HOSTLESS_DELAY = 3  # seconds that the program waits for a panel before it shows the item itself


def start_without_a_bar(lab):
    """The program on Wayland with nothing that shows its item: (panel, screen) once its strip stands still, which a title that grows
    moves."""
    panel = lab.start_panel("sway")
    panel.use_wayland()
    lab.link.set(rtt_ms=40)
    lab.program.start()
    wait_until(lambda: panel.look().dots("green", SCREEN), 30, "a green dot")
    panel.park_mouse()
    return panel, panel.wait_until_still()


def check_panel(lab, panel):
    """The dot and the number are seen, a real click opens the menu, what is chosen there is obeyed and seen, and all that
    holds when the panel has crashed and come back."""
    before = panel.shot("before")
    assert not before.dots("green", PANEL) and not before.dots("gray", PANEL)
    lab.link.set(rtt_ms=40)
    lab.program.start()
    place = panel.wait_for_dot("green", 30, "green")
    check_number(lab, panel, place)
    rows = check_menu(lab, panel, place)
    check_pause(lab, panel, place, rows)
    check_return(lab, panel)


def check_number(lab, panel, place):
    """What the host was given holds the number, and where it draws our picture the screen shows just that."""
    panel.park_mouse()
    _, item = panel.item(lab.program.pid)
    shows = panel.kind.shows
    assert ("XAyatanaLabel" in item) == (shows == "label")
    if shows == "label":
        assert " ms " in item["XAyatanaLabel"]
        return
    if shows in ("badge", "wide"):
        def fits():
            _, now = panel.item(lab.program.pid)
            picture = panel.shot("green")
            dots = picture.dots("green", PANEL)
            assert len(dots) == 1, dots
            distance, given, drawn = panel.icon_distance(picture, dots[0], now["IconPixmap"])
            print(f"{panel.name}: the picture is off by {distance:.1f}; {given} pixels high, drawn with {drawn}")
            return distance < FITS
        # A wider title before it, such as that of the start, keeps its room for ten seconds; comparing takes long on a busy machine.
        wait_until(fits, 90, "the panel shows our picture")


def check_sharp(lab, panel, wide=False, height=ICON_OF_SCALE_2):
    """On a screen of scale 2: what is to be seen is one of our pictures for that, and not one of half the size stretched."""
    lab.link.set(rtt_ms=40)
    lab.program.start()
    panel.park_mouse()

    def fits():
        picture = panel.shot("green")
        dots = picture.dots("green", TALL_PANEL)
        if not dots:
            return False
        _, item = panel.item(lab.program.pid)
        given = [pixmap for pixmap in item["IconPixmap"] if (pixmap[0] > pixmap[1]) == wide]
        if panel.kind.shows == "label":  # given as a file, in one size
            whole = pixmap_of(item["IconName"])
            given = [whole, Icon(whole).scaled(height // 2).pixmap]
        if panel.kind.shows == "strip":  # which may set its words a part of a pixel farther to the right
            given = [up_to_the_number(pixmap) for pixmap in given]
        sharp, stretched = (
            min(panel.scaled_distance(picture, dots[0], pixmap, height) for pixmap in given if fitting(pixmap[1]))
            for fitting in (lambda offered: offered >= height, lambda offered: offered <= height // 2))
        print(f"{panel.name}: off by {sharp:.1f}; stretched it would be {stretched:.1f}")
        # how a file is made smaller is the host's own affair, and never just as it is done here
        return sharp < FITS_WELL and (1 if panel.kind.shows == "label" else 2) * sharp < stretched
    wait_until(fits, 25, "the panel shows a picture for its scale")


def up_to_the_number(pixmap):
    """The left part of a drawn title."""
    width, height, data = pixmap
    part = 40 * max(1, height // 22)
    rows = (data[4 * row * width:4 * (row * width + part)] for row in range(height))
    return part, height, b"".join(rows)


def open_menu(panel, place, name):
    """Opens it by a click; (the picture with the menu, the menu's rectangle)."""
    closed = click_on_dot(panel, place)
    if panel.kind.desktop == "GNOME":  # which marks an entry that has become enabled since the menu was last open
        close_menu(panel)
        wait_until(lambda: not large_enough(panel.look().difference(closed, BELOW)), 5, "the menu closes")
        time.sleep(1)  # else it is a double click
        closed = click_on_dot(panel, place)
    panel.park_mouse()
    # the menu's upper lines change by themselves
    _, top, _, bottom = panel.look().difference(closed, BELOW)
    panel.wait_until_still((0, (top + bottom) // 2, WIDTH, HEIGHT))
    opened = panel.shot(name)
    area = opened.difference(closed, BELOW)
    assert large_enough(area), area
    left, top, right, bottom = area
    # a menu may lie over the panel; at its right end there is nothing else that changes
    while top > 0 and opened.row(top - 1, right - 60, right - 20) != closed.row(top - 1, right - 60, right - 20):
        top -= 1
    return opened, (left, top, right, bottom)


def click_on_dot(panel, place):
    """The picture of the screen before the menu."""
    panel.park_mouse()
    closed = panel.wait_until_still()
    # where the title ends at the screen's edge, the dot moves as its text becomes shorter or longer
    x, y = (closed.dots("green", PANEL) or closed.dots("gray", PANEL) or [place])[0]
    panel.click((x + 40 if panel.kind.shows == "label" else x, y))
    wait_until(lambda: large_enough(panel.look().difference(closed, BELOW)), 20, "a menu opens")
    return closed


def large_enough(area):
    return area and all(area[end] - area[end - 2] >= size for end, size in zip((2, 3), LARGE_ENOUGH_FOR_THE_MENU))


def check_click_and_keys(lab, panel, place):
    """A click opens the menu, the keys reach "Pause", and the dot shows it."""
    open_menu(panel, place, "menu")
    panel.press(*["Down"] * 4, "Return")
    panel.wait_for_dot("gray", 5, "paused")


def check_menu(lab, panel, place):
    """The rows stand where they belong: the three lines cannot be chosen, the separators are in their places, and the
    keyboard reaches the rest."""
    entries = panel.menu(lab.program.pid)
    assert [entry.enabled for entry in entries if not entry.separator] == [False] * LINES_ABOVE + [True] * ROWS
    assert [index for index, entry in enumerate(entries) if entry.separator] == [3, 6, 10]
    opened, area = open_menu(panel, place, "menu")
    rows = (rows_by_keyboard if panel.kind.keyboard else rows_by_mouse)(panel, opened, area)
    assert len(rows) == ROWS, rows
    close_menu(panel)
    height = rows[1][1] - rows[0][1]
    assert height > 12, rows
    for index in range(ROWS - 1):
        gap = rows[index + 1][1] - rows[index][1] - height
        assert 1 <= gap <= height if index in SEPARATED_AFTER else gap == 0, (index, rows)
    assert rows[0][1] - area[1] >= LINES_ABOVE * (height - 4), (rows, area)
    return rows


def rows_by_keyboard(panel, opened, area):
    """(left, top, right, bottom) of each row that the keyboard reaches."""
    rows = []
    for _ in range(ROWS):
        panel.press("Down")
        rows.append(wait_until(lambda: marked_row(panel.look(), opened, area, rows), 3, "the next row is marked"))
    return rows


def rows_by_mouse(panel, opened, area):
    """(left, top, right, bottom) of each row that is marked when the mouse is on it."""
    rows, middle, y = [], (area[0] + area[2]) // 2, area[1] + 4
    while y < area[3]:
        panel.point((middle, y))
        time.sleep(0.15)
        row = marked_row(panel.look(), opened, area, rows)
        if row:
            rows.append(row)
        y = row[3] + 4 if row else y + 9
    return rows


def close_menu(panel):
    if panel.kind.keyboard:
        panel.press("Escape")
    else:
        panel.click((WIDTH - 2, HEIGHT - 2))


def choose(panel, rows, chosen, index):
    """Chooses a row of the open menu. `chosen`: how many rows that can be chosen stand above it."""
    if panel.kind.keyboard:
        panel.press(*["Down"] * (chosen + 1), "Return")
    else:
        left, top, right, bottom = rows[index]
        panel.click(((left + right) // 2, (top + bottom) // 2))


def marked_row(picture, plain, area, known):
    """(left, top, right, bottom) of the row that is marked in the one picture and not in the other. The mark goes on where
    no text is that changes by itself."""
    left, top, right, bottom = area
    band = left + (right - left) * 4 // 5
    changed = picture.difference(plain, (band, top, band + 8, bottom))
    if not changed or not 12 < changed[3] - changed[1] < 60:
        return None
    row = picture.difference(plain, (left, changed[1], right, changed[3]))
    whole = row[2] - row[0] >= LARGE_ENOUGH_FOR_THE_MENU[0]
    return row if whole and row not in known else None


def check_pause(lab, panel, place, rows):
    """A choice made in the menu is obeyed, seen within a second, and marked there."""
    unchecked, _ = open_menu(panel, place, "menu")
    choose(panel, rows, 3, 3)
    began = time.monotonic()
    place = panel.wait_for_dot("gray", 1, "paused")
    print(f"{panel.name}: seen after {time.monotonic() - began:.2f} s at most")
    time.sleep(0.5)
    checked, _ = open_menu(panel, place, "menu-paused")
    # the menu may stand elsewhere, as the title has become shorter; its last row is the same at any rate
    left, top, right, bottom = rows[-1]
    at = checked.row((top + bottom) // 2, 0, WIDTH).find(unchecked.row((top + bottom) // 2, left, right))
    assert at >= 0 and at % 3 == 0, "the menu's last row is not to be found"
    moved = at // 3 - left
    changed = [not same_row(unchecked, checked, row, moved) for row in rows]
    # two rows are disabled now, one has its mark, and the others are as before
    assert changed == [True, True, False, True, False, False, False], (changed, rows, moved)
    choose(panel, rows, 1, 3)
    panel.wait_for_dot("green", 5, "resumed")


def same_row(one, other, row, moved):
    left, top, right, bottom = row
    return all(one.row(y, left, right) == other.row(y, left + moved, right + moved) for y in range(top + 2, bottom - 2))


def check_return(lab, panel):
    """The panel crashes and comes back, and the item with it, to the place that it had."""
    if panel.kind.shows == "strip" or panel.kind.is_compositor:
        return
    place = wait_until(lambda: panel.shot("there").dots("green", PANEL), 5, "the dot")[0]
    panel.kill()
    # an icon of an X11 tray becomes a strip at once
    left = 1 if panel.kind.shows == "tray" else 0
    wait_until(lambda: len(panel.shot("gone").dots("green", PANEL)) == left, 5, "the panel is gone")
    if panel.kind.outlived_by_watcher:
        # a window manager that dies leaves its panel's room free
        wait_until(lambda: [x for x, _ in panel.shot("strip").dots("green", TALL_PANEL) if x > WIDTH // 2], 10, "the strip")
    panel.restart()

    def back():
        dots = panel.shot("back").dots("green", TALL_PANEL)
        return len(dots) == 1 and abs(dots[0][0] - place[0]) < 40
    wait_until(back, 20, "one green dot again, where it was")
    # in whose place no other comes up when the time to wait for a panel is over
    time.sleep(HOSTLESS_DELAY + 1)
    assert back()


def check_second_start(lab, panel):
    """Where no panel shows the item, a second start opens its menu, for the keyboard too."""
    lab.link.set(rtt_ms=40)
    lab.program.start()
    place = panel.wait_for_dot("green", 30, "green")
    panel.park_mouse()
    closed = panel.wait_until_still()
    assert lab.program.start_another().wait(5) == 0
    wait_until(lambda: large_enough(panel.look().difference(closed, BELOW)), 3, "the menu opens")
    left, top, right, _ = panel.shot("second-start").difference(closed, SCREEN)
    assert left <= place[0] <= right and top < PANEL_HEIGHT + 10, "the menu is not beside the item"
    panel.press(*["Down"] * 4, "Return")
    panel.wait_for_dot("gray", 3, "second-start-paused")


def check_changes(lab, panel):
    """Each of many changes is told once, and the panel looks at each."""
    lab.program.end()
    panel.wait_until_gone("green", 5, "ended")
    changes = Changes(panel)
    panel.wait_for_dot("green", 20, "changes")
    changes.check(100)
    changes.end()
