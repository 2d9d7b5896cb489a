"""Alembic scenes written with the real Alembic library (alembic3d, Ogawa), for the tests of
groomcore's own reader:

    abc_scenes.py OUT_DIR     writes scene.abc, body.abc, leaf.abc and lonely.abc there

scene.abc: nested transforms with rotations and scales (a zero scale, a singular one, a
mirror), several samples on some properties and one on others, meshes of triangles, quads
and an n-gon, indexed and plain UVs, velocities, names that share a substring.
body.abc: a body mesh under an animated transform, for rebinding strands to it.
leaf.abc: a source: two leaf meshes under groups with their own transforms.
lonely.abc: a single mesh as the first top-level object.
dcc.abc: what DCCs write: nested instances (as Maya and Houdini instance geometry), a
mesh with face sets (Maya, Blender), a single matrix op (Blender, Houdini, Gaffer, 3ds
Max), a Maya pivot stack, transforms sampled twice per frame above a mesh sampled once
(Blender), a transform that does not inherit, a matrix op at gimbal lock, a mesh sampled at
half frames under a transform sampled on whole frames, and a subdivision surface named like
a body.
wide.abc: 10,000 sibling transforms under the first top-level object, one with a mesh.
rigid.abc: meshes stored once under transforms sampled every frame, as Blender writes them.
curves.abc: groom guides as DCCs write them (see write_curves).
archive_version_1.abc: body.abc with an archive version no release of Alembic writes.
"""

import math
import os
import struct
import sys

import imath
from alembic3d import Abc, AbcCoreAbstract, AbcGeom

FPS = 24.0


def v3f(points):
    a = imath.V3fArray(len(points))
    for i, p in enumerate(points):
        a[i] = imath.V3f(*p)
    return a


def ints(values):
    a = imath.IntArray(len(values))
    for i, v in enumerate(values):
        a[i] = int(v)
    return a


def uints(values):
    a = imath.UnsignedIntArray(len(values))
    for i, v in enumerate(values):
        a[i] = int(v)
    return a


def v2f(values):
    a = imath.V2fArray(len(values))
    for i, v in enumerate(values):
        a[i] = imath.V2f(*v)
    return a


def op(kind, *channels):
    o = AbcGeom.XformOp(kind, 0)
    for i, c in enumerate(channels):
        o.setChannelValue(i, c)
    return o


def xform(parent, name, tsi, samples):
    """samples: one list of ops per sample."""
    x = AbcGeom.OXform(parent, name, tsi)
    for ops in samples:
        s = AbcGeom.XformSample()
        for o in ops:
            s.addOp(o)
        x.getSchema().set(s)
    return x


def trs(t, r, s):
    """The stack translate, rotateZ, rotateY, rotateX, scale."""
    T, RX, RY, RZ, S = (
        AbcGeom.XformOperationType.kTranslateOperation,
        AbcGeom.XformOperationType.kRotateXOperation,
        AbcGeom.XformOperationType.kRotateYOperation,
        AbcGeom.XformOperationType.kRotateZOperation,
        AbcGeom.XformOperationType.kScaleOperation,
    )
    return [op(T, *t), op(RZ, r[2]), op(RY, r[1]), op(RX, r[0]), op(S, *s)]


def mesh(parent, name, tsi, frames, counts, indices, uvs=None, uv_indices=None, velocities=None):
    m = AbcGeom.OPolyMesh(parent, name, tsi)
    for _k, pts in enumerate(frames):
        if uvs is not None and uv_indices is not None:
            uv = AbcGeom.OV2fGeomParamSample(v2f(uvs), uints(uv_indices), AbcGeom.GeometryScope.kFacevaryingScope)
        elif uvs is not None:
            uv = AbcGeom.OV2fGeomParamSample(v2f(uvs), AbcGeom.GeometryScope.kFacevaryingScope)
        else:
            uv = AbcGeom.OV2fGeomParamSample()
        sample = AbcGeom.OPolyMeshSchemaSample(v3f(pts), ints(indices), ints(counts), uv)
        if velocities is not None:
            sample.setVelocities(v3f(velocities))
        m.getSchema().set(sample)
    return m


