"""A cache to USD: each frame exported by ZCurvesToUSD to files of its own, then one shot
asset per level that composes the attribute file with the per-frame geometry as USD
value clips (stitched by usd-core's UsdUtils), so that a renderer or a DCC opens one file
for the whole shot.

Frames are independent: they run in this process or on Dask workers, and every file is
the same whichever runs it. A frame is written into a staging folder and renamed into
place when complete, so no half-written file ever stands under a final name.
"""

from __future__ import annotations

import json
import os
import resource
import shutil
import socket
import sys
import time
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from . import _groomcore as gc
from .cachefiles import CacheDir, CacheError

LEVELS = {"high": (True,), "low": (False,), "both": (True, False)}
PARTIAL = ".groomcore-partial"


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


class WriteError(CacheError):
    """A file the output could not take whole (a full disk, a quota, an I/O error): the run
    stops, since every later frame would fail the same way."""


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


# A frame's ledger: written after its files are published, it records their sizes and the
# settings they were exported with. Only a frame whose ledger matches its files is trusted
# by --resume and by the assembly.
LEDGERS = ".groomcore-frames"


def _ledger(s: Settings, frame: int) -> Path:
    base = Path(s.out_base)
    return base.parent / LEDGERS / f"{base.name}.{frame}.json"


def _read_ledger(s: Settings, frame: int) -> dict[str, Any] | None:
    try:
        record = json.loads(_ledger(s, frame).read_text())
    except (OSError, ValueError):
        return None
    return record if isinstance(record, dict) else None


def _write_ledger(s: Settings, frame: int) -> None:
    files = {geometry_file(s, frame, h).name: geometry_file(s, frame, h).stat().st_size for h in s.levels}
    path = _ledger(s, frame)
    path.parent.mkdir(parents=True, exist_ok=True)
    staged = path.with_name(f".{path.name}.{os.getpid()}")
    try:
        staged.write_text(json.dumps({"settings": s.recorded(), "files": files}))
        os.replace(staged, path)
    except OSError as e:
        staged.unlink(missing_ok=True)
        raise WriteError(f"frame {frame}: cannot record it ({e.strerror or e})") from None


def frame_done(s: Settings, frame: int) -> bool:
    """The frame's files are all there, whole, exported with these settings."""
    record = _read_ledger(s, frame)
    if record is None or record.get("settings") != s.recorded():
        return False
    files = record.get("files")
    for high in s.levels:
        f = geometry_file(s, frame, high)
        if not isinstance(files, dict) or not f.is_file() or files.get(f.name) != f.stat().st_size:
            return False
    return True


def other_settings(s: Settings, frames: Sequence[int]) -> list[int]:
    """Frames already exported into OUT_BASE with settings other than these."""
    out = []
    for frame in frames:
        record = _read_ledger(s, frame)
        if record is not None and record.get("settings") != s.recorded():
            out.append(frame)
    return out


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


def _publish(staged: Path, final: Path) -> None:
    """Moves a complete file under its final name (one rename: never half there)."""
    final.parent.mkdir(parents=True, exist_ok=True)
    os.replace(staged, final)


def _stage_dir(s: Settings, what: str) -> Path:
    d = Path(s.out_base).parent / PARTIAL / f"{what}.{socket.gethostname()}.{os.getpid()}.{time.monotonic_ns()}"
    d.mkdir(parents=True, exist_ok=False)
    return d


def _clean_stale_stages(s: Settings) -> None:
    """Removes what killed processes of this machine left staged (their process is gone);
    a staging folder of another machine, or of a process still running, stays."""
    here = socket.gethostname()
    try:
        staged = list((Path(s.out_base).parent / PARTIAL).iterdir())
    except OSError:
        return
    for d in staged:
        parts = d.name.split(".")
        if len(parts) < 4 or ".".join(parts[1:-2]) != here or not parts[-2].isdigit():
            continue
        try:
            os.kill(int(parts[-2]), 0)
            continue  # still running
        except ProcessLookupError:
            shutil.rmtree(d, ignore_errors=True)
        except OSError:
            continue
    _remove_partial_if_empty(s)


def _why(e: OSError) -> str:
    """What went wrong, without the staging folder's path: "no space left on device"."""
    text = str(e)
    if text.endswith(")") and " (" in text:
        text = text[text.rindex(" (") + 2 : -1]
    return e.strerror or text


