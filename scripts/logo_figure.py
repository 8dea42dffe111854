"""The logo: a seed bowl on ploughed ground, a sprout in it and seeds flying out in three arcs.

Every piece is a flat outline, some with one hole, cut into triangles by a strip that runs from one
end of the piece to the other. An edge of a face is visible just if it is an edge of an outline.
"""

from math import atan2, cos, pi, radians, sin, sqrt

VERTEX_COUNT = 786
FACE_COUNT = 722
PIECE_COUNT = 38
HIGH, LOW = 4.48946e-05, -1.78589e-05  # heights of the two layers: bowl and sprout, all else
FAN_Y = -0.15  # where the arcs of seeds have their centre
EXTENT = ((-0.722872, 0.722872), (-0.538958, 0.53896), (LOW, HIGH))
FIRST_VERTICES = ((-0.460257, -0.0421582, HIGH), (-0.448491, -0.0699988, HIGH))
FLAG_COUNTS = {
    (1, 0, 0): 346,
    (0, 1, 0): 211,
    (1, 1, 0): 96,
    (0, 0, 0): 39,
    (0, 0, 1): 23,
    (0, 1, 1): 7,
}
TOLD_FACES = {
    0: ((91, 92, 0), (1, 1, 0)),
    1: ((44, 45, 46), (1, 1, 0)),
    2: ((44, 46, 47), (0, 1, 0)),
    721: ((783, 764, 782), (0, 0, 1)),
}


class Piece:
    """An outline and perhaps a hole, both anticlockwise as (x, y), with the triangles over them.

    Triangles index the outline first and then the hole.
    """

    def __init__(self, outline, hole, triangles, z):
        self.outline, self.hole, self.triangles, self.z = outline, hole, triangles, z

    def points(self):
        return self.outline + self.hole

    def outline_edges(self):
        n, m = len(self.outline), len(self.hole)
        around = {(i, (i + 1) % n) for i in range(n)}
        return around | {(n + (j + 1) % m, n + j) for j in range(m)}


# --- triangles -----------------------------------------------------------------------------------


def strip(count, low_first=True, ears=()):
    """Triangles of an outline whose vertex 0 is a tip, zigzag from there to the other end.

    At each low-side vertex in `ears` the corner after it is cut off, which gives a triangle with
    two outline edges and one with none.
    """
    triangles = [(count - 1, 0, 1)]
    low, high, on_low = 1, count - 1, low_first
    while high - low > 1:
        if low in ears:
            triangles += [(low, low + 1, low + 2), (low, low + 2, high)]
            low += 2
            on_low = False
        elif on_low:
            triangles.append((low, low + 1, high))
            low += 1
            on_low = False
        else:
            triangles.append((low, high - 1, high))
            high -= 1
            on_low = True
    return triangles


def ring_strip(count, hole_count, ears=()):
    """Triangles between an outline and its hole, which run round at the same pace."""
    triangles, i, j = [], 0, 0
    while i < count or j < hole_count:
        hole_turn = j < hole_count and (i == count or (j + 0.5) * count < (i + 0.5) * hole_count)
        a, h = i % count, count + j % hole_count
        if hole_turn:
            triangles.append((count + (j + 1) % hole_count, h, a))
            j += 1
        elif i in ears:
            triangles += [(i, i + 1, i + 2), (i, i + 2, h)]
            i += 2
        else:
            triangles.append((a, (i + 1) % count, h))
            i += 1
    return triangles


# --- outlines ------------------------------------------------------------------------------------


def drop(count, place, heading, length, width, sharpness, start=0.0):
    """A drop whose tail, vertex 0, points away from its heading (radians)."""
    ux, uy = cos(heading), sin(heading)
    points = []
    for i in range(count):
        t = 2 * pi * i / count + start
        along = -0.5 * length * cos(t)
        across = -0.5 * width * sin(t) * sin(t / 2) ** sharpness
        points.append((place[0] + along * ux - across * uy, place[1] + along * uy + across * ux))
    return points


