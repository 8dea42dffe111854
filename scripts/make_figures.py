#!/usr/bin/env python3
"""Writes the tables of the built-in figures that sowfield/display/ includes.

    make_figures.py            writes the tables
    make_figures.py --check    makes them in memory, and names each committed table that differs
"""

import sys
from pathlib import Path

sys.dont_write_bytecode = True

from logo_figure import make_logo  # noqa: E402
from squirrel_figure import make_squirrel  # noqa: E402

TARGET = Path(__file__).resolve().parent.parent / "sowfield" / "display"


def literal(value):
    """Six significant digits, always with a point or an exponent, so that C++ reads a double."""
    text = "%.6g" % (value + 0.0)
    return text if "." in text or "e" in text else text + ".0"


def rows(entries):
    return "".join("{" + ", ".join(entry) + "},\n" for entry in entries)


def tables():
    logo_vertices, logo_faces = make_logo()
    squirrel_vertices, squirrel_faces = make_squirrel()
    return {
        "logo_vertices.inc": rows(map(literal, v) for v in logo_vertices),
        "logo_faces.inc": rows(map(str, face + flags) for face, flags in logo_faces),
        "squirrel_vertices.inc": rows(map(literal, v) for v in squirrel_vertices),
        "squirrel_faces.inc": rows(map(str, face) for face in squirrel_faces),
    }


def main(arguments):
    if arguments not in ([], ["--check"]):
        print(__doc__, file=sys.stderr)
        return 2
    differing = 0
    for name, text in tables().items():
        path = TARGET / name
        if not arguments:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(text.encode("ascii"))
        elif not path.is_file() or path.read_bytes() != text.encode("ascii"):
            print("%s differs from what make_figures.py makes" % path, file=sys.stderr)
            differing += 1
    return 1 if differing else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
