#include "base/ZAxis.h"

namespace Ulmex {

namespace {

ZVector blend(const ZVector& a, const ZVector& b, const ZVector& c, float wa, float wb, float wc) {
    return a * wa + b * wb + c * wc;
}

// A unit vector perpendicular to the unit vector n.
ZVector anyPerpendicular(const ZVector& n) {
    const ZVector helper = std::fabs(n.x) < 0.9f ? ZVector(1.f, 0.f, 0.f) : ZVector(0.f, 1.f, 0.f);
    ZVector p = helper - n * helper.dot(n);
    return p.normalized(false);
}

} // namespace

void ZAxis::set(const ZAxis& a, const ZAxis& b, const ZAxis& c, float wa, float wb, float wc,
                bool orthonormalize) {
    // Compute everything before writing: this frame may be one of the inputs.
    const ZVector o = blend(a.origin, b.origin, c.origin, wa, wb, wc);
    ZVector x = blend(a.xAxis, b.xAxis, c.xAxis, wa, wb, wc);
    ZVector y = blend(a.yAxis, b.yAxis, c.yAxis, wa, wb, wc);
    ZVector z = blend(a.zAxis, b.zAxis, c.zAxis, wa, wb, wc);

    if (orthonormalize) {
        const float tiny = 1e-12f;
        if (!(z.squaredLength() > tiny)) z = a.zAxis;
        if (!(z.squaredLength() > tiny)) z = ZVector(0.f, 0.f, 1.f);
        z.normalize(false);

        ZVector xp = x - z * x.dot(z);
        if (!(xp.squaredLength() > tiny)) xp = a.xAxis - z * a.xAxis.dot(z);
        if (!(xp.squaredLength() > tiny)) xp = anyPerpendicular(z);
        x = xp.normalized(false);
        y = z.cross(x);
    }
    origin = o;
    xAxis = x;
    yAxis = y;
    zAxis = z;
}

} // namespace Ulmex
