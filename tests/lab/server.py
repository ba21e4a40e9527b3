"""The servers of the lab's Internet: the endpoints over TLS with HTTP/2 or HTTP/1.1, the portal that a redirect leads to,
and name servers. A program of its own, run in the server's namespace:

    server.py CERTIFICATES NAME=ADDRESS,ADDRESS... dns=ADDRESS,ADDRESS... NAME=ADDRESS,ADDRESS...

The names after the name servers are those of servers elsewhere. It prints "ready" and then obeys one JSON array a line, answering
each with one line:

    ["set", NAME, BEHAVIOUR]    from now on NAME behaves so (fields of Behaviour; the rest is as by default)
    ["drop", NAME, HOW]         ends the connections that NAME has: "goaway", "close" or "reset"
    ["dns", SERVER, NAME, FAMILY, ANSWER]
                                from now on such questions are met so (fields of nameserver.Answer); null: any. All earlier
                                orders for questions of which each is such a one are forgotten
    ["records"]                 answers {"connections": [...], "requests": [...], "queries": [...]} of all that happened so far

A name's right addresses, those that the name servers give, are the first of each family.
"""

import asyncio
import itertools
import json
import socket
import ssl
import struct
import sys
import time
from contextlib import suppress
from dataclasses import dataclass, field

import h2.config
import h2.connection
import h2.events
import h2.exceptions
from hpack import NeverIndexedHeaderTuple
from hyperframe.frame import ContinuationFrame, HeadersFrame
from nameserver import NameServers

HTTPS, HTTP = 443, 80
RESET_ON_CLOSE = struct.pack("ii", 1, 0)  # SO_LINGER with no time left
FLOOD = [("x-flood", "f" * 1000)] * 15  # fits into one HTTP/2 frame
FLOOD_INTERVAL = 0.01


@dataclass
class Behaviour:
    """How an endpoint meets its clients."""

    accept: str = "serve"  # or "refuse" (nobody listens), "silent" (no handshake), "reset" (RST after the accept),
    # "one" (reset while there is a connection already)
    certificate: str = "good"  # or another kind that the authority makes
    protocols: list = field(default_factory=lambda: ["h2", "http/1.1"])
    answer: str = "whole"  # or "never", "drip" (a byte per second), "endless" (headers without end)
    handshake: float = 0  # seconds from the accept to the server's part of the TLS handshake
    delay: float = 0  # seconds from the request to the answer
    status: int = 204
    headers: list = field(default_factory=list)  # pairs
    padding: int = 0  # bytes of one header more
    body: str = ""
    afterwards: str = "keep"  # or how the connection ends after each answer: "goaway" or "close"

    def all_headers(self):
        padding = [("x-padding", "x" * self.padding)] if self.padding else []
        return [*(tuple(pair) for pair in self.headers), *padding]


class Records:
    """What happened, in the order in which it did; times are the monotonic clock's."""

    def __init__(self):
        self.connections, self.requests = [], []

    def connection(self, name, address, to):
        """`to`: the address at which the client called."""
        self.connections.append({"id": len(self.connections), "endpoint": name, "time": time.monotonic(),
                                 "address": address[0], "port": address[1], "to": to, "protocol": None, "resumed": None,
                                 "ended": None})
        return self.connections[-1]

    def request(self, connection, method, path, headers):
        self.requests.append({"endpoint": connection["endpoint"], "connection": connection["id"],
                              "time": time.monotonic(), "method": method, "path": path, "headers": headers,
                              "answered": None})
        return self.requests[-1]


class HTTP1:
    """The HTTP/1.1 of one connection."""

    def __init__(self, connection):
        self._connection, self._input = connection, b""

    def received(self, data):
        self._input += data
        while b"\r\n\r\n" in self._input:
            head, self._input = self._input.split(b"\r\n\r\n", 1)
            first, *rest = head.decode("latin-1").split("\r\n")
            method, path, _ = first.split(" ", 2)
            headers = [tuple(part.strip() for part in line.split(":", 1)) for line in rest]
            self._connection.requested(None, method, path, headers)

    @staticmethod
    def answer(_stream, behaviour):
        lines = [f"HTTP/1.1 {behaviour.status} Lab", *(f"{name}: {value}" for name, value in behaviour.all_headers())]
        if behaviour.body:
            lines.append(f"content-length: {len(behaviour.body)}")
        return ("\r\n".join(lines) + "\r\n\r\n" + behaviour.body).encode("latin-1")

    @staticmethod
    def flood(_stream, first):
        head = "HTTP/1.1 204 Lab\r\n" if first else ""
        return (head + "".join(f"{name}: {value}\r\n" for name, value in FLOOD)).encode("latin-1")

    @staticmethod
    def farewell():
        return b""


