#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Says what the look-up of overlay source-MAC rewrites does to frames, and compares with that what
the chip model and the kernel program do.

The look-up is described here once more, over raw bytes, by nothing but what the documents say. The
same frames go through model and program (kernel_both_tables). Compared are, frame by frame, what
leaves (byte for byte) and what it is counted as; and in the end the hits of each row.

Exit status: 0 when all agree; 77 where the kernel's table cannot be tried; 1 otherwise.
"""

import argparse
import pathlib
import random
import struct
import subprocess
import sys
import tempfile

IPV4, ARP, VLAN, IPV6, SERVICE_VLAN = 0x0800, 0x0806, 0x8100, 0x86DD, 0x88A8
TAGS = (VLAN, SERVICE_VLAN)
LONGEST = 9216
NO_MAC = bytes(6)

# What is done with a frame of each class that is not looked up. The model is a chip's port: it
# drops what is broken. The program is a guest on another's path: it leaves that to its host.
#                      model      program
NOT_LOOKED_UP = {
    "too short":         ("drops", "passes"),
    "reserved VLAN":     ("drops", "passes"),
    "double-tagged":     ("passes", "passes"),
    "ARP":               ("passes", "passes"),
    "IPv6":              ("passes", "passes"),
    "other protocol":    ("passes", "passes"),
    "bad IPv4 header":   ("drops", "passes"),
    "IPv4 cut short":    ("drops", "passes"),
    "bad IPv4 checksum": ("drops", "passes"),
}
# Only the model drops long frames ("too long"): the kernel's devices have an MTU of their own.
# Only the program knows no VLAN for a frame ("no VLAN"): the model's port has an access VLAN.


def checksum_is_right(header):
    total = sum(struct.unpack(f">{len(header) // 2}H", header))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return total == 0xFFFF


def classify(frame):
    """The frame's class, the VLAN of its tag (0 without one) and its IPv4 source address; of the
    classes that are looked up, "IPv4"."""
    if len(frame) < 14:
        return "too short", 0, None
    (kind,) = struct.unpack_from(">H", frame, 12)
    at, vlan = 14, 0
    if kind in TAGS:
        if len(frame) < 18:
            return "too short", 0, None
        control, kind = struct.unpack_from(">HH", frame, 14)
        at, vlan = 18, control & 0xFFF
    if vlan == 4095:
        return "reserved VLAN", vlan, None
    if at == 18 and kind in TAGS:
        return "double-tagged", vlan, None
    if kind != IPV4:
        return {ARP: "ARP", IPV6: "IPv6"}.get(kind, "other protocol"), vlan, None
    packet = frame[at:]
    if len(packet) < 20:
        return "bad IPv4 header", vlan, None
    header = 4 * (packet[0] & 15)
    (total,) = struct.unpack_from(">H", packet, 2)
    if packet[0] >> 4 != 4 or header < 20 or header > len(packet) or total < header:
        return "bad IPv4 header", vlan, None
    if total > len(packet):
        return "IPv4 cut short", vlan, None
    if not checksum_is_right(packet[:header]):
        return "bad IPv4 checksum", vlan, None
    return "IPv4", vlan, packet[12:16]


def look_up(rows, vlan, source, frame):
    """The verdict, the frame as it leaves, and the key of the row that was hit."""
    key = struct.pack("<BH4sB", 5, vlan, source, 1)
    if key not in rows:
        return "no row", frame, None
    upper, lower = struct.unpack("<II", rows[key])
    mac = upper.to_bytes(4, "big")[1:] + lower.to_bytes(4, "big")[1:]
    if mac == NO_MAC:
        return "no MAC configured", frame, key
    return "rewritten", frame[:6] + mac + frame[12:], key


def model(rows, frame, access_vlan):
    kind, vlan, source = classify(frame)
    if kind == "too short":
        return kind, b"", None
    if len(frame) > LONGEST:
        return "too long", b"", None
    if kind != "IPv4":
        return kind, frame if NOT_LOOKED_UP[kind][0] == "passes" else b"", None
    return look_up(rows, vlan or access_vlan, source, frame)


def program(rows, frame, device_vlan):
    kind, vlan, source = classify(frame)
    if kind != "IPv4":
        return kind, frame if NOT_LOOKED_UP[kind][1] == "passes" else b"", None
    if not (device_vlan or vlan):
        return "no VLAN", frame, None
    return look_up(rows, device_vlan or vlan, source, frame)


# --- Rows and frames ------------------------------------------------------------------------------

VLANS = (1, 100, 200, 300, 4094)
SOURCES = [bytes((10, 1, a, b)) for a in (1, 2) for b in range(1, 33)] + [bytes((10, 1, 1, 20))]


def some_rows(rng):
    rows = {}
    for vlan in VLANS:
        for source in SOURCES:
            if rng.random() < 0.3:
                continue
            mac = NO_MAC if rng.random() < 0.15 else rng.randbytes(6)
            top = rng.choice((0, 0, 0, 0xFF))
            rows[struct.pack("<BH4sB", 5, vlan, source, 1)] = (
                mac[2::-1] + bytes([top]) + mac[:2:-1] + bytes([top]))
    # Rows that no frame matches.
    rows[struct.pack("<BH4sB", 5, 100, SOURCES[0], 0)] = rng.randbytes(8)
    rows[struct.pack("<BH4sB", 4, 100, SOURCES[0], 1)] = rng.randbytes(8)
    return rows


def with_checksum(header):
    header = header[:10] + b"\0\0" + header[12:]
    total = sum(struct.unpack(f">{len(header) // 2}H", header))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return header[:10] + struct.pack(">H", total ^ 0xFFFF) + header[12:]


def ipv4(rng):
    options = rng.randbytes(4 * rng.choice((0, 0, 0, 0, rng.randrange(11))))
    size = rng.choice((0, 8, 18, 64, 512, 1400, 1480)) if rng.random() < 0.99 else rng.randrange(9400)
    payload = rng.randbytes(size)
    source = rng.choice(SOURCES) if rng.random() < 0.9 else rng.randbytes(4)
    fragment = rng.choice((0, 0, 0, 0x4000, 0x2000, 0x2010, 185))
    header = struct.pack(">BBHHHBBH4s4s", 0x45 + len(options) // 4, rng.randrange(256),
                         20 + len(options) + len(payload), rng.randrange(65536), fragment,
                         rng.randrange(256), rng.choice((1, 6, 17, 47)), 0, source,
                         rng.randbytes(4)) + options
    return with_checksum(header) + payload


def some_frame(rng):
    kind = rng.choice((IPV4,) * 12 + (ARP, IPV6, rng.randrange(65536), rng.randrange(1536)))
    body = ipv4(rng) if kind == IPV4 else rng.randbytes(rng.randrange(100))
    head = rng.randbytes(12)
    for _ in range(rng.choice((0, 0, 0, 0, 1, 1, 1, 1, 2, 3)) if rng.random() < 0.9 else 1):
        vlan = rng.choice(VLANS + (0, 4095, rng.randrange(4096)))
        body = struct.pack(">HH", rng.randrange(16) << 12 | vlan, kind) + body
        kind = rng.choice(TAGS + (VLAN, VLAN))
    frame = head + struct.pack(">H", kind) + body
    if rng.random() < 0.1:
        frame += rng.randbytes(rng.randrange(1, 40))
    if rng.random() < 0.15:
        frame = frame[:rng.randrange(14, len(frame) + 1)]
    if rng.random() < 0.2:
        broken = bytearray(frame)
        for _ in range(rng.randrange(1, 4)):
            broken[rng.randrange(min(len(broken), 60))] = rng.randrange(256)
        frame = bytes(broken)
    return frame


def frames_of_capture(path):
    """The frames of a classic pcap file."""
    data = path.read_bytes()
    order = "<" if data[:4] in (b"\xd4\xc3\xb2\xa1", b"\x4d\x3c\xb2\xa1") else ">"
    at = 24
    while at < len(data):
        (kept,) = struct.unpack_from(order + "I", data, at + 8)
        yield data[at + 16:at + 16 + kept]
        at += 16 + kept


# --- Comparing ------------------------------------------------------------------------------------

class Results:
    def __init__(self, data):
        self.data, self.at = data, 0

    def take(self, count):
        self.at += count
        return self.data[self.at - count:self.at]

    def text(self):
        return self.take(self.take(1)[0]).decode()

    def frame(self):
        return self.take(struct.unpack("<I", self.take(4))[0])


class Comparison:
    def __init__(self, tool):
        self.tool, self.frames, self.wrong, self.ways = tool, 0, 0, {}
        self.seen = {"model": {}, "program": {}}

    def differ(self, what, expected, found, frame=b""):
        self.wrong += 1
        if self.wrong <= 10:
            print(f"{what}: expected {expected}, found {found}; frame {frame.hex()}")

    def compare(self, rows, frames, device_vlan, access_vlan):
        with tempfile.TemporaryDirectory() as folder:
            folder = pathlib.Path(folder)
            (folder / "rows").write_bytes(b"".join(k + a for k, a in rows.items()))
            (folder / "frames").write_bytes(
                b"".join(struct.pack("<I", len(f)) + f for f in frames))
            ran = subprocess.run([self.tool, folder / "rows", folder / "frames", folder / "out",
                                  str(device_vlan), str(access_vlan)],
                                 stdout=subprocess.PIPE, text=True, timeout=600)
            if ran.returncode == 77:
                print(ran.stdout, end="")
                sys.exit(77)
            if ran.returncode != 0:
                sys.exit("kernel_both_tables failed")
            results = Results((folder / "out").read_bytes())
        for part in ran.stdout.strip().split(", "):
            way, number = part.rsplit(" ", 1)
            self.ways[way] = self.ways.get(way, 0) + int(number)

        hits = {"model": dict.fromkeys(rows, 0), "program": dict.fromkeys(rows, 0)}
        for frame in frames:
            self.frames += 1
            verdicts = {"model": results.text(), "program": results.text()}
            left = {"model": results.frame(), "program": results.frame()}
            expected = {"model": model(rows, frame, access_vlan),
                        "program": program(rows, frame, device_vlan)}
            if verdicts["program"] == "not taken" and len(frame) < 14:
                del expected["program"]
            for who, (verdict, out, key) in expected.items():
                self.seen[who][verdict] = self.seen[who].get(verdict, 0) + 1
                if verdict != verdicts[who]:
                    self.differ(f"{who}'s verdict", verdict, verdicts[who], frame)
                if out != left[who]:
                    self.differ(f"{who}'s frame", out.hex(), left[who].hex(), frame)
                if key is not None:
                    hits[who][key] += 1
        for key in rows:
            for who in ("model", "program"):
                (found,) = struct.unpack("<Q", results.take(8))
                if found != hits[who][key]:
                    self.differ(f"{who}'s hits of {key.hex()}", hits[who][key], found)
        if results.at != len(results.data):
            self.differ("results", f"{results.at} bytes", f"{len(results.data)} bytes")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("tool", help="the program kernel_both_tables")
    parser.add_argument("--frames", type=int, default=20_000, help="frames that are generated")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--capture", type=pathlib.Path, action="append", default=[])
    parser.add_argument("--corpus", type=pathlib.Path, help="inputs of the packet parser's fuzzer")
    options = parser.parse_args()

    comparison = Comparison(options.tool)
    given = [frame for path in options.capture for frame in frames_of_capture(path)]
    if options.corpus:
        # The first byte of an input is not of the frame.
        given += [path.read_bytes()[1:] for path in sorted(options.corpus.iterdir())]
    rng = random.Random(options.seed)
    print(f"seed {options.seed}")
    rows = some_rows(rng)
    # A frame's VLAN is its device's, or its tag's; the model's port has the access VLAN of both.
    modes = ((100, 100), (0, 1))
    for device_vlan, access_vlan in modes:
        if given:
            comparison.compare(rows, given, device_vlan, access_vlan)
    left = options.frames
    while left > 0:
        rows = some_rows(rng)
        batch = [some_frame(rng) for _ in range(min(left, 10_000))]
        left -= len(batch)
        for device_vlan, access_vlan in modes:
            comparison.compare(rows, batch, device_vlan, access_vlan)

    ways = ", ".join(f"{way} {number}" for way, number in comparison.ways.items())
    print(f"{comparison.frames} frames ({len(modes)} ways to a VLAN): {ways}")
    for who, seen in comparison.seen.items():
        print(f"{who}: " + ", ".join(f"{verdict} {count}" for verdict, count in sorted(seen.items())))
    missing = [verdict for verdict in (*NOT_LOOKED_UP, "rewritten", "no row", "no MAC configured")
               for seen in comparison.seen.values() if verdict not in seen and verdict != "too short"]
    if options.frames >= 10_000 and missing:
        comparison.differ("classes that no frame was of", [], missing)
    print("all agree" if comparison.wrong == 0 else f"{comparison.wrong} differences")
    return comparison.wrong != 0


if __name__ == "__main__":
    sys.exit(main())
