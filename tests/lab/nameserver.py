"""The name servers of the lab's Internet, as a part of server.py: each address is a server of its own, over UDP and TCP, and
meets each question as it is told. A question that is answered late delays no other."""

import asyncio
import socket
import struct
import time
from dataclasses import dataclass

PORT = 53
PLAIN_SIZE = 512  # of an answer over UDP to somebody who has not asked for more (RFC 1035, 4.2.1)
FAMILIES = {1: "A", 28: "AAAA"}
CNAME = 5
EDNS = 41  # the record type OPT (RFC 6891)
CODES = {"right": 0, "empty": 0, "formerr": 1, "servfail": 2, "nxdomain": 3, "notimp": 4, "refused": 5}
RESPONSE, TRUNCATED = 0x8180, 0x0200


@dataclass
class Answer:
    """How a question is met."""

    answer: str = "right"  # or "silent", "formerr", "servfail", "nxdomain", "notimp", "refused", "empty" (the name has nothing of that
    # family); or right but for this: "otherId", "otherName", "half" (cut off), "garbage" (but for its id), "aliasOfItself",
    # "aliasOfNothing"
    delay: float = 0  # seconds from the question to the answer
    addresses: list = None  # instead of the right ones
    truncated: bool = False  # over UDP nothing but the advice to ask over TCP
    ttl: int = 60  # seconds


@dataclass
class Rule:
    """An answer for the questions that fit; None fits everything."""

    server: str
    name: str
    family: str
    answer: Answer

    def fits(self, server, name, family):
        return all(wanted in (None, is_) for wanted, is_ in
                   ((self.server, server), (self.name, name), (self.family, family)))


class Question:
    """What a query asks. ValueError where it is none."""

    def __init__(self, query):
        labels, at = [], 12
        try:
            while query[at]:
                labels.append(query[at + 1:at + 1 + query[at]].decode("ascii"))
                at += 1 + query[at]
            self.id, _, _, _, _, more = struct.unpack_from("!6H", query)
            type_, = struct.unpack_from("!H", query, at + 1)
        except (IndexError, struct.error, UnicodeDecodeError) as error:
            raise ValueError("not a DNS query") from error
        self.name, self.family = ".".join(labels).lower(), FAMILIES.get(type_, str(type_))
        self.section = query[12:at + 5]
        self.largest = self._edns_size(query, at + 5) if more else PLAIN_SIZE

    @staticmethod
    def _edns_size(query, at):
        kind, size = struct.unpack_from("!HH", query, at + 1) if len(query) >= at + 5 else (None, 0)
        return max(PLAIN_SIZE, size) if kind == EDNS else PLAIN_SIZE

    def reply(self, answer, addresses, longest=None):
        """The whole answer, or where it is longer than that, or is to be, the advice to ask over TCP."""
        kind = answer.answer
        if kind in CODES and kind != "right":
            addresses = []
        records = [self._record(address, answer.ttl) for address in addresses]
        if kind.startswith("aliasOf"):
            target = b"\xc0\x0c" if kind == "aliasOfItself" else b"\x07nothing\x00"
            records = [struct.pack("!HHHIH", 0xC00C, CNAME, 1, answer.ttl, len(target)) + target]
        data = self._head(CODES.get(kind, 0), len(records)) + b"".join(records)
        if kind == "otherId":
            data = bytes([data[0] ^ 1]) + data[1:]
        elif kind == "otherName":
            data = data.replace(self.section[1:4], b"xxx")
        elif kind == "half":
            data = data[:len(data) // 2]
        elif kind == "garbage":
            data = data[:2] + bytes(range(1, 200))
        if longest is not None and (answer.truncated or len(data) > longest):
            return self._head(TRUNCATED, 0)
        return data

    def _head(self, flags, answers):
        return struct.pack("!6H", self.id, RESPONSE | flags, 1, answers, 0, 0) + self.section

    @staticmethod
    def _record(address, ttl):
        family, type_ = (socket.AF_INET6, 28) if ":" in address else (socket.AF_INET, 1)
        packed = socket.inet_pton(family, address)
        return struct.pack("!HHHIH", 0xC00C, type_, 1, ttl, len(packed)) + packed  # 0xC00C: the name in the question


class NameServers:
    """All of them. `names`: the right addresses of each name, of both families. The queries are kept in the order in which
    they came."""

    def __init__(self, addresses, names):
        self._addresses, self._names = addresses, names
        self._rules, self._tasks = [], set()
        self.queries = []

    async def listen(self):
        loop = asyncio.get_running_loop()
        for address in self._addresses:
            await loop.create_datagram_endpoint(lambda address=address: _OverUDP(self, address), local_addr=(address, PORT))
            await asyncio.start_server(lambda reader, writer, address=address: self._over_tcp(address, reader, writer),
                                       address, PORT)

    def set(self, server, name, family, answer):
        """Of all rules that fit a question the newest counts."""
        self._rules = [rule for rule in self._rules if not Rule(server, name, family, None).fits(
            rule.server, rule.name, rule.family)]
        self._rules.append(Rule(server, name, family, Answer(**answer)))

    def meet(self, server, data, client, send, over):
        """`send` takes the answer, if there is any."""
        try:
            question = Question(data)
        except ValueError:
            return
        record = {"time": time.monotonic(), "server": server, "name": question.name, "family": question.family,
                  "over": over, "client": client[0], "port": client[1], "id": question.id, "answered": None}
        self.queries.append(record)
        answer = next((rule.answer for rule in reversed(self._rules)
                       if rule.fits(server, question.name, question.family)), Answer())
        task = asyncio.ensure_future(self._answer(question, answer, record, send))
        self._tasks.add(task)
        task.add_done_callback(self._tasks.discard)

    async def _answer(self, question, answer, record, send):
        await asyncio.sleep(answer.delay)
        if answer.answer == "silent":
            return
        if question.name not in self._names and answer.answer == "right" and answer.addresses is None:
            answer = Answer(answer="nxdomain")
        send(question.reply(answer, self._addresses_for(question, answer),
                            question.largest if record["over"] == "udp" else None))
        record["answered"] = time.monotonic()

    def _addresses_for(self, question, answer):
        addresses = self._names.get(question.name, []) if answer.addresses is None else answer.addresses
        families = {"A": [address for address in addresses if ":" not in address],
                    "AAAA": [address for address in addresses if ":" in address]}
        return families.get(question.family, [])

    async def _over_tcp(self, server, reader, writer):
        def send(data):
            if not writer.is_closing():
                writer.write(struct.pack("!H", len(data)) + data)

        try:
            while True:
                size, = struct.unpack("!H", await reader.readexactly(2))
                self.meet(server, await reader.readexactly(size), writer.get_extra_info("peername"), send, "tcp")
        except (asyncio.IncompleteReadError, ConnectionError):
            writer.close()


class _OverUDP(asyncio.DatagramProtocol):
    def __init__(self, servers, address):
        self._servers, self._address, self._transport = servers, address, None

    def connection_made(self, transport):
        self._transport = transport

    def datagram_received(self, data, addr):
        self._servers.meet(self._address, data, addr, lambda reply: self._transport.sendto(reply, addr), "udp")
