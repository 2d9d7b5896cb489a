#include "usd/ZCurvesFromUSD.h"

#include <pxr/gf/matrix4d.h>
#include <pxr/gf/quatd.h>
#include <pxr/gf/quatf.h>
#include <pxr/gf/rotation.h>
#include <pxr/gf/vec2f.h>
#include <pxr/gf/vec3d.h>
#include <pxr/gf/vec3f.h>
#include <pxr/sdf/layer.h>
#include <pxr/sdf/primSpec.h>
#include <pxr/tf/errorMark.h>
#include <pxr/vt/types.h>

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace Ulmex;
using namespace pxr;

namespace {

// A value of `attr` at `time`, as USD resolves one: a sample, a blend of the two around
// `time`, the nearest end, or the default.
VtValue valueAt(const SdfLayerHandle& layer, const SdfPath& attr, double time) {
    double lo = 0.0, hi = 0.0;
    if (layer->GetNumTimeSamplesForPath(attr) > 0 && layer->GetBracketingTimeSamplesForPath(attr, time, &lo, &hi)) {
        VtValue a, b;
        layer->QueryTimeSample(attr, lo, &a);
        if (lo == hi || !layer->QueryTimeSample(attr, hi, &b)) return a;
        const double u = (time - lo) / (hi - lo);
        auto blend = [&](auto tag) -> VtValue {
            using A = decltype(tag);
            const A& x = a.UncheckedGet<A>();
            const A& y = b.UncheckedGet<A>();
            if (x.size() != y.size()) return a;
            A out(x.size());
            for (size_t i = 0; i < x.size(); ++i) out[i] = x[i] + (y[i] - x[i]) * static_cast<float>(u);
            return VtValue(out);
        };
        if (a.IsHolding<VtVec3fArray>() && b.IsHolding<VtVec3fArray>()) return blend(VtVec3fArray());
        if (a.IsHolding<VtFloatArray>() && b.IsHolding<VtFloatArray>()) return blend(VtFloatArray());
        if (a.IsHolding<VtVec2fArray>() && b.IsHolding<VtVec2fArray>()) return blend(VtVec2fArray());
        return a;  // what USD holds rather than blends
    }
    VtValue v;
    layer->HasField(attr, SdfFieldKeys->Default, &v);
    return v;
}

template <typename T>
bool get(const SdfLayerHandle& layer, const SdfPath& prim, const char* name, double time, T& out) {
    const VtValue v = valueAt(layer, prim.AppendProperty(TfToken(name)), time);
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
        const VtValue v = valueAt(layer, prim.AppendProperty(TfToken(op)), time);
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

std::vector<std::string> ZCurvesFromUSD::curvePrims(const std::string& file) {
    message.clear();
    std::vector<std::string> out;
    TfErrorMark mark;
    const SdfLayerRefPtr layer = SdfLayer::FindOrOpen(file);
    mark.Clear();
    if (!layer) {
        message = file + " cannot be read as a USD layer";
        return out;
    }
    layer->Traverse(SdfPath::AbsoluteRootPath(), [&](const SdfPath& p) {
        if (!p.IsPrimPath()) return;
        const SdfPrimSpecHandle spec = layer->GetPrimAtPath(p);
        if (spec && spec->GetTypeName() == "BasisCurves") out.push_back(p.GetString());
    });
    std::sort(out.begin(), out.end());
    return out;
}

bool ZCurvesFromUSD::read(const std::string& file, const std::string& primPath, double time, ZAlembicCurves& curves) {
    message.clear();
    curves.clear();
    auto refuse = [&](const std::string& why) {
        message = why;
        curves.clear();
        return false;
    };
    TfErrorMark mark;
    const SdfLayerRefPtr layer = SdfLayer::FindOrOpen(file);
    mark.Clear();
    if (!layer) return refuse(file + " cannot be read as a USD layer");
    if (!SdfPath::IsValidPathString(primPath)) return refuse(primPath + " is no prim path");
    const SdfPath path(primPath);
    const SdfPrimSpecHandle spec = path.IsAbsolutePath() ? layer->GetPrimAtPath(path) : SdfPrimSpecHandle();
    if (!spec) return refuse(file + " has no prim " + primPath);
    if (spec->GetTypeName() != "BasisCurves")
        return refuse(primPath + " in " + file + " is not BasisCurves (its type: " + spec->GetTypeName().GetString() + ")");

    VtVec3fArray points;
    VtIntArray counts;
    get(layer, path, "points", time, points);
    get(layer, path, "curveVertexCounts", time, counts);
    long long total = 0;
    for (int c : counts) total += c < 0 ? -(1LL << 40) : c;
    if (total != static_cast<long long>(points.size()))
        return refuse(primPath + ": its curveVertexCounts add up to " + std::to_string(total) + ", not its " +
                      std::to_string(points.size()) + " points");
    curves.points.setLengthForOverwrite(static_cast<int>(points.size()));
    if (!points.empty())
        std::memcpy(static_cast<void*>(curves.points.data()), points.cdata(), points.size() * sizeof(ZVector));
    curves.counts.assign(counts.cbegin(), counts.cend());

    TfToken type, basis, wrap;
    get(layer, path, "type", time, type);
    get(layer, path, "basis", time, basis);
    get(layer, path, "wrap", time, wrap);
    // USD's fallbacks: cubic, bezier, nonperiodic ("pinned" keeps its end points, as a
    // non-periodic Alembic curve does).
    curves.type = type == "linear" ? ZAlembicCurves::kLinear : ZAlembicCurves::kCubic;
    curves.basis = curves.type == ZAlembicCurves::kLinear ? ZAlembicCurves::kNoBasis
                   : basis == "bspline"                   ? ZAlembicCurves::kBSpline
                   : basis == "catmullRom"                ? ZAlembicCurves::kCatmullRom
                                                          : ZAlembicCurves::kBezier;
    curves.wrap = wrap == "periodic" ? ZAlembicCurves::kPeriodic : ZAlembicCurves::kNonPeriodic;

    const size_t nCurves = curves.counts.size(), nPoints = curves.points.size();
    VtFloatArray widths;
    if (get(layer, path, "widths", time, widths) &&
        (widths.size() == 1 || widths.size() == nCurves || widths.size() == nPoints))
        curves.widths.assign(widths.cbegin(), widths.cend());
    VtVec2fArray st;
    VtIntArray stIndices;
    if (get(layer, path, "primvars:st", time, st) && get(layer, path, "primvars:st:indices", time, stIndices)) {
        // An indexed primvar, expanded; an index naming a missing value drops the UVs.
        VtVec2fArray expanded(stIndices.size());
        for (size_t i = 0; i < stIndices.size(); ++i) {
            if (stIndices[i] < 0 || static_cast<size_t>(stIndices[i]) >= st.size()) {
                expanded.clear();
                break;
            }
            expanded[i] = st[static_cast<size_t>(stIndices[i])];
        }
        st = expanded;
    }
    if (!st.empty() && (st.size() == nCurves || st.size() == nPoints)) {
        curves.uvs.setLengthForOverwrite(static_cast<int>(2 * st.size()));
        if (!st.empty()) std::memcpy(curves.uvs.data(), st.cdata(), st.size() * sizeof(GfVec2f));
    }
    for (const char* name : {"primvars:ids", "primvars:id"}) {
        VtIntArray ids;
        if (get(layer, path, name, time, ids) && ids.size() == nCurves) {
            curves.ids.assign(ids.cbegin(), ids.cend());
            break;
        }
    }

    // The world matrix: the prim's ops, then each parent's, up to the root or a reset.
    GfMatrix4d world(1.0);
    std::string why;
    for (SdfPath p = path; !p.IsEmpty() && p != SdfPath::AbsoluteRootPath(); p = p.GetParentPath()) {
        GfMatrix4d local;
        bool reset = false;
        if (!localMatrix(layer, p, time, local, reset, why)) return refuse(why);
        world = world * local;
        if (reset) break;
    }
    // Ours is for column vectors: the transpose, in single precision.
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) curves.worldMatrix(r, c) = static_cast<float>(world[c][r]);
    return true;
}
