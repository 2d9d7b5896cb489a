#include "usd/ZUsdLayer.h"

#include <pxr/gf/math.h>
#include <pxr/gf/matrix4d.h>
#include <pxr/gf/quatd.h>
#include <pxr/gf/quatf.h>
#include <pxr/gf/rotation.h>
#include <pxr/gf/vec2f.h>
#include <pxr/gf/vec3d.h>
#include <pxr/gf/vec3f.h>
#include <pxr/sdf/attributeSpec.h>
#include <pxr/plug/registry.h>
#include <pxr/sdf/primSpec.h>
#include <pxr/sdf/schema.h>
#include <pxr/tf/errorMark.h>
#include <pxr/vt/types.h>

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <mutex>

using namespace pxr;

namespace {

// USD's linear blend of two samples: GfLerp, slerp for quaternions, element by element for
// arrays of one length (arrays of two lengths hold the earlier sample).
template <typename T>
T lerp(double u, const T& x, const T& y) {
    return GfLerp(u, x, y);
}
GfQuatf lerp(double u, const GfQuatf& x, const GfQuatf& y) { return GfSlerp(u, x, y); }
GfQuatd lerp(double u, const GfQuatd& x, const GfQuatd& y) { return GfSlerp(u, x, y); }

template <typename T>
bool blendAs(const VtValue& a, const VtValue& b, double u, VtValue& out) {
    if (!a.IsHolding<T>() || !b.IsHolding<T>()) return false;
    out = VtValue(lerp(u, a.UncheckedGet<T>(), b.UncheckedGet<T>()));
    return true;
}

template <typename T>
bool blendArrayAs(const VtValue& a, const VtValue& b, double u, VtValue& out) {
    if (!a.IsHolding<VtArray<T>>() || !b.IsHolding<VtArray<T>>()) return false;
    const VtArray<T>& x = a.UncheckedGet<VtArray<T>>();
    const VtArray<T>& y = b.UncheckedGet<VtArray<T>>();
    if (x.size() != y.size()) {
        out = a;
        return true;
    }
    VtArray<T> blended(x.size());
    for (size_t i = 0; i < x.size(); ++i) blended[i] = lerp(u, x[i], y[i]);
    out = VtValue(std::move(blended));
    return true;
}

// A value of `attr` at `time`, as USD resolves one: a sample, a blend of the two around
// `time`, the nearest end, or the default.
VtValue resolvedValue(const SdfLayerHandle& layer, const SdfPath& attr, double time) {
    double lo = 0.0, hi = 0.0;
    if (layer->GetNumTimeSamplesForPath(attr) > 0 && layer->GetBracketingTimeSamplesForPath(attr, time, &lo, &hi)) {
        VtValue a, b;
        layer->QueryTimeSample(attr, lo, &a);
        if (lo == hi || !layer->QueryTimeSample(attr, hi, &b)) return a;
        const double u = (time - lo) / (hi - lo);
        VtValue out;
        if (blendAs<float>(a, b, u, out) || blendAs<double>(a, b, u, out) || blendAs<GfVec3f>(a, b, u, out) ||
            blendAs<GfVec3d>(a, b, u, out) || blendAs<GfMatrix4d>(a, b, u, out) || blendAs<GfQuatf>(a, b, u, out) ||
            blendAs<GfQuatd>(a, b, u, out) || blendArrayAs<GfVec3f>(a, b, u, out) ||
            blendArrayAs<float>(a, b, u, out) || blendArrayAs<GfVec2f>(a, b, u, out))
            return out;
        return a;  // what USD holds rather than blends (tokens, ints)
    }
    VtValue v;
    layer->HasField(attr, SdfFieldKeys->Default, &v);
    return v;
}

template <typename T>
bool get(const SdfLayerHandle& layer, const SdfPath& prim, const char* name, double time, T& out) {
    const VtValue v = resolvedValue(layer, prim.AppendProperty(TfToken(name)), time);
    if (!v.IsHolding<T>()) return false;
    out = v.UncheckedGet<T>();
    return true;
}

// A double 4 x 4 matrix in USD's row-vector convention from one op's value.
bool opMatrix(const std::string& op, const VtValue& v, GfMatrix4d& m) {
    auto vec3 = [&](GfVec3d& out) {
        if (v.IsHolding<GfVec3d>()) out = v.UncheckedGet<GfVec3d>();
        else if (v.IsHolding<GfVec3f>()) out = GfVec3d(v.UncheckedGet<GfVec3f>());
        else return false;
        return true;
    };
    auto scalar = [&](double& out) {
        if (v.IsHolding<double>()) out = v.UncheckedGet<double>();
        else if (v.IsHolding<float>()) out = v.UncheckedGet<float>();
        else return false;
        return true;
    };
    auto axis = [](int k, double degrees) {
        const GfVec3d a(k == 0, k == 1, k == 2);
        return GfMatrix4d(1.0).SetRotate(GfRotation(a, degrees));
    };
    const std::string kind = op.substr(0, op.find(':'));
    GfVec3d t;
    double s = 0.0;
    if (kind == "translate") return vec3(t) && (m.SetTranslate(t), true);
    if (kind == "scale") return vec3(t) && (m.SetScale(t), true);
    if (kind == "transform") {
        if (!v.IsHolding<GfMatrix4d>()) return false;
        m = v.UncheckedGet<GfMatrix4d>();
        return true;
    }
    if (kind == "orient") {
        if (v.IsHolding<GfQuatf>()) m = GfMatrix4d(1.0).SetRotate(GfQuatd(v.UncheckedGet<GfQuatf>()));
        else if (v.IsHolding<GfQuatd>()) m = GfMatrix4d(1.0).SetRotate(v.UncheckedGet<GfQuatd>());
        else return false;
        return true;
    }
    if (kind == "rotateX" || kind == "rotateY" || kind == "rotateZ") {
        if (!scalar(s)) return false;
        m = axis(kind[6] - 'X', s);
        return true;
    }
    if (kind.size() == 9 && kind.compare(0, 6, "rotate") == 0) {
        if (!vec3(t)) return false;
        // rotateXYZ turns about X first: with row vectors, X's matrix comes first.
        m.SetIdentity();
        for (int i = 0; i < 3; ++i) {
            const int k = kind[6 + i] - 'X';
            if (k < 0 || k > 2) return false;
            m = m * axis(k, t[k]);
        }
        return true;
    }
    return false;
}

// The prim's local matrix from its xformOpOrder (row vectors); `reset` when the order
// starts the stack anew.
bool localMatrix(const SdfLayerHandle& layer, const SdfPath& prim, double time, GfMatrix4d& m, bool& reset,
                 std::string& why) {
    m.SetIdentity();
    reset = false;
    VtTokenArray order;
    if (!get(layer, prim, "xformOpOrder", time, order)) return true;
    // USD applies the ops from the last listed to the first: with row vectors, the last
    // listed is the leftmost factor.
    for (auto it = order.rbegin(); it != order.rend(); ++it) {
        std::string op = it->GetString();
        if (op == "!resetXformStack!") {
            reset = true;
            continue;
        }
        const bool invert = op.compare(0, 8, "!invert!") == 0;
        if (invert) op = op.substr(8);
        const VtValue v = resolvedValue(layer, prim.AppendProperty(TfToken(op)), time);
        GfMatrix4d o(1.0);
        if (op.compare(0, 8, "xformOp:") != 0 || !opMatrix(op.substr(8), v, o)) {
            why = prim.GetString() + ": cannot read its " + op;
            return false;
        }
        m = m * (invert ? o.GetInverse() : o);
    }
    return true;
}

} // namespace

