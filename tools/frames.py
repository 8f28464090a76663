#!/usr/bin/python3
"""Cuts a file into Ethernet frames for kelcat, and puts it together again, piece by piece.

frames.py pack PROTOCOL < FILE | kelcat packet:INTERFACE --send-only     frames as hexadecimal text, broadcast
kelcat packet:INTERFACE,PROTOCOL --raw --count N | frames.py unpack > FILE     fails when a frame is missing
"""

import struct
import sys

HEADER = struct.Struct("!6s6sHIH")  # Ethernet: receiver, sender, protocol; ours: number, length of the data
DATA = 1514 - HEADER.size           # bytes of the file in a frame that every Ethernet takes
SHORTEST = 60                       # of any frame: an interface fills up what is shorter
BROADCAST, SENDER = b"\xff" * 6, b"\x02\x00\x00\x00\x00\x01"
LINES = [(f"{offset:04x}  ", 3 * offset, 3 * offset + 47) for offset in range(0, HEADER.size + DATA, 16)]


def count(size):
    """How many frames a file of so many bytes takes; an empty one takes one."""
    return max(1, -(-size // DATA))


def pack(file, protocol):
    """The file's frames as text, one after the other, each with the number of bytes of the file that it carries."""
    number = 0
    data = file.read(DATA)
    while data or number == 0:
        frame = (HEADER.pack(BROADCAST, SENDER, protocol, number, len(data)) + data).ljust(SHORTEST, b"\0")
        digits = frame.hex(" ")
        lines = LINES[:-(-len(frame) // 16)]
        yield "".join([f"{offset}{digits[start:end]}\n" for offset, start, end in lines]).encode(), len(data)
        number += 1
        data = file.read(DATA)


class Unpacker:
    """Takes frames as bytes, in pieces of any size, and gives what they carry."""

    def __init__(self):
        self.rest = b""
        self.expected = 0

    def take(self, piece):
        frames = self.rest + piece
        start, carried = 0, []
        while start + HEADER.size <= len(frames):
            *_, number, length = HEADER.unpack_from(frames, start)
            size = max(HEADER.size + length, SHORTEST)
            if start + size > len(frames):
                break
            if number != self.expected:
                raise ValueError(f"frame {self.expected} is missing, {number} came in its place")
            data = start + HEADER.size
            carried.append(frames[data:data + length])
            self.expected += 1
            start += size
        self.rest = frames[start:]
        return b"".join(carried)


def main(verb="", protocol=None):
    if verb == "pack" and protocol:
        for text, _ in pack(sys.stdin.buffer, int(protocol, 0)):
            sys.stdout.buffer.write(text)
    elif verb == "unpack" and not protocol:
        unpacker = Unpacker()
        while piece := sys.stdin.buffer.read1(1 << 16):
            sys.stdout.buffer.write(unpacker.take(piece))
        if unpacker.rest:
            raise ValueError(f"frame {unpacker.expected} is not whole")
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    try:
        main(*sys.argv[1:3])
    except ValueError as error:
        sys.exit(f"frames: {error}")
