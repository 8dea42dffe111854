#!/usr/bin/env python3
"""Makes the example models: a terrain, four plants and a rock, as OBJ with MTL.

    make_models.py            writes examples/models/
    make_models.py --check    makes them in memory, and names each committed file that differs

Y is up, one unit is one metre, faces wind anticlockwise seen from outside, and each plant stands
with its base at the origin.
"""

import sys
from math import cos, pi, radians, sin, sqrt
from pathlib import Path

TARGET = Path(__file__).resolve().parent / "models"
GOLDEN_TURN = radians(137.5077640)  # spreads shoots so that none hides another from above
BYTE_LIMIT = 3_000_000

COLOURS = {
    "bark": (0.33, 0.23, 0.15),
    "needles_dark": (0.10, 0.25, 0.13),
    "needles_light": (0.18, 0.36, 0.17),
    "leaves_dark": (0.17, 0.36, 0.10),
    "leaves_light": (0.33, 0.53, 0.16),
    "blade_dark": (0.22, 0.42, 0.12),
    "blade_light": (0.42, 0.58, 0.20),
    "stem": (0.25, 0.45, 0.16),
    "petal": (0.93, 0.90, 0.96),
    "petal_back": (0.86, 0.74, 0.90),
    "pollen": (0.95, 0.72, 0.12),
    "stone": (0.48, 0.46, 0.43),
    "grass": (0.30, 0.44, 0.17),
    "meadow": (0.43, 0.49, 0.22),
    "path": (0.55, 0.45, 0.32),
}


# --- vectors and chance --------------------------------------------------------------------------


def add(a, b, scale=1.0):
    return (a[0] + scale * b[0], a[1] + scale * b[1], a[2] + scale * b[2])


def dot(a, b):
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]


def cross(a, b):
    return (a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0])


def unit(a):
    length = sqrt(dot(a, a))
    return (a[0] / length, a[1] / length, a[2] / length)


def face_normal(p, q, r):
    return cross(add(q, p, -1.0), add(r, p, -1.0))


def chance(*numbers):
    """A fixed number from 0 to 1 for each row of integers: the models are the same at each run."""
    state = 0x9E3779B9
    for n in numbers:
        state = ((state ^ (n & 0xFFFFFFFF)) * 0x85EBCA6B) & 0xFFFFFFFF
        state ^= state >> 13
        state = (state * 0xC2B2AE35) & 0xFFFFFFFF
        state ^= state >> 16
    return state / 0xFFFFFFFF


def between(low, high, *numbers):
    return low + (high - low) * chance(*numbers)


