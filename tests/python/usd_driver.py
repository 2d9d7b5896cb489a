"""The USD export scenarios through the Python API: the protocol of
tests/usd/usd_export_driver.cpp (INPUTS OPS BASEPATH), every call made from Python, so
that check_usd_export.py compares what Python exports with usd-core's reference writer.

    usd_driver.py INPUTS OPS BASEPATH
"""

from __future__ import annotations

import os
import sys
from typing import Any

import numpy as np

import groomcore as gc

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "usd"))
from usd_scenarios import read_inputs, read_ops, set_field  # noqa: E402

F = np.float32


def feather(d: dict[str, Any], k: int) -> gc.ZFeather:
    p = f"feather.{k}."
    fe = gc.ZFeather()
    fe.name, fe.txLayerName, fe.txBasePath = d[p + "name"], d[p + "txLayerName"], d[p + "txBasePath"]
    fe.MaterialSet, fe.txmultiUV = d[p + "MaterialSet"], int(d[p + "txmultiUV"][0])
    fe.mesh.points = d[p + "points"].reshape(-1, 3)
    fe.mesh.v012 = d[p + "v012"].reshape(-1, 3)
    fe.mesh.uvs = d[p + "uvs"].reshape(-1, 3)
    cvs, start = d[p + "cvs"].reshape(-1, 3), 0
    for count in d[p + "numCVs"]:
        fe.curves.push(cvs[start : start + count])
        start += count
    fe.latticeResolution = 4
    fe.initialize()
    return fe


def main(inputs: str, ops: str, base: str) -> int:
    d = read_inputs(inputs)
    curves, f = gc.ZCurves(), gc.ZFollicles()
    curves.numCVs = d["numCVs"]
    curves.start = np.concatenate([[0], np.cumsum(d["numCVs"])[:-1]]).astype(np.int32)
    curves.cvs = d["cvs"].reshape(-1, 3)
    f.rtp, f.tgl, f.uvw = d["rtp"], np.zeros(len(d["rtp"]), np.int32), d["uvw"].reshape(-1, 3)
    f.rwh, f.twh, f.ln1, f.rxy, f.axs = (
        d["rwh"],
        d["twh"],
        d["ln1"],
        d["rxy"].reshape(-1, 2),
        d["axs"].reshape(-1, 4, 3),
    )
    box = d["box"]
    x = gc.ZCurvesToUSD()
    x.basePath, x.follicles, x.curves = base, f, curves
    x.boundingBox = gc.ZBoundingBox(gc.ZVector(*box[:3]), gc.ZVector(*box[3:]))
    x.scales, x.rotations, x.folds = d["scales"].reshape(-1, 3), d["rotations"].reshape(-1, 3), d["folds"]
    x.feathers = [feather(d, k) for k in range(int(d["feather.count"][0]) if "feather.count" in d else 0)]
    geom_calls = 0
    for op in read_ops(ops):
        if op[0] == "set":
            set_field(x, op[1], op[2])
        elif op[0] == "move":
            curves.cvs = curves.cvs + op[1]
            axs = f.axs
            axs[:, 0] += op[1]
            del axs
            lo, hi = x.boundingBox.minPoint, x.boundingBox.maxPoint
            x.boundingBox.minPoint = gc.ZVector(*(np.array([lo.x, lo.y, lo.z], F) + op[1]))
            x.boundingBox.maxPoint = gc.ZVector(*(np.array([hi.x, hi.y, hi.z], F) + op[1]))
        elif op[0] == "attr":
            x.writeAttributeToUSD(op[1])
        elif op[0] == "geom":
            if x.featherMode and x.bindingScheme in (4, 6):
                # The deformed feathers the reference writer takes its placements from.
                with open(f"{base}.placed.{geom_calls}", "wb") as out:
                    for i, kind in enumerate(f.rtp):
                        if 0 <= kind < len(x.feathers):
                            mesh, _, cv = x.feathers[kind].deform(
                                f, curves, i, float(x.scales[i, 0]), float(x.folds[i]), x.bindingScheme == 6
                            )
                            out.write(mesh.tobytes() + cv.tobytes())
            geom_calls += 1
            x.writeGeometryToUSD(float(op[1]), op[2], op[3])
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 4:
        print("usage: usd_driver.py INPUTS OPS BASEPATH", file=sys.stderr)
        sys.exit(2)
    sys.exit(main(*sys.argv[1:]))