class HTTP2:
    """The HTTP/2 of one connection."""

    def __init__(self, connection):
        self._connection = connection
        self._h2 = h2.connection.H2Connection(h2.config.H2Configuration(client_side=False, header_encoding="utf-8"))
        self._h2.initiate_connection()
        connection.write(self._h2.data_to_send())

    def received(self, data):
        try:
            events = self._h2.receive_data(data)
        except h2.exceptions.ProtocolError:
            self._connection.write(self._h2.data_to_send())
            return self._connection.transport.close()
        self._connection.write(self._h2.data_to_send())
        for event in events:
            if isinstance(event, h2.events.RequestReceived):
                headers = dict(event.headers)
                self._connection.requested(event.stream_id, headers[":method"], headers[":path"], event.headers)
        return None

    def answer(self, stream, behaviour):
        headers = [(":status", str(behaviour.status)), *behaviour.all_headers()]
        with suppress(h2.exceptions.ProtocolError):  # the client may have reset the stream meanwhile
            self._h2.send_headers(stream, headers, end_stream=not behaviour.body)
            if behaviour.body:
                self._h2.send_data(stream, behaviour.body.encode(), end_stream=True)
        return self._h2.data_to_send()

    def flood(self, stream, first):
        frame = HeadersFrame(stream) if first else ContinuationFrame(stream)
        headers = [(":status", "204")] if first else [NeverIndexedHeaderTuple(*header) for header in FLOOD]
        frame.data = self._h2.encoder.encode(headers, huffman=False)
        return frame.serialize()

    def farewell(self):
        with suppress(h2.exceptions.ProtocolError):
            self._h2.close_connection()
        return self._h2.data_to_send()


class Connection(asyncio.Protocol):
    """A client's connection, from the end of the handshake on."""

    def __init__(self, endpoint, record):
        self._endpoint, self._record = endpoint, record
        self._tasks = set()
        self.transport = self._http = None

    def connection_made(self, transport):
        self.transport = transport
        tls = transport.get_extra_info("ssl_object")
        self._record["protocol"] = tls and (tls.selected_alpn_protocol() or "http/1.1")
        self._record["resumed"] = tls and tls.session_reused
        self._http = HTTP2(self) if self._record["protocol"] == "h2" else HTTP1(self)
        self._endpoint.connected.add(self)

    def data_received(self, data):
        self._http.received(data)

    def connection_lost(self, exc):
        self._record["ended"] = time.monotonic()
        self._endpoint.connected.discard(self)
        for task in self._tasks:
            task.cancel()

    def write(self, data):
        if data and not self.transport.is_closing():
            self.transport.write(data)

    def requested(self, stream, method, path, headers):
        record = self._endpoint.records.request(self._record, method, path, headers)
        task = asyncio.ensure_future(self._answer(stream, record, self._endpoint.behaviour))
        self._tasks.add(task)
        task.add_done_callback(self._tasks.discard)

    async def _answer(self, stream, record, behaviour):
        await asyncio.sleep(behaviour.delay)
        if behaviour.answer == "never":
            return
        if behaviour.answer == "endless":
            first = True
            while True:
                self.write(self._http.flood(stream, first))
                first = False
                await asyncio.sleep(FLOOD_INTERVAL)
        data = self._http.answer(stream, behaviour)
        if behaviour.answer == "drip":
            for byte in data:
                self.write(bytes([byte]))
                await asyncio.sleep(1)
        self.write(data)
        record["answered"] = time.monotonic()
        if behaviour.afterwards != "keep":
            self.drop(behaviour.afterwards)

    def drop(self, how):
        if self.transport.is_closing():
            return
        if how == "reset":
            self.transport.get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, RESET_ON_CLOSE)
            self.transport.abort()
        else:
            if how == "goaway":
                self.write(self._http.farewell())
            self.transport.close()


