"""What goes wrong in a soak: each fault is a function that begins it, yields while it lasts, and ends it."""

import random
import subprocess
import time
from contextlib import ExitStack, contextmanager, suppress
from dataclasses import dataclass

import network
from desktop import Logind, StatusArea
from gi.repository import GLib
from network import Link
from support.message_bus import MessageBus
from support.processes import wait_until

# A link as at home, on which a speed test moves some ten megabytes.
USUAL_LINK = {"rtt_ms": 20, "rate_kbit": 20000, "queue_ms": 100, "jitter_ms": 0, "reorder": 0, "loss": 0, "hole": False}
RESOLVER_OPTIONS = "timeout:1 attempts:2"
INHIBITOR = ("sleep", "delay")
# seconds after which the program takes a system whose logind has gone for awake, and after which it looks for a bus again
LOGIND_ABSENCE, BUS_RETRY = 5, 10
PAUSE, SPEED_TEST = "Pause Automatic Checks", "Run Speed Test"


class SystemServices:
    """A system bus with logind on it; each can be lost and come back."""

    def __init__(self, folder, stack):
        self._folder = folder
        self._bus_stack, self._logind_stack = stack.enter_context(ExitStack()), stack.enter_context(ExitStack())
        self.start_bus()

    def start_bus(self):
        self._bus = MessageBus(self._folder, "soak-system", self._bus_stack)
        self.address = self._bus.address
        self.start_logind()

    def stop_bus(self):
        self._bus_stack.close()
        with suppress(GLib.Error):  # its connection has ended with the bus
            self.stop_logind()

    def start_logind(self):
        self.logind = Logind(self._bus, self._logind_stack)

    def stop_logind(self):
        self._logind_stack.close()

    def wait_until_known(self):
        wait_until(lambda: INHIBITOR in self.logind.inhibitors(), BUS_RETRY + 5, "the program holds up the suspend")


class World:
    """The lab with all that a fault needs, and the program in it."""

    def __init__(self, lab, stack):
        self.lab, self.stack = lab, stack
        lab.link.set(**USUAL_LINK)
        lab.network.names_from_dns(RESOLVER_OPTIONS)
        lab.network.server.run(["sysctl", "-qw", "net.ipv6.conf.wlan0.disable_ipv6=0"])
        lab.network.server.ip(f"-6 address add {network.GATEWAY_IPV6_ADDRESS}/64 dev wlan0 nodad")
        self.speed_server = lab.serve_speed_test()
        self.screen = lab.start_screen()
        self.system = SystemServices(lab.network.folder, stack)
        lab.program.environment["DBUS_SYSTEM_BUS_ADDRESS"] = self.system.address

    def ip(self, arguments):
        self.lab.network.client.ip(arguments)

    def endpoints(self, which):
        return {"first": [self.lab.servers.first], "second": [self.lab.servers.second], "both": self.lab.servers.both}[which]

    def entry(self, title):
        return next(entry for text, entry in self.lab.area.menu().items() if text.startswith(title))

    def click(self, title):
        """Chooses the entry if it can be chosen now."""
        with suppress(AssertionError):
            self.lab.area.click(title)

    def close_windows(self):
        def gone():
            windows = {thing["window"] for thing in self.screen.things()}
            if windows:
                self.screen.press("Escape")
            return not windows

        wait_until(gone, 15, "all windows are closed")

    def new_network(self):
        """The same one, but the program cannot know that: it begins anew."""
        self.lab.link.remove_default_route()
        time.sleep(0.2)
        self.lab.link.add_default_route()

    def add_link(self, device):
        """It is there until the context ends."""
        near, gateway = {"usb0": ("192.0.2.130", "192.0.2.129"), "tun0": ("192.0.2.194", "192.0.2.193")}[device]
        return Link(self.lab.network.client, self.lab.network.server, device, near, gateway)


@dataclass(frozen=True)
class Kind:
    """Faults of one kind. Of those of a group only one happens at a time: they would undo each other."""

    name: str
    group: str
    run: object
    choices: dict

    def draw(self, source):
        return {name: source.choice(values) for name, values in self.choices.items()}