def write_scene(path):
    archive = Abc.OArchive(path)
    top = archive.getTop()
    tsi = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / FPS, 1.0 / FPS))
    keep = []
    root = xform(top, "root", tsi, [trs((1, 2, 3), (10, 20, 30), (2, 3, 4)), trs((1.5, 2, 3), (10, 20, 30), (2, 3, 4))])
    body_xf = xform(root, "bodyXf", tsi, [trs((0, k, 0), (0, 0, 15 * k), (1, 1, 1)) for k in range(3)])
    # Two triangles, a quad and a pentagon; indexed UVs shared between corners.
    pts = [(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0), (2, 0, 0), (2, 1, 0), (3, 0.5, 0), (2.5, 2, 0), (1.5, 2, 0)]
    counts = [3, 3, 4, 5]
    indices = [0, 1, 2, 0, 2, 3, 1, 4, 5, 2, 4, 6, 7, 8, 5]
    uvs = [(0, 0), (1, 0), (1, 1), (0, 1), (0.5, 0.5), (0.25, 0.75)]
    uv_idx = [0, 1, 2, 0, 2, 3, 1, 4, 5, 2, 4, 0, 1, 3, 5]
    frames = [[(x, y, z + 0.25 * k) for (x, y, z) in pts] for k in range(3)]
    keep.append(mesh(body_xf, "bodyShape", tsi, frames, counts, indices, uvs, uv_idx))
    zero = xform(
        root,
        "zeroScale",
        tsi,
        [
            [
                op(AbcGeom.XformOperationType.kTranslateOperation, 5, 0, 0),
                op(AbcGeom.XformOperationType.kScaleOperation, 0, 0, 0),
            ]
        ],
    )
    quad = [(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0)]
    keep.append(mesh(zero, "zeroShape", tsi, [quad], [4], [0, 1, 2, 3], uvs=[(0, 0), (1, 0), (1, 1), (0, 1)]))
    singular = xform(root, "singular", tsi, [trs((0, 0, 7), (0, 0, 0), (0, 1, 1))])
    keep.append(mesh(singular, "singularShape", tsi, [quad[:3]], [3], [0, 1, 2]))
    mirror = xform(root, "mirror", tsi, [trs((0, -2, 0), (90, 0, 0), (-1, 1, 1))])
    keep.append(
        mesh(
            mirror,
            "mirrorShape",
            tsi,
            [quad, [(x, y, 1) for x, y, _ in quad]],
            [4],
            [0, 1, 2, 3],
            velocities=[(0, 0, 1)] * 4,
        )
    )
    arm = xform(root, "armBody", tsi, [[]])
    second = xform(top, "second", tsi, [trs((0, 0, 0), (0, 45, 0), (1, 1, 1))])
    keep.append(mesh(second, "secondShape", tsi, [quad], [4], [0, 1, 2, 3]))
    keep += [root, body_xf, zero, singular, mirror, arm, second, top, archive]
    del keep


def write_body(path):
    """A body for rebinding: a 3 x 3 grid of quads under an animated transform."""
    archive = Abc.OArchive(path)
    top = archive.getTop()
    tsi = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / FPS, 1.0 / FPS))
    body = xform(top, "character", tsi, [trs((0, 0, k), (0, 0, 0), (1, 1, 1)) for k in range(3)])
    pts, counts, indices, uvs, uv_idx = [], [], [], [], []
    for j in range(4):
        for i in range(4):
            pts.append((float(i), float(j), 0.1 * i * j))
            uvs.append((i / 3.0, j / 3.0))
    for j in range(3):
        for i in range(3):
            a = 4 * j + i
            counts.append(4)
            quad = [a, a + 4, a + 5, a + 1]  # clockwise seen from +z, as Alembic stores faces
            indices += quad
            uv_idx += quad
    frames = [[(x, y, z + 0.5 * k) for (x, y, z) in pts] for k in range(3)]
    shape = mesh(body, "characterBodyShape", tsi, frames, counts, indices, uvs, uv_idx)
    prop = xform(top, "prop", tsi, [[]])
    del shape, body, prop, top, archive