def export_frame(s: Settings, frame: int) -> dict[str, Any]:
    """Exports one frame at every level; returns what it cost: wall, user and system time,
    page faults, bytes read and written, and the process's peak memory."""
    t0 = time.perf_counter()
    before, io_before = resource.getrusage(resource.RUSAGE_SELF), _io()
    stage = _stage_dir(s, f"frame{frame}")
    try:
        x, _keep = _exporter(s, frame, stage / Path(s.out_base).name)
        for high in s.levels:
            x.writeGeometryToUSD(frame, high, False)
        del x
        _ledger(s, frame).unlink(missing_ok=True)  # not whole until every level is in place
        for high in s.levels:
            _publish(stage / geometry_file(s, frame, high).name, geometry_file(s, frame, high))
        _write_ledger(s, frame)
    except OSError as e:
        where = Path(s.out_base).parent
        raise WriteError(
            f"frame {frame}: cannot write to {where}: {_why(e)}; the frames before it are whole, "
            "rerun with --resume once there is room"
        ) from None
    finally:
        shutil.rmtree(stage, ignore_errors=True)
        _remove_partial_if_empty(s)
    after, io_after = resource.getrusage(resource.RUSAGE_SELF), _io()
    return {
        "frame": frame,
        "seconds": time.perf_counter() - t0,
        "user_s": after.ru_utime - before.ru_utime,
        "system_s": after.ru_stime - before.ru_stime,
        "page_faults": after.ru_minflt - before.ru_minflt,
        "read_bytes": io_after[0] - io_before[0],
        "written_bytes": io_after[1] - io_before[1],
        "peak_rss_mb": after.ru_maxrss / 1024,
        "pid": os.getpid(),
    }


def _io() -> tuple[int, int]:
    """Bytes this process has read and written through system calls so far (0, 0 where the
    system does not say)."""
    try:
        fields = dict(line.split(": ") for line in Path("/proc/self/io").read_text().splitlines())
        return int(fields["rchar"]), int(fields["wchar"])
    except (OSError, KeyError, ValueError):
        return 0, 0


Report = Callable[[int, "dict[str, Any] | None", str], None]


def _run_serial(s: Settings, frames: Sequence[int], report: Report) -> None:
    """Every frame in this process, in order."""
    for frame in frames:
        try:
            report(frame, export_frame(s, frame), "")
        except WriteError:
            raise
        except CacheError as e:
            report(frame, None, str(e))


# Seconds between two progress lines when standard error is no terminal.
LOG_EVERY = 10.0

# How often a Dask run looks at its connection, and how long a scheduler may stay
# unreachable before the run gives up on it.
POLL = 1.0
LOST_AFTER = 30.0

# How long a Dask run waits for a worker to join, and for the next frame to finish, before
# it gives up on the cluster (a frozen worker, a scheduler without workers).
DEFAULT_TIMEOUT = 600.0


class ClusterError(CacheError):
    """The Dask cluster went away or stopped making progress; finished frames stay."""


def _run_dask(s: Settings, frames: Sequence[int], workers: int, scheduler: str, report: Report, timeout: float) -> None:
    """The frames on the Dask cluster at `scheduler`, or on a local one of `workers`
    processes, each frame a task (retried on a lost worker), reported as they finish. A
    cluster that has no worker, that finishes no frame for `timeout` seconds or that goes
    away ends the run with ClusterError; the frames finished before stay."""
    from dask.distributed import Client, LocalCluster, wait

    where = scheduler or "the local cluster"
    cluster = None
    client = None
    futures: list[Any] = []
    try:
        if scheduler:
            client = Client(scheduler, timeout=f"{timeout}s")
        else:
            # One frame at a time per worker process, and one OpenMP thread in it: the
            # processes are the parallelism, and N of them fill N cores. No dashboard, and
            # ports chosen by the system, so no "port in use" warning.
            cluster = LocalCluster(
                n_workers=workers,
                threads_per_worker=1,
                processes=True,
                dashboard_address=None,
                scheduler_port=0,
                silence_logs=50,
                env={"OMP_NUM_THREADS": "1"},
            )
            client = Client(cluster)
        try:
            client.wait_for_workers(1, timeout=timeout)
        except TimeoutError:
            raise ClusterError(f"no Dask worker joined {where} in {timeout:g} s") from None
        futures = client.map(export_frame, [s] * len(frames), list(frames), pure=False, retries=2)
        index = {f.key: frame for f, frame in zip(futures, frames, strict=True)}
        pending = set(futures)
        progress = disconnected = time.monotonic()
        while pending:
            # Progress, not the whole run, is timed; the connection is looked at every
            # POLL seconds, and a scheduler unreachable for as long as the timeout (at most
            # LOST_AFTER) is lost.
            try:
                finished, pending = wait(pending, timeout=min(POLL, timeout), return_when="FIRST_COMPLETED")
            except TimeoutError:
                finished = set()
            now = time.monotonic()
            if client.status == "running":
                disconnected = now
            elif now - disconnected >= min(timeout, LOST_AFTER):
                raise ClusterError(f"lost {where}; finished frames are in place, rerun with --resume")
            if finished:
                progress = now
            elif now - progress >= timeout:
                raise ClusterError(
                    f"no frame finished on {where} in {timeout:g} s (a frozen worker?); finished frames are in "
                    "place, rerun with --resume"
                )
            for future in sorted(finished, key=lambda f: index[f.key]):
                frame = index[future.key]
                try:
                    report(frame, future.result(), "")
                except WriteError:
                    raise
                except CacheError as e:
                    report(frame, None, str(e))
                except Exception as e:  # a worker lost more often than retries allow
                    report(frame, None, f"{type(e).__name__}: {e}")
    except (CacheError, KeyboardInterrupt):
        raise
    except Exception as e:  # the scheduler or the connection to it went away
        raise ClusterError(
            f"lost {where} ({type(e).__name__}); finished frames are in place, rerun with --resume"
        ) from None
    finally:
        _close_quietly(client, cluster, futures)


