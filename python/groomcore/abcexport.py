"""`groomcore export-abc`: a strand cache as Alembic curves, written by the real Alembic
library (alembic3d) so that every DCC and renderer reads it: catmull-rom curves, each
curve's first and last CV written twice as the USD exporter writes them, a width per point
(root to tip), and per curve the root's `uv` and the strand's `id` (its uid) as geometry
parameters. The arrays are the USD exporter's own (`ZCurvesToUSD.curveArrays`).

One archive holding every frame, or one archive per frame for a farm: the frames run on the
farm the USD export runs on (farm.py), serially or on a local or existing Dask cluster, with
its ledger, --resume and handling of lost machines. An archive appears under its final name
only when whole."""

from __future__ import annotations

import errno
import os
from collections.abc import Callable, Sequence
from dataclasses import dataclass
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
    """An archive of the curves at `frames` (consecutive) at `path`, whole when this returns
    (the library writes it out as it closes)."""
    import imath
    from alembic3d import Abc, AbcCoreAbstract, AbcGeom

    archive = Abc.OArchive(str(path))
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
        # Alembic's writer does not stop at a failed write, and ends the process when it
        # closes the archive after one: a sample the disk has no room for is not started.
        size = sum(np.asarray(a[k]).nbytes for k in ("points", "counts", "widths", "st", "ids"))
        room, why = gc.ZRoomToWrite(str(path), size)
        if not room:
            raise OSError(errno.ENOSPC, why)
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


def prim_name(name: str) -> str:
    """The object's name: the USD exporter's prim name for the node."""
    return str(gc.ZCurvesToUSD.primName(gc.ZCurvesToUSD().removeNamespace(name)))


def export_shot(cache_root: str, name: str, out_base: str, frames: Sequence[int], fps: float) -> Path:
    """One archive with every frame, staged beside its final name and renamed into place
    once the library has closed it."""
    cache = CacheDir(Path(cache_root), name)
    cache.require()
    path = shot_archive(out_base)
    path.parent.mkdir(parents=True, exist_ok=True)
    staged = path.with_name(f".{path.name}.{os.getpid()}.partial")
    try:
        _write(staged, prim_name(name), frames, fps, lambda f: _frame_arrays(cache, name, f))
        os.replace(staged, path)
    except OSError as e:
        raise CacheError(f"cannot write {path}: {e.strerror or e}") from None
    finally:
        staged.unlink(missing_ok=True)
    return path


@dataclass(frozen=True)
class AbcFrames:
    """Per-frame archives as a farm job (see farm.FrameJob): OUT_BASE.1001.abc, ..."""

    cache_root: str
    name: str
    out_base: str
    fps: float = 24.0
    kind: str = "abc"

    def recorded(self) -> dict[str, Any]:
        return {"cache": str(Path(self.cache_root) / self.name), "format": "alembic", "fps": self.fps}

    def frame_files(self, frame: int) -> list[Path]:
        return [frame_archive(self.out_base, frame)]

    def write_frame(self, stage: Path, frame: int) -> None:
        cache = CacheDir(Path(self.cache_root), self.name)
        path = stage / frame_archive(self.out_base, frame).name
        _write(path, prim_name(self.name), [frame], self.fps, lambda f: _frame_arrays(cache, self.name, f))
