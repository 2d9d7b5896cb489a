"""The example host's job in Python: grow a groom on a sphere body, shape it with a stack
of modifiers, place feathers and a source, bake the animated shot to a cache, read it back,
rebind it to an Alembic body, export it to USD, and draw strand statistics.

It does what examples/groom_host.cpp does, call for call, and gives the same bits: the
numbers it computes itself are single-precision in the C++ host's order of operations,
with the C library's sinf, cosf and powf, so the cache it bakes is byte-identical to the
C++ host's (the test suite checks that).

    python examples/groom.py OUTPUT_DIR [--strands N] [--body BODY_ABC] [--source SOURCE_ABC]
                             [--figure PNG]
"""

from __future__ import annotations

import argparse
import ctypes
import math
import os
import sys
import time
from collections.abc import Callable
from pathlib import Path
from typing import Any

import numpy as np
import numpy.typing as npt

import groomcore as gc

F32 = npt.NDArray[np.float32]
F = np.float32
PI = F(3.14159265)
FIRST_FRAME, FRAME_COUNT, CV_COUNT = 1001, 24, 8

_libm = ctypes.CDLL("libm.so.6")
for _name, _args in (("sinf", 1), ("cosf", 1), ("powf", 2)):
    _fn = getattr(_libm, _name)
    _fn.restype = ctypes.c_float
    _fn.argtypes = [ctypes.c_float] * _args


def _unary(name: str) -> Callable[[Any], Any]:
    fn = getattr(_libm, name)

    def apply(x: Any) -> Any:
        a = np.asarray(x, dtype=F)
        return np.array([fn(float(v)) for v in a.ravel()], dtype=F).reshape(a.shape)

    return apply


sinf, cosf = _unary("sinf"), _unary("cosf")


def powf(x: float, y: float) -> np.float32:
    return F(_libm.powf(float(x), float(y)))


# ---------------------------------------------------------------- float32 vector algebra
# Rows of (n, 3) float32 arrays, every operation in the C++ ZVector's order.


def dot(a: F32, b: F32) -> F32:
    out: F32 = (a[..., 0] * b[..., 0] + a[..., 1] * b[..., 1]) + a[..., 2] * b[..., 2]
    return out


def cross(a: F32, b: F32) -> F32:
    return np.stack(
        [
            a[..., 1] * b[..., 2] - a[..., 2] * b[..., 1],
            a[..., 2] * b[..., 0] - a[..., 0] * b[..., 2],
            a[..., 0] * b[..., 1] - a[..., 1] * b[..., 0],
        ],
        axis=-1,
    )


def rotate(v: F32, axis: F32, s: np.float32, c: np.float32) -> F32:
    """Ulmex::Rotate(v, axis, s, c)."""
    t0 = v * c
    t1 = cross(np.broadcast_to(axis, v.shape), v) * s
    t2 = axis * ((F(1) - c) * dot(v, np.broadcast_to(axis, v.shape)))[..., None]
    return (t0 + t1) + t2


# ---------------------------------------------------------------- the built-in groom


def build_sphere(radius: float, rings: int, segments: int) -> gc.ZTriMesh:
    """A UV sphere with three surface coordinates per triangle."""
    r = np.repeat(np.arange(rings + 1, dtype=F), segments)
    s = np.tile(np.arange(segments, dtype=F), rings + 1)
    theta = PI * r / F(rings)
    phi = F(2) * PI * s / F(segments)
    st, ct, sp, cp = sinf(theta), cosf(theta), sinf(phi), cosf(phi)
    n = np.stack([st * cp, ct, st * sp], axis=-1)

    def uv(ring: int, seg: int) -> tuple[np.float32, np.float32, np.float32]:
        return F(seg) / F(segments), F(1) - F(ring) / F(rings), F(0)

    triangles, uvs = [], []
    for ri in range(rings):
        for si in range(segments):
            a, b = ri * segments + si, (ri + 1) * segments + si
            c, d = (ri + 1) * segments + (si + 1) % segments, ri * segments + (si + 1) % segments
            if ri > 0:
                triangles.append((a, d, b))
                uvs += [uv(ri, si), uv(ri, si + 1), uv(ri + 1, si)]
            if ri < rings - 1:
                triangles.append((d, c, b))
                uvs += [uv(ri, si + 1), uv(ri + 1, si + 1), uv(ri + 1, si)]
    mesh = gc.ZTriMesh()
    mesh.points = n * F(radius)
    mesh.v012 = np.array(triangles, dtype=np.int32)
    mesh.uvs = np.array(uvs, dtype=F)
    return mesh