def _close_quietly(client: Any, cluster: Any, futures: list[Any]) -> None:
    """Cancels what is still queued and closes the client and a local cluster, whatever state
    they are in: a run that ends early (an error, an interrupt) ends in one line."""
    for step in (
        lambda: client.cancel(futures) if client is not None and futures else None,
        lambda: client.close(timeout=10) if client is not None else None,
        lambda: cluster.close(timeout=10) if cluster is not None else None,
    ):
        try:
            step()
        except BaseException:  # noqa: BLE001  (closing must not raise over what ended the run)
            pass


def run_frames(
    s: Settings,
    frames: Sequence[int],
    workers: int = 0,
    scheduler: str = "",
    progress: bool = True,
    on_error: Callable[[int, str], None] | None = None,
    timeout: float = DEFAULT_TIMEOUT,
) -> tuple[list[dict[str, Any]], dict[int, str]]:
    """Exports the frames serially, on a local Dask cluster of `workers` processes, or on the
    cluster at `scheduler`. Returns the frames' reports and the frames that failed, with why."""
    from tqdm import tqdm

    results: list[dict[str, Any]] = []
    failed: dict[int, str] = {}
    # A bar on a terminal; elsewhere (a farm's log) a line every LOG_EVERY seconds and at the end.
    terminal = sys.stderr.isatty()
    bar = tqdm(total=len(frames), unit="frame", disable=not (progress and terminal), dynamic_ncols=True)
    t0 = last = time.monotonic()

    def report(frame: int, result: dict[str, Any] | None, why: str) -> None:
        nonlocal last
        if result is not None:
            results.append(result)
        else:
            failed[frame] = why
            if on_error:
                on_error(frame, why)
        bar.update()
        now = time.monotonic()
        finished = len(results) + len(failed)
        if progress and not terminal and (now - last >= LOG_EVERY or finished == len(frames)):
            last = now
            print(
                f"{time.strftime('%Y-%m-%d %H:%M:%S')} groomcore: {finished} of {len(frames)} frames done "
                f"({len(failed)} failed) in {now - t0:.0f} s",
                file=sys.stderr,
                flush=True,
            )

    try:
        _clean_stale_stages(s)
        if workers or scheduler:
            _run_dask(s, frames, workers, scheduler, report, timeout)
        else:
            _run_serial(s, frames, report)
    finally:
        bar.close()
    return sorted(results, key=lambda r: int(r["frame"])), failed


def write_attribute_files(s: Settings, first_frame: int) -> list[Path]:
    """The attribute file of each level (topology, widths, primvars), from the first frame."""
    stage = _stage_dir(s, "attributes")
    try:
        x, _keep = _exporter(s, first_frame, stage / Path(s.out_base).name)
        for high in s.levels:
            x.writeAttributeToUSD(high)
        del x
        for high in s.levels:
            _publish(stage / attribute_file(s, high).name, attribute_file(s, high))
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
    stage = _stage_dir(s, "asset").resolve()
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
                    _publish(stage / name, out_dir / name)
            written.append(out_dir / final.name)
    finally:
        shutil.rmtree(stage, ignore_errors=True)
        _remove_partial_if_empty(s)
    return written


def assemble(s: Settings, frames: Sequence[int], up_axis: str, meters_per_unit: float) -> list[Path]:
    """The attribute files and the shot assets of a shot whose every frame is exported."""
    mixed = other_settings(s, frames)
    if mixed:
        raise CacheError(f"{len(mixed)} frames were exported with other settings: {_shown(mixed)}")
    missing = [f for f in frames if not frame_done(s, f)]
    if missing:
        raise CacheError(f"{len(missing)} frames are not exported yet: {_shown(missing)}")
    try:
        write_attribute_files(s, frames[0])
        return stitch_shot_assets(s, frames, up_axis, meters_per_unit)
    except OSError as e:
        raise WriteError(f"shot asset: {_why(e)}") from None
    except RuntimeError as e:  # usd-core's errors (pxr.Tf.ErrorException)
        raise WriteError(f"shot asset: {str(e).strip().splitlines()[-1].strip()}") from None


def _shown(frames: Sequence[int]) -> str:
    return ", ".join(str(f) for f in frames[:10]) + (" ..." if len(frames) > 10 else "")


def _remove_partial_if_empty(s: Settings) -> None:
    """The staging folder goes once nothing is staged in it (what a killed process left
    there stays: it stands under no final name, and a farm's other jobs may be using it)."""
    try:
        (Path(s.out_base).parent / PARTIAL).rmdir()
    except OSError:
        pass
