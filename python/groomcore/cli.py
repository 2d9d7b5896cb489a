"""The `groomcore` command: inspect and check strand caches, look into Alembic files, and
export caches to USD, on one machine or over a farm.

    groomcore info CACHE_DIR NAME [--json]
    groomcore check CACHE_DIR NAME [--frames A-B]
    groomcore abc FILE [--body NAME]
    groomcore export-usd CACHE_DIR NAME OUT_BASE --frames A-B [options]
    groomcore assemble CACHE_DIR NAME OUT_BASE --frames A-B [options]
    groomcore export-abc CACHE_DIR NAME OUT_BASE --frames A-B [--per-frame] [options]
    groomcore import CURVES_FILE CURVES_PATH BODY_FILE BODY_PATH CACHE_DIR NAME --frames A-B [options]

Errors are one line on stderr; the exit status is 0 only on success (1 for a fault found
or a failed export, 2 for bad usage, 130 when interrupted).
"""

from __future__ import annotations

import argparse
import json
import logging
import math
import os
import signal
import sys
import time
from pathlib import Path
from typing import Any

from .cachefiles import CacheDir, CacheError, FrameProblem
from .farm import DEFAULT_TIMEOUT

PROG = "groomcore"


class UsageError(Exception):
    pass


def frame_range(text: str) -> list[int]:
    """'1001-1048' (or one frame, '1001'; negative frames as '-5--1')."""
    parts = text.split("-")
    try:
        if len(parts) == 1:
            a = b = int(parts[0])
        elif len(parts) == 2 and parts[0]:
            a, b = int(parts[0]), int(parts[1])
        elif len(parts) == 3 and not parts[0]:
            a, b = -int(parts[1]), int(parts[2])
        elif len(parts) == 4 and not parts[0] and not parts[2]:
            a, b = -int(parts[1]), -int(parts[3])
        else:
            raise ValueError
    except ValueError:
        raise UsageError(f"'{text}' is not a frame range A-B") from None
    if b < a:
        raise UsageError(f"frame range {text} ends before it starts")
    return list(range(a, b + 1))


def human_bytes(n: int) -> str:
    value = float(n)
    for unit in ("B", "KiB", "MiB", "GiB"):
        if value < 1024 or unit == "GiB":
            return f"{value:.1f} {unit}" if unit != "B" else f"{n} B"
        value /= 1024
    return f"{n} B"


def compact_frames(frames: list[float]) -> str:
    """1001-1024, 1030 ..."""
    if not frames:
        return "none"
    runs: list[str] = []
    start = prev = frames[0]
    for f in frames[1:] + [math.inf]:
        if f == prev + 1:
            prev = f
            continue
        runs.append(f"{start:g}" if start == prev else f"{start:g}-{prev:g}")
        start = prev = f
    return ", ".join(runs)


# ------------------------------------------------------------------------- commands


def cmd_info(args: argparse.Namespace) -> int:
    summary = CacheDir(Path(args.cache_dir), args.name).summary()
    if args.json:
        summary["frames"] = [_number(f) for f in summary["frames"]]
        print(json.dumps(summary, indent=2))
        return 0
    info = summary["info"]
    print(f"cache      {summary['cache']}")
    if info:
        for key, value in info.items():
            print(f"  {key:<19}{value}")
    else:
        print("  info record: missing or empty")
    print(f"frames     {summary['frame_count']}: {compact_frames(summary['frames'])}")
    if summary["strands"] is not None:
        print(f"strands    {summary['strands']:,} with {summary['cvs']:,} CVs")
    holds = [k for k in ("feathers", "sources", "transforms", "folds") if summary[k]]
    print(f"holds      {', '.join(holds) if holds else 'strands only'}")
    print(f"size       {human_bytes(summary['bytes'])}")
    return 0


def _number(frame: float) -> float | int:
    """A frame for JSON: an integer where it is whole (1001, not 1001.0)."""
    return int(frame) if frame == int(frame) else frame


def cmd_check(args: argparse.Namespace) -> int:
    cache = CacheDir(Path(args.cache_dir), args.name)
    frames = [float(f) for f in frame_range(args.frames)] if args.frames else None
    problems = cache.check(frames)
    checked = cache.checked
    if args.json:
        report = {
            "cache": str(cache.path),
            "checked": checked,
            "static": [p.problem for p in problems if math.isnan(p.frame)],
            "frames": [{"frame": _number(p.frame), "problem": p.problem} for p in problems if not math.isnan(p.frame)],
        }
        print(json.dumps(report, indent=2))
        return 1 if problems else 0
    for p in problems:
        where = "static" if math.isnan(p.frame) else f"frame {p.frame:g}"
        print(f"{where}: {p.problem}")
    bad = len({p.frame for p in problems if not math.isnan(p.frame)})
    static = [p for p in problems if math.isnan(p.frame)]
    print(
        f"{cache.path}: {checked} frames checked, {bad} missing or damaged"
        + (f", {len(static)} problems in the static files" if static else "")
    )
    return 1 if problems else 0


