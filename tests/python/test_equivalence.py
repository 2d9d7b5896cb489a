"""The Python API against the C++ library used directly: the example host's whole job run
by examples/groom.py and by examples/groom_host gives byte-identical caches and USD files,
and every USD export scenario run from Python passes the comparison with usd-core."""

from __future__ import annotations

import os
import stat
import subprocess
import sys
from pathlib import Path

import pytest


def files(folder: Path) -> dict[str, bytes]:
    out = {}
    for p in sorted(folder.iterdir()):
        data = p.read_bytes()
        if p.name == "info":  # the bake's wall-clock time differs between two runs
            data = b"\n".join(line for line in data.split(b"\n") if b"SystemTimeUTC" not in line)
        out[p.name] = data
    return out


@pytest.mark.parametrize("with_alembic", [False, True], ids=["builtin", "alembic-body-and-source"])
def test_python_host_bakes_and_exports_what_the_cpp_host_does(
    tmp_path: Path, root: Path, build_dir: Path, with_alembic: bool
) -> None:
    host = build_dir / "examples" / "groom_host"
    extra_cpp: list[str] = []
    extra_py: list[str] = []
    if with_alembic:
        subprocess.run([host, tmp_path, "--export-body", tmp_path / "body.raw"], check=True)
        subprocess.run(
            [
                sys.executable,
                root / "examples" / "write_example_abc.py",
                tmp_path / "body.raw",
                tmp_path / "body.abc",
                tmp_path / "leaf.abc",
            ],
            check=True,
            capture_output=True,
        )
        extra_cpp = [str(tmp_path / "body.abc"), str(tmp_path / "leaf.abc")]
        extra_py = ["--body", str(tmp_path / "body.abc"), "--source", str(tmp_path / "leaf.abc")]
    subprocess.run([host, tmp_path / "cpp", "700", *extra_cpp], check=True, capture_output=True)
    subprocess.run(
        [sys.executable, root / "examples" / "groom.py", tmp_path / "py", "--strands", "700", *extra_py],
        check=True,
        capture_output=True,
    )
    for sub in ("hair", "usd"):
        cpp, py = files(tmp_path / "cpp" / sub), files(tmp_path / "py" / sub)
        assert sorted(cpp) == sorted(py)
        different = [name for name in cpp if cpp[name] != py[name]]
        assert not different, f"{sub}: {different}"
    assert len(files(tmp_path / "py" / "hair")) > 100  # 24 frames of curves, boxes, transforms, folds


def test_usd_export_from_python_matches_usd_core(tmp_path: Path, root: Path) -> None:
    # The comparison runs its driver with an empty environment: a wrapper names the interpreter.
    driver = tmp_path / "driver"
    driver.write_text(f'#!/bin/sh\nexec {sys.executable} {root / "tests" / "python" / "usd_driver.py"} "$@"\n')
    driver.chmod(driver.stat().st_mode | stat.S_IXUSR)
    done = subprocess.run(
        [sys.executable, root / "tests" / "usd" / "check_usd_export.py", driver],
        capture_output=True,
        text=True,
        env={**os.environ},
    )
    assert done.returncode == 0, done.stdout[-3000:] + done.stderr[-3000:]
    assert "15 passed, 0 failed" in done.stdout