def seed(count, radius, angle, length, width):
    heading = radians(angle)
    place = (radius * cos(heading), radius * sin(heading) + FAN_Y)
    outline = drop(count, place, heading, length, width, 0.9)
    return Piece(outline, [], strip(count, ears=(count // 2 - 4,)), LOW)


def hollow_seed(count, hole_count, radius, angle, length, width):
    solid = seed(count, radius, angle, length, width)
    heading = radians(angle)
    middle = radius + 0.1 * length
    centre = (middle * cos(heading), middle * sin(heading) + FAN_Y)
    hole = drop(hole_count, centre, heading, 0.46 * length, 0.46 * width, 0.3)
    triangles = ring_strip(count, hole_count, ears=(count // 2 - 1,))
    return Piece(solid.outline, hole, triangles, LOW)


def bowl():
    """A crescent. Its outer arc is the circle through the two told vertices, centred on x = 0."""
    (x0, y0, _), (x1, y1, _) = FIRST_VERTICES
    centre = 0.5 * (x0 * x0 + y0 * y0 - x1 * x1 - y1 * y1) / (y0 - y1)
    radius = sqrt(x0 * x0 + (y0 - centre) ** 2)
    first = atan2(y0 - centre, x0) + 2 * pi
    second = atan2(y1 - centre, x1) + 2 * pi
    last = 3 * pi - first
    # 44 steps from vertex 0 to its mirror image; the first is as long as told, the others are
    # evened out by a wave that is the same from either end.
    even = (last - first) / 44
    wave = (second - first - even) / sin(2 * pi / 44)

    def outer(step):
        turn = first + even * step + wave * sin(2 * pi * step / 44)
        return (radius * cos(turn), centre + radius * sin(turn))

    tip = first - 1.3 * even
    left = (radius * cos(tip), centre + radius * sin(tip))
    # The inner arc is the circle through both tips and the bottom of the hollow.
    bottom = centre - radius + 0.17
    rise = left[1] - bottom
    inner_radius = (left[0] * left[0] + rise * rise) / (2 * rise)
    half = atan2(-left[0], inner_radius - rise)

    def inner(step):
        turn = -pi / 2 + half * (1 - 2 * (step + 1) / 47)
        return (inner_radius * cos(turn), bottom + inner_radius * (1 + sin(turn)))

    arc = [FIRST_VERTICES[0][:2], FIRST_VERTICES[1][:2]] + [outer(i) for i in range(2, 45)]
    outline = arc + [(-left[0], left[1])] + [inner(i) for i in range(46)] + [left]
    # The strip starts at the left tip, which is the last vertex.
    triangles = [tuple((v - 1) % 93 for v in t) for t in strip(93, low_first=False)]
    return Piece(outline, [], triangles, HIGH)


def stem():
    outline = drop(19, (0.0, -0.068), -pi / 2, 0.22, 0.085, 3.0)
    return Piece(outline, [], strip(19, ears=(7,)), HIGH)


def leaf(side):
    """A bent leaf with its midrib cut out; side is -1 or 1."""
    def bent(u, across):
        x = 0.014 + 0.16 * u
        y = 0.015 + 0.10 * u + 0.075 * u * u
        slope = (0.10 + 0.15 * u) / 0.16
        size = sqrt(1.0 + slope * slope)
        return (x - across * slope / size, y + across / size)

    def loop(count, start, end, width):
        """Pointed at both ends, which lie at start and end along the midrib."""
        points = []
        for i in range(count):
            t = 2 * pi * i / count
            u = 0.5 - 0.5 * cos(t)
            points.append(bent(start + (end - start) * u, -width * sin(t) * sqrt(abs(sin(t)))))
        return points

    outline, hole = loop(22, 0.0, 1.0, 0.046), loop(10, 0.22, 0.80, 0.009)
    triangles = ring_strip(22, 10, ears=(4, 16))
    if side < 0:
        # Mirrored, a loop runs clockwise: turn it round, but leave its tip at number 0.
        outline = [(-x, y) for x, y in outline[:1] + outline[:0:-1]]
        hole = [(-x, y) for x, y in hole[:1] + hole[:0:-1]]
    return Piece(outline, hole, triangles, HIGH)


def furrow(half_length, crest, thickness):
    """A long low hump, from its right tip along the top to the left and back."""
    points = []
    for i in range(22):
        t = 2 * pi * i / 22
        x = half_length * cos(t)
        points.append((x, crest - 0.09 * x * x + 0.5 * thickness * sin(t)))
    return Piece(points, [], strip(22, ears=(7,)), LOW)


def make_pieces():
    pieces = [bowl(), stem(), leaf(-1), leaf(1)]
    ground = [furrow(0.42, -0.392, 0.030), furrow(0.585, -0.430, 0.030),
              furrow(EXTENT[0][1], -0.470, 0.030)]
    seeds = [seed(14, 0.425, 30 + 15 * i, 0.085, 0.046) for i in range(9)]
    for i in range(10):
        angle = 22 + 136 * i / 9
        if i % 3 == 0:
            seeds.append(hollow_seed(18, 8, 0.530, angle, 0.112, 0.074))
        else:
            seeds.append(seed(15, 0.530, angle, 0.098, 0.054))
    for i in range(12):
        seeds.append(seed(18 if i < 11 else 26, 0.640, 11 + 158 * i / 11, 0.110, 0.060))
    fit_height(ground, min, EXTENT[1][0])
    fit_height(seeds, max, EXTENT[1][1])
    return pieces + ground + seeds


def fit_height(pieces, extreme, wanted):
    """Scales the pieces in Y a little, so that they reach just as far as wanted."""
    scale = wanted / extreme(y for piece in pieces for _, y in piece.points())
    assert abs(scale - 1.0) < 0.05, "Y would be scaled by %g" % scale
    for piece in pieces:
        piece.outline = [(x, y * scale) for x, y in piece.outline]
        piece.hole = [(x, y * scale) for x, y in piece.hole]


# --- tables --------------------------------------------------------------------------------------


def collect(pieces):
    """Returns the vertices, the triangles and the set of directed outline edges of all pieces."""
    vertices, triangles, visible = [], [], set()
    for piece in pieces:
        base = len(vertices)
        vertices += [tuple(float("%.6g" % c) for c in (x, y, piece.z)) for x, y in piece.points()]
        triangles += [tuple(base + v for v in t) for t in piece.triangles]
        visible |= {(base + a, base + b) for a, b in piece.outline_edges()}
    return vertices, triangles, visible


def rotations(triangle):
    a, b, c = triangle
    return ((a, b, c), (b, c, a), (c, a, b))


def flags_of(triangle, visible):
    a, b, c = triangle
    return tuple(int(edge in visible) for edge in ((a, b), (b, c), (c, a)))


def flagged_faces(triangles, visible):
    """Turns the corners of each face so that the flags come in the told numbers."""
    left = dict(FLAG_COUNTS)
    told = {}
    for row, (face, flags) in TOLD_FACES.items():
        match = [t for t in triangles if face in rotations(t)]
        assert len(match) == 1 and flags_of(face, visible) == flags, "face row %d" % row
        told[row] = (face, flags)
        left[flags] -= 1
        triangles = [t for t in triangles if t != match[0]]
    rest = []
    for triangle in triangles:
        choices = [(r, flags_of(r, visible)) for r in rotations(triangle)]
        # The kind with most left to give out: this spreads the kinds over the whole table.
        face = max(choices, key=lambda choice: left.get(choice[1], 0))
        left[face[1]] -= 1
        rest.append(face)
    assert not any(left.values()), "flags left over: %s" % left
    return [told[0], told[1], told[2]] + rest + [told[721]]


def twice_area(points):
    return sum(p[0] * q[1] - q[0] * p[1] for p, q in zip(points, points[1:] + points[:1]))


def check_pieces(pieces):
    for number, piece in enumerate(pieces):
        points = piece.points()
        areas = [twice_area([points[v] for v in t]) for t in piece.triangles]
        assert min(areas) > 1e-7, "piece %d has a face turned down or without area" % number
        whole = twice_area(piece.outline) - (twice_area(piece.hole) if piece.hole else 0.0)
        assert abs(sum(areas) - whole) < 1e-9, "the faces of piece %d don't fill it" % number
        n, m = len(piece.outline), len(piece.hole)
        assert len(areas) == n + m - 2 + (2 if m else 0)


def check_logo(vertices, faces):
    assert len(vertices) == VERTEX_COUNT and len(faces) == FACE_COUNT
    for i in range(3):
        values = [v[i] for v in vertices]
        assert (min(values), max(values)) == EXTENT[i], "extent of axis %d" % i
    assert tuple(vertices[:2]) == FIRST_VERTICES
    for row, told in TOLD_FACES.items():
        assert faces[row] == told, "face row %d" % row
    counts = {}
    for _, flags in faces:
        counts[flags] = counts.get(flags, 0) + 1
    assert counts == FLAG_COUNTS
    for face, _ in faces:
        assert twice_area([vertices[v][:2] for v in face]) > 1e-7, "a face looks down"
    assert connected_pieces(len(vertices), [face for face, _ in faces]) == PIECE_COUNT


def connected_pieces(count, faces):
    parent = list(range(count))

    def root(v):
        while parent[v] != v:
            v = parent[v]
        return v

    for face in faces:
        for v in face[1:]:
            parent[root(v)] = root(face[0])
    return sum(parent[v] == v for v in range(count))


def make_logo():
    """Returns (vertices, [(face, flags)]), rounded as they are written."""
    pieces = make_pieces()
    check_pieces(pieces)
    vertices, triangles, visible = collect(pieces)
    faces = flagged_faces(triangles, visible)
    check_logo(vertices, faces)
    return vertices, faces
