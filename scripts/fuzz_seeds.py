#!/usr/bin/env python3
"""Writes the binary seeds of the fuzz targets into fuzz/corpus."""

import base64
import json
import pathlib
import struct
import zlib

HERE = pathlib.Path(__file__).resolve().parent.parent / "fuzz/corpus"


def model():
    """The model of triangle.gltf and its buffer's bytes."""
    root = json.loads((HERE / "gltf_import_fuzz/triangle.gltf").read_text())
    uri = root["buffers"][0].pop("uri")
    return root, base64.b64decode(uri.partition(",")[2])


def as_glb(root, data):
    text = json.dumps(root, separators=(",", ":")).encode()
    text += b" " * (-len(text) % 4)
    data += bytes(-len(data) % 4)
    header = b"glTF" + struct.pack("<II", 2, 28 + len(text) + len(data))
    chunks = struct.pack("<I", len(text)) + b"JSON" + text
    return header + chunks + struct.pack("<I", len(data)) + b"BIN\0" + data


def gltf_seeds():
    yield "triangle.glb", as_glb(*model())
    for name, mode in (("strip", 5), ("fan", 6), ("line", 1)):
        root, data = model()
        root["meshes"][0]["primitives"][0]["mode"] = mode
        yield name + ".glb", as_glb(root, data)
    root, data = model()
    root["meshes"][0]["primitives"] *= 2
    root["meshes"][0]["primitives"][1] = {"attributes": {"POSITION": 0}}
    del root["scenes"], root["scene"]
    yield "parts.glb", as_glb(root, data)
    root, data = model()
    root["extensionsRequired"] = ["KHR_mesh_quantization"]
    root["accessors"][0] = {
        "bufferView": 3, "componentType": 5120, "normalized": True, "type": "VEC3", "count": 2,
    }
    root["meshes"][0]["primitives"] = [{"attributes": {"POSITION": 0}, "mode": 5}]
    yield "bytes.glb", as_glb(root, data)


def plan_seeds():
    """As host/exchange/planstream.cpp passes the members on: counts have 8 bytes, lists follow them."""
    def counted(content, count=None):
        return struct.pack("<Q", len(content) if count is None else count) + content

    head = b"SOWPLAN1" + struct.pack("<Bd", 0, 1.0)
    none = counted(b"")
    yield "empty.plan", head + none * 5
    verts = counted(struct.pack("<9f", 0, 0, 0, 1, 0, 0, 0, 1, 0), 3)
    faces = counted(struct.pack("<5I", 0, 1, 2, 1, 7), 1)
    maps = counted((none * 2 + b"\0") * 2, 2)
    targets = counted(verts, 1)
    skin = b"\1" + counted(struct.pack("<i", 0), 1)
    skin += counted(struct.pack("<12f", 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0), 1)
    skin += counted(struct.pack("<4H4f", 0, 0, 0, 0, 1, 0, 0, 0) * 3, 3)
    slots, weights = counted(struct.pack("<i", 0), 1), counted(struct.pack("<f", 0.5), 1)
    frames = counted(struct.pack("<2f", 0, 1), 2) + counted(verts * 2, 2)
    mesh = verts + faces + maps + slots + targets + weights + skin + frames
    still = b"\1" + none * 2
    track = b"\1" + counted(struct.pack("<2f", 0, 1), 2) + counted(struct.pack("<6f", *range(6)), 6)
    local = struct.pack("<12f", 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0)
    node = counted(b"node") + local + struct.pack("<iiB", -1, 0, 0) + track + still * 3
    image = counted(b"a.png") + none + counted(b"\x89PNG")
    material = counted(b"red") + struct.pack("<3fi", 1, 0, 0, 0)
    lists = [counted(entry, 1) for entry in (image, material, mesh, node, counted(b"a warning"))]
    yield "triangle.plan", head + b"".join(lists)


