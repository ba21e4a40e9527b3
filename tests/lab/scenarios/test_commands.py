"""What the menu says and what its commands do."""

import time

MENU = [
    # title, enabled while online, check mark, shortcut
    ("Run Speed Test…  (up to ~60 MB of data)", True, None, (("Control", "t"),)),
    ("Check Connection Now", True, None, (("Control", "r"),)),
    ("Show Live Traffic in Menu Bar   (e.g. ↓12.4M ↑210K)", True, True, ()),
    ("Pause Automatic Checks", True, False, ()),
    ("Launch at Login", True, False, ()),
    ("About Skylet", True, None, ()),
    ("Quit", True, None, (("Control", "q"),)),
]


def test_the_menu_has_its_lines_and_commands(lab):
    lab.start()
    entries = list(lab.area.menu().values())
    lines, commands = entries[:3], entries[3:]
    assert [line.enabled for line in lines] == [False] * 3
    assert lines[0].title.startswith("Online — ")
    assert lines[1].title.startswith("Live traffic:  ↓ ")
    assert lines[2].title == "Last speed test:  not run yet"
    assert [(entry.title, entry.enabled, entry.checked, entry.shortcut) for entry in commands] == MENU
    assert [entry.has_icon for entry in commands] == [entry.title == "About Skylet" for entry in commands]
    shown = lab.area.wait_for(lambda state: state.menu, 1)
    assert [entry.separator for entry in shown.menu].count(True) == 3


def test_paused_is_gray_and_silent_and_a_resume_checks_at_once(lab):
    lab.start()
    clicked = time.monotonic()
    lab.area.click("Pause Automatic Checks")
    paused = lab.area.wait_for("gray", 0.5, since=clicked)
    assert paused.word == "Paused"
    time.sleep(0.3)
    menu = lab.area.menu()
    assert "Automatic checks paused" in menu
    assert menu["Pause Automatic Checks"].checked
    assert not menu["Check Connection Now"].enabled
    assert not next(entry for title, entry in menu.items() if title.startswith("Run Speed Test")).enabled
    lab.link.reset()
    time.sleep(6)
    assert lab.link.bytes() == 0
    assert {state.dot for state in lab.area.since(paused.time)} == {"gray"}
    resumed = time.monotonic()
    lab.area.click("Pause Automatic Checks")
    lab.area.wait_for("green", 1, since=resumed)
    assert lab.servers.requests(resumed)
    assert not lab.area.menu()["Pause Automatic Checks"].checked


def test_check_connection_now_does_not_wait_for_the_next_cycle(lab):
    lab.link.set(rtt_ms=100)
    lab.start()
    time.sleep(1)
    clicked = time.monotonic()
    lab.area.click("Check Connection Now")
    checking = lab.area.wait_for("yellow", 0.3, since=clicked)
    assert checking.word == "Checking…"
    lab.area.wait_for("green", 1, since=checking.time)
    assert lab.servers.requests(clicked)[0]["time"] - clicked < 0.3


def test_the_traffic_leaves_the_label_and_the_choice_is_kept(lab):
    shown = lab.start()
    assert shown.traffic is not None
    lab.area.click("Show Live Traffic")
    lab.area.wait_for(lambda state: state.milliseconds and state.traffic is None, 1)
    assert "showTraffic=false" in lab.program.settings_file.read_text()
    assert "didOnboard=true" in lab.program.settings_file.read_text()


def test_quit_ends_the_program(lab):
    lab.start()
    lab.area.click("Quit")
    assert lab.program.wait(1) == 0
    lab.area.wait_for(lambda state: state.dot is None, 1)
