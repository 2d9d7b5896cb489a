"""Frames on a farm: the machinery every per-frame export shares (USD and Alembic). Each
frame is a task that writes its files into a staging folder of its own and renames them
into place when complete, so no half-written file ever stands under a final name; a ledger
written after them records their sizes and the settings they were made with, so that
--resume and the assembly trust only whole frames of the same shot. Frames run in this
process or on Dask workers (a local cluster or an existing one); a lost worker's frame is
retried, and a cluster that goes away, has no worker or stops making progress ends the run
in one line with the finished frames in place.
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
from pathlib import Path
from typing import Any, Protocol

from .cachefiles import CacheError

PARTIAL = ".groomcore-partial"


class FrameJob(Protocol):
    """What a per-frame export tells the farm. It is sent to the workers: it must pickle."""

    @property
    def out_base(self) -> str:
        """OUT_BASE: the frames' files lie beside it."""
        ...

    @property
    def kind(self) -> str:
        """Which export ("usd", "abc"): exports of one OUT_BASE in two formats keep two ledgers."""
        ...

    def recorded(self) -> dict[str, Any]:
        """Every setting that shapes the frames' files, as the ledger records it."""
        ...

    def frame_files(self, frame: int) -> list[Path]:
        """The files of one frame, under their final names."""
        ...

    def write_frame(self, stage: Path, frame: int) -> None:
        """Writes the frame's files into `stage`, each under its final file name."""
        ...


class WriteError(CacheError):
    """A file the output could not take whole (a full disk, a quota, an I/O error): the run
    stops, since every later frame would fail the same way."""


# A frame's ledger: written after its files are published, it records their sizes and the
# settings they were exported with. Only a frame whose ledger matches its files is trusted
# by --resume and by the assembly.
LEDGERS = ".groomcore-frames"


def _ledger(s: FrameJob, frame: int) -> Path:
    base = Path(s.out_base)
    kind = "" if s.kind == "usd" else f".{s.kind}"  # USD's ledgers keep the names they always had
    return base.parent / LEDGERS / f"{base.name}{kind}.{frame}.json"


def _read_ledger(s: FrameJob, frame: int) -> dict[str, Any] | None:
    try:
        record = json.loads(_ledger(s, frame).read_text())
    except (OSError, ValueError):
        return None
    return record if isinstance(record, dict) else None


def _write_ledger(s: FrameJob, frame: int) -> None:
    files = {f.name: f.stat().st_size for f in s.frame_files(frame)}
    path = _ledger(s, frame)
    path.parent.mkdir(parents=True, exist_ok=True)
    staged = path.with_name(f".{path.name}.{os.getpid()}")
    try:
        staged.write_text(json.dumps({"settings": s.recorded(), "files": files}))
        os.replace(staged, path)
    except OSError as e:
        staged.unlink(missing_ok=True)
        raise WriteError(f"frame {frame}: cannot record it ({e.strerror or e})") from None


def frame_done(s: FrameJob, frame: int) -> bool:
    """The frame's files are all there, whole, exported with these settings."""
    record = _read_ledger(s, frame)
    if record is None or record.get("settings") != s.recorded():
        return False
    files = record.get("files")
    for f in s.frame_files(frame):
        if not isinstance(files, dict) or not f.is_file() or files.get(f.name) != f.stat().st_size:
            return False
    return True


def other_settings(s: FrameJob, frames: Sequence[int]) -> list[int]:
    """Frames already exported into OUT_BASE with settings other than these."""
    out = []
    for frame in frames:
        record = _read_ledger(s, frame)
        if record is not None and record.get("settings") != s.recorded():
            out.append(frame)
    return out


def publish(staged: Path, final: Path) -> None:
    """Moves a complete file under its final name (one rename: never half there)."""
    final.parent.mkdir(parents=True, exist_ok=True)
    os.replace(staged, final)


def stage_dir(s: FrameJob, what: str) -> Path:
    d = Path(s.out_base).parent / PARTIAL / f"{what}.{socket.gethostname()}.{os.getpid()}.{time.monotonic_ns()}"
    d.mkdir(parents=True, exist_ok=False)
    return d


def clean_stale_stages(s: FrameJob) -> None:
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
    remove_partial_if_empty(s)


def os_reason(e: OSError) -> str:
    """What went wrong, without the staging folder's path: "no space left on device"."""
    text = str(e)
    if text.endswith(")") and " (" in text:
        text = text[text.rindex(" (") + 2 : -1]
    return e.strerror or text


def export_frame(s: FrameJob, frame: int) -> dict[str, Any]:
    """Exports one frame's files; returns what it cost: wall, user and system time, page
    faults, bytes read and written, and the process's peak memory."""
    t0 = time.perf_counter()
    before, io_before = resource.getrusage(resource.RUSAGE_SELF), _io()
    stage = stage_dir(s, f"frame{frame}")
    try:
        s.write_frame(stage, frame)
        _ledger(s, frame).unlink(missing_ok=True)  # not whole until every file is in place
        for final in s.frame_files(frame):
            publish(stage / final.name, final)
        _write_ledger(s, frame)
    except OSError as e:
        where = Path(s.out_base).parent
        raise WriteError(
            f"frame {frame}: cannot write to {where}: {os_reason(e)}; the frames before it are whole, "
            "rerun with --resume once there is room"
        ) from None
    finally:
        shutil.rmtree(stage, ignore_errors=True)
        remove_partial_if_empty(s)
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


def _run_serial(s: FrameJob, frames: Sequence[int], report: Report) -> None:
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


def _run_dask(s: FrameJob, frames: Sequence[int], workers: int, scheduler: str, report: Report, timeout: float) -> None:
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
    s: FrameJob,
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
        clean_stale_stages(s)
        if workers or scheduler:
            _run_dask(s, frames, workers, scheduler, report, timeout)
        else:
            _run_serial(s, frames, report)
    finally:
        bar.close()
    return sorted(results, key=lambda r: int(r["frame"])), failed


def shown(frames: Sequence[int]) -> str:
    return ", ".join(str(f) for f in frames[:10]) + (" ..." if len(frames) > 10 else "")


def remove_partial_if_empty(s: FrameJob) -> None:
    """The staging folder goes once nothing is staged in it (what a killed process left
    there stays: it stands under no final name, and a farm's other jobs may be using it)."""
    try:
        (Path(s.out_base).parent / PARTIAL).rmdir()
    except OSError:
        pass
