"""Compares the pictures of two walks, pixel by pixel, and puts two of them side by side.

Usage: compare.py FOLDER FOLDER PICTURE [KEPT]

The two go to the file PICTURE, and are to be those of the file KEPT."""

import os
import sys

from stage import Picture

SHOWN = "display.png"
GAP = 24  # pixels between the two, and around them
GROUND, LINE = b"\xc4\xc8\xd0", b"\x6b\x72\x80"  # of the gap, and of the edge of each


def count_differences(one, other):
    if (one.width, one.height) != (other.width, other.height):
        return max(one.width * one.height, other.width * other.height)
    return sum(one.rgb[i:i + 3] != other.rgb[i:i + 3] for i in range(0, len(one.rgb), 3))


def put_side_by_side(left, right):
    """Each with an edge, on a ground that is neither white nor black, as pages may be."""
    width = 3 * GAP + 2 * (left.width + 2)
    gap, margin = GROUND * GAP, [GROUND * width] * GAP
    edge = gap + (LINE * (left.width + 2) + gap) * 2
    rows = margin + [edge]
    for y in range(left.height):
        row = slice(3 * left.width * y, 3 * left.width * (y + 1))
        rows.append(gap + b"".join(LINE + one.rgb[row] + LINE + gap for one in (left, right)))
    rows += [edge] + margin
    return Picture(width, len(rows), b"".join(rows))


def main():
    folder, other_folder, picture, *kept = sys.argv[1:]
    names = sorted(name for name in os.listdir(folder) if name != "walk.png")
    if names != sorted(name for name in os.listdir(other_folder) if name != "walk.png"):
        sys.exit("the walks have taken different pictures")
    if SHOWN not in names:
        sys.exit("the walks have not taken " + SHOWN)
    differences = 0
    for name in names:
        one, other = (Picture.read(os.path.join(where, name)) for where in (folder, other_folder))
        count = count_differences(one, other)
        differences += count
        if count > 0:
            print("%s: %d pixels differ" % (name, count))
        if name == SHOWN:
            both = put_side_by_side(one, other)
            both.write(picture)
    print("%d pictures of the same program, %d pixels differ" % (len(names), differences))
    print("%s  one of them, left from %s, right from %s" % (picture, folder, other_folder))
    for path in kept:
        count = count_differences(both, Picture.read(path))
        if count > 0:
            sys.exit("%s is of an earlier panel, %d pixels differ: --update makes it anew" % (path, count))
    return 1 if differences > 0 else 0


if __name__ == "__main__":
    sys.exit(main())