// UsdGeom declares the primvar field "interpolation" in its plug-in information; Sdf alone
// does not know it and refuses to author it. Where the OpenUSD in the process stops at Sdf
// (the project's own does), groomcore declares the field itself, from the resource
// plug-in installed beside this library (groomcore/usd/resources/plugInfo.json), with the
// definition UsdGeom gives it. A process whose OpenUSD has UsdGeom keeps its own.
void ZUsdLayer::declareUsdGeomFields() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (SdfSchema::GetInstance().IsRegistered(TfToken("interpolation"))) return;
        Dl_info info{};
        std::string dir;
        if (dladdr(reinterpret_cast<void*>(&ZUsdLayer::declareUsdGeomFields), &info) && info.dli_fname) {
            dir = info.dli_fname;
            dir = dir.substr(0, dir.find_last_of('/') + 1);
        }
        const std::string plugin = dir + "groomcore/usd/resources/plugInfo.json";
        PlugRegistry::GetInstance().RegisterPlugins(plugin);
        if (!SdfSchema::GetInstance().IsRegistered(TfToken("interpolation")))
            std::fprintf(stderr,
                         "groomcore: OpenUSD knows no \"interpolation\" field and %s does not declare it: "
                         "primvar interpolations cannot be written or read from text files\n",
                         plugin.c_str());
    });
}

