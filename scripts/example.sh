#!/usr/bin/env bash
# Sets everything up, builds, and runs the example host on its built-in groom.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$ROOT/scripts/setup.sh"
bash "$ROOT/scripts/build.sh" release
OUT="$ROOT/out/example"
mkdir -p "$OUT"
# The body and a source as Alembic files, written by the real Alembic library (alembic3d):
# the host's own body exported raw, then written with animation's conventions.
"$ROOT/build/release/examples/groom_host" "$OUT" --export-body "$OUT/body.raw"
"$ROOT/.venv/bin/python" "$ROOT/examples/write_example_abc.py" "$OUT/body.raw" "$OUT/body.abc" "$OUT/leaf.abc"
"$ROOT/build/release/examples/groom_host" "$OUT" 5000 "$OUT/body.abc" "$OUT/leaf.abc"
# The same job through the Python package (examples/groom.py), with its strand statistics.
"$ROOT/.venv/bin/python" "$ROOT/examples/groom.py" "$OUT/python" --strands 5000 --body "$OUT/body.abc" \
  --source "$OUT/leaf.abc" --figure "$OUT/python/strand_statistics.png"
