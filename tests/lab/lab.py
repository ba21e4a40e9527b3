"""The whole laboratory: network, servers, desktop and the program between them. What a scenario gets as `lab`."""

import json
import os
import struct
import sys
import time
from pathlib import Path

import network
import settings
from desktop import Logind, StatusArea
from network import Network
from panel import Panel
from program import Program, schedule
from support.message_bus import MessageBus
from support.processes import Child, Tool, wait_until
from window_screen import WindowScreen

SERVER, TRAFFIC, PROXY = (Path(__file__).with_name(name) for name in ("server.py", "traffic.py", "proxy.py"))


def green_with_its_label(state):
    """A status area that has just met the item is told its label after its picture."""
    return state.dot == "green" and "ms" in state.label


class Endpoint:
    """A test's hand on one server name. `set` takes the fields of server.Behaviour; what is not given is as by default."""

    def __init__(self, servers, name, address):
        self._servers, self.name, self.address = servers, name, address

    def set(self, **behaviour):
        headers = behaviour.pop("headers", {})
        self._servers.order("set", self.name, behaviour | {"headers": list(headers.items())})

    def drop(self, how="close"):
        """Ends its connections: "goaway", "close" or "reset"."""
        self._servers.order("drop", self.name, how)

    def die(self):
        """Nobody listens any more; who is connected gets a reset."""
        self.set(accept="refuse")
        self.drop("reset")

    def requests(self, since=0.0):
        return self._records("requests", since)

    def connections(self, since=0.0):
        return self._records("connections", since)

    def _records(self, kind, since):
        return [record for record in self._servers.records()[kind]
                if record["endpoint"] == self.name and record["time"] >= since]


class NameServers:
    """A test's hand on the name servers."""

    def __init__(self, servers):
        self._servers = servers

    def set(self, *, server=None, name=None, family=None, **answer):
        """From now on they meet questions to this server (an address), for this name and family ("A" or "AAAA") so: fields of
        nameserver.Answer. What is not given stands for all. Of all orders that fit a question the newest counts; set() is the
        default again."""
        self._servers.order("dns", server, name, family, answer)

    def queries(self, since=0.0, **fields):
        """Those that came, in this order: time, server, name, family, over ("udp", "tcp"), client, port, id, answered (time or
        None). Where `fields` are given, only those that have them."""
        return [query for query in self._servers.records()["queries"]
                if query["time"] >= since and all(query[key] == value for key, value in fields.items())]


class Servers:
    """The program server.py: both endpoints, the portal's target, the name servers."""

    def __init__(self, lab_network, authority, stack):
        addresses = [*zip(network.ENDPOINT_NAMES, network.ENDPOINT_ADDRESSES),
                     (network.PORTAL_NAME, network.PORTAL_ADDRESS)]
        further = {name: more for name, *more in zip(network.ENDPOINT_NAMES, network.ENDPOINT_IPV6_ADDRESSES,
                                                     network.OTHER_ENDPOINT_ADDRESSES)}
        hosts = [f"{name}={','.join([address, *further.get(name, [])])}" for name, address in addresses]
        hosts.append(f"dns={','.join([*network.DNS_ADDRESSES, network.DNS_IPV6_ADDRESS])}")
        hosts.append(f"{settings.SPEEDTEST_HOST}={','.join(network.SPEEDTEST_ADDRESSES)}")
        command = lab_network.server.inside([sys.executable, SERVER, authority.folder, *hosts])
        self._tool = stack.enter_context(Tool(command))
        self.first, self.second, self.portal = (Endpoint(self, *address) for address in addresses)
        self.both = (self.first, self.second)
        self.names = NameServers(self)

    @property
    def pid(self):
        return self._tool.pid

    def order(self, *command):
        return self._tool.ask(json.dumps(command))

    def records(self):
        return json.loads(self.order("records"))

    def answer_dns(self, on):
        self.names.set(answer="right" if on else "silent")

    def requests(self, since=0.0):
        return [*self.first.requests(since), *self.second.requests(since)]


