"""Writes the example host's Alembic inputs with the real Alembic library (alembic3d):

    write_example_abc.py BODY.raw BODY.abc LEAF.abc

BODY.raw, from `groom_host OUT --export-body BODY.raw`: int32 point count, the points
(3 floats each), int32 triangle count, the triangles (3 ints each). BODY.abc holds that
body as /character/characterBodyShape, each triangle written in Alembic's winding
(clockwise: the first corner kept, the other two swapped) so that the reader's reversal
gives the host's triangles back in order. LEAF.abc holds a source: two leaf blades under a
group, each with its own transform.
"""

import sys

import imath
import numpy as np
from alembic3d import Abc, AbcCoreAbstract, AbcGeom


def body(raw_path, out):
    raw = open(raw_path, "rb").read()
    (n,) = np.frombuffer(raw[:4], np.int32)
    pts = np.frombuffer(raw[4 : 4 + 12 * n], np.float32).reshape(-1, 3)
    (t,) = np.frombuffer(raw[4 + 12 * n : 8 + 12 * n], np.int32)
    tris = np.frombuffer(raw[8 + 12 * n : 8 + 12 * n + 12 * t], np.int32).reshape(-1, 3)
    clockwise = tris[:, [0, 2, 1]].astype(np.int32).ravel()
    archive = Abc.OArchive(out)
    tsi = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / 24, 1.0 / 24))
    xf = AbcGeom.OXform(archive.getTop(), "character", tsi)
    xf.getSchema().set(AbcGeom.XformSample())
    shape = AbcGeom.OPolyMesh(xf, "characterBodyShape", tsi)
    counts = np.full(t, 3, np.int32)
    shape.getSchema().set(
        AbcGeom.OPolyMeshSchemaSample(
            imath.V3fArrayFromBuffer(np.ascontiguousarray(pts)),
            imath.IntArrayFromBuffer(clockwise),
            imath.IntArrayFromBuffer(counts),
        )
    )
    del shape, xf, archive


def leaf(out):
    archive = Abc.OArchive(out)
    top = archive.getTop()
    group = AbcGeom.OXform(top, "leaves")
    group.getSchema().set(AbcGeom.XformSample())
    keep = [group]
    # A blade in feather space (Y along the strand), 0.25 wide, tapering to a point.
    pts = [(-0.12, 0.0, 0.0), (0.12, 0.0, 0.0), (0.1, 0.5, 0.02), (-0.1, 0.5, 0.02), (0.0, 1.0, 0.0)]
    for name, angle in (("bladeA", 0.0), ("bladeB", 25.0)):
        xf = AbcGeom.OXform(group, name)
        s = AbcGeom.XformSample()
        s.setZRotation(angle)
        xf.getSchema().set(s)
        shape = AbcGeom.OPolyMesh(xf, name + "Shape")
        p = imath.V3fArray(len(pts))
        for i, q in enumerate(pts):
            p[i] = imath.V3f(*q)
        idx, cnt = imath.IntArray(7), imath.IntArray(2)
        for i, v in enumerate([0, 3, 2, 1, 3, 4, 2]):  # a quad and a triangle, clockwise
            idx[i] = v
        cnt[0], cnt[1] = 4, 3
        shape.getSchema().set(AbcGeom.OPolyMeshSchemaSample(p, idx, cnt))
        keep += [xf, shape]
    del keep, top, archive


if __name__ == "__main__":
    body(sys.argv[1], sys.argv[2])
    leaf(sys.argv[3])
