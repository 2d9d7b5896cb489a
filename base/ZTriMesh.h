// Triangle mesh: points, three point indices per triangle, and one surface coordinate
// per triangle corner (three per triangle).
#pragma once

#include <fstream>

#include "base/ZArray.h"
#include "base/ZBoundingBox.h"

namespace Ulmex {

class ZTriMesh {
public:
    ZVectorArray points;  // vertex positions
    ZInt3Array v012;      // three point indices per triangle
    ZVectorArray uvs;     // surface coordinates per point (z unused), or empty

    int numVertices() const { return points.length(); }   // the point count
    int numTriangles() const { return v012.length(); }    // the triangle count
    void reset() { points.clear(); v012.clear(); uvs.clear(); }  // empties the three arrays

    // Box of the points; `useOpenMP` scans in parallel (same result).
    ZBoundingBox boundingBox(bool useOpenMP) const;

    // Applies m to every point (as a point, translation included); `useOpenMP` runs the
    // loop in parallel. Surface coordinates are not touched.
    void transform(const ZMatrix& m, bool useOpenMP);

    // OpenGL drawing for use inside a display list: the points, the triangle edges, and
    // the filled triangles. drawSurface(true) sends an area-weighted normal per vertex
    // (smooth shading), drawSurface(false) one face normal per triangle.
    void drawVertices() const;
    void drawWireframe() const;
    void drawSurface(bool smoothNormals) const;

    // Binary form: points, v012 and uvs, each as an int32 count and its elements.
    void write(std::ofstream& file) const;
    // Reads that form. A record with a triangle index outside the points is rejected: the
    // mesh is left empty and the stream failed.
    bool read(std::ifstream& file);

    bool operator==(const ZTriMesh& o) const {
        return points == o.points && v012 == o.v012 && uvs == o.uvs;
    }
};

} // namespace Ulmex
