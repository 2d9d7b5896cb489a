#!/usr/bin/env bash
# Installs everything groomcore needs on a fresh Debian machine (run as root) and is safe
# to run again: Debian packages that are missing, then the project's Python virtual
# environment in .venv, and OpenUSD's C++ libraries in the prefix .deps/openusd. Prints what it
# does; does nothing when all is in place.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

APT_PACKAGES=(
  build-essential cmake pkg-config git
  libkseexpr-dev                       # SeExpr expression language (KSeExpr)
  libgtest-dev libgmock-dev            # GoogleTest
  libbenchmark-dev                     # Google Benchmark
  libomp-dev                           # OpenMP runtime headers (GCC brings libgomp)
  libgl-dev libopengl-dev libegl-dev   # OpenGL and EGL through glvnd
  libegl-mesa0 libgl1-mesa-dri         # Mesa: software rendering for headless contexts
  libpng-dev                           # PNG output of the gallery
  libpython3.11-dev                    # Python embedding for the OpenUSD C++ libraries
  clang libclang-rt-14-dev             # fuzz targets (libFuzzer) and ThreadSanitizer
  libomp-14-dev                        # LLVM's OpenMP runtime with Archer, for ThreadSanitizer
  util-linux                           # taskset, for the determinism test
)

missing=()
for p in "${APT_PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
if ((${#missing[@]})); then
  echo "setup: installing Debian packages: ${missing[*]}"
  SUDO=""
  if [ "$(id -u)" != 0 ]; then SUDO="sudo"; fi
  $SUDO apt-get update -q
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

PY="${PYTHON:-python3}"
VENV="$ROOT/.venv"
REQ="$ROOT/scripts/requirements.txt"
STAMP="$VENV/.requirements.sha256"
want="$(sha256sum "$REQ" | cut -d' ' -f1)"
if [ ! -x "$VENV/bin/python" ]; then
  echo "setup: creating the virtual environment $VENV"
  "$PY" -m venv "$VENV"
fi
if [ ! -f "$STAMP" ] || [ "$(cat "$STAMP")" != "$want" ]; then
  echo "setup: installing Python packages from scripts/requirements.txt"
  "$VENV/bin/python" -m pip install -q --upgrade pip
  "$VENV/bin/python" -m pip install -q -r "$REQ"
  echo "$want" > "$STAMP"
fi

# OpenUSD's C++ side in a prefix of its own, with plug-in files naming its own libraries
# (scripts/openusd_prefix.py says why). Built aside and moved in whole, so an interrupted
# run never leaves a half prefix in place.
USD_PREFIX="$ROOT/.deps/openusd"
USD_REQ="$ROOT/scripts/openusd-requirements.txt"
USD_STAMP="$USD_PREFIX/.requirements.sha256"
want="$(cat "$USD_REQ" "$ROOT/scripts/openusd_prefix.py" | sha256sum | cut -d' ' -f1)"
if [ ! -f "$USD_STAMP" ] || [ "$(cat "$USD_STAMP")" != "$want" ]; then
  echo "setup: installing OpenUSD's C++ libraries into $USD_PREFIX"
  staging="$ROOT/.deps/openusd.partial"
  rm -rf "$staging"
  mkdir -p "$ROOT/.deps"
  "$VENV/bin/python" -m pip install -q --no-deps --target "$staging" -r "$USD_REQ"
  "$VENV/bin/python" "$ROOT/scripts/openusd_prefix.py" "$staging"
  echo "$want" > "$staging/.requirements.sha256"
  rm -rf "$USD_PREFIX"
  mv "$staging" "$USD_PREFIX"
fi

# The Python package, built from this checkout into .venv (its build tree persists in
# build/python); built again when any of its sources changed.
PKG_STAMP="$VENV/.groomcore-package.sha256"
want="$(cd "$ROOT" && find base strands modifiers feathers cache toolkit usd python/src python/groomcore python/tools \
          python/CMakeLists.txt cmake CMakeLists.txt pyproject.toml scripts/openusd-requirements.txt \
          scripts/openusd_prefix.py -type f -not -name '*.pyc' | LC_ALL=C sort | xargs sha256sum | sha256sum | cut -d' ' -f1)"
WHEELS="$ROOT/build/wheel"
if [ ! -f "$PKG_STAMP" ] || [ "$(cat "$PKG_STAMP")" != "$want" ] || ! ls "$WHEELS"/groomcore-*.whl >/dev/null 2>&1; then
  echo "setup: building the Python package groomcore into $VENV"
  rm -rf "$WHEELS"
  "$VENV/bin/python" -m pip wheel -q --no-build-isolation --no-deps -w "$WHEELS" "$ROOT"
  "$VENV/bin/python" -m pip install -q --no-deps --force-reinstall "$WHEELS"/groomcore-*.whl
  echo "$want" > "$PKG_STAMP"
fi

# Blender as a Python module (bpy, from PyPI) in an environment of its own, for the Blender
# extension's tests. groomcore is not installed there: the extension brings its wheel.
BVENV="$ROOT/.venv-blender"
BREQ="$ROOT/scripts/blender-requirements.txt"
BSTAMP="$BVENV/.requirements.sha256"
want_b="$(sha256sum "$BREQ" | cut -d' ' -f1)"
if [ ! -f "$BSTAMP" ] || [ "$(cat "$BSTAMP")" != "$want_b" ]; then
  echo "setup: installing Blender (bpy) into $BVENV"
  [ -x "$BVENV/bin/python" ] || "$PY" -m venv "$BVENV"
  "$BVENV/bin/python" -m pip install -q -r "$BREQ"
  echo "$want_b" > "$BSTAMP"
fi
echo "setup: ready"
