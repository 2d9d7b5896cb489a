// Quad mesh: points, four point indices per quad, and one surface coordinate per quad
// corner (four per quad; optional, empty when unused).
#pragma once

#include "base/ZArray.h"

namespace Ulmex {

class ZQuadMesh {
public:
    ZVectorArray points;
    ZArray<ZTuple<4, int>> quads;
    ZVectorArray uvs;

    int numVertices() const { return points.length(); }
    int numQuads() const { return quads.length(); }
    void reset() { points.clear(); quads.clear(); uvs.clear(); }

    // OpenGL drawing for use inside a display list, as ZTriMesh's: the points, the quad
    // edges, and the filled quads (with smooth per-vertex normals when asked).
    void drawVertices() const;
    void drawWireframe() const;
    void drawSurface(bool smoothNormals) const;

    bool operator==(const ZQuadMesh& o) const { return points == o.points && quads == o.quads && uvs == o.uvs; }
};

} // namespace Ulmex
