"""What assistive technologies are told of the windows, asked over AT-SPI as a screen reader does."""

import os
import re
import time
from contextlib import ExitStack

import pytest
from desktop_session import Demo, Session
from gi.repository import GLib
from support import accessibility
from support.accessibility import Atspi, role, states
from support.processes import wait_until


@pytest.fixture(scope="module")
def desktop():
    """The session, with this process as the one that reads it."""
    with ExitStack() as stack:
        session = Session(stack, accessible=True)
        # read once, when the library is first asked
        os.environ.update({name: session.environment[name] for name in
                           ("DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR")})
        assert Atspi.init() in (0, 1)
        yield session
        Atspi.exit()


class Reader:
    def __init__(self, session, language="en"):
        self.demo = Demo(session, language)
        self._context = GLib.MainContext.default()
        self._listener = None
        self.events = []

    def window(self, title):
        """The window of that name in the tree of the demo."""
        def found():
            self.turn(0.05)
            windows = accessibility.windows(lambda program: program.get_process_id() == self.demo.pid)
            return next((window for window in windows if window.get_name() == title), None)
        return wait_until(found, 10, f"a window named {title}")

    def turn(self, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            if not self._context.iteration(False):
                time.sleep(0.005)

    def listen(self, *kinds):
        self._listener = Atspi.EventListener.new(lambda event: self.events.append((event.type, event.source)))
        for kind in kinds:
            self._listener.register(kind)

    def tree(self, window):
        """[(role, name)] of everything in the window, and its accessibles by name."""
        window.clear_cache()
        _, *parts = accessibility.shown_in(window)
        return [(role(part), part.get_name()) for part in parts], {part.get_name(): part for part in parts}

    def work(self, thing, action):
        """As a screen reader does what its user asks of a button or box."""
        actions = [thing.get_action_name(i) for i in range(thing.get_n_actions())]
        thing.do_action(actions.index(action))

    def receive(self):
        """Megabytes come within a moment."""
        self.demo.tell("receive 5000000")
        time.sleep(0.1)


@pytest.fixture
def reader(desktop):
    reader = Reader(desktop)
    yield reader
    reader.demo.end()


def test_welcome(reader):
    reader.demo.show("welcome", "welcomeWindow")
    window = reader.window("Welcome to Skylet")
    assert window.get_role_name() == "dialog"
    tree, parts = reader.tree(window)
    body = tree[2][1]
    assert body.startswith("Look in your panel for a small dot:")
    assert tree == [("image", "Skylet"), ("label", "Skylet is now in your menu bar"), ("label", body),
                    ("check box", "Launch Skylet at login (recommended)"), ("button", "Got it")]
    box = parts["Launch Skylet at login (recommended)"]
    assert states(box) == {"enabled", "focusable", "sensitive", "showing"}
    assert {"focusable", "enabled"} <= states(parts["Got it"]) and "focused" not in states(parts["Got it"])
    reader.work(box, "Toggle")
    wait_until(lambda: reader.demo.state["loginBox"], 10, "the box is on")
    box.clear_cache()
    assert "checked" in states(box)
    reader.work(parts["Got it"], "Press")
    wait_until(lambda: reader.demo.reports == ["finishWelcome"], 10, "the button is pressed")


def test_about(reader):
    reader.demo.show("about", "aboutWindow")
    window = reader.window("About Skylet")
    assert window.get_role_name() == "dialog"
    tree, parts = reader.tree(window)
    assert [role for role, _ in tree] == ["image", *["label"] * 5, "button", *["label"] * 2]
    assert [name for _, name in tree][:3] == ["Skylet", "Skylet", "Version 1.0.0"]
    assert [name for _, name in tree][6:8] == ["Powered by Brimlake", "brimlake.example"]
    assert re.fullmatch(r"© \d{4} Brimlake\. All rights reserved\.", tree[8][1])
    link = parts["Powered by Brimlake"]
    assert "focusable" in states(link) and link.get_description() == "brimlake.example"
    reader.work(link, "Press")
    wait_until(lambda: reader.demo.reports == ["openBrimlake"], 10, "the link is pressed")


def test_speed_test(reader):
    reader.demo.show("test", "speedTestWindow")
    window = reader.window("Speed Test")
    assert window.get_role_name() == "dialog"
    reader.demo.tell("target 48.21234")
    wait_until(lambda: not reader.demo.state["animating"], 10, "the needle stands")
    tree, parts = reader.tree(window)
    assert tree == [("dial", "Speed Test"), ("label", "HTTPS"), ("label", "38 ms"), ("label", "DOWNLOAD"),
                    ("label", "not run yet"), ("label", "UPLOAD"), ("label", "not run yet"), ("button", "Run Again")]
    gauge = parts["Speed Test"]
    assert gauge.get_description() == "48.2 Mbps, DOWNLOAD"
    assert gauge.get_n_actions() == 0 and gauge.get_value_iface() is None, "nothing to increase or decrease"
    assert "sensitive" not in states(parts["Run Again"])
    relations = {relation.get_relation_type(): relation for relation in parts["38 ms"].get_relation_set()}
    caption = relations[Atspi.RelationType.LABELLED_BY].get_target(0)
    assert caption.get_name() == "HTTPS"


def test_results_are_told_with_their_captions_and_units(reader):
    reader.demo.show("test", "speedTestWindow")
    reader.receive()
    reader.demo.tell("end 200")
    figures = [name for name in reader.tree(reader.window("Speed Test"))[1] if name[:1].isdigit()]
    assert figures[0] == "38 ms" and re.fullmatch(r"\d+\.\d Mbps", figures[1])


def test_the_finished_test_speaks_its_figures_with_the_button_that_takes_the_focus(reader):
    reader.demo.show("test", "speedTestWindow")
    button = reader.tree(reader.window("Speed Test"))[1]["Run Again"]
    heard = []
    reader.listen("object:state-changed:focused")
    reader.receive()
    reader.demo.tell("end 200")
    wait_until(lambda: (reader.turn(0.05), reader.demo.tell("send 5000000"))[1]["phase"] == "UPLOAD", 10, "the upload")
    time.sleep(0.1)
    reader.demo.tell("send 5000000")
    reader.demo.tell("end 200")

    def focused():
        reader.turn(0.05)
        heard.extend(source.get_description() for _, source in reader.events if source == button)
        return heard
    wait_until(focused, 10, "the button takes the focus")
    assert re.fullmatch(r"HTTPS 38 ms, DOWNLOAD \d+\.\d Mbps, UPLOAD \d+\.\d Mbps", heard[0])


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
    reader.listen("object:property-change:accessible-description")
    reader.turn(0.5)
    reader.events.clear()
    for jitter in range(60):  # 3 s of a rate that comes and goes
        reader.demo.tell(f"target {100 + jitter % 2}")
        reader.turn(0.05)
    reader.turn(2.5)
    assert not reader.demo.state["animating"]
    kinds = [kind for kind, _ in reader.events]
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

    reader.receive()
    reader.demo.tell("end 200")
    hear_for(2)  # the pause, and the upload's begin
    assert reader.demo.tell("send 5000000")
    time.sleep(0.1)
    reader.demo.tell("end 200")
    hear_for(1)
    assert "0.0 Mbps, UPLOAD" in heard
    done = [text for text in heard if text.endswith("DONE")]
    assert done and not any(text.startswith("0.0") for text in done)


def test_accessibility_that_is_switched_on_later(desktop):
    def switch(on):
        desktop.screen.do("gdbus", "call", "--session", "--dest", "org.a11y.Bus", "--object-path", "/org/a11y/bus", "--method",
                          "org.freedesktop.DBus.Properties.Set", "org.a11y.Status", "IsEnabled", f"<{str(on).lower()}>")
    switch(False)
    reader = Reader(desktop)
    reader.demo.show("test", "speedTestWindow")
    reader.receive()
    reader.demo.tell("end 200")
    switch(True)
    _, parts = reader.tree(reader.window("Speed Test"))
    assert re.fullmatch(r"\d+(\.\d)? Mbps, (DOWNLOAD|UPLOAD)", parts["Speed Test"].get_description())
    assert {"HTTPS", "38 ms", "DOWNLOAD", "Run Again"} <= parts.keys()
    reader.listen("object:property-change:accessible-description")
    reader.demo.tell("target 12")
    wait_until(lambda: (reader.turn(0.05), reader.events)[1], 10, "a change is announced")
    reader.demo.end()


def test_hebrew(desktop):
    reader = Reader(desktop, language="he")
    reader.demo.show("test", "speedTestWindow")
    tree, parts = reader.tree(reader.window("מבחן מהירות"))
    assert tree == [("dial", "מבחן מהירות"), ("label", "HTTPS"), ("label", "38 ms"), ("label", "הורדה"),
                    ("label", "עדיין לא בוצע"), ("label", "העלאה"), ("label", "עדיין לא בוצע"), ("button", "הרצה חוזרת")]
    assert parts["מבחן מהירות"].get_description() == "0.0 Mbps, הורדה"
    reader.demo.end()
