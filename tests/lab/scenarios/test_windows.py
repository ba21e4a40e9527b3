"""The windows as a user meets them, on a real screen: the welcome of the first start, About, launch at login; in Hebrew."""

import shlex

import pytest
from support.processes import wait_until

WELCOME, ABOUT = "Welcome to Skylet", "About Skylet"
LAUNCH = "Launch Skylet at login (recommended)"
DID_ONBOARD = "didOnboard=true"


@pytest.fixture
def screen(lab):
    return lab.start_screen()


def thing(screen, window, name):
    return next(thing for thing in screen.things(window) if thing["name"] == name)


def agent(lab):
    return lab.program.home / "config/autostart/com.vorn.skylet.desktop"


def start_for_the_first_time(lab, screen):
    lab.program.settings_file.unlink(missing_ok=True)
    start_again(lab)
    wait_until(lambda: screen.things(WELCOME), 5, "the welcome window is there")


def start_again(lab):
    lab.program.start()
    lab.area.wait_for(lambda state: state.dot, 5, since=lab.program.started)


def stored(lab):
    return lab.program.settings_file.read_text() if lab.program.settings_file.exists() else ""


def test_the_first_start_welcomes_and_return_ends_that_for_good(lab, screen):
    start_for_the_first_time(lab, screen)
    assert "checked" not in thing(screen, WELCOME, LAUNCH)["states"]
    screen.shot("welcome")
    screen.press("Return")
    wait_until(lambda: not screen.things(), 2, "the window has gone")
    assert DID_ONBOARD in stored(lab)
    assert not agent(lab).exists()
    lab.program.end()
    start_again(lab)
    assert not screen.things()


@pytest.mark.parametrize("keys", (["Escape"], ["alt+F4"]))
def test_a_welcome_that_is_closed_comes_back_at_the_next_start(lab, screen, keys):
    start_for_the_first_time(lab, screen)
    screen.press(*keys)
    wait_until(lambda: not screen.things(), 2, "the window has gone")
    assert DID_ONBOARD not in stored(lab)
    lab.program.end()
    start_again(lab)
    assert screen.things(WELCOME)


def test_the_box_and_the_button_make_it_launch_at_login(lab, screen):
    start_for_the_first_time(lab, screen)
    screen.click(thing(screen, WELCOME, LAUNCH))
    wait_until(lambda: "checked" in thing(screen, WELCOME, LAUNCH)["states"], 2, "the box is checked")
    assert not agent(lab).exists()
    screen.click(thing(screen, WELCOME, "Got it"))
    wait_until(agent(lab).exists, 2, "the agent is there")
    entry = lab.area.wait_for(lambda state: any(entry.checked for entry in state.menu if entry.title == "Launch at Login"), 2)
    assert entry


def test_the_menu_switches_launch_at_login_on_and_off(lab):
    start_again(lab)
    lab.area.click("Launch at Login")
    wait_until(agent(lab).exists, 2, "the agent is there")
    assert lab.area.menu()["Launch at Login"].checked
    executable, = (line.removeprefix("Exec=") for line in agent(lab).read_text().splitlines() if line.startswith("Exec="))
    assert lab.program.file.samefile(*shlex.split(executable))
    lab.area.click("Launch at Login")
    wait_until(lambda: not agent(lab).exists(), 2, "the agent is gone")
    assert not lab.area.menu()["Launch at Login"].checked


def test_about_is_one_window_that_comes_back_and_opens_the_web_site(lab, screen):
    browser = lab.program.home / "bin/xdg-open"
    opened = lab.program.home / "opened"
    browser.parent.mkdir()
    browser.write_text(f"#!/bin/sh\necho \"$1\" > {opened}\n")
    browser.chmod(0o755)
    lab.program.environment["PATH"] = f"{browser.parent}:{lab.program.environment['PATH']}"
    start_again(lab)
    for _ in range(2):
        lab.area.click("About Skylet")
        wait_until(lambda: screen.things(ABOUT), 2, "About is there")
        assert [thing["role"] for thing in screen.things()].count("dialog") == 1
        screen.press("Escape")
        wait_until(lambda: not screen.things(), 2, "About is gone")
    lab.area.click("About Skylet")
    wait_until(lambda: screen.things(ABOUT), 2, "About is there")
    screen.shot("about")
    screen.click(thing(screen, ABOUT, "Powered by Brimlake"))
    wait_until(opened.exists, 3, "the browser was asked")
    wait_until(lambda: opened.read_text().strip() == "https://brimlake.example", 1, "it was told where to go")


def test_an_opened_window_takes_the_keyboard_from_another_program(lab, screen):
    start_again(lab)
    screen.open_another_program()
    lab.area.click("About Skylet")
    wait_until(lambda: screen.focused() == ABOUT, 3, "About has the keyboard")


def test_a_second_start_shows_about_where_the_menu_is_the_desktops_to_open(lab, screen):
    start_again(lab)
    screen.open_another_program()
    assert lab.program.start_another().wait(5) == 0
    wait_until(lambda: screen.focused() == ABOUT, 3, "About has the keyboard")


def test_everything_is_hebrew_for_who_reads_hebrew(lab, screen):
    lab.program.environment["LANGUAGE"] = "he"
    server = lab.serve_speed_test()
    lab.program.settings_file.unlink()
    lab.start()
    wait_until(lambda: screen.things("ברוכים הבאים ל-Skylet"), 3, "the welcome window is there")
    screen.shot("welcome-hebrew")
    screen.press("Return")
    menu = lab.area.menu()
    assert any(title.startswith("מחובר — \u200e") and " ms\u200e (" in title for title in menu)
    assert "הפעלה אוטומטית בכניסה למחשב" in menu
    lab.area.click("אודות Skylet")
    wait_until(lambda: screen.things("אודות Skylet"), 2, "About is there")
    assert "גרסה 1.0.0" in screen.texts("אודות Skylet")
    screen.shot("about-hebrew")
    screen.press("Escape")
    lab.area.click("מבחן מהירות…")
    lab.area.wait_for(lambda state: "מבחן מהירות רץ…" in state.label, 2)
    lab.area.wait_for(lambda state: "Mbps" in state.label, 15)
    assert screen.texts("מבחן מהירות")[0::2] == ["HTTPS", "הורדה", "העלאה"]
    screen.shot("speed-test-hebrew")
    assert server.requests()
    assert any(title.startswith("מבחן מהירות אחרון:  הורדה ") for title in lab.area.menu())
