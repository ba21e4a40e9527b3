"""capture.py DEVICE: notes each TCP packet of port 443 over IPv4, with the moment at which the kernel sent or received it. Prints
"ready"; answers each line with all that there was as JSON: [time, whether sent, near port, far address, bytes of payload]."""

import json
import socket
import struct
import sys
import threading

TIMESTAMPS = 35  # SO_TIMESTAMPNS in asm-generic/socket.h
ALL, TCP, HTTPS = 3, 6, 443  # ETH_P_ALL: what is sent is seen by those who want all


def payload(packet):
    """(source, destination, source port, destination port, bytes of payload); None where it is not TCP over IPv4."""
    head = (packet[0] & 15) * 4
    if packet[0] >> 4 != 4 or packet[9] != TCP:
        return None
    source_port, destination_port = struct.unpack_from("!HH", packet, head)
    size = struct.unpack_from("!H", packet, 2)[0] - head - (packet[head + 12] >> 4) * 4
    return socket.inet_ntoa(packet[12:16]), socket.inet_ntoa(packet[16:20]), source_port, destination_port, size


def listen(sock, packets):
    while True:
        packet, [(_, _, stamp)], _, (_, _, kind, *_) = sock.recvmsg(128, 256)
        seconds, nanoseconds = struct.unpack("qq", stamp)
        sent = kind == socket.PACKET_OUTGOING
        if found := payload(packet):
            source, destination, source_port, destination_port, size = found
            near, far, port = (source_port, destination, destination_port) if sent else (destination_port, source, source_port)
            if port == HTTPS:
                packets.append((seconds + nanoseconds / 1e9, sent, near, far, size))


def main(device):
    sock = socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, socket.htons(ALL))
    sock.setsockopt(socket.SOL_SOCKET, TIMESTAMPS, 1)
    sock.bind((device, ALL))
    packets = []
    threading.Thread(target=listen, args=(sock, packets), daemon=True).start()
    print("ready", flush=True)
    for _ in sys.stdin:
        print(json.dumps(list(packets)), flush=True)


if __name__ == "__main__":
    main(*sys.argv[1:])
