#!/usr/bin/env python3
"""Writes the colour tables of the installation tree (share/vorlan/lut).

Each table is 256 rows of an index and 16-bit red, green and blue, made by
linear interpolation between a few control colours of our own choosing.
Run from the repository's top:  python3 scripts/make_luts.py
"""
import os

# name: (description, [(position 0..1, (r, g, b) 0..255), ...])
TABLES = {
    "rainbow": (
        "Violet through blue, green, yellow and orange to red",
        [(0.0, (110, 0, 160)), (0.17, (0, 0, 255)), (0.34, (0, 170, 255)),
         (0.5, (0, 200, 0)), (0.67, (255, 240, 0)), (0.84, (255, 130, 0)),
         (1.0, (220, 0, 0))],
    ),
    "heat": (
        "Black through red, orange and yellow to white",
        [(0.0, (0, 0, 0)), (0.35, (200, 0, 0)), (0.6, (255, 120, 0)),
         (0.85, (255, 235, 40)), (1.0, (255, 255, 255))],
    ),
    "terrain": (
        "Elevation: deep and shallow water, lowland green, upland brown, rock and snow",
        [(0.0, (0, 30, 110)), (0.2, (40, 120, 210)), (0.25, (120, 190, 230)),
         (0.26, (60, 150, 70)), (0.45, (150, 190, 90)), (0.65, (170, 130, 70)),
         (0.82, (120, 100, 90)), (0.92, (200, 200, 200)), (1.0, (255, 255, 255))],
    ),
    "greenness": (
        "Vegetation index: water blue, bare ground tan, sparse cover yellow, dense cover deep green",
        [(0.0, (20, 50, 120)), (0.3, (60, 110, 170)), (0.36, (190, 175, 150)),
         (0.55, (215, 200, 120)), (0.75, (120, 175, 70)), (1.0, (10, 85, 30))],
    ),
    "bluered": (
        "Diverging: dark blue through white to dark red",
        [(0.0, (20, 40, 130)), (0.25, (90, 150, 220)), (0.5, (250, 250, 250)),
         (0.75, (230, 120, 90)), (1.0, (140, 10, 20))],
    ),
}


def colour_at(stops, x):
    """The interpolated colour at x, in 16 bits per channel."""
    for (x0, c0), (x1, c1) in zip(stops, stops[1:]):
        if x <= x1:
            f = 0.0 if x1 == x0 else (x - x0) / (x1 - x0)
            return tuple(round((a + (b - a) * f) * 257) for a, b in zip(c0, c1))
    return tuple(c * 257 for c in stops[-1][1])


def write_table(folder, name, description, stops):
    rows = []
    for i in range(256):
        r, g, b = colour_at(stops, i / 255.0)
        rows.append("\t\t%d\t%d\t%d\t%d\n" % (i, r, g, b))
    text = ("LookUpTable Begin\n"
            "\tVersion\t\t= \"1.0\"\n"
            "\tName\t\t= \"%s\"\n"
            "\tDescription\t= \"%s\"\n"
            "\tLoadMethod\t= Compress\n"
            "\tNrEntries\t= 256\n"
            "\tLUT\t\t\t= {\n%s\t}\n"
            "LookUpTable End\n") % (name, description, "".join(rows))
    with open(os.path.join(folder, name + ".lut"), "w") as f:
        f.write(text)


def main():
    folder = os.path.join("share", "vorlan", "lut")
    for name, (description, stops) in TABLES.items():
        write_table(folder, name, description, stops)


if __name__ == "__main__":
    main()
