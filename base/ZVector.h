// Three single-precision floats: positions, directions and surface coordinates alike.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <ostream>

namespace Ulmex {

class ZVector {
public:
    float x = 0.f, y = 0.f, z = 0.f;

    ZVector() = default;
    ZVector(float x_, float y_, float z_) : x(x_), y(y_), z(z_) {}
    explicit ZVector(float s) : x(s), y(s), z(s) {}

    float& operator[](int i) { return (&x)[i]; }
    const float& operator[](int i) const { return (&x)[i]; }

    ZVector operator+(const ZVector& o) const { return ZVector(x + o.x, y + o.y, z + o.z); }
    ZVector operator-(const ZVector& o) const { return ZVector(x - o.x, y - o.y, z - o.z); }
    ZVector operator-() const { return ZVector(-x, -y, -z); }
    ZVector operator*(float s) const { return ZVector(x * s, y * s, z * s); }
    ZVector operator/(float s) const { return ZVector(x / s, y / s, z / s); }
    ZVector& operator+=(const ZVector& o) { x += o.x; y += o.y; z += o.z; return *this; }
    ZVector& operator-=(const ZVector& o) { x -= o.x; y -= o.y; z -= o.z; return *this; }
    ZVector& operator*=(float s) { x *= s; y *= s; z *= s; return *this; }
    bool operator==(const ZVector& o) const { return x == o.x && y == o.y && z == o.z; }
    bool operator!=(const ZVector& o) const { return !(*this == o); }

    // Dot product, evaluated as (x*x' + y*y') + z*z'.
    float dot(const ZVector& o) const { return x * o.x + y * o.y + z * o.z; }
    ZVector cross(const ZVector& o) const {
        return ZVector(y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x);
    }
    float squaredLength() const { return dot(*this); }
    float length() const { return std::sqrt(squaredLength()); }

    // In-place unit vector. With `fast` (the path the library uses) this is exactly
    // fastNormalize(): one refinement step of the bit-trick reciprocal square root, and a
    // zero vector stays zero. With `fast` false it divides by the true length, and a zero
    // vector also stays zero.
    ZVector& normalize(bool fast = true);
    ZVector normalized(bool fast = true) const { ZVector v(*this); v.normalize(fast); return v; }
};

inline ZVector operator*(float s, const ZVector& v) { return v * s; }
inline float dot(const ZVector& a, const ZVector& b) { return a.dot(b); }
inline ZVector cross(const ZVector& a, const ZVector& b) { return a.cross(b); }

// 1 / sqrt(s) by the bit trick with a single Newton step, in single precision.
inline float fastInvSqrt(float s) {
    int32_t b;
    std::memcpy(&b, &s, sizeof b);
    int32_t yb = 0x5f3759df - (b >> 1);
    float y;
    std::memcpy(&y, &yb, sizeof y);
    y = (1.5f - s * 0.5f * y * y) * y;
    return y;
}

// Unit vector by the fast reciprocal square root. No test for zero: the 1e-30 keeps the
// radicand positive, so the zero vector maps to itself.
inline ZVector fastNormalize(const ZVector& v) {
    const float s = v.dot(v) + 1e-30f;
    return v * fastInvSqrt(s);
}

inline ZVector& ZVector::normalize(bool fast) {
    if (fast) {
        *this = fastNormalize(*this);
    } else {
        const float l = length();
        if (l > 0.f) { x /= l; y /= l; z /= l; }
    }
    return *this;
}

// Rodrigues' rotation of v about `axis` (used as given, unit or not) by `angle` radians:
// v*c + (axis x v)*s + axis*((1 - c)*(v . axis)), the three terms summed in that order.
inline ZVector Rotate(const ZVector& v, const ZVector& axis, float s, float c);

inline ZVector Rotate(const ZVector& v, const ZVector& axis, float angle) {
    float s, c;
    ::sincosf(angle, &s, &c);
    return Rotate(v, axis, s, c);
}

// The same rotation with the sine and cosine of the angle already at hand: bit for bit the
// result of Rotate(v, axis, angle) when s and c come from sincosf(angle). Loops that turn
// many vectors by one angle call sincosf once.
inline ZVector Rotate(const ZVector& v, const ZVector& axis, float s, float c) {
    const ZVector t0 = v * c;
    const ZVector t1 = axis.cross(v) * s;
    const ZVector t2 = axis * ((1.f - c) * v.dot(axis));
    return ZVector(t0.x + t1.x + t2.x, t0.y + t1.y + t2.y, t0.z + t1.z + t2.z);
}

inline std::ostream& operator<<(std::ostream& os, const ZVector& v) {
    return os << '(' << v.x << ", " << v.y << ", " << v.z << ')';
}

static_assert(sizeof(ZVector) == 12, "ZVector must be three packed floats");

} // namespace Ulmex
