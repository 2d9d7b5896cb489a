#!/usr/bin/env bash
# Builds the Blender extension: blender/groomcore_blender with the groomcore wheel that
# scripts/setup.sh builds, zipped as build/blender/groomcore-VERSION.zip, which Blender
# installs with its own extension command (Preferences > Get Extensions > Install from
# Disk, or bpy.ops.extensions.package_install_files). Prints the zip's path.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$ROOT/scripts/setup.sh" >&2
wheel="$(ls "$ROOT"/build/wheel/groomcore-*.whl | head -1)"
"$ROOT/.venv/bin/python" - "$ROOT/blender/groomcore_blender" "$wheel" "$ROOT/build/blender" <<'PY'
import re
import sys
import zipfile
from pathlib import Path

source, wheel, out = Path(sys.argv[1]), Path(sys.argv[2]), Path(sys.argv[3])
manifest = (source / "blender_manifest.toml").read_text().replace("WHEEL_FILE", wheel.name)
version = re.search(r'^version = "([^"]+)"', manifest, re.M).group(1)
out.mkdir(parents=True, exist_ok=True)
target = out / f"groomcore-{version}.zip"
staged = target.with_suffix(".zip.partial")
with zipfile.ZipFile(staged, "w", zipfile.ZIP_DEFLATED) as z:
    z.writestr("blender_manifest.toml", manifest)
    for f in sorted(source.rglob("*.py")):
        z.write(f, f.relative_to(source).as_posix())
    z.write(wheel, f"wheels/{wheel.name}")
staged.replace(target)
print(target)
PY
