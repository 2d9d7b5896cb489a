"""Bad input at the Python boundary raises a clear TypeError, ValueError, IndexError or
OSError, never a crash; and two grooms on two threads give what one thread gives."""

from __future__ import annotations

import subprocess
import sys
import threading
from pathlib import Path

import numpy as np
import pytest

import groomcore as gc


@pytest.mark.parametrize(
    ("value", "error", "message"),
    [
        (np.zeros((3, 3), np.int32), TypeError, r"expected a numpy array \(n, 3\) float32, got \(3, 3\) int32"),
        (np.zeros((3, 2), np.float64), ValueError, r"expected a numpy array \(n, 3\) float32, got \(3, 2\) float64"),
        (np.zeros(3, np.float32), ValueError, r"got \(3,\) float32"),
        (None, TypeError, r"expected a numpy array \(n, 3\) float32, got None"),
        ([[0.0, 1.0, 2.0]], TypeError, r"got list"),
    ],
)
def test_array_assignment_says_what_it_expected_and_what_it_got(
    value: object, error: type[Exception], message: str
) -> None:
    with pytest.raises(error, match=message):
        gc.ZCurves().cvs = value  # type: ignore[assignment]


def test_any_array_of_a_kind_that_converts_by_value_is_taken() -> None:
    # What numpy and usd-core hand out: read-only, strided, Fortran-order, byte-swapped and
    # float64 arrays, and buffers that are not numpy arrays at all.
    base = np.arange(24, dtype=np.float32).reshape(8, 3)
    read_only = base.copy()
    read_only.flags.writeable = False
    every_other = np.zeros((16, 3), np.float32)
    every_other[::2] = base
    for given in (
        read_only,
        every_other[::2],
        np.asfortranarray(base),
        base.astype(">f4"),
        base.astype(np.float64),
        memoryview(base.copy()),
    ):
        c = gc.ZCurves()
        c.cvs = given  # type: ignore[assignment]
        assert np.array_equal(c.cvs, base), type(given)
    c = gc.ZCurves()
    c.numCVs = np.array([3, 5], np.int64)
    c.start = np.array([0, 3], np.uint16)
    assert c.numCVs.tolist() == [3, 5] and c.start.tolist() == [0, 3]
    with pytest.raises(ValueError, match=r"numCVs: values from 1 to 4294967296 do not fit int32"):
        c.numCVs = np.array([1, 2**32], np.int64)
    f, keep = gc.ZFollicles(), np.array([True, False])
    f.tgl = np.zeros(2, np.int32)
    f.from_(f, keep)  # type: ignore[arg-type]
    assert f.numStrands() == 1


def test_inconsistent_arrays_are_refused_before_the_library_indexes_them() -> None:
    c = gc.ZCurves()
    c.push(np.zeros((3, 3), np.float32))
    with pytest.raises(IndexError, match="index 5 outside 0..0"):
        c.position(5, 0.5)
    c.numCVs = np.array([-1], np.int32)  # a negative size
    with pytest.raises(ValueError, match="strand 0 .* lies outside the 3 CVs"):
        c.lineLength(0)
    c.numCVs, c.start = np.array([3], np.int32), np.array([2], np.int32)
    with pytest.raises(ValueError, match="outside"):
        c.boundingBox(False, True)

    f = gc.ZFollicles()
    f.tgl = np.zeros(2, np.int32)
    scale = gc.ZScaleModifier()
    with pytest.raises(ValueError, match="uid has 0 elements, 2 expected"):
        scale.evaluate(f, c)
    f.uid, f.uvw, f.nmp = np.arange(2, dtype=np.int32), np.zeros((2, 3), np.float32), np.zeros((2, 3), np.float32)
    with pytest.raises(ValueError, match="1 curves for 2 strands|axs has 0"):
        scale.deform(f, c, c)

    image = gc.ZImageMap()
    with pytest.raises(TypeError, match="float32"):
        image.pixels = np.zeros((4, 4), np.float64)
    cache = gc.ZCacheData2()
    with pytest.raises(TypeError, match="follicles: expected ZFollicles or None, got ZCurves$"):
        cache.follicles = c  # type: ignore[assignment]
    with pytest.raises(TypeError, match="a sequence of ZFeather"):
        cache.feathers = [gc.ZSource()]  # type: ignore[list-item]


def test_an_index_equal_to_the_count_is_refused_everywhere_indices_are_checked(tmp_path: Path) -> None:
    # One past the end is the slip a bound check makes; each array checked by index is held
    # to 0..n-1 with n its count.
    mesh = gc.ZPolyMesh()
    mesh.points, mesh.vCounts, mesh.vConnects = (
        np.zeros((3, 3), np.float32),
        np.array([3], np.int32),
        np.array([0, 1, 3], np.int32),
    )
    with pytest.raises(ValueError, match=r"vConnects\[2\] = 3 is outside 0..2"):
        mesh.convertTo(gc.ZTriMesh())
    mesh.vConnects = np.array([0, 1, 2], np.int32)
    mesh.uvs, mesh.uvIndices = np.zeros((2, 2), np.float32), np.array([0, 1, 2], np.int32)
    with pytest.raises(ValueError, match=r"uvIndices\[2\] = 2 is outside 0..1"):
        mesh.convertTo(gc.ZTriMesh())
    mesh.uvIndices = np.array([0, 1, 1], np.int32)
    mesh.convertTo(gc.ZTriMesh())

    tri = gc.ZTriMesh()
    tri.points, tri.v012 = np.zeros((3, 3), np.float32), np.array([[0, 1, 3]], np.int32)
    with pytest.raises(ValueError, match=r"v012\[0\]\[2\] = 3 is outside 0..2"):
        tri.write(str(tmp_path / "unused"))

    c = gc.ZCurves()
    c.push(np.zeros((2, 3), np.float32))
    c.push(np.zeros((2, 3), np.float32))
    with pytest.raises(IndexError, match="index 2 outside 0..1"):
        c.lineLength(2)
    c.start = np.array([0, 3], np.int32)  # the last strand ends one CV past the 4
    with pytest.raises(ValueError, match="strand 1 .* lies outside the 4 CVs"):
        c.lineLength(0)

    sets = gc.ZIntSetArray()
    sets.counts, sets.starts, sets.values = (
        np.array([1, 2], np.int32),
        np.array([0, 2], np.int32),
        np.arange(3, dtype=np.int32),
    )
    with pytest.raises(ValueError, match="set 1 lies outside the 3 values"):
        sets.set(0)
    sets.starts = np.array([0, 1], np.int32)
    assert sets.set(1) == [1, 2]
    with pytest.raises(IndexError, match="index 2 outside 0..1"):
        sets.set(2)


