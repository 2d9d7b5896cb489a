"""`groomcore import`: guide curves from an Alembic or USD file, on a body from an Alembic
or USD file, baked into a cache directory, frame by frame.

USD curves and bodies are read at the Sdf level by groomcore's own readers from the stage
flattened by usd-core (so prims that come through references, payloads or sublayers are
found), at the time code of each frame.

The first frame gives the groom (roots projected onto the body, ids, widths, lengths); every
frame gives the strands' shape, lengths and root frames on the body as it is then."""

from __future__ import annotations

import tempfile
from collections.abc import Callable
from pathlib import Path
from typing import Any

from . import _groomcore as gc
from .cachefiles import CacheError


def find_object(archive: gc.ZAlembicArchive, path: str) -> gc.ZAlembicObject | None:
    """The object at an Alembic path ("/guidesXf/guides"), or None."""
    obj: gc.ZAlembicObject | None = archive.topObject()
    for name in [p for p in path.split("/") if p]:
        if obj is None:
            return None
        children = (obj.getChild(i) for i in range(obj.numChildren()))
        obj = next((c for c in children if c is not None and c.name() == name), None)
    return obj


def _open(file: str, path: str, what: str) -> tuple[gc.ZAlembicArchive, gc.ZAlembicObject]:
    archive = gc.ZAlembicArchive()
    if not archive.open(file):
        raise CacheError(f"cannot read {file} as an Alembic archive")
    obj = find_object(archive, path)
    if obj is None:
        raise CacheError(f"{file} has no object {path} (groomcore abc {file} lists them)")
    if what == "curves" and not obj.isCurves():
        raise CacheError(f"{path} in {file} is not curves (its schema: {obj.schema() or 'none'})")
    if what == "body" and not obj.isPolyMesh():
        raise CacheError(f"{path} in {file} is not a polygon mesh (its schema: {obj.schema() or 'none'})")
    return archive, obj


USD_SUFFIXES = (".usd", ".usda", ".usdc", ".usdz")


class _Flattened:
    """A USD file's stage flattened by usd-core into one layer groomcore's readers read."""

    def __init__(self, file: str) -> None:
        from pxr import Usd

        # groomcore's reader reads the file in another process first: a corrupt layer that
        # usd-core's parser would not survive is refused here in one line.
        reader = gc.ZCurvesFromUSD()
        reader.curvePrims(file)
        if reader.message:
            raise CacheError(reader.message)
        stage = Usd.Stage.Open(file)
        if stage is None:
            raise CacheError(f"cannot read {file} as a USD stage")
        self._dir = tempfile.TemporaryDirectory(prefix="groomcore-import-")
        self.layer = str(Path(self._dir.name) / "flat.usdc")
        stage.Flatten().Export(self.layer)
        self.file = file


class _UsdCurves:
    """BasisCurves of a flattened USD file."""

    def __init__(self, flat: _Flattened, path: str) -> None:
        self.flat, self.path, self.file = flat, path, flat.file
        if path not in gc.ZCurvesFromUSD().curvePrims(flat.layer):
            raise CacheError(f"{flat.file} has no BasisCurves prim {path}")

    def sampled(self, fps: float) -> tuple[float, float] | None:
        return gc.ZCurvesFromUSD().sampledTimes(self.flat.layer, self.path)

    def at(self, frame: int, fps: float) -> gc.ZAlembicCurves:
        reader = gc.ZCurvesFromUSD()
        curves = reader.read(self.flat.layer, self.path, float(frame))
        if curves is None:
            raise CacheError(f"frame {frame}: {reader.message}")
        return curves


class _UsdBody:
    """A Mesh prim of a flattened USD file."""

    def __init__(self, flat: _Flattened, path: str) -> None:
        self.flat, self.path, self.file = flat, path, flat.file
        if path not in gc.ZMeshFromUSD().meshPrims(flat.layer):
            raise CacheError(f"{flat.file} has no Mesh prim {path}")

    def sampled(self, fps: float) -> tuple[float, float] | None:
        return gc.ZMeshFromUSD().sampledTimes(self.flat.layer, self.path)

    def at(self, frame: int, fps: float) -> gc.ZTriMesh:
        reader = gc.ZMeshFromUSD()
        body = reader.read(self.flat.layer, self.path, float(frame))
        if body is None:
            raise CacheError(f"frame {frame}: the body {reader.message}")
        return body


def _abc_sampled(obj: gc.ZAlembicObject, fps: float) -> tuple[float, float] | None:
    """The first and last frame of an object's own stored samples; None for one stored once."""
    n = obj.numSamples()
    return (obj.sampleTime(0) * fps, obj.sampleTime(n - 1) * fps) if n > 1 else None


