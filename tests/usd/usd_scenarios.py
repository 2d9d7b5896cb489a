"""Inputs of the USD export scenarios: a small groom and feather templates, written as
named arrays for usd_export_driver and read back by usd_reference_writer.

File format, repeated to the end: int32 name length, the name, int32 kind (0 float32,
1 int32, 2 bytes), int32 element count, the elements.
"""

import struct

import numpy as np

F = np.float32


def write_inputs(path, arrays):
    with open(path, "wb") as out:
        for name, value in arrays.items():
            if isinstance(value, str):
                kind, data, count = 2, value.encode(), len(value.encode())
            else:
                a = np.asarray(value)
                kind = 1 if a.dtype.kind in "iu" else 0
                a = a.astype(np.int32 if kind else F).ravel()
                data, count = a.tobytes(), a.size
            out.write(struct.pack("<i", len(name)) + name.encode() + struct.pack("<ii", kind, count) + data)


def read_inputs(path):
    raw = open(path, "rb").read()
    at, out = 0, {}
    while at < len(raw):
        (n,) = struct.unpack_from("<i", raw, at)
        name = raw[at + 4 : at + 4 + n].decode()
        kind, count = struct.unpack_from("<ii", raw, at + 4 + n)
        at += 12 + n
        size = count if kind == 2 else 4 * count
        chunk = raw[at : at + size]
        at += size
        out[name] = chunk.decode() if kind == 2 else np.frombuffer(chunk, dtype=np.int32 if kind else F).copy()
    return out


def read_ops(path):
    """The calls of an ops file, parsed: ("set", field, value), ("move", dx), ("attr", high),
    ("geom", time, high, subFrame)."""
    for line in open(path).read().splitlines():
        w = line.split(" ", 2)
        if not w or not w[0]:
            continue
        if w[0] == "set":
            yield "set", w[1], w[2] if len(w) > 2 else ""
        elif w[0] == "move":
            yield "move", np.array([F(v) for v in line.split()[1:4]], dtype=F)
        elif w[0] == "attr":
            yield "attr", w[1] == "1"
        elif w[0] == "geom":
            t, high, sub = line.split()[1:4]
            yield "geom", F(t), high == "1", sub == "1"


def set_field(x, field, value):
    """A `set` call on an exporter, its value taken as the field's type."""
    if field in ("writeNormals", "perFrameFiles", "featherMode", "hasFrameRange"):
        setattr(x, field, value == "1")
    elif field in ("startTime", "endTime", "exportRatio"):
        setattr(x, field, float(F(value)))
    elif field == "bindingScheme":
        x.bindingScheme = int(value)
    else:
        setattr(x, field, value)


def groom(n, seed=1, cv_counts=(5, 3, 8, 2)):
    """n strands rising from a grid with a sideways sweep, distinct widths and UVs; the
    feather kind of strand i is i % 3 (so a third of them name a feather that may not exist)."""
    rng = np.random.default_rng(seed)
    counts = np.array([cv_counts[i % len(cv_counts)] for i in range(n)], dtype=np.int32)
    cvs, axs = [], []
    for i in range(n):
        root = np.array([i % 7, i // 7, 0.0]) * 0.5 + rng.normal(0, 0.01, 3)
        for j in range(counts[i]):
            cvs.append(root + np.array([0.05 * j * j, 0.02 * j, 0.3 * j]))
        axs.append(np.concatenate([root, [1, 0, 0], [0, 1, 0], [0, 0, 1]]))
    cvs = np.array(cvs, dtype=F)
    return {
        "numCVs": counts,
        "cvs": cvs,
        "rtp": np.arange(n, dtype=np.int32) % 3,
        "uvw": rng.random((n, 3)).astype(F),
        "rwh": (0.02 + 0.01 * rng.random(n)).astype(F),
        "twh": (0.002 + 0.001 * rng.random(n)).astype(F),
        "ln1": (0.3 * (counts - 1)).astype(F),
        "rxy": np.tile(np.array([0.6, 0.8], dtype=F), (n, 1)),
        "axs": np.array(axs, dtype=F),
        "box": np.concatenate([cvs.min(axis=0) - 0.1, cvs.max(axis=0) + 0.1]).astype(F) if n else np.zeros(6, F),
        "scales": np.stack([0.8 + 0.4 * rng.random(n), np.ones(n), 1.5 * np.ones(n)], axis=1).astype(F),
        "rotations": (rng.random((n, 3)) * 90 - 45).astype(F),
        "folds": (0.3 * rng.random(n)).astype(F),
    }


def feather(name, mesh=True, curves=True, tex=True, rows=4):
    """A feather template: a vane of rows x 3 points in local space (Y along the strand),
    with per-corner UVs, and two barb curves of 3 and 4 CVs."""
    pts, tris, uvs = [], [], []
    if mesh:
        for r in range(rows):
            y = r / (rows - 1)
            w = 0.2 * (1 - y) + 0.02
            pts += [(-w, y, 0.01), (0.0, y, 0.0), (w, y, 0.01)]
        for r in range(rows - 1):
            for c in range(2):
                a = 3 * r + c
                for tri in ((a, a + 1, a + 4), (a, a + 4, a + 3)):
                    tris.append(tri)
                    uvs += [(pts[k][0] + 0.5, pts[k][1], 0.0) for k in tri]
    counts, cvs = [], []
    if curves:
        counts = [3, 4]
        cvs = [
            (0, 0, 0.02),
            (0.05, 0.5, 0.02),
            (0.1, 1, 0.02),
            (0, 0, -0.02),
            (-0.03, 0.3, -0.02),
            (-0.06, 0.6, -0.02),
            (-0.08, 0.9, -0.02),
        ]
    return {
        "name": name,
        "points": np.array(pts, dtype=F).reshape(-1, 3),
        "v012": np.array(tris, dtype=np.int32).reshape(-1, 3),
        "uvs": np.array(uvs, dtype=F).reshape(-1, 3),
        "numCVs": np.array(counts, dtype=np.int32),
        "cvs": np.array(cvs, dtype=F).reshape(-1, 3),
        "txLayerName": "diffuse" if tex else "",
        "txBasePath": "/tex/feathers" if tex else "",
        "MaterialSet": "featherMtl" if tex else "",
        "txmultiUV": np.array([2 if tex else 0], dtype=np.int32),
    }


def inputs(n, feathers=(), seed=1):
    d = groom(n, seed)
    d["feather.count"] = np.array([len(feathers)], dtype=np.int32)
    for k, fe in enumerate(feathers):
        for key, value in fe.items():
            d[f"feather.{k}.{key}"] = value
    return d