def write_leaf(path):
    """A source: leaves under groups, the first top-level object translated."""
    archive = Abc.OArchive(path)
    top = archive.getTop()
    tsi = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / FPS, 1.0 / FPS))
    grp = xform(top, "leafGroup", tsi, [trs((1, 0, 0), (0, 0, 0), (1, 1, 1))] * 2)
    a = xform(grp, "bladeA", tsi, [trs((0, 2, 0), (0, 0, 90), (2, 2, 2))] * 2)
    tri = [(0, 0, 0), (1, 0, 0), (0, 1, 0)]
    sa = mesh(a, "bladeAShape", tsi, [tri], [3], [0, 1, 2])
    b = xform(grp, "bladeB", tsi, [trs((0, 0, 3), (0, 0, 0), (0, 0, 0))] * 2)
    sb = mesh(b, "bladeBShape", tsi, [[(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0)]], [4], [0, 1, 2, 3])
    other = xform(top, "ignored", tsi, [[]])
    so = mesh(other, "ignoredShape", tsi, [tri], [3], [0, 1, 2])
    del sa, sb, so, a, b, grp, other, top, archive


def write_lonely(path):
    """A first top-level object that is itself a mesh, with no children."""
    archive = Abc.OArchive(path)
    top = archive.getTop()
    tsi = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / FPS, 1.0 / FPS))
    m = mesh(top, "lonelyShape", tsi, [[(0, 0, 0), (1, 0, 0), (0, 1, 0)]], [3], [0, 1, 2])
    del m, top, archive


