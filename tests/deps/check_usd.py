"""Runs the C++ layer writer and reads its file back with real USD (usd-core)."""
import os
import subprocess
import sys
import tempfile

from pxr import Usd, UsdGeom


def main(writer):
    with tempfile.TemporaryDirectory() as tmp:
        path = os.path.join(tmp, "groom.usd")
        subprocess.run([writer, path], check=True)
        stage = Usd.Stage.Open(path)
        assert stage, "stage did not open"
        assert stage.GetDefaultPrim().GetPath() == "/groom"
        prim = stage.GetPrimAtPath("/groom/curves")
        assert prim.GetTypeName() == "BasisCurves", prim.GetTypeName()
        curves = UsdGeom.BasisCurves(prim)
        assert list(curves.GetCurveVertexCountsAttr().Get()) == [4, 4]
        assert curves.GetBasisAttr().Get() == "catmullRom"
        pts = curves.GetPointsAttr()
        assert pts.GetTimeSamples() == [1.0, 2.0], pts.GetTimeSamples()
        p1, p2 = pts.Get(1.0), pts.Get(2.0)
        assert len(p1) == 8 and tuple(p1[5]) == (1.0, 1.0, 0.5), p1
        assert tuple(p2[5]) == (1.0, 1.0, 1.0), p2
        assert (stage.GetStartTimeCode(), stage.GetEndTimeCode()) == (1.0, 2.0)
    print("usd read-back: ok")


if __name__ == "__main__":
    main(sys.argv[1])
