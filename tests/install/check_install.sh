#!/usr/bin/env bash
# Installs groomcore from a build tree, moves the installed tree elsewhere (the package must
# be relocatable), then configures, builds and runs a consumer against the moved copy.
set -euo pipefail
BUILD="$1"
SRC="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
WORK="$(mktemp -d)"
trap 'rm -rf "$WORK"' EXIT
cmake --install "$BUILD" --prefix "$WORK/first" >/dev/null
mv "$WORK/first" "$WORK/moved"
cmake -S "$SRC/consumer" -B "$WORK/build" -DCMAKE_PREFIX_PATH="$WORK/moved" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$WORK/build" >/dev/null
cd "$WORK/build"
./consumer