def cmd_abc(args: argparse.Namespace) -> int:
    from .abctree import lookup_body, shape_nodes, walk

    nodes = walk(args.file)
    for n in nodes:
        depth = n.path.count("/") - 1
        label = n.schema or "(no schema)"
        print(f"{'  ' * depth}{n.name:<{max(1, 40 - 2 * depth)}} {label:<24} {n.samples:>5} samples")
    print(f"{len(nodes)} objects, {len(shape_nodes(args.file))} shape nodes")
    if args.body is None:
        return 0
    result = lookup_body(args.file, args.body)
    print(f"findBodyMeshShapeNode '{args.body}':")
    for c in result.candidates:
        print(f"  candidate  {c.path}  {c.schema or '(no schema)'}")
    print(f"  returns    {result.result or 'nothing'}")
    if result.hint:
        print(f"  why        {result.hint}")
    return 0 if result.result else 1


def _settings(args: argparse.Namespace) -> Any:
    from .usdexport import LEVELS, Settings

    if not 0 < args.ratio <= 1:
        raise UsageError(f"--ratio {args.ratio}: must lie in (0, 1]")
    if not (math.isfinite(args.meters_per_unit) and args.meters_per_unit > 0):
        raise UsageError(f"--meters-per-unit {args.meters_per_unit}: must be a positive number")
    if getattr(args, "workers", 0) < 0:
        raise UsageError(f"--workers {args.workers}: must be 0 (this process) or more")
    if getattr(args, "workers", 0) and getattr(args, "scheduler", None):
        raise UsageError("--workers and --scheduler: give one (a local cluster of N workers, or an existing one)")
    if not (math.isfinite(getattr(args, "timeout", 1.0)) and getattr(args, "timeout", 1.0) > 0):
        raise UsageError(f"--timeout {args.timeout}: must be a positive number of seconds")
    out_base = Path(args.out_base).absolute()
    out_dir = out_base.parent
    try:
        out_dir.mkdir(parents=True, exist_ok=True)
        probe = out_dir / f".groomcore-write-test.{time.monotonic_ns()}"
        probe.touch()
        probe.unlink()
    except OSError as e:
        raise CacheError(f"cannot write to {out_dir}: {e.strerror or e}") from None
    cache = CacheDir(Path(args.cache_dir).absolute(), args.name)
    cache.require()
    return Settings(
        str(cache.root),
        args.name,
        str(out_base),
        LEVELS[args.level],
        args.ratio,
        args.normals,
        args.feathers,
        args.up_axis,
        args.meters_per_unit,
    )


def _run_on_farm(job: Any, todo: list[int], args: argparse.Namespace) -> bool:
    """The frames of a per-frame export (USD or Alembic) on the farm, with --resume,
    --workers, --scheduler and --timeout as both commands take them; prints what was done and
    the frames that failed, and answers whether every frame is exported."""
    from .farm import frame_done, other_settings, run_frames

    mixed = other_settings(job, todo) if args.resume else []
    if mixed:
        raise CacheError(
            f"--resume: {len(mixed)} frames ({compact_frames([float(f) for f in mixed])}) were exported to "
            f"{args.out_base} with other settings; resume with those settings, or export without --resume"
        )
    skipped = [f for f in todo if args.resume and frame_done(job, f)]
    todo = [f for f in todo if f not in skipped]
    if skipped:
        print(f"resuming: {len(skipped)} frames already exported")
    if args.workers or args.scheduler:
        _silence_dask()
    t0 = time.perf_counter()
    results, failed = run_frames(
        job,
        todo,
        workers=args.workers,
        scheduler=args.scheduler or "",
        progress=not args.quiet,
        on_error=lambda f, why: print(f"frame {f}: {why}", file=sys.stderr),
        timeout=args.timeout,
    )
    seconds = time.perf_counter() - t0
    print(
        f"exported {len(results)} of {len(todo)} frames in {seconds:.1f} s"
        + (f" ({len(results) / seconds:.2f} frames/s)" if results and seconds > 0 else "")
    )
    if failed:
        print(
            f"{PROG}: error: {len(failed)} frames failed: {compact_frames(sorted(map(float, failed)))}; "
            f"the others are exported, fix the cache and rerun with --resume",
            file=sys.stderr,
        )
    return not failed


