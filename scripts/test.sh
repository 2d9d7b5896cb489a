#!/usr/bin/env bash
# Sets everything up, builds, and runs the whole test suite: scripts/test.sh [preset]
# (release by default; asan runs the same suite under AddressSanitizer and UBSan, tsan
# under ThreadSanitizer). The release suite also checks the Python side: ruff, mypy on the
# examples against the package's stubs, the package's tests with pytest, and the Blender
# extension's tests in Blender (bpy from PyPI, headless).
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
PRESET="${1:-release}"
bash "$ROOT/scripts/setup.sh"
bash "$ROOT/scripts/build.sh" "$PRESET"
cd "$ROOT"
ctest --preset "$PRESET" -j "$(nproc)"
if [ "$PRESET" = release ]; then
  PY="$ROOT/.venv/bin/python"
  # Every Python file of the project: the package, its tools, tests, benchmarks and examples.
  PY_SOURCES=(examples bench python tests scripts blender)
  "$PY" -m ruff check "${PY_SOURCES[@]}"
  "$PY" -m ruff format --check "${PY_SOURCES[@]}"
  "$PY" -m mypy python/groomcore examples/groom.py bench/bench_python.py bench/bench_export.py scripts/openusd_prefix.py \
    python/tools/header_docs.py
  GROOMCORE_BUILD_DIR="$ROOT/build/release" "$PY" -m pytest -q tests/python
  # The Blender extension in Blender (bpy, headless, in its own environment).
  "$ROOT/.venv-blender/bin/python" -m pytest -q -p no:cacheprovider tests/blender
fi