KINDS = []


def fault(group, **choices):
    """Makes a generator function a kind of fault; `choices`: the values that each of its arguments may have."""
    def register(function):
        KINDS.append(Kind(function.__name__, group, contextmanager(function), choices))
        return function
    return register


@dataclass(frozen=True)
class Fault:
    kind: Kind
    arguments: dict
    begin: float  # seconds after the beginning of the round
    end: float

    def __str__(self):
        arguments = ", ".join(f"{name}={value}" for name, value in self.arguments.items())
        return f"{self.kind.name}({arguments}) {self.begin:.1f}-{self.end:.1f} s"


def rounds(seed):
    """What happens, without end: [Fault...] that overlap. Each kind comes once before any comes again."""
    source = random.Random(seed)
    pending = source.sample(KINDS, len(KINDS))
    while True:
        chosen = []
        for _ in range(source.choices((1, 2, 3), (5, 3, 2))[0]):
            groups = {kind.group for kind in chosen}
            possible = [kind for kind in pending or KINDS if kind.group not in groups]
            if possible:
                chosen.append(possible[0] if pending else source.choice(possible))
                if pending:
                    pending.remove(chosen[-1])
        faults = []
        for kind in chosen:
            begin = source.uniform(0, 1.5)
            faults.append(Fault(kind, kind.draw(source), begin, begin + source.choice((0.3, 1, 2, 4, 7)) * source.uniform(0.5, 1.2)))
        yield faults, source.uniform(0, 1.5)


# the wire

@fault("wire", share=(0.05, 0.2, 0.5), way=("up", "down", "both"), seed=range(1, 1000))
def loss(world, share, way, seed):
    world.lab.link.set(way=way, loss=share, seed=seed)
    yield
    world.lab.link.set(loss=0)


@fault("wire", way=("up", "down", "both"))
def hole(world, way):
    world.lab.link.set(way=way, hole=True)
    yield
    world.lab.link.set(hole=False)


@fault("wire", kbit=(64, 256, 1000))
def narrow(world, kbit):
    world.lab.link.set(rate_kbit=kbit)
    yield
    world.lab.link.set(rate_kbit=USUAL_LINK["rate_kbit"])


@fault("wire", rtt=(100, 350, 1000))
def far(world, rtt):
    world.lab.link.set(rtt_ms=rtt)
    yield
    world.lab.link.set(rtt_ms=USUAL_LINK["rtt_ms"])


@fault("wire", ms=(30, 120, 300), share=(0, 0.05), seed=range(1, 1000))
def jitter(world, ms, share, seed):
    world.lab.link.set(jitter_ms=ms, reorder=share, seed=seed)
    yield
    world.lab.link.set(jitter_ms=0, reorder=0)


@fault("wire", which=("first", "second", "both"))
def dead_address(world, which):
    addresses = [endpoint.address for endpoint in world.endpoints(which)]
    world.lab.link.mute(*addresses)
    yield
    world.lab.link.unmute(*addresses)


@fault("wire", how=("drop", "reset"))
def no_new_connections(world, how):
    world.lab.link.gate(how)
    yield
    world.lab.link.gate("off")


# the network

@fault("network")
def no_route(world):
    world.lab.link.remove_default_route()
    yield
    world.lab.link.add_default_route()


@fault("network")
def link_down(world):
    world.ip("link set wlan0 down")
    yield
    world.ip("link set wlan0 up")
    world.lab.link.add_default_route()


@fault("network", times=(3, 8))
def link_flaps(world, times):
    for _ in range(times):
        world.ip("link set wlan0 down")
        time.sleep(0.1)
        world.ip("link set wlan0 up")
        world.lab.link.add_default_route()
        time.sleep(0.1)
    yield


@fault("network", rtt=(30, 200), instead=(False, True))
def second_interface(world, rtt, instead):
    with world.add_link("usb0") as usb0:
        usb0.set(rtt_ms=rtt)
        usb0.add_default_route(metric=50)
        if instead:
            world.lab.link.remove_default_route()
        yield
        if instead:
            world.lab.link.add_default_route()


