"""How soon a change of the network is seen: link down to red, back to green, and a black hole's end to green."""

import statistics
import subprocess
import time
from contextlib import ExitStack

from nginx import Nginx
from table import plus

RTT_MS = 20
GATHERING_MS = 100
NEXT_PROBE_MS = 3000
SYN, HTTPS = 2, 443


class Client:
    """An `ip` of the client's that has been started already: what it is told happens at once."""

    def __init__(self, lab, stack):
        self._ip = stack.enter_context(subprocess.Popen(["ip", "-n", lab.network.client.name, "-batch", "-"], text=True,
                                                        stdin=subprocess.PIPE))
        stack.callback(self._ip.stdin.close)

    def ip(self, *commands):
        """The moment at which the last of them was given."""
        for command in commands:
            moment = time.monotonic()
            self._ip.stdin.write(command + "\n")
            self._ip.stdin.flush()
        return moment


def measure(bench):
    with ExitStack() as stack:
        lab = bench.make_lab(stack, Nginx)
        client = Client(lab, stack)
        lab.link.set(rtt_ms=RTT_MS)
        lab.start()
        down, back, hole = [], [], []
        for _ in range(3 if bench.quick else 9):
            down.append(link_down(lab, client))
            time.sleep(1)
            back.append(link_back(lab, client))
            time.sleep(1)
            hole.append(hole_over(lab))
            time.sleep(1)
        for name, pairs in (("link down to red, ms (100 ms of gathering)", down),
                            ("link back to green, ms (100 ms of gathering and an exchange)", back),
                            ("black hole over to green, ms (the next probe)", hole)):
            bench.table.row(name, *map(statistics.median, zip(*pairs)), plus(50))


def link_down(lab, client):
    moment = client.ip("link set wlan0 down")
    return (lab.area.wait_for("red", 5, since=moment).time - moment) * 1000, GATHERING_MS


def link_back(lab, client):
    lab.link.reset()
    moment = client.ip("link set wlan0 up", f"route add default via {lab.link.gateway} dev wlan0 metric 100")
    green = lab.area.wait_for("green", 10, since=moment).time
    return (green - moment) * 1000, GATHERING_MS + exchange_ms(lab, green)


def hole_over(lab):
    lab.link.set(hole=True)
    red = lab.area.wait_for("red", 20).time
    time.sleep(1)
    moment = time.monotonic()
    lab.link.set(hole=False)
    lab.link.reset()
    green = lab.area.wait_for("green", 10, since=moment).time
    return (green - moment) * 1000, (red - moment) * 1000 + NEXT_PROBE_MS + exchange_ms(lab, green)


def exchange_ms(lab, green):
    """How long the wire took for a new connection and its first answer, which was shown at `green`."""
    packets = [packet for packet in lab.link.trace() if packet["far_port"] == HTTPS and packet["time"] < green]
    answers = {packet["near_port"]: packet["time"] for packet in packets if packet["way"] == "down"
               and packet["time"] + RTT_MS / 2000 < green}
    syns = {packet["near_port"]: packet["time"] for packet in reversed(packets) if packet["flags"] & SYN}
    return min(answers[port] - syns[port] for port in answers if port in syns) * 1000 + RTT_MS / 2
