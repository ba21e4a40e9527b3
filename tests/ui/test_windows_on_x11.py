"""The windows on a real X server with a real window manager, used by mouse and keyboard."""

import os
import re
import time
from contextlib import ExitStack
from pathlib import Path

import pytest
from desktop_session import HEIGHT, WIDTH, Demo, Session
from support.processes import wait_until

WINDOWS = [("welcome", "welcomeWindow"), ("about", "aboutWindow"), ("test", "speedTestWindow")]
SMALL = 1024, 600
# Bits of _MOTIF_WM_HINTS (Motif's MwmUtil.h).
MINIMIZE, MAXIMIZE, CLOSE = 1 << 3, 1 << 4, 1 << 5


def pictures_folder():
    folder = Path(os.environ["SKYLET_WINDOWS_PICTURES"])
    folder.mkdir(parents=True, exist_ok=True)
    return folder


@pytest.fixture(scope="module")
def session():
    with ExitStack() as stack:
        yield Session(stack)


@pytest.fixture(scope="module")
def small_session():
    with ExitStack() as stack:
        yield Session(stack, size=SMALL)


@pytest.fixture
def screen(session):
    return session.screen


@pytest.fixture
def demo(session):
    demo = Demo(session)
    yield demo
    demo.end()


def frame(demo, name):
    """The edges of the window with its frame, and the height of its title bar."""
    left, right, top, bottom = map(int, re.findall(r"\d+", demo.properties(name, "_NET_FRAME_EXTENTS")))
    # of the X server, because the program may not have heard of its frame yet
    place = demo.screen.ask("xwininfo", "-id", str(demo.window(name)["id"]))
    x, y, width, height = (int(re.search(rf"{key}: +(-?\d+)", place)[1])
                           for key in ("upper-left X", "upper-left Y", "Width", "Height"))
    return x - left, y - top, x + width + right, y + height + bottom, top


def close_by_title_bar(demo, name):
    """Clicks the close button, which openbox has at the right end of its title bar."""
    _, top, right, _, title_bar = frame(demo, name)
    demo.screen.click(right - 13, top + title_bar / 2)
    wait_until(lambda: not demo.window(name)["visible"], 10, f"{name} is closed")


@pytest.mark.parametrize("what,name", WINDOWS)
def test_a_window_can_be_closed_but_neither_resized_nor_minimised(demo, what, name):
    demo.show(what, name)
    _, functions, decorations = (int(word, 16) for word in
                                 re.findall(r"0x[0-9a-f]+", demo.properties(name, "_MOTIF_WM_HINTS"))[:3])
    assert functions & CLOSE and not functions & (MINIMIZE | MAXIMIZE)
    assert not decorations & (1 << 5 | 1 << 6), "buttons to minimise or maximise"
    sizes = re.findall(r"m\w+ size: (\d+ by \d+)", demo.properties(name, "WM_NORMAL_HINTS"))
    assert len(sizes) == 2 and sizes[0] == sizes[1]


def test_the_dark_panel_asks_for_a_dark_title_bar_each_time(screen, demo):
    for _ in range(2):
        demo.show("test", "speedTestWindow")
        assert demo.properties("speedTestWindow", "_GTK_THEME_VARIANT").strip() == '_GTK_THEME_VARIANT(UTF8_STRING) = "dark"'
        screen.press("Escape")
        wait_until(lambda: not demo.window("speedTestWindow")["visible"], 10, "it is closed")


def test_a_title_bar_is_as_dark_as_its_window(demo):
    def asks_for_dark():
        return "dark" in demo.properties("aboutWindow", "_GTK_THEME_VARIANT")
    demo.show("about", "aboutWindow")
    assert not asks_for_dark()
    demo.tell("palette dark")
    wait_until(asks_for_dark, 10, "the title bar is to be dark")
    demo.tell("palette light")
    wait_until(lambda: not asks_for_dark(), 10, "it is to be light again")


