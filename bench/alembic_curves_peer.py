"""The peer of the cache benchmark: the same strands as an Alembic curves cache, written
and read through the real Alembic library (alembic3d, Ogawa).

    alembic_curves_peer.py CACHE_DIR FRAMES OUT.abc

Reads the strands of frames 1..FRAMES from a groomcore cache directory (CVs from the
curves_pN files, the per-strand float of each frame as widths, the CV counts once),
writes them as one animated OCurves, reads every frame back, and prints one JSON line:
seconds per frame spent in the library for writing and for reading, and the file's size.
Building the input arrays is not counted.
"""

import json
import os
import sys
import time

import imath
import numpy as np
from alembic3d import Abc, AbcCoreAbstract, AbcGeom


def read_frame(path):
    """CV counts, CVs and the per-strand ln1 of one per-frame cache file."""
    raw = np.fromfile(path, dtype=np.uint8)
    at = 0

    def take(dtype, count, width=1):
        nonlocal at
        n = count * width * np.dtype(dtype).itemsize
        out = raw[at : at + n].view(dtype)
        at += n
        return out

    def counted(dtype, width=1):
        n = int(take(np.int32, 1)[0])
        return take(dtype, n, width)

    num_cvs = counted(np.int32)
    counted(np.int32)  # start: Alembic derives it from the counts
    cvs = counted(np.float32, 3)
    strands = int(take(np.int32, 1)[0])
    take(np.int32, 1)  # section count
    tag = int(take(np.int32, 1)[0])
    take(np.uint8, tag)  # "ln1"
    ln1 = take(np.float32, strands)
    # Copies: the views may sit at unaligned offsets, which the imath buffers refuse.
    return num_cvs.copy(), cvs.reshape(-1, 3).copy(), ln1.copy()


def main():
    cache_dir, frames, out = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    fps = 24.0
    write_s = 0.0
    archive = Abc.OArchive(out)
    tsi = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / fps, 1.0 / fps))
    curves = AbcGeom.OCurves(archive.getTop(), "hair", tsi)
    schema = curves.getSchema()
    counts = None
    for f in range(1, frames + 1):
        num_cvs, cvs, ln1 = read_frame(os.path.join(cache_dir, f"curves_p{f}"))
        pos = imath.V3fArrayFromBuffer(np.ascontiguousarray(cvs))
        widths = AbcGeom.OFloatGeomParamSample(
            imath.FloatArrayFromBuffer(np.ascontiguousarray(ln1)), AbcGeom.GeometryScope.kUniformScope
        )
        if counts is None:
            counts = imath.IntArrayFromBuffer(np.ascontiguousarray(num_cvs))
        sample = AbcGeom.OCurvesSchemaSample(
            pos, counts, AbcGeom.CurveType.kCubic, AbcGeom.CurvePeriodicity.kNonPeriodic, widths
        )
        t0 = time.perf_counter()
        schema.set(sample)
        write_s += time.perf_counter() - t0
        del pos, widths, sample
    t0 = time.perf_counter()
    del schema, curves, archive  # the archive is finished when its last reference goes
    write_s += time.perf_counter() - t0

    read_s = 0.0
    checksum = 0.0
    t0 = time.perf_counter()
    iarchive = Abc.IArchive(out)
    icurves = AbcGeom.ICurves(iarchive.getTop(), "hair")
    ischema = icurves.getSchema()
    iwidths = ischema.getWidthsParam()
    read_s += time.perf_counter() - t0
    for f in range(1, frames + 1):
        t0 = time.perf_counter()
        sel = Abc.ISampleSelector(f / fps)  # by time: frame f is at f / 24
        sample = ischema.getValue(sel)
        pos = sample.getPositions()
        counts = sample.getCurvesNumVertices()
        widths = iwidths.getExpandedValue(sel).getVals()
        read_s += time.perf_counter() - t0
        # (np.asarray on imath arrays is not safe: the bindings free its memory twice)
        checksum += pos[len(pos) - 1].x + widths[len(widths) - 1] + len(counts)
    print(
        json.dumps(
            {
                "write_s_per_frame": write_s / frames,
                "read_s_per_frame": read_s / frames,
                "bytes": os.path.getsize(out),
                "checksum": checksum,
            }
        )
    )


if __name__ == "__main__":
    main()