def grow_strands(
    mesh: gc.ZTriMesh, frames: F32, count: int, cv_count: int, length: float
) -> tuple[gc.ZFollicles, gc.ZCurves]:
    """Strands grown with the host toolkit: straight strands on roots by area (seed 1), every
    50th strand a guide and every strand bound to the nearest."""
    grower = gc.ZRootGrower()
    grower.seed = 1
    f, curves = grower.growStrands(mesh, frames, count, cv_count, length, 0.6)
    n = f.numStrands()
    binder = gc.ZGuideBinder()
    if n and not binder.bind(f, np.arange(0, n, 50, dtype=np.int32)):
        raise SystemExit(f"groom.py: {binder.message}")
    return f, curves


class AnimatedGroom:
    """The shot: the body turns about Y and walks along X, the strands follow and sway.
    The body's vertex frames come from the host toolkit, at rest and for every pose."""

    def __init__(self, count: int, cv_count: int, length: float = 0.325, rings: int = 24, segments: int = 48):
        self.rest_body = build_sphere(1.0, rings, segments)
        self.topology = gc.ZBodyFrames()
        self.topology.build(self.rest_body)
        self.rest_frames = self.topology.compute(self.rest_body)
        self.follicles, self.rest_curves = grow_strands(self.rest_body, self.rest_frames, count, cv_count, length)
        self.body = gc.ZTriMesh()
        self.curves = gc.ZCurves()
        self.box = gc.ZBoundingBox()
        self.set_frame(0.0)

    def set_frame(self, frame: float) -> None:
        fr = F(frame)
        angle = F(0.05) * fr
        up = np.array([0, 1, 0], F)
        move = np.array([F(0.04) * fr, F(0.05) * sinf(F(0.4) * fr), 0], F)
        s, c = sinf(angle), cosf(angle)

        def pose(p: F32) -> F32:
            return rotate(p, up, s, c) + move

        self.body.v012 = self.rest_body.v012
        self.body.uvs = self.rest_body.uvs
        self.body.points = pose(self.rest_body.points)
        frames = self.topology.compute(self.body)

        rest = self.rest_curves
        counts, starts = rest.numCVs, rest.start
        cvs = rest.cvs.copy()
        nmp = self.follicles.nmp
        for m in np.unique(counts):  # strands of one CV count at a time
            idx = np.nonzero(counts == m)[0]
            phase = F(0.5) * fr + F(3) * nmp[idx, 0]
            sway = np.stack([F(0.04) * sinf(phase), np.zeros_like(phase), F(0.04) * cosf(phase)], axis=-1)
            dt = F(1) / F(m - 1) if m > 1 else F(0)
            t = np.concatenate([[F(0)], np.cumsum(np.full(m - 1, dt, F), dtype=F)]).astype(F)
            rows = starts[idx][:, None] + np.arange(m)[None, :]
            cvs[rows] = pose(cvs[rows] + sway[:, None, :] * (t * t)[None, :, None])
        self.curves.numCVs = counts
        self.curves.start = starts
        self.curves.cvs = cvs
        n = self.curves.numCurves()
        ln1 = np.array([self.curves.lineLength(i) for i in range(n)], F)
        self.follicles.ln1 = ln1
        self.follicles.maxLn1 = float(max(0.0, float(ln1.max()))) if n else 0.0
        self.follicles.updateAxes(self.body, frames, True)
        self.box = self.curves.boundingBox(False, True)


