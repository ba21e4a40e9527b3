"""Small senders and receivers, run as programs inside the namespaces:

    traffic.py serve             answers UDP datagrams on port 7; on TCP reads and drops on port 9, sends without end on port 19
    traffic.py ping ADDRESS N    sends N datagrams to port 7, one after the other; prints for each how many ms it took to
                                 get there and its answer to get back, until the kernel had it, or "lost"
    traffic.py burst ADDRESS N   sends N numbered datagrams to port 7 at once; prints the numbers as they come back
    traffic.py resolve NAME FAMILY
                                 prints the addresses that the C library finds ("inet", "inet6", "unspec"), or its error
    traffic.py send ADDRESS S    sends to port 9 for S seconds; prints the bytes that the other side has acknowledged
    traffic.py receive ADDRESS S reads from port 19 for S seconds; prints the bytes
"""

import socket
import struct
import sys
import threading
import time

ECHO, DISCARD, CHARGEN = 7, 9, 19
SO_TIMESTAMPNS = 35  # asm-generic/socket.h
BLOCK = bytes(65536)
TIMES = 16  # bytes at the start of a datagram, for the times in its answer
BYTES_ACKED_AT = 120  # tcpi_bytes_acked in struct tcp_info (linux/tcp.h)


def serve():
    echo = _timestamping()
    echo.bind(("", ECHO))
    for port, handle in ((DISCARD, _discard), (CHARGEN, _chargen)):
        threading.Thread(target=_accept, args=(socket.create_server(("", port)), handle), daemon=True).start()
    print("ready", flush=True)
    while True:
        data, arrived, sender = _receive(echo)
        echo.sendto(struct.pack("dd", arrived, time.time()) + data[TIMES:], sender)


def _timestamping():
    """A UDP socket whose datagrams carry the moment at which the kernel got them, whoever was awake to read them."""
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
    return sock


def _receive(sock):
    data, [(_, _, stamp)], _, sender = sock.recvmsg(2048, 256)
    seconds, nanoseconds = struct.unpack("qq", stamp)
    return data, seconds + nanoseconds / 1e9, sender


def _accept(listener, handle):
    while True:
        threading.Thread(target=handle, args=(listener.accept()[0],), daemon=True).start()


def _discard(client):
    while client.recv(len(BLOCK)):
        pass


def _chargen(client):
    try:
        while True:
            client.sendall(BLOCK)
    except ConnectionError:
        pass


def ping(address, count):
    sock = _timestamping()
    sock.connect((address, ECHO))
    sock.settimeout(0.3)
    for _ in range(int(count)):
        sent = time.time()
        sock.send(bytes(TIMES))
        try:
            data, back, _ = _receive(sock)
            there, answered = struct.unpack("dd", data)
            print((there - sent) * 1000, (back - answered) * 1000)
        except TimeoutError:
            print("lost")


def burst(address, count):
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.connect((address, ECHO))
    sock.settimeout(1)
    for number in range(int(count)):
        sock.send(bytes(TIMES) + str(number).encode())
    try:
        while True:
            print(sock.recv(64)[TIMES:].decode())
    except TimeoutError:
        pass


def resolve(name, family):
    try:
        found = socket.getaddrinfo(name, 443, getattr(socket, f"AF_{family.upper()}"), socket.SOCK_STREAM)
    except socket.gaierror as error:
        print(next(key for key, value in vars(socket).items() if key.startswith("EAI_") and value == error.errno))
    else:
        print(*(address[0] for *_, address in found), sep="\n")


def send(address, seconds):
    sock = socket.create_connection((address, DISCARD))
    sock.settimeout(1)
    deadline = time.monotonic() + float(seconds)
    while time.monotonic() < deadline:
        sock.send(BLOCK)
    info = sock.getsockopt(socket.IPPROTO_TCP, socket.TCP_INFO, 256)
    print(struct.unpack_from("Q", info, BYTES_ACKED_AT)[0])


def receive(address, seconds):
    sock = socket.create_connection((address, CHARGEN))
    deadline, received = time.monotonic() + float(seconds), 0
    while time.monotonic() < deadline:
        received += len(sock.recv(len(BLOCK)))
    print(received)


if __name__ == "__main__":
    {"serve": serve, "ping": ping, "burst": burst, "resolve": resolve, "send": send, "receive": receive}[sys.argv[1]](*sys.argv[2:])
