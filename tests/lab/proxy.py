"""A proxy for HTTP CONNECT, SOCKS4, SOCKS4a and SOCKS5 on one port; the client's first byte tells which. A program of its own:

    proxy.py ADDRESS PORT NAME=ADDRESS...       the names are those that it can resolve

It prints "ready" and then obeys one JSON array a line, answering each with one line:

    ["set", MODE, SECONDS]  "work", "dead" (nobody listens, all connections end), "silent" (new clients are accepted and get no
                            word, nothing passes on open tunnels), "slow" (the first word to a new client comes
                            after SECONDS) or "refuse" (new clients get the protocol's refusal; open tunnels pass)
    ["drop"]                ends all connections
    ["records"]             answers a list of all clients: {"time", "kind", "host", "port", "named", "answered", "ended"}
"""

import asyncio
import ipaddress
import json
import socket
import struct
import sys
import time
from contextlib import contextmanager, suppress

PIECE = 65536
SOCKS4, SOCKS5, NO_AUTHENTICATION, CONNECT = 4, 5, 0, 1
IPV4, NAME, IPV6 = 1, 3, 4  # RFC 1928, 5
REFUSALS = {"http": b"HTTP/1.1 403 Lab\r\nContent-Length: 0\r\n\r\n", "socks4": b"\0\x5b" + bytes(6), "socks4a": b"\0\x5b" + bytes(6),
            "socks5": b"\5\2\0\1" + bytes(6)}
CONSENTS = {"http": b"HTTP/1.1 200 Lab\r\n\r\n", "socks4": b"\0\x5a" + bytes(6), "socks4a": b"\0\x5a" + bytes(6),
            "socks5": b"\5\0\0\1" + bytes(6)}


class Client:
    """A connection to the proxy and, once it has said where to, the tunnel behind it."""

    def __init__(self, proxy, reader, writer):
        self._proxy, self._reader, self._writer = proxy, reader, writer
        self._greeted = False
        self.record = {"time": time.monotonic(), "kind": None, "host": None, "port": None, "named": None, "answered": None,
                       "ended": None}

    async def serve(self):
        try:
            with closing(self._writer):
                await self._negotiate()
        except (OSError, EOFError, ValueError) as error:
            self.record["error"] = repr(error)
        finally:
            self.record["ended"] = time.monotonic()

    async def _negotiate(self):
        kind, host, port = await self._request()
        self.record |= {"kind": kind, "host": host, "port": port, "named": not is_address(host)}
        address = self._proxy.names.get(host, host)
        if self._proxy.mode == "refuse" or not is_address(address):
            return await self._say(REFUSALS[kind])
        try:
            far = await asyncio.open_connection(address, port)
        except OSError:
            return await self._say(REFUSALS[kind])
        await self._say(CONSENTS[kind])
        self.record["answered"] = time.monotonic()
        with closing(far[1]):
            await self._relay(far)
        return None

    async def _request(self):
        version, = await self._read(1)
        if version == SOCKS5:
            return await self._socks5()
        if version == SOCKS4:
            return await self._socks4()
        head = bytes([version]) + await self._reader.readuntil(b"\r\n\r\n")
        method, target, _ = head.split(b"\r\n")[0].decode().split(" ")
        if method != "CONNECT":
            raise ValueError(head)
        host, port = target.rsplit(":", 1)
        return "http", host.strip("[]"), int(port)

    async def _socks4(self):
        command, port, address = struct.unpack("!BH4s", await self._read(7))
        await self._reader.readuntil(b"\0")  # the user's name
        if command != CONNECT:
            raise ValueError(command)
        if address[:3] == bytes(3) and address[3]:
            return "socks4a", (await self._reader.readuntil(b"\0"))[:-1].decode(), port
        return "socks4", socket.inet_ntoa(address), port

    async def _socks5(self):
        count, = await self._read(1)
        if NO_AUTHENTICATION not in await self._read(count):
            raise ValueError("a way to authenticate that the proxy lacks")
        await self._say(bytes([SOCKS5, NO_AUTHENTICATION]))
        _, command, _, kind = await self._read(4)
        length = {IPV4: 4, IPV6: 16}.get(kind) or (await self._read(1))[0]
        host = await self._read(length)
        port, = struct.unpack("!H", await self._read(2))
        if command != CONNECT:
            raise ValueError(command)
        return "socks5", host.decode() if kind == NAME else str(ipaddress.ip_address(host)), port

    async def _read(self, count):
        return await self._reader.readexactly(count)

    async def _say(self, words):
        if not self._greeted:
            self._greeted = True
            await asyncio.sleep(self._proxy.delay)
        await self._proxy.speaking.wait()
        self._writer.write(words)
        await self._writer.drain()

    async def _relay(self, far):
        """Until either side ends."""
        far_reader, far_writer = far
        ways = [asyncio.ensure_future(self._carry(self._reader, far_writer)),
                asyncio.ensure_future(self._carry(far_reader, self._writer))]
        try:
            await asyncio.wait(ways, return_when=asyncio.FIRST_COMPLETED)
        finally:
            for way in ways:
                way.cancel()

    async def _carry(self, source, sink):
        with suppress(OSError):
            while data := await source.read(PIECE):
                await self._proxy.speaking.wait()
                sink.write(data)
                await sink.drain()


@contextmanager
def closing(writer):
    """Ends the connection: in good order, or at once where the proxy ends the client's."""
    try:
        yield
    except asyncio.CancelledError:
        writer.transport.abort()
        raise
    finally:
        writer.close()


def is_address(host):
    with suppress(ValueError):
        return bool(ipaddress.ip_address(host))
    return False


class Proxy:
    """The port, and all who came to it."""

    def __init__(self, address, port, names):
        self._place, self.names = (address, port), names
        self.mode, self.delay, self.speaking = "work", 0, asyncio.Event()
        self.speaking.set()
        self._listener, self._clients, self.records = None, set(), []

    async def set(self, mode, delay=0):
        self.mode, self.delay = mode, delay
        (self.speaking.clear if mode == "silent" else self.speaking.set)()
        if mode == "dead":
            if self._listener:
                self._listener.close()
                self._listener = None
            self.drop()
        elif not self._listener:
            self._listener = await asyncio.start_server(self._accepted, *self._place)

    def drop(self):
        for task in self._clients:
            task.cancel()

    async def _accepted(self, reader, writer):
        client = Client(self, reader, writer)
        self.records.append(client.record)
        task = asyncio.current_task()
        self._clients.add(task)
        try:
            with suppress(asyncio.CancelledError):
                await client.serve()
        finally:
            self._clients.discard(task)


async def obey(proxy, command):
    verb, *arguments = json.loads(command)
    if verb == "set":
        await proxy.set(*arguments)
    elif verb == "drop":
        proxy.drop()
    elif verb == "records":
        return json.dumps(proxy.records)
    else:
        return f"error: no such command: {verb}"
    return "ok"


async def main(address, port, *names):
    proxy = Proxy(address, int(port), dict(name.split("=") for name in names))
    await proxy.set("work")
    commands = asyncio.StreamReader()
    await asyncio.get_running_loop().connect_read_pipe(lambda: asyncio.StreamReaderProtocol(commands), sys.stdin)
    print("ready", flush=True)
    while line := await commands.readline():
        print(await obey(proxy, line), flush=True)


if __name__ == "__main__":
    asyncio.run(main(*sys.argv[1:]))
