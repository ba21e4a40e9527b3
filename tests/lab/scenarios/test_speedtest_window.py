"""The speed test as its user meets it: run from the menu, followed in the window, the menu and the banner, and ended early."""

import time

import network
import pytest
from lab import bytes_at

PHASE, PAUSE = 4.0, 0.6
# as far as the menu may be from what the server counted, and half of the last digit shown
TOLERANCE = {"down": 0.02, "up": 0.03}
ROUNDING = 0.05
RUN = "Run Speed Test"


class Run:
    """One speed test: when it began and ended as the status area saw it, and what the server has of it."""

    def __init__(self, lab, server):
        began = time.monotonic()
        lab.area.click(RUN)
        self.began = lab.area.wait_for(lambda state: "Speed test running…" in state.label, 2, since=began).time
        running = lab.area.menu()
        assert "Last speed test:  running..." in running
        assert not next(entry for title, entry in running.items() if title.startswith(RUN)).enabled
        result = lab.area.wait_for(lambda state: "Mbps" in state.label or "failed" in state.label, 15, since=self.began)
        self.ended, self.banner = result.time, result.label
        self.down, self.up = server.requests()[-2:]

    def measured_by_the_server(self, rtt_ms):
        """Mbit/s, over the time that the program took for each phase."""
        one_way = rtt_ms / 2000
        # a connection whose download came to its end carries the upload too; the request tells when that began
        download_ended = self.up["began"] - one_way - PAUSE if self.down["whole"] else self.began + PHASE
        upload_began = download_ended + PAUSE
        upload_ended = self.up["series"][-1][0] + one_way if self.up["whole"] else upload_began + PHASE
        # the server learns later what has reached the program, and the program what has reached the server
        down = got_through(self.down, download_ended + one_way)
        up = got_through(self.up, upload_ended - one_way)
        return {"down": 8e-6 * down / (download_ended - self.began), "up": 8e-6 * up / (upload_ended - upload_began)}


def got_through(request, moment):
    """Bytes of the body that had got through by then, as the server saw it."""
    return request["series"][-1][1] if request["whole"] else bytes_at(request["series"], moment)


def results(screen):
    """What the window shows: the texts below HTTPS, DOWNLOAD and UPLOAD."""
    texts = screen.texts("Speed Test")
    assert texts[0::2] == ["HTTPS", "DOWNLOAD", "UPLOAD"]
    return [text.removesuffix(" Mbps") for text in texts[1::2]]


# more links without the window: test_speedtest.py, test_speedtest_matrix.py
@pytest.mark.parametrize("rate_mbit,rtt_ms", [
    (2, 60), (20, 20), pytest.param(100, 20, marks=pytest.mark.alone), pytest.param(300, 60, marks=pytest.mark.alone)])
def test_window_menu_and_banner_agree_with_what_the_server_counted(lab, rate_mbit, rtt_ms):
    server, screen = lab.serve_speed_test(), lab.start_screen()
    lab.link.set(rtt_ms=rtt_ms, rate_kbit=1000 * rate_mbit, queue_ms=100)
    lab.start()
    latency = lab.area.wait_for(lambda state: state.milliseconds, 1).milliseconds
    run = Run(lab, server)
    latency_shown, down, up = results(screen)
    assert latency_shown == f"{latency:.0f} ms"
    assert run.banner.strip().startswith(f"↓ {down} Mbps  ↑ {up} Mbps")
    last = next(title for title in lab.area.menu() if title.startswith("Last speed test:"))
    assert last.startswith(f"Last speed test:  Download {down} Mbps  ·  Upload {up} Mbps   (")
    dial = next(thing for thing in screen.things("Speed Test") if thing["role"] == "dial")
    assert dial["description"].endswith("Mbps, DONE")
    truth = run.measured_by_the_server(rtt_ms)
    print(f"{rate_mbit} Mbit/s, {rtt_ms} ms: shown {down} and {up}, the server counted {truth['down']:.2f} and {truth['up']:.2f}")
    assert float(down) == pytest.approx(truth["down"], rel=TOLERANCE["down"], abs=ROUNDING)
    assert float(up) == pytest.approx(truth["up"], rel=TOLERANCE["up"], abs=ROUNDING)
    for shown in (float(down), float(up)):
        assert shown < rate_mbit, "no more than the link carries"
        assert shown > 0.5 * rate_mbit or rate_mbit > 20, "no less than a slow start leaves of it, where any machine carries it"


def test_the_result_stands_in_the_place_of_the_response_time_for_ten_seconds(lab):
    server = lab.serve_speed_test()
    lab.start()
    run = Run(lab, server)
    lab.area.wait_for(lambda state: state.milliseconds and state.time > run.ended, 11, since=run.ended)
    assert not any(state.milliseconds for state in lab.area.since(run.ended) if state.time < run.ended + 9.9)


def close_the_window(lab, screen):
    screen.press("Escape")


def fall_asleep(lab, _screen):
    lab.logind.prepare_for_sleep(True)


def quit_the_program(lab, _screen):
    lab.area.click("Quit")


def packets_of_the_test(lab, since):
    return [packet for packet in lab.link.trace() if packet["far"] == network.SPEEDTEST_ADDRESS and packet["time"] > since]


@pytest.mark.parametrize("way", ("down", "up"))
@pytest.mark.parametrize("end", (close_the_window, fall_asleep, quit_the_program))
def test_a_cancelled_test_is_off_the_wire_within_300_ms(lab, end, way):
    lab.logind = lab.logind()
    screen = lab.start_screen()
    lab.serve_speed_test()
    lab.link.set(rtt_ms=20, rate_kbit=2000, queue_ms=100)
    lab.start()
    lab.area.click(RUN)
    time.sleep(2 if way == "down" else PHASE + PAUSE + 2)
    lab.link.reset()
    time.sleep(0.3)
    assert packets_of_the_test(lab, 0), "it is running"
    end(lab, screen)
    cancelled = time.monotonic()
    time.sleep(1.5)
    assert not packets_of_the_test(lab, cancelled + 0.3)
    if end is quit_the_program:
        assert lab.program.wait(1) == 0
        return
    menu = lab.area.menu()
    assert "Last speed test:  Cancelled" in menu
    assert not any("Speed test running" in state.label for state in lab.area.since(cancelled + 0.3))
    if end is close_the_window:
        assert not screen.things("Speed Test")
        lab.area.click(RUN)
        time.sleep(0.5)
        assert results(screen)[1:] == ["not run yet", "not run yet"], "a new test in the same window"
