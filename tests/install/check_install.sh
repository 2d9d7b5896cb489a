#!/usr/bin/env bash
# The installed package as a host meets it:
#   1. install from a build tree and move the installed tree elsewhere (it must be
#      relocatable), then scan it for any absolute path of this machine's build;
#   2. a core-only consumer, built with CMake's defaults against the moved copy, runs with
#      no environment at all and loads neither OpenUSD nor libpython;
#   3. a USD consumer (the export driver of the test suite) runs with only OpenUSD's
#      library directory on the loader path, and its files equal usd-core's reference
#      writer's.
#
#   check_install.sh BUILD_DIR SOURCE_DIR OPENUSD_ROOT OPENUSD_LIBDIR PYTHON
set -euo pipefail
BUILD="$(cd "$1" && pwd)"
SOURCE="$(cd "$2" && pwd)"
OPENUSD_ROOT="$3"
OPENUSD_LIBDIR="$4"
PYTHON="$5"
HERE="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
WORK="$(mktemp -d)"
trap 'rm -rf "$WORK"' EXIT
fail() { echo "install check: $*" >&2; exit 1; }

cmake --install "$BUILD" --prefix "$WORK/first" >/dev/null
mv "$WORK/first" "$WORK/moved"
PREFIX="$WORK/moved"

# 1. No installed file, text or binary, names a folder of this build.
VENV="$("$PYTHON" -c 'import sys; print(sys.prefix)')"
PYBASE="$("$PYTHON" -c 'import sys; print(sys.base_prefix)')"
for path in "$SOURCE" "$BUILD" "$(realpath "$OPENUSD_ROOT")" "$VENV" "$PYBASE" "$WORK/first"; do
  if hits="$(grep -rlF -- "$path" "$PREFIX")"; then
    fail "installed files name $path: $hits"
  fi
done
[ -f "$PREFIX/lib/libgroomcore_usd.so" ] || fail "no libgroomcore_usd.so installed"
[ -f "$PREFIX/lib/groomcore/usd/resources/plugInfo.json" ] || fail "the exporter's plug-in file is not installed"

# 2. Core only: runs with an empty environment; neither OpenUSD nor Python is loaded.
cmake -S "$HERE/consumer" -B "$WORK/core" -DCMAKE_PREFIX_PATH="$PREFIX" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$WORK/core" >/dev/null
(cd "$WORK/core" && env -i ./consumer) || fail "the core consumer does not run without an environment"
deps="$(env -i ldd "$WORK/core/consumer")"
if grep -E "libPxr|libpython|libtbb|not found" <<<"$deps"; then
  fail "the core consumer loads OpenUSD or Python, or misses a library"
fi

# 3. USD: built against the moved package and OpenUSD found through GROOMCORE_OPENUSD_ROOT;
# run with only OpenUSD's library directory on the loader path (check_usd_export.py runs
# the driver with no other variable) and compared with usd-core's writer.
cmake -S "$HERE/usd_consumer" -B "$WORK/usd" -DCMAKE_PREFIX_PATH="$PREFIX" -DCMAKE_BUILD_TYPE=Release \
  -DGROOMCORE_OPENUSD_ROOT="$OPENUSD_ROOT" -DDRIVER_SOURCE="$SOURCE/tests/usd/usd_export_driver.cpp" >/dev/null
cmake --build "$WORK/usd" >/dev/null
GROOMCORE_DRIVER_LIBRARY_PATH="$OPENUSD_LIBDIR" "$PYTHON" "$SOURCE/tests/usd/check_usd_export.py" \
  "$WORK/usd/usd_consumer" curves_high_r1_normals curves_low_r05 feathers_deform_scheme4
# The USD readers from the moved package: a layer is read whole by the package's own
# helper first, which finds OpenUSD where the consumer did; a corrupt crate file that ends
# OpenUSD's reader is refused in one line, the consumer survives.
printf '#usda 1.0\ndef BasisCurves "guides" {\n  int[] curveVertexCounts = [2]\n  point3f[] points = [(0, 0, 0), (1, 0, 0)]\n}\n' \
  >"$WORK/guides.usda"
found="$(env -i LD_LIBRARY_PATH="$OPENUSD_LIBDIR" "$WORK/usd/usd_consumer" --curve-prims "$WORK/guides.usda")" ||
  fail "the moved package's USD reader cannot read a layer ($found)"
[ "$found" = "/guides" ] || fail "the moved package's USD reader found '$found', not /guides"
status=0
why="$(env -i LD_LIBRARY_PATH="$OPENUSD_LIBDIR" "$WORK/usd/usd_consumer" --curve-prims \
  "$SOURCE/tests/usd/resources/corrupt_crate.usdc" 2>&1)" || status=$?
[ "$status" = 1 ] && grep -q "is corrupt" <<<"$why" || fail "a corrupt crate file gave status $status: $why"
echo "install check: relocated package scanned clean; core consumer without OpenUSD or Python; USD consumer equal to usd-core; USD readers refuse a corrupt crate"
