"""What assistive technologies are told of the windows, asked over AT-SPI as a screen reader does."""

import os
import time

import pytest
from desktop_session import Demo, Session, wait_until


@pytest.fixture(scope="module")
def desktop():
    """The session, and AT-SPI as seen in it."""
    session = Session(accessible=True)
    try:
        # Read once, when the library is first used.
        os.environ.update({name: session.environment[name] for name in
                           ("DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR")})
        import gi  # pylint: disable=import-outside-toplevel
        gi.require_version("Atspi", "2.0")
        from gi.repository import Atspi, GLib  # pylint: disable=import-outside-toplevel
        assert Atspi.init() in (0, 1)
        yield session, Atspi, GLib
        Atspi.exit()
    finally:
        session.end()


class Reader:
    def __init__(self, session, atspi, glib, language="en"):
        self.atspi, self._context = atspi, glib.MainContext.default()
        self.demo = Demo(session, language)
        self._listener = None
        self.events = []

    def window(self, title):
        """The window of that name in the tree of the demo."""
        def found():
            self.turn(0.05)
            desktop = self.atspi.get_desktop(0)
            applications = [desktop.get_child_at_index(i) for i in range(desktop.get_child_count())]
            for application in applications:
                if application and application.get_process_id() == self.demo.pid:
                    for i in range(application.get_child_count()):
                        child = application.get_child_at_index(i)
                        if child and child.get_name() == title:
                            return child
            return None
        return wait_until(found, f"a window named {title}")

    def turn(self, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            if not self._context.iteration(False):
                time.sleep(0.005)

    def listen(self, *kinds):
        self._listener = self.atspi.EventListener.new(lambda event: self.events.append((event.type, event.source)))
        for kind in kinds:
            self._listener.register(kind)

    def tree(self, window):
        """[(role, name)] of everything in the window, and its accessibles by name."""
        window.clear_cache()
        children = [window.get_child_at_index(i) for i in range(window.get_child_count())]
        return [(child.get_role_name(), child.get_name()) for child in children], {c.get_name(): c for c in children}


@pytest.fixture
def reader(desktop):
    reader = Reader(*desktop)
    yield reader
    reader.demo.end()


def states(atspi, accessible):
    held = accessible.get_state_set()
    return {name for name in ("FOCUSABLE", "FOCUSED", "CHECKED", "SENSITIVE", "READ_ONLY", "SHOWING")
            if held.contains(getattr(atspi.StateType, name))}


def test_welcome(reader):
    reader.demo.show("welcome", "welcomeWindow")
    window = reader.window("Welcome to Skylet")
    assert window.get_role_name() == "dialog"
    tree, parts = reader.tree(window)
    body = tree[2][1]
    assert body.startswith("Look at the top-right of your screen for a small dot:")
    assert tree == [("image", "Skylet"), ("label", "Skylet is now in your menu bar"), ("label", body),
                    ("check box", "Launch Skylet at login (recommended)"), ("push button", "Got it")]
    box = parts["Launch Skylet at login (recommended)"]
    assert states(reader.atspi, box) == {"FOCUSABLE", "SENSITIVE", "SHOWING"}
    assert {"FOCUSABLE", "FOCUSED"} <= states(reader.atspi, parts["Got it"])
    # Pressed as a screen reader presses it.
    actions = [box.get_action_name(i) for i in range(box.get_n_actions())]
    box.do_action(actions.index("Toggle"))
    wait_until(lambda: reader.demo.state["loginBox"], "the box is on")
    box.clear_cache()
    assert "CHECKED" in states(reader.atspi, box)
    button = parts["Got it"]
    button.do_action([button.get_action_name(i) for i in range(button.get_n_actions())].index("Press"))
    wait_until(lambda: reader.demo.reports == ["finishWelcome"], "the button is pressed")


def test_about(reader):
    reader.demo.show("about", "aboutWindow")
    window = reader.window("About Skylet")
    assert window.get_role_name() == "dialog"
    tree, parts = reader.tree(window)
    assert [role for role, _ in tree] == ["image", *["label"] * 5, "push button", *["label"] * 2]
    assert [name for _, name in tree][:3] == ["Skylet", "Skylet", "Version 1.0.0"]
    assert [name for _, name in tree][6:] == ["Powered by Brimlake", "brimlake.example",
                                              "© 2026 Brimlake. All rights reserved."]
    link = parts["Powered by Brimlake"]
    assert "FOCUSABLE" in states(reader.atspi, link)
    link.do_action([link.get_action_name(i) for i in range(link.get_n_actions())].index("Press"))
    wait_until(lambda: reader.demo.reports == ["openBrimlake"], "the link is pressed")


def test_speed_test(reader):
    reader.demo.show("test", "speedTestWindow")
    window = reader.window("Speed Test")
    assert window.get_role_name() == "dialog"
    reader.demo.tell("target 48.2")
    wait_until(lambda: not reader.demo.state["animating"], "the needle stands")
    tree, parts = reader.tree(window)
    assert tree == [("dial", "Speed Test"), ("label", "HTTPS"), ("label", "38 ms"), ("label", "DOWNLOAD"),
                    ("label", "—"), ("label", "UPLOAD"), ("label", "—"), ("push button", "Run Again")]
    gauge = parts["Speed Test"]
    assert gauge.get_description() == "48.2 Mbps, DOWNLOAD"
    assert gauge.get_current_value() == 48.2
    assert (gauge.get_minimum_value(), gauge.get_maximum_value()) == (0, 1000)
    assert "READ_ONLY" in states(reader.atspi, gauge)
    assert "SENSITIVE" not in states(reader.atspi, parts["Run Again"])
    relations = {relation.get_relation_type(): relation for relation in parts["38 ms"].get_relation_set()}
    caption = relations[reader.atspi.RelationType.LABELLED_BY].get_target(0)
    assert caption.get_name() == "HTTPS"


def test_results_are_told_with_their_captions_and_units(reader):
    reader.demo.show("test", "speedTestWindow")
    assert reader.tree(reader.window("Speed Test"))[1]["—"].get_description() == ""
    reader.demo.tell("receive 5000000")
    time.sleep(0.1)
    reader.demo.tell("end 200")
    figures = [part for name, part in reader.tree(reader.window("Speed Test"))[1].items() if name[:1].isdigit()]
    assert {figure.get_name().endswith("ms"): figure.get_description() for figure in figures} == {True: "", False: "Mbps"}


def test_a_failure_is_told_with_its_caption_and_without_a_unit(reader):
    reader.demo.show("test", "speedTestWindow")
    reader.demo.tell("receive 5000000")
    reader.demo.tell("end 500")
    _, parts = reader.tree(reader.window("Speed Test"))
    failed = parts["failed"]
    assert failed.get_description() == ""
    relation, = failed.get_relation_set()
    assert relation.get_target(0).get_name() == "DOWNLOAD"


def test_a_moving_gauge_is_announced_sparingly(reader):
    reader.demo.show("test", "speedTestWindow")
    reader.window("Speed Test")
    reader.listen("object:property-change:accessible-value", "object:property-change:accessible-description")
    reader.turn(0.5)
    reader.events.clear()
    for jitter in range(60):  # 3 s of a rate that comes and goes
        reader.demo.tell(f"target {100 + jitter % 2}")
        reader.turn(0.05)
    reader.turn(2.5)
    assert not reader.demo.state["animating"]
    kinds = [kind for kind, _ in reader.events]
    assert 2 <= kinds.count("object:property-change:accessible-value") <= 4
    assert 2 <= kinds.count("object:property-change:accessible-description") <= 4


def test_a_new_phase_is_announced_together_with_its_speed(reader):
    reader.demo.show("test", "speedTestWindow")
    window = reader.window("Speed Test")
    gauge = reader.tree(window)[1]["Speed Test"]
    reader.listen("object:property-change:accessible-description")
    heard = []

    def hear_for(seconds):
        for _ in range(int(seconds / 0.05)):
            reader.turn(0.05)
            heard.extend(gauge.get_description() for _ in reader.events)
            reader.events.clear()

    reader.demo.tell("receive 5000000")
    time.sleep(0.1)
    reader.demo.tell("end 200")
    hear_for(2)  # the pause, and the upload's begin
    assert reader.demo.tell("send 5000000")
    time.sleep(0.1)
    reader.demo.tell("end 200")
    hear_for(1)
    assert "0.0 Mbps, UPLOAD" in heard
    done = [text for text in heard if text.endswith("DONE")]
    assert done and not any(text.startswith("0.0") for text in done)


def test_hebrew(desktop):
    reader = Reader(*desktop, language="he")
    reader.demo.show("test", "speedTestWindow")
    tree, parts = reader.tree(reader.window("מבחן מהירות"))
    assert tree == [("dial", "מבחן מהירות"), ("label", "HTTPS"), ("label", "38 ms"), ("label", "הורדה"), ("label", "—"),
                    ("label", "העלאה"), ("label", "—"), ("push button", "הרצה חוזרת")]
    assert parts["מבחן מהירות"].get_description() == "0.0 Mbps, הורדה"
    reader.demo.end()