def build_feather_template(rows: int, columns: int) -> gc.ZFeather:
    """A vane rows x columns points, tapering to the tip, curving out of the plane, with a
    shaft curve; initialised."""
    feather = gc.ZFeather()
    feather.reset()
    feather.name = "builtin:contour"
    feather.color[:3] = [0.55, 0.42, 0.3]
    points, shaft = [], []
    for r in range(rows):
        y = F(r) / F(rows - 1)
        profile = max(F(0), sinf(PI * min(F(1), y * F(0.85) + F(0.15)))[()])
        half_width = F(0.18) * powf(profile, 0.7)
        for c in range(columns):
            u = F(-1) + F(2) * F(c) / F(columns - 1)
            points.append((u * half_width, y, F(0.04) * u * u + F(0.01)))
        shaft.append((0, y, 0.01))
    triangles = []
    for r in range(rows - 1):
        for c in range(columns - 1):
            a = r * columns + c
            triangles += [(a, a + 1, a + columns + 1), (a, a + columns + 1, a + columns)]
    feather.mesh.points = np.array(points, F)
    feather.mesh.v012 = np.array(triangles, np.int32)
    feather.mesh.uvs = np.zeros((3 * len(triangles), 3), F)
    feather.curves.push(np.array(shaft, F))
    feather.latticeResolution = 6
    feather.initialize()
    return feather


def modifier_stack() -> list[Any]:
    """The host's stack: every public parameter set (the library has no defaults)."""
    width = gc.ZWidthModifier()
    width.tWidth, width.tSeed, width.tRand, width.tFreq = 0.003, 1, 0.3, 3
    width.tExpr = "tWidth * clamp(0.6 + 0.4 * znoise(freq, x, y, z) + 0.2 * (v > 0.5), 0.1, 1.5)"
    width.rWidth, width.rSeed, width.rRand, width.rFreq, width.rExpr = 0.015, 2, 0, 1, "rWidth"
    opacity = gc.ZOpacityModifier()
    opacity.tOpacity, opacity.tSeed, opacity.tRand, opacity.tFreq = 0.4, 1, 0, 1
    opacity.tExpr = "tOpacity + 0.2 * znoise(5, x, y, z)"
    opacity.rOpacity, opacity.rSeed, opacity.rRand, opacity.rFreq, opacity.rExpr = 1, 1, 0, 1, "rOpacity"
    direction = gc.ZDirectionModifier()
    direction.pitch, direction.pitchSeed, direction.pitchRand, direction.pitchFreq = 55, 3, 0, 2
    direction.pitchExpr = "pitch + 15 * znoise(freq, x, y, z)"
    direction.yaw, direction.yawSeed, direction.yawRand, direction.yawFreq = 0, 4, 0, 4
    direction.yawExpr, direction.maskExpr = "20 * znoise(freq, x, y, z)", ""
    scale = gc.ZScaleModifier()
    scale.scale, scale.seed, scale.rand, scale.freq = 1, 5, 0.25, 1
    scale.expr, scale.maskExpr = "scale + rand * znoise(6, x, y, z)", ""
    cut = gc.ZCutModifier()
    cut.cut, cut.seed, cut.rand, cut.freq = 0.75, 6, 0.15, 1
    cut.expr, cut.maskExpr = "cut + rand * znoise(9, x, y, z)", "0.9"
    offset = gc.ZOffsetModifier()
    offset.offset, offset.seed, offset.rand, offset.freq = 0.002, 7, 0, 1
    offset.expr, offset.maskExpr, offset.alongStrand = "offset", "", False
    return [width, opacity, direction, scale, cut, offset]


def apply_stack(stack: list[Any], follicles: gc.ZFollicles, curves: gc.ZCurves) -> None:
    rest = gc.ZCurves(curves)
    for modifier in stack:
        modifier.apply(follicles, curves, rest)