class SpeedServer:
    """The service that speed tests ask (tests/speedserver), under its real name. Also stands in for an endpoint."""

    def __init__(self, lab_network, authority, stack, name=settings.SPEEDTEST_HOST, addresses=network.SPEEDTEST_ADDRESSES):
        self._authority, self._name = authority.folder / "authority.pem", name
        certificate = authority.folder / f"{name}.good.pem"
        command = lab_network.server.inside([settings.SPEED_SERVER, certificate, ",".join(addresses), "443"])
        self._tool = stack.enter_context(Tool(command))

    def set(self, way, **behaviour):
        """From now on requests of this way ("down", "up" or "head") are met so: fields of Behaviour.h; the rest is as by default."""
        self._order("set", way, behaviour)

    def turn_hostile(self, **hostility):
        """From now on connections turn hostile like this, open ones too: fields of Hostility.h; none: no more of them do."""
        self._order("hostile", hostility)

    def flooded(self):
        """Bytes of floods that it has sent so far."""
        return json.loads(self._order("records"))["flooded"]

    def speak(self, *protocols):
        """Of "h2" and "http/1.1", on new connections."""
        self._order("protocols", protocols)

    def speak_tls(self, version):
        """No version above "1.1", "1.2" or "1.3", on new connections."""
        self._order("tls", version)

    def show_certificate(self, kind):
        """On new connections a bad one (Certificate.h), or "good", after which no version is set either."""
        self._order("certificate", kind, str(self._authority), f"DNS:{self._name}")

    def want_client_certificate(self):
        self._order("clientCertificate", True)

    def accept(self, how):
        """ "serve" or "silent" (no handshake)."""
        self._order("accept", how)

    def limit_receive_buffers(self, size):
        """SO_RCVBUF of the next connections, for good; the kernel doubles it (socket(7)). The window is about as large."""
        self._order("receiveBuffer", size)

    def drop(self, how="close"):
        """Ends all connections: "close" or "reset"."""
        self._order("drop", how)

    def requests(self):
        """Each with method, path, headers, protocol, connection, began, over, whole, and series: [time, bytes] of the body that
        the client has acknowledged (GET) or that has been read (POST)."""
        return json.loads(self._order("records"))["requests"]

    def connections(self):
        """How many there have been."""
        return json.loads(self._order("records"))["connections"]

    def _order(self, *command):
        return self._tool.ask(json.dumps(command))


class Proxy:
    """A proxy (proxy.py) on the client's own machine or on another one, across the link. It knows the names by itself."""

    PORT = 3128

    def __init__(self, namespace, address, stack):
        self.address = address
        names = [*zip(network.ENDPOINT_NAMES, network.ENDPOINT_ADDRESSES), (settings.SPEEDTEST_HOST, network.SPEEDTEST_ADDRESS)]
        command = [sys.executable, PROXY, address, self.PORT, *(f"{name}={place}" for name, place in names)]
        self._tool = stack.enter_context(Tool(namespace.inside(command)))

    def url(self, scheme):
        """As in the environment: http, socks4, socks4a, socks5 or socks5h."""
        return f"{scheme}://{self.address}:{self.PORT}"

    def set(self, mode, seconds=0):
        """From now on it is "work"ing, "dead", "silent", "slow" by so many seconds or "refuse"s: see proxy.py."""
        self._order("set", mode, seconds)

    def drop(self):
        """Ends all connections."""
        self._order("drop")

    def clients(self, since=0.0):
        """Each with time, kind (the protocol), host and port that it asked for, whether that was named or an address, and
        answered and ended: when, or None."""
        return [client for client in json.loads(self._order("records")) if client["time"] >= since]

    def _order(self, *command):
        return self._tool.ask(json.dumps(command))


NOTED_EVERY = 0.02  # seconds; 0.005 where the machine has the time


def bytes_at(series, moment):
    """What a series of [time, bytes] had reached by then. Each change was noted soon after it happened: between two points near each
    other in proportion, but after a pause all of it came at its end."""
    before = (None, 0)
    for time_, count in series:
        if time_ >= moment:
            if before[0] is None:
                return 0
            began = max(before[0], time_ - NOTED_EVERY)
            return before[1] + (count - before[1]) * max(0.0, moment - began) / (time_ - began)
        before = (time_, count)
    return before[1]


