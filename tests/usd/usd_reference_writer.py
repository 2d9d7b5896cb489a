"""The export written with the real USD API (usd-core's Usd and UsdGeom), call for call as
the exporter's design gives it, from the same inputs and op script as usd_export_driver:

    usd_reference_writer.py INPUTS OPS BASEPATH

Feathers placed along their strand (binding schemes 4 and 6) come from the driver's
BASEPATH.placed.N files, computed by ZFeather::deform: the placement is the library's,
what is authored from it is under test here. Rigid placement is computed here, in float32
with the C library's cosf and sinf, in the documented order of operations.
"""

import ctypes
import sys

import numpy as np
from pxr import Sdf, Usd, UsdGeom, Vt
from usd_scenarios import read_inputs, read_ops, set_field

_libm = ctypes.CDLL("libm.so.6")
_libm.cosf.restype = ctypes.c_float
_libm.cosf.argtypes = [ctypes.c_float]
_libm.sinf.restype = ctypes.c_float
_libm.sinf.argtypes = [ctypes.c_float]
F = np.float32


def cosf(x):
    return F(_libm.cosf(float(x)))


def sinf(x):
    return F(_libm.sinf(float(x)))


class Feather:
    def __init__(self, d, k):
        p = f"feather.{k}."
        self.name = d[p + "name"]
        self.points = d[p + "points"].reshape(-1, 3)
        self.v012 = d[p + "v012"].reshape(-1, 3)
        self.uvs = d[p + "uvs"].reshape(-1, 3)
        self.numCVs = d[p + "numCVs"]
        self.cvs = d[p + "cvs"].reshape(-1, 3)
        self.txLayerName = d[p + "txLayerName"]
        self.txBasePath = d[p + "txBasePath"]
        self.MaterialSet = d[p + "MaterialSet"]
        self.txmultiUV = int(d[p + "txmultiUV"][0])

    def has_mesh(self):
        return len(self.points) > 0 and len(self.v012) > 0

    def has_curves(self):
        return len(self.numCVs) > 0 and len(self.cvs) > 0


def remove_namespace(name):
    pieces = [p for p in name.split(":") if p]
    if len(pieces) == 1:
        return name
    return pieces[1] if len(pieces) > 1 else name


def sample_step(dividend, ratio):
    return int(F(dividend) / F(ratio))


