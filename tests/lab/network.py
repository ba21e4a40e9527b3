"""Two network namespaces, `client` and `server`, joined by links whose delay, rate, loss and holes a test sets.

Nothing here can reach the machine's own network. Whatever is started dies with this process, and whatever a killed run
left behind is swept at the next start.
"""

import json
import os
import re
import shlex
import shutil
import subprocess
import tempfile
from pathlib import Path
from urllib.parse import urlsplit

import settings
from support.processes import Place, Tool

PREFIX = "skylet-lab"
RUN = Path("/run")
ETC_NETNS = Path("/etc/netns")

ENDPOINT_NAMES = [urlsplit(url).hostname for url in settings.ENDPOINTS]
# addresses that the Internet does not route (RFC 5737, RFC 3849); the servers' live on the loopback device of their namespace
ENDPOINT_ADDRESSES = ["198.51.100.10", "203.0.113.10"]
ENDPOINT_IPV6_ADDRESSES = ["2001:db8:1::10", "2001:db8:2::10"]
# the endpoints answer here too, but no name server says so unless it is told to
OTHER_ENDPOINT_ADDRESSES = ["198.51.100.11", "203.0.113.11"]
PORTAL_NAME, PORTAL_ADDRESS = "portal.example", "198.51.100.80"
SPEEDTEST_ADDRESSES = SPEEDTEST_ADDRESS, SPEEDTEST_IPV6_ADDRESS = ["198.51.100.40", "2001:db8:1::40"]
DNS_ADDRESSES = DNS_ADDRESS, SECOND_DNS_ADDRESS = ["198.51.100.53", "203.0.113.53"]
DNS_IPV6_ADDRESS = "2001:db8:1::53"
PROXY_ADDRESS = "198.51.100.60"
SERVER_ADDRESSES = [*ENDPOINT_ADDRESSES, *ENDPOINT_IPV6_ADDRESSES, *OTHER_ENDPOINT_ADDRESSES, PORTAL_ADDRESS,
                    *SPEEDTEST_ADDRESSES, *DNS_ADDRESSES, DNS_IPV6_ADDRESS, PROXY_ADDRESS]
CLIENT_IPV6_ADDRESS, GATEWAY_IPV6_ADDRESS = "2001:db8::2", "2001:db8::1"
IPV4_ADDRESSES, IPV6_ADDRESSES = ([address for address in SERVER_ADDRESSES if (":" in address) == v6] for v6 in (False, True))
HALVES = ("0.0.0.0/1", "128.0.0.0/1")

# a project that itself stands below /tmp must not vanish behind a namespace's own /tmp
PROJECT_FOLDERS = {path.parts[2] for path in (Path(__file__), settings.PROGRAM, settings.LINK, settings.SPEED_SERVER,
                                              settings.SPEEDTEST, settings.SHOTS)
                   if path.is_relative_to("/tmp")}
KEEP_PROJECT = " ".join(f'mkdir -p "$0"/{shlex.quote(name)} && mount --bind /tmp/{shlex.quote(name)} "$0"/{shlex.quote(name)} &&'
                        for name in sorted(PROJECT_FOLDERS))


def why_impossible():
    """The reason why there can be no lab on this machine, or None."""
    if os.geteuid() != 0:
        return "network namespaces need root"
    if not os.access("/dev/net/tun", os.R_OK | os.W_OK):
        return "/dev/net/tun is missing"
    probe = subprocess.run(["unshare", "--net", "--mount", "true"], capture_output=True, text=True, check=False)
    return f"no network namespaces: {probe.stderr.strip()}" if probe.returncode else None


def sweep():
    """Removes what runs that are dead by now left behind."""
    for place in (RUN / "netns", ETC_NETNS, RUN):
        for path in place.glob(f"{PREFIX}-*"):
            pid = re.match(rf"{PREFIX}-(\d+)-", path.name)
            if pid and not Path("/proc", pid[1]).exists():
                _remove(path)


def _remove(path):
    if path.parent.name == "netns" and path.parent.parent == RUN:
        subprocess.run(["ip", "netns", "delete", path.name], check=True)
    elif path.is_symlink():
        path.unlink()
    else:
        shutil.rmtree(path)


