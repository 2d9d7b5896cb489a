#include "usd/ZMeshFromUSD.h"

#include <pxr/tf/token.h>
#include <pxr/gf/vec2f.h>
#include <pxr/gf/vec3f.h>
#include <pxr/vt/types.h>

#include <cstring>

#include "cache/RuvoMisc.h"
#include "usd/ZUsdLayer.h"

using namespace Ulmex;
using namespace pxr;

namespace {

// The mesh's UV primvar: primvars:st, else the first primvar holding two floats a value.
std::string uvPrimvar(const ZUsdLayer& layer, const SdfPath& prim, double time) {
    VtVec2fArray values;
    if (layer.get(prim, "primvars:st", time, values)) return "primvars:st";
    for (const std::string& name : layer.attributeNames(prim)) {
        const bool primvar = name.compare(0, 9, "primvars:") == 0;
        const bool indices = name.size() >= 8 && name.compare(name.size() - 8, 8, ":indices") == 0;
        if (primvar && !indices && layer.get(prim, name, time, values)) return name;
    }
    return std::string();
}

} // namespace

std::vector<std::string> ZMeshFromUSD::meshPrims(const std::string& file) {
    std::string why;
    std::vector<std::string> out = ZUsdLayer::primsOfType(file, "Mesh", why);
    message = why;
    return out;
}

bool ZMeshFromUSD::read(const std::string& file, const std::string& primPath, double time, ZTriMesh& body) {
    message.clear();
    body.reset();
    auto refuse = [&](const std::string& why) {
        message = why;
        body.reset();
        return false;
    };
    ZUsdLayer layer;
    std::string why;
    if (!layer.open(file, why)) return refuse(why);
    SdfPath path;
    if (!layer.findPrim(primPath, "Mesh", path, why)) return refuse(why);

    VtVec3fArray points;
    VtIntArray faceCounts, faceIndices;
    layer.get(path, "points", time, points);
    layer.get(path, "faceVertexCounts", time, faceCounts);
    layer.get(path, "faceVertexIndices", time, faceIndices);
    long long corners = 0;
    for (int c : faceCounts) corners += c < 0 ? -(1LL << 40) : c;
    if (corners != static_cast<long long>(faceIndices.size()))
        return refuse(primPath + ": its faceVertexCounts add up to " + std::to_string(corners) + ", not its " +
                      std::to_string(faceIndices.size()) + " faceVertexIndices");
    for (int v : faceIndices)
        if (v < 0 || static_cast<size_t>(v) >= points.size())
            return refuse(primPath + ": a face names point " + std::to_string(v) + " of " +
                          std::to_string(points.size()));

    ZIntArray counts(faceCounts.cbegin(), faceCounts.cend());
    ZIntArray connections(faceIndices.cbegin(), faceIndices.cend());
    TfToken orientation;
    const bool leftHanded = layer.get(path, "orientation", time, orientation) && orientation == "leftHanded";
    if (leftHanded) ReverseConnections(counts, connections);
    body.v012 = getv012(counts, connections);
    if (body.v012.empty()) return refuse(primPath + ": it has no triangles");

    // Per-corner UVs: the values as pairs of floats and, for every corner, the value's index.
    const std::string uvName = uvPrimvar(layer, path, time);
    VtVec2fArray values;
    if (!uvName.empty() && layer.get(path, uvName, time, values)) {
        VtIntArray indexed;
        const bool hasIndices = layer.get(path, uvName + ":indices", time, indexed);
        const std::string interpolation = layer.attributeToken(path, uvName, "interpolation");
        const bool perCorner = interpolation == "faceVarying";
        const bool perPoint = interpolation == "vertex" || interpolation == "varying";
        const size_t perValue = hasIndices ? indexed.size() : values.size();
        ZIntArray uvIndices;
        if (perCorner && perValue == faceIndices.size()) {
            uvIndices.setLengthForOverwrite(static_cast<int>(faceIndices.size()));
            for (size_t c = 0; c < faceIndices.size(); ++c)
                uvIndices[static_cast<int>(c)] = hasIndices ? indexed[c] : static_cast<int>(c);
        } else if (perPoint && perValue == points.size()) {
            uvIndices.setLengthForOverwrite(static_cast<int>(faceIndices.size()));
            for (size_t c = 0; c < faceIndices.size(); ++c) {
                const size_t p = static_cast<size_t>(faceIndices[c]);
                uvIndices[static_cast<int>(c)] = hasIndices ? indexed[p] : static_cast<int>(p);
            }
        }
        bool inRange = !uvIndices.empty();
        for (int u : uvIndices) inRange = inRange && u >= 0 && static_cast<size_t>(u) < values.size();
        if (inRange) {
            if (leftHanded) ReverseConnections(counts, uvIndices);
            ZFloatArray pairs;
            pairs.setLengthForOverwrite(static_cast<int>(2 * values.size()));
            std::memcpy(pairs.data(), values.cdata(), values.size() * sizeof(GfVec2f));
            body.uvs = getuvs(counts, pairs, uvIndices);
        }
    }
    if (body.uvs.length() != 3 * body.v012.length()) body.uvs.assign(3 * body.v012.size(), ZVector(0, 0, 0));

    body.points.setLengthForOverwrite(static_cast<int>(points.size()));
    if (!points.empty())
        std::memcpy(static_cast<void*>(body.points.data()), points.cdata(), points.size() * sizeof(ZVector));
    ZMatrix world;
    if (!layer.worldMatrix(path, time, world, why)) return refuse(why);
    body.transform(world, true);
    return true;
}

bool ZMeshFromUSD::sampledTimes(const std::string& file, const std::string& primPath, double& first, double& last) {
    std::string why;
    const bool animated = ZUsdLayer::sampledTimes(file, primPath, "Mesh", first, last, why);
    message = why;
    return animated;
}
