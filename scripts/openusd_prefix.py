"""Lays out the project's own OpenUSD (the pxr-*-dev wheels installed with ``pip --target``)
so that it runs on its own plug-in information, with no usd-core beside it.

The wheels keep each module in a folder of its own (``pxr-sdf/lib``, ``pxr-sdf/pluginfo``,
``pxr-sdf/cmake``), but their ``libPxrPlug.so`` searches ``../../pxr/pluginfo/*/resources/``
relative to itself: in a Python environment that is usd-core's ``site-packages/pxr``,
whose plug-in files belong to another OpenUSD release and name other library files. This
script gives the prefix that folder itself:

    PREFIX/pxr/lib/         every OpenUSD and TBB library of the prefix (relative links)
    PREFIX/pxr/pluginfo/    the modules' plugInfo.json, naming the libraries in pxr/lib

A process that loads OpenUSD from PREFIX/pxr/lib (the one directory a consumer puts on its
loader path) finds libPxrPlug.so there, so the registry reads PREFIX/pxr/pluginfo and
every library a plug-in names is the file already loaded. The wheels' CMake configs are
left as they are and still find their libraries through the links.

    openusd_prefix.py PREFIX
"""

from __future__ import annotations

import json
import os
import sys
from pathlib import Path


def module_dirs(prefix: Path) -> list[Path]:
    return sorted(p for p in prefix.iterdir() if p.is_dir() and (p.name.startswith("pxr-") or p.name == "TBB"))


def link_libraries(prefix: Path, libdir: Path) -> list[str]:
    names = []
    for module in module_dirs(prefix):
        lib = module / "lib"
        if not lib.is_dir():
            continue
        for so in sorted(lib.iterdir()):
            if so.is_file() and ".so" in so.name:
                target = libdir / so.name
                if target.is_symlink() or target.exists():
                    target.unlink()
                target.symlink_to(os.path.relpath(so, libdir))
                names.append(so.name)
    return names


def write_plug_info(prefix: Path, pluginfo: Path, libraries: set[str]) -> list[str]:
    """Copies each module's plugInfo.json, pointing LibraryPath at PREFIX/pxr/lib."""
    written = []
    for module in module_dirs(prefix):
        for source in sorted((module / "pluginfo").glob("*/resources/plugInfo.json")):
            info = json.loads(source.read_text())
            for plugin in info.get("Plugins", []):
                if plugin.get("Type") == "library":
                    name = Path(plugin["LibraryPath"]).name
                    if name not in libraries:
                        raise SystemExit(f"openusd_prefix: {source} names {name}, which the prefix does not hold")
                    # The plug-in's root is pluginfo/NAME; pxr/lib is two folders up.
                    plugin["Root"] = ".."
                    plugin["LibraryPath"] = f"../../lib/{name}"
            target = pluginfo / source.parent.parent.name / "resources" / "plugInfo.json"
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_text(json.dumps(info, indent=4, sort_keys=True) + "\n")
            written.append(str(target.relative_to(prefix)))
    return written


def main(argv: list[str]) -> int:
    if len(argv) != 2:
        print("usage: openusd_prefix.py PREFIX", file=sys.stderr)
        return 2
    prefix = Path(argv[1]).resolve()
    if not (prefix / "pxr-plug" / "lib" / "libPxrPlug.so").is_file():
        print(f"openusd_prefix: {prefix} holds no pxr-plug wheel", file=sys.stderr)
        return 1
    libdir = prefix / "pxr" / "lib"
    libdir.mkdir(parents=True, exist_ok=True)
    libraries = set(link_libraries(prefix, libdir))
    infos = write_plug_info(prefix, prefix / "pxr" / "pluginfo", libraries)
    print(f"openusd_prefix: {len(libraries)} libraries in pxr/lib, plug-in files {', '.join(infos)}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
