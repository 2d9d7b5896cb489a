"""A strand cache directory as the command-line tools see it: its info record, the frames
it holds, the host's files the library leaves to its host (feathers, per-strand feather
transforms and folds), and a check of every frame with the library's own readers."""

from __future__ import annotations

import math
import os
import re
import struct
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

import numpy as np
import numpy.typing as npt

from . import _groomcore as gc

FRAME_FILE = re.compile(r"^curves_([pm])(-?\d+(?:\.\d+)?)$")
INFO_LINE = re.compile(r'^\s*"([^"]+)"\s*:\s*"([^"]*)"\s*,?\s*$')


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

    def __post_init__(self) -> None:
        self.path = self.root / self.name

    def require(self) -> None:
        if not self.path.is_dir():
            raise CacheError(f"no cache '{self.name}' in {self.root}: {self.path} is not a directory")

    # ----------------------------------------------------------------- contents

    def info_record(self) -> dict[str, str]:
        """Every key of the info record, as text; empty when there is none."""
        try:
            text = (self.path / "info").read_text(errors="replace")
        except OSError:
            return {}
        out: dict[str, str] = {}
        for line in text.splitlines():
            m = INFO_LINE.match(line)
            if m:
                out[m.group(1)] = m.group(2)
        return out

    def frames(self) -> list[float]:
        """The frames that have a curves file, in order."""
        found = []
        for entry in os.listdir(self.path):
            m = FRAME_FILE.match(entry)
            if m:
                value = float(m.group(2))
                if m.group(1) == "m" and value > 0 or m.group(1) == "p" and value < 0:
                    continue  # not a name the bakers write
                found.append(value)
        return sorted(found)

    def static_follicles(self) -> gc.ZFollicles:
        f = gc.ZFollicles()
        path = self.path / "follicles"
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
        """The feather templates of the `feathers` file: a count, then the records."""
        path = self.path / "feathers"
        if not path.is_file():
            return []
        data = path.read_bytes()
        if len(data) < 4:
            raise CacheError(f"{path}: no feather count")
        (count,) = struct.unpack_from("<i", data)
        if count < 0 or count > len(data):
            raise CacheError(f"{path}: a feather count of {count}")
        out, offset = [], 4
        for k in range(count):
            feather = gc.ZFeather()
            offset = feather.read(path, offset)
            if offset < 0:
                raise CacheError(f"{path}: feather {k} of {count} is damaged")
            out.append(feather)
        return out

    def transforms(self, frame: float) -> tuple[npt.NDArray[np.float32], npt.NDArray[np.float32]] | None:
        """Per-strand feather scales and rotations of `xforms_TAG`, or None without the file."""
        path = self.path / f"xforms_{frame_tag(frame)}"
        if not path.is_file():
            return None
        data = path.read_bytes()
        arrays, offset = [], 0
        for _ in range(2):
            if offset + 4 > len(data):
                raise CacheError(f"{path.name}: truncated")
            (n,) = struct.unpack_from("<i", data, offset)
            end = offset + 4 + 12 * n
            if n < 0 or end > len(data):
                raise CacheError(f"{path.name}: {n} vectors do not fit in the file")
            arrays.append(np.frombuffer(data, np.float32, 3 * n, offset + 4).reshape(n, 3).copy())
            offset = end
        return arrays[0], arrays[1]

    def folds(self, frame: float) -> npt.NDArray[np.float32] | None:
        path = self.path / f"folds_{frame_tag(frame)}"
        if not path.is_file():
            return None
        data = path.read_bytes()
        (n,) = struct.unpack_from("<i", data) if len(data) >= 4 else (-1,)
        if n < 0 or 4 + 4 * n > len(data):
            raise CacheError(f"{path.name}: truncated")
        return np.frombuffer(data, np.float32, n, 4).copy()

    def box(self, frame: float) -> gc.ZBoundingBox:
        """The frame's bounds from `bbox_TAG`: min x, max x, min y, max y, min z, max z."""
        path = self.path / f"bbox_{frame_tag(frame)}"
        try:
            values = [float(v) for v in path.read_text().split()]
        except (OSError, ValueError) as e:
            raise CacheError(f"{path.name}: {e.strerror if isinstance(e, OSError) else e}") from None
        if len(values) != 6 or not all(math.isfinite(v) for v in values):
            raise CacheError(f"{path.name}: not six numbers")
        return gc.ZBoundingBox(gc.ZVector(values[0], values[2], values[4]), gc.ZVector(values[1], values[3], values[5]))

    def read_frame(self, frame: float) -> tuple[gc.ZCurves, gc.ZFollicles]:
        """One frame through readStrandsData, checked against the static record."""
        if frame != int(frame):
            raise CacheError(f"frame {frame:g}: the library reads whole frames only")
        if frame == 0:
            raise CacheError("frame 0: written as p0, which readStrandsData cannot read (it asks for z0)")
        if not (self.path / f"curves_{frame_tag(frame)}").is_file():
            raise CacheError(f"frame {frame:g}: missing (no curves_{frame_tag(frame)})")
        curves, follicles = gc.ZCurves(), gc.ZFollicles()
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
            "feathers": (self.path / "feathers").is_file(),
            "sources": (self.path / "sources").is_file(),
            "transforms": any(p.name.startswith("xforms_") for p in files),
            "folds": any(p.name.startswith("folds_") for p in files),
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
        has_xforms = any((self.path / f"xforms_{frame_tag(f)}").is_file() for f in present)
        has_folds = any((self.path / f"folds_{frame_tag(f)}").is_file() for f in present)
        for frame in wanted:
            try:
                curves, follicles = self.read_frame(frame)
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