def noise(x, y, z, seed):
    """Smooth noise from -1 to 1 with a lattice of step 1."""
    ix, iy, iz = (int(c // 1) for c in (x, y, z))
    weights = [t * t * (3.0 - 2.0 * t) for t in (x - ix, y - iy, z - iz)]
    total = 0.0
    for corner in range(8):
        weight = 1.0
        for axis in range(3):
            weight *= weights[axis] if corner >> axis & 1 else 1.0 - weights[axis]
        total += weight * chance(ix + (corner & 1), iy + (corner >> 1 & 1), iz + (corner >> 2),
                                 seed)
    return 2.0 * total - 1.0


# --- models --------------------------------------------------------------------------------------


class Model:
    """Vertices and, for each material, faces; `uvs` has one entry for each vertex or is empty."""

    def __init__(self, name, digits, smooth):
        self.name, self.digits, self.smooth = name, digits, smooth
        self.vertices, self.uvs, self.faces = [], [], {}

    def add_faces(self, faces, material, base=0):
        rows = self.faces.setdefault(material, [])
        rows += [(base + a, base + b, base + c) for a, b, c in faces]

    def add_solid(self, vertices, faces, material):
        """Adds a closed part, after seeing that it is closed and has its outside out."""
        edges = {(f[i], f[(i + 1) % 3]) for f in faces for i in range(3)}
        assert len(edges) == 3 * len(faces) and all((b, a) in edges for a, b in edges)
        vertices = [tuple(round(c, self.digits) for c in v) for v in vertices]
        volume = sum(dot(vertices[a], cross(vertices[b], vertices[c])) for a, b, c in faces)
        assert volume > 0.0, "a part of %s is inside out" % self.name
        for face in faces:
            normal = face_normal(*(vertices[v] for v in face))
            assert dot(normal, normal) > 0.0, "a face of %s has no area" % self.name
        base = len(self.vertices)
        self.vertices += vertices
        self.add_faces(faces, material, base)

    def face_count(self):
        return sum(len(rows) for rows in self.faces.values())

    def obj(self):
        lines = ["mtllib %s.mtl" % self.name, "o %s" % self.name]
        form = "%%.%df" % self.digits
        lines += ["v " + " ".join(form % (c + 0.0) for c in v) for v in self.vertices]
        lines += ["vt %.4f %.4f" % uv for uv in self.uvs]
        lines.append("s 1" if self.smooth else "s off")
        corner = "{0}/{0}" if self.uvs else "{0}"
        for material, faces in self.faces.items():
            lines.append("usemtl " + material)
            lines += ["f " + " ".join(corner.format(v + 1) for v in face) for face in faces]
        return "\n".join(lines) + "\n"

    def mtl(self):
        parts = []
        for material in self.faces:
            parts.append("newmtl %s\nKd %.2f %.2f %.2f\nKs 0.00 0.00 0.00\nillum 1\n"
                         % ((material,) + COLOURS[material]))
        return "\n".join(parts)


def tube(centres, radii, sides, turn=0.0):
    """A closed tube round a rising line of centres; a radius of 0 at the end makes a point."""
    vertices, faces = [], []
    pointed = radii[-1] == 0.0
    rings = len(centres) - 1 if pointed else len(centres)
    for i in range(rings):
        for j in range(sides):
            angle = turn + 2 * pi * j / sides
            spoke = (cos(angle), 0.0, -sin(angle))
            vertices.append(add(centres[i], spoke, radii[i]))
    for i in range(rings - 1):
        for j in range(sides):
            a, b = i * sides + j, i * sides + (j + 1) % sides
            faces += [(a, b, b + sides), (a, b + sides, a + sides)]
    faces += [(0, j + 1, j) for j in range(1, sides - 1)]
    top = (rings - 1) * sides
    if pointed:
        vertices.append(centres[-1])
        faces += [(top + j, top + (j + 1) % sides, len(vertices) - 1) for j in range(sides)]
    else:
        faces += [(top, top + j, top + j + 1) for j in range(1, sides - 1)]
    return vertices, faces


def spray(root, tip, half_width, lift, widest=0.45):
    """A flat shoot from root to tip with a ridge along its upper side: six triangles."""
    along = add(tip, root, -1.0)
    side = unit(cross(along, (0.0, 1.0, 0.0)))
    up = unit(cross(side, along))
    middle = add(root, along, widest)
    left, right = add(middle, side, -half_width), add(middle, side, half_width)
    vertices = [root, tip, left, right, add(middle, up, lift)]
    faces = [(0, 3, 4), (3, 1, 4), (1, 2, 4), (2, 0, 4), (0, 2, 3), (2, 1, 3)]
    return vertices, faces


def icosphere(frequency):
    """A unit sphere of 20 * frequency^2 triangles."""
    g = (1.0 + sqrt(5.0)) / 2.0
    corners = [(-1, g, 0), (1, g, 0), (-1, -g, 0), (1, -g, 0), (0, -1, g), (0, 1, g),
               (0, -1, -g), (0, 1, -g), (g, 0, -1), (g, 0, 1), (-g, 0, -1), (-g, 0, 1)]
    sides = [(0, 11, 5), (0, 5, 1), (0, 1, 7), (0, 7, 10), (0, 10, 11), (1, 5, 9), (5, 11, 4),
             (11, 10, 2), (10, 7, 6), (7, 1, 8), (3, 9, 4), (3, 4, 2), (3, 2, 6), (3, 6, 8),
             (3, 8, 9), (4, 9, 5), (2, 4, 11), (6, 2, 10), (8, 6, 7), (9, 8, 1)]
    vertices, faces, known = [], [], {}

    def vertex(weights):
        # The weights of the corners, in order, name a point that neighbouring sides share.
        key = tuple(sorted((c, w) for c, w in weights if w))
        if key not in known:
            known[key] = len(vertices)
            point = (0.0, 0.0, 0.0)
            for c, w in key:
                point = add(point, corners[c], w)
            vertices.append(unit(point))
        return known[key]

    for a, b, c in sides:
        def at(i, j):
            return vertex(((a, frequency - i - j), (b, i), (c, j)))

        for i in range(frequency):
            for j in range(frequency - i):
                faces.append((at(i, j), at(i + 1, j), at(i, j + 1)))
                if i + j < frequency - 1:
                    faces.append((at(i + 1, j), at(i + 1, j + 1), at(i, j + 1)))
    return vertices, faces


def heading(angle):
    return (cos(angle), 0.0, sin(angle))


# --- plants --------------------------------------------------------------------------------------


def conifer():
    """A spruce of nine metres: whorls of drooping boughs, shorter towards the top."""
    model = Model("conifer", 3, False)
    height = 9.0
    axis = [(0.0, 0.0, 0.0), (0.02, 0.5, 0.01), (0.03, 4.5, 0.02), (0.0, height - 0.4, 0.0)]
    model.add_solid(*tube(axis, [0.22, 0.16, 0.09, 0.0], 6), "bark")
    whorls, number = 17, 0
    for i in range(whorls):
        part = i / (whorls - 1)
        y = 1.15 + (height - 1.95) * part ** 0.92
        reach = 1.95 * (1.0 - part) ** 0.85 + 0.28
        boughs = 8 if i < 7 else 6 if i < 13 else 5
        for j in range(boughs):
            number += 1
            angle = 2 * pi * j / boughs + i * GOLDEN_TURN + between(-0.16, 0.16, number, 1)
            length = reach * between(0.84, 1.10, number, 2)
            droop = length * between(0.24, 0.40, number, 3) * (1.0 - 0.25 * part)
            root = (0.0, y + between(0.06, 0.22, number, 4), 0.0)
            tip = add((0.0, y - droop, 0.0), heading(angle), length)
            shape = spray(root, tip, 0.30 * length + 0.09, 0.13 * length + 0.03, 0.52)
            model.add_solid(*shape, "needles_light" if number % 3 == 0 else "needles_dark")
    spire = [(0.0, height - 1.05, 0.0), (0.0, height - 0.75, 0.0), (0.0, height, 0.0)]
    model.add_solid(*tube(spire, [0.05, 0.17, 0.0], 6), "needles_light")
    return model


def broadleaf():
    """A round-headed tree of about six metres: a forked trunk under nine clumps of leaves."""
    model = Model("broadleaf", 3, False)
    trunk = [(0.0, 0.0, 0.0), (0.02, 0.35, 0.0), (0.08, 1.3, 0.04), (0.02, 2.4, 0.10),
             (-0.05, 3.6, 0.05)]
    model.add_solid(*tube(trunk, [0.30, 0.19, 0.15, 0.12, 0.06], 7), "bark")
    clumps = [((0.0, 4.75, 0.0), 1.18), ((-0.1, 3.7, 0.1), 1.25)]
    for i in range(7):
        angle = 2 * pi * i / 7 + between(-0.2, 0.2, i, 11)
        out = between(1.15, 1.45, i, 12)
        y = 3.15 + (0.62 if i % 2 else 0.0) + between(-0.15, 0.25, i, 13)
        clumps.append((add((0.0, y, 0.0), heading(angle), out), between(0.82, 1.02, i, 14)))
    for i, (centre, _) in enumerate(clumps[2:6]):
        fork = (0.05, 1.5 + 0.18 * i, 0.06)
        elbow = add(add(fork, centre, 0.42), fork, -0.42)
        elbow = add(elbow, (0.0, 0.12, 0.0))
        model.add_solid(*tube([fork, elbow, centre], [0.075, 0.055, 0.0], 4), "bark")
    sphere, faces = icosphere(2)
    for i, (centre, radius) in enumerate(clumps):
        vertices = []
        for j, d in enumerate(sphere):
            bump = 1.0 + 0.20 * noise(2.1 * d[0] + 7 * i, 2.1 * d[1], 2.1 * d[2], 21)
            bump += between(-0.07, 0.07, i, j, 22)
            # Clumps are flatter below, as leaves seek the light.
            squash = 0.86 if d[1] > 0.0 else 0.64
            vertices.append(add(centre, (d[0], squash * d[1], d[2]), radius * bump))
        light = i == 0 or (i > 1 and i % 2)
        model.add_solid(vertices, faces, "leaves_light" if light else "leaves_dark")
    return model


def grass():
    """A tuft of eleven arching three-sided blades, about half a metre tall."""
    model = Model("grass", 4, False)
    blades = 11
    for i in range(blades):
        angle = i * GOLDEN_TURN
        part = (i + 0.5) / blades
        height = between(0.34, 0.52, i, 31) * (1.0 - 0.35 * part)
        lean = height * (0.12 + 0.62 * part) * between(0.8, 1.2, i, 32)
        foot = add((0.0, 0.0, 0.0), heading(angle + 0.5), 0.055 * sqrt(part))
        knee = add(add(foot, (0.0, 0.62 * height, 0.0)), heading(angle), 0.34 * lean)
        tip = add(add(foot, (0.0, height, 0.0)), heading(angle), lean)
        shape = tube([foot, knee, tip], [0.011, 0.0085, 0.0], 3, -angle)
        model.add_solid(*shape, "blade_light" if i % 3 == 0 else "blade_dark")
    return model


def flower():
    """A daisy of about half a metre, its head turned a little aside."""
    model = Model("flower", 4, False)
    head = (0.035, 0.47, 0.02)
    line = [(0.0, 0.0, 0.0), (0.0, 0.16, 0.0), (0.012, 0.33, 0.006), head]
    model.add_solid(*tube(line, [0.009, 0.007, 0.006, 0.006], 4), "stem")
    for i in range(5):
        angle = i * GOLDEN_TURN
        foot = (0.0, 0.012 + 0.045 * max(0, i - 2), 0.0)
        rise = 0.07 if i < 3 else 0.13
        reach = 0.17 if i < 3 else 0.12
        tip = add(add(foot, (0.0, rise, 0.0)), heading(angle), reach)
        model.add_solid(*spray(foot, tip, 0.027, 0.006, 0.6), "stem")
    facing = unit((0.30, 1.0, 0.18))
    across = unit(cross(facing, (0.0, 0.0, 1.0)))
    beside = cross(facing, across)
    petals = 12
    for i in range(petals):
        angle = 2 * pi * i / petals
        out = add(add((0.0, 0.0, 0.0), across, cos(angle)), beside, sin(angle))
        lift = 0.018 if i % 2 else 0.004
        root = add(head, out, 0.018)
        tip = add(add(head, out, 0.098 + 0.010 * chance(i, 41)), facing, lift)
        model.add_solid(*spray(root, tip, 0.0185, 0.005, 0.68),
                        "petal_back" if i % 2 else "petal")
    model.add_solid(*dome(head, facing, across, beside), "pollen")
    return model


def dome(centre, facing, across, beside):
    """The yellow heart of the flower: two rings of eight, a top and a bottom point."""
    vertices, faces, sides = [], [], 8
    for radius, height in ((0.030, -0.002), (0.023, 0.015)):
        for j in range(sides):
            angle = 2 * pi * j / sides
            point = add(add(centre, across, radius * cos(angle)), beside, radius * sin(angle))
            vertices.append(add(point, facing, height))
    vertices += [add(centre, facing, -0.010), add(centre, facing, 0.022)]
    for j in range(sides):
        k = (j + 1) % sides
        faces += [(j, sides + j, sides + k), (j, sides + k, k)]
        faces += [(2 * sides, j, k), (2 * sides + 1, sides + k, sides + j)]
    return vertices, [(a, c, b) for a, b, c in faces]


def rock():
    """A boulder of about a metre: a bumpy ball with flats struck off, sitting on the ground."""
    model = Model("rock", 3, False)
    sphere, faces = icosphere(3)
    flats = []
    for i in range(7):
        y = between(-0.25, 0.95, i, 51)
        normal = unit(add(heading(i * GOLDEN_TURN), (0.0, y, 0.0)))
        flats.append((normal, between(0.72, 0.9, i, 52)))
    vertices = []
    for j, d in enumerate(sphere):
        size = 1.0 + 0.14 * noise(1.7 * d[0] + 3, 1.7 * d[1], 1.7 * d[2], 53)
        p = (size * d[0], size * d[1], size * d[2])
        for normal, limit in flats:
            over = dot(p, normal) - limit
            if over > 0.0:
                p = add(p, normal, -0.9 * over)
        p = add(p, d, between(-0.02, 0.02, j, 54))
        vertices.append((0.62 * p[0], max(0.0, 0.48 * p[1] + 0.22), 0.50 * p[2]))
    model.add_solid(vertices, faces, "stone")
    return model


# --- terrain -------------------------------------------------------------------------------------

SIDE = 60.0  # metres
CELLS = 104
PATH_HALF_WIDTH = 1.2


def path_middle(z):
    return 5.5 * sin(z / 9.5) + 1.6 * sin(z / 4.1 + 1.0)


def terrain_height(x, z, from_path):
    hills = 1.5 * sin(x / 11.0 + 0.6) * cos(z / 13.0 - 0.4) + 0.9 * sin((x + z) / 8.5)
    hills += 0.55 * noise(x / 5.0, 0.0, z / 5.0, 61) + 0.12 * noise(x / 1.6, 0.0, z / 1.6, 62)
    knoll = 3.2 / (1.0 + ((x - 16.0) ** 2 + (z + 15.0) ** 2) / 70.0)
    hollow = -2.2 / (1.0 + ((x + 17.0) ** 2 + (z - 12.0) ** 2) / 30.0)
    trodden = -0.38 / (1.0 + (from_path / 1.5) ** 4)
    return hills + knoll + hollow + trodden


def terrain():
    """Hills, a knoll and a hollow, with a path that winds across along Z.

    The columns of the grid bend with the path, so that its edges are smooth.
    """
    model = Model("terrain", 3, True)
    step = SIDE / CELLS
    for row in range(CELLS + 1):
        z = row * step - SIDE / 2
        for column in range(CELLS + 1):
            u = column * step - SIDE / 2
            x = u + path_middle(z) * (1.0 - (2.0 * u / SIDE) ** 2)
            model.vertices.append((round(x, 3), round(terrain_height(x, z, u), 3), round(z, 3)))
            model.uvs.append((x / SIDE + 0.5, 0.5 - z / SIDE))
    for row in range(CELLS):
        for column in range(CELLS):
            a = row * (CELLS + 1) + column
            b, c, d = a + CELLS + 1, a + CELLS + 2, a + 1
            faces = [(a, b, c), (a, c, d)] if (row + column) % 2 else [(a, b, d), (b, c, d)]
            model.add_faces(faces, ground_kind((column + 0.5) * step - SIDE / 2,
                                               model.vertices[a]))
    for faces in model.faces.values():
        for face in faces:
            assert face_normal(*(model.vertices[v] for v in face))[1] > 0.0, "terrain folds over"
    return model


def ground_kind(from_path, place):
    if abs(from_path) < PATH_HALF_WIDTH:
        return "path"
    return "meadow" if noise(place[0] / 7.0, 3.0, place[2] / 7.0, 63) > 0.12 else "grass"


# --- files ---------------------------------------------------------------------------------------


def check_model(model, low, high, width, height):
    """Sees to the number of faces, the base at the origin and the size in metres."""
    count = model.face_count()
    assert low <= count <= high, "%s has %d faces" % (model.name, count)
    assert len(set(v for rows in model.faces.values() for f in rows for v in f)) \
        == len(model.vertices), "%s has loose vertices" % model.name
    spans = [(min(v[i] for v in model.vertices), max(v[i] for v in model.vertices))
             for i in range(3)]
    if model.name != "terrain":
        assert spans[1][0] == 0.0, "%s stands at %g" % (model.name, spans[1][0])
    assert height[0] <= spans[1][1] - spans[1][0] <= height[1], (model.name, spans)
    for axis in (0, 2):
        assert width[0] <= spans[axis][1] - spans[axis][0] <= width[1], (model.name, spans)


def make_files():
    """Returns name -> bytes of every file."""
    wanted = (
        (terrain(), (15000, 30000), (60.0, 60.0), (3.0, 12.0)),
        (conifer(), (500, 900), (3.0, 5.0), (8.9, 9.1)),
        (broadleaf(), (600, 1000), (3.5, 5.5), (5.0, 6.5)),
        (grass(), (60, 120), (0.2, 0.8), (0.3, 0.6)),
        (flower(), (100, 200), (0.15, 0.4), (0.45, 0.6)),
        (rock(), (100, 200), (0.8, 1.3), (0.5, 0.8)),
    )
    files = {}
    for model, (low, high), width, height in wanted:
        check_model(model, low, high, width, height)
        files[model.name + ".obj"] = model.obj().encode("ascii")
        files[model.name + ".mtl"] = model.mtl().encode("ascii")
    assert sum(map(len, files.values())) < BYTE_LIMIT
    return files


def main(arguments):
    if arguments not in ([], ["--check"]):
        print(__doc__, file=sys.stderr)
        return 2
    differing = 0
    for name, content in make_files().items():
        path = TARGET / name
        if not arguments:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(content)
        elif not path.is_file() or path.read_bytes() != content:
            print("%s differs from what make_models.py makes" % path, file=sys.stderr)
            differing += 1
    return 1 if differing else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
