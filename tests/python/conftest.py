"""Shared paths of the Python tests: the checkout, and the C++ build whose example host the
equivalence test runs beside the Python one (GROOMCORE_BUILD_DIR, build/release by default)."""

from __future__ import annotations

import os
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]


@pytest.fixture(scope="session")
def root() -> Path:
    return ROOT


@pytest.fixture(scope="session")
def build_dir() -> Path:
    build = Path(os.environ.get("GROOMCORE_BUILD_DIR", ROOT / "build" / "release"))
    if not (build / "examples" / "groom_host").exists():
        pytest.skip(f"no C++ build at {build} (scripts/build.sh release)")
    return build
