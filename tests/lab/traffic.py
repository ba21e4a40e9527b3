"""Small senders and receivers, run as programs inside the namespaces:

    traffic.py serve             answers UDP datagrams on port 7; on TCP reads and drops on port 9, sends without end on port 19
    traffic.py ping ADDRESS N    sends N datagrams to port 7, one after the other; prints for each how many ms it took to
                                 get there and its answer to get back, until the kernel had it, or "lost"
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
BYTES_ACKED_AT = 120  # tcpi_bytes_acked in struct tcp_info (linux/tcp.h)


def serve():
    echo = _timestamping()
    echo.bind(("", ECHO))
    for port, handle in ((DISCARD, _discard), (CHARGEN, _chargen)):
        threading.Thread(target=_accept, args=(socket.create_server(("", port)), handle), daemon=True).start()
    print("ready", flush=True)
    while True:
        _, arrived, sender = _receive(echo)
        echo.sendto(struct.pack("dd", arrived, time.time()), sender)


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
        sock.send(bytes(16))
        try:
            data, back, _ = _receive(sock)
            there, answered = struct.unpack("dd", data)
            print((there - sent) * 1000, (back - answered) * 1000)
        except TimeoutError:
            print("lost")


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
    {"serve": serve, "ping": ping, "send": send, "receive": receive}[sys.argv[1]](*sys.argv[2:])
