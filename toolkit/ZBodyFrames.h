// Per-vertex frames of a body mesh: the vertexAxes ZFollicles::updateAxes blends at each
// root. For every point, origin is the point; zAxis the normal, the sum of the cross
// products of the triangles around it (so each weighs by its area), normalised; xAxis the
// direction in which the body's u coordinate grows around the point (from its per-corner
// UVs), made perpendicular to the normal; yAxis = zAxis x xAxis. Where the body has no UVs,
// or u does not change around a point, xAxis is the world axis least along the normal,
// made perpendicular to it. A point on no triangle keeps the world axes.
#pragma once

#include <vector>

#include "base/UlmexBase.h"

class ZBodyFrames {
public:
    // Learns the body's topology: which triangles meet at each point. Needed again only
    // when the triangles change, not when the points move. False, learning nothing, for a
    // triangle that names a missing point.
    bool build(const Ulmex::ZTriMesh& body);

    // The frames of `body`, which must have the triangles and point count build saw (its
    // points may have moved): computed in parallel, the same bits at any thread count.
    // False, with `frames` untouched, for a body of another topology.
    bool compute(const Ulmex::ZTriMesh& body, Ulmex::ZAxisArray& frames) const;

private:
    int _points = 0, _triangles = 0;
    std::vector<int> _start;   // the triangles around point v: _around[_start[v]] ... _around[_start[v + 1] - 1]
    std::vector<int> _around;  // in increasing order
};
