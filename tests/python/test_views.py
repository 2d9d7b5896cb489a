"""Arrays as numpy views of the library's memory: every element layout, writes in both
directions, lifetimes, and the refusal that keeps a view from outliving its memory."""

from __future__ import annotations

import gc as pygc
from pathlib import Path

import numpy as np
import pytest

import groomcore as gc


def small_groom(n: int = 4, m: int = 3) -> tuple[gc.ZFollicles, gc.ZCurves]:
    f, c = gc.ZFollicles(), gc.ZCurves()
    for i in range(n):
        c.push(np.array([[i, j, 0] for j in range(m)], np.float32))
    f.tgl = np.zeros(n, np.int32)
    f.uid = np.arange(n, dtype=np.int32)
    f.axs = np.zeros((n, 4, 3), np.float32)
    f.rxy = np.zeros((n, 2), np.float32)
    f.bcc = np.zeros((n, 3), np.float32)
    return f, c


def test_views_share_memory_with_the_library_for_every_layout(tmp_path: Path) -> None:
    f, c = small_groom()
    mesh = gc.ZTriMesh()
    mesh.v012 = np.array([[0, 1, 2]], np.int32)
    quad = gc.ZQuadMesh()
    quad.quads = np.array([[0, 1, 2, 3]], np.int32)
    kinds = [
        (f.uid, np.int32, (4,)),
        (f.ln0, np.float32, (0,)),
        (f.rxy, np.float32, (4, 2)),
        (f.bcc, np.float32, (4, 3)),
        (c.cvs, np.float32, (12, 3)),
        (f.axs, np.float32, (4, 4, 3)),
        (mesh.v012, np.int32, (1, 3)),
        (quad.quads, np.int32, (1, 4)),
        (f.bdi.counts, np.int32, (0,)),
        (gc.ZCutModifier().maskFlags, np.int8, (0,)),
    ]
    for view, dtype, shape in kinds:
        assert view.dtype == dtype and view.shape == shape
    # Writes through a view reach the library, and the library's writes reach the view.
    cvs = c.cvs
    cvs[1, 1] = 5.0
    assert c.lineLength(0) == 8.0  # (0,0,0) to (0,5,0) to (0,2,0)
    cvs2 = c.cvs
    assert np.shares_memory(cvs, cvs2) or cvs.ctypes.data == cvs2.ctypes.data
    uid = f.uid
    f.uid = np.array([7, 8, 9, 10], np.int32)  # same length: copied into the same block
    assert list(uid) == [7, 8, 9, 10]
    # Matrices and per-call results come as arrays that own their memory.
    m = gc.ZMatrix()
    m.data[0, 3] = 2.0
    assert m.transformPoint(gc.ZVector(1, 0, 0)).x == 3.0


def test_a_view_outlives_its_owner_name_and_its_parent_object() -> None:
    f, c = small_groom()
    cvs, axs = c.cvs, f.axs
    del c, f
    pygc.collect()
    assert cvs[3, 0] == 1.0 and axs.shape == (4, 4, 3)  # the owners live as long as their views
    feather = gc.ZFeather()
    feather.mesh.points = np.ones((5, 3), np.float32)
    points = feather.mesh.points
    del feather
    pygc.collect()
    assert points.sum() == 15.0


def test_calls_that_may_resize_are_refused_while_a_view_is_alive(tmp_path: Path) -> None:
    f, c = small_groom()
    c.write(str(tmp_path / "curves"))
    cvs = c.cvs
    derived = cvs[1:]  # a slice keeps the view alive too
    del cvs
    for call in (
        lambda: c.reset(),
        lambda: c.read(tmp_path / "curves"),
        lambda: c.push(np.zeros((2, 3), np.float32)),
        lambda: setattr(c, "cvs", np.zeros((1, 3), np.float32)),
        lambda: gc.readStrandsData(str(tmp_path), 1, c, f),
    ):
        with pytest.raises(BufferError, match="numpy view"):
            call()
    assert derived.shape == (11, 3)  # still the old, intact block
    del derived
    assert c.read(tmp_path / "curves") and c.numCurves() == 4  # allowed once no view is left
    # A view of a nested array guards the object that holds it.
    bdi = f.bdi.counts
    with pytest.raises(BufferError):
        f.reset()
    del bdi
    f.reset()
    # Modifiers refuse to re-evaluate while their results are viewed.
    width = gc.ZWidthModifier()
    results = width.tWidths
    f, c = small_groom()
    f.uvw = np.zeros((4, 3), np.float32)
    f.nmp = np.zeros((4, 3), np.float32)
    for k in ("tWidth", "tSeed", "tRand", "tFreq", "rWidth", "rSeed", "rRand", "rFreq"):
        setattr(width, k, 1.0)
    width.tExpr, width.rExpr = "tWidth", "rWidth"
    with pytest.raises(BufferError):
        width.evaluate(f, c)
    del results
    width.evaluate(f, c)
    assert list(width.tWidths) == [1.0] * 4


def test_taking_a_view_does_not_copy() -> None:
    c = gc.ZCurves()
    c.cvs = np.zeros((1_000_000, 3), np.float32)
    a, b = c.cvs, c.cvs
    assert a.ctypes.data == b.ctypes.data and not a.flags.owndata
