"""Writes small reference Alembic files with the real Alembic library (alembic3d).

write_body(path): a transform "body" with a polygon-mesh child "bodyShape", two samples at
frames 1 and 2 (24 fps), a unit quad whose last point and the transform move between them.
Later readers of the project are tested against files made this way.
"""
import sys

from alembic3d import Abc, AbcCoreAbstract, AbcGeom
import imath

QUAD = [(0.0, 0.0, 0.0), (1.0, 0.0, 0.0), (1.0, 1.0, 0.0), (0.0, 1.0, 0.0)]


def sample_points(k):
    pts = [list(p) for p in QUAD]
    pts[3][2] = float(k)  # the last point rises by one unit per sample
    return pts


def write_body(path, samples=2):
    archive = Abc.OArchive(path)
    top = archive.getTop()
    tsi = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / 24.0, 1.0 / 24.0))
    xform = AbcGeom.OXform(top, "body", tsi)
    mesh = AbcGeom.OPolyMesh(xform, "bodyShape", tsi)
    for k in range(samples):
        xs = AbcGeom.XformSample()
        xs.setTranslation(imath.V3d(0.0, float(k), 0.0))
        xform.getSchema().set(xs)
        pts = imath.V3fArray(4)
        for i, p in enumerate(sample_points(k)):
            pts[i] = imath.V3f(*p)
        indices = imath.IntArray(4)
        for i in range(4):
            indices[i] = i
        counts = imath.IntArray(1)
        counts[0] = 4
        mesh.getSchema().set(AbcGeom.OPolyMeshSchemaSample(pts, indices, counts))
    # The archive is written when the last reference to it goes away.
    del mesh, xform, top, archive


if __name__ == "__main__":
    write_body(sys.argv[1])