def cmd_export(args: argparse.Namespace) -> int:
    from .usdexport import assemble

    s = _settings(args)
    frames = frame_range(args.frames)
    todo = frame_range(args.chunk) if args.chunk else frames
    if not set(todo) <= set(frames):
        raise UsageError(f"--chunk {args.chunk} lies outside --frames {args.frames}")
    if not _run_on_farm(s, todo, args):
        return 1
    if args.chunk:
        return 0
    for path in assemble(s, frames, args.up_axis, args.meters_per_unit):
        print(f"shot asset {path}")
    return 0


def _silence_dask() -> None:
    """Dask's loggers, which it configures when imported, say in tracebacks what the command
    says in one line (a lost scheduler, an interrupted run)."""
    import distributed  # noqa: F401  (sets up its loggers)

    for name in list(logging.root.manager.loggerDict):
        if name.split(".")[0] in ("distributed", "tornado", "asyncio"):
            logging.getLogger(name).setLevel(logging.CRITICAL + 1)


def cmd_assemble(args: argparse.Namespace) -> int:
    from .usdexport import assemble

    s = _settings(args)
    for path in assemble(s, frame_range(args.frames), args.up_axis, args.meters_per_unit):
        print(f"shot asset {path}")
    return 0


def cmd_export_abc(args: argparse.Namespace) -> int:
    from .abcexport import AbcFrames, export_shot

    frames = frame_range(args.frames)
    if not (math.isfinite(args.fps) and args.fps > 0):
        raise UsageError(f"--fps must be above 0, not {args.fps:g}")
    if args.workers < 0:
        raise UsageError(f"--workers must be 0 or more, not {args.workers}")
    if (args.workers or args.scheduler or args.resume) and not args.per_frame:
        raise UsageError("--workers, --scheduler and --resume export one archive per frame: add --per-frame")
    if args.workers and args.scheduler:
        raise UsageError("--workers starts a local cluster, --scheduler uses an existing one: give one of them")
    if not (math.isfinite(args.timeout) and args.timeout > 0):
        raise UsageError(f"--timeout {args.timeout}: must be a positive number of seconds")
    cache = CacheDir(Path(args.cache_dir).absolute(), args.name)
    cache.require()
    out_base = str(Path(args.out_base).absolute())
    t0 = time.perf_counter()
    if not args.per_frame:
        path = export_shot(str(cache.root), args.name, out_base, frames, args.fps)
        print(f"exported {len(frames)} frames to {path} in {time.perf_counter() - t0:.1f} s")
        return 0
    return 0 if _run_on_farm(AbcFrames(str(cache.root), args.name, out_base, args.fps), frames, args) else 1


def cmd_import(args: argparse.Namespace) -> int:
    from .importer import import_curves

    frames = frame_range(args.frames)
    if not args.fps > 0:
        raise UsageError(f"--fps must be above 0, not {args.fps:g}")
    interactive = sys.stderr.isatty() and not args.quiet

    def progress(done: int, total: int) -> None:
        if interactive:
            print(f"\rimporting: {done}/{total} frames", end="" if done < total else "\n", file=sys.stderr)

    t0 = time.perf_counter()
    count = import_curves(
        args.curves_file,
        args.curves_path,
        args.body_file,
        args.body_path,
        Path(args.cache_dir),
        args.name,
        frames,
        fps=args.fps,
        max_root_distance=-1.0 if args.max_root_distance is None else args.max_root_distance,
        progress=progress,
    )
    print(
        f"imported {count} curves over {len(frames)} frames into {Path(args.cache_dir) / args.name} "
        f"in {time.perf_counter() - t0:.1f} s"
    )
    return 0


# ------------------------------------------------------------------------- parser


def _version() -> str:
    from importlib.metadata import PackageNotFoundError, version

    try:
        return version("groomcore")
    except PackageNotFoundError:
        return "unknown"


# Options that take a frame range, which may start with a minus sign ("-5--1").
RANGE_OPTIONS = ("--frames", "--chunk")


def _joined_ranges(argv: list[str]) -> list[str]:
    """--frames -5--1 as --frames=-5--1, so that argparse does not take the range for an option."""
    out: list[str] = []
    i = 0
    while i < len(argv):
        if argv[i] in RANGE_OPTIONS and i + 1 < len(argv) and argv[i + 1][:1] == "-" and argv[i + 1][1:2].isdigit():
            out.append(f"{argv[i]}={argv[i + 1]}")
            i += 2
            continue
        out.append(argv[i])
        i += 1
    return out