@pytest.mark.parametrize(
    ("field", "given"),
    [("cvs", np.arange(9, dtype=np.int32).reshape(3, 3)), ("numCVs", np.ones(3, np.float32))],
    ids=["int32-as-float32", "float32-as-int32"],
)
def test_an_array_of_the_same_width_and_another_kind_is_never_taken_bit_for_bit(field: str, given: np.ndarray) -> None:
    c = gc.ZCurves()
    try:
        setattr(c, field, given)
    except TypeError:
        return  # refused
    assert np.array_equal(getattr(c, field), given), "converted by value, not reinterpreted"


def test_a_pointer_field_set_back_to_none_is_none_for_the_next_call(tmp_path: Path) -> None:
    f, c = gc.ZFollicles(), gc.ZCurves()
    c.push(np.array([[0, 0, 0], [0, 1, 0]], np.float32))
    f.tgl, f.rtp, f.uvw = np.zeros(1, np.int32), np.zeros(1, np.int32), np.zeros((1, 3), np.float32)
    f.twh, f.rwh, f.axs = np.ones(1, np.float32), np.ones(1, np.float32), np.zeros((1, 4, 3), np.float32)

    # The cache: per-strand transforms and folds given for one frame and not the next.
    cache = gc.ZCacheData2()
    cache.nodeName, cache.follicles, cache.curves, cache.boundingBox = "hair", f, c, c.boundingBox(False, False)
    (tmp_path / "hair").mkdir()
    cache.scales, cache.rotations, cache.folds = (
        np.ones((1, 3), np.float32),
        np.zeros((1, 3), np.float32),
        np.zeros(1, np.float32),
    )
    assert cache.bakePerFrameData(str(tmp_path), 1)
    cache.scales = cache.rotations = cache.folds = None
    assert cache.scales is None and cache.folds is None
    assert cache.bakePerFrameData(str(tmp_path), 2)
    written = sorted(p.name for p in (tmp_path / "hair").iterdir())
    assert written == ["bbox_p1", "bbox_p2", "curves_p1", "curves_p2", "folds_p1", "xforms_p1"]

    # The exporter: the strands it points at, then none.
    x = gc.ZCurvesToUSD()
    x.name, x.basePath, x.follicles, x.curves, x.boundingBox = "hair", str(tmp_path / "hair"), f, c, cache.boundingBox
    x.writeGeometryToUSD(1, True, False)
    x.follicles = None
    assert x.follicles is None
    with pytest.raises(ValueError, match="follicles, curves and boundingBox must be set"):
        x.writeGeometryToUSD(2, True, False)


def test_missing_and_unwritable_files(tmp_path: Path) -> None:
    with pytest.raises(FileNotFoundError):
        gc.ZCurves().read(tmp_path / "absent")
    with pytest.raises(OSError):
        gc.ZFollicles().write(tmp_path / "no" / "such" / "folder", True)
    assert not gc.readStrandsData(str(tmp_path), 1, gc.ZCurves(), gc.ZFollicles())
    assert not gc.readInfoData(str(tmp_path), gc.RuvoCacheInfo())
    assert gc.findBodyMeshShapeNode(str(tmp_path / "absent.abc"), "Body") is None
    assert not gc.ZAlembicArchive().open(str(tmp_path / "absent.abc"))


def shaped(seed: int) -> bytes:
    """A groom shaped by a stack on its own thread's objects; the bytes of the result."""
    n, m = 20000, 8
    rng = np.random.default_rng(seed)
    f, c = gc.ZFollicles(), gc.ZCurves()
    c.numCVs = np.full(n, m, np.int32)
    c.start = np.arange(0, n * m, m, dtype=np.int32)
    c.cvs = rng.random((n * m, 3), dtype=np.float32)
    f.tgl, f.uid = np.zeros(n, np.int32), np.arange(n, dtype=np.int32)
    f.uvw, f.nmp = rng.random((n, 3), dtype=np.float32), rng.random((n, 3), dtype=np.float32)
    axs = np.zeros((n, 4, 3), np.float32)
    axs[:, 1, 0] = axs[:, 2, 1] = axs[:, 3, 2] = 1
    f.axs, f.rxy, f.ln0 = axs, rng.random((n, 2), dtype=np.float32), np.ones(n, np.float32)
    kink = gc.ZKinkModifier()
    for group in ("kink", "tWidth", "rWidth"):
        for k, v in (("", 0.5), ("Seed", 1), ("Rand", 0.2), ("Freq", 3)):
            setattr(kink, group + k, v)
        setattr(kink, group + "Expr", f"{group} + rand * znoise(freq, x, y, z)")
    kink.maskExpr, kink.tipFade, kink.rootFade = "", 0.1, 0.2
    kink.apply(f, c, gc.ZCurves(c))
    return bytes(c.cvs.tobytes())


