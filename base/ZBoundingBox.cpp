#include "base/ZBoundingBox.h"

#include <GL/gl.h>

#include <algorithm>

#include "base/ZStream.h"

namespace Ulmex {

void ZBoundingBox::reset() {
    minPoint = ZVector(std::numeric_limits<float>::max());
    maxPoint = ZVector(-std::numeric_limits<float>::max());
}

void ZBoundingBox::expand(const ZVector& p) {
    for (int i = 0; i < 3; ++i) {
        minPoint[i] = std::min(minPoint[i], p[i]);
        maxPoint[i] = std::max(maxPoint[i], p[i]);
    }
}

void ZBoundingBox::expand(const ZBoundingBox& other) {
    if (other.isEmpty()) return;
    expand(other.minPoint);
    expand(other.maxPoint);
}

float ZBoundingBox::width(int axis) const {
    if (isEmpty()) return 0.f;
    return maxPoint[axis] - minPoint[axis];
}

void ZBoundingBox::draw() const {
    if (isEmpty()) return;
    const ZVector& a = minPoint;
    const ZVector& b = maxPoint;
    const ZVector c[8] = {{a.x, a.y, a.z}, {b.x, a.y, a.z}, {b.x, b.y, a.z}, {a.x, b.y, a.z},
                          {a.x, a.y, b.z}, {b.x, a.y, b.z}, {b.x, b.y, b.z}, {a.x, b.y, b.z}};
    static const int e[12][2] = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6},
                                 {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};
    glBegin(GL_LINES);
    for (const auto& edge : e) {
        glVertex3fv(&c[edge[0]].x);
        glVertex3fv(&c[edge[1]].x);
    }
    glEnd();
}

void ZBoundingBox::write(std::ofstream& file) const {
    file.write(reinterpret_cast<const char*>(&minPoint), sizeof minPoint);
    file.write(reinterpret_cast<const char*>(&maxPoint), sizeof maxPoint);
}

void ZBoundingBox::read(std::ifstream& file) {
    ZVector lo, hi;
    if (readRaw(file, &lo, sizeof lo) && readRaw(file, &hi, sizeof hi)) {
        minPoint = lo;
        maxPoint = hi;
    } else {
        reset();
    }
}

} // namespace Ulmex
