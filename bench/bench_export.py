"""Farm-scale USD export: a cache of 100k strands x 16 CVs over 48 frames exported to
per-frame files at both levels, serially and on a local Dask cluster of 2 worker processes,
in one run; then the shot asset, and the time usd-core takes to open it and read one frame.
First, what a steady frame costs in one process (user and system CPU, page faults, bytes
read and written; the median over every frame but the first), with the buffers reused from
frame to frame and with fresh ones, under glibc's default allocator settings and under
Dask's worker setting (MALLOC_TRIM_THRESHOLD_=65536): each a process of its own.

    python bench/bench_export.py [--strands 100000] [--frames 48] [--workers 2]
"""

from __future__ import annotations

import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np

import groomcore as gc
from groomcore.usdexport import Settings, assemble, run_frames

CVS = 16


def bake(root: Path, n: int, frames: list[int]) -> None:
    """A groom that sways over the frames, baked as the node 'hair'."""
    rng = np.random.default_rng(3)
    f, c = gc.ZFollicles(), gc.ZCurves()
    roots = rng.random((n, 3), dtype=np.float32)
    rest = (roots[:, None, :] + np.linspace(0, 0.3, CVS, dtype=np.float32)[None, :, None] * [0, 1, 0]).astype(
        np.float32
    )
    c.numCVs = np.full(n, CVS, np.int32)
    c.start = np.arange(0, n * CVS, CVS, dtype=np.int32)
    c.cvs = rest.reshape(-1, 3)
    f.uid, f.rtp, f.tgl = np.arange(n, dtype=np.int32), np.zeros(n, np.int32), np.zeros(n, np.int32)
    f.bcc, f.uvw, f.nmp = (rng.random((n, 3), dtype=np.float32) for _ in range(3))
    f.ln0 = f.ln1 = np.full(n, 0.3, np.float32)
    f.rxy = np.zeros((n, 2), np.float32)
    f.twh, f.rwh, f.top, f.rop = (np.full(n, v, np.float32) for v in (0.002, 0.01, 0.5, 1.0))
    axs = np.zeros((n, 4, 3), np.float32)
    axs[:, 0], axs[:, 1, 0], axs[:, 2, 1], axs[:, 3, 2] = roots, 1, 1, 1
    f.axs = axs
    cache = gc.ZCacheData()
    cache.nodeName, cache.follicles, cache.curves = "hair", f, c
    cache.boundingBox = c.boundingBox(False, True)
    root.mkdir(parents=True, exist_ok=True)
    if not cache.bakeStaticData(str(root)):
        sys.exit(f"bench_export: cannot bake into {root}")
    weight = (np.linspace(0, 1, CVS, dtype=np.float32) ** 2)[None, :, None]
    for frame in frames:
        sway = np.float32(0.05 * np.sin(0.2 * frame)) * np.array([1, 0, 0], np.float32)
        c.cvs = (rest + weight * sway).reshape(-1, 3).astype(np.float32)
        cache.boundingBox = c.boundingBox(False, True)
        cache.bakePerFrameData(str(root), frame)


def export_only(root: Path, out: Path, frames: list[int], reuse: bool) -> None:
    """One serial export in this process; prints each frame's report as JSON."""
    out.mkdir(parents=True)
    s = Settings(str(root / "cache"), "hair", str(out / "hair"), (True, False), reuse=reuse)
    results, failed = run_frames(s, frames, progress=False)
    if failed:
        sys.exit(f"bench_export: frames failed: {failed}")
    print(json.dumps(results))