def same_bits(a: Any, b: Any) -> bool:
    x, y = np.asarray(a), np.asarray(b)
    return x.shape == y.shape and x.dtype == y.dtype and x.tobytes() == y.tobytes()


FRAME_ARRAYS = ("uid", "rtp", "tgl", "bcc", "uvw", "nmp", "ln0", "ln1", "rxy", "twh", "rwh", "top", "rop", "axs")


def same_frame(a: gc.ZFollicles, ca: gc.ZCurves, b: gc.ZFollicles, cb: gc.ZCurves) -> bool:
    curves = all(same_bits(getattr(ca, k), getattr(cb, k)) for k in ("numCVs", "start", "cvs"))
    arrays = all(same_bits(getattr(a, k), getattr(b, k)) for k in FRAME_ARRAYS)
    sets = a.bdi == b.bdi and a.bdw == b.bdw
    maxima = same_bits(F(a.maxLn0), F(b.maxLn0)) and same_bits(F(a.maxLn1), F(b.maxLn1))
    return curves and arrays and sets and maxima


def strand_statistics(curves: gc.ZCurves, follicles: gc.ZFollicles) -> dict[str, Any]:
    """Lengths, and the width along the strand (root to tip, linear between the follicle
    widths, as a renderer draws them)."""
    lengths = np.array([curves.lineLength(i) for i in range(curves.numCurves())], F)
    t = np.linspace(0, 1, 21, dtype=F)
    widths = follicles.rwh[:, None] * (1 - t)[None, :] + follicles.twh[:, None] * t[None, :]
    return {"lengths": lengths, "t": t, "width_mean": widths.mean(axis=0), "width_sd": widths.std(axis=0)}


def save_figure(before: dict[str, Any], after: dict[str, Any], path: str) -> None:
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    fig, (left, right) = plt.subplots(1, 2, figsize=(10, 3.8))
    bins = np.linspace(0, max(before["lengths"].max(), after["lengths"].max()) * 1.05, 40)
    left.hist(before["lengths"], bins=bins, alpha=0.6, label="grown")
    left.hist(after["lengths"], bins=bins, alpha=0.6, label="after the stack")
    left.set(xlabel="strand length", ylabel="strands", title="Length")
    left.legend()
    for stats, label in ((before, "grown"), (after, "after the stack")):
        mean, sd = stats["width_mean"], stats["width_sd"]
        right.plot(stats["t"], mean, label=label)
        right.fill_between(stats["t"], mean - sd, mean + sd, alpha=0.2)
    right.set(xlabel="position along the strand (root 0, tip 1)", ylabel="width", title="Width along the strand")
    right.legend()
    fig.tight_layout()
    fig.savefig(path, dpi=110)
    plt.close(fig)


