#!/usr/bin/env bash
# Configures and builds one CMake preset (release by default): scripts/build.sh [preset]
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
PRESET="${1:-release}"
cd "$ROOT"
cmake --preset "$PRESET" >/dev/null
cmake --build --preset "$PRESET" -j "$(nproc)"
