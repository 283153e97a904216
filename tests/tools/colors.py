#!/usr/bin/env python3
"""Computes what tests/OxColorTest.cpp expects, without the library's help.

    python3 tests/tools/colors.py          prints the rows of the tables and the list of greys
    python3 tests/tools/colors.py STEP     prints the figures about every STEP-th colour, from the
                                           first on; 1 is all 2^24 of them and takes minutes

Every single operation is done in double precision and then rounded to single, which for +, -, *
and / gives exactly what single precision gives: a double has more than twice the digits.
"""

import math
import random
import struct
import sys

FLOAT = struct.Struct("<f")
WORD = struct.Struct("<I")


def single(number):
    try:
        return FLOAT.unpack(FLOAT.pack(number))[0]
    except OverflowError:
        return math.copysign(math.inf, number)


def bits(number):
    return WORD.unpack(FLOAT.pack(number))[0]


def after(number, steps=1):
    """The single-precision number that many steps away from zero (or towards it)."""
    return FLOAT.unpack(WORD.pack(bits(number) + steps))[0]


def truncated(number):
    """As the device's conversion to a 32-bit integer does it."""
    if math.isnan(number):
        return 0
    return int(max(-0x80000000, min(0x7FFFFFFF, number)))


def to_hsv(word):
    r, g, b = word >> 16 & 255, word >> 8 & 255, word & 255
    largest, smallest = max(r, g, b), min(r, g, b)
    value = single(single(largest / 255.0) * 100.0)
    if largest == smallest:
        return 0.0, 0.0, value

    delta = largest - smallest
    saturation = single(single(delta / largest) * 100.0)
    if r == largest:
        hue = single(single((g - b) / delta) * 60.0)
    elif g == largest:
        hue = single(120.0 + single(single((b - r) / delta) * 60.0))
    else:
        hue = single(240.0 + single(single((r - g) / delta) * 60.0))
    if hue < 0:
        hue = single(hue + 360.0)
    return hue, saturation, value


def to_rgb(hue, saturation, value, alpha):
    s = single(saturation / 100.0)
    v = single(single(value / 100.0) * 255.0)
    if s == 0:
        return alpha << 24 | (truncated(v) & 255) * 0x010101

    chroma = single(s * v)
    m = single(v - chroma)
    h = single(hue / 60.0)
    sector = truncated(h)
    fraction = single(h - single(sector))
    x = single(fraction * chroma)
    falling, rising = single(v - x), single(m + x)
    channels = {
        1: (falling, v, m),
        2: (m, v, rising),
        3: (m, falling, v),
        4: (rising, m, v),
        5: (v, m, falling),
    }.get(sector, (v, rising, m))
    r, g, b = (truncated(channel) & 255 for channel in channels)
    return alpha << 24 | r << 16 | g << 8 | b


def literal(number):
    if math.isnan(number):
        return "NOT_A_NUMBER"
    if math.isinf(number):
        return "INFINITE" if number > 0 else "-INFINITE"
    text = "%.9g" % number
    return text + ("f" if "." in text or "e" in text else ".0f")


def rgb_words():
    full = [0xFF000000, 0xFFFFFFFF, 0xFFFF0000, 0xFF00FF00, 0xFF0000FF, 0xFFFFFF00, 0xFF00FFFF,
            0xFFFF00FF]
    dark = [0xFF010101, 0xFF010000, 0xFF000100, 0xFF000001, 0xFF010100, 0xFF000101, 0xFF010001]
    near = [0xFFFEFFFF, 0xFFFFFEFF, 0xFFFFFFFE, 0xFFFF0001, 0xFFFF0100, 0xFF807F7F, 0xFF7F8080,
            0xFF2D2D2D, 0xFFFDFDFD, 0xFF808080]
    alphas = [0x00123456, 0x80FEDCBA, 0x01C0FFEE, 0x7F0F3C78]
    # Two of each order of the channels.
    chance = random.Random(1)
    orders = []
    for order in ((0, 1, 2), (0, 2, 1), (1, 0, 2), (1, 2, 0), (2, 0, 1), (2, 1, 0)):
        for _ in range(2):
            levels = sorted(chance.sample(range(256), 3), reverse=True)
            channels = [0, 0, 0]
            for channel, level in zip(order, levels):
                channels[channel] = level
            orders.append(0xFF000000 | channels[0] << 16 | channels[1] << 8 | channels[2])
    return full + dark + near + alphas + orders


