"""The `groomcore` command on a cache baked by the example host: info and check on good and
damaged caches, export to per-frame USD files and a value-clip shot asset that usd-core
reads back, farm-style runs (workers, chunks, a killed worker, an interrupted run) that all
give byte-identical files, and the Alembic tree with the body lookup explained."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path

import numpy as np
import pytest

GROOMCORE = [sys.executable, "-m", "groomcore"]
FRAMES = "1001-1006"


def run(*args: object, env: dict[str, str] | None = None) -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        [*GROOMCORE, *map(str, args)], capture_output=True, text=True, env={**os.environ, **(env or {})}
    )


@pytest.fixture(scope="module")
def cache(tmp_path_factory: pytest.TempPathFactory, root: Path) -> Path:
    """The Python example host's cache: 300 strands, feathers, a source, transforms, folds."""
    out = tmp_path_factory.mktemp("example")
    subprocess.run(
        [sys.executable, root / "examples" / "groom.py", out, "--strands", "300"], check=True, capture_output=True
    )
    return out


def frozen_at(frame: int) -> dict[str, str]:
    """The environment under which every process about to publish `frame` stops for good."""
    env = killed_at(0, Path("/nonexistent"))
    del env["GROOMCORE_TEST_KILL_AT"]
    return {**env, "GROOMCORE_TEST_FREEZE_AT": str(frame)}


def killed_at(frame: int, marker: Path) -> dict[str, str]:
    """The environment under which the first process to publish `frame` dies (see
    killer/sitecustomize.py), leaving `marker`."""
    killer = str(Path(__file__).parent / "killer")
    path = os.pathsep.join(p for p in (killer, os.environ.get("PYTHONPATH", "")) if p)
    return {"PYTHONPATH": path, "GROOMCORE_TEST_KILL_AT": f"{frame}:{marker}"}


def tree(folder: Path) -> dict[str, bytes]:
    return {p.name: p.read_bytes() for p in sorted(folder.iterdir()) if p.is_file()}


def test_info_and_check_on_a_good_cache(cache: Path) -> None:
    done = run("info", cache, "hair")
    assert done.returncode == 0, done.stderr
    assert "frames     24: 1001-1024" in done.stdout and "strands    300 with 2,400 CVs" in done.stdout
    assert "holds      feathers, sources, transforms, folds" in done.stdout
    report = json.loads(run("info", cache, "hair", "--json").stdout)
    assert report["info"]["FeatherCount"] == "2" and report["frame_count"] == 24 and report["bytes"] > 0
    done = run("check", cache, "hair")
    assert done.returncode == 0 and "24 frames checked, 0 missing or damaged" in done.stdout
    assert json.loads(run("check", cache, "hair", "--json").stdout) == {
        "cache": str(cache / "hair"),
        "checked": 24,
        "static": [],
        "frames": [],
    }
    assert report["frames"][:2] == [1001, 1002] and isinstance(report["frames"][0], int)
    assert run("--version").stdout.startswith("groomcore ")
    done = run("check", cache, "hair", "--frames", "-3--1")  # a negative range without the = trick
    assert done.returncode == 1 and "3 frames checked, 3 missing or damaged" in done.stdout
    # A reader that goes away: no traceback, the status of a tool ended by SIGPIPE.
    reader = subprocess.Popen([*GROOMCORE, "info", cache, "hair", "--json"], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE)  # fmt: skip
    assert reader.stdout is not None
    reader.stdout.close()
    assert reader.wait() == 141 and reader.stderr is not None and reader.stderr.read() == b""