bool ZUsdLayer::open(const std::string& file, std::string& why) {
    declareUsdGeomFields();
    TfErrorMark mark;
    _layer = SdfLayer::FindOrOpen(file);
    mark.Clear();
    _file = file;
    if (!_layer) why = file + " cannot be read as a USD layer";
    return static_cast<bool>(_layer);
}

std::vector<std::string> ZUsdLayer::primsOfType(const std::string& typeName) const {
    std::vector<std::string> out;
    if (!_layer) return out;
    _layer->Traverse(SdfPath::AbsoluteRootPath(), [&](const SdfPath& p) {
        if (!p.IsPrimPath()) return;
        const SdfPrimSpecHandle spec = _layer->GetPrimAtPath(p);
        if (spec && spec->GetTypeName() == typeName) out.push_back(p.GetString());
    });
    std::sort(out.begin(), out.end());
    return out;
}

bool ZUsdLayer::findPrim(const std::string& primPath, const std::string& typeName, SdfPath& prim,
                         std::string& why) const {
    if (!SdfPath::IsValidPathString(primPath)) {
        why = primPath + " is no prim path";
        return false;
    }
    const SdfPath path(primPath);
    const SdfPrimSpecHandle spec =
        _layer && path.IsAbsolutePath() && path.IsPrimPath() ? _layer->GetPrimAtPath(path) : SdfPrimSpecHandle();
    if (!spec) {
        why = _file + " has no prim " + primPath;
        return false;
    }
    if (spec->GetTypeName() != typeName) {
        why = primPath + " in " + _file + " is not " + typeName + " (its type: " + spec->GetTypeName().GetString() + ")";
        return false;
    }
    prim = path;
    return true;
}

VtValue ZUsdLayer::valueAt(const SdfPath& prim, const std::string& name, double time) const {
    if (!_layer) return VtValue();
    return resolvedValue(_layer, prim.AppendProperty(TfToken(name)), time);
}

std::string ZUsdLayer::attributeToken(const SdfPath& prim, const std::string& name, const char* field) const {
    VtValue v;
    if (!_layer || !_layer->HasField(prim.AppendProperty(TfToken(name)), TfToken(field), &v)) return std::string();
    return v.IsHolding<TfToken>() ? v.UncheckedGet<TfToken>().GetString() : std::string();
}

std::vector<std::string> ZUsdLayer::attributeNames(const SdfPath& prim) const {
    std::vector<std::string> out;
    const SdfPrimSpecHandle spec = _layer ? _layer->GetPrimAtPath(prim) : SdfPrimSpecHandle();
    if (!spec) return out;
    for (const SdfAttributeSpecHandle& a : spec->GetAttributes()) out.push_back(a->GetName());
    return out;
}

bool ZUsdLayer::worldMatrix(const SdfPath& prim, double time, Ulmex::ZMatrix& world, std::string& why) const {
    GfMatrix4d m(1.0);
    for (SdfPath p = prim; !p.IsEmpty() && p != SdfPath::AbsoluteRootPath(); p = p.GetParentPath()) {
        GfMatrix4d local;
        bool reset = false;
        if (!localMatrix(_layer, p, time, local, reset, why)) return false;
        m = m * local;
        if (reset) break;
    }
    // Ours is for column vectors: the transpose, in single precision.
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) world(r, c) = static_cast<float>(m[c][r]);
    return true;
}
