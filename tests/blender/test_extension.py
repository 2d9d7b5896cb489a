"""The Blender extension in Blender itself (bpy from PyPI, headless): built by
scripts/blender_extension.sh, installed with Blender's own extension command, a groom grown
on a body through its operator, and compared with the same job done through the groomcore
package alone."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

ROOT = Path(__file__).resolve().parents[2]


@pytest.fixture(scope="session")
def extension_zip() -> Path:
    done = subprocess.run(["bash", ROOT / "scripts" / "blender_extension.sh"], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr[-2000:]
    return Path(done.stdout.strip().splitlines()[-1])


def test_a_groom_grown_in_blender_is_the_package_s_bit_for_bit(extension_zip: Path, tmp_path: Path) -> None:
    env = {**os.environ, "BLENDER_USER_RESOURCES": str(tmp_path / "user")}
    job = subprocess.run(
        [sys.executable, ROOT / "tests" / "blender" / "blender_job.py", extension_zip, tmp_path / "job.npz"],
        capture_output=True,
        text=True,
        env=env,
    )
    assert job.returncode == 0, job.stdout[-2000:] + job.stderr[-3000:]
    out = np.load(tmp_path / "job.npz")
    count, cv_count = (int(v) for v in out["settings"])
    root_width, tip_width = (np.float32(v) for v in out["widths"])

    assert "extensions" in str(out["package_module"][0])  # the wheel the extension brought
    assert out["sizes"].tolist() == out["package_counts"].tolist() == [cv_count] * count
    assert out["positions"].tobytes() == out["package_cvs"].tobytes()
    t = np.linspace(0.0, 1.0, cv_count, dtype=np.float32)
    expected = ((root_width * (1 - t) + tip_width * t) * np.float32(0.5)).astype(np.float32)
    assert np.array_equal(out["radii"], np.tile(expected, count))
    assert bool(out["surface"][0])  # the groom is attached to its body
    # Roots lie on the moved body, not where the sphere was made.
    roots = out["positions"].reshape(-1, 3)[::cv_count]
    assert np.allclose(np.linalg.norm(roots - np.array([0.5, 0, 0.25]), axis=1), 1.0, atol=0.02)
    # A mesh without faces is refused with the reason; one without UVs grows.
    assert "points has no faces to grow on" in str(out["refusal"][0])
    assert int(out["bare_count"][0]) == 300
    # Saved and reopened: the strands as they were, the settings on the body, and the groom
    # grown again from them the same bits.
    assert out["kept"].tobytes() == out["positions"].tobytes()
    assert out["reopened_settings"].tolist() == [count, 5, cv_count]
    assert out["again"].tobytes() == out["positions"].tobytes()
