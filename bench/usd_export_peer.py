"""The peer of the USD benchmark: the same curves export written with usd-core's Usd and
UsdGeom Python API, the calls the exporter's design names, from the raw arrays bench_usd
wrote (RAW_DIR/attributes.raw and RAW_DIR/points.N.raw):

    usd_export_peer.py RAW_DIR FRAMES OUT_DIR

The attribute half once, then the geometry half for frames 1..FRAMES, into one file with
a frame range and into per-frame files. Prints one JSON line: seconds per frame spent in
the USD calls (reading the raw arrays is not counted), the first and last frame of the one
file, this process's resident and peak memory, and bytes on disk.
"""

import json
import os
import sys
import time

import numpy as np
from pxr import Sdf, Usd, UsdGeom, Vt


def status_mib(key):
    for line in open("/proc/self/status"):
        if line.startswith(key):
            return float(line.split()[1]) / 1024.0
    return 0.0


def read_attributes(raw_dir):
    raw = open(os.path.join(raw_dir, "attributes.raw"), "rb").read()
    n, nw, _, _ = np.frombuffer(raw[:16], dtype=np.int32)
    at = 16
    counts = np.frombuffer(raw[at : at + 4 * n], dtype=np.int32)
    at += 4 * n
    widths = np.frombuffer(raw[at : at + 4 * nw], dtype=np.float32)
    at += 4 * nw
    uids = np.frombuffer(raw[at : at + 4 * n], dtype=np.float32)
    at += 4 * n
    st = np.frombuffer(raw[at : at + 8 * n], dtype=np.float32).reshape(-1, 2)
    return counts, widths, uids, st


def read_points(raw_dir, frame):
    raw = open(os.path.join(raw_dir, f"points.{frame}.raw"), "rb").read()
    (count,) = np.frombuffer(raw[:4], dtype=np.int32)
    points = np.frombuffer(raw[4 : 4 + 12 * count], dtype=np.float32).reshape(-1, 3)
    box = np.frombuffer(raw[4 + 12 * count : 4 + 12 * count + 24], dtype=np.float32).reshape(2, 3)
    return points, box


def attribute_half(path, attrs):
    counts, widths, uids, st = attrs
    layer = Sdf.Layer.FindOrOpen(path) or Sdf.Layer.CreateNew(path)
    layer.Clear()
    stage = Usd.Stage.Open(layer, Usd.Stage.LoadAll)
    stage.DefinePrim("/")
    prim = stage.DefinePrim("/hair", "BasisCurves")
    stage.SetDefaultPrim(prim)
    c = UsdGeom.BasisCurves(prim)
    c.CreateBasisAttr(UsdGeom.Tokens.catmullRom, False)
    cvc = c.CreateCurveVertexCountsAttr(None, False)
    w = c.CreateWidthsAttr(None, False)
    c.SetWidthsInterpolation(UsdGeom.Tokens.vertex)
    pv = UsdGeom.PrimvarsAPI(prim)
    pu = pv.CreatePrimvar("uids", Sdf.ValueTypeNames.FloatArray)
    ps = pv.CreatePrimvar("st", Sdf.ValueTypeNames.Float2Array)
    pu.Set(Vt.FloatArray.FromNumpy(uids))
    pu.SetInterpolation(UsdGeom.Tokens.uniform)
    ps.Set(Vt.Vec2fArray.FromNumpy(np.ascontiguousarray(st)))
    ps.SetInterpolation(UsdGeom.Tokens.uniform)
    cvc.Set(Vt.IntArray.FromNumpy(counts))
    w.Set(Vt.FloatArray.FromNumpy(widths))
    stage.Save()
    return layer


def geometry_half(path, frame, points, box, per_frame, frames):
    layer = Sdf.Layer.FindOrOpen(path) or Sdf.Layer.CreateNew(path)
    stage = Usd.Stage.Open(layer, Usd.Stage.LoadAll)
    if per_frame:
        layer.Clear()
        stage.SetStartTimeCode(frame)
        stage.SetEndTimeCode(frame)
    else:
        stage.SetStartTimeCode(1)
        stage.SetEndTimeCode(frames)
    stage.DefinePrim("/")
    prim = stage.DefinePrim("/hair", "BasisCurves")
    stage.SetDefaultPrim(prim)
    c = UsdGeom.BasisCurves(prim)
    t = Usd.TimeCode(frame)
    c.CreateExtentAttr(None, False).Set(Vt.Vec3fArray.FromNumpy(np.ascontiguousarray(box)), t)
    c.CreatePointsAttr(None, False).Set(Vt.Vec3fArray.FromNumpy(np.ascontiguousarray(points)), t)
    stage.Save()
    return layer


def main():
    raw_dir, frames, out = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    os.makedirs(out, exist_ok=True)
    attrs = read_attributes(raw_dir)
    result = {}
    for per_frame in (False, True):
        total, first, last, rss_first = 0.0, 0.0, 0.0, 0.0
        keep = []
        t0 = time.perf_counter()
        name = os.path.join(out, "hair.high_geom.0000.usd" if per_frame else "hair.high_geom.usd")
        keep.append(attribute_half(name, attrs))
        for frame in range(1, frames + 1):
            points, box = read_points(raw_dir, frame)
            path = os.path.join(out, f"hair.high_geom.{frame:04d}.usd") if per_frame else name
            t0 = time.perf_counter()
            layer = geometry_half(path, frame, points, box, per_frame, frames)
            s = time.perf_counter() - t0
            keep[-1:] = [layer]  # the exporter keeps only the layer of its last call
            total += s
            if frame == 1:
                first, rss_first = s, status_mib("VmRSS:")
            last = s
        size = sum(os.path.getsize(os.path.join(out, f)) for f in os.listdir(out))
        key = "per_frame" if per_frame else "one_file"
        result[key + "_s_per_frame"] = total / frames
        result[key + "_bytes"] = size
        if not per_frame:
            result.update(
                one_file_first_s=first, one_file_last_s=last, rss_first_MiB=rss_first, rss_last_MiB=status_mib("VmRSS:")
            )
        del keep, layer
        for f in os.listdir(out):
            os.remove(os.path.join(out, f))
    result["peak_MiB"] = status_mib("VmHWM:")
    print(json.dumps(result))


if __name__ == "__main__":
    main()
