"""The USD export scenarios through the Python API: the protocol of
tests/usd/usd_export_driver.cpp (INPUTS OPS BASEPATH), every call made from Python, so
that check_usd_export.py compares what Python exports with usd-core's reference writer.

    usd_driver.py INPUTS OPS BASEPATH
"""

from __future__ import annotations

import struct
import sys
from typing import Any

import numpy as np

import groomcore as gc

F = np.float32


def read_inputs(path: str) -> dict[str, Any]:
    out: dict[str, Any] = {}
    with open(path, "rb") as f:
        data = f.read()
    pos = 0
    while pos < len(data):
        (length,) = struct.unpack_from("<i", data, pos)
        name = data[pos + 4 : pos + 4 + length].decode()
        pos += 4 + length
        kind, count = struct.unpack_from("<ii", data, pos)
        pos += 8
        size = count * (1 if kind == 2 else 4)
        raw = data[pos : pos + size]
        pos += size
        out[name] = raw.decode() if kind == 2 else np.frombuffer(raw, dtype=F if kind == 0 else np.int32).copy()
    return out


def main(inputs_path: str, ops_path: str, base: str) -> int:
    d = read_inputs(inputs_path)
    curves = gc.ZCurves()
    curves.numCVs = d["numCVs"]
    curves.start = np.concatenate([[0], np.cumsum(d["numCVs"])[:-1]]).astype(np.int32)
    curves.cvs = d["cvs"].reshape(-1, 3)
    f = gc.ZFollicles()
    n = len(d["rtp"])
    f.rtp = d["rtp"]
    f.tgl = np.zeros(n, np.int32)
    f.uvw = d["uvw"].reshape(-1, 3)
    f.rwh, f.twh, f.ln1 = d["rwh"], d["twh"], d["ln1"]
    f.rxy = d["rxy"].reshape(-1, 2)
    f.axs = d["axs"].reshape(-1, 4, 3)
    box = d["box"]
    bbox = gc.ZBoundingBox(gc.ZVector(*box[:3]), gc.ZVector(*box[3:]))
    scales, rotations, folds = d["scales"].reshape(-1, 3), d["rotations"].reshape(-1, 3), d["folds"]

    feathers = []
    for k in range(int(d["feather.count"][0]) if "feather.count" in d else 0):
        p = f"feather.{k}."
        fe = gc.ZFeather()
        fe.name = d[p + "name"]
        fe.mesh.points = d[p + "points"].reshape(-1, 3)
        fe.mesh.v012 = d[p + "v012"].reshape(-1, 3)
        fe.mesh.uvs = d[p + "uvs"].reshape(-1, 3)
        cvs, start = d[p + "cvs"].reshape(-1, 3), 0
        for count in d[p + "numCVs"]:
            fe.curves.push(cvs[start : start + count])
            start += count
        fe.txLayerName, fe.txBasePath, fe.MaterialSet = d[p + "txLayerName"], d[p + "txBasePath"], d[p + "MaterialSet"]
        fe.txmultiUV = int(d[p + "txmultiUV"][0])
        fe.latticeResolution = 4
        fe.initialize()
        feathers.append(fe)

    x = gc.ZCurvesToUSD()
    x.basePath = base
    x.follicles, x.curves, x.boundingBox = f, curves, bbox
    x.scales, x.rotations, x.folds = scales, rotations, folds
    x.feathers = feathers
    geom_calls = 0
    with open(ops_path) as ops:
        for line in ops:
            words = line.split()
            if not words:
                continue
            if words[0] == "set":
                field, value = words[1], line.split(None, 2)[2].rstrip("\n")
                if field in ("writeNormals", "perFrameFiles", "featherMode", "hasFrameRange"):
                    setattr(x, field, value == "1")
                elif field in ("startTime", "endTime", "exportRatio"):
                    setattr(x, field, float(value))
                elif field == "bindingScheme":
                    x.bindingScheme = int(value)
                else:
                    setattr(x, field, value)
            elif words[0] == "move":
                m = np.array([float(v) for v in words[1:4]], F)
                curves.cvs = curves.cvs + m
                axs = f.axs
                axs[:, 0] += m
                del axs
                lo, hi = bbox.minPoint, bbox.maxPoint
                bbox.minPoint = gc.ZVector(*(np.array([lo.x, lo.y, lo.z], F) + m))
                bbox.maxPoint = gc.ZVector(*(np.array([hi.x, hi.y, hi.z], F) + m))
            elif words[0] == "attr":
                x.writeAttributeToUSD(words[1] != "0")
            elif words[0] == "geom":
                t, high, sub = float(words[1]), words[2] != "0", words[3] != "0"
                if x.featherMode and x.bindingScheme in (4, 6):
                    with open(f"{base}.placed.{geom_calls}", "wb") as out:
                        for i in range(f.numStrands()):
                            kind = int(f.rtp[i])
                            if 0 <= kind < len(feathers):
                                mesh, _, cv = feathers[kind].deform(
                                    f, curves, i, float(scales[i, 0]), float(folds[i]), x.bindingScheme == 6
                                )
                                out.write(mesh.tobytes() + cv.tobytes())
                geom_calls += 1
                x.writeGeometryToUSD(t, high, sub)
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 4:
        print("usage: usd_driver.py INPUTS OPS BASEPATH", file=sys.stderr)
        sys.exit(2)
    sys.exit(main(*sys.argv[1:]))
