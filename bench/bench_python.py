"""The Python binding's overhead, as ratios against the same calls made from C++ in the
same run (bench_python_reference), on the same cache:

- a cache frame read (readStrandsData into reused objects) and a modifier apply (the scale
  modifier, evaluate and deform) at 100k and 1M strands of 16 CVs; goal at most 1.05x;
- taking a view of curves.cvs at 1k and 10M strands; goal: the same time.

    python bench/bench_python.py [--build build/release] [--reps 15] [--sizes 100000,1000000]
"""

from __future__ import annotations

import argparse
import json
import statistics
import subprocess
import sys
import tempfile
import time
import timeit
from collections.abc import Callable
from pathlib import Path

import numpy as np

import groomcore as gc

ROOT = Path(__file__).resolve().parents[1]
CVS = 16


def bake(folder: str, n: int) -> None:
    """A groom of n strands x CVS CVs with every array a modifier reads, as frame 1."""
    rng = np.random.default_rng(7)
    f, c = gc.ZFollicles(), gc.ZCurves()
    c.numCVs = np.full(n, CVS, np.int32)
    c.start = np.arange(0, n * CVS, CVS, dtype=np.int32)
    c.cvs = rng.random((n * CVS, 3), dtype=np.float32)
    f.uid, f.rtp, f.tgl = np.arange(n, dtype=np.int32), np.zeros(n, np.int32), np.zeros(n, np.int32)
    f.bcc, f.uvw, f.nmp = (rng.random((n, 3), dtype=np.float32) for _ in range(3))
    f.ln0, f.ln1 = np.ones(n, np.float32), np.ones(n, np.float32)
    f.rxy = rng.random((n, 2), dtype=np.float32)
    f.twh, f.rwh, f.top, f.rop = (np.ones(n, np.float32) for _ in range(4))
    axs = np.zeros((n, 4, 3), np.float32)
    axs[:, 1, 0] = axs[:, 2, 1] = axs[:, 3, 2] = 1
    f.axs = axs
    cache = gc.ZCacheData()
    cache.nodeName, cache.follicles, cache.curves = "bench", f, c
    cache.boundingBox = c.boundingBox(False, True)
    if not (cache.bakeStaticData(folder) and cache.bakePerFrameData(folder, 1)):
        sys.exit(f"bench_python: cannot bake into {folder}")


def median_ms(reps: int, call: Callable[[int], object]) -> float:
    times = []
    for r in range(reps):
        t0 = time.perf_counter()
        call(r)
        times.append(1e3 * (time.perf_counter() - t0))
    return statistics.median(times)


def python_side(cache_dir: str, reps: int) -> dict[str, float]:
    curves, follicles = gc.ZCurves(), gc.ZFollicles()

    def read(_: int) -> None:
        if not gc.readStrandsData(cache_dir, 1, curves, follicles):
            sys.exit("bench_python: the frame does not read")

    read_ms = median_ms(reps, read)
    scale = gc.ZScaleModifier()
    scale.scale, scale.seed, scale.rand, scale.freq = 1.0, 5.0, 0.25, 1.0
    scale.expr, scale.maskExpr = "scale + rand * znoise(6, x, y, z)", ""
    rest = gc.ZCurves(curves)

    def apply(r: int) -> None:
        scale.scale = 1.1 if r % 2 else 0.9
        scale.apply(follicles, curves, rest)

    return {"read_ms": read_ms, "apply_ms": median_ms(reps, apply)}


def view_seconds(n: int) -> float:
    curves = gc.ZCurves()
    curves.cvs = np.zeros((n, 3), np.float32)
    runs = 20000
    return min(timeit.repeat(lambda: curves.cvs, number=runs, repeat=5)) / runs


def main(argv: list[str]) -> int:
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", default=str(ROOT / "build" / "release"))
    parser.add_argument("--reps", type=int, default=15)
    parser.add_argument("--sizes", default="100000,1000000")
    args = parser.parse_args(argv)
    reference = Path(args.build) / "bench" / "bench_python_reference"
    if not reference.exists():
        print(f"bench_python: no {reference}: build the release preset first", file=sys.stderr)
        return 1
    print("| strands | call | Python (ms) | C++ (ms) | Python / C++ |")
    print("|---|---|---|---|---|")
    for n in (int(s) for s in args.sizes.split(",")):
        with tempfile.TemporaryDirectory(prefix="groomcore-bench-") as tmp:
            bake(tmp, n)
            cache_dir = str(Path(tmp) / "bench")
            # Alternate the two sides and keep each one's better run, so that neither pays
            # for the page cache or the other process alone.
            py, cpp = [], []
            for _ in range(2):
                py.append(python_side(cache_dir, args.reps))
                done = subprocess.run(
                    [reference, cache_dir, str(args.reps)], check=True, capture_output=True, text=True
                )
                cpp.append(json.loads(done.stdout))
            for key, label in (("read_ms", "frame read"), ("apply_ms", "scale apply")):
                p, c = min(r[key] for r in py), min(r[key] for r in cpp)
                print(f"| {n:,} | {label} | {p:.2f} | {c:.2f} | {p / c:.3f}x |")
    small, large = view_seconds(1_000), view_seconds(10_000_000)
    print()
    print("| view of curves.cvs | 1k strands | 10M strands | 10M / 1k |")
    print("|---|---|---|---|")
    print(f"| time per view | {1e6 * small:.2f} us | {1e6 * large:.2f} us | {large / small:.3f}x |")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
