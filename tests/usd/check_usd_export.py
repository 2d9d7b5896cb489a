"""Every export scenario written twice, by groomcore's exporter (usd_export_driver, on the
Sdf layer API) and by the reference writer on usd-core's Usd/UsdGeom, then compared layer
by layer: layer metadata, every prim's specifier and type, every property's type name,
variability, custom flag, metadata, default value and time samples (floats bit for bit),
and no property or prim on one side only. Every exported file must also pass usd-core's
compliance checker.

The driver runs on its own OpenUSD alone: its environment holds nothing of this process
(whose usd-core is another OpenUSD release), only the sanitizers' settings and, when
GROOMCORE_DRIVER_LIBRARY_PATH is set, that loader path. Every plug-in file it reads is
checked to lie outside usd-core's package.

    check_usd_export.py DRIVER [SCENARIO ...]
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile

import numpy as np
import pxr
from pxr import Sdf, Usd, UsdValidation

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import usd_reference_writer  # noqa: E402
from usd_scenarios import feather, inputs, write_inputs  # noqa: E402


def ops(*lines):
    return "\n".join(lines) + "\n"


def curves_detail(high, ratio, normals, n):
    return (
        inputs(n),
        ops(
            "set name ns:hair",
            "set perFrameFiles 1",
            f"set writeNormals {normals:d}",
            f"set exportRatio {ratio}",
            f"attr {high:d}",
            f"geom 1001 {high:d} 0",
        ),
    )


SCENARIOS = {
    # Curves at both levels of detail, ratios 1 and 0.5, normals on and off; 1,200 strands
    # put "low" over its threshold, 150 under it.
    "curves_high_r1_normals": curves_detail(1, 1, 1, 1200),
    "curves_high_r05": curves_detail(1, 0.5, 0, 1200),
    "curves_low_r1_normals": curves_detail(0, 1, 1, 1200),
    "curves_low_r05": curves_detail(0, 0.5, 0, 1200),
    "curves_low_under_threshold": curves_detail(0, 1, 1, 150),
    # Exactly 1,000 strands: "low" takes the larger step from 1,000 on.
    "curves_low_at_threshold": curves_detail(0, 1, 0, 1000),
    # One file gathering ten times over a frame range, the strands moving.
    "curves_frame_range": (
        inputs(40),
        ops(
            "set name hair",
            "set hasFrameRange 1",
            "set startTime 1",
            "set endTime 10",
            "set writeNormals 1",
            "attr 1",
            *[line for f in range(1, 11) for line in ("move 0.1 0 -0.05", f"geom {f} 1 0")],
        ),
    ),
    # No flags: each geometry call overwrites the one default value.
    "curves_default_time_overwrite": (
        inputs(40),
        ops("set name hair", "attr 0", "geom 1 1 0", "move 1 2 3", "geom 2 1 0"),
    ),
    # Per-frame files: whole, fractional and sub-frame times at both details, and frame 0,
    # whose geometry file is the attribute file and clears it.
    "curves_per_frame_times": (
        inputs(30),
        ops(
            "set name hair",
            "set perFrameFiles 1",
            "attr 1",
            "attr 0",
            "geom 1001 1 0",
            "geom 12.5 1 0",
            "geom 12.5 0 0",
            "geom 12.6 0 0",
            "geom 12 1 1",
            "geom 12 0 1",
            "geom -3.5 1 0",
            "geom 0 1 0",
        ),
    ),
    # Attributes written after geometry into the one file wipe the geometry.
    "curves_attr_after_geom": (
        inputs(30),
        ops("set name hair", "set hasFrameRange 1", "set startTime 1", "set endTime 2", "geom 1 1 0", "attr 1"),
    ),
    # Feathers: kinds with a mesh only, curves only, both; kind 3 that no strand carries
    # (rtp runs 0, 1, 2); texture attributes on some; namespaces in every name.
    "feathers_rigid": (
        inputs(
            60,
            [
                feather("ns:vane", curves=False),
                feather("ns:barbs", mesh=False, tex=False),
                feather("full"),
                feather("ns:lost"),
            ],
        ),
        ops(
            "set name ns:plumage",
            "set featherMode 1",
            "set bindingScheme 0",
            "set perFrameFiles 1",
            "attr 1",
            "geom 1001 1 0",
            "attr 0",
            "geom 1001 0 0",
        ),
    ),
    "feathers_deform_scheme4": (
        inputs(60, [feather("full"), feather("vane", curves=False, tex=False), feather("barbs", mesh=False)]),
        ops(
            "set name plumage",
            "set featherMode 1",
            "set bindingScheme 4",
            "set hasFrameRange 1",
            "set startTime 1",
            "set endTime 3",
            "set exportRatio 0.5",
            "attr 1",
            "geom 1 1 0",
            "move 0 0.2 0",
            "geom 2 1 0",
            "move 0 0.2 0",
            "geom 3 1 0",
        ),
    ),
    "feathers_deform_scheme6": (
        inputs(60, [feather("full"), feather("ns:barbs", mesh=False)]),
        ops(
            "set name plumage",
            "set featherMode 1",
            "set bindingScheme 6",
            "set perFrameFiles 1",
            "attr 1",
            "geom 7 1 0",
            "attr 0",
            "geom 7 0 0",
        ),
    ),
    # Mesh-less kinds before and after a meshed one: none in front of it, an empty Mesh
    # behind it in the geometry half, none in the attribute half.
    "feathers_meshless_order": (
        inputs(30, [feather("barbsA", mesh=False), feather("full"), feather("barbsB", mesh=False)]),
        ops("set name plumage", "set featherMode 1", "set bindingScheme 0", "attr 1", "geom 5 1 0"),
    ),
    "feathers_none": (
        inputs(10, []),
        ops("set name plumage", "set featherMode 1", "set perFrameFiles 1", "attr 1", "geom 1 1 0"),
    ),
}


def values_equal(a, b):
    if type(a) is not type(b):
        return False
    try:
        x, y = np.asarray(a), np.asarray(b)
        if x.dtype.kind in "fc" or y.dtype.kind in "fc":
            return x.shape == y.shape and x.dtype == y.dtype and x.tobytes() == y.tobytes()
    except Exception:
        pass
    return a == b


def compare_layers(ours_path, ref_path):
    """Differences between two layers, as readable lines; empty when they hold the same."""
    ours, ref = Sdf.Layer.OpenAsAnonymous(ours_path), Sdf.Layer.OpenAsAnonymous(ref_path)
    diffs = []
    for key in ("defaultPrim", "startTimeCode", "endTimeCode"):
        a, b = (
            ours.pseudoRoot.GetInfo(key) if ours.pseudoRoot.HasInfo(key) else None,
            ref.pseudoRoot.GetInfo(key) if ref.pseudoRoot.HasInfo(key) else None,
        )
        if a != b:
            diffs.append(f"layer {key}: {a!r} vs {b!r}")

    def specs(layer):
        paths = []
        layer.Traverse(Sdf.Path.absoluteRootPath, paths.append)
        return {str(p): p for p in paths if p != Sdf.Path.absoluteRootPath}

    mine, theirs = specs(ours), specs(ref)
    for p in sorted(set(mine) ^ set(theirs)):
        diffs.append("{} only in {}".format(p, "ours" if p in mine else "reference"))
    for p in sorted(set(mine) & set(theirs)):
        a, b = ours.GetObjectAtPath(mine[p]), ref.GetObjectAtPath(theirs[p])
        keys = set(a.ListInfoKeys()) | set(b.ListInfoKeys())
        for key in sorted(keys):
            if key in ("timeSamples",):
                continue
            va = a.GetInfo(key) if a.HasInfo(key) else None
            vb = b.GetInfo(key) if b.HasInfo(key) else None
            if not values_equal(va, vb):
                diffs.append(f"{p} {key}: {str(va)[:120]} vs {str(vb)[:120]}")
        if isinstance(a, Sdf.AttributeSpec):
            ta, tb = ours.ListTimeSamplesForPath(mine[p]), ref.ListTimeSamplesForPath(theirs[p])
            if list(ta) != list(tb):
                diffs.append(f"{p} time samples at {list(ta)} vs {list(tb)}")
            else:
                for t in ta:
                    if not values_equal(ours.QueryTimeSample(mine[p], t), ref.QueryTimeSample(theirs[p], t)):
                        diffs.append(f"{p} sample at {t} differs")
    return diffs


# The exporter authors no stage units or up axis on purpose: the host's scene, which references these
# files, carries them. The one validator that asks for them on every layer is expected to
# report exactly that, and nothing else.
BY_DESIGN = ("usdGeomValidators:StageMetadataChecker", "usdValidation:StageMetadataChecker")


def validation_errors(path):
    """usd-core's validators (the successor of the compliance checker and usdchecker) on
    one file, less the stage-metadata findings accepted on purpose."""
    validators = UsdValidation.ValidationRegistry().GetOrLoadAllValidators()
    stage = Usd.Stage.Open(path)
    errors = UsdValidation.ValidationContext(validators).Validate(stage)
    out = []
    for e in errors:
        name = e.GetValidator().GetMetadata().name if e.GetValidator() else e.GetName()
        if name in BY_DESIGN and ("metersPerUnit" in e.GetMessage() or "upAxis" in e.GetMessage()):
            continue
        out.append(f"{name}: {e.GetMessage()}")
    return out


def driver_env():
    env = {k: v for k, v in os.environ.items() if re.fullmatch(r"(ASAN|LSAN|UBSAN|TSAN|ARCHER)_OPTIONS|OMP_.*", k)}
    env["TF_DEBUG"] = "PLUG_INFO_SEARCH"
    if os.environ.get("GROOMCORE_DRIVER_LIBRARY_PATH"):
        env["LD_LIBRARY_PATH"] = os.environ["GROOMCORE_DRIVER_LIBRARY_PATH"]
    return env


def plugin_problems(log):
    """The plug-in files the driver read: at least Sdf's, none of usd-core's."""
    read = re.findall(r"Will read plugin info (\S+)", log)
    usd_core = os.path.realpath(os.path.dirname(pxr.__file__)) + os.sep
    problems = [
        "the driver read plug-in information of usd-core: " + p
        for p in read
        if os.path.realpath(p).startswith(usd_core)
    ]
    if not any(p.endswith("/sdf/resources/plugInfo.json") for p in read):
        problems.append(f"the driver found no plug-in information for Sdf: {read}")
    return problems


def run(driver, name, data, script):
    work = tempfile.mkdtemp(prefix=f"groomcore-usd-{name}-")
    write_inputs(os.path.join(work, "inputs.bin"), data)
    with open(os.path.join(work, "ops.txt"), "w") as f:
        f.write(script)
    for side in ("ours", "ref"):
        os.makedirs(os.path.join(work, side))
    done = subprocess.run(
        [driver, os.path.join(work, "inputs.bin"), os.path.join(work, "ops.txt"), os.path.join(work, "ours", "hair")],
        env=driver_env(),
        check=True,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
    )
    problems = plugin_problems(done.stdout)
    problems += [line for line in done.stdout.splitlines() if "Error" in line or "ZCurvesToUSD:" in line]
    # The reference reads the driver's placements of deformed feathers from its own side.
    for f in os.listdir(os.path.join(work, "ours")):
        if ".placed." in f:
            os.link(os.path.join(work, "ours", f), os.path.join(work, "ref", f))
    usd_reference_writer.run(
        os.path.join(work, "inputs.bin"), os.path.join(work, "ops.txt"), os.path.join(work, "ref", "hair")
    )
    ours = sorted(f for f in os.listdir(os.path.join(work, "ours")) if f.endswith(".usd"))
    ref = sorted(f for f in os.listdir(os.path.join(work, "ref")) if f.endswith(".usd"))
    if ours != ref:
        problems.append(f"files differ: {ours} vs {ref}")
    for f in sorted(set(ours) & set(ref)):
        for d in compare_layers(os.path.join(work, "ours", f), os.path.join(work, "ref", f)):
            problems.append(f"{f}: {d}")
        for e in validation_errors(os.path.join(work, "ours", f)):
            problems.append(f"{f}: validation: {e}")
    if problems:
        problems.append("files kept in " + work)
    else:
        shutil.rmtree(work, ignore_errors=True)
    return ours, problems


def main():
    driver = sys.argv[1]
    names = sys.argv[2:] or list(SCENARIOS)
    failed = 0
    for name in names:
        data, script = SCENARIOS[name]
        files, problems = run(driver, name, data, script)
        status = "ok" if not problems else "FAILED"
        print(f"{name:<32} {status} ({len(files)} files)")
        for p in problems[:25]:
            print("    " + p)
        failed += bool(problems)
    print(f"{len(names) - failed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
