"""A cache to USD: each frame exported by ZCurvesToUSD to files of its own, then one shot
asset per level that composes the attribute file with the per-frame geometry as USD
value clips (stitched by usd-core's UsdUtils), so that a renderer or a DCC opens one file
for the whole shot.

Frames are independent: they run on the farm (see farm.py) in this process or on Dask
workers, and every file is the same whichever runs it.
"""

from __future__ import annotations

import shutil
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from . import _groomcore as gc
from .cachefiles import CacheDir, CacheError
from .farm import (
    DEFAULT_TIMEOUT,
    ClusterError,
    WriteError,
    export_frame,
    frame_done,
    os_reason,
    other_settings,
    publish,
    remove_partial_if_empty,
    run_frames,
    shown,
    stage_dir,
)

__all__ = [
    "DEFAULT_TIMEOUT",
    "LEVELS",
    "ClusterError",
    "Settings",
    "WriteError",
    "assemble",
    "export_frame",
    "frame_done",
    "other_settings",
    "run_frames",
]

LEVELS = {"high": (True,), "low": (False,), "both": (True, False)}


@dataclass(frozen=True)
class Settings:
    cache_root: str
    name: str
    out_base: str  # OUT_BASE: files are OUT_BASE.{high,low}_geom.FRAME.usd
    levels: tuple[bool, ...]
    ratio: float = 1.0
    normals: bool = False
    feathers: bool = False
    up_axis: str = "Y"
    meters_per_unit: float = 0.01
    # Frame after frame, a process reads into the same strands and exports with the same
    # exporter, whose arrays it fills in place: a steady frame takes no fresh memory for them.
    # Off, every frame starts from new objects (the output is the same bytes either way).
    reuse: bool = True
    kind: str = "usd"

    def recorded(self) -> dict[str, Any]:
        """What a frame's ledger records: every setting that shapes the shot's files."""
        return {
            "cache": str(Path(self.cache_root) / self.name),
            "levels": [level_name(h) for h in self.levels],
            "ratio": self.ratio,
            "normals": self.normals,
            "feathers": self.feathers,
            "up_axis": self.up_axis,
            "meters_per_unit": self.meters_per_unit,
        }

    def frame_files(self, frame: int) -> list[Path]:
        """A frame's geometry file at each level."""
        return [geometry_file(self, frame, high) for high in self.levels]

    def write_frame(self, stage: Path, frame: int) -> None:
        x, _keep = _exporter(self, frame, stage / Path(self.out_base).name)
        for high in self.levels:
            x.writeGeometryToUSD(frame, high, False)


def level_name(high: bool) -> str:
    return "high" if high else "low"


def _namer(s: Settings) -> gc.ZCurvesToUSD:
    """An exporter that only names files: the per-frame files of OUT_BASE, as it writes them."""
    x = gc.ZCurvesToUSD()
    x.basePath, x.perFrameFiles = s.out_base, True
    return x


def geometry_file(s: Settings, frame: int, high: bool) -> Path:
    return Path(_namer(s).geometryFile(frame, high, False))


def attribute_file(s: Settings, high: bool) -> Path:
    return Path(_namer(s).attributeFile(high))


def asset_file(s: Settings, high: bool) -> Path:
    return Path(f"{s.out_base}.{level_name(high)}.usda")


# Static data each process reads once per cache: feathers and the binding scheme.
_static: dict[tuple[str, str], tuple[list[gc.ZFeather], int]] = {}


def _static_data(s: Settings) -> tuple[list[gc.ZFeather], int]:
    key = (s.cache_root, s.name)
    if key not in _static:
        cache = CacheDir(Path(s.cache_root), s.name)
        feathers = cache.feathers() if s.feathers else []
        scheme = cache.info_record().get("BindingScheme", "0")
        _static[key] = (feathers, int(scheme) if scheme.lstrip("-").isdigit() else 0)
    return _static[key]


# What a process keeps from frame to frame of one cache: the strands it reads into and the
# exporter (with its arrays).
_buffers: dict[tuple[str, str], tuple[gc.ZCurves, gc.ZFollicles, gc.ZCurvesToUSD]] = {}