def main(argv: list[str]) -> int:
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("output", help="output folder: the cache goes to OUTPUT/hair, USD to OUTPUT/usd")
    parser.add_argument("--strands", type=int, default=5000)
    parser.add_argument("--body", default="", help="an Alembic file with the body shape 'Body' to rebind to")
    parser.add_argument("--source", default="", help="an Alembic file to load the source's mesh from")
    parser.add_argument("--figure", default="", help="save strand statistics to this PNG")
    args = parser.parse_args(argv)
    out = args.output
    os.makedirs(out, exist_ok=True)
    n_strands = max(1, args.strands)

    shot = AnimatedGroom(n_strands, CV_COUNT)
    groom = shot.follicles
    if not groom.updateAxes(shot.rest_body, shot.rest_frames, True) or not groom.calcRxy(shot.rest_curves, True):
        print("groom.py: the grown groom is inconsistent", file=sys.stderr)
        return 1
    groom.setTipWidth(0.002, 0.004, True)
    groom.setRootWidth(0.01, 0.02, True)
    groom.setTipOpacity(0.3, 0.6, True)
    groom.setRootOpacity(0.9, 1.0, True)
    grown = gc.ZCurves(shot.rest_curves)
    before = strand_statistics(grown, groom)
    stack = modifier_stack()
    t0 = time.perf_counter()
    apply_stack(stack, groom, shot.rest_curves)
    t_stack = time.perf_counter() - t0
    again, same_groom = gc.ZCurves(grown), gc.ZFollicles(groom)
    apply_stack(stack, same_groom, again)
    reproducible = again == shot.rest_curves and same_bits(same_groom.twh, groom.twh)
    after = strand_statistics(shot.rest_curves, groom)

    # Feathers: a contour feather on two strands in three, a covert on the rest; a source.
    contour, covert = build_feather_template(30, 7), build_feather_template(12, 5)
    covert.name = "builtin:covert"
    n = groom.numStrands()
    rtp = np.where(np.arange(n) % 3 == 2, 1, 0).astype(np.int32)
    groom.rtp = rtp
    r = np.vectorize(gc.ZRandomUnit, otypes=[F])(groom.uid.astype(np.uint32) * np.uint32(7))
    scales = np.stack([F(0.8) + F(0.4) * r, np.ones(n, F), np.ones(n, F)], axis=-1)
    rotations = np.stack([np.zeros(n, F), F(40) * r - F(20), np.zeros(n, F)], axis=-1)
    folds = np.zeros(n, F)
    leaf = gc.ZSource()
    leaf.name = "builtin:leaf"
    leaf.mesh = covert.mesh
    leaf.curves = covert.curves
    leaf.txAssetName, leaf.txLayerName, leaf.latticeResolution = "leaf_tex", "diffuse", 4
    if args.source:
        leaf.setAlembic(args.source)
    leaf.initialize()
    plumage = gc.ZBoundingBox()
    for i in range(n):
        template = contour if rtp[i] == 0 else covert
        mesh, _, _ = template.deform(groom, shot.rest_curves, i, float(scales[i, 0]), 0.3, False)
        if len(mesh):
            plumage.expand(gc.ZVector(*mesh.min(axis=0)))
            plumage.expand(gc.ZVector(*mesh.max(axis=0)))

    # Bake the shot: static files once, then one set of files per frame.
    cache = gc.ZCacheData2()
    cache.nodeName, cache.nodeType, cache.meshNodeName = "hair", "groomcoreExample", "bodyShape"
    cache.bindingScheme, cache.textureType = 4, 0
    cache.follicles, cache.curves = groom, shot.curves
    cache.feathers, cache.sources = [contour, covert], [leaf]
    cache.scales, cache.rotations, cache.folds = scales, rotations, folds
    shot.set_frame(FIRST_FRAME)
    cache.boundingBox = shot.box
    if not cache.bakeStaticData(out):
        print(f"groom.py: cannot bake into {out}", file=sys.stderr)
        return 1
    t_bake = 0.0
    for k in range(FRAME_COUNT):
        frame = FIRST_FRAME + k
        shot.set_frame(frame)
        cache.boundingBox = shot.box
        folds[:] = F(0.3) + F(0.1) * sinf(F(0.3) * F(frame) + np.arange(n, dtype=F))
        t0 = time.perf_counter()
        if not cache.bakePerFrameData(out, frame):
            return 1
        t_bake += time.perf_counter() - t0
        if (k + 1) % 6 == 0:
            print(f"  baked frame {frame} ({k + 1}/{FRAME_COUNT})")

    # Second pass: test the cache, read its record, load every frame into fresh objects.
    cache_dir = os.path.join(out, "hair")
    info = gc.RuvoCacheInfo()
    found = gc.isValidCachePathAndCacheName(out, "hair") and gc.readInfoData(cache_dir, info)
    identical, t_read = 0, 0.0
    for k in reversed(range(FRAME_COUNT)):
        curves, loaded = gc.ZCurves(), gc.ZFollicles()
        t0 = time.perf_counter()
        ok = gc.readStrandsData(cache_dir, FIRST_FRAME + k, curves, loaded)
        t_read += time.perf_counter() - t0
        shot.set_frame(FIRST_FRAME + k)
        identical += bool(ok and same_frame(groom, shot.curves, loaded, curves))

    rebind = "no body file given"
    if args.body:
        shape = gc.findBodyMeshShapeNode(args.body, "Body")
        if shape is None:
            print(f"groom.py: no single body shape in {args.body}", file=sys.stderr)
            return 1
        rest = gc.ZFollicles(groom)
        rest.updateAxes(shot.rest_body, shot.rest_frames, True)
        rebound = gc.ZCurves(shot.rest_curves)
        ref_idx, inv_rot = gc.setRefIdxAndInvRotAndCurves(0.0, shape, rest, rebound)
        corners = shot.rest_body.v012[rest.tgl]
        on_triangle = int(np.sum(np.any(corners == ref_idx[:, None], axis=1)))
        roots = rebound.cvs[rebound.start]
        rebind = (
            f"strands bound to {shape.fullPath()}: references on their triangle {on_triangle}/{n}, "
            f"roots at zero {int(np.sum(np.all(roots == 0, axis=1)))}/{n}, {len(inv_rot)} inverse frames"
        )

    # USD: the strands as curves gathered in one file per level; the feathered groom one
    # file per frame and level. The attribute half goes first: it clears the file.
    usd_dir = os.path.join(out, "usd")
    os.makedirs(usd_dir, exist_ok=True)
    exporters = []
    for name, base, feathers in (("example:hair", "hair", False), ("example:plumage", "plumage", True)):
        x = gc.ZCurvesToUSD()
        x.name, x.basePath, x.exportRatio, x.writeNormals = name, os.path.join(usd_dir, base), 1.0, True
        x.follicles, x.curves, x.boundingBox = groom, shot.curves, shot.box
        x.hasFrameRange, x.startTime, x.endTime = True, FIRST_FRAME, FIRST_FRAME + FRAME_COUNT - 1
        if feathers:
            x.featherMode, x.perFrameFiles, x.bindingScheme = True, True, 4
            x.feathers, x.scales, x.rotations, x.folds = [contour, covert], scales, rotations, folds
        exporters.append(x)
    for high in (True, False):
        for x in exporters:
            x.writeAttributeToUSD(high)
        for k in range(FRAME_COUNT):
            shot.set_frame(FIRST_FRAME + k)
            for x in exporters:
                x.boundingBox = shot.box
                x.writeGeometryToUSD(FIRST_FRAME + k, high, False)

    if args.figure:
        save_figure(before, after, args.figure)
    size = sum(p.stat().st_size for p in Path(cache_dir).iterdir() if p.is_file()) / 2**20
    usd_files = len([p for p in Path(usd_dir).iterdir() if p.suffix == ".usd"])
    print("groomcore example host (Python)")
    print(
        f"  strands:     {n} x {CV_COUNT} CVs, stack applied in {1e3 * t_stack:.1f} ms, re-apply "
        f"{'same result' if reproducible else 'DIFFERENT'}"
    )
    print(f"  feathers:    plumage box {plumage.minPoint} to {plumage.maxPoint}")
    print(f"  body:        {rebind}")
    print(
        f"  cache:       {cache_dir}, {info.cacheType} of node {info.nodeName}, {size:.1f} MiB, per frame bake "
        f"{1e3 * t_bake / FRAME_COUNT:.2f} ms, read {1e3 * t_read / FRAME_COUNT:.2f} ms"
    )
    print(f"  read back:   {identical} of {FRAME_COUNT} frames bit for bit")
    print(f"  USD:         {usd_files} files in {usd_dir}")
    if args.figure:
        print(f"  figure:      {args.figure}")
    return 0 if found and identical == FRAME_COUNT and reproducible and not math.isnan(size) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