@fault("network", dead=(False, True))
def vpn(world, dead):
    with world.add_link("tun0") as tunnel:
        tunnel.set(rtt_ms=40, hole=dead)
        tunnel.cover_everything()
        yield


@fault("network")
def vpn_by_rules(world):
    with world.add_link("tun0") as tunnel:
        world.ip(f"route add default via {tunnel.gateway} dev tun0 table 51820")
        world.ip("rule add not fwmark 51820 table 51820")
        world.ip("rule add table main suppress_prefixlength 0")
        yield
        world.ip("rule delete not fwmark 51820 table 51820")
        world.ip("rule delete table main suppress_prefixlength 0")


@fault("network")
def other_address(world):
    world.ip("address add 192.0.2.3/28 dev wlan0")
    world.ip(f"address delete {world.lab.link.near}/29 dev wlan0")
    yield
    world.ip(f"address add {world.lab.link.near}/29 dev wlan0")
    world.ip("address delete 192.0.2.3/28 dev wlan0")


@fault("network", kind=("unreachable", "blackhole", "prohibit"))
def refusing_route(world, kind):
    world.ip(f"route add {kind} default metric 50")
    yield
    world.ip(f"route delete {kind} default metric 50")


@fault("network", routes=(100, 1000))
def route_flood(world, routes):
    def batch(verb):
        lines = "".join(f"route {verb} 10.{number // 250}.{number % 250}.0/24 via {world.lab.link.gateway} dev wlan0\n"
                        for number in range(routes))
        subprocess.run(["ip", "-n", world.lab.network.client.name, "-batch", "-"], input=lines, text=True, check=True)

    batch("add")
    yield
    batch("delete")


@fault("network", dead=(False, True))
def ipv6(world, dead):
    client = world.lab.network.client
    if dead:
        world.lab.link.mute(*network.IPV6_ADDRESSES)
    client.run(["sysctl", "-qw", "net.ipv6.conf.wlan0.disable_ipv6=0"])
    world.ip(f"-6 address add {network.CLIENT_IPV6_ADDRESS}/64 dev wlan0 nodad")
    world.ip(f"-6 route add default via {network.GATEWAY_IPV6_ADDRESS} dev wlan0")
    yield
    client.run(["sysctl", "-qw", "net.ipv6.conf.wlan0.disable_ipv6=1"])
    world.lab.link.unmute(*network.IPV6_ADDRESSES)


# names

@contextmanager
def names_set(world, afresh, **behaviour):
    world.lab.servers.names.set(**behaviour)
    if afresh:
        world.new_network()
    yield
    world.lab.servers.names.set()


@fault("network", answer=("silent", "nxdomain", "servfail", "refused", "empty"), afresh=(True, True, False))
def no_names(world, answer, afresh):
    with names_set(world, afresh, answer=answer):
        yield


@fault("network", delay=(0.5, 1.5, 4), afresh=(True, True, False))
def slow_names(world, delay, afresh):
    with names_set(world, afresh, delay=delay):
        yield


@fault("network")
def other_name_server(world):
    world.lab.network.names_from_dns(RESOLVER_OPTIONS, servers=[network.SECOND_DNS_ADDRESS])
    world.new_network()
    yield
    world.lab.network.names_from_dns(RESOLVER_OPTIONS)


# the servers

def behave(world, which, drop=None, **behaviour):
    for endpoint in world.endpoints(which):
        endpoint.set(**behaviour)
        if drop:
            endpoint.drop(drop)


@fault("servers", which=("first", "second", "both"), status=(200, 301, 404, 429, 500, 503))
def wrong_status(world, which, status):
    behave(world, which, status=status)
    yield
    behave(world, which)


@fault("servers", kind=("redirect", "page", "certificate"))
def portal(world, kind):
    how = {"redirect": {"status": 302, "headers": {"location": "https://portal.example/login"}},
           "page": {"status": 200, "body": "<html>Please log in</html>"}, "certificate": {"certificate": "self-signed"}}[kind]
    behave(world, "both", drop="reset", **how)
    yield
    behave(world, "both")