class _AbcBody:
    def __init__(self, file: str, path: str) -> None:
        self.archive, self.obj = _open(file, path, "body")
        self.file, self.path = file, path

    def sampled(self, fps: float) -> tuple[float, float] | None:
        return _abc_sampled(self.obj, fps)

    def at(self, frame: int, fps: float) -> gc.ZTriMesh:
        try:
            return gc.ZAlembicBody.read(self.obj, self.obj.sampleAtFrame(frame, fps))
        except ValueError as e:
            raise CacheError(f"frame {frame}: the body {e}") from None


class _AbcCurves:
    def __init__(self, file: str, path: str) -> None:
        self.archive, self.obj = _open(file, path, "curves")
        self.file, self.path = file, path

    def sampled(self, fps: float) -> tuple[float, float] | None:
        return _abc_sampled(self.obj, fps)

    def at(self, frame: int, fps: float) -> gc.ZAlembicCurves:
        curves = self.obj.getCurvesData(self.obj.sampleAtFrame(frame, fps))
        if curves is None:
            raise CacheError(f"frame {frame}: {self.path} has no curves that can be read")
        return curves


def import_curves(
    curves_file: str,
    curves_path: str,
    body_file: str,
    body_path: str,
    out_dir: Path,
    name: str,
    frames: list[int],
    fps: float = 24.0,
    max_root_distance: float = -1.0,
    progress: Callable[[int, int], None] | None = None,
) -> int:
    """Bakes the curves on the body into out_dir/name for `frames`; returns the strand count.
    Raises CacheError with one line for anything that cannot be imported."""
    flattened: dict[str, _Flattened] = {}

    def flat(file: str) -> _Flattened:
        if file not in flattened:
            flattened[file] = _Flattened(file)
        return flattened[file]

    def is_usd(file: str) -> bool:
        return file.lower().endswith(USD_SUFFIXES)

    source: Any = (
        _UsdCurves(flat(curves_file), curves_path) if is_usd(curves_file) else _AbcCurves(curves_file, curves_path)
    )
    body_source: Any = _UsdBody(flat(body_file), body_path) if is_usd(body_file) else _AbcBody(body_file, body_path)
    # Frames outside what an animated input holds would repeat its last pose: a wrong --fps
    # or frame range, refused before anything is written.
    for what, src in (("the curves", source), ("the body", body_source)):
        span = src.sampled(fps)
        outside = [f for f in frames if span and not span[0] - 1e-6 <= f <= span[1] + 1e-6]
        if span and outside:
            unit = "time codes" if isinstance(src, (_UsdCurves, _UsdBody)) else f"frames (at --fps {fps:g})"
            raise CacheError(
                f"frame {outside[0]}: {what} {src.path} in {src.file} hold {unit} {span[0]:g}-{span[1]:g} only "
                f"({len(outside)} of the {len(frames)} frames lie outside)"
            )
    frame_set = gc.ZBodyFrames()
    follicles = gc.ZFollicles()
    cache = gc.ZCacheData()
    cache.nodeName = name
    out_dir.mkdir(parents=True, exist_ok=True)
    count = 0
    for k, frame in enumerate(frames):
        body = body_source.at(frame, fps)
        if k == 0 and not frame_set.build(body):
            raise CacheError(f"frame {frame}: the body {body_path} has a triangle naming a missing point")
        try:
            axes = frame_set.compute(body)
        except ValueError:
            changed = f"the body {body_path} changed its triangles since frame {frames[0]}"
            raise CacheError(f"frame {frame}: {changed}") from None
        guides = source.at(frame, fps)
        if len(guides.counts) == 0:
            raise CacheError(f"frame {frame}: {curves_path} has no curves that can be read")
        if k > 0 and len(guides.counts) != count:
            raise CacheError(f"frame {frame}: {len(guides.counts)} curves, but frame {frames[0]} has {count}")
        groom = gc.ZGroomFromCurves()
        groom.maxRootDistance = max_root_distance
        built, strands = gc.ZFollicles(), gc.ZCurves()
        if not groom.build(guides, body, axes, built, strands):
            raise CacheError(f"frame {frame}: {groom.message}")
        if k == 0:
            follicles, count = built, len(guides.counts)
            cache.follicles, cache.curves = follicles, strands
            cache.boundingBox = strands.boundingBox(False, True)
            if not cache.bakeStaticData(str(out_dir)):
                raise CacheError(f"cannot write the cache into {out_dir}")
        else:
            # The groom of the first frame on this frame's body: its roots stay where they
            # were bound; shape, lengths and root frames are this frame's.
            follicles.ln1 = built.ln0
            follicles.maxLn1 = built.maxLn0
            follicles.updateAxes(body, axes, True)
            cache.curves = strands
            cache.boundingBox = strands.boundingBox(False, True)
        if not cache.bakePerFrameData(str(out_dir), float(frame)):
            raise CacheError(f"frame {frame}: cannot write the cache into {out_dir}")
        if progress:
            progress(k + 1, len(frames))
    return count
