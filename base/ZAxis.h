// A local frame: origin and three axes, 12 packed floats that go raw to files.
#pragma once

#include "base/ZVector.h"

namespace Ulmex {

class ZAxis {
public:
    // A default frame is the world frame: origin at zero, axes along x, y and z.
    ZVector origin{0.f, 0.f, 0.f};
    ZVector xAxis{1.f, 0.f, 0.f};
    ZVector yAxis{0.f, 1.f, 0.f};
    ZVector zAxis{0.f, 0.f, 1.f};

    ZAxis() = default;

    // Makes this frame the blend of a, b and c by the weights wa, wb, wc (barycentric
    // weights in the library's use).
    //
    // The origin is wa*a.origin + wb*b.origin + wc*c.origin. The axes are blended the same
    // way. With `orthonormalize` true (the library always passes true) the result is then
    // made an orthonormal right-handed frame: zAxis is the normalised blended z (the
    // surface normal), xAxis the blended x with its z component removed and normalised,
    // and yAxis = zAxis x xAxis. Degenerate blends (opposing normals, x parallel to z)
    // fall back to the first frame's axis and then to any unit vector perpendicular to
    // zAxis, so the result is always orthonormal. With false the blended axes are kept
    // as they are.
    void set(const ZAxis& a, const ZAxis& b, const ZAxis& c, float wa, float wb, float wc,
             bool orthonormalize);

    bool operator==(const ZAxis& o) const {
        return origin == o.origin && xAxis == o.xAxis && yAxis == o.yAxis && zAxis == o.zAxis;
    }
    bool operator!=(const ZAxis& o) const { return !(*this == o); }
};

static_assert(sizeof(ZAxis) == 48, "ZAxis must be 12 packed floats");

} // namespace Ulmex
