#include "toolkit/ZAlembicBody.h"

#include "cache/RuvoMisc.h"

using namespace Ulmex;

bool ZAlembicBody::read(const ZAlembicObject& mesh, int sample, ZTriMesh& body, ZString* why) {
    body.reset();
    auto refuse = [&](const std::string& reason) {
        body.reset();
        if (why) *why = std::string(mesh.fullPath()) + ": " + reason;
        return false;
    };
    ZVectorArray points;
    ZIntArray counts, connections, uvIndices;
    ZFloatArray uvs;
    ZMatrix world;
    if (!mesh.getPolyMeshData(&points, nullptr, &counts, &connections, nullptr, &world, &uvs, &uvIndices, sample))
        return refuse("not a polygon mesh");
    long long corners = 0;
    for (int c : counts) corners += c < 0 ? -(1LL << 40) : c;
    if (corners != static_cast<long long>(connections.size())) return refuse("its face counts and indices disagree");
    for (int v : connections)
        if (v < 0 || v >= points.length()) return refuse("a face names a missing point");
    ReverseConnections(counts, connections);
    body.v012 = getv012(counts, connections);
    if (body.v012.empty()) return refuse("it has no triangles");
    if (uvIndices.size() == connections.size()) {
        ReverseConnections(counts, uvIndices);
        body.uvs = getuvs(counts, uvs, uvIndices);
    }
    // A mesh without UVs is at (0, 0) everywhere (the root frames need per-corner UVs).
    if (body.uvs.length() != 3 * body.v012.length()) body.uvs.assign(3 * body.v012.size(), ZVector(0, 0, 0));
    body.points = points;
    body.transform(world, true);
    return true;
}
