#!/usr/bin/env bash
# The long soak run: bakes FRAMES frames (1000 by default) of STRANDS strands (100000),
# reads every frame back bit for bit and exports them to one USD file, watching resident
# memory. CI runs the short version (200 frames of 2,000 strands) as a test.
#   scripts/soak.sh [FRAMES [STRANDS]]
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$ROOT/scripts/setup.sh" >/dev/null
bash "$ROOT/scripts/build.sh" release >/dev/null
OUT="$(mktemp -d)"
trap 'rm -rf "$OUT"' EXIT
/usr/bin/time -v "$ROOT/build/release/tests/soak" "$OUT" "${1:-1000}" "${2:-100000}" 2> "$OUT/time.txt"
grep -E 'Elapsed|Maximum resident' "$OUT/time.txt"
