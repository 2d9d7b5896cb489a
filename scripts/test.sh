#!/usr/bin/env bash
# Sets everything up, builds, and runs the whole test suite: scripts/test.sh [preset]
# (release by default; asan runs the same suite under AddressSanitizer and UBSan, tsan
# under ThreadSanitizer).
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
PRESET="${1:-release}"
bash "$ROOT/scripts/setup.sh"
bash "$ROOT/scripts/build.sh" "$PRESET"
cd "$ROOT"
ctest --preset "$PRESET" -j "$(nproc)"
