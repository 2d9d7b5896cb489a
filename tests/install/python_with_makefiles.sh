#!/usr/bin/env bash
# The Python module's build is not tied to Ninja (which pip's build uses): configured with
# CMake's Makefile generator, the generated docstring header builds into a folder that
# nothing else creates.
#   python_with_makefiles.sh SOURCE_DIR WORK_DIR PYTHON
set -euo pipefail
SRC="$1" WORK="$2" PY="$3"
rm -rf "$WORK"
cmake -S "$SRC" -B "$WORK" -G "Unix Makefiles" -DGROOMCORE_BUILD_PYTHON=ON -DGROOMCORE_BUILD_TESTS=OFF \
  -DGROOMCORE_BUILD_BENCHMARKS=OFF -DGROOMCORE_BUILD_EXAMPLES=OFF -DPython_EXECUTABLE="$PY" >/dev/null
cmake --build "$WORK" --target groomcore_docstrings
grep -q '"ZFollicles.uid"' "$WORK/python/gen/docstrings.h"
rm -rf "$WORK"
echo "docstrings built with the Makefile generator"