@pytest.mark.parametrize("what,name", WINDOWS)
def test_a_window_stands_in_the_middle(demo, what, name):
    window = demo.show(what, name)
    width, height = map(int, re.search(r"minimum size: (\d+) by (\d+)", demo.properties(name, "WM_NORMAL_HINTS")).groups())
    assert abs(window["x"] + width / 2 - WIDTH / 2) < 5
    assert abs(window["y"] + height / 2 - HEIGHT / 2) < 30  # with or without the title bar


@pytest.mark.parametrize("what,name", WINDOWS)
def test_a_window_takes_the_keyboard_from_another_program(session, demo, what, name):
    other = Demo(session)
    demo.show(what, name)
    other.show("test", "speedTestWindow")
    other.click("gauge")
    wait_until(lambda: not demo.window(name)["active"], 10, "the other program has the keyboard")
    demo.show(what, name)
    wait_until(lambda: not other.window("speedTestWindow")["active"], 10, "it has it no more")
    other.end()


@pytest.mark.parametrize("what,name", WINDOWS[1:])
def test_a_window_comes_back_from_being_minimised_and_from_another_desktop(screen, demo, what, name):
    window = demo.show(what, name)
    screen.do("xdotool", "windowminimize", str(window["id"]))
    wait_until(lambda: demo.window(name)["minimized"], 10, "it is minimised")
    demo.show(what, name)
    screen.do("xdotool", "set_num_desktops", "2")
    screen.do("xdotool", "set_desktop", "1")
    wait_until(lambda: not demo.window(name)["active"], 10, "it is left behind")
    demo.show(what, name)
    assert screen.ask("xdotool", "get_desktop").strip() == "1"
    screen.do("xdotool", "set_desktop", "0")


@pytest.mark.parametrize("what,name", WINDOWS)
@pytest.mark.parametrize("by", ["escape", "title bar"])
def test_a_window_is_closed_and_comes_back(screen, demo, what, name, by):
    demo.show(what, name)
    if by == "escape":
        screen.press("Escape")
        wait_until(lambda: not demo.window(name)["visible"], 10, f"{name} is closed")
    else:
        close_by_title_bar(demo, name)
    assert demo.reports == (["started", "cancelled"] if what == "test" else [])
    demo.show(what, name)


def test_welcome_is_confirmed_by_return_from_its_check_box(screen, demo):
    demo.show("welcome", "welcomeWindow")
    screen.press("Tab", "space")
    wait_until(lambda: demo.state["loginBox"], 10, "the box is on")
    assert demo.state["focus"] == "loginBox"
    screen.press("Return")
    wait_until(lambda: demo.reports == ["finishWelcome"], 10, "the button is pressed")
    assert not demo.window("welcomeWindow")["visible"]
    assert demo.state["loginBox"]


def test_welcome_does_nothing_for_somebody_who_goes_on_typing(screen, demo):
    demo.show("welcome", "welcomeWindow")
    screen.press("t", "o", "space", "b", "e", "space")
    screen.press("Return")
    wait_until(lambda: demo.reports, 10, "the button is pressed")
    assert demo.reports == ["finishWelcome"] and not demo.state["loginBox"]


@pytest.mark.parametrize("scale,points", [(1, 10), (1, 16), (2, 10), (2, 16)])
@pytest.mark.parametrize("language", ["en", "he"])
def test_windows_stay_on_a_small_screen(small_session, language, scale, points):
    demo = Demo(small_session, language, scale)
    demo.tell(f"points {points}")
    for what, name in WINDOWS:
        demo.show(what, name)
        left, top, right, bottom, title_bar = frame(demo, name)
        assert left >= 0 and top >= 0 and right <= SMALL[0] and bottom <= SMALL[1] and title_bar > 10
        picture = pictures_folder() / f"small-{what}-{language}-x{scale}-{points}pt.png"
        small_session.screen.take_picture(picture)
    demo.end()


def test_welcome_is_confirmed_by_the_mouse(screen, demo):
    demo.show("welcome", "welcomeWindow")
    place = demo.tell("where loginBox")
    screen.click(place["x"] - 170, place["y"])
    wait_until(lambda: demo.state["loginBox"], 10, "the box is on")
    demo.click("gotItButton")
    wait_until(lambda: demo.reports == ["finishWelcome"], 10, "the button is pressed")


