"""A hotspot that loses its signal without a word: the interface stays up, the kept connections stay open, nothing comes
through."""

import time

SYN, ACK = 0x02, 0x10
HOLE = 50


def test_after_a_black_hole_the_first_probe_possible_turns_the_dot_green(lab):
    lab.link.set(rtt_ms=50)
    lab.start()
    lab.link.set(hole=True)
    lab.area.wait_for("red", 5 + 3 + 0.5 + 3 + 0.5)
    time.sleep(HOLE)
    known = {packet["near_port"] for packet in lab.link.trace("up")}
    lab.link.set(hole=False)
    ended = time.monotonic()
    assert "green" not in [colour for _, colour in lab.area.dots(ended)]
    green = lab.area.wait_for("green", 8, since=ended)
    new_probes = [packet["time"] for packet in lab.link.trace("up")
                  if packet["flags"] & (SYN | ACK) == SYN and packet["near_port"] not in known]
    print(f"green {green.time - ended:.2f} s after the hole, {green.time - min(new_probes):.2f} s after the probe's start")
    # a connection begun in the hole may also come through: the kernel asks again 1 s after the first try
    assert green.time <= min(new_probes) + 0.5