class Link(Tool):
    """The wire between a device of the client and one of the server. `way`: up (from the client), down or both."""

    def __init__(self, client, server, device, near, gateway):
        super().__init__([settings.LINK, client.name, device, server.name, device])
        self.client, self.device, self.near, self.gateway = client, device, near, gateway
        for namespace, address in ((client, near), (server, gateway)):
            namespace.ip(f"address add {address}/29 dev {device}")
            namespace.ip(f"link set {device} up")

    def set(self, *, way="both", rtt_ms=None, delay_ms=None, jitter_ms=None, reorder=None, rate_kbit=None, queue_ms=None,
            loss=None, hole=None, seed=1):
        """Each argument that is given is set, for that way. An RTT is shared evenly by both ways, whatever `way` is; a delay is
        one way's. Jitter comes on top of the delay, from packet to packet another part of it; `loss` and `reorder` are shares
        of the packets. What is random is the same each time for the same seed."""
        if rtt_ms is not None:
            self.ask(f"delay both {rtt_ms / 2}")
        if delay_ms is not None:
            self.ask(f"delay {way} {delay_ms}")
        if jitter_ms is not None:
            self.ask(f"jitter {way} {jitter_ms} {seed}")
        if reorder is not None:
            self.ask(f"reorder {way} {reorder} {seed}")
        if rate_kbit is not None:
            self.ask(f"rate {way} {rate_kbit}")
        if queue_ms is not None:
            self.ask(f"queue {way} {queue_ms}")
        if loss is not None:
            self.ask(f"loss {way} {loss} {seed}")
        if hole is not None:
            self.ask(f"hole {way} {'on' if hole else 'off'}")

    def mute(self, *addresses):
        for address in addresses:
            self.ask(f"mute {address}")

    def unmute(self, *addresses):
        for address in addresses:
            self.ask(f"unmute {address}")

    def drop_larger_than(self, size, *addresses):
        """IP packets to and from these that are larger vanish, and nobody is told."""
        for address in addresses:
            self.ask(f"largest {size} {address}")

    def gate(self, how):
        """What becomes of new TCP connections from the client, while those that are open pass: "off" (all is well), "drop"
        (their SYNs vanish) or "reset" (refused). With "accept" the link itself accepts them, and nothing of TCP passes."""
        self.ask(f"gate {how}")

    def translate(self, how, idle=0, most_bytes=0):
        """As a carrier's NAT that forgets a TCP connection over which nothing went for `idle` seconds, or once it has carried so
        many bytes (0: no limit): from then on its packets vanish ("drop") or are answered with an RST ("reset"). "off": no NAT.
        Connections that are open when it begins are unknown to it."""
        self.ask(f"flows {how} {idle} {most_bytes}")

    def forget_connections(self):
        self.ask("forget")

    def add_default_route(self, metric=100):
        self.client.ip(f"route add default via {self.gateway} dev {self.device} metric {metric}")

    def remove_default_route(self, metric=100):
        self.client.ip(f"route delete default via {self.gateway} dev {self.device} metric {metric}")

    def cover_everything(self):
        """As a VPN does that leaves the default route in its place: two routes, each to one half of all addresses."""
        for half in HALVES:
            self.client.ip(f"route add {half} via {self.gateway} dev {self.device}")

    def uncover(self):
        for half in HALVES:
            self.client.ip(f"route delete {half} via {self.gateway} dev {self.device}")

    def add_policy_route(self, table=100):
        """A default route in a table of its own, and the rule by which everything looks there first."""
        self.client.ip(f"route add default via {self.gateway} dev {self.device} table {table}")
        self.client.ip(f"rule add from all lookup {table}")

    def remove_policy_rule(self, table=100):
        self.client.ip(f"rule delete from all lookup {table}")

    def reset(self):
        """Counters and trace begin anew."""
        self.ask("reset")

    def stats(self):
        return json.loads(self.ask("stats"))

    def bytes(self):
        """IP bytes put on the wire since the last reset, both ways."""
        stats = self.stats()
        return stats["up"]["bytes"] + stats["down"]["bytes"]

    def trace(self, way=None):
        """Packets since the last reset, seen where they enter the link."""
        keys = ("time", "way", "far", "near_port", "far_port", "bytes", "flags")
        packets = (dict(zip(keys, row)) for row in json.loads(self.ask("trace")))
        return [packet for packet in packets if way in (None, packet["way"])]


class Namespace(Place):
    """A named network namespace with files of its own over those of /etc, and for its processes a /tmp of their own."""

    def __init__(self, name, folder, stack):
        self.name, self.etc, self.tmp = name, folder / f"{name}-etc", folder / f"{name}-tmp"
        self.etc.mkdir()
        self.tmp.mkdir(mode=0o1777)
        ETC_NETNS.mkdir(exist_ok=True)
        stack.callback(_remove_if_empty, ETC_NETNS)
        (ETC_NETNS / name).symlink_to(self.etc)
        stack.callback((ETC_NETNS / name).unlink)
        subprocess.run(["ip", "netns", "add", name], check=True)
        stack.callback(_remove, RUN / "netns" / name)
        for setting in ("all", "default"):
            self.run(["sysctl", "-qw", f"net.ipv6.conf.{setting}.disable_ipv6=1"])
        self.ip("link set lo up")

    def ip(self, arguments):
        subprocess.run(["ip", "-n", self.name, *arguments.split()], check=True)

    def inside(self, command):
        """The command line that runs `command` in here."""
        return ["ip", "netns", "exec", self.name, "sh", "-c", f'{KEEP_PROJECT} mount --rbind "$0" /tmp && exec "$@"', self.tmp,
                *command]


