#!/usr/bin/env bash
# Sets everything up, builds, and runs the example host on its built-in groom.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$ROOT/scripts/setup.sh"
bash "$ROOT/scripts/build.sh" release
"$ROOT/build/release/examples/groom_host" "$ROOT/out/example"
