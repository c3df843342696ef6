"""Cuts a LAS file of version 1.0 to 1.3 into several of one header, whose points follow one another.

usage: cut_scan.py SCAN.las COUNT OUT_PREFIX

Each file states the bounds of the whole scan.
"""

import struct
import sys


def main():
    scan, count, prefix = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    with open(scan, "rb") as file:
        data = file.read()
    begin, = struct.unpack_from("<I", data, 96)
    size, points = struct.unpack_from("<HI", data, 105)
    for part in range(count):
        first = points * part // count
        last = points * (part + 1) // count
        header = bytearray(data[:begin])
        struct.pack_into("<I", header, 107, last - first)
        with open(f"{prefix}{part}.las", "wb") as out:
            out.write(header + data[begin + first * size:begin + last * size])


if __name__ == "__main__":
    main()
