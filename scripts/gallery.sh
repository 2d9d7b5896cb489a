#!/usr/bin/env bash
# Sets everything up, builds, and renders the modifier gallery into docs/gallery.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$ROOT/scripts/setup.sh"
bash "$ROOT/scripts/build.sh" release
"$ROOT/build/release/examples/gallery" "$ROOT/docs/gallery"