def _remove_if_empty(folder):
    try:
        folder.rmdir()
    except OSError:
        pass


class Network:
    """The client with its default route over `wlan0`, and the server with every address of the lab's Internet."""

    _count = 0

    def __init__(self, authority, stack):
        Network._count += 1
        name = f"{PREFIX}-{os.getpid()}-{Network._count}"
        self.folder = Path(tempfile.mkdtemp(prefix=f"{name}-", dir=RUN))
        stack.callback(shutil.rmtree, self.folder)
        self._stack = stack
        self.client = Namespace(f"{name}c", self.folder, stack)
        self.server = Namespace(f"{name}s", self.folder, stack)
        # as behind a home router: what comes with another link's source address is dropped
        self.server.run(["sysctl", "-qw", "net.ipv4.conf.all.rp_filter=1"])
        self.server.run(["sysctl", "-qw", "net.ipv6.conf.lo.disable_ipv6=0"])
        for address in IPV4_ADDRESSES:
            self.server.ip(f"address add {address}/32 dev lo")
        for address in IPV6_ADDRESSES:
            self.server.ip(f"-6 address add {address}/128 dev lo nodad")
        (self.client.etc / "ssl").symlink_to(authority.etc_ssl)
        (self.client.etc / "nsswitch.conf").write_text("passwd: files\ngroup: files\nhosts: files dns\n")
        self.names_from_hosts_file()
        self.wlan0 = self._add_link("wlan0", "192.0.2.2", "192.0.2.1")
        self.wlan0.add_default_route()

    def add_usb0(self):
        """A second link, without a default route."""
        return self._add_link("usb0", "192.0.2.130", "192.0.2.129")

    def add_tunnel(self):
        """A VPN's device, tun0, without a route. What enters it takes a wire of its own to the servers, not wlan0's."""
        return self._add_link("tun0", "192.0.2.194", "192.0.2.193")

    def _add_link(self, device, near, gateway):
        return self._stack.enter_context(Link(self.client, self.server, device, near, gateway))

    def add_ipv6(self):
        """From now on the client has IPv6 beside IPv4, over `wlan0`, and the hosts file knows the servers' IPv6 addresses. (The
        name servers always know them.)"""
        for namespace, address in ((self.client, CLIENT_IPV6_ADDRESS), (self.server, GATEWAY_IPV6_ADDRESS)):
            namespace.run(["sysctl", "-qw", "net.ipv6.conf.wlan0.disable_ipv6=0"])
            namespace.ip(f"-6 address add {address}/64 dev wlan0 nodad")
        self.client.ip(f"-6 route add default via {GATEWAY_IPV6_ADDRESS} dev wlan0")
        with (self.client.etc / "hosts").open("a") as hosts:
            hosts.writelines(f"{address} {name}\n" for address, name in [*zip(ENDPOINT_IPV6_ADDRESSES, ENDPOINT_NAMES),
                                                                         (SPEEDTEST_IPV6_ADDRESS, settings.SPEEDTEST_HOST)])

    def add_dead_ipv6(self):
        """The same, but nothing comes back."""
        self.add_ipv6()
        self.wlan0.mute(*IPV6_ADDRESSES)

    def remove_ipv4(self):
        """From now on the client has no IPv4 on `wlan0`, and names come from a name server that is asked over IPv6."""
        self.client.ip("-4 address flush dev wlan0")
        self.names_from_dns(servers=[DNS_IPV6_ADDRESS])

    def names_from_hosts_file(self):
        names = [*zip(ENDPOINT_ADDRESSES, ENDPOINT_NAMES), (PORTAL_ADDRESS, PORTAL_NAME),
                 (SPEEDTEST_ADDRESS, settings.SPEEDTEST_HOST), ("127.0.0.1", "localhost")]
        (self.client.etc / "hosts").write_text("".join(f"{address} {name}\n" for address, name in names))
        (self.client.etc / "resolv.conf").write_text("nameserver 127.0.0.1\n")

    def names_from_dns(self, options="", servers=(DNS_ADDRESS,)):
        """`options`: as in resolv.conf(5); `servers`: of DNS_ADDRESSES and DNS_IPV6_ADDRESS, in the order in which the client asks
        them."""
        (self.client.etc / "hosts").write_text("127.0.0.1 localhost\n")
        lines = [*(f"nameserver {address}" for address in servers), f"options {options}"]
        (self.client.etc / "resolv.conf").write_text("\n".join(lines) + "\n")