class Parser(argparse.ArgumentParser):
    def error(self, message: str) -> Any:
        raise UsageError(f"{self.prog}: {message}")


def parser() -> argparse.ArgumentParser:
    p = Parser(prog=PROG, description=__doc__.split("\n\n")[0].replace("\n", " "))
    p.add_argument("--version", action="version", version=f"{PROG} {_version()}")
    sub = p.add_subparsers(dest="command", required=True, parser_class=Parser)

    def cache_args(q: argparse.ArgumentParser) -> None:
        q.add_argument("cache_dir", metavar="CACHE_DIR", help="the folder the cache was baked into")
        q.add_argument("name", metavar="NAME", help="the node name: the cache is CACHE_DIR/NAME")

    q = sub.add_parser(
        "info",
        help="what a cache holds",
        description="The info record, the frames present, "
        "strand and CV counts, what else the cache holds, and its size on disk.",
    )
    cache_args(q)
    q.add_argument("--json", action="store_true", help="print the report as JSON")
    q.set_defaults(run=cmd_info)

    q = sub.add_parser(
        "check",
        help="find missing and damaged frames",
        description="Reads every frame with "
        "the library's readers and lists each missing or damaged frame with what is wrong. "
        "Exit status 1 when anything is wrong.",
    )
    cache_args(q)
    q.add_argument("--frames", metavar="A-B", help="frames to check (default: every frame present)")
    q.add_argument("--json", action="store_true", help="print the findings as JSON")
    q.set_defaults(run=cmd_check)

    q = sub.add_parser(
        "abc",
        help="an Alembic file as the reader sees it",
        description="The object tree (paths, "
        "schemas, sample counts) as groomcore's Alembic reader sees it; with --body, the shape "
        "nodes findBodyMeshShapeNode considers and what it returns.",
    )
    q.add_argument("file", metavar="FILE")
    q.add_argument("--body", metavar="NAME", help="look a body shape up by name, as the rebinding does")
    q.set_defaults(run=cmd_abc)

    def timeout_arg(q: argparse.ArgumentParser) -> None:
        q.add_argument(
            "--timeout",
            type=float,
            default=DEFAULT_TIMEOUT,
            metavar="SECONDS",
            help="with Dask: give up when no worker joins, or no frame finishes, for this long "
            f"(default {DEFAULT_TIMEOUT:g})",
        )

    def export_args(q: argparse.ArgumentParser) -> None:
        cache_args(q)
        q.add_argument(
            "out_base",
            metavar="OUT_BASE",
            help="output path prefix: OUT_BASE.high_geom.1001.usd, OUT_BASE.high.usda, ...",
        )
        q.add_argument("--frames", metavar="A-B", required=True, help="the shot's frames")
        q.add_argument("--level", choices=("high", "low", "both"), default="both", help="levels of detail")
        q.add_argument("--ratio", type=float, default=1.0, help="exportRatio in (0, 1] (default 1)")
        q.add_argument("--normals", action="store_true", help="write root normals with the curves")
        q.add_argument(
            "--feathers",
            action="store_true",
            help="feather mode: the cache's feathers with their per-strand transforms and folds",
        )
        q.add_argument("--up-axis", choices=("Y", "Z"), default="Y", help="the shot asset's up axis (default Y)")
        q.add_argument(
            "--meters-per-unit",
            type=float,
            default=0.01,
            help="the shot asset's meters per unit (default 0.01: centimetres)",
        )

    q = sub.add_parser(
        "export-usd",
        help="export a cache to USD",
        description="Exports each frame with "
        "ZCurvesToUSD to per-frame files, then writes one shot asset per level that composes the "
        "attribute file with the per-frame geometry as USD value clips. Files appear under their "
        "final names only when complete.",
    )
    export_args(q)
    q.add_argument("--workers", type=int, default=0, help="run the frames on a local Dask cluster of N processes")
    q.add_argument("--scheduler", metavar="ADDRESS", help="run the frames on an existing Dask cluster")
    q.add_argument("--chunk", metavar="A-B", help="export these frames only and no shot asset (see assemble)")
    q.add_argument("--resume", action="store_true", help="skip frames whose files are complete")
    q.add_argument("--quiet", action="store_true", help="no progress report")
    timeout_arg(q)
    q.set_defaults(run=cmd_export)

    q = sub.add_parser(
        "assemble",
        help="write the shot assets of exported chunks",
        description="After export-usd --chunk runs: the attribute files and the shot asset of each level.",
    )
    export_args(q)
    q.set_defaults(run=cmd_assemble)

    q = sub.add_parser(
        "export-abc",
        help="export a cache to Alembic curves",
        description="Writes the cache's strands as Alembic curves with the real Alembic library: catmull-rom, "
        "a width per point, and the root's uv and the strand's id per curve. One archive OUT_BASE.abc with every "
        "frame, or with --per-frame one archive per frame (OUT_BASE.1001.abc), serially or on Dask as export-usd "
        "runs its frames (--resume skips whole frames). Archives appear under their final names only when whole.",
    )
    cache_args(q)
    q.add_argument("out_base", metavar="OUT_BASE", help="output path prefix: OUT_BASE.abc or OUT_BASE.1001.abc")
    q.add_argument("--frames", metavar="A-B", required=True, help="the shot's frames")
    q.add_argument("--fps", type=float, default=24.0, help="frames per second of the archive's time (default 24)")
    q.add_argument("--per-frame", action="store_true", help="one archive per frame, for a farm")
    q.add_argument("--workers", type=int, default=0, help="with --per-frame: a local Dask cluster of N processes")
    q.add_argument("--scheduler", metavar="ADDRESS", help="with --per-frame: an existing Dask cluster")
    q.add_argument("--resume", action="store_true", help="with --per-frame: skip frames whose archives are complete")
    q.add_argument("--quiet", action="store_true", help="no progress report")
    timeout_arg(q)
    q.set_defaults(run=cmd_export_abc)

    q = sub.add_parser(
        "import",
        help="bake guide curves on a body into a cache",
        description="Reads curves (an Alembic Curve object or a USD BasisCurves prim: guides exported from Blender, "
        "Houdini or Maya) and a body (an Alembic polygon mesh or a USD Mesh prim), makes a groom of the curves on the "
        "body at the first frame (roots projected onto it) and bakes every frame into CACHE_DIR/NAME. USD files are "
        "flattened with usd-core and read at the frame's time code.",
    )
    q.add_argument("curves_file", metavar="CURVES_FILE", help="the Alembic or USD file of the curves")
    q.add_argument("curves_path", metavar="CURVES_PATH", help="the curves' object or prim path")
    q.add_argument("body_file", metavar="BODY_FILE", help="the Alembic or USD file of the body")
    q.add_argument("body_path", metavar="BODY_PATH", help="the body's polygon mesh or Mesh prim path")
    cache_args(q)
    q.add_argument("--frames", metavar="A-B", required=True, help="the shot's frames")
    q.add_argument("--fps", type=float, default=24.0, help="frames per second of the files (default 24)")
    q.add_argument(
        "--max-root-distance",
        type=float,
        metavar="D",
        help="refuse curves whose roots lie farther than D from the body (default: 1%% of its bounding box diagonal)",
    )
    q.add_argument("--quiet", action="store_true", help="no progress report")
    q.set_defaults(run=cmd_import)
    return p


