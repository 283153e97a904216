"""Compares the pictures of two walks, pixel by pixel, and puts two of them side by side.

Usage: compare.py FOLDER FOLDER PICTURE"""

import os
import sys

from stage import Picture

SHOWN = "accent.png"
GAP = 16  # pixels


def count_differences(one, other):
    if (one.width, one.height) != (other.width, other.height):
        return max(one.width * one.height, other.width * other.height)
    return sum(one.rgb[i:i + 3] != other.rgb[i:i + 3] for i in range(0, len(one.rgb), 3))


def put_side_by_side(left, right):
    white = b"\xff" * 3 * GAP
    rows = []
    for y in range(left.height):
        row = slice(3 * left.width * y, 3 * left.width * (y + 1))
        rows.append(left.rgb[row] + white + right.rgb[row])
    return Picture(left.width + GAP + right.width, left.height, b"".join(rows))


def main():
    folder, other_folder, picture = sys.argv[1:]
    names = sorted(name for name in os.listdir(folder) if name != "walk.png")
    if names != sorted(name for name in os.listdir(other_folder) if name != "walk.png"):
        sys.exit("the walks have taken different pictures")
    differences = 0
    for name in names:
        one, other = (Picture.read(os.path.join(where, name)) for where in (folder, other_folder))
        count = count_differences(one, other)
        differences += count
        if count > 0:
            print("%s: %d pixels differ" % (name, count))
        if name == SHOWN:
            put_side_by_side(one, other).write(picture)
    print("%d pictures of the same program, %d pixels differ" % (len(names), differences))
    print("%s  one of them, left from %s, right from %s" % (picture, folder, other_folder))
    return 1 if differences > 0 or not names else 0


if __name__ == "__main__":
    sys.exit(main())