@fault("servers", which=("first", "second", "both", "both"), answer=("never", "drip", "endless"))
def stalled_answer(world, which, answer):
    behave(world, which, answer=answer)
    yield
    behave(world, which)


@fault("servers", which=("first", "second", "both"), delay=(0.2, 1, 2.9))
def slow_answer(world, which, delay):
    behave(world, which, delay=delay)
    yield
    behave(world, which)


@fault("servers", which=("first", "second", "both", "both"), accept=("refuse", "silent", "reset"), drop=("reset", "close", None))
def no_handshake(world, which, accept, drop):
    behave(world, which, drop=drop, accept=accept)
    yield
    behave(world, which)


@fault("servers", which=("first", "second", "both"), how=("close", "goaway", "reset"), times=(1, 5, 20))
def dropped_connections(world, which, how, times):
    for _ in range(times):
        for endpoint in world.endpoints(which):
            endpoint.drop(how)
        time.sleep(0.05)
    yield


@fault("servers", which=("first", "second", "both"), afterwards=("close", "goaway"), protocols=(["h2"], ["http/1.1"]))
def short_connections(world, which, afterwards, protocols):
    behave(world, which, drop="close", afterwards=afterwards, protocols=protocols)
    yield
    behave(world, which)


@fault("servers", which=("first", "second", "both"), certificate=("self-signed", "other-name", "expired"))
def wrong_certificate(world, which, certificate):
    behave(world, which, drop="close", certificate=certificate)
    yield
    behave(world, which)


# the desktop

@fault("desktop")
def no_watcher(world):
    world.lab.area.stop()
    yield
    world.lab.area.start()


@fault("desktop", times=(3, 10), pause=(0.02, 0.3))
def watcher_flaps(world, times, pause):
    for _ in range(times):
        world.lab.area.stop()
        time.sleep(pause)
        world.lab.area.start()
        time.sleep(pause)
    yield


@fault("desktop")
def second_watcher(world):
    with ExitStack() as stack:
        second = StatusArea(world.lab.session_bus, stack)
        world.lab.area.stop()
        second.wait_for(lambda state: state.dot, 4)
        yield
        world.lab.area.start()  # waits for the name until the second one gives it up


@fault("desktop")
def paused(world):
    world.click(PAUSE)
    yield
    assert world.entry(PAUSE).checked
    world.click(PAUSE)


@fault("desktop", title=("Check Connection Now", "Show Live Traffic", "Launch at Login"), pairs=(1, 5))
def clicks(world, title, pairs):
    for _ in range(2 * pairs):
        world.click(title)
        time.sleep(0.03)
    yield


@fault("desktop")
def about(world):
    world.click("About Skylet")
    yield
    world.close_windows()


@fault("desktop")
def cancelled_speed_test(world):
    world.click(SPEED_TEST)
    yield
    world.close_windows()


@fault("desktop")
def whole_speed_test(world):
    world.click(SPEED_TEST)
    yield
    wait_until(lambda: "running" not in world.entry("Last speed test").title, 20, "the speed test has ended")
    world.close_windows()


@fault("desktop", times=(1, 3))
def second_start(world, times):
    starts = [world.lab.program.start_another() for _ in range(times)]
    yield
    for start in starts:
        assert start.wait(15) == 0
    world.close_windows()


# the system

@fault("system", times=(1, 1, 5))
def sleep(world, times):
    for _ in range(times):
        world.system.logind.prepare_for_sleep(True)
        time.sleep(0.1)
        if times > 1:
            world.system.logind.prepare_for_sleep(False)
    yield
    world.system.logind.prepare_for_sleep(False)


@fault("system", asleep=(False, True))
def logind_restarts(world, asleep):
    world.system.logind.prepare_for_sleep(asleep)
    world.system.stop_logind()
    yield
    world.system.start_logind()


@fault("system", asleep=(False, True))
def no_system_bus(world, asleep):
    world.system.logind.prepare_for_sleep(asleep)
    world.system.stop_bus()
    lost = time.monotonic()
    yield
    world.system.start_bus()
    if asleep:
        time.sleep(max(0, lost + LOGIND_ABSENCE - time.monotonic()))