class Terminated(KeyboardInterrupt):
    """SIGTERM, what a farm sends to stop a job: handled as an interrupt."""


def _terminate(signum: int, frame: Any) -> None:
    raise Terminated()


def main(argv: list[str] | None = None) -> int:
    # The library's report lines repeat what the command reports itself, in one line, and
    # Dask's own logging would add tracebacks of its threads to an interrupted run.
    for name in ("groomcore", "distributed", "tornado", "asyncio"):
        logging.getLogger(name).addHandler(logging.NullHandler())
        logging.getLogger(name).propagate = False
    signal.signal(signal.SIGTERM, _terminate)
    try:
        args = parser().parse_args(_joined_ranges(sys.argv[1:] if argv is None else argv))
        status = int(args.run(args))
        sys.stdout.flush()  # here, where a reader gone away is caught, not at exit
        return status
    except UsageError as e:
        print(f"{e}" if str(e).startswith(PROG) else f"{PROG}: {e}", file=sys.stderr)
        return 2
    except (CacheError, OSError) as e:
        if isinstance(e, BrokenPipeError):
            return _broken_pipe()
        print(f"{PROG}: error: {e}", file=sys.stderr)
        return 1
    except KeyboardInterrupt as e:
        signal.signal(signal.SIGTERM, signal.SIG_IGN)
        what = "terminated" if isinstance(e, Terminated) else "interrupted"
        print(f"{PROG}: {what}; finished frames are in place, rerun with --resume", file=sys.stderr)
        return 143 if isinstance(e, Terminated) else 130


def _broken_pipe() -> int:
    """The reader of standard output went away (`groomcore info ... | head`): end quietly,
    as a Unix tool killed by SIGPIPE does."""
    devnull = os.open(os.devnull, os.O_WRONLY)
    os.dup2(devnull, sys.stdout.fileno())
    return 141


__all__ = ["FrameProblem", "main"]
