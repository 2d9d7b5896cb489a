// Axis-aligned box with a minimum and a maximum corner.
#pragma once

#include <fstream>
#include <limits>

#include "base/ZVector.h"

namespace Ulmex {

class ZBoundingBox {
public:
    // An empty box has min = +FLT_MAX and max = -FLT_MAX, so expanding it by anything
    // gives that thing.
    ZVector minPoint{std::numeric_limits<float>::max()};
    ZVector maxPoint{-std::numeric_limits<float>::max()};

    ZBoundingBox() = default;
    ZBoundingBox(const ZVector& a, const ZVector& b) { reset(); expand(a); expand(b); }

    void reset();
    bool isEmpty() const { return minPoint.x > maxPoint.x || minPoint.y > maxPoint.y || minPoint.z > maxPoint.z; }
    void expand(const ZVector& p);
    void expand(const ZBoundingBox& other);
    // Extent along axis 0, 1 or 2; 0 for an empty box.
    float width(int axis) const;
    ZVector center() const { return (minPoint + maxPoint) * 0.5f; }

    // The twelve edges as GL_LINES, for use inside a display list.
    void draw() const;

    // 24 bytes: the minimum then the maximum corner as raw floats.
    void write(std::ofstream& file) const;
    // Reads 24 bytes; on a short stream the box is left empty.
    void read(std::ifstream& file);

    bool operator==(const ZBoundingBox& o) const { return minPoint == o.minPoint && maxPoint == o.maxPoint; }
};

} // namespace Ulmex
