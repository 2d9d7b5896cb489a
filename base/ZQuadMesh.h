// Quad mesh: points, four point indices per quad, and one surface coordinate per quad
// corner (four per quad; optional, empty when unused).
#pragma once

#include "base/ZArray.h"

namespace Ulmex {

class ZQuadMesh {
public:
    ZVectorArray points;            // vertex positions
    ZArray<ZTuple<4, int>> quads;   // four point indices per quad
    ZVectorArray uvs;               // surface coordinates per point (z unused), or empty

    int numVertices() const { return points.length(); }   // the point count
    int numQuads() const { return quads.length(); }       // the quad count
    void reset() { points.clear(); quads.clear(); uvs.clear(); }  // empties the three arrays

    // OpenGL drawing for use inside a display list, as ZTriMesh's: the points, the quad
    // edges, and the filled quads (with smooth per-vertex normals when asked).
    void drawVertices() const;
    void drawWireframe() const;
    void drawSurface(bool smoothNormals) const;

    bool operator==(const ZQuadMesh& o) const { return points == o.points && quads == o.quads && uvs == o.uvs; }
};

} // namespace Ulmex