def steady_frames(root: Path, frames: list[int]) -> None:
    """Per-frame costs of a serial export, buffers reused or fresh, under two allocator
    settings, each in a process of its own."""
    rows: list[tuple[str, str, dict[str, float]]] = []
    for allocator, env in (("glibc default", {}), ("Dask worker", {"MALLOC_TRIM_THRESHOLD_": "65536"})):
        for reuse in (False, True):
            out = root / f"steady-{len(rows)}"
            done = subprocess.run(
                [sys.executable, __file__, "--export-only", str(root), str(out), "--frames", str(len(frames)),
                 "--reuse", str(int(reuse))],
                capture_output=True, text=True, check=True, env={**os.environ, **env},
            )  # fmt: skip
            steady = json.loads(done.stdout)[1:]  # the first frame sizes everything
            # Each run starts with no dirty pages of the run before waiting to be written back,
            # which would slow the next run's writes whatever its own cost.
            shutil.rmtree(out)
            os.sync()

            def median(key: str, steady: list[dict[str, float]] = steady) -> float:
                return float(np.median([r[key] for r in steady]))

            rows.append((allocator, "reused" if reuse else "fresh", {k: median(k) for k in steady[0] if k != "pid"}))
    print("| allocator | buffers | wall (ms) | user (ms) | system (ms) | page faults | read (MB) | written (MB) | "
          "speed-up |")  # fmt: skip
    print("|---|---|---|---|---|---|---|---|---|")
    for allocator, buffers, m in rows:
        fresh = next(r[2] for r in rows if r[0] == allocator and r[1] == "fresh")
        print(
            f"| {allocator} | {buffers} | {1e3 * m['seconds']:.0f} | {1e3 * m['user_s']:.0f} | "
            f"{1e3 * m['system_s']:.0f} | {m['page_faults']:,.0f} | {m['read_bytes'] / 1e6:.1f} | "
            f"{m['written_bytes'] / 1e6:.1f} | {fresh['seconds'] / m['seconds']:.2f}x |"
        )
    print()


def main(argv: list[str]) -> int:
    if argv[:1] == ["--export-only"]:
        frames_at = argv.index("--frames")
        export_only(
            Path(argv[1]),
            Path(argv[2]),
            list(range(1001, 1001 + int(argv[frames_at + 1]))),
            argv[argv.index("--reuse") + 1] == "1",
        )
        return 0
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--strands", type=int, default=100_000)
    parser.add_argument("--frames", type=int, default=48)
    parser.add_argument("--workers", type=int, default=2)
    args = parser.parse_args(argv)
    frames = list(range(1001, 1001 + args.frames))
    with tempfile.TemporaryDirectory(prefix="groomcore-export-bench-") as tmp:
        root = Path(tmp)
        bake(root / "cache", args.strands, frames)
        print(f"{args.strands:,} strands x {CVS} CVs, {len(frames)} frames, both levels of detail")
        print()
        steady_frames(root, frames)
        rows = []
        for label, workers in (("serial", 0), (f"{args.workers} workers", args.workers)):
            s = Settings(str(root / "cache"), "hair", str(root / label.replace(" ", "_") / "hair"), (True, False))
            Path(s.out_base).parent.mkdir()
            t0 = time.perf_counter()
            results, failed = run_frames(s, frames, workers=workers, progress=False)
            wall = time.perf_counter() - t0
            if failed:
                sys.exit(f"bench_export: frames failed: {failed}")
            peak: dict[int, float] = {}
            for r in results:
                peak[r["pid"]] = max(peak.get(r["pid"], 0.0), r["peak_rss_mb"])
            per_frame = float(np.median([r["seconds"] for r in results]))
            rows.append((label, wall, per_frame, max(peak.values()), len(peak)))
            if workers == 0:
                t0 = time.perf_counter()
                assets = assemble(s, frames, "Y", 0.01)
                assemble_s = time.perf_counter() - t0
        serial_wall = rows[0][1]
        print("| run | wall (s) | frames/s | median frame in a process (s) | speed-up | peak RSS per process (MiB) |")
        print("|---|---|---|---|---|---|")
        for label, wall, per_frame, peak_mb, processes in rows:
            print(
                f"| {label} | {wall:.1f} | {len(frames) / wall:.2f} | {per_frame:.3f} | {serial_wall / wall:.2f}x | "
                f"{peak_mb:.0f} ({processes} process{'es' if processes > 1 else ''}) |"
            )
        script = f"""
import time
t0 = time.perf_counter()
from pxr import Usd, UsdGeom
t1 = time.perf_counter()
stage = Usd.Stage.Open({str(assets[0])!r})
t2 = time.perf_counter()
import numpy
points = numpy.asarray(UsdGeom.BasisCurves(stage.GetPrimAtPath('/hair')).GetPointsAttr().Get(1010))
t3 = time.perf_counter()
print(f"{{t2 - t1:.3f}} {{t3 - t2:.3f}} {{len(points)}}")
"""
        out = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, check=True).stdout
        open_s, read_s, count = out.split()
        print()
        print(f"assemble (attribute files and both shot assets): {assemble_s:.2f} s")
        print(
            f"usd-core: open the shot asset {float(open_s):.3f} s, read frame 1010's {int(count):,} points into numpy "
            f"{float(read_s):.3f} s"
        )
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