def write_dcc(path):
    archive = Abc.OArchive(path)
    top = archive.getTop()
    tsi = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / FPS, 1.0 / FPS))
    twice = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(0.5 / FPS, 1.0 / FPS))
    T, RX, RY, RZ, S = (
        AbcGeom.XformOperationType.kTranslateOperation,
        AbcGeom.XformOperationType.kRotateXOperation,
        AbcGeom.XformOperationType.kRotateYOperation,
        AbcGeom.XformOperationType.kRotateZOperation,
        AbcGeom.XformOperationType.kScaleOperation,
    )
    keep = []
    tri = [(0, 0, 0), (1, 0, 0), (0, 1, 0)]
    quads = [(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0), (2, 0, 0), (2, 1, 0)]
    # Instances: /src (a transform with a mesh), instanced at /instA and inside /group,
    # and /group itself instanced under /outer: instances within instances.
    src = xform(top, "src", tsi, [trs((1, 0, 0), (0, 0, 30), (1, 1, 1))])
    keep.append(mesh(src, "srcShape", tsi, [tri, [(x, y, 1) for x, y, _ in tri]], [3], [0, 2, 1]))
    group = xform(top, "group", tsi, [trs((0, 3, 0), (0, 0, 0), (2, 2, 2))])
    group.addChildInstance(src, "instB")
    top.addChildInstance(src, "instA")
    outer = xform(top, "outer", tsi, [trs((0, 0, 5), (0, 90, 0), (1, 1, 1))])
    outer.addChildInstance(group, "groupInstance")
    # A body mesh with two face sets below it.
    faced = xform(top, "characterXf", tsi, [trs((0, 0, 0), (0, 0, 0), (1, 1, 1))])
    body = mesh(faced, "bodyShape", tsi, [quads], [4, 4], [0, 3, 2, 1, 1, 2, 5, 4])
    for name, faces in (("skin", [0]), ("scalp", [1])):
        fs = body.getSchema().createFaceSet(name)
        fs.getSchema().set(AbcGeom.OFaceSetSchemaSample(ints(faces)))
        keep.append(fs)
    keep.append(body)
    # One matrix op: rotation about a tilted axis, non-uniform scale, translation.
    axis = [v / math.sqrt(14) for v in (1, 2, 3)]
    c, sn, k = math.cos(0.7), math.sin(0.7), 1 - math.cos(0.7)
    x, y, z = axis
    rot = [
        [k * x * x + c, k * x * y + sn * z, k * x * z - sn * y],  # rows, for row vectors
        [k * x * y - sn * z, k * y * y + c, k * y * z + sn * x],
        [k * x * z + sn * y, k * y * z - sn * x, k * z * z + c],
    ]
    scale = (2, 0.5, 1.5)
    rows = [[scale[i] * rot[i][j] for j in range(3)] + [0] for i in range(3)] + [[4, -1, 2, 1]]
    m = imath.M44d(*[v for row in rows for v in row])
    matrix = AbcGeom.OXform(top, "blenderXf", tsi)
    sample = AbcGeom.XformSample()
    sample.setMatrix(m)
    matrix.getSchema().set(sample)
    keep.append(mesh(matrix, "blenderShape", tsi, [tri], [3], [0, 2, 1]))
    # Maya's pivots: translate, rotate pivot, rotation, the pivot back, scale pivot, scale,
    # the scale pivot back.
    pivot = xform(
        top,
        "mayaXf",
        tsi,
        [
            [
                op(T, 1, 2, 3),
                op(T, 0.5, 0, 0),
                op(RZ, 30),
                op(RY, 10),
                op(RX, 5),
                op(T, -0.5, 0, 0),
                op(T, 0, 1, 0),
                op(S, 2, 2, 2),
                op(T, 0, -1, 0),
            ]
        ],
    )
    keep.append(mesh(pivot, "mayaShape", tsi, [tri], [3], [0, 2, 1]))
    # A transform sampled twice per frame above a mesh sampled once per frame.
    sway = xform(top, "swayXf", twice, [trs((0.25 * k, 0, 0), (0, 0, 0), (1, 1, 1)) for k in range(6)])
    keep.append(mesh(sway, "swayShape", tsi, [tri, tri, tri], [3], [0, 2, 1]))
    # A transform that does not inherit: the world matrix restarts there.
    parent = xform(top, "movedXf", tsi, [trs((10, 0, 0), (0, 0, 0), (1, 1, 1))])
    alone = AbcGeom.OXform(parent, "worldXf", tsi)
    sample = AbcGeom.XformSample()
    sample.addOp(op(T, 0, 0, 1))
    sample.setInheritsXforms(False)
    alone.getSchema().set(sample)
    keep.append(mesh(alone, "worldShape", tsi, [tri], [3], [0, 2, 1]))
    # A matrix op at gimbal lock, Ry(90) Rx(30): the x and z rotations share an axis.
    locked = AbcGeom.XformSample()
    locked.addOp(op(RY, 90))
    locked.addOp(op(RX, 30))
    gimbal = AbcGeom.OXform(top, "gimbalXf", tsi)
    sample = AbcGeom.XformSample()
    sample.setMatrix(locked.getMatrix())
    gimbal.getSchema().set(sample)
    keep.append(mesh(gimbal, "gimbalShape", tsi, [tri], [3], [0, 2, 1]))
    # A mesh sampled at half frames under a transform sampled on whole frames: a mesh sample
    # half-way between two transform samples takes the earlier one. Times in whole seconds,
    # so the two distances are exactly equal.
    whole = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0, 0.0))
    halves = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(0.5, 0.0))
    steps = xform(top, "stepXf", whole, [trs((k, 0, 0), (0, 0, 0), (1, 1, 1)) for k in range(3)])
    keep.append(mesh(steps, "halfShape", halves, [tri, tri, tri], [3], [0, 2, 1]))
    # A subdivision surface named like a body: never a body for the rebinding.
    subd = AbcGeom.OSubD(top, "BodySubD", tsi)
    subd.getSchema().set(AbcGeom.OSubDSchemaSample(v3f(quads), ints([0, 3, 2, 1]), ints([4])))
    keep += [src, group, outer, faced, matrix, pivot, sway, parent, alone, gimbal, steps, subd, top, archive]
    del keep