class Exporter:
    def __init__(self, d, base):
        self.d = d
        self.basePath = base
        self.name = ""
        self.suffix = ".usd"
        self.kind = "geom"
        self.writeNormals = self.perFrameFiles = self.featherMode = self.hasFrameRange = False
        self.startTime = self.endTime = 0.0
        self.exportRatio = 1.0
        self.bindingScheme = 0
        self.high = False
        self.time = 0.0
        self.stage = None
        self.layer = None
        self.cvs = d["cvs"].reshape(-1, 3).copy()
        self.numCVs = d["numCVs"]
        self.start = np.concatenate([[0], np.cumsum(self.numCVs)[:-1]]).astype(np.int64)
        self.rtp = d["rtp"]
        self.uvw = d["uvw"].reshape(-1, 3)
        self.rwh, self.twh = d["rwh"], d["twh"]
        self.axs = d["axs"].reshape(-1, 4, 3).copy()
        self.box = d["box"].reshape(2, 3).copy()
        self.scales = d["scales"].reshape(-1, 3)
        self.rotations = d["rotations"].reshape(-1, 3)
        self.folds = d["folds"]
        n = int(d["feather.count"][0]) if "feather.count" in d else 0
        self.feathers = [Feather(d, k) for k in range(n)]
        self.placed = None

    # ------------------------------------------------------------------ frame
    def file_name(self, fmt, *time):
        detail = "high" if self.high else "low"
        return fmt % ((self.basePath, detail, self.kind) + time + (self.suffix,))

    def open_layer(self, path):
        layer = Sdf.Layer.FindOrOpen(path)
        if not layer:
            layer = Sdf.Layer.CreateNew(path)
        return layer

    def write_geometry(self, time, high, sub_frame):
        self.high = high
        time = F(time)
        if not self.perFrameFiles:
            path = self.file_name("%s.%s_%s%s")
        else:
            fractional = F(time - np.trunc(time)) > 0
            if (fractional or sub_frame) and high:
                path = self.file_name("%s.%s_%s.%04.2f%s", float(time))
            else:
                path = self.file_name("%s.%s_%s.%04.f%s", float(time))
        layer = self.open_layer(path)
        self.time = time
        self.stage = Usd.Stage.Open(layer, Usd.Stage.LoadAll)
        if self.perFrameFiles:
            layer.Clear()
            self.stage.SetStartTimeCode(float(time))
            self.stage.SetEndTimeCode(float(time))
        elif self.hasFrameRange:
            self.stage.SetStartTimeCode(float(F(self.startTime)))
            self.stage.SetEndTimeCode(float(F(self.endTime)))
        if self.featherMode:
            self.write_geometry_to_feather()
        else:
            self.write_geometry_to_curve()
        self.stage.Save()
        self.layer = layer

    def write_attribute(self, high):
        self.high = high
        path = self.file_name("%s.%s_%s.0000%s") if self.perFrameFiles else self.file_name("%s.%s_%s%s")
        layer = self.open_layer(path)
        layer.Clear()
        self.stage = Usd.Stage.Open(layer, Usd.Stage.LoadAll)
        if self.featherMode:
            self.write_attribute_to_feather()
        else:
            self.write_attribute_to_curve()
        self.stage.Save()
        self.layer = layer

    def geometry_time(self):
        return Usd.TimeCode(float(self.time)) if (self.perFrameFiles or self.hasFrameRange) else Usd.TimeCode.Default()

    def begin(self, type_name):
        self.stage.DefinePrim("/")
        self.name = remove_namespace(self.name)
        prim = self.stage.DefinePrim("/" + self.name, type_name)
        self.stage.SetDefaultPrim(prim)
        return prim

    # ------------------------------------------------------------------ curves
    def curve_step(self, n):
        if self.high:
            return sample_step(1, self.exportRatio)
        return sample_step(100 if n < 1000 else 1000, self.exportRatio)

    def selected(self, n, s):
        m = n // s
        i = j = 0
        while j < m and i < n:
            yield i
            i += s
            j += 1

    def write_geometry_to_curve(self):
        prim = self.begin("BasisCurves")
        curves = UsdGeom.BasisCurves(prim)
        n = len(self.numCVs)
        pts, nrm = [], []
        for i in self.selected(n, self.curve_step(n)):
            c, f = int(self.numCVs[i]), int(self.start[i])
            if c > 0:
                pts.append(self.cvs[f : f + 1])
                pts.append(self.cvs[f : f + c])
                pts.append(self.cvs[f + c - 1 : f + c])
            nrm.append(self.axs[i, 3])
        t = self.geometry_time()
        curves.CreateExtentAttr(None, False).Set(Vt.Vec3fArray.FromNumpy(self.box.astype(F)), t)
        curves.CreatePointsAttr(None, False).Set(vec3(pts), t)
        if self.writeNormals:
            normals = curves.CreateNormalsAttr(None, False)
            curves.SetNormalsInterpolation(UsdGeom.Tokens.uniform)
            normals.Set(vec3([np.array(nrm, dtype=F).reshape(-1, 3)]), t)

    def write_attribute_to_curve(self):
        prim = self.begin("BasisCurves")
        curves = UsdGeom.BasisCurves(prim)
        n = len(self.numCVs)
        counts, widths, uids, st = [], [], [], []
        for i in self.selected(n, self.curve_step(n)):
            c = int(self.numCVs[i])
            counts.append(c + 2)
            uids.append(F(i))
            st.append((self.uvw[i, 0], self.uvw[i, 1]))
            r, t = F(self.rwh[i]), F(self.twh[i])
            widths.append(r)
            with np.errstate(all="ignore"):
                for k in range(c):
                    widths.append(F(t + F(F(r - t) * F(F(1) - F(F(k) / F(c - 1))))))
            widths.append(t)
        curves.CreateBasisAttr(UsdGeom.Tokens.catmullRom, False)
        cvc = curves.CreateCurveVertexCountsAttr(None, False)
        w = curves.CreateWidthsAttr(None, False)
        curves.SetWidthsInterpolation(UsdGeom.Tokens.vertex)
        if self.writeNormals:
            curves.CreateNormalsAttr(None, False)
            curves.SetNormalsInterpolation(UsdGeom.Tokens.uniform)
        pv = UsdGeom.PrimvarsAPI(prim)
        puids = pv.CreatePrimvar("uids", Sdf.ValueTypeNames.FloatArray)
        pst = pv.CreatePrimvar("st", Sdf.ValueTypeNames.Float2Array)
        puids.Set(Vt.FloatArray.FromNumpy(np.array(uids, dtype=F)))
        puids.SetInterpolation(UsdGeom.Tokens.uniform)
        pst.Set(vec2(st))
        pst.SetInterpolation(UsdGeom.Tokens.uniform)
        cvc.Set(Vt.IntArray(counts))
        w.Set(Vt.FloatArray.FromNumpy(np.array(widths, dtype=F)))

    # ------------------------------------------------------------------ feathers
    def feather_of(self, i):
        k = int(self.rtp[i])
        return self.feathers[k] if 0 <= k < len(self.feathers) else None

    def mesh_step(self, n):
        if self.high:
            return sample_step(1, self.exportRatio)
        return sample_step(10 if n < 100 else 100, self.exportRatio)

    def feather_curve_step(self, n):
        if self.high:
            return 1
        return sample_step(10 if n < 100 else 100, self.exportRatio)

    def rigid(self, i, p):
        k = F(0.017453292)
        rx, ry, rz = (F(a) * k for a in self.rotations[i])
        cx, sx, cy, sy, cz, sz = cosf(rx), sinf(rx), cosf(ry), sinf(ry), cosf(rz), sinf(rz)
        m = [
            [F(cy * cz), F(F(F(sx * sy) * cz) - F(cx * sz)), F(F(F(cx * sy) * cz) + F(sx * sz))],
            [F(cy * sz), F(F(F(sx * sy) * sz) + F(cx * cz)), F(F(F(cx * sy) * sz) - F(sx * cz))],
            [F(-sy), F(sx * cy), F(cx * cy)],
        ]
        out = np.empty_like(p)
        x, y, z = (p[:, 0] * self.scales[i, 0], p[:, 1] * self.scales[i, 1], p[:, 2] * self.scales[i, 2])
        for r in range(3):
            out[:, r] = ((m[r][0] * x + m[r][1] * y) + m[r][2] * z) + self.axs[i, 0, r]
        return out

    def deformed(self, i):
        """The driver's ZFeather::deform results for strand i: (mesh points, curve CVs)."""
        return self.placed[i]

    def load_placed(self, call):
        self.placed = {}
        if self.bindingScheme not in (4, 6):
            return
        raw = np.fromfile(f"{self.basePath}.placed.{call}", dtype=F).reshape(-1, 3)
        at = 0
        for i in range(len(self.rtp)):
            fe = self.feather_of(i)
            if fe is None:
                continue
            nm, nc = len(fe.points), len(fe.cvs)
            self.placed[i] = (raw[at : at + nm], raw[at + nm : at + nm + nc])
            at += nm + nc

    def write_geometry_to_feather(self):
        prim = self.begin("Xform")
        if not self.feathers:
            return
        t = self.geometry_time()
        n = len(self.rtp)
        follow = self.bindingScheme in (4, 6)
        any_mesh = any_curves = False
        for f, fe in enumerate(self.feathers):
            if not any_mesh and fe.has_mesh():
                any_mesh = True
            if not any_curves and fe.has_curves():
                any_curves = True
            if not any_mesh:
                continue
            fe.name = remove_namespace(fe.name)
            mesh = UsdGeom.Mesh.Define(self.stage, prim.GetPath().AppendChild(fe.name))
            extent = mesh.CreateExtentAttr(None, False)
            points = mesh.CreatePointsAttr(None, False)
            s = self.mesh_step(n)
            pts = []
            for i in range(0, n, s):
                if int(self.rtp[i]) != f or not fe.has_mesh():
                    continue
                pts.append(self.deformed(i)[0] if follow else self.rigid(i, fe.points))
            points.Set(vec3(pts), t)
            at = Usd.TimeCode(0.0) if t.IsDefault() else t
            extent.Set(UsdGeom.Boundable.ComputeExtentFromPlugins(mesh, at), t)
        if not any_curves:
            return
        curves = UsdGeom.BasisCurves.Define(self.stage, prim.GetPath().AppendChild(self.name + "_combine_curves"))
        points = curves.CreatePointsAttr(None, False)
        extent = curves.CreateExtentAttr(None, False)
        pts = []
        for i in range(0, n, self.feather_curve_step(n)):
            fe = self.feather_of(i)
            if fe is None or not fe.has_curves():
                continue
            cvs = self.deformed(i)[1] if follow else fe.cvs
            at = 0
            for c in fe.numCVs:
                c = int(c)
                if c > 0:
                    pts += [cvs[at : at + 1], cvs[at : at + c], cvs[at + c - 1 : at + c]]
                at += c
        points.Set(vec3(pts), t)
        at = Usd.TimeCode(0.0) if t.IsDefault() else t
        extent.Set(UsdGeom.Boundable.ComputeExtentFromPlugins(curves, at), t)

    def write_attribute_to_feather(self):
        prim = self.begin("Xform")
        if not self.feathers:
            return
        n = len(self.rtp)
        for f, fe in enumerate(self.feathers):
            if fe.has_mesh():
                fe.name = remove_namespace(fe.name)
                mesh = UsdGeom.Mesh.Define(self.stage, prim.GetPath().AppendChild(fe.name))
                pv = UsdGeom.PrimvarsAPI(mesh.GetPrim())
                st = pv.CreatePrimvar("st", Sdf.ValueTypeNames.Float2Array)
                st.SetInterpolation(UsdGeom.Tokens.faceVarying)
                body = pv.CreatePrimvar("bodyST", Sdf.ValueTypeNames.Float2Array)
                body.SetInterpolation(UsdGeom.Tokens.vertex)
                s = self.mesh_step(n)
                mesh.CreatePointsAttr(None, False)
                fvc = mesh.CreateFaceVertexCountsAttr(None, False)
                fvi = mesh.CreateFaceVertexIndicesAttr(None, False)
                uids = pv.CreatePrimvar("uids", Sdf.ValueTypeNames.FloatArray)
                sids = pv.CreatePrimvar("sids", Sdf.ValueTypeNames.FloatArray)
                uids.SetInterpolation(UsdGeom.Tokens.vertex)
                sids.SetInterpolation(UsdGeom.Tokens.vertex)
                st.Set(vec2([(u[0], u[1]) for u in fe.uvs]))
                counts, indices, st_idx, u, sd, bst = [], [], [], [], [], []
                P = 0
                for i in range(0, n, s):
                    if int(self.rtp[i]) != f:
                        continue
                    for ti, tri in enumerate(fe.v012):
                        indices += [int(tri[0]) + P, int(tri[1]) + P, int(tri[2]) + P]
                        counts.append(3)
                        st_idx += [3 * ti, 3 * ti + 1, 3 * ti + 2]
                    for _ in range(len(fe.points)):
                        P += 1
                        u.append(F(i))
                        sd.append(F(self.rtp[i]))
                        bst.append((self.uvw[i, 0], self.uvw[i, 1]))
                fvc.Set(Vt.IntArray(counts))
                fvi.Set(Vt.IntArray(indices))
                uids.Set(Vt.FloatArray.FromNumpy(np.array(u, dtype=F)))
                st.SetIndices(Vt.IntArray(st_idx))
                body.Set(vec2(bst))
                sids.Set(Vt.FloatArray.FromNumpy(np.array(sd, dtype=F)))
                if fe.txLayerName:
                    pv.CreatePrimvar("txLayerName", Sdf.ValueTypeNames.String).Set(fe.txLayerName)
                if fe.txBasePath:
                    pv.CreatePrimvar("txBasePath", Sdf.ValueTypeNames.String).Set(fe.txBasePath)
                if fe.MaterialSet:
                    mesh.GetPrim().CreateAttribute(
                        "userProperties:MaterialSet", Sdf.ValueTypeNames.String, True, Sdf.VariabilityVarying
                    ).Set(fe.MaterialSet)
                if fe.txmultiUV != 0:
                    pv.CreatePrimvar("txmultiUV", Sdf.ValueTypeNames.Int).Set(fe.txmultiUV)
            if fe.has_curves():
                # Run once for every feather with curves, as the exporter's contract has it: the same
                # prim and values each time.
                curves = UsdGeom.BasisCurves.Define(
                    self.stage, prim.GetPath().AppendChild(self.name + "_combine_curves")
                )
                curves.CreateBasisAttr(UsdGeom.Tokens.catmullRom, False)
                cvc = curves.CreateCurveVertexCountsAttr(None, False)
                widths = curves.CreateWidthsAttr(None, False)
                curves.SetWidthsInterpolation(UsdGeom.Tokens.vertex)
                pv = UsdGeom.PrimvarsAPI(curves.GetPrim())
                body = pv.CreatePrimvar("bodyST", Sdf.ValueTypeNames.Float2Array)
                uids = pv.CreatePrimvar("uids", Sdf.ValueTypeNames.FloatArray)
                sids = pv.CreatePrimvar("sids", Sdf.ValueTypeNames.FloatArray)
                for p in (body, uids, sids):
                    p.SetInterpolation(UsdGeom.Tokens.vertex)
                counts, w, u, sd, bst = [], [], [], [], []
                for i in range(0, n, self.feather_curve_step(n)):
                    carried = self.feather_of(i)
                    if carried is None or not carried.has_curves():
                        continue
                    r, t = F(self.rwh[i]), F(self.twh[i])
                    for c in carried.numCVs:
                        c = int(c)
                        counts.append(c + 2)
                        w.append(r)
                        for k in range(c):
                            q = -1 if k == c - 1 else int(k / (1 - c))  # C division truncates towards 0
                            w.append(F(t + F(F(r - t) * F(q + 1))))
                        w.append(t)
                        for _ in range(c + 2):
                            bst.append((self.uvw[i, 0], self.uvw[i, 1]))
                            u.append(F(i))
                            sd.append(F(self.rtp[i]))
                uids.Set(Vt.FloatArray.FromNumpy(np.array(u, dtype=F)))
                body.Set(vec2(bst))
                cvc.Set(Vt.IntArray(counts))
                widths.Set(Vt.FloatArray.FromNumpy(np.array(w, dtype=F)))
                sids.Set(Vt.FloatArray.FromNumpy(np.array(sd, dtype=F)))


def vec3(parts):
    arr = np.concatenate(parts).astype(F) if parts else np.zeros((0, 3), dtype=F)
    return Vt.Vec3fArray.FromNumpy(np.ascontiguousarray(arr.reshape(-1, 3)))


def vec2(pairs):
    arr = np.array(pairs, dtype=F).reshape(-1, 2)
    return Vt.Vec2fArray.FromNumpy(np.ascontiguousarray(arr))


def run(inputs, ops, base):
    x = Exporter(read_inputs(inputs), base)
    geom_calls = 0
    for op in read_ops(ops):
        if op[0] == "set":
            set_field(x, op[1], op[2])
        elif op[0] == "move":
            x.cvs += op[1]
            x.axs[:, 0] += op[1]
            x.box += op[1]
        elif op[0] == "attr":
            x.write_attribute(op[1])
        elif op[0] == "geom":
            if x.featherMode:
                x.load_placed(geom_calls)
            geom_calls += 1
            x.write_geometry(*op[1:])


if __name__ == "__main__":
    run(*sys.argv[1:4])
