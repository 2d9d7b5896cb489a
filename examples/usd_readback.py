"""Reads a curves export back with usd-core, as a renderer's USD would see it, and dumps the
BasisCurves prim's curveVertexCounts, points and widths as raw arrays for the gallery:

    usd_readback.py FILE.usd OUT.raw [TIME]

OUT.raw: int32 curve count, the counts, int32 point count, the points (3 floats each),
int32 width count, the widths. The prim is the layer's default prim.
"""

import sys

import numpy as np
from pxr import Usd, UsdGeom


def main():
    path, out = sys.argv[1], sys.argv[2]
    stage = Usd.Stage.Open(path)
    t = Usd.TimeCode(float(sys.argv[3])) if len(sys.argv) > 3 else Usd.TimeCode.Default()
    curves = UsdGeom.BasisCurves(stage.GetDefaultPrim())
    counts = np.array(curves.GetCurveVertexCountsAttr().Get(t), dtype=np.int32)
    points = np.array(curves.GetPointsAttr().Get(t), dtype=np.float32).reshape(-1, 3)
    widths = np.array(curves.GetWidthsAttr().Get(t), dtype=np.float32)
    assert curves.GetWidthsInterpolation() == UsdGeom.Tokens.vertex and counts.sum() == len(points) == len(widths)
    with open(out, "wb") as f:
        for a in (counts, points, widths):
            f.write(np.int32(len(a)).tobytes())
            f.write(a.tobytes())


if __name__ == "__main__":
    main()
