// Roots placed on a body from given points (a guide curve's first point, a DCC's hair
// roots): each point goes to the nearest point of the body's triangles, which gives the
// root's triangle (tgl), barycentric coordinates (bcc), surface coordinates (uvw, blended
// from the body's per-corner UVs; zero without them) and noise-space position (nmp, the
// point on the body). A bounding-volume hierarchy over the triangles finds the nearest
// triangle exactly, ties going to the lower triangle index, so that a point gives the same
// root at any thread count.
#pragma once

#include <vector>

#include "base/UlmexBase.h"
#include "strands/ZFollicles.h"

class ZRootProjector {
public:
    // Learns the body's triangles (its points as they are now). False, learning nothing,
    // for a body without triangles or with a triangle that names a missing point.
    bool build(const Ulmex::ZTriMesh& body);
    int numTriangles() const { return static_cast<int>(_tris.size()); }

    // The triangle nearest `point`, with the barycentric coordinates of the nearest point
    // on it and the distance to it; -1 before a successful build or for a point with a
    // coordinate that is not finite.
    int nearest(const Ulmex::ZVector& point, Ulmex::ZTuple<3, float>& bcc, float& distance) const;

    // One root per point, in parallel: tgl, bcc, uvw and nmp of `follicles` are sized to
    // the point count and filled (its other arrays are left alone); `distances`, when
    // given, gets how far each point lies from the body. False, changing nothing, before a
    // successful build or when a point has a coordinate that is not finite.
    bool project(const Ulmex::ZVectorArray& points, ZFollicles& follicles, Ulmex::ZFloatArray* distances) const;

private:
    struct Node {
        float lo[3], hi[3];
        int first, count;  // a leaf's triangles in _order; an inner node: count 0, children first, first + 1
    };
    struct Triangle {
        Ulmex::ZVector a, b, c;
    };
    int buildNode(int begin, int end, std::vector<Ulmex::ZVector>& centres);
    std::vector<Node> _nodes;
    std::vector<int> _order;          // triangle numbers, grouped by leaf
    std::vector<Triangle> _tris;      // corners, by triangle number
    std::vector<Triangle> _leafTris;  // corners, in the order of _order
    std::vector<Ulmex::ZVector> _uvs; // three per triangle, or none
};
