// Polygon mesh: points, vertex counts per polygon, point indices, a box, and four optional
// attribute arrays.
#pragma once

#include "base/ZArray.h"
#include "base/ZBoundingBox.h"
#include "base/ZTriMesh.h"

namespace Ulmex {

class ZPolyMesh {
public:
    ZVectorArray points;    // vertex positions
    ZIntArray vCounts;      // vertices per polygon
    ZIntArray vConnects;    // point indices, polygon after polygon
    ZBoundingBox boundingBox;  // the points' box: grown by append(), recomputed by transform() and computeBoundingBox()
    // Optional attributes, empty when unused:
    ZVectorArray velocities;  // per point
    ZFloat2Array uvs;         // surface coordinates
    ZIntArray uvIndices;      // per polygon vertex: index into uvs
    ZVectorArray normals;     // per polygon vertex

    int numVertices() const { return points.length(); }   // the point count
    int numPolygons() const { return vCounts.length(); }  // the polygon count
    void reset();                                         // empties every array and the box

    // The polygons of `other` behind this mesh's own, its point indices shifted, the box
    // grown. With `withAttributes` the four attribute arrays are appended too (uv indices
    // shifted); without, this mesh's attribute arrays are dropped, since they would no
    // longer match its points. `other` may be this mesh (taken as a copy).
    void append(const ZPolyMesh& other, bool withAttributes);

    // Applies m to the points (as points) and to the velocities and normals (as
    // directions; normals renormalised), and recomputes the box. `useOpenMP` runs the
    // point loop in parallel.
    void transform(const ZMatrix& m, bool useOpenMP);

    // Replaces `mesh` with a fan triangulation of every polygon (v0, vk, vk+1); polygons of
    // fewer than three vertices are dropped. Per-corner surface coordinates come from the
    // uvs when every polygon vertex has one, else the triangle mesh has none.
    void convertTo(ZTriMesh& mesh) const;

    // Box of the points.
    void computeBoundingBox();
};

} // namespace Ulmex