class Endpoint:
    """One name on its own addresses: HTTPS, and plain HTTP beside it."""

    def __init__(self, name, addresses, certificates, records):
        self._name, self._addresses, self._certificates = name, addresses, certificates
        self.records = records
        self.behaviour = Behaviour()
        self.connected = set()
        self._contexts, self._listening, self._held = {}, [], []
        self._listen()

    def set(self, behaviour):
        self.behaviour = behaviour
        if behaviour.accept == "refuse":
            while self._listening:
                task, listener = self._listening.pop()
                task.cancel()
                listener.close()
        elif not self._listening:
            self._listen()

    def drop(self, how):
        for connection in list(self.connected):
            connection.drop(how)

    def _listen(self):
        for address, port in itertools.product(self._addresses, (HTTPS, HTTP)):
            listener = socket.create_server((address, port), backlog=64, family=family(address))
            listener.setblocking(False)
            self._listening.append((asyncio.ensure_future(self._accept(listener, port == HTTPS)), listener))

    async def _accept(self, listener, secure):
        loop = asyncio.get_running_loop()
        while True:
            client, address = await loop.sock_accept(listener)
            record = self.records.connection(self._name, address, client.getsockname()[0])
            if self.behaviour.accept == "silent":
                self._held.append(client)
            elif self.behaviour.accept == "reset" or (self.behaviour.accept == "one" and self.connected):
                client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, RESET_ON_CLOSE)
                client.close()
            else:
                self._held.append(asyncio.ensure_future(self._serve(client, record, secure)))

    async def _serve(self, client, record, secure):
        client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        await asyncio.sleep(self.behaviour.handshake)
        try:
            await asyncio.get_running_loop().connect_accepted_socket(
                lambda: Connection(self, record), client, ssl=self._context() if secure else None)
        except OSError as error:  # ssl.SSLError too: the client did not like the certificate, or went away
            record["ended"], record["error"] = time.monotonic(), str(error)

    def _context(self):
        """One for each certificate and choice of protocols, kept, so that sessions can be resumed."""
        key = (self.behaviour.certificate, *self.behaviour.protocols)
        if key not in self._contexts:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(f"{self._certificates}/{self._name}.{self.behaviour.certificate}.pem")
            context.set_alpn_protocols(self.behaviour.protocols)
            self._contexts[key] = context
        return self._contexts[key]


def family(address):
    return socket.AF_INET6 if ":" in address else socket.AF_INET


def first_of_each_family(addresses):
    return list({family(address): address for address in reversed(addresses)}.values())


def obey(command, endpoints, name_servers, records):
    verb, *arguments = json.loads(command)
    if verb == "set":
        endpoints[arguments[0]].set(Behaviour(**arguments[1]))
    elif verb == "drop":
        endpoints[arguments[0]].drop(arguments[1])
    elif verb == "dns":
        name_servers.set(*arguments)
    elif verb == "records":
        return json.dumps({"connections": records.connections, "requests": records.requests,
                           "queries": name_servers.queries})
    else:
        return f"error: no such command: {verb}"
    return "ok"


async def main(certificates, *hosts):
    addresses = {name: addresses.split(",") for name, addresses in (host.split("=") for host in hosts)}
    served = list(addresses)[:list(addresses).index("dns")]
    dns = addresses.pop("dns")
    loop = asyncio.get_running_loop()
    records = Records()
    endpoints = {name: Endpoint(name, addresses[name], certificates, records) for name in served}
    name_servers = NameServers(dns, {name: first_of_each_family(own) for name, own in addresses.items()})
    await name_servers.listen()
    commands = asyncio.StreamReader()
    await loop.connect_read_pipe(lambda: asyncio.StreamReaderProtocol(commands), sys.stdin)
    print("ready", flush=True)
    while line := await commands.readline():
        print(obey(line, endpoints, name_servers, records), flush=True)


if __name__ == "__main__":
    asyncio.run(main(*sys.argv[1:]))
