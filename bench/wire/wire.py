"""Prints what the program costs and how true its number is, beside what curl needs for the same. See README.md."""

import os
import statistics
import subprocess
import sys
import tempfile
import time
from contextlib import ExitStack
from pathlib import Path

TESTS = Path(__file__).resolve().parents[2] / "tests"
sys.path[:0] = [str(TESTS), str(TESTS / "lab")]

import network  # noqa: E402
import settings  # noqa: E402
from authority import Authority  # noqa: E402
from lab import Lab  # noqa: E402
from support.processes import wait_until  # noqa: E402

STEADY_AFTER, OBSERVED, CYCLE = 12, 60, 5
STARTS, SAMPLES = 7, 30
# seconds for each half of a speed test, so that it is not cut off however busy the machine is
UNHURRIED = 120

NGINX = """
daemon off; master_process off; pid {folder}/nginx.pid; error_log {folder}/nginx-error.log;
events {{}}
http {{
  access_log {folder}/nginx-access.log; client_body_temp_path {folder}; proxy_temp_path {folder};
  fastcgi_temp_path {folder}; uwsgi_temp_path {folder}; scgi_temp_path {folder};
  {servers}
}}
"""
NGINX_SERVER = """
server {{
  listen {address}:443 ssl http2; server_name {name};
  ssl_certificate {pem}; ssl_certificate_key {pem}; ssl_protocols TLSv1.3;
  location / {{ return 204; }}
}}
"""


class Nginx:
    """The endpoints, by a server whose own time does not blur the figures."""

    def __init__(self, lab_network, authority, stack):
        self._log = lab_network.folder / "nginx-access.log"
        servers = "".join(NGINX_SERVER.format(address=address, name=name, pem=authority.folder / f"{name}.good.pem")
                          for name, address in zip(network.ENDPOINT_NAMES, network.ENDPOINT_ADDRESSES))
        configuration = lab_network.folder / "nginx.conf"
        configuration.write_text(NGINX.format(folder=lab_network.folder, servers=servers))
        stack.enter_context(lab_network.server.popen(["nginx", "-c", configuration], stderr=subprocess.DEVNULL))
        wait_until(self._log.exists, 5, "nginx is there")

    def requests(self):
        return len(self._log.read_text().splitlines())


class Figures:
    """A table that grows downwards."""

    def __init__(self):
        print(f"{'':52}{'skylet':>10}{'curl':>10}{'ratio':>8}   aim")

    @staticmethod
    def row(name, value, reference=None, aim=""):
        ratio = "" if not reference else f"{value / reference:.2f}"
        beside = "" if reference is None else f"{reference:.2f}".rstrip("0").rstrip(".")
        print(f"{name:52}{value:10.4g}{beside:>10}{ratio:>8}   {aim}", flush=True)


def curl(lab, *arguments):
    return lab.network.client.run(["curl", "-sS", "-I", "-o", "/dev/null", *arguments], capture_output=True, text=True).stdout


def measure_steady_state(lab, figures):
    """Bytes on the wire, processor and memory while nothing happens."""
    lab.link.set(rtt_ms=20)
    lab.start()
    time.sleep(STEADY_AFTER)
    requests, before = lab.servers.requests(), lab.program.effort()
    lab.link.reset()
    time.sleep(OBSERVED)
    after, total = lab.program.effort(), lab.link.bytes()
    cycles = OBSERVED / (CYCLE + 0.02)
    lab.link.reset()
    for url in settings.ENDPOINTS:
        curl(lab, url)
    time.sleep(0.2)
    reference = lab.link.bytes()
    figures.row("bytes on the wire per cycle of two probes", total / cycles, reference, "<= 680, better 540")
    figures.row("MB on the wire per hour", total / OBSERVED * 3600 / 1e6, reference * 3600 / CYCLE / 1e6)
    figures.row("requests that reached the servers per cycle", (lab.servers.requests() - requests - 2) / cycles)
    figures.row("processor time per minute, ms", (after.cpu_s - before.cpu_s) * 1000 * 60 / OBSERVED)
    figures.row("wake-ups per second, all threads", (after.wake_ups - before.wake_ups) / OBSERVED)
    figures.row("signals to the panel per minute", sum(moment > before.time and moment < after.time for moment, _ in
                                                       lab.area.signals) * 60 / OBSERVED)
    figures.row("private memory, MB", lab.program.private_kb() / 1024)
    figures.row("proportional memory, MB", lab.program.proportional_kb() / 1024)


def measure_latency(lab, figures, rtt_ms):
    """How much more than the link's round trip is reported over a kept connection."""
    lab.link.set(rtt_ms=rtt_ms)
    lab.start(until=lambda state: state.milliseconds)
    reported = []
    for _ in range(SAMPLES):
        time.sleep(0.4)
        clicked = time.monotonic()
        lab.area.click("Check Connection Now")
        lab.area.wait_for(lambda state: state.word == "Checking…", 1, since=clicked)
        reported.append(lab.area.wait_for(lambda state: state.milliseconds, 2, since=time.monotonic()).milliseconds)
    url = settings.ENDPOINTS[0]
    warm = [float(curl(lab, "-w", "%{time_starttransfer}\n", url, "-o", "/dev/null", url).splitlines()[1]) * 1000
            for _ in range(SAMPLES)]
    figures.row(f"reported latency less the link's {rtt_ms} ms, mean, ms", typical(reported) - rtt_ms,
                typical(warm) - rtt_ms, "<= 1")
    figures.row(f"  the same, highest of {SAMPLES}", max(reported) - rtt_ms, max(warm) - rtt_ms)


def measure_speed_test(lab, figures):
    """Bytes on the wire of a speed test that is not cut off: the most that one can cost."""
    lab.serve_speed_test()
    lab.link.set(rtt_ms=20)
    lab.link.reset()
    result = lab.run_speed_test(UNHURRIED)
    moved = (result["down"]["bytes"] + result["up"]["bytes"]) / 1e6
    figures.row(f"MB on the wire of a speed test that moves {moved:.0f} MB", lab.link.bytes() / 1e6)


def typical(samples):
    """The mean of the middle half: finer than the median of whole milliseconds, and deaf to what else the machine does."""
    quarter = len(samples) // 4
    return statistics.mean(sorted(samples)[quarter:-quarter])


def measure_start(make_lab, figures):
    """From the start of the process to the item in the panel."""
    taken, entering = [], []
    for _ in range(STARTS):
        with make_lab() as lab:
            began = time.monotonic()
            lab.network.client.run(["true"])
            entering.append(time.monotonic() - began)
            taken.append(lab.start(until=lambda state: state.dot is not None).time - lab.program.started)
    figures.row("start to item in the panel, median, ms", statistics.median(taken) * 1000)
    figures.row("  of which entering the namespace", statistics.median(entering) * 1000)


def main():
    with tempfile.TemporaryDirectory(prefix=f"{network.PREFIX}-{os.getpid()}-", dir=network.RUN) as folder:
        authority = Authority(folder, [*network.ENDPOINT_NAMES, settings.SPEEDTEST_HOST])

        class FreshLab(ExitStack):
            def __enter__(self):
                super().__enter__()
                return Lab(authority, self, servers=Nginx)

        figures = Figures()
        with FreshLab() as lab:
            measure_steady_state(lab, figures)
        with FreshLab() as lab:
            measure_speed_test(lab, figures)
        for rtt_ms in (20, 150):
            with FreshLab() as lab:
                measure_latency(lab, figures, rtt_ms)
        measure_start(FreshLab, figures)


if __name__ == "__main__":
    main()
