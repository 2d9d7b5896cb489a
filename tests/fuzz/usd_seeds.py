"""Seeds of the USD readers' fuzz target, written by usd-core: a layer with BasisCurves and
Mesh prims under animated transforms of every op kind, UVs of both interpolations, indexed
and plain, in text (.usda) and crate (.usdc) form.

    python usd_seeds.py OUT_DIR
"""

import sys
from pathlib import Path

from pxr import Gf, Sdf, Usd, UsdGeom, Vt


def scene(path: Path) -> None:
    stage = Usd.Stage.CreateNew(str(path))
    rig = UsdGeom.Xform.Define(stage, "/rig")
    move = rig.AddTranslateOp()
    move.Set(Gf.Vec3d(0, 0, 0), 1.0)
    move.Set(Gf.Vec3d(0, 2, 0), 2.0)
    rig.AddRotateXYZOp().Set(Gf.Vec3f(10, 20, 30))
    rig.AddOrientOp().Set(Gf.Quatf(0.8, 0.6, 0, 0))
    rig.AddScaleOp().Set(Gf.Vec3f(1, 2, 1))
    rig.AddTransformOp(opSuffix="m").Set(Gf.Matrix4d(1))
    rig.AddTranslateOp(opSuffix="p", isInverseOp=True)
    c = UsdGeom.BasisCurves.Define(stage, "/rig/guides")
    c.CreateTypeAttr("cubic")
    c.CreateBasisAttr("catmullRom")
    c.CreateCurveVertexCountsAttr(Vt.IntArray([4, 4]))
    c.GetPointsAttr().Set(Vt.Vec3fArray([Gf.Vec3f(0.1 * i, 0.2 * i, 0) for i in range(8)]), 1.0)
    c.GetPointsAttr().Set(Vt.Vec3fArray([Gf.Vec3f(0.1 * i, 0.2 * i, 1) for i in range(8)]), 2.0)
    c.CreateWidthsAttr(Vt.FloatArray([0.01] * 8))
    st = UsdGeom.PrimvarsAPI(c).CreatePrimvar("st", Sdf.ValueTypeNames.TexCoord2fArray, "uniform")
    st.Set(Vt.Vec2fArray([Gf.Vec2f(0.25, 0.5)]))
    st.SetIndices(Vt.IntArray([0, 0]))
    UsdGeom.PrimvarsAPI(c).CreatePrimvar("ids", Sdf.ValueTypeNames.IntArray, "uniform").Set(Vt.IntArray([3, 4]))
    m = UsdGeom.Mesh.Define(stage, "/rig/body")
    m.GetPointsAttr().Set(Vt.Vec3fArray([Gf.Vec3f(x, y, 0) for y in range(3) for x in range(3)]))
    m.GetFaceVertexCountsAttr().Set(Vt.IntArray([4, 4, 3, 3, 4]))
    m.GetFaceVertexIndicesAttr().Set(Vt.IntArray([0, 1, 4, 3, 1, 2, 5, 4, 3, 4, 6, 4, 7, 6, 4, 5, 8, 7]))
    uv = UsdGeom.PrimvarsAPI(m).CreatePrimvar("st", Sdf.ValueTypeNames.TexCoord2fArray, "faceVarying")
    uv.Set(Vt.Vec2fArray([Gf.Vec2f(0.1 * k, 0.05 * k) for k in range(6)]))
    uv.SetIndices(Vt.IntArray([k % 6 for k in range(18)]))
    left = UsdGeom.Mesh.Define(stage, "/left")
    left.GetOrientationAttr().Set("leftHanded")
    left.GetPointsAttr().Set(Vt.Vec3fArray([Gf.Vec3f(0), Gf.Vec3f(1, 0, 0), Gf.Vec3f(0, 1, 0)]))
    left.GetFaceVertexCountsAttr().Set(Vt.IntArray([3]))
    left.GetFaceVertexIndicesAttr().Set(Vt.IntArray([0, 2, 1]))
    UsdGeom.PrimvarsAPI(left).CreatePrimvar("UVMap", Sdf.ValueTypeNames.TexCoord2fArray, "vertex").Set(
        Vt.Vec2fArray([Gf.Vec2f(0, 0), Gf.Vec2f(1, 0), Gf.Vec2f(0, 1)])
    )
    stage.GetRootLayer().Save()


if __name__ == "__main__":
    out = Path(sys.argv[1])
    out.mkdir(parents=True, exist_ok=True)
    scene(out / "scene.usda")
    Sdf.Layer.FindOrOpen(str(out / "scene.usda")).Export(str(out / "scene.usdc"))