def mokset_seeds():
    """A square of two triangles in all generations, with and without texture."""
    points = struct.pack("<12f", 0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0)
    for generation, textured in ((1, False), (1, True), (2, True), (3, False), (3, True)):
        times = 1 if generation == 1 else 7
        index = "q" if generation == 3 else "f"
        wide = "q" if generation == 3 else "i"
        data = {1: b"", 2: b"Vorn_MoksetV0.5", 3: b"Vorn_MoksetV0.6"}[generation]
        data += struct.pack("<6f", 1, 1, 0, 0, 0, 0)
        data += struct.pack("<i", 5) if generation == 3 else b""
        data += struct.pack("<i", 4) + points
        data += struct.pack("<i", 4) + points if textured else bytes(4)
        data += struct.pack("<i", times) if generation > 1 else b""
        data += struct.pack("<i2" + wide, 2 * times, 3 * times, times)
        data += bytes(12) + b"0123456789ABCDEF" * 16 + bytes(4) if generation > 1 else b""
        data += struct.pack("<" + wide, 2 * times)
        for a, b, c in ((0, 1, 2), (2, 3, 0)):
            data += struct.pack("<3" + index, a * times, b * times, c * times)
            data += struct.pack("<3i" if generation == 3 else "<3f", 1, 2, 0)
            data += struct.pack("<2i", 3 * times, c * times)
        if textured:
            data += struct.pack("<6i" if generation == 3 else "<6f", 0, 1, 2, 2, 3, 0)
        yield f"generation{generation}{'_textured' if textured else ''}.Vorn", data


def crc32c(data, crc=0):
    crc ^= 0xFFFFFFFF
    for byte in data:
        crc ^= byte
        for _ in range(8):
            crc = crc >> 1 ^ (0x82F63B78 if crc & 1 else 0)
    return crc ^ 0xFFFFFFFF


def scene_seeds():
    """A scene whose text is lost: its bytes tell of it, in two records."""
    verts, faces = struct.pack("<9f", 0, 0, 0, 1, 0, 0, 0, 1, 0), struct.pack("<5I", 0, 1, 2, 1, 7)
    data = verts + faces
    still = [1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0]

    def table(kind, count, content, view):
        return {"type": kind, "count": count, "crc": f"{crc32c(content):08x}", "view": view}

    scene = {
        "version": 1, "units": {"type": 5, "scale": 1}, "range": [0, 16000], "time": 0,
        "layers": [{"name": "0", "hidden": False}], "currentLayer": "0", "selection": [],
        "renderer": None,
    }
    nodes = [
        {"id": f"0x{i}", "name": name, "wire": "0x0", "hidden": False, "renderable": True,
         "matrix": still, "offset": still}
        for i, name in ((1, "top"), (2, "child"))
    ]
    nodes[1]["parent"] = {"ref": "0x1"}
    mesh = {"verts": table("point3", 3, verts, 0), "faces": table("uint32", 5, faces, 1), "maps": []}
    thing = {"id": "0x3", "super": "0x10", "class": ["0x9", "0x0"], "className": "Mesh",
             "nodes": [{"ref": "0x2"}], "data": {"mesh": mesh}}
    contents = (
        {"scene": scene, "nodes": nodes, "things": [], "views": []},
        {"nodes": [], "things": [thing], "views": [[0, 0, len(verts)], [1, len(verts), len(faces)]]},
    )
    texts = [json.dumps(content, separators=(",", ":")).encode() for content in contents]
    tag = crc32c(b"".join(texts))
    for i, text in enumerate(texts):
        packed = zlib.compress(text) if i == 0 else text
        head = struct.pack("<6IQ", i, len(texts), len(nodes), len(text), len(packed), 0, len(data))
        head = struct.pack("<II", 0, tag) + head
        crc = crc32c(b"SOWREC1\n" + head + packed)
        data += b"SOWREC1\n" + struct.pack("<I", crc) + head[4:] + packed
        data += bytes(-len(data) % 4)
    header = b"glTF" + struct.pack("<III", 2, 44 + len(data), 16) + b"JSON" + b" " * 16
    yield "records.glb", header + struct.pack("<I", len(data)) + b"BIN\0" + data
    lost = bytearray(header + struct.pack("<I", len(data)) + b"BIN\0" + data)
    lost[lost.index(b"SOWREC1")] ^= 1  # nodes stand in for those of the first record
    yield "lost_record.glb", bytes(lost)


def main():
    targets = (
        ("mokset_fuzz", mokset_seeds()),
        ("gltf_import_fuzz", gltf_seeds()),
        ("plan_stream_fuzz", plan_seeds()),
        ("scene_file_fuzz", scene_seeds()),
    )
    for target, seeds in targets:
        folder = HERE / target
        folder.mkdir(parents=True, exist_ok=True)
        for name, content in seeds:
            (folder / name).write_bytes(content)


if __name__ == "__main__":
    main()