def test_the_link_is_opened_by_mouse_and_keyboard(screen, demo):
    demo.show("about", "aboutWindow")
    assert demo.state["focus"] == "aboutWindow"
    demo.click("link")
    wait_until(lambda: len(demo.reports) == 1, 10, "the link is clicked")
    demo.show("about", "aboutWindow")
    screen.press("Tab", "Return")
    wait_until(lambda: len(demo.reports) >= 2, 10, "Return opens the link")
    screen.press("space")
    wait_until(lambda: demo.reports == ["openBrimlake"] * 3, 10, "Space opens the link")


def test_a_speed_test_runs_again_by_keyboard_and_mouse(screen, demo):
    def run_through():
        for phase in ("receive", "send"):
            demo.tell(f"{phase} 5000000")
            demo.tell("end 200")
            if phase == "receive":
                wait_until(lambda: demo.tell("send 0")["reports"][-1] == "started", 10, "the test goes on")
                time.sleep(0.8)

    demo.show("test", "speedTestWindow")
    for again in (lambda: screen.press("Return"), lambda: screen.press("space"), lambda: demo.click("runButton")):
        run_through()
        wait_until(lambda: demo.reports[-1] == "finished", 10, "the test is over")
        assert demo.state["focus"] == "runButton"
        again()
        wait_until(lambda: demo.reports[-1] == "started", 10, "it runs again")


def test_the_gauge_moves_while_covered_but_not_while_away(screen, demo):
    window = demo.show("test", "speedTestWindow")
    demo.show("about", "aboutWindow")  # wholly in front of it
    assert demo.tell("target 500")["animating"]
    wait_until(lambda: 0 < demo.state["value"] < 500, 10, "it is on its way")
    wait_until(lambda: not demo.state["animating"], 10, "it has arrived")
    assert demo.state["value"] == 500

    demo.tell("target 5")
    screen.do("xdotool", "windowminimize", str(window["id"]))
    wait_until(lambda: demo.window("speedTestWindow")["minimized"], 10, "it is minimised")
    wait_until(lambda: not demo.state["animating"], 10, "the animation has ended")
    assert demo.state["value"] == 5
    assert not demo.tell("target 100")["animating"]
    demo.show("test", "speedTestWindow")
    assert not demo.state["animating"] and demo.state["value"] == 100, "whoever comes back sees what is"

    assert demo.tell("target 300")["animating"]
    screen.do("xdotool", "set_num_desktops", "2")
    screen.do("xdotool", "set_desktop", "1")
    wait_until(lambda: not demo.state["animating"], 10, "the animation has ended")
    assert demo.state["value"] == 300 and not demo.tell("target 9")["animating"]
    screen.do("xdotool", "set_desktop", "0")
    assert demo.state["value"] == 9


@pytest.mark.parametrize("language,titles", [
    ("en", ["Welcome to Skylet", "About Skylet", "Speed Test"]),
    ("he", ["ברוכים הבאים ל-Skylet", "אודות Skylet", "מבחן מהירות"])])
@pytest.mark.parametrize("scale", [1, 2])
def test_titles_and_pictures(session, screen, language, titles, scale):
    """Keeps a picture of each window with its frame, on a light and on a dark desktop."""
    folder = pictures_folder()
    time.sleep(1)  # until openbox no longer says which virtual desktop this is
    demo = Demo(session, language, scale)
    for (what, name), title in zip(WINDOWS, titles):
        demo.show(what, name)
        assert demo.properties(name, "_NET_WM_NAME").strip().endswith(f'= "{title}"')
        if what == "test":
            demo.tell("receive 1000")
            demo.tell("target 48.2")
            wait_until(lambda: not demo.state["animating"], 10, "the needle stands")
        for shade in ("light", "dark"):
            demo.tell(f"palette {shade}")
            time.sleep(0.2)
            picture = folder / f"x11-{what}-{language}-{shade}-x{scale}.png"
            screen.take_picture_of_window(picture, demo.window(name)["id"])
            assert picture.stat().st_size > 5000
    demo.end()