def test_two_threads_on_two_grooms_give_what_one_thread_gives() -> None:
    alone = [shaped(1), shaped(2)]
    results: dict[int, bytes] = {}
    threads = [threading.Thread(target=lambda s=s: results.__setitem__(s, shaped(s))) for s in (1, 2)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert [results[1], results[2]] == alone and alone[0] != alone[1]


# One strand exported from a fresh process; `before` runs first, `after` last.
EXPORT = """
import sys
import numpy as np
{before}
import groomcore as gc
f, c = gc.ZFollicles(), gc.ZCurves()
c.push(np.array([[0, 0, 0], [0, 1, 0]], np.float32))
f.tgl, f.rtp, f.uvw = np.zeros(1, np.int32), np.zeros(1, np.int32), np.zeros((1, 3), np.float32)
f.twh, f.rwh, f.axs = np.ones(1, np.float32), np.ones(1, np.float32), np.zeros((1, 4, 3), np.float32)
x = gc.ZCurvesToUSD()
x.name, x.basePath, x.follicles, x.curves, x.boundingBox = "hair", r"{base}", f, c, c.boundingBox(False, False)
x.writeAttributeToUSD(True)
x.writeGeometryToUSD(1, True, False)
{after}
"""


def export_in_a_process(tmp_path: Path, before: str, after: str) -> subprocess.CompletedProcess[str]:
    script = EXPORT.format(before=before, after=after, base=tmp_path / "hair")
    return subprocess.run([sys.executable, "-c", script], capture_output=True, text=True)


@pytest.mark.parametrize("first", ["groomcore", "pxr"])
def test_groomcore_and_usd_core_in_one_process_in_either_order(tmp_path: Path, first: str) -> None:
    done = export_in_a_process(
        tmp_path,
        f"import {first}",
        """
from pxr import Usd, UsdGeom
stage = Usd.Stage.Open(x.stage)
prim = stage.GetPrimAtPath("/hair")
points = UsdGeom.BasisCurves(prim).GetPointsAttr().Get()
print(len(points), UsdGeom.Primvar(prim.GetAttribute("primvars:st")).GetInterpolation())
""",
    )
    assert done.returncode == 0, done.stderr[-2000:]
    # two CVs, each end doubled for the catmullRom basis; the st primvar one per curve
    assert done.stdout.split() == ["4", "uniform"] and "Error" not in done.stderr


def test_exporting_loads_no_other_openusd_into_the_process(tmp_path: Path) -> None:
    # The exporter's OpenUSD would otherwise import `pxr` (usd-core's here) on its first plug-in load.
    done = export_in_a_process(
        tmp_path, "", 'print(sorted(m for m in sys.modules if m == "pxr" or m.startswith("pxr.")))'
    )
    assert done.returncode == 0 and done.stdout.strip() == "[]", done.stdout + done.stderr
    assert done.stderr == ""


def test_unset_inputs_self_aliasing_and_bad_expressions_are_answered_not_crashed(tmp_path: Path) -> None:
    f, c = gc.ZFollicles(), gc.ZCurves()
    c.push(np.zeros((2, 3), np.float32))
    f.tgl = np.zeros(1, np.int32)
    cache = gc.ZCacheData2()
    cache.nodeName = "hair"
    (tmp_path / "hair").mkdir()
    assert not cache.bakePerFrameData(str(tmp_path), 1)  # nothing set
    cache.follicles, cache.curves, cache.boundingBox = f, c, c.boundingBox(False, False)
    cache.folds = np.zeros(3, np.float32)  # three folds for one strand
    assert not cache.bakePerFrameData(str(tmp_path), 1)
    cache.reset()
    assert not cache.bakePerFrameData(str(tmp_path), 1) and not list((tmp_path / "hair").iterdir())

    f.uid = np.arange(1, dtype=np.int32)
    f.append(f, True)
    assert f.uid.tolist() == [0, 0] and f.numStrands() == 2
    with pytest.raises(ValueError, match="keep has 3 elements, 2 expected"):
        f.from_(f, np.ones(3, np.int8))
    mesh = gc.ZPolyMesh()
    mesh.points, mesh.vCounts, mesh.vConnects = np.zeros((3, 3), np.float32), np.array([3]), np.array([0, 1, 2])
    mesh.append(mesh, True)
    assert mesh.vConnects.tolist() == [0, 1, 2, 3, 4, 5]

    deep = gc.ZExpression("1" + "+1" * 60000)
    assert deep.evaluate() == (0.0, 0.0, 0.0) and deep.message().startswith("Too long")
    nested = gc.ZExpression("abs(" * 200 + "1" + ")" * 200)
    assert nested.evaluate()[0] == 0.0 and nested.message().startswith("Too deep")
    assert gc.ZExpression("$q + 1").message() == "No variable named 'q' (at character 0)"

    width = gc.ZWidthModifier()
    with pytest.raises(TypeError, match="append: expected ZImageMap, got int"):
        width.append("d", 0)  # type: ignore[arg-type]


def test_invalidate_makes_a_modifier_recompute_for_another_groom_of_the_same_count() -> None:
    def groom(seed: int) -> tuple[gc.ZFollicles, gc.ZCurves]:
        rng = np.random.default_rng(seed)
        f, c = gc.ZFollicles(), gc.ZCurves()
        for _ in range(4):
            c.push(rng.random((3, 3), dtype=np.float32))
        f.tgl, f.uid = np.zeros(4, np.int32), np.arange(4, dtype=np.int32) + seed
        f.uvw, f.nmp = rng.random((4, 3), dtype=np.float32), rng.random((4, 3), dtype=np.float32)
        f.twh, f.rwh = np.ones(4, np.float32), np.ones(4, np.float32)
        return f, c

    width = gc.ZWidthModifier()
    for group in ("t", "r"):
        for k, v in (("Width", 1.0), ("Seed", 1), ("Rand", 0.5), ("Freq", 1.0)):
            setattr(width, group + k, v)
        setattr(width, group + "Expr", f"{group}Width * (1 + rand * znoise(freq, x, y, z))")
    a, b = groom(1), groom(2)
    alone = groom(2)  # B under a modifier of its own
    fresh = gc.ZWidthModifier()
    for name in ("tWidth", "tSeed", "tRand", "tFreq", "tExpr", "rWidth", "rSeed", "rRand", "rFreq", "rExpr"):
        setattr(fresh, name, getattr(width, name))
    fresh.apply(*alone, alone[1])
    width.apply(*a, a[1])
    width.apply(*b, b[1])
    stale = b[0].twh.copy()
    width.invalidate()
    width.apply(*b, b[1])
    assert np.array_equal(b[0].twh, alone[0].twh) and not np.array_equal(stale, alone[0].twh)


def test_an_object_busy_on_another_thread_is_refused_not_raced(tmp_path: Path) -> None:
    # A large frame on disk, read on one thread while the main thread copies, views,
    # assigns and shapes the same objects as fast as it can.
    n, m = 200_000, 8
    c, f = gc.ZCurves(), gc.ZFollicles()
    c.numCVs, c.start = np.full(n, m, np.int32), np.arange(0, n * m, m, dtype=np.int32)
    c.cvs = np.random.default_rng(1).random((n * m, 3), dtype=np.float32)
    f.tgl, f.axs, f.rxy = np.zeros(n, np.int32), np.zeros((n, 4, 3), np.float32), np.zeros((n, 2), np.float32)
    cache = gc.ZCacheData2()
    cache.nodeName, cache.follicles, cache.curves, cache.boundingBox = "hair", f, c, c.boundingBox(False, False)
    (tmp_path / "hair").mkdir()
    assert cache.bakePerFrameData(str(tmp_path), 1)
    frame = str(tmp_path / "hair")

    target_c, target_f = gc.ZCurves(), gc.ZFollicles()
    stop = threading.Event()
    reads = 0

    def reader() -> None:
        nonlocal reads
        while not stop.is_set():
            try:
                gc.readStrandsData(frame, 1, target_c, target_f)
                reads += 1
            except (RuntimeError, BufferError):
                pass

    thread = threading.Thread(target=reader)
    thread.start()
    refused = 0
    try:
        for _ in range(300):
            for attempt in (
                lambda: gc.ZCurves(target_c),
                lambda: gc.ZFollicles(target_f),
                lambda: target_f.calcRxy(target_c, False),
                lambda: target_c.cvs.sum(),
                lambda: setattr(target_c, "numCVs", np.ones(3, np.int32)),
            ):
                try:
                    attempt()
                except (RuntimeError, BufferError, ValueError) as e:
                    refused += isinstance(e, RuntimeError) and "in use by readStrandsData" in str(e)
    finally:
        stop.set()
        thread.join()
    assert reads > 0 and refused > 0


def test_report_lines_go_to_logging_or_to_a_sink_of_the_hosts(
    tmp_path: Path, caplog: pytest.LogCaptureFixture, capfd: pytest.CaptureFixture[str]
) -> None:
    cache = gc.ZCacheData2()
    cache.nodeName = "hair"
    with caplog.at_level("ERROR", logger="groomcore"):
        assert not cache.bakePerFrameData(str(tmp_path), 1)  # reported while the GIL is released
        gc.ZWidthModifier().append("density", gc.ZImageMap())
    assert [r.getMessage() for r in caplog.records] == [
        "Error@ZCacheData::bakeStaticData(): No data.",
        "Error@ZModifier::append(): No file.",
    ]
    assert "Error@" not in capfd.readouterr().out
    lines: list[str] = []
    try:
        gc.setMessageSink(lines.append)
        assert not cache.bakePerFrameData(str(tmp_path), 1)
        gc.setMessageSink(None)  # the C++ default: standard output
        assert not cache.bakePerFrameData(str(tmp_path), 1)
    finally:
        gc.setMessageSink(gc._report)
    assert lines == ["Error@ZCacheData::bakeStaticData(): No data."]
    assert capfd.readouterr().out == "Error@ZCacheData::bakeStaticData(): No data.\n"
    with pytest.raises(TypeError, match="expected a callable or None, got int"):
        gc.setMessageSink(3)  # type: ignore[arg-type]


def test_data_objects_copy_and_pickle_whole() -> None:
    import copy
    import pickle

    def fields(obj: object) -> dict[str, object]:
        out: dict[str, object] = {}
        for name, member in vars(type(obj)).items():
            if isinstance(member, property) and name not in ("displayLists", "attributeMaps"):
                value = getattr(obj, name)
                out[name] = (
                    value.tolist()
                    if isinstance(value, np.ndarray)
                    else fields(value)
                    if hasattr(value, "__module__") and "groomcore" in type(value).__module__
                    else value
                )
        return out

    f, c = gc.ZFollicles(), gc.ZCurves()
    rng = np.random.default_rng(3)
    for _ in range(5):
        c.push(rng.random((4, 3), dtype=np.float32))
    f.tgl, f.uid = np.arange(5, dtype=np.int32), np.arange(5, dtype=np.int32) * 7
    f.uvw, f.axs = rng.random((5, 3), dtype=np.float32), rng.random((5, 4, 3), dtype=np.float32)
    for i in range(5):
        f.bdi.push(np.arange(i, dtype=np.int32))
        f.bdw.push(np.full(i, 0.5, np.float32))
    f.maxLn1 = 4.5
    kink = gc.ZKinkModifier()
    kink.kinkExpr, kink.kink, kink.tipFade = "kink * 2", 0.75, 0.1
    feather = gc.ZFeather()
    feather.name, feather.mesh.points = "leaf.001", rng.random((3, 3), dtype=np.float32)
    feather.mesh.v012 = np.array([[0, 1, 2]], np.int32)
    for original in (f, c, kink, feather):
        for twin in (pickle.loads(pickle.dumps(original)), copy.deepcopy(original), copy.copy(original)):
            assert type(twin) is type(original) and twin is not original
            assert fields(twin) == fields(original), type(original).__name__
    twin = copy.deepcopy(f)
    twin.uid[0] = 99  # a copy is independent
    assert f.uid[0] == 0


def test_frames_turn_into_samples_of_an_alembic_body(tmp_path: Path) -> None:
    script = f"""
import imath
from alembic3d import Abc, AbcCoreAbstract, AbcGeom
archive = Abc.OArchive({str(tmp_path / "prop.abc")!r})
ts = archive.addTimeSampling(AbcCoreAbstract.TimeSampling(1.0 / 24, 1.0 / 24))
xf = AbcGeom.OXform(archive.getTop(), "propXf", ts)
for k in range(24):
    s = AbcGeom.XformSample()
    s.setTranslation(imath.V3d(k, 0, 0))
    xf.getSchema().set(s)
mesh = AbcGeom.OPolyMesh(xf, "propShape", ts)
p, idx, cnt = imath.V3fArray(3), imath.IntArray(3), imath.IntArray(1)
for i, q in enumerate([(0, 0, 0), (1, 0, 0), (0, 1, 0)]):
    p[i] = imath.V3f(*q)
idx[0], idx[1], idx[2], cnt[0] = 0, 2, 1, 3
mesh.getSchema().set(AbcGeom.OPolyMeshSchemaSample(p, idx, cnt))
"""
    subprocess.run([sys.executable, "-c", script], check=True)
    body = gc.findBodyMeshShapeNode(str(tmp_path / "prop.abc"), "propShape")
    assert body is not None and body.numSamples() == 1
    assert body.sampleAtFrame(1, 24) == 0 and body.sampleAtFrame(12, 24) == 11 and body.sampleTime(11) == 12 / 24
    moved = [
        np.asarray(body.getPolyMeshData(body.sampleAtFrame(frame, 24))[5].data).ravel()[3] for frame in (1, 12, 24)
    ]
    assert np.allclose(moved, [0, 11, 23])  # the world matrix's translation follows the frame


def test_curves_come_in_from_alembic_as_the_real_library_reads_them(root: Path, tmp_path: Path) -> None:
    """Groom guides as Blender writes them (pinned catmull-rom, a width per point, under an
    animated transform), b-splines with indexed widths and ids, periodic linear curves."""
    subprocess.run([sys.executable, root / "tests" / "alembic" / "abc_scenes.py", tmp_path], check=True)
    from alembic3d import Abc, AbcGeom

    theirs = Abc.IArchive(str(tmp_path / "curves.abc"))
    archive = gc.ZAlembicArchive()
    assert archive.open(str(tmp_path / "curves.abc"))
    for path, sample in (("/guidesXf/blenderHair", 2), ("/cubic", 0), ("/staticXf/linear", 0)):
        obj = archive.topObject()
        for name in path.strip("/").split("/"):
            obj = next(c for c in (obj.getChild(i) for i in range(obj.numChildren())) if c and c.name() == name)
        assert obj.isCurves() and not obj.isPolyMesh()
        c = obj.getCurvesData(sample)
        assert c is not None
        ref = theirs.getTop()
        for name in path.strip("/").split("/"):
            ref = ref.getChild(name)
        schema = AbcGeom.ICurves(ref, Abc.WrapExistingFlag.kWrapExisting).getSchema()
        at = Abc.ISampleSelector(requestedIndex=sample)
        v = schema.getValue(at)
        assert np.array_equal(c.points, np.array([(p.x, p.y, p.z) for p in v.getPositions()], np.float32))
        assert c.counts.tolist() == list(v.getCurvesNumVertices())
        assert c.widths.tolist() == list(np.float32(list(schema.getWidthsParam().getExpandedValue(at).getVals())))
        assert (c.type, c.wrap, c.basis) == (int(v.getType()), int(v.getWrap()), int(v.getBasis()))
    guides = archive.topObject().getChild(0)
    assert guides is not None and guides.getCurvesData(0) is None  # a transform has no curves
    assert (c.type, c.wrap, c.basis) == (gc.ZAlembicCurves.kLinear, gc.ZAlembicCurves.kPeriodic, 0)


def test_guides_from_alembic_become_a_groom_that_bakes(root: Path, tmp_path: Path) -> None:
    """Blender-style guides read from Alembic, a body, the toolkit: a groom the core bakes."""
    subprocess.run([sys.executable, root / "tests" / "alembic" / "abc_scenes.py", tmp_path], check=True)
    archive = gc.ZAlembicArchive()
    assert archive.open(str(tmp_path / "curves.abc"))
    xf = archive.topObject().getChild(0)
    assert xf is not None
    shape = xf.getChild(0)
    assert shape is not None
    guides = shape.getCurvesData(0)
    assert guides is not None and guides.counts.tolist() == [6, 8, 7]
    # A ground plane under the roots (the guides stand on y = 0, x from 0 to 0.5).
    body = gc.ZTriMesh()
    body.points = np.array([[-1, 0, -1], [2, 0, -1], [-1, 0, 2], [2, 0, 2]], np.float32)
    body.v012 = np.array([[0, 2, 1], [1, 2, 3]], np.int32)
    body.uvs = np.array([[0, 0, 0], [0, 1, 0], [1, 0, 0], [1, 0, 0], [0, 1, 0], [1, 1, 0]], np.float32)
    frames = gc.ZBodyFrames()
    assert frames.build(body)
    follicles, strands = gc.ZFollicles(), gc.ZCurves()
    groom = gc.ZGroomFromCurves()
    assert groom.build(guides, body, frames.compute(body), follicles, strands), groom.message
    assert strands.numCVs.tolist() == [4, 6, 5]  # pinned ends dropped
    assert follicles.rwh.tolist() == list(np.float32(guides.widths[[1, 7, 15]]))
    assert np.allclose(follicles.axs[:, 3], [0, 1, 0])  # the plane's normal
    assert float(groom.farthestRoot) < 1e-6

    cache = gc.ZCacheData()
    cache.nodeName, cache.follicles, cache.curves = "guides", follicles, strands
    cache.boundingBox = strands.boundingBox(False, True)
    (tmp_path / "cache").mkdir()
    assert cache.bakeStaticData(str(tmp_path / "cache")) and cache.bakePerFrameData(str(tmp_path / "cache"), 1.0)

    far = gc.ZGroomFromCurves()
    far.maxRootDistance = 0.0
    guides.worldMatrix = gc.ZMatrix(np.array([[1, 0, 0, 0], [0, 1, 0, 0.5], [0, 0, 1, 0], [0, 0, 0, 1]], np.float32))
    assert not far.build(guides, body, frames.compute(body), follicles, strands)
    assert far.message.startswith("3 of 3 curve roots lie farther than 0 from the body (the farthest 0.5")


def test_every_class_and_callable_has_a_docstring_that_speaks_python() -> None:
    """A docstring key the headers do not document, a class or a callable without a
    docstring, or a docstring in the headers' C++ terms fails here."""
    import inspect
    import re

    from groomcore import _groomcore as ext

    assert ext._undocumented() == []
    missing, cxx = [], []
    for name, obj in vars(ext).items():
        if name.startswith("_"):
            continue
        members = [(name, obj)]
        if inspect.isclass(obj):
            members += [(f"{name}.{m}", v) for m, v in vars(obj).items() if not m.startswith("_")]
        for qualified, member in members:
            if not callable(member) and not isinstance(member, property):
                continue
            doc = (member.__doc__ or "").strip()
            if callable(member) and not inspect.isclass(member):
                doc = "\n".join(doc.split("\n")[1:]).strip()  # behind the signature line
            if not doc:
                missing.append(qualified)
            if re.search(r"\bnull\b|\bnullptr\b|std::|\bpointers?\b|\bfalse\b|\btrue\b", doc):
                cxx.append(qualified)
    assert missing == [] and cxx == []
    assert "nearest pixel" in (ext.ZImageMap.__doc__ or "")


def test_curves_come_in_from_a_usd_layer_as_usd_core_reads_them(tmp_path: Path) -> None:
    """BasisCurves under nested xformOps (translate, rotateXYZ, scale, a matrix, an inverted
    op, a reset), points sampled at two times (read between them), widths per point, st per
    curve (plain and indexed) and ids: each as usd-core's UsdGeom reads it."""
    script = f"""
from pxr import Gf, Sdf, Usd, UsdGeom, Vt
stage = Usd.Stage.CreateNew({str(tmp_path / "guides.usda")!r})
rig = UsdGeom.Xform.Define(stage, "/rig")
rig.AddTranslateOp().Set(Gf.Vec3d(1, 2, 3))
rig.AddRotateXYZOp().Set(Gf.Vec3f(10, 20, 30))
rig.AddScaleOp().Set(Gf.Vec3f(2, 2, 2))
grp = UsdGeom.Xform.Define(stage, "/rig/grp")
grp.AddTransformOp().Set(Gf.Matrix4d(1).SetTranslate(Gf.Vec3d(0, 0.5, 0)))
grp.AddRotateZYXOp(opSuffix="tilt").Set(Gf.Vec3f(5, 0, 15))
grp.AddTranslateOp(opSuffix="pivot").Set(Gf.Vec3d(0.1, 0, 0))
grp.AddTranslateOp(opSuffix="pivot", isInverseOp=True)
for name, indexed in (("hair", False), ("fur", True)):
    c = UsdGeom.BasisCurves.Define(stage, "/rig/grp/" + name)
    c.CreateTypeAttr("cubic"); c.CreateBasisAttr("catmullRom")
    c.CreateCurveVertexCountsAttr(Vt.IntArray([4, 5]))
    a = [Gf.Vec3f(i * 0.1, j * 0.2, 0) for i in range(2) for j in range(5)][:9]
    b = [p + Gf.Vec3f(0, 0, 1) for p in a]
    c.GetPointsAttr().Set(Vt.Vec3fArray(a), 1.0)
    c.GetPointsAttr().Set(Vt.Vec3fArray(b), 3.0)
    c.CreateWidthsAttr(Vt.FloatArray([0.01 * (k + 1) for k in range(9)]))
    c.SetWidthsInterpolation("vertex")
    st = UsdGeom.PrimvarsAPI(c).CreatePrimvar("st", Sdf.ValueTypeNames.TexCoord2fArray, "uniform")
    if indexed:
        st.Set(Vt.Vec2fArray([Gf.Vec2f(0.25, 0.5), Gf.Vec2f(0.75, 0.5)]))
        st.SetIndices(Vt.IntArray([1, 0]))
    else:
        st.Set(Vt.Vec2fArray([Gf.Vec2f(0.1, 0.2), Gf.Vec2f(0.3, 0.4)]))
    UsdGeom.PrimvarsAPI(c).CreatePrimvar("ids", Sdf.ValueTypeNames.IntArray, "uniform").Set(Vt.IntArray([7, 9]))
alone = UsdGeom.BasisCurves.Define(stage, "/rig/grp/alone")
alone.CreateCurveVertexCountsAttr(Vt.IntArray([2]))
alone.GetPointsAttr().Set(Vt.Vec3fArray([Gf.Vec3f(0), Gf.Vec3f(1)]))
UsdGeom.Xformable(alone).SetResetXformStack(True)
UsdGeom.Xformable(alone).AddTranslateOp().Set(Gf.Vec3d(0, 0, 4))
stage.GetRootLayer().Save()
"""
    subprocess.run([sys.executable, "-c", script], check=True)
    from pxr import Usd, UsdGeom

    stage = Usd.Stage.Open(str(tmp_path / "guides.usda"))
    reader = gc.ZCurvesFromUSD()
    assert reader.curvePrims(str(tmp_path / "guides.usda")) == ["/rig/grp/alone", "/rig/grp/fur", "/rig/grp/hair"]
    for path in ("/rig/grp/hair", "/rig/grp/fur", "/rig/grp/alone"):
        theirs = UsdGeom.BasisCurves(stage.GetPrimAtPath(path))
        t = 2.0
        c = reader.read(str(tmp_path / "guides.usda"), path, t)
        assert c is not None, reader.message
        assert np.array_equal(c.points, np.array(theirs.GetPointsAttr().Get(t), np.float32))
        assert c.counts.tolist() == list(theirs.GetCurveVertexCountsAttr().Get(t))
        world = np.array(theirs.ComputeLocalToWorldTransform(t), np.float64).T
        assert np.allclose(np.asarray(c.worldMatrix.data).reshape(4, 4), world, atol=1e-5), path
        if path == "/rig/grp/alone":
            continue
        assert np.array_equal(c.widths, np.array(theirs.GetWidthsAttr().Get(t), np.float32))
        st = UsdGeom.PrimvarsAPI(theirs).GetPrimvar("st").ComputeFlattened(t)
        assert np.array_equal(c.uvs.reshape(-1, 2), np.array(st, np.float32))
        assert c.ids.tolist() == [7, 9]
        assert (c.type, c.basis) == (gc.ZAlembicCurves.kCubic, gc.ZAlembicCurves.kCatmullRom)
    assert reader.read(str(tmp_path / "guides.usda"), "/rig", 1.0) is None
    assert reader.message == "/rig in " + str(tmp_path / "guides.usda") + " is not BasisCurves (its type: Xform)"
    assert reader.read(str(tmp_path / "absent.usda"), "/x", 1.0) is None


def test_bodies_come_in_from_a_usd_layer_as_usd_core_reads_them(tmp_path: Path) -> None:
    """Mesh prims as bodies: a cube of quads under animated translate, rotate and orient
    ops (read between two samples, blended as USD blends them), once rightHanded with
    faceVarying indexed st and once leftHanded with a vertex UV map under Blender's name;
    triangles and a mesh without UVs. World points as usd-core computes them, every triangle
    facing out of the cube in both orientations, every corner's UV the one usd-core gives
    that corner of its face."""
    script = f"""
from pxr import Gf, Sdf, Usd, UsdGeom, Vt
stage = Usd.Stage.CreateNew({str(tmp_path / "body.usda")!r})
rig = UsdGeom.Xform.Define(stage, "/rig")
op = rig.AddTranslateOp()
op.Set(Gf.Vec3d(0, 0, 0), 1.0)
op.Set(Gf.Vec3d(0, 4, 0), 3.0)
turn = rig.AddRotateYOp()
turn.Set(10.0, 1.0)
turn.Set(70.0, 3.0)
tilt = rig.AddOrientOp()
tilt.Set(Gf.Quatf(1, 0, 0, 0), 1.0)
tilt.Set(Gf.Quatf(0.8, 0.6, 0, 0), 3.0)
points = Vt.Vec3fArray([Gf.Vec3f(x, y, z) for z in (-1, 1) for y in (-1, 1) for x in (-1, 1)])
ccw = [[0, 2, 3, 1], [4, 5, 7, 6], [0, 1, 5, 4], [2, 6, 7, 3], [0, 4, 6, 2], [1, 3, 7, 5]]
for name, left in (("right", False), ("left", True)):
    m = UsdGeom.Mesh.Define(stage, "/rig/" + name)
    m.GetPointsAttr().Set(points)
    m.GetFaceVertexCountsAttr().Set(Vt.IntArray([4] * 6))
    faces = [[f[0]] + f[1:][::-1] for f in ccw] if left else ccw
    m.GetFaceVertexIndicesAttr().Set(Vt.IntArray([v for f in faces for v in f]))
    pv = UsdGeom.PrimvarsAPI(m)
    if left:
        m.GetOrientationAttr().Set("leftHanded")
        uv = pv.CreatePrimvar("UVMap", Sdf.ValueTypeNames.TexCoord2fArray, "vertex")
        uv.Set(Vt.Vec2fArray([Gf.Vec2f(0.1 * k, 1 - 0.1 * k) for k in range(8)]))
    else:
        st = pv.CreatePrimvar("st", Sdf.ValueTypeNames.TexCoord2fArray, "faceVarying")
        st.Set(Vt.Vec2fArray([Gf.Vec2f(0.05 * k, 0.5 + 0.01 * k) for k in range(10)]))
        st.SetIndices(Vt.IntArray([(3 * c) % 10 for c in range(24)]))
tri = UsdGeom.Mesh.Define(stage, "/bare")
tri.GetPointsAttr().Set(Vt.Vec3fArray([Gf.Vec3f(0, 0, 0), Gf.Vec3f(1, 0, 0), Gf.Vec3f(0, 1, 0), Gf.Vec3f(1, 1, 0)]))
tri.GetFaceVertexCountsAttr().Set(Vt.IntArray([3, 3]))
tri.GetFaceVertexIndicesAttr().Set(Vt.IntArray([0, 1, 2, 2, 1, 3]))
bad = UsdGeom.Mesh.Define(stage, "/bad")
bad.GetPointsAttr().Set(Vt.Vec3fArray([Gf.Vec3f(0, 0, 0)]))
bad.GetFaceVertexCountsAttr().Set(Vt.IntArray([3]))
bad.GetFaceVertexIndicesAttr().Set(Vt.IntArray([0, 0, 5]))
stage.GetRootLayer().Save()
"""
    subprocess.run([sys.executable, "-c", script], check=True)
    from pxr import Usd, UsdGeom

    file = str(tmp_path / "body.usda")
    stage = Usd.Stage.Open(file)
    reader = gc.ZMeshFromUSD()
    assert reader.meshPrims(file) == ["/bad", "/bare", "/rig/left", "/rig/right"]
    t = 2.0
    for path in ("/rig/right", "/rig/left"):
        theirs = UsdGeom.Mesh(stage.GetPrimAtPath(path))
        body = reader.read(file, path, t)
        assert body is not None, reader.message
        world = np.array(theirs.ComputeLocalToWorldTransform(t), np.float64)
        local = np.array(theirs.GetPointsAttr().Get(t), np.float64)
        expected = np.c_[local, np.ones(len(local))] @ world  # row vectors, as USD
        assert np.allclose(body.points, expected[:, :3], atol=1e-5)
        assert np.allclose(expected[:, :3].mean(axis=0), [0, 2, 0], atol=1e-5)  # halfway up
        p = body.points.astype(np.float64)
        v = body.v012
        assert v.shape == (12, 3)
        normals = np.cross(p[v[:, 1]] - p[v[:, 0]], p[v[:, 2]] - p[v[:, 0]])
        outward = p[v].mean(axis=1) - p.mean(axis=0)
        assert np.all(np.einsum("ij,ij->i", normals, outward) > 0), path
        # Face k gives triangles 2k and 2k + 1; each corner's UV is usd-core's for that
        # point of that face.
        faces = np.array(theirs.GetFaceVertexIndicesAttr().Get(t)).reshape(6, 4)
        name = "st" if path.endswith("right") else "UVMap"
        primvar = UsdGeom.PrimvarsAPI(theirs).GetPrimvar(name)
        values = np.array(primvar.ComputeFlattened(t), np.float32)
        uvs = body.uvs.reshape(12, 3, 3)
        assert np.all(uvs[:, :, 2] == 0)
        for k in range(12):
            face = k // 2
            for c in range(3):
                point = v[k, c]
                if primvar.GetInterpolation() == "faceVarying":
                    want = values[4 * face + list(faces[face]).index(point)]
                else:
                    want = values[point]
                assert np.array_equal(uvs[k, c, :2], want), (path, k, c)
    bare = reader.read(file, "/bare", 0.0)
    assert bare is not None and bare.v012.tolist() == [[0, 1, 2], [2, 1, 3]]
    assert np.all(bare.uvs == 0) and bare.uvs.shape == (6, 3)
    assert reader.read(file, "/bad", 0.0) is None
    assert reader.message == "/bad: a face names point 5 of 1"
    assert reader.read(file, "/rig", 0.0) is None
    assert reader.message == f"/rig in {file} is not Mesh (its type: Xform)"
    assert reader.read(file, "no path", 0.0) is None and reader.message == "no path is no prim path"
    assert reader.read(str(tmp_path / "absent.usda"), "/x", 0.0) is None
    assert reader.message.endswith("cannot be read as a USD layer")


def test_a_usd_layer_openusd_does_not_survive_is_refused_in_one_line(root: Path, tmp_path: Path) -> None:
    """A crate file cut by two bytes (a finding of the USD readers' fuzz target) on which
    the OpenUSD the package brings ends its process: the readers read every file in another
    process first, so this one refuses it in one line, and so does groomcore import."""
    corrupt = str(root / "tests" / "usd" / "resources" / "corrupt_crate.usdc")
    probe = subprocess.run(
        [sys.executable, "-c", f"import sys\nfrom groomcore._groomcore import _verifyLayer\n_verifyLayer({corrupt!r})"],
        capture_output=True,
    )
    assert probe.returncode != 0  # it does end a process that opens it
    curves, meshes = gc.ZCurvesFromUSD(), gc.ZMeshFromUSD()
    assert curves.curvePrims(corrupt) == [] and "corrupt" in curves.message
    assert meshes.read(corrupt, "/rig/body", 1.0) is None and "corrupt" in meshes.message
    done = subprocess.run(
        [sys.executable, "-m", "groomcore", "import", corrupt, "/rig/guides", corrupt, "/rig/body", tmp_path, "g",
         "--frames", "1-2"],
        capture_output=True,
        text=True,
    )  # fmt: skip
    assert done.returncode == 1 and done.stderr.count("\n") == 1 and "corrupt" in done.stderr, done.stderr