def write_wide(path, count=10000):
    """10,000 sibling transforms under the first top-level object, one holding a mesh."""
    archive = Abc.OArchive(path)
    top = archive.getTop()
    wide = xform(top, "wide", 0, [[]])
    keep = [xform(wide, f"sibling{i:05d}", 0, [[]]) for i in range(count)]
    keep.append(mesh(keep[count // 2], "middleShape", 0, [[(0, 0, 0), (1, 0, 0), (0, 1, 0)]], [3], [0, 2, 1]))
    del keep, wide, top, archive


def write_rigid(path, frames=24):
    """What Blender (and Maya, for rigid props) writes for a mesh whose points do not change:
    one sample of the mesh under transforms sampled every frame, from frame 1 at 24 fps.
    /propXf/propShape: a rigid prop turned and moved by its own transform;
    /rigXf/propXf/propShape: the same under an animated parent;
    /rigXf/staticXf/staticShape: a static child (one transform sample) under the animated parent."""
    archive = Abc.OArchive(path)
    top = archive.getTop()
    tsi = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / FPS, 1.0 / FPS))
    tri = [(0, 0, 0), (1, 0, 0), (0, 1, 0), (0, 0, 1)]
    keep = []

    def prop(parent, name, shape):
        xf = xform(
            parent, name, tsi, [trs((0.1 * k, 0, 0.05 * k), (7.5 * k, 15 * k, 0), (1, 1, 1)) for k in range(frames)]
        )
        keep.extend([xf, mesh(xf, shape, tsi, [tri], [3, 3], [0, 2, 1, 0, 3, 2])])
        return xf

    prop(top, "propXf", "propShape")
    rig = xform(top, "rigXf", tsi, [trs((0, 0.2 * k, 0), (0, 0, 4 * k), (1, 1, 1)) for k in range(frames)])
    prop(rig, "propXf", "propShape")
    still = xform(rig, "staticXf", tsi, [trs((0, 0, 2), (0, 0, 0), (1, 1, 1))])
    keep += [rig, still, mesh(still, "staticShape", tsi, [tri], [3, 3], [0, 2, 1, 0, 3, 2]), top, archive]
    keep.clear()  # the archive is written out as its last reference goes


def curves(parent, name, tsi, frames, counts, kind, wrap, basis, widths=None, width_indices=None, uvs=None, ids=None):
    """Curves with one sample per entry of `frames` (point lists); widths (indexed when
    width_indices are given) and uvs (per curve) by the scope their count implies; ids as an
    int32 geometry parameter "id" per curve."""
    c = AbcGeom.OCurves(parent, name, tsi)
    schema = c.getSchema()
    n_points = len(frames[0])

    def scope(n):
        return (
            AbcGeom.GeometryScope.kConstantScope
            if n == 1
            else AbcGeom.GeometryScope.kUniformScope
            if n == len(counts)
            else AbcGeom.GeometryScope.kVertexScope
        )

    if widths is None:
        width = AbcGeom.OFloatGeomParamSample()
    else:
        vals = imath.FloatArray(len(widths))
        for i, w in enumerate(widths):
            vals[i] = w
        n = len(width_indices) if width_indices is not None else len(widths)
        width = (
            AbcGeom.OFloatGeomParamSample(vals, uints(width_indices), scope(n))
            if width_indices is not None
            else AbcGeom.OFloatGeomParamSample(vals, scope(n))
        )
    uv = AbcGeom.OV2fGeomParamSample(v2f(uvs), scope(len(uvs))) if uvs is not None else AbcGeom.OV2fGeomParamSample()
    id_param = None
    if ids is not None:
        id_param = AbcGeom.OInt32GeomParam(
            schema.getArbGeomParams(), "id", False, AbcGeom.GeometryScope.kUniformScope, 1
        )
    for _k, pts in enumerate(frames):
        assert len(pts) == n_points
        sample = AbcGeom.OCurvesSchemaSample(
            v3f(pts), ints(counts), kind, wrap, width, uv, AbcGeom.ON3fGeomParamSample(), basis
        )
        schema.set(sample)
        if id_param is not None:
            id_param.set(AbcGeom.OInt32GeomParamSample(ints(ids), AbcGeom.GeometryScope.kUniformScope))
    return c


def write_curves(path):
    """Groom guides as DCCs hand them over.
    /guidesXf/blenderHair: catmull-rom curves pinned at both ends (first and last points
    doubled) with a width per point and the root's uv per curve, three samples, under a
    transform animated over three frames (as Blender writes hair curves);
    /cubic: b-spline curves with indexed widths per curve and an id per curve;
    /staticXf/linear: periodic linear curves with one width for all, under a scaled transform;
    /staticXf/badCounts: counts that do not add up to the points."""
    archive = Abc.OArchive(path)
    top = archive.getTop()
    tsi = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / FPS, 1.0 / FPS))
    keep = [top, archive]

    def strand(x, z, n, sway):
        return [(x + sway * (j / (n - 1)) ** 2, 0.1 * j, z) for j in range(n)]

    def pinned(pts):
        return [pts[0]] + pts + [pts[-1]]

    hair = []
    for k in range(3):
        pts = []
        for i, n in enumerate((4, 6, 5)):
            pts += pinned(strand(0.25 * i, 0.1 * i, n, 0.05 * k))
        hair.append(pts)
    counts = [6, 8, 7]
    guides = xform(top, "guidesXf", tsi, [trs((0, 0.5 * k, 0), (0, 10 * k, 0), (1, 1, 1)) for k in range(3)])
    widths = [0.01 - 0.0005 * j for j in range(sum(counts))]
    keep += [
        guides,
        curves(
            guides,
            "blenderHair",
            tsi,
            hair,
            counts,
            AbcGeom.CurveType.kCubic,
            AbcGeom.CurvePeriodicity.kNonPeriodic,
            AbcGeom.BasisType.kCatmullromBasis,
            widths=widths,
            uvs=[(0.1, 0.2), (0.3, 0.4), (0.5, 0.75)],
        ),
    ]
    cubic = strand(1, 0, 4, 0.2) + strand(1.5, 0, 7, -0.1)
    keep.append(
        curves(
            top,
            "cubic",
            tsi,
            [cubic],
            [4, 7],
            AbcGeom.CurveType.kCubic,
            AbcGeom.CurvePeriodicity.kNonPeriodic,
            AbcGeom.BasisType.kBsplineBasis,
            widths=[0.02, 0.03],
            width_indices=[1, 0],
            ids=[17, 4],
        )
    )
    still = xform(top, "staticXf", tsi, [trs((1, 2, 3), (0, 0, 30), (2, 2, 2))])
    ring = [(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0)]
    keep += [
        still,
        curves(
            still,
            "linear",
            tsi,
            [ring + ring[::-1]],
            [4, 4],
            AbcGeom.CurveType.kLinear,
            AbcGeom.CurvePeriodicity.kPeriodic,
            AbcGeom.BasisType.kNoBasis,
            widths=[0.5],
        ),
        curves(
            still,
            "badCounts",
            tsi,
            [ring],
            [3, 3],
            AbcGeom.CurveType.kLinear,
            AbcGeom.CurvePeriodicity.kNonPeriodic,
            AbcGeom.BasisType.kNoBasis,
        ),
    ]
    del keep


def write_archive_version(source, path, version):
    """A copy of `source` whose archive version (the first data of the root group) is
    `version`: the real library refuses any but the one it writes."""
    data = bytearray(open(source, "rb").read())
    u64 = lambda at: struct.unpack_from("<Q", data, at)[0]  # noqa: E731
    root = u64(8)
    first = u64(root + 8) & ~(1 << 63)  # child 0, a data block: its size, then its bytes
    assert u64(first) == 4
    struct.pack_into("<i", data, first + 8, version)
    open(path, "wb").write(bytes(data))


if __name__ == "__main__":
    out = sys.argv[1]
    os.makedirs(out, exist_ok=True)
    write_scene(os.path.join(out, "scene.abc"))
    write_body(os.path.join(out, "body.abc"))
    write_leaf(os.path.join(out, "leaf.abc"))
    write_lonely(os.path.join(out, "lonely.abc"))
    write_dcc(os.path.join(out, "dcc.abc"))
    write_wide(os.path.join(out, "wide.abc"))
    write_rigid(os.path.join(out, "rigid.abc"))
    write_curves(os.path.join(out, "curves.abc"))
    write_archive_version(os.path.join(out, "body.abc"), os.path.join(out, "archive_version_1.abc"), 1)
