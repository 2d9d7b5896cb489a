"""The peer of the Alembic benchmark, on the real Alembic library (alembic3d):

alembic_bench_peer.py write DIR POINTS SAMPLES OBJECTS
    mesh.abc: one animated PolyMesh of POINTS points (a grid of quads) over SAMPLES
    samples; tree.abc: OBJECTS objects, transforms in groups of 100, each holding a
    small mesh; full.abc: a mesh of POINTS points with indexed face-varying UVs over 10
    samples; wide_2500.abc and wide_10000.abc: that many sibling transforms.
alembic_bench_peer.py read DIR SAMPLES
    reads every sample's positions of mesh.abc, and walks tree.abc reading every
    object's name and full name; prints one JSON line with the seconds spent in the
    library for each.
"""

import json
import math
import os
import sys
import time

import imath
import numpy as np
from alembic3d import Abc, AbcCoreAbstract, AbcGeom


def write(out, points, samples, objects):
    side = int(math.isqrt(points))
    xs, ys = np.meshgrid(np.arange(side, dtype=np.float32), np.arange(side, dtype=np.float32))
    base = np.stack([xs.ravel(), ys.ravel(), np.zeros(side * side, np.float32)], axis=1)
    q = np.arange((side - 1) * (side - 1))
    a = (q // (side - 1)) * side + q % (side - 1)
    indices = np.stack([a, a + side, a + side + 1, a + 1], axis=1).astype(np.int32).ravel()
    counts = np.full(len(q), 4, dtype=np.int32)
    archive = Abc.OArchive(os.path.join(out, "mesh.abc"))
    tsi = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / 24, 1.0 / 24))
    mesh = AbcGeom.OPolyMesh(archive.getTop(), "bigShape", tsi)
    for k in range(samples):
        p = base.copy()
        p[:, 2] = 0.01 * k * np.sin(base[:, 0] * 0.01)
        mesh.getSchema().set(
            AbcGeom.OPolyMeshSchemaSample(
                imath.V3fArrayFromBuffer(np.ascontiguousarray(p)),
                imath.IntArrayFromBuffer(indices),
                imath.IntArrayFromBuffer(counts),
            )
        )
    del mesh, archive

    archive = Abc.OArchive(os.path.join(out, "tree.abc"))
    top = archive.getTop()
    keep = []
    tri = imath.V3fArray(3)
    for i, p in enumerate([(0, 0, 0), (1, 0, 0), (0, 1, 0)]):
        tri[i] = imath.V3f(*p)
    group = None
    made = 0
    while made < objects:
        if made % 100 == 0:
            group = AbcGeom.OXform(top, f"group{made}")
            keep.append(group)
            made += 1
            continue
        x = AbcGeom.OXform(group, f"xf{made}")
        s = AbcGeom.XformSample()
        s.setTranslation(imath.V3d(made, 0, 0))
        x.getSchema().set(s)
        m = AbcGeom.OPolyMesh(x, f"shape{made}")
        ints = imath.IntArray(3)
        for i in range(3):
            ints[i] = i
        cnt = imath.IntArray(1)
        cnt[0] = 3
        m.getSchema().set(AbcGeom.OPolyMeshSchemaSample(tri, ints, cnt))
        keep += [x, m]
        made += 2
    del keep, group, top, archive

    archive = Abc.OArchive(os.path.join(out, "full.abc"))
    tsi = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / 24, 1.0 / 24))
    mesh = AbcGeom.OPolyMesh(archive.getTop(), "fullShape", tsi)
    uv_values = imath.V2fArrayFromBuffer(np.ascontiguousarray((base[:, :2] / side).astype(np.float32)))
    uv_indices = imath.UnsignedIntArray(len(indices))  # no buffer constructor for unsigned ints
    for i, v in enumerate(indices.tolist()):
        uv_indices[i] = v
    for k in range(10):
        p = base.copy()
        p[:, 2] = 0.01 * k
        uv = AbcGeom.OV2fGeomParamSample(uv_values, uv_indices, AbcGeom.GeometryScope.kFacevaryingScope)
        mesh.getSchema().set(
            AbcGeom.OPolyMeshSchemaSample(
                imath.V3fArrayFromBuffer(np.ascontiguousarray(p)),
                imath.IntArrayFromBuffer(indices),
                imath.IntArrayFromBuffer(counts),
                uv,
            )
        )
    del mesh, archive

    for n in (2500, 10000):
        archive = Abc.OArchive(os.path.join(out, f"wide_{n}.abc"))
        top = archive.getTop()
        keep = [AbcGeom.OXform(top, f"sibling{i:05d}") for i in range(n)]
        del keep, top, archive


def read_full(out):
    """Every array of every sample: positions, counts, indices, UV values and indices."""
    t0 = time.perf_counter()
    archive = Abc.IArchive(os.path.join(out, "full.abc"))
    schema = AbcGeom.IPolyMesh(archive.getTop().getChild(0), Abc.WrapExistingFlag.kWrapExisting).getSchema()
    uv = schema.getUVsParam()
    total = 0
    for k in range(schema.getNumSamples()):
        sel = Abc.ISampleSelector(requestedIndex=k)
        v = schema.getValue(sel)
        u = uv.getIndexedValue(sel)
        total += len(v.getPositions()) + len(v.getFaceCounts()) + len(v.getFaceIndices())
        total += len(u.getVals()) + len(u.getIndices())
    return time.perf_counter() - t0, total


def read_wide(out, n):
    t0 = time.perf_counter()
    top = Abc.IArchive(os.path.join(out, f"wide_{n}.abc")).getTop()
    names = sum(len(top.getChild(i).getName()) for i in range(top.getNumChildren()))
    return time.perf_counter() - t0, names


def read(out, samples):
    t0 = time.perf_counter()
    archive = Abc.IArchive(os.path.join(out, "mesh.abc"))
    mesh = AbcGeom.IPolyMesh(archive.getTop().getChild(0), Abc.WrapExistingFlag.kWrapExisting).getSchema()
    total = 0
    for k in range(samples):
        total += len(mesh.getValue(Abc.ISampleSelector((k + 1) / 24.0)).getPositions())
    mesh_s = time.perf_counter() - t0

    t0 = time.perf_counter()
    archive = Abc.IArchive(os.path.join(out, "tree.abc"))
    names = 0
    stack = [archive.getTop()]
    while stack:
        obj = stack.pop()
        for i in range(obj.getNumChildren()):
            child = obj.getChild(i)
            names += len(child.getName()) + len(child.getFullName())
            stack.append(child)
    tree_s = time.perf_counter() - t0
    full_s, values = read_full(out)
    wide_2500_s, _ = read_wide(out, 2500)
    wide_10000_s, _ = read_wide(out, 10000)
    print(
        json.dumps(
            {
                "mesh_s": mesh_s,
                "tree_s": tree_s,
                "points": total,
                "names": names,
                "full_s": full_s,
                "values": values,
                "wide_2500_s": wide_2500_s,
                "wide_10000_s": wide_10000_s,
            }
        )
    )


if __name__ == "__main__":
    if sys.argv[1] == "write":
        write(sys.argv[2], int(sys.argv[3]), int(sys.argv[4]), int(sys.argv[5]))
    else:
        read(sys.argv[2], int(sys.argv[3]))
