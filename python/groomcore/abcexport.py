"""`groomcore export-abc`: a strand cache as Alembic curves, written by the real Alembic
library (alembic3d) so that every DCC and renderer reads it: catmull-rom curves, each
curve's first and last CV written twice as the USD exporter writes them, a width per point
(root to tip), and per curve the root's `uv` and the strand's `id` (its uid) as geometry
parameters. The arrays are the USD exporter's own (`ZCurvesToUSD.curveArrays`).

One archive holding every frame, or one archive per frame for a farm (serially, or on a
local or existing Dask cluster). An archive appears under its final name only when whole."""

from __future__ import annotations

import os
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import Any

import numpy as np

from . import _groomcore as gc
from .cachefiles import CacheDir, CacheError


def frame_archive(out_base: str, frame: int) -> Path:
    """The archive of one frame: OUT_BASE.1001.abc."""
    return Path(f"{out_base}.{frame:04d}.abc")


def shot_archive(out_base: str) -> Path:
    return Path(f"{out_base}.abc")


def _frame_arrays(cache: CacheDir, name: str, frame: int) -> dict[str, Any]:
    curves, follicles = cache.read_frame(frame)
    x = gc.ZCurvesToUSD()
    x.follicles, x.curves, x.boundingBox = follicles, curves, cache.box(frame)
    arrays = x.curveArrays(True)
    arrays["ids"] = np.asarray(follicles.uid)[arrays["strands"]]
    return arrays


def _filled(array_type: Any, values: np.ndarray) -> Any:
    """An imath array holding `values` (written through its buffer, not element by element)."""
    out = array_type(len(values))
    if len(values):
        np.asarray(out)[...] = values
    return out


Arrays = Callable[[int], dict[str, Any]]


def _write(path: Path, name: str, frames: Sequence[int], fps: float, arrays_of: Arrays) -> None:
    """An archive of the curves at `frames` (consecutive), staged beside `path` and renamed
    into place once the library has closed it."""
    import imath
    from alembic3d import Abc, AbcCoreAbstract, AbcGeom

    staged = path.with_name(f".{path.name}.{os.getpid()}.partial")
    path.parent.mkdir(parents=True, exist_ok=True)
    try:
        archive = Abc.OArchive(str(staged))
        sampling = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / fps, frames[0] / fps))
        curves = AbcGeom.OCurves(archive.getTop(), name, sampling)
        schema = curves.getSchema()
        vertex, uniform = AbcGeom.GeometryScope.kVertexScope, AbcGeom.GeometryScope.kUniformScope
        ids = AbcGeom.OInt32GeomParam(schema.getArbGeomParams(), "id", False, uniform, 1)
        count = -1
        for frame in frames:
            a = arrays_of(frame)
            if count >= 0 and len(a["counts"]) != count:
                raise CacheError(f"frame {frame}: {len(a['counts'])} strands, but frame {frames[0]} has {count}")
            count = len(a["counts"])
            # The samples point into these arrays: they stay alive until the values are set.
            points, counts = _filled(imath.V3fArray, a["points"]), _filled(imath.IntArray, a["counts"])
            widths, st, id_values = (
                _filled(imath.FloatArray, a["widths"]),
                _filled(imath.V2fArray, a["st"]),
                _filled(imath.IntArray, a["ids"]),
            )
            width_sample = AbcGeom.OFloatGeomParamSample(widths, vertex)
            st_sample = AbcGeom.OV2fGeomParamSample(st, uniform)
            sample = AbcGeom.OCurvesSchemaSample(
                points,
                counts,
                AbcGeom.CurveType.kCubic,
                AbcGeom.CurvePeriodicity.kNonPeriodic,
                width_sample,
                st_sample,
                AbcGeom.ON3fGeomParamSample(),
                AbcGeom.BasisType.kCatmullromBasis,
            )
            schema.set(sample)
            id_sample = AbcGeom.OInt32GeomParamSample(id_values, uniform)
            ids.set(id_sample)
            del sample, width_sample, st_sample, id_sample, points, counts, widths, st, id_values
        del ids, schema, curves, sampling, archive  # the library writes the archive out as it closes
        os.replace(staged, path)
    finally:
        staged.unlink(missing_ok=True)


def prim_name(name: str) -> str:
    """The object's name: the USD exporter's prim name for the node."""
    return str(gc.ZCurvesToUSD.primName(gc.ZCurvesToUSD().removeNamespace(name)))


def export_shot(cache_root: str, name: str, out_base: str, frames: Sequence[int], fps: float) -> Path:
    """One archive with every frame."""
    cache = CacheDir(Path(cache_root), name)
    cache.require()
    path = shot_archive(out_base)
    _write(path, prim_name(name), frames, fps, lambda f: _frame_arrays(cache, name, f))
    return path


def export_frame(cache_root: str, name: str, out_base: str, frame: int, fps: float) -> str:
    """One frame's archive (what a farm's task runs); returns its path."""
    cache = CacheDir(Path(cache_root), name)
    path = frame_archive(out_base, frame)
    _write(path, prim_name(name), [frame], fps, lambda f: _frame_arrays(cache, name, f))
    return str(path)


def export_frames(
    cache_root: str,
    name: str,
    out_base: str,
    frames: Sequence[int],
    fps: float,
    workers: int = 0,
    scheduler: str = "",
    on_done: Callable[[int], None] | None = None,
) -> dict[int, str]:
    """One archive per frame, serially or on Dask; returns the frames that failed, with why."""
    CacheDir(Path(cache_root), name).require()
    failed: dict[int, str] = {}
    if not workers and not scheduler:
        for frame in frames:
            try:
                export_frame(cache_root, name, out_base, frame, fps)
            except (CacheError, OSError) as e:
                failed[frame] = str(e)
            if on_done:
                on_done(frame)
        return failed
    from distributed import Client, LocalCluster, as_completed

    cluster = LocalCluster(n_workers=workers, threads_per_worker=1, dashboard_address=None) if workers else None
    client = Client(cluster if cluster else scheduler, timeout=30)
    try:
        futures = {client.submit(export_frame, cache_root, name, out_base, f, fps, pure=False): f for f in frames}
        for future in as_completed(futures):
            frame = futures[future]
            try:
                future.result()
            except (CacheError, OSError) as e:
                failed[frame] = str(e)
            if on_done:
                on_done(frame)
    finally:
        client.close()
        if cluster:
            cluster.close()
    return failed