def test_check_names_every_fault(cache: Path, tmp_path: Path) -> None:
    bad = tmp_path / "hair"
    shutil.copytree(cache / "hair", bad)
    curves = bad / "curves_p1005"
    curves.write_bytes(curves.read_bytes()[: curves.stat().st_size // 2])  # truncated frame
    for frame, cut in ((1002, 1), (1003, 16 * 1024)):  # cut short by what the reader pads with zeros
        curves = bad / f"curves_p{frame}"
        curves.write_bytes(curves.read_bytes()[:-cut])
    (bad / "curves_p1010").unlink()  # missing frame
    (bad / "folds_p1012").write_bytes(b"\x05\x00")  # damaged folds
    (bad / "info").write_bytes(os.urandom(300))  # garbage info
    done = run("check", tmp_path, "hair", "--frames", "1001-1024")
    lines = done.stdout.splitlines()
    assert done.returncode == 1
    assert "static: info: missing or holds no key" in lines
    assert any(line.startswith("frame 1005: ") for line in lines), lines
    assert "frame 1010: missing (no curves_p1010)" in lines
    assert "frame 1012: the folds are damaged" in lines
    assert "frame 1002: the curves file is cut short or has bytes behind its records" in lines
    assert any(line.startswith("frame 1003: ") for line in lines), lines
    assert lines[-1].endswith("24 frames checked, 5 missing or damaged, 1 problems in the static files")
    # Without --frames, a gap in the sequence is a missing frame too.
    done = run("check", tmp_path, "hair")
    assert "frame 1010: missing (no curves_p1010)" in done.stdout.splitlines()
    assert done.stdout.splitlines()[-1].endswith(
        "24 frames checked, 5 missing or damaged, 1 problems in the static files"
    )

    (tmp_path / "empty").mkdir()
    done = run("check", tmp_path, "empty")
    assert done.returncode == 1 and "follicles" in done.stdout and "info" in done.stdout
    done = run("info", tmp_path, "nothing")
    assert done.returncode == 1 and done.stderr.count("\n") == 1 and "is not a directory" in done.stderr


def test_bad_usage_is_one_line_and_status_2(cache: Path, tmp_path: Path) -> None:
    x = tmp_path / "x"  # never written: every call is refused first
    for args in (
        ["export-usd", cache, "hair", x, "--frames", FRAMES, "--workers", "2", "--scheduler", "tcp://h:1"],
        ["export-usd", cache, "hair", x, "--frames", FRAMES, "--timeout", "0"],
        ["export-usd", cache, "hair", x, "--frames", "9-1"],
        ["export-usd", cache, "hair", "x"],
        ["check", cache, "hair", "--frames", "abc"],
        ["frobnicate"],
        # values outside their range
        ["export-usd", cache, "hair", x, "--frames", "1001-1002", "--ratio", "0"],
        ["export-usd", cache, "hair", x, "--frames", "1001-1002", "--ratio", "1.5"],
        ["export-usd", cache, "hair", x, "--frames", "1001-1002", "--ratio", "nan"],
        ["export-usd", cache, "hair", x, "--frames", "1001-1002", "--meters-per-unit", "0"],
        ["export-usd", cache, "hair", x, "--frames", "1001-1002", "--workers", "-3"],
        ["assemble", cache, "hair", x, "--frames", "1001-1002", "--ratio", "-1"],
    ):
        done = run(*args)
        assert done.returncode == 2 and done.stderr.count("\n") == 1 and "Traceback" not in done.stderr, args
    assert not any(tmp_path.iterdir())


def read_usd(prim: str, reads: list[tuple[Path, float]]) -> tuple[list[object], list[dict[str, np.ndarray]]]:
    """With usd-core, in one process: each file's up axis and meters per unit, and the prim's
    points, widths and extent at each (file, time)."""
    script = f"""
import json, numpy as np
from pxr import Usd, UsdGeom
out = []
for path, t in {[(str(f), t) for f, t in reads]!r}:
    stage = Usd.Stage.Open(path)
    prim = stage.GetPrimAtPath({prim!r})
    values = {{n: np.asarray(prim.GetAttribute(n).Get(t), dtype=float).ravel().tolist()
               for n in ("points", "widths", "extent") if prim.GetAttribute(n).HasValue()}}
    out.append([[UsdGeom.GetStageUpAxis(stage), UsdGeom.GetStageMetersPerUnit(stage)], values])
print(json.dumps(out))
"""
    done = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, check=True)
    data = json.loads(done.stdout)
    return [d[0] for d in data], [{k: np.array(v) for k, v in d[1].items()} for d in data]


@pytest.mark.parametrize(("feathers", "prim"), [(False, "/hair"), (True, "/hair/contour")], ids=["curves", "feathers"])
def test_shot_asset_holds_every_frame_and_value_clips_between(
    cache: Path, tmp_path: Path, feathers: bool, prim: str
) -> None:
    base = tmp_path / "shot" / "hair"
    extra = ["--feathers"] if feathers else ["--normals"]
    done = run("export-usd", cache, "hair", base, "--frames", FRAMES, "--level", "high", "--quiet", *extra)
    assert done.returncode == 0, done.stderr
    frames = [float(f) for f in range(1001, 1007)]
    asset, attributes = Path(f"{base}.high.usda"), Path(f"{base}.high_geom.0000.usd")
    reads = [(asset, t) for t in [*frames, 1002.5]] + [(Path(f"{base}.high_geom.{int(f)}.usd"), f) for f in frames]
    meta, values = read_usd(prim, [*reads, (attributes, 0.0)])
    assert meta[0] == ["Y", 0.01]
    shot, alone, attr = dict(zip([*frames, 1002.5], values[:7], strict=True)), values[7:13], values[13]
    for f, single in zip(frames, alone, strict=True):
        for name in ("points", "extent"):
            assert np.array_equal(shot[f][name], single[name]), (f, name)
        if "widths" in attr:
            assert np.array_equal(shot[f]["widths"], attr["widths"])
    # Between two frames value clips interpolate the two clips' samples.
    assert np.allclose(shot[1002.5]["points"], (shot[1002.0]["points"] + shot[1003.0]["points"]) / 2, atol=1e-6)


def test_workers_chunks_crashes_and_resume_give_the_serial_files(cache: Path, tmp_path: Path) -> None:
    common = ["--frames", FRAMES, "--feathers", "--quiet"]
    serial = tmp_path / "serial"
    assert run("export-usd", cache, "hair", serial / "hair", *common).returncode == 0
    expected = tree(serial)
    assert len(expected) == 2 * 6 + 2 * 4  # per level: 6 frames, attributes, asset, topology, manifest

    # Fresh buffers for every frame give the same bytes as the buffers a process reuses.
    from groomcore.usdexport import LEVELS, Settings, assemble, run_frames

    fresh = Settings(str(cache), "hair", str(tmp_path / "fresh" / "hair"), LEVELS["both"], feathers=True, reuse=False)
    (tmp_path / "fresh").mkdir()
    assert run_frames(fresh, list(range(1001, 1007)), progress=False)[1] == {}
    assemble(fresh, list(range(1001, 1007)), "Y", 0.01)
    assert tree(tmp_path / "fresh") == expected

    # Two workers, one of which is killed with its frame staged but not published.
    crash = killed_at(1003, tmp_path / "crashed-once")
    done = run("export-usd", cache, "hair", tmp_path / "workers" / "hair", *common, "--workers", "2", env=crash)
    assert done.returncode == 0, done.stderr[-2000:]
    assert (tmp_path / "crashed-once").exists() and tree(tmp_path / "workers") == expected

    # Three chunks, as three farm jobs, then the assembly.
    for chunk in ("1001-1002", "1003-1004", "1005-1006"):
        assert run("export-usd", cache, "hair", tmp_path / "chunks" / "hair", *common, "--chunk", chunk).returncode == 0
    assert (
        run("assemble", cache, "hair", tmp_path / "chunks" / "hair", "--frames", FRAMES, "--feathers").returncode == 0
    )
    assert tree(tmp_path / "chunks") == expected

    # A serial run killed at frame 1004 leaves no file of it under a final name; --resume finishes it.
    crash = killed_at(1004, tmp_path / "interrupted-once")
    done = run("export-usd", cache, "hair", tmp_path / "resumed" / "hair", *common, env=crash)
    assert done.returncode == 3
    assert not any("1004" in name for name in tree(tmp_path / "resumed"))
    done = run("export-usd", cache, "hair", tmp_path / "resumed" / "hair", *common, "--resume")
    assert done.returncode == 0 and "resuming: 3 frames already exported" in done.stdout
    assert tree(tmp_path / "resumed") == expected

    # A frame with one level's file gone is not finished: --resume exports it again.
    (tmp_path / "resumed" / "hair.low_geom.1002.usd").unlink()
    done = run("export-usd", cache, "hair", tmp_path / "resumed" / "hair", *common, "--resume")
    assert done.returncode == 0 and "resuming: 5 frames already exported" in done.stdout
    assert tree(tmp_path / "resumed") == expected


@pytest.fixture
def small_disk(tmp_path: Path) -> Iterator[Path]:
    """A tmpfs of 512 KiB the test mounts (the tests run as root; skipped where they cannot)."""
    mount = tmp_path / "disk"
    mount.mkdir()
    if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=512k", "tmpfs", mount], capture_output=True).returncode:
        pytest.skip("cannot mount a tmpfs here")
    try:
        yield mount
    finally:
        subprocess.run(["umount", "-l", mount], capture_output=True)


def test_a_full_disk_publishes_no_broken_frame_and_resume_finishes_the_shot(
    cache: Path, tmp_path: Path, small_disk: Path
) -> None:
    common = ["--frames", "1001-1024", "--level", "high", "--quiet"]
    assert run("export-usd", cache, "hair", tmp_path / "serial" / "hair", *common).returncode == 0
    expected = tree(tmp_path / "serial")
    frame_bytes = len(expected["hair.high_geom.1001.usd"])
    assert 24 * frame_bytes > 512 * 1024  # the shot does not fit

    done = run("export-usd", cache, "hair", small_disk / "hair", *common)
    assert done.returncode == 1 and done.stderr.count("\n") == 1, done.stderr
    assert "No space left on device" in done.stderr and "rerun with --resume" in done.stderr
    published = tree(small_disk)
    assert published and not (small_disk / ".groomcore-partial").exists()
    assert all(published[name] == expected[name] for name in published)  # whole, or not there

    # Cut one published frame short as a killed copy would: --resume must not trust it.
    victim = sorted(published)[0]
    (small_disk / victim).write_bytes(published[victim][:100])
    subprocess.run(["mount", "-o", "remount,size=64m", small_disk], check=True)
    done = run("export-usd", cache, "hair", small_disk / "hair", *common, "--resume")
    assert done.returncode == 0, done.stderr
    assert tree(small_disk) == expected

    # Frames of other settings are not mixed into one shot.
    done = run("export-usd", cache, "hair", small_disk / "hair", *common, "--resume", "--ratio", "0.5")
    assert done.returncode == 1 and done.stderr.count("\n") == 1 and "other settings" in done.stderr


def test_alembic_archives_on_a_full_disk_end_in_one_line_and_resume(
    cache: Path, tmp_path: Path, small_disk: Path
) -> None:
    """Alembic's writer ends the process when it closes an archive after a failed write: the
    export asks the disk first, so a full disk ends in one line, with every published archive
    whole and no half-written one; the shot's single archive is not left behind."""
    per_frame = ["--frames", "1001-1024", "--per-frame", "--quiet"]
    assert run("export-abc", cache, "hair", tmp_path / "serial" / "hair", *per_frame).returncode == 0
    expected = tree(tmp_path / "serial")
    assert sum(len(b) for b in expected.values()) > 512 * 1024  # the shot does not fit
    for extra in ([], ["--workers", "2"]):
        for p in small_disk.iterdir():
            shutil.rmtree(p) if p.is_dir() else p.unlink()
        done = run("export-abc", cache, "hair", small_disk / "hair", *per_frame, *extra)
        assert done.returncode == 1 and done.stderr.count("\n") == 1, done.stderr
        assert "No space left on device" in done.stderr and "rerun with --resume" in done.stderr
        published = tree(small_disk)
        assert published and all(published[name] == expected[name] for name in published)
        assert not (small_disk / ".groomcore-partial").exists()
    done = run("export-abc", cache, "hair", small_disk / "shot", "--frames", "1001-1024")
    assert done.returncode == 1 and done.stderr.count("\n") == 1 and "No space left on device" in done.stderr
    assert not any(p.name.startswith(("shot", ".shot")) for p in small_disk.iterdir())
    subprocess.run(["mount", "-o", "remount,size=64m", small_disk], check=True)
    done = run("export-abc", cache, "hair", small_disk / "hair", *per_frame, "--resume")
    assert done.returncode == 0 and tree(small_disk) == expected, done.stderr


def test_export_faults_are_reported(cache: Path, tmp_path: Path) -> None:
    damaged = tmp_path / "damaged"
    shutil.copytree(cache, damaged, ignore=shutil.ignore_patterns("usd", "python"))
    (damaged / "hair" / "curves_p1003").write_bytes(b"\x01\x02")
    done = run("export-usd", damaged, "hair", tmp_path / "out" / "hair", "--frames", FRAMES, "--quiet")
    assert done.returncode == 1 and "frame 1003:" in done.stderr and "1 frames failed: 1003" in done.stderr
    exported = tree(tmp_path / "out")
    assert len([n for n in exported if "_geom.10" in n]) == 2 * 5 and not any(n.endswith(".usda") for n in exported)

    blocker = tmp_path / "a-file"
    blocker.write_text("")
    done = run("export-usd", cache, "hair", blocker / "hair", "--frames", FRAMES)
    assert done.returncode == 1 and done.stderr.startswith("groomcore: error: cannot write to")


def test_abc_tree_and_the_body_lookup_explained(tmp_path: Path) -> None:
    script = f"""
import imath
from alembic3d import Abc, AbcGeom
archive = Abc.OArchive({str(tmp_path / "blender.abc")!r})
xf = AbcGeom.OXform(archive.getTop(), "bodyShape")
for k in range(3):
    s = AbcGeom.XformSample()
    s.setTranslation(imath.V3d(k, 0, 0))
    xf.getSchema().set(s)
mesh = AbcGeom.OPolyMesh(xf, "Suzanne")
p = imath.V3fArray(3)
for i, q in enumerate([(0, 0, 0), (1, 0, 0), (0, 1, 0)]):
    p[i] = imath.V3f(*q)
idx, cnt = imath.IntArray(3), imath.IntArray(1)
idx[0], idx[1], idx[2], cnt[0] = 0, 2, 1, 3
mesh.getSchema().set(AbcGeom.OPolyMeshSchemaSample(p, idx, cnt))
faces = imath.IntArray(1)
faces[0] = 0
for name in ("skin", "lips"):  # face sets: below the mesh, not shapes of their own
    mesh.getSchema().createFaceSet(name).getSchema().set(AbcGeom.OFaceSetSchemaSample(faces))
"""
    subprocess.run([sys.executable, "-c", script], check=True)
    done = run("abc", tmp_path / "blender.abc", "--body", "bodyShape")
    assert done.returncode == 1
    assert "bodyShape" in done.stdout and "AbcGeom_Xform_v3" in done.stdout and "3 samples" in done.stdout
    assert "returns    nothing" in done.stdout and "/bodyShape/Suzanne" in done.stdout
    assert "look the body up as 'Suzanne'" in done.stdout
    assert "4 objects, 1 shape nodes" in done.stdout
    done = run("abc", tmp_path / "blender.abc", "--body", "Suzanne")
    assert done.returncode == 0 and "returns    /bodyShape/Suzanne" in done.stdout
    done = run("abc", tmp_path / "missing.abc")
    assert done.returncode == 1 and done.stderr.startswith("groomcore: error:")


def test_lost_and_frozen_machines_end_in_one_line(cache: Path, tmp_path: Path) -> None:
    """A scheduler without workers, a frozen worker, a lost scheduler and SIGTERM each end the
    run in one line, with finished frames in place; --resume then gives the serial files."""
    import signal
    import time

    from dask.distributed import LocalCluster

    common = ["--frames", "1001-1012", "--level", "high", "--quiet"]
    assert run("export-usd", cache, "hair", tmp_path / "serial" / "hair", *common).returncode == 0
    expected = tree(tmp_path / "serial")

    with LocalCluster(n_workers=0, dashboard_address=None) as empty:
        done = run("export-usd", cache, "hair", tmp_path / "a" / "hair", *common, "--scheduler",
                   empty.scheduler_address, "--timeout", "2")  # fmt: skip
    assert done.returncode == 1 and done.stderr.count("\n") == 1 and "no Dask worker joined" in done.stderr

    out = tmp_path / "b" / "hair"
    done = run("export-usd", cache, "hair", out, *common, "--workers", "2", "--timeout", "5", env=frozen_at(1004))
    assert done.returncode == 1 and done.stderr.count("\n") == 1 and "no frame finished" in done.stderr, done.stderr

    # A scheduler killed while a worker is frozen on a frame.
    dask = str(Path(sys.executable).parent / "dask")
    scheduler = subprocess.Popen([dask, "scheduler", "--port", "0", "--no-dashboard", "--scheduler-file",
                                  tmp_path / "scheduler.json"], stderr=subprocess.DEVNULL)  # fmt: skip
    try:
        while not (tmp_path / "scheduler.json").exists():
            time.sleep(0.1)
        address = json.loads((tmp_path / "scheduler.json").read_text())["address"]
        worker = subprocess.Popen([dask, "worker", address, "--nthreads", "1", "--no-dashboard"],
                                  stderr=subprocess.DEVNULL, env={**os.environ, **frozen_at(1004)})  # fmt: skip
        export = subprocess.Popen([*GROOMCORE, "export-usd", cache, "hair", out, *common, "--scheduler", address,
                                   "--timeout", "5"],
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)  # fmt: skip
        while not (out.parent / ".groomcore-frames" / "hair.1003.json").exists():
            time.sleep(0.1)
        time.sleep(1)
        scheduler.kill()
        _, err = export.communicate(timeout=120)
        assert export.returncode == 1 and err.count("\n") == 1 and "lost" in err, err
    finally:
        for p in (scheduler, worker):
            p.kill()
            p.wait()

    # SIGTERM, as a farm stops a job, on a local cluster: one line, status 143.
    shutil.rmtree(out.parent / ".groomcore-frames")  # so that the frames below are this run's
    export = subprocess.Popen([*GROOMCORE, "export-usd", cache, "hair", out, *common, "--workers", "2"],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              env={**os.environ, **frozen_at(1010)})  # fmt: skip
    while not (out.parent / ".groomcore-frames" / "hair.1009.json").exists():
        time.sleep(0.1)
    export.send_signal(signal.SIGTERM)
    _, err = export.communicate(timeout=120)
    assert export.returncode == 143 and err.count("\n") == 1 and "terminated" in err, err

    done = run("export-usd", cache, "hair", out, *common, "--resume")
    assert done.returncode == 0 and tree(out.parent) == expected
    assert not (out.parent / ".groomcore-partial").exists()  # what the frozen workers staged is gone


def test_an_existing_cluster_gives_the_serial_files(cache: Path, tmp_path: Path) -> None:
    from dask.distributed import LocalCluster

    common = ["--frames", "1001-1003", "--level", "high", "--quiet"]
    assert run("export-usd", cache, "hair", tmp_path / "serial" / "hair", *common).returncode == 0
    with LocalCluster(n_workers=1, threads_per_worker=1, processes=True, dashboard_address=None) as cluster:
        done = run(
            "export-usd",
            cache,
            "hair",
            tmp_path / "cluster" / "hair",
            *common,
            "--scheduler",
            cluster.scheduler_address,
        )
    assert done.returncode == 0, done.stderr[-2000:]
    assert tree(tmp_path / "cluster") == tree(tmp_path / "serial")


def test_a_node_name_that_is_no_usd_identifier_exports_under_the_mapped_prim(cache: Path, tmp_path: Path) -> None:
    shutil.copytree(cache / "hair", tmp_path / "fur.001")  # a DCC's name for a duplicate
    base = tmp_path / "out" / "fur"
    done = run("export-usd", tmp_path, "fur.001", base, "--frames", "1001-1002", "--level", "high", "--quiet")
    assert done.returncode == 0, done.stderr[-2000:]
    _, values = read_usd("/fur_001", [(Path(f"{base}.high.usda"), 1002.0)])
    assert len(values[0]["points"]) == 3 * (300 * 8 + 2 * 300)  # every CV, the ends doubled


def test_sub_frame_files_are_found_under_the_tag_the_library_writes(tmp_path: Path) -> None:
    import groomcore as gc
    from groomcore.cachefiles import CacheDir

    f, c = gc.ZFollicles(), gc.ZCurves()
    c.push(np.array([[0, 0, 0], [0, 1, 0]], np.float32))
    f.tgl = np.zeros(1, np.int32)
    cache = gc.ZCacheData2()
    cache.nodeName, cache.follicles, cache.curves, cache.boundingBox = "hair", f, c, c.boundingBox(False, False)
    cache.folds = np.array([0.5], np.float32)
    assert cache.bakeStaticData(str(tmp_path))
    for frame in (1001.125, -2.5, 0.0):  # motion-blur sub-frames, negative frames, frame 0
        assert cache.bakePerFrameData(str(tmp_path), frame)
        folds = CacheDir(tmp_path, "hair").folds(frame)
        assert folds is not None and folds.tolist() == [0.5], frame
    assert sorted(p.name for p in (tmp_path / "hair").glob("folds_*")) == ["folds_m-2.5", "folds_p0", "folds_p1001.125"]
    (tmp_path / "hair" / "curves_p01").touch()  # no bake writes this name
    assert CacheDir(tmp_path, "hair").frames() == [-2.5, 0.0, 1001.125]


def test_a_cache_read_back_whole_from_python_bakes_again_byte_for_byte(cache: Path, tmp_path: Path) -> None:
    """Feathers, sources, transforms, folds and bounds come back through the library's own
    readers, so a copy made from Python loses nothing; the info record and `groomcore info`
    give the library's reading of a namespaced node name."""
    import groomcore as gc

    src = str(cache / "hair")
    record = gc.readInfoRecord(src)
    assert record is not None
    statics = gc.ZFollicles()
    statics.read(cache / "hair" / gc.CACHE_FOLLICLES)
    copy = gc.ZCacheData2()
    copy.nodeName, copy.nodeType, copy.meshNodeName = record["NodeName"], record["NodeType"], record["MeshNodeName"]
    copy.bindingScheme, copy.textureType = int(record["BindingScheme"]), int(record["TextureType"])
    copy.feathers, copy.sources = gc.readFeathersData(src), gc.readSourcesData(src)
    copy.follicles, copy.curves = statics, gc.ZCurves()
    assert copy.bakeStaticData(str(tmp_path))
    frames = gc.readCacheFrames(src)
    assert frames is not None and len(frames) == 24
    for frame in frames:
        curves, follicles = gc.ZCurves(), gc.ZFollicles()
        assert gc.readStrandsData(src, int(frame), curves, follicles)
        transforms = gc.readFeatherTransformsData(src, frame)
        assert transforms is not None
        copy.curves, copy.follicles, copy.boundingBox = curves, follicles, gc.readBoundingBoxData(src, frame)
        copy.scales, copy.rotations = transforms
        copy.folds = gc.readFoldsData(src, frame)
        assert copy.bakePerFrameData(str(tmp_path), frame)
    # The exporter names its files, the kind and suffix included, and writes what it names.
    x = gc.ZCurvesToUSD()
    x.name, x.basePath, x.kind, x.suffix, x.perFrameFiles = "hair", str(tmp_path / "fur"), "fur", ".usda", True
    x.follicles, x.curves, x.boundingBox, x.exportRatio = follicles, curves, copy.boundingBox, 1.0
    x.writeGeometryToUSD(1001.125, True, False)
    assert Path(x.geometryFile(1001.125, True, False)) == tmp_path / "fur.high_fur.1001.12.usda"
    assert Path(x.geometryFile(1001.125, True, False)).is_file()

    original, copied = tree(cache / "hair"), tree(tmp_path / "hair")
    assert sorted(original) == sorted(copied)
    assert [n for n in original if n != gc.CACHE_INFO and original[n] != copied[n]] == []
    assert gc.readInfoRecord(str(tmp_path / "hair"))["StrandsCount"] == record["StrandsCount"]

    info = (tmp_path / "hair" / gc.CACHE_INFO).read_text().replace('"NodeName":"hair"', '"NodeName":"ns:hair"')
    (tmp_path / "hair" / gc.CACHE_INFO).write_text(info)
    read = gc.RuvoCacheInfo()
    assert gc.readInfoData(str(tmp_path / "hair"), read) and read.nodeName == "ns"
    assert "  NodeName           ns\n" in run("info", tmp_path, "hair").stdout


IMPORT_SCENE = """
import sys
import imath
from alembic3d import Abc, AbcCoreAbstract, AbcGeom
archive = Abc.OArchive(sys.argv[1])
ts = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / 24, 1.0 / 24))
def v3f(points):
    a = imath.V3fArray(len(points))
    for i, p in enumerate(points):
        a[i] = imath.V3f(*p)
    return a
def ints(values):
    a = imath.IntArray(len(values))
    for i, v in enumerate(values):
        a[i] = v
    return a
# A ground plane and guides standing on it, both under a rig that moves up a unit a frame;
# "stray" guides hover 5 units above it.
rig = AbcGeom.OXform(archive.getTop(), "rig", ts)
for k in range(3):
    s = AbcGeom.XformSample()
    s.setTranslation(imath.V3d(0, k, 0))
    rig.getSchema().set(s)
ground = AbcGeom.OPolyMesh(rig, "ground", ts)
ground.getSchema().set(AbcGeom.OPolyMeshSchemaSample(
    v3f([(-1, 0, -1), (2, 0, -1), (2, 0, 2), (-1, 0, 2)]), ints([0, 1, 2, 3]), ints([4])))
for name, lift in (("guides", 0.0), ("stray", 5.0)):
    c = AbcGeom.OCurves(rig, name, ts)
    for k in range(3):
        pts = []
        for i in range(3):
            strand = [(0.5 * i, lift + 0.1 * j, 0.25 * k * (j / 3) ** 2) for j in range(4)]
            pts += [strand[0]] + strand + [strand[-1]]
        w = imath.FloatArray(len(pts))
        for j in range(len(pts)):
            w[j] = 0.01
        c.getSchema().set(AbcGeom.OCurvesSchemaSample(
            v3f(pts), ints([6, 6, 6]), AbcGeom.CurveType.kCubic, AbcGeom.CurvePeriodicity.kNonPeriodic,
            AbcGeom.OFloatGeomParamSample(w, AbcGeom.GeometryScope.kVertexScope), AbcGeom.OV2fGeomParamSample(),
            AbcGeom.ON3fGeomParamSample(), AbcGeom.BasisType.kCatmullromBasis))
"""


def test_import_bakes_guides_on_an_alembic_body_and_says_why_it_cannot(tmp_path: Path) -> None:
    scene = tmp_path / "scene.abc"
    subprocess.run([sys.executable, "-c", IMPORT_SCENE, scene], check=True)
    common = [scene, "/rig/ground", tmp_path / "cache", "guides", "--frames", "1-3"]
    done = run("import", scene, "/rig/guides", *common)
    assert done.returncode == 0, done.stderr
    assert done.stdout.startswith("imported 3 curves over 3 frames into ")
    info = json.loads(run("info", tmp_path / "cache", "guides", "--json").stdout)
    assert info["frames"] == [1, 2, 3] and info["strands"] == 3
    # The strands move up with the rig: frame 3's roots lie two units above frame 1's.
    from groomcore.cachefiles import CacheDir

    cache = CacheDir(tmp_path / "cache", "guides")
    first, last = cache.read_frame(1)[0], cache.read_frame(3)[0]
    assert np.allclose(last.cvs[last.start] - first.cvs[first.start], [0, 2, 0])
    assert run("check", tmp_path / "cache", "guides").returncode == 0

    # The same guides from USD (a rig moving up a unit a frame, as the Alembic one).
    usd_guides = f"""
from pxr import Gf, Usd, UsdGeom, Vt
stage = Usd.Stage.CreateNew({str(tmp_path / "guides.usda")!r})
rig = UsdGeom.Xform.Define(stage, "/rig")
op = rig.AddTranslateOp()
for k in range(3):
    op.Set(Gf.Vec3d(0, k, 0), k + 1.0)
c = UsdGeom.BasisCurves.Define(stage, "/rig/guides")
c.CreateCurveVertexCountsAttr(Vt.IntArray([4, 4]))
c.GetPointsAttr().Set(Vt.Vec3fArray([Gf.Vec3f(0.5 * i, 0.1 * j, 0.25) for i in range(2) for j in range(4)]))
ground = UsdGeom.Mesh.Define(stage, "/rig/ground")
corners = [Gf.Vec3f(-1, 0, -1), Gf.Vec3f(2, 0, -1), Gf.Vec3f(2, 0, 2), Gf.Vec3f(-1, 0, 2)]
ground.GetPointsAttr().Set(Vt.Vec3fArray(corners))
ground.GetFaceVertexCountsAttr().Set(Vt.IntArray([4]))
ground.GetFaceVertexIndicesAttr().Set(Vt.IntArray([0, 3, 2, 1]))
stage.GetRootLayer().Save()
"""
    subprocess.run([sys.executable, "-c", usd_guides], check=True)
    usd = tmp_path / "guides.usda"
    done = run("import", usd, "/rig/guides", scene, "/rig/ground", tmp_path / "c3", "g", "--frames", "1-3")
    assert done.returncode == 0 and done.stdout.startswith("imported 2 curves over 3 frames"), done.stderr
    # Guides and body both from USD: the roots follow the body's rig as they do on Alembic.
    done = run("import", usd, "/rig/guides", usd, "/rig/ground", tmp_path / "c4", "g", "--frames", "1-3")
    assert done.returncode == 0 and done.stdout.startswith("imported 2 curves over 3 frames"), done.stderr
    both = CacheDir(tmp_path / "c4", "g")
    first, last = both.read_frame(1)[0], both.read_frame(3)[0]
    assert np.allclose(last.cvs[last.start] - first.cvs[first.start], [0, 2, 0])
    assert run("check", tmp_path / "c4", "g").returncode == 0
    failed = run("import", usd, "/rig/guides", usd, "/rig/guides", tmp_path / "c5", "g", "--frames", "1-3")
    assert failed.returncode == 1 and failed.stderr.strip().endswith("has no Mesh prim /rig/guides"), failed.stderr
    failed = run("import", usd, "/rig/guides", usd, "/rig/ground", tmp_path / "c5", "g", "--frames", "0-3")
    assert failed.returncode == 1 and "frame 0: the curves /rig/guides" in failed.stderr, failed.stderr
    assert "hold time codes 1-3 only (1 of the 4 frames lie outside)" in failed.stderr

    for args, message in (
        (["/rig/stray", *common], "frame 1: 3 of 3 curve roots lie farther than"),
        (["/rig/ground", scene, "/rig/ground", tmp_path / "c2", "g", "--frames", "1-3"], "is not curves"),
        (["/rig/guides", scene, "/rig/guides", tmp_path / "c2", "g", "--frames", "1-3"], "is not a polygon mesh"),
        (["/rig/nothing", *common], "has no object /rig/nothing"),
        (
            ["/rig/guides", scene, "/rig/ground", tmp_path / "c2", "g", "--frames", "1-5"],
            f"frame 4: the curves /rig/guides in {scene} hold frames (at --fps 24) 1-3 only (2 of the 5 frames",
        ),
        (
            ["/rig/guides", scene, "/rig/ground", tmp_path / "c2", "g", "--frames", "1-3", "--fps", "30"],
            "frame 1: the curves /rig/guides",
        ),
    ):
        failed = run("import", scene, *args)
        assert failed.returncode == 1 and failed.stderr.count("\n") == 1, failed.stderr
        assert message in failed.stderr, failed.stderr


def test_export_abc_writes_the_baked_curves_every_dcc_reads(cache: Path, tmp_path: Path) -> None:
    """Alembic curves out, read back by the real library and by groomcore's reader: each
    curve's inner points are the baked CVs bit for bit, the widths the USD export's, the ids
    the strands' uids; per-frame archives are the same bytes serially and on Dask."""
    from alembic3d import Abc, AbcGeom
    from pxr import Usd

    import groomcore as gc
    from groomcore.cachefiles import CacheDir

    assert run("export-abc", cache, "hair", tmp_path / "shot" / "hair", "--frames", FRAMES).returncode == 0
    assert (
        run(
            "export-usd", cache, "hair", tmp_path / "usd" / "hair", "--frames", FRAMES, "--level", "high", "--quiet"
        ).returncode
        == 0
    )
    usd = Usd.Stage.Open(str(tmp_path / "usd" / "hair.high_geom.0000.usd"))
    usd_widths = np.array(usd.GetDefaultPrim().GetAttribute("widths").Get(), np.float32)
    archive = Abc.IArchive(str(tmp_path / "shot" / "hair.abc"))
    obj = archive.getTop().getChild("hair")
    schema = AbcGeom.ICurves(obj, Abc.WrapExistingFlag.kWrapExisting).getSchema()
    first, last = (int(f) for f in FRAMES.split("-"))
    frames = list(range(first, last + 1))
    assert schema.getNumSamples() == len(frames)
    ours = gc.ZAlembicArchive()
    assert ours.open(str(tmp_path / "shot" / "hair.abc"))
    top_child = ours.topObject().getChild(0)
    assert top_child is not None and top_child.isCurves()
    for k, frame in enumerate(frames):
        at = Abc.ISampleSelector(requestedIndex=k)
        v = schema.getValue(at)
        points = np.array(v.getPositions(), np.float32).reshape(-1, 3)
        counts = np.array(v.getCurvesNumVertices())
        curves, follicles = CacheDir(cache, "hair").read_frame(frame)
        starts = np.concatenate([[0], np.cumsum(counts)[:-1]])
        inner = np.concatenate([points[s + 1 : s + n - 1] for s, n in zip(starts, counts, strict=True)])
        assert inner.tobytes() == np.asarray(curves.cvs).tobytes(), frame
        assert (
            np.array(schema.getWidthsParam().getExpandedValue(at).getVals(), np.float32).tobytes()
            == usd_widths.tobytes()
        )
        ids = AbcGeom.IInt32GeomParam(schema.getArbGeomParams(), "id").getExpandedValue(at).getVals()
        assert list(ids) == np.asarray(follicles.uid).tolist()
        read = top_child.getCurvesData(k)
        assert read is not None and np.asarray(read.points).tobytes() == points.tobytes()
        assert (read.type, read.basis) == (gc.ZAlembicCurves.kCubic, gc.ZAlembicCurves.kCatmullRom)

    serial = run("export-abc", cache, "hair", tmp_path / "serial" / "hair", "--frames", FRAMES, "--per-frame")
    farm = run(
        "export-abc",
        cache,
        "hair",
        tmp_path / "farm" / "hair",
        "--frames",
        FRAMES,
        "--per-frame",
        "--workers",
        "2",
        "--quiet",
    )
    assert serial.returncode == 0 and farm.returncode == 0, farm.stderr
    expected = tree(tmp_path / "serial")
    assert tree(tmp_path / "farm") == expected and len(expected) == len(frames)
    for bad_args in (["--workers", "2"], ["--resume"]):
        bad = run("export-abc", cache, "hair", tmp_path / "x", "--frames", FRAMES, *bad_args)
        assert bad.returncode == 2 and "add --per-frame" in bad.stderr

    # The farm export-usd runs on: a worker killed with its archive staged, and a serial run
    # killed at a frame, which leaves no archive of it; --resume finishes the shot.
    per_frame = ["--frames", FRAMES, "--per-frame", "--quiet"]
    crash = killed_at(frames[2], tmp_path / "crashed-once")
    done = run("export-abc", cache, "hair", tmp_path / "k" / "hair", *per_frame, "--workers", "2", env=crash)
    assert done.returncode == 0 and (tmp_path / "crashed-once").exists(), done.stderr[-2000:]
    assert tree(tmp_path / "k") == expected
    crash = killed_at(frames[3], tmp_path / "interrupted-once")
    assert run("export-abc", cache, "hair", tmp_path / "r" / "hair", *per_frame, env=crash).returncode == 3
    assert len(tree(tmp_path / "r")) == 3 and not any(str(frames[3]) in name for name in tree(tmp_path / "r"))
    done = run("export-abc", cache, "hair", tmp_path / "r" / "hair", *per_frame, "--resume")
    assert done.returncode == 0 and "resuming: 3 frames already exported" in done.stdout, done.stderr
    assert tree(tmp_path / "r") == expected


def test_guides_in_a_modifier_a_bake_and_both_exports_round_trip(tmp_path: Path) -> None:
    """Curves and a body from Alembic, a groom, a modifier, a bake, export-usd and
    export-abc, read back by usd-core and alembic3d: each curve's inner points are the
    modified strands bit for bit, and both files carry the same widths."""
    from alembic3d import Abc, AbcGeom
    from pxr import Usd

    import groomcore as gc
    from groomcore.importer import find_object

    scene = tmp_path / "scene.abc"
    subprocess.run([sys.executable, "-c", IMPORT_SCENE, scene], check=True)
    archive = gc.ZAlembicArchive()
    assert archive.open(str(scene))
    guides_obj, ground = find_object(archive, "/rig/guides"), find_object(archive, "/rig/ground")
    assert guides_obj is not None and ground is not None
    guides = guides_obj.getCurvesData(0)
    body = gc.ZAlembicBody.read(ground, 0)
    frames = gc.ZBodyFrames()
    assert guides is not None and frames.build(body)
    follicles, strands = gc.ZFollicles(), gc.ZCurves()
    groom = gc.ZGroomFromCurves()
    assert groom.build(guides, body, frames.compute(body), follicles, strands), groom.message
    scale = gc.ZScaleModifier()
    scale.scale, scale.seed, scale.rand, scale.freq, scale.expr, scale.maskExpr = 1.5, 1, 0, 1, "scale", ""
    scale.apply(follicles, strands, gc.ZCurves(strands))

    cache = gc.ZCacheData()
    cache.nodeName, cache.follicles, cache.curves = "hair", follicles, strands
    cache.boundingBox = strands.boundingBox(False, True)
    (tmp_path / "cache").mkdir()
    assert cache.bakeStaticData(str(tmp_path / "cache")) and cache.bakePerFrameData(str(tmp_path / "cache"), 1.0)
    out = ["--frames", "1-1"]
    assert (
        run("export-usd", tmp_path / "cache", "hair", tmp_path / "usd" / "hair", *out, "--level", "high").returncode
        == 0
    )
    assert run("export-abc", tmp_path / "cache", "hair", tmp_path / "abc" / "hair", *out).returncode == 0

    stages = [Usd.Stage.Open(str(tmp_path / "usd" / f"hair.high_geom.{k}.usd")) for k in ("0001", "0000")]
    usd_points = np.array(stages[0].GetDefaultPrim().GetAttribute("points").Get(1.0), np.float32)
    usd_widths = np.array(stages[1].GetDefaultPrim().GetAttribute("widths").Get(), np.float32)
    curves = AbcGeom.ICurves(
        Abc.IArchive(str(tmp_path / "abc" / "hair.abc")).getTop().getChild("hair"), Abc.WrapExistingFlag.kWrapExisting
    ).getSchema()
    at = Abc.ISampleSelector(requestedIndex=0)
    abc_points = np.array(curves.getValue(at).getPositions(), np.float32).reshape(-1, 3)
    abc_widths = np.array(curves.getWidthsParam().getExpandedValue(at).getVals(), np.float32)
    counts = np.asarray(strands.numCVs) + 2
    starts = np.concatenate([[0], np.cumsum(counts)[:-1]])
    for points in (usd_points, abc_points):
        inner = np.concatenate([points[s + 1 : s + n - 1] for s, n in zip(starts, counts, strict=True)])
        assert inner.tobytes() == np.asarray(strands.cvs).tobytes()
    assert usd_widths.tobytes() == abc_widths.tobytes()
    # The modifier did move the strands: 1.5 times as long as the guides.
    assert np.isclose(float(np.asarray(strands.cvs)[3][1]), 0.45, atol=1e-5)