def _exporter(s: Settings, frame: int, base: Path) -> tuple[gc.ZCurvesToUSD, list[Any]]:
    """An exporter for one frame of the cache, its inputs kept alive beside it."""
    cache = CacheDir(Path(s.cache_root), s.name)
    if s.reuse:
        key = (s.cache_root, s.name)
        if key not in _buffers:
            _buffers.clear()  # one cache at a time
            _buffers[key] = (gc.ZCurves(), gc.ZFollicles(), gc.ZCurvesToUSD())
        kept_curves, kept_follicles, x = _buffers[key]
        curves, follicles = cache.read_frame(frame, (kept_curves, kept_follicles))
    else:
        curves, follicles = cache.read_frame(frame)
        x = gc.ZCurvesToUSD()
    box = cache.box(frame)
    x.name, x.basePath = s.name, str(base)
    x.follicles, x.curves, x.boundingBox = follicles, curves, box
    x.perFrameFiles, x.exportRatio, x.writeNormals, x.featherMode = True, s.ratio, s.normals, False
    keep: list[Any] = [curves, follicles, box]
    if s.feathers:
        feathers, scheme = _static_data(s)
        transforms, folds = cache.transforms(frame), cache.folds(frame)
        if not feathers or transforms is None or folds is None:
            raise CacheError(f"frame {frame}: --feathers needs the cache's feathers, xforms_ and folds_ files")
        x.featherMode, x.bindingScheme, x.feathers = True, scheme, feathers
        x.scales, x.rotations, x.folds = transforms[0], transforms[1], folds
    return x, keep


def write_attribute_files(s: Settings, first_frame: int) -> list[Path]:
    """The attribute file of each level (topology, widths, primvars), from the first frame."""
    stage = stage_dir(s, "attributes")
    try:
        x, _keep = _exporter(s, first_frame, stage / Path(s.out_base).name)
        for high in s.levels:
            x.writeAttributeToUSD(high)
        del x
        for high in s.levels:
            publish(stage / attribute_file(s, high).name, attribute_file(s, high))
    finally:
        shutil.rmtree(stage, ignore_errors=True)
    return [attribute_file(s, high) for high in s.levels]


def stitch_shot_assets(s: Settings, frames: Sequence[int], up_axis: str, meters_per_unit: float) -> list[Path]:
    """The shot asset of each level: the attribute file over the per-frame files as value
    clips, stitched by usd-core's UsdUtils with its topology and manifest layers.

    It is stitched in a staging folder that links the clips and the attribute file under
    their own names, so that every path in it is relative to the asset; its three layers
    are then moved into place, the asset last."""
    from pxr import Sdf, UsdUtils

    out_dir = Path(s.out_base).parent.resolve()
    stage = stage_dir(s, "asset").resolve()
    written: list[Path] = []
    try:
        for high in s.levels:
            linked = [geometry_file(s, f, high).name for f in frames] + [attribute_file(s, high).name]
            for name in linked:
                (stage / name).symlink_to(out_dir / name)
            attributes = Sdf.Layer.OpenAsAnonymous(str(stage / attribute_file(s, high).name))
            final = asset_file(s, high)
            result = Sdf.Layer.CreateNew(str(stage / final.name))
            clips = [str(stage / geometry_file(s, f, high).name) for f in frames]
            prim = Sdf.Path("/" + str(attributes.defaultPrim))
            if not UsdUtils.StitchClips(result, clips, prim, frames[0], frames[-1]):
                raise CacheError(f"usd-core could not stitch the clips of {final.name}")
            # The attribute half (topology, widths, primvars) over the clips' topology layer.
            result.subLayerPaths.insert(0, "./" + attribute_file(s, high).name)
            result.pseudoRoot.SetInfo("upAxis", up_axis)
            result.pseudoRoot.SetInfo("metersPerUnit", meters_per_unit)
            result.defaultPrim = attributes.defaultPrim
            if not result.Save():
                raise WriteError(f"cannot write {final.name}")
            side_files = (UsdUtils.GenerateClipTopologyName(final.name), UsdUtils.GenerateClipManifestName(final.name))
            for name in (*side_files, final.name):
                if (stage / name).exists():
                    publish(stage / name, out_dir / name)
            written.append(out_dir / final.name)
    finally:
        shutil.rmtree(stage, ignore_errors=True)
        remove_partial_if_empty(s)
    return written


def assemble(s: Settings, frames: Sequence[int], up_axis: str, meters_per_unit: float) -> list[Path]:
    """The attribute files and the shot assets of a shot whose every frame is exported."""
    mixed = other_settings(s, frames)
    if mixed:
        raise CacheError(f"{len(mixed)} frames were exported with other settings: {shown(mixed)}")
    missing = [f for f in frames if not frame_done(s, f)]
    if missing:
        raise CacheError(f"{len(missing)} frames are not exported yet: {shown(missing)}")
    try:
        write_attribute_files(s, frames[0])
        return stitch_shot_assets(s, frames, up_axis, meters_per_unit)
    except OSError as e:
        raise WriteError(f"shot asset: {os_reason(e)}") from None
    except RuntimeError as e:  # usd-core's errors (pxr.Tf.ErrorException)
        raise WriteError(f"shot asset: {str(e).strip().splitlines()[-1].strip()}") from None
