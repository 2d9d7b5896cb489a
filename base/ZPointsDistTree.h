// Nearest-point search over a fixed set of points: a k-d tree of our own.
//
// Why not a library: the feathers' lattice takes the depth of "the nearest CV", so ties
// must resolve the same way on every machine and in every build. This tree breaks ties by
// the lower point index, exactly, and its balanced median build needs no tuning; at the
// sizes a feather template has (hundreds to thousands of CVs) it is as fast as any.
#pragma once

#include <vector>

#include "base/ZArray.h"

namespace Ulmex {

class ZPointsDistTree {
public:
    ZPointsDistTree() = default;
    explicit ZPointsDistTree(const ZVectorArray& points) { build(points); }

    // Replaces the set. The points are copied.
    void build(const ZVectorArray& points);

    int size() const { return static_cast<int>(_points.size()); }

    // The index of the point nearest to `query` and its Euclidean distance; among equally
    // near points the lowest index. Points with a NaN coordinate are never found. A point
    // counts only at a squared distance below the largest float, so an empty tree, a NaN
    // query, or one with no point that near gives index -1 and the largest float.
    void findClosestPoint(const ZVector& query, int& index, float& distance) const;

private:
    void buildRange(int lo, int hi);
    void search(int lo, int hi, const ZVector& q, int& best, float& bestD2) const;

    std::vector<ZVector> _points;
    std::vector<int> _order;            // point indices, arranged as an implicit tree
    std::vector<unsigned char> _axis;   // split axis of the node whose median is at that slot
};

} // namespace Ulmex