class Lab:
    """Everything but the program is up; `start` starts that too."""

    def __init__(self, authority, stack, servers=Servers):
        self.network = Network(authority, stack)
        self.link = self.network.wlan0
        self.servers = servers(self.network, authority, stack)
        self.session_bus = MessageBus(self.network.folder, "session", stack)
        self.system_bus = MessageBus(self.network.folder, "system", stack)
        self.area = StatusArea(self.session_bus, stack)
        self._authority, self._stack = authority, stack
        self.program = Program(self.network, stack, DBUS_SESSION_BUS_ADDRESS=self.session_bus.address,
                               DBUS_SYSTEM_BUS_ADDRESS=self.system_bus.address)

    def start(self, until="green", within=11):
        """Starts the program and waits for its dot to have this colour, at the second probe when the first was slow."""
        self.program.start()
        return self.area.wait_for(green_with_its_label if until == "green" else until, within, since=self.program.started)

    def start_second_area(self):
        """Another status area on the same bus. Who comes second is one once the first has gone."""
        return StatusArea(self.session_bus, self._stack)

    def start_system_bus(self):
        """A new one in the place of the one that ended."""
        self.system_bus = MessageBus(self.network.folder, "system", self._stack)

    def start_panel(self, kind):
        """A real panel, which the program will use instead of `area`."""
        return Panel(self, self._stack, kind)

    def start_screen(self):
        """A screen for the program's windows, beside `area`."""
        return WindowScreen(self, self._stack)

    def stalls(self):
        """How long the program leaves its callers without an answer: see StatusArea.stalls."""
        taking_part = (self.program.pid, self.session_bus.pid, os.getpid())
        return self.area.stalls(
            lambda: {thread: waited for pid in taking_part for thread, (_, waited) in schedule(pid).items()})

    def serve_traffic(self):
        """From now on the server's side takes part in `client_traffic`."""
        command = self.network.server.inside([sys.executable, TRAFFIC, "serve"])
        self._stack.enter_context(Tool(command))

    def client_traffic(self, *words):
        """What traffic.py prints for these words, run on the client's side."""
        command = [sys.executable, str(TRAFFIC), *map(str, words)]
        return self.network.client.run(command, capture_output=True, text=True).stdout

    def serve_speed_test(self):
        """From now on somebody answers to the name of the speed-test service."""
        return SpeedServer(self.network, self._authority, self._stack)

    def serve_proxy(self, where="far"):
        """From now on there is a proxy, "far" across the link or "here" on the client's own machine. Who is to use it is told
        so: lab.program.environment["https_proxy"] = proxy.url("socks5h")."""
        place = (self.network.client, "127.0.0.1") if where == "here" else (self.network.server, network.PROXY_ADDRESS)
        return Proxy(*place, self._stack)

    def replace_endpoint(self, endpoint):
        """From now on the endpoint is served by tests/speedserver: as fast or as badly as it is told to."""
        endpoint.die()
        return SpeedServer(self.network, self._authority, self._stack, endpoint.name, [endpoint.address])

    def run_speed_test(self, *words, **options):
        """What lab_speedtest, the program's speed test without its window, prints on the client's side."""
        command = [settings.SPEEDTEST, *map(str, words)]
        run = self.network.client.run(command, capture_output=True, text=True, **options)
        return json.loads(run.stdout)

    def wall_clock(self):
        """The clock on the wall as the program that starts next will read it."""
        return WallClock(self.network.folder / "wall-clock", self.program)

    def move_uptime(self, seconds):
        """The program that starts next reads so much on the monotonic clock just now, whatever the machine's says."""
        moved = int(seconds - time.clock_gettime(time.CLOCK_MONOTONIC))
        holder = self._stack.enter_context(Child(["unshare", "--time", "--monotonic", moved, "--fork", "--kill-child", "sleep", "600"]))
        space = Path(f"/proc/{holder.pid}/ns/time_for_children")
        own = os.readlink("/proc/self/ns/time")
        wait_until(lambda: os.readlink(space) != own, 5, "there is a time namespace")
        self.program.starter = ["nsenter", f"--time={space}", "--"]

    def logind(self):
        """From now on there is one on the system bus."""
        return Logind(self.system_bus, self._stack)


class WallClock:
    """A clock on the wall that can be moved (WallClock.cpp)."""

    def __init__(self, file, program):
        assert settings.WALL_CLOCK.exists(), "without it no clock would be moved"
        self._file = file
        self.move(0)
        program.environment |= {"SKYLET_LAB_CLOCK": str(file), "LD_PRELOAD": str(settings.WALL_CLOCK)}

    def move(self, seconds):
        """From now on it is so much before the machine's."""
        if not self._file.exists():
            self._file.write_bytes(bytes(8))
        with self._file.open("r+b") as file:
            file.write(struct.pack("<q", seconds))


def sleep_until(moment):
    time.sleep(max(0.0, moment - time.monotonic()))
