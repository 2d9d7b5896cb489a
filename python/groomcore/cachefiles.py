"""A strand cache directory as the command-line tools see it: its info record, the frames
it holds, the host's files the library leaves to its host (feathers, per-strand feather
transforms and folds), and a check of every frame with the library's own readers."""

from __future__ import annotations

import math
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

import numpy as np
import numpy.typing as npt

from . import _groomcore as gc


class CacheError(Exception):
    """A cache that cannot be used at all (no such directory, no info, no follicles)."""


def frame_tag(frame: float) -> str:
    """The tag the bakers write (p1001, m-5, p0, p1001.125), as the library makes it."""
    return gc.frameTag(frame)


@dataclass
class FrameProblem:
    frame: float
    problem: str


@dataclass
class CacheDir:
    root: Path  # CACHE_DIR
    name: str  # NAME
    path: Path = field(init=False)

    _strands: int | None = field(init=False, default=None)
    checked: int = field(init=False, default=0)  # frames the last check() looked at

    def __post_init__(self) -> None:
        self.path = self.root / self.name

    def require(self) -> None:
        if not self.path.is_dir():
            raise CacheError(f"no cache '{self.name}' in {self.root}: {self.path} is not a directory")

    # ----------------------------------------------------------------- contents

    def info_record(self) -> dict[str, str]:
        """Every key of the info record as the library reads it (readInfoRecord: a node
        named "ns:hair" reads as "ns"); empty when there is none."""
        return gc.readInfoRecord(str(self.path)) or {}

    def frames(self) -> list[float]:
        """The frames that have a curves file, in order (readCacheFrames)."""
        frames = gc.readCacheFrames(str(self.path))
        if frames is None:
            raise CacheError(f"{self.path}: cannot list the cache")
        return frames

    def static_follicles(self) -> gc.ZFollicles:
        f = gc.ZFollicles()
        path = self.path / gc.CACHE_FOLLICLES
        if not path.is_file():
            raise CacheError(f"{self.path}: no follicles file")
        f.read(path)
        return f

    def strands(self) -> int:
        """The strand count of the static follicle record."""
        if self._strands is None:
            self._strands = self.static_follicles().numStrands()
        return self._strands

    def feathers(self) -> list[gc.ZFeather]:
        """The feather templates with their renderer attributes (readFeathersData); empty
        when the cache has none."""
        if not (self.path / gc.CACHE_FEATHERS).is_file():
            return []
        feathers = gc.readFeathersData(str(self.path))
        if feathers is None:
            raise CacheError(f"{self.path}: the feathers or their rmanAttrs are damaged")
        return feathers

    def sources(self) -> list[gc.ZSource]:
        """The source templates (readSourcesData); empty when the cache has none."""
        if not (self.path / gc.CACHE_SOURCES).is_file():
            return []
        sources = gc.readSourcesData(str(self.path))
        if sources is None:
            raise CacheError(f"{self.path}: the sources file is damaged")
        return sources

    def _frame_file(self, kind: str, frame: float) -> Path:
        return Path(gc.cacheFramePath(str(self.path), kind, frame))

    def transforms(self, frame: float) -> tuple[npt.NDArray[np.float32], npt.NDArray[np.float32]] | None:
        """Per-strand feather scales and rotations (readFeatherTransformsData), or None
        without the file."""
        if not self._frame_file(gc.CACHE_TRANSFORMS, frame).is_file():
            return None
        read = gc.readFeatherTransformsData(str(self.path), frame)
        if read is None:
            raise CacheError(f"frame {frame:g}: the feather transforms are damaged")
        return read

    def folds(self, frame: float) -> npt.NDArray[np.float32] | None:
        """Per-strand feather folds (readFoldsData), or None without the file."""
        if not self._frame_file(gc.CACHE_FOLDS, frame).is_file():
            return None
        read = gc.readFoldsData(str(self.path), frame)
        if read is None:
            raise CacheError(f"frame {frame:g}: the folds are damaged")
        return read

    def box(self, frame: float) -> gc.ZBoundingBox:
        """The frame's bounds (readBoundingBoxData)."""
        box = gc.readBoundingBoxData(str(self.path), frame)
        if box is None:
            raise CacheError(f"frame {frame:g}: bounds missing or damaged")
        return box

    def read_frame(
        self, frame: float, into: tuple[gc.ZCurves, gc.ZFollicles] | None = None
    ) -> tuple[gc.ZCurves, gc.ZFollicles]:
        """One frame through readStrandsData, checked against the static record; into the
        objects `into` when given (frame after frame, they keep their memory)."""
        if frame != int(frame):
            raise CacheError(f"frame {frame:g}: the library reads whole frames only")
        if frame == 0:
            raise CacheError("frame 0: written as p0, which readStrandsData cannot read (it asks for z0)")
        curves_file = self._frame_file(gc.CACHE_CURVES, frame)
        if not curves_file.is_file():
            raise CacheError(f"frame {frame:g}: missing (no {curves_file.name})")
        curves, follicles = into if into is not None else (gc.ZCurves(), gc.ZFollicles())
        if not gc.readStrandsData(str(self.path), int(frame), curves, follicles):
            raise CacheError(f"frame {frame:g}: readStrandsData failed (no follicles file)")
        n = self.strands()
        if curves.numCurves() != n or follicles.numStrands() != n:
            raise CacheError(
                f"frame {frame:g}: the curves record is damaged ({curves.numCurves()} curves and "
                f"{follicles.numStrands()} strands read, the cache has {n})"
            )
        if len(follicles.ln1) != n or len(follicles.axs) != n:
            raise CacheError(
                f"frame {frame:g}: the per-frame follicle record is damaged ({len(follicles.ln1)} lengths and "
                f"{len(follicles.axs)} root frames for {n} strands)"
            )
        return curves, follicles

    # ----------------------------------------------------------------- reports

    def summary(self) -> dict[str, Any]:
        self.require()
        record = self.info_record()
        frames = self.frames()
        strands = cvs = None
        if frames:
            try:
                curves, follicles = self.read_frame(next((f for f in frames if f != 0), frames[0]))
                strands, cvs = follicles.numStrands(), len(curves.cvs)
            except CacheError:
                pass
        files = [p for p in self.path.iterdir() if p.is_file()]
        return {
            "cache": str(self.path),
            "info": record,
            "frames": frames,
            "frame_count": len(frames),
            "strands": strands,
            "cvs": cvs,
            "feathers": (self.path / gc.CACHE_FEATHERS).is_file(),
            "sources": (self.path / gc.CACHE_SOURCES).is_file(),
            "transforms": any(p.name.startswith(gc.CACHE_TRANSFORMS) for p in files),
            "folds": any(p.name.startswith(gc.CACHE_FOLDS) for p in files),
            "bytes": sum(p.stat().st_size for p in files),
        }

    def check(self, frames: list[float] | None) -> list[FrameProblem]:
        """Every damaged or missing frame with what is wrong; frame nan for the static files."""
        self.require()
        problems: list[FrameProblem] = []
        record = self.info_record()
        if not record:
            problems.append(FrameProblem(math.nan, "info: missing or holds no key"))
        elif "NodeName" not in record:
            problems.append(FrameProblem(math.nan, "info: no NodeName key"))
        try:
            n = self.strands()
            expected = record.get("StrandsCount")
            if expected is not None and expected.isdigit() and int(expected) != n:
                problems.append(FrameProblem(math.nan, f"follicles: {n} strands, info says {expected}"))
        except CacheError as e:
            problems.append(FrameProblem(math.nan, str(e).split(": ", 1)[-1]))
        present = self.frames()
        wanted = present if frames is None else frames
        if frames is None and present:
            # A gap in the run of whole frames is a missing frame (sub-frames come on top).
            whole = {f for f in present if f == int(f)}
            if whole:
                gaps = [float(f) for f in range(int(min(whole)), int(max(whole)) + 1) if f not in whole]
                wanted = sorted(set(present) | set(gaps))
        self.checked = len(wanted)
        has_xforms = any(self._frame_file(gc.CACHE_TRANSFORMS, f).is_file() for f in present)
        has_folds = any(self._frame_file(gc.CACHE_FOLDS, f).is_file() for f in present)
        for frame in wanted:
            try:
                curves, follicles = self.read_frame(frame)
                if not gc.isStrandsFrameWhole(str(self.path), frame):
                    raise CacheError(f"frame {frame:g}: the curves file is cut short or has bytes behind its records")
                self.box(frame)
                n = follicles.numStrands()
                if has_xforms:
                    t = self.transforms(frame)
                    if t is None or len(t[0]) != n or len(t[1]) != n:
                        raise CacheError(f"frame {frame:g}: feather transforms missing or not one per strand")
                if has_folds:
                    folds = self.folds(frame)
                    if folds is None or len(folds) != n:
                        raise CacheError(f"frame {frame:g}: folds missing or not one per strand")
            except CacheError as e:
                text = str(e)
                prefix = f"frame {frame:g}: "
                problems.append(FrameProblem(frame, text[len(prefix) :] if text.startswith(prefix) else text))
                continue
        return problems
