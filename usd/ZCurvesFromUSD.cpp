#include "usd/ZCurvesFromUSD.h"

#include <pxr/gf/vec2f.h>
#include <pxr/gf/vec3f.h>
#include <pxr/vt/types.h>

#include <cstring>

#include "usd/ZUsdLayer.h"

using namespace Ulmex;
using namespace pxr;

std::vector<std::string> ZCurvesFromUSD::curvePrims(const std::string& file) {
    std::string why;
    std::vector<std::string> out = ZUsdLayer::primsOfType(file, "BasisCurves", why);
    message = why;
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
    ZUsdLayer layer;
    std::string why;
    if (!layer.open(file, why)) return refuse(why);
    SdfPath path;
    if (!layer.findPrim(primPath, "BasisCurves", path, why)) return refuse(why);

    VtVec3fArray points;
    VtIntArray counts;
    layer.get(path, "points", time, points);
    layer.get(path, "curveVertexCounts", time, counts);
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
    layer.get(path, "type", time, type);
    layer.get(path, "basis", time, basis);
    layer.get(path, "wrap", time, wrap);
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
    if (layer.get(path, "widths", time, widths) &&
        (widths.size() == 1 || widths.size() == nCurves || widths.size() == nPoints))
        curves.widths.assign(widths.cbegin(), widths.cend());
    VtVec2fArray st;
    VtIntArray stIndices;
    if (layer.get(path, "primvars:st", time, st) && layer.get(path, "primvars:st:indices", time, stIndices)) {
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
        if (layer.get(path, name, time, ids) && ids.size() == nCurves) {
            curves.ids.assign(ids.cbegin(), ids.cend());
            break;
        }
    }

    if (!layer.worldMatrix(path, time, curves.worldMatrix, why)) return refuse(why);
    return true;
}

bool ZCurvesFromUSD::sampledTimes(const std::string& file, const std::string& primPath, double& first, double& last) {
    std::string why;
    const bool animated = ZUsdLayer::sampledTimes(file, primPath, "BasisCurves", first, last, why);
    message = why;
    return animated;
}