def hsv_triples():
    sectors = [(60.0 * i + angle, s, v) for i in range(6) for angle, s, v in
               ((0, 100, 100), (15, 100, 100), (30, 50, 80), (59.5, 33.3, 66.6))]
    borders = [(before, 75, 90) for edge in (60, 120, 180, 240, 300, 360)
               for before in (after(single(edge), -1), after(single(edge), 1))]
    beyond = [(360, 100, 100), (360, 40, 70), (375, 100, 100), (400, 80, 60), (420, 60, 60),
              (719.5, 50, 50), (1080, 100, 100), (-0.0, 100, 100), (-1, 100, 100), (-30, 100, 100),
              (-30, 50, 80), (-59.5, 100, 100), (-60, 100, 100), (-90, 60, 90), (-360, 100, 100)]
    odd = [(0, 0, 100), (200, 0, 50), (200, -0.0, 50), (77, 1e-45, 50), (77, 150, 100),
           (200, 150, 100), (300, 200, 50), (20, -50, 50), (140, -100, 90), (50, 100, 200),
           (250, 30, 101), (10, 0, 101), (10, 0, -1), (110, 70, -30), (310, 100, -100),
           (0, 0, 0), (123, 45, 0), (123, 45, 0.3), (210, 100, 39.2)]
    huge = [(1e9, 50, 50), (1e20, 50, 50), (-1e20, 50, 50), (3e38, 100, 1e-3), (30, 1e20, 50),
            (30, -1e20, 50), (30, 50, 1e9), (150, 50, 1e9), (150, 50, -1e9), (45, 0, 1e10),
            (45, 0, -1e10), (45, 0, 1e6), (100, 3e38, 3e38), (45, 0, 842150400)]
    inf, nan = math.inf, math.nan
    no_number = [(inf, 50, 50), (-inf, 50, 50), (nan, 50, 50), (nan, 100, 100), (inf, 100, 0),
                 (90, inf, 50), (90, -inf, 50), (90, nan, 50), (90, inf, 0), (90, 50, inf),
                 (270, 50, -inf), (90, 50, nan), (0, 0, inf), (0, 0, -inf), (0, 0, nan),
                 (120, 100, inf), (nan, nan, nan), (nan, 0, 50), (inf, 0, 50), (inf, inf, inf)]
    return sectors + borders + beyond + odd + huge + no_number


def tables():
    print("// word, bits of hue, saturation and value, word after the way back")
    for word in rgb_words():
        hsv = to_hsv(word)
        back = to_rgb(*hsv, word >> 24)
        print("    {0x%08X, {0x%08X, 0x%08X, 0x%08X}, 0x%08X},"
              % ((word,) + tuple(map(bits, hsv)) + (back,)))

    print("\n// hue, saturation, value, word")
    for triple in hsv_triples():
        triple = tuple(map(single, triple))
        print("    {%s, %s, %s, 0x%08X}," % (tuple(map(literal, triple)) + (to_rgb(*triple, 255),)))

    greys = [level for level in range(256)
             if to_rgb(*to_hsv(level * 0x010101), 0) != level * 0x010101]
    print("\n// the %d greys that do not come back" % len(greys))
    for level in greys:
        print("    {%d, %d}," % (level, to_rgb(*to_hsv(level * 0x010101), 0) & 255))


def figures(step):
    drifting = largest_drift = digest = 0
    for word in range(0, 1 << 24, step):
        hsv = to_hsv(word)
        back = to_rgb(*hsv, 0)
        if back != word:
            drifting += 1
            largest_drift = max(largest_drift,
                                max(abs((word >> i & 255) - (back >> i & 255)) for i in (0, 8, 16)))
        for part in (bits(hsv[0]), bits(hsv[1]), bits(hsv[2]), back):
            digest = (digest * 31 + part) & 0xFFFFFFFFFFFFFFFF
    print("drifting: %d, by %d at most, digest: 0x%016X" % (drifting, largest_drift, digest))


if __name__ == "__main__":
    if len(sys.argv) == 2:
        figures(int(sys.argv[1]))
    else:
        tables()
