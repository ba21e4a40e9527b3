"""The item comes to every status area there is, and tells it no more than what changes."""

import time
from pathlib import Path

from lab import green_with_its_label


def gone(state):
    return state.dot is None


def test_a_panel_that_crashes_and_comes_back_has_the_item_again(lab):
    lab.start()
    for _ in range(2):
        stopped = time.monotonic()
        lab.area.stop()
        lab.area.wait_for(gone, 1, since=stopped)
        time.sleep(0.5)
        lab.area.start()
        lab.area.wait_for(green_with_its_label, 2)
        assert "Quit" in lab.area.menu()


def test_a_panel_that_starts_after_the_program_gets_the_item(lab):
    lab.area.stop()
    lab.program.start()
    time.sleep(1.5)
    lab.area.start()
    lab.area.wait_for("green", 2)


def test_it_tells_the_panel_only_what_changed(lab):
    lab.link.set(rtt_ms=20)
    lab.start()
    time.sleep(2)
    began = time.monotonic()
    time.sleep(10)
    signals = [name for moment, name in lab.area.signals if moment > began]
    assert {"XAyatanaNewLabel", "ItemsPropertiesUpdated"} <= set(signals)
    # where the response time has changed as well
    assert set(signals) <= {"XAyatanaNewLabel", "NewIconAccessibleDesc", "ItemsPropertiesUpdated"}
    # five samples of the traffic and at most three answers
    assert all(signals.count(name) <= 8 for name in signals), signals


def test_it_tells_nothing_while_no_figure_changes(lab):
    lab.start()
    lab.area.click("Pause Automatic Checks")
    lab.area.wait_for(lambda state: state.dot == "gray" and "↓ 0b/s   ↑ 0b/s" in state.lines[1], 8)
    began = time.monotonic()
    time.sleep(7)
    assert [name for moment, name in lab.area.signals if moment > began] == []


def test_the_picture_of_the_dot_is_written_without_plug_ins_for_other_pictures(lab):
    lab.start()
    assert lab.area.now.dot == "green"
    assert list((lab.program.home / "run").glob("skylet-*/dot-*.png"))
    assert "imageformats" not in Path(f"/proc/{lab.program.pid}/maps").read_text()
